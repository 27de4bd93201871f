"""Times are fractions of seconds, exactly."""

from __future__ import annotations

from decimal import Decimal
from fractions import Fraction
from numbers import Rational
from typing import Any, Tuple, Union

import numpy as np

Time = Union[int, float, Fraction, str]

_LARGEST = 2**63 - 1


def exact(value: Any, name: str = "a time") -> Fraction:
    """The fraction that a number or a string says; a float at its exact value."""
    if isinstance(value, np.generic):
        value = value.item()
    if isinstance(value, bool) or not isinstance(value, (Rational, float, Decimal, str)):
        raise TypeError(f"{name} has to be an int, float, Fraction or str, not "
                        f"{type(value).__name__}")
    try:
        return Fraction(value)
    except (ValueError, OverflowError, ZeroDivisionError):
        raise ValueError(f"{name} has to be a finite number, not {value!r}") from None


def positive(value: Any, name: str) -> Fraction:
    found = exact(value, name)
    if found <= 0:
        raise ValueError(f"{name} has to be above 0, not {value!r}")
    return found


def pair(value: Fraction, name: str = "a time") -> Tuple[int, int]:
    """Numerator and denominator, as the library takes them: 64 bits each."""
    if abs(value.numerator) > _LARGEST or value.denominator > _LARGEST:
        raise ValueError(f"{name} of {value} is finer or larger than 64 bits hold")
    return value.numerator, value.denominator
