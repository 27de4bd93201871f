# Made of _numbers.py by python/make-stubs; what is changed there is changed here by running it.
from __future__ import annotations
import operator
from typing import Any, List, Tuple, Union
import numpy as np
from . import _checks

def one(value: Any, count: int, what: str='frame') -> int:
    ...

def span(first: Any, stop: Any, count: int) -> Tuple[int, int]:
    ...

def many(values: Any, count: int) -> 'np.ndarray[Any, Any]':
    ...

def _array_of(values: Any, count: int) -> 'np.ndarray[Any, Any]':
    ...
