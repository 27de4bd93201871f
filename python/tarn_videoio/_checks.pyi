# Made of _checks.py by python/make-stubs; what is changed there is changed here by running it.
from __future__ import annotations
import operator
from fractions import Fraction
from typing import Any, Dict, Mapping, Optional, Sequence
import numpy as np
LARGEST: int

def integer(value: Any, name: str, least: int=0, most: Optional[int]=LARGEST) -> int:
    ...

def optional_integer(value: Any, name: str, least: int=0, most: int=LARGEST) -> Optional[int]:
    ...

def flag(value: Any, name: str) -> bool:
    ...

def text(value: Any, name: str) -> str:
    ...

def word(value: Any, name: str, words: Sequence[str]) -> str:
    ...

def texts(value: Any, name: str) -> Dict[str, str]:
    ...

def number(value: Any, name: str) -> float:
    ...
