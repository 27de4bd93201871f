# Made of _times.py by python/make-stubs; what is changed there is changed here by running it.
from __future__ import annotations
from decimal import Decimal
from fractions import Fraction
from numbers import Rational
from typing import Any, Tuple, Union
import numpy as np
Time = Union[int, float, Fraction, str]

def exact(value: Any, name: str='a time') -> Fraction:
    ...

def positive(value: Any, name: str) -> Fraction:
    ...

def pair(value: Fraction, name: str='a time') -> Tuple[int, int]:
    ...
