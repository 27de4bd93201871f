# Made of _video.py by python/make-stubs; what is changed there is changed here by running it.
from __future__ import annotations
import os
from dataclasses import dataclass, field, replace
from fractions import Fraction
from math import ceil, floor
from typing import TYPE_CHECKING, Any, Dict, Iterable, List, Optional, Tuple, Union
import numpy as np
from . import _checks, _native, _numbers, _times
from ._calls import Progress, ProgressFunction
from ._errors import Error
from ._index import MOST_THREADS, FrameIndex, index_of
from ._metadata import VideoMetadata
from ._reader import Reader
from ._sources import Settings, Source, pair_of_size, settings
from numpy.typing import NDArray
_Pictures = NDArray[Any]
_Numbers = NDArray[np.int64]
FORMATS: Tuple[str, ...]

@dataclass(frozen=True, eq=False)
class Frame:
    data: '_Pictures' = field(repr=False)
    number: int
    time: Fraction
    duration: Fraction
    key: bool
    reached: str

@dataclass(frozen=True, eq=False)
class FrameBatch:
    data: '_Pictures' = field(repr=False)
    numbers: '_Numbers'
    times: List[Fraction]
    durations: List[Fraction]

    def __len__(self) -> int:
        ...

def picture_shape(format: str, height: int, width: int) -> Tuple[int, ...]:
    ...

def picture_type(format: str) -> 'np.dtype[Any]':
    ...

class VideoReader(Reader[_native.VideoReader, '_Pictures']):

    def __init__(self, source: Source, *, stream: Optional[int]=None, format: str='rgb24', size: Optional[Tuple[int, int]]=None, colours: str='tagged', threads: int=1, index: Union[FrameIndex, str, 'os.PathLike[str]', None]=None, checksums: bool=False, progress: Optional[ProgressFunction]=None, open_timeout: Optional[float]=None, read_timeout: Optional[float]=None, demuxer: Optional[str]=None, options: Optional[Dict[str, Any]]=None) -> None:
        ...

    def _begin(self, source: Source, given: Dict[str, Any], how: Settings, index: Optional[FrameIndex], told: Progress) -> None:
        ...

    def _reopen(self, source: Source, given: Dict[str, Any], how: Settings, index: bytes) -> None:
        ...

    def _stored_index(self) -> bytes:
        ...

    @property
    def ticks(self) -> '_Numbers':
        ...

    @property
    def time_base(self) -> Fraction:
        ...

    @property
    def key_frames(self) -> '_Numbers':
        ...

    @property
    def index(self) -> FrameIndex:
        ...

    @property
    def metadata(self) -> VideoMetadata:
        ...

    def time(self, number: int) -> Fraction:
        ...

    def duration(self, number: int) -> Fraction:
        ...

    def number_at(self, t: _times.Time) -> int:
        ...

    def __getitem__(self, key: Any) -> '_Pictures':
        ...

    def frame(self, number: int) -> Frame:
        ...

    def frames(self, numbers: Any, *, out: Optional['_Pictures']=None) -> FrameBatch:
        ...

    def frame_at(self, t: _times.Time) -> Frame:
        ...

    def frames_at(self, ts: Iterable[_times.Time], *, out: Optional['_Pictures']=None) -> FrameBatch:
        ...

    def frames_between(self, t0: _times.Time, t1: _times.Time, *, rate: Optional[_times.Time]=None) -> FrameBatch:
        ...

    def partitions(self, count: Optional[int]=None) -> List[Tuple[int, int]]:
        ...

    def digest(self, first: int=0, stop: Optional[int]=None) -> bytes:
        ...

    def __repr__(self) -> str:
        ...

    def _one(self, number: Any) -> int:
        ...

    def _memory(self, shape: Tuple[int, ...]) -> '_Pictures':
        ...

    def _picture(self, number: int) -> Tuple['_Pictures', str]:
        ...

    def _read(self, numbers: '_Numbers', data: '_Pictures') -> '_Pictures':
        ...

    def _fill_margin(self, data: '_Pictures') -> None:
        ...

    def _batch(self, numbers: '_Numbers', out: Optional['_Pictures']) -> FrameBatch:
        ...

    def _fitting(self, out: Any, numbers: '_Numbers') -> '_Pictures':
        ...

    def _times(self, numbers: Any) -> List[Tuple[Fraction, Fraction]]:
        ...

    def _number_at(self, t: Fraction, base: Fraction, count: int) -> int:
        ...

    def _numbers_between(self, begin: Fraction, end: Fraction, step: Optional[Fraction], count: int) -> '_Numbers':
        ...
