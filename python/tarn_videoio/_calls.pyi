# Made of _calls.py by python/make-stubs; what is changed there is changed here by running it.
from __future__ import annotations
import logging
from typing import Any, Callable, Optional, TypeVar
import numpy as np
from . import _native
from ._errors import Cancelled, raise_failure
Result = TypeVar('Result')
logger: logging.Logger

def tell_log() -> None:
    ...

def call(name: str, function: Callable[..., Result], *arguments: Any, path: Optional[str]=None, writing: bool=False) -> Result:
    ...
ProgressFunction = Callable[[str, int, int], Optional[bool]]

class Progress:

    def __init__(self, function: Optional[ProgressFunction]) -> None:
        ...

    def __call__(self, step: str, done: int, total: int) -> bool:
        ...

    def finish(self, total: int, name: str, step: str='packets') -> None:
        ...
