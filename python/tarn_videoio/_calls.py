"""Calls of the library: their errors, their log lines, their progress."""

from __future__ import annotations

import logging
from typing import Any, Callable, Optional, TypeVar

import numpy as np

from . import _native
from ._errors import Cancelled, raise_failure

Result = TypeVar("Result")

logger: logging.Logger = logging.getLogger("tarn_videoio")
# Without a handler Python would print what is serious.
logger.addHandler(logging.NullHandler())

# By the library's levels, from details for developers to failures.
_LEVELS = (logging.DEBUG, logging.INFO, logging.WARNING, logging.ERROR, logging.ERROR,
           logging.ERROR)


def tell_log() -> None:
    """Hands what the library has logged since to Python's logging, in the calling thread."""
    lines = _native.take_log()
    if lines is None:
        return
    for source, level, text in lines:
        logger.log(_LEVELS[level], "%s: %s", source, text.rstrip("\n\r\0 "))


def call(name: str, function: Callable[..., Result], *arguments: Any, path: Optional[str] = None,
         writing: bool = False) -> Result:
    """Calls the library for the source `name`."""
    try:
        return function(*arguments)
    except _native.Failure as failure:
        raise_failure(failure, name, path, writing)
    finally:
        tell_log()


ProgressFunction = Callable[[str, int, int], Optional[bool]]


class Progress:
    """Passes on how far the making of an index has come, and at least its end."""

    def __init__(self, function: Optional[ProgressFunction]) -> None:
        if function is not None and not callable(function):
            raise TypeError("progress has to be a function of (step, done, total)")
        self.function = function
        self.called = False

    def __call__(self, step: str, done: int, total: int) -> bool:
        if self.function is None:
            return True
        self.called = True
        answer = self.function(step, done, total)
        return not (isinstance(answer, (bool, np.bool_)) and not answer)

    def finish(self, total: int, name: str, step: str = "packets") -> None:
        """Tells the end to who has heard nothing, and lets go of the function."""
        try:
            if self.function is not None and not self.called and not self(step, total, total):
                raise Cancelled(f"progress returned False: {name}")
        finally:
            self.function = None
