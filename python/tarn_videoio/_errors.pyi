# Made of _errors.py by python/make-stubs; what is changed there is changed here by running it.
from __future__ import annotations
import errno
import os
from fractions import Fraction
from typing import Any, FrozenSet, NoReturn, Optional, Tuple

class Error(Exception):

    def __init__(self, text: str='', code: int=0) -> None:
        ...

    def __reduce__(self) -> Tuple[Any, ...]:
        ...

class Timeout(Error, TimeoutError):
    ...

class IndexMismatch(Error):
    ...

class Cancelled(Error):
    ...
OF_A_FULL_DISK: FrozenSet[int]

def _system_error(code: int, path: Optional[str], writing: bool) -> Optional[OSError]:
    ...

def raise_failure(failure: BaseException, name: str, path: Optional[str]=None, writing: bool=False) -> NoReturn:
    ...
