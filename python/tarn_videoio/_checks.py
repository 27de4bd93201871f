"""Arguments are checked here, before anything is touched."""

from __future__ import annotations

import operator
from fractions import Fraction
from typing import Any, Dict, Mapping, Optional, Sequence

import numpy as np

LARGEST: int = 2**31 - 1


def integer(value: Any, name: str, least: int = 0, most: Optional[int] = LARGEST) -> int:
    """A whole number; True and False are none. It may be as large as it likes with `most` None."""
    if isinstance(value, (bool, np.bool_)):
        raise TypeError(f"{name} has to be a whole number, not {value!r}")
    try:
        number = operator.index(value)
    except TypeError:
        raise TypeError(
            f"{name} has to be a whole number, not {type(value).__name__}") from None
    if number < least or (most is not None and number > most):
        wanted = f"{least} or more" if most is None else f"{least} to {most}"
        raise ValueError(f"{name} has to be {wanted}, not {number}")
    return number


def optional_integer(value: Any, name: str, least: int = 0, most: int = LARGEST) -> Optional[int]:
    return None if value is None else integer(value, name, least, most)


def flag(value: Any, name: str) -> bool:
    if not isinstance(value, (bool, np.bool_)):
        raise TypeError(f"{name} has to be True or False, not {type(value).__name__}")
    return bool(value)


def text(value: Any, name: str) -> str:
    if not isinstance(value, str):
        raise TypeError(f"{name} has to be a str, not {type(value).__name__}")
    if "\0" in value:
        raise ValueError(f"{name} has a null character")
    try:
        value.encode()
    except UnicodeEncodeError:
        raise ValueError(f"{name} has half a surrogate pair") from None
    return value


def word(value: Any, name: str, words: Sequence[str]) -> str:
    """One of some words."""
    if text(value, name) not in words:
        raise ValueError(f"{name} has to be one of {', '.join(words)}, not {value!r}")
    return str(value)


def texts(value: Any, name: str) -> Dict[str, str]:
    """A mapping of texts; numbers and truth values are taken as FFmpeg writes them."""
    if value is None:
        return {}
    if not isinstance(value, Mapping):
        raise TypeError(f"{name} has to be a dict, not {type(value).__name__}")
    found = {}
    for key, entry in value.items():
        if isinstance(entry, (bool, np.bool_)):
            entry = str(int(entry))
        elif isinstance(entry, (int, float, np.integer, np.floating)):
            entry = str(entry)
        found[text(key, f"a key of {name}")] = text(entry, f"{name}[{key!r}]")
    return found


def number(value: Any, name: str) -> float:
    """A finite number."""
    if isinstance(value, (bool, np.bool_)) or not isinstance(
            value, (int, float, Fraction, np.integer, np.floating)):
        raise TypeError(f"{name} has to be a number, not {type(value).__name__}")
    try:
        found = float(value)
    except OverflowError:
        raise ValueError(f"{name} is too large") from None
    if not np.isfinite(found):
        raise ValueError(f"{name} has to be finite, not {value!r}")
    return found
