# Made of _clips.py by python/make-stubs; what is changed there is changed here by running it.
from __future__ import annotations
from typing import TYPE_CHECKING, Any, Optional
import numpy as np
from . import _checks
from ._video import FrameBatch, VideoReader
from numpy.typing import NDArray

def clips(v: VideoReader, count: int, length: int, *, step: int=1, start: int=0, stop: Optional[int]=None, policy: str='repeat', rng: Optional[np.random.Generator]=None) -> FrameBatch:
    ...

def _beginnings(count: int, first: int, last: int, rng: Optional[np.random.Generator]) -> 'NDArray[np.int64]':
    ...

def _places(length: int, step: int, frames: int, policy: str) -> 'NDArray[Any]':
    ...
