# Made of _sound.py by python/make-stubs; what is changed there is changed here by running it.
from __future__ import annotations
from fractions import Fraction
from math import floor
from typing import TYPE_CHECKING, Any, Dict, Iterator, Optional, Tuple
import numpy as np
from . import _checks, _native, _numbers, _times
from ._calls import Progress, ProgressFunction
from ._errors import Error
from ._metadata import SoundMetadata
from ._reader import Reader
from ._sources import Settings, Source, settings
from numpy.typing import NDArray
_Samples = NDArray[np.float32]

class AudioReader(Reader[_native.AudioReader, '_Samples']):

    def __init__(self, source: Source, *, stream: Optional[int]=None, checksums: bool=False, progress: Optional[ProgressFunction]=None, open_timeout: Optional[float]=None, read_timeout: Optional[float]=None, demuxer: Optional[str]=None, options: Optional[Dict[str, Any]]=None) -> None:
        ...

    def _begin(self, source: Source, given: Dict[str, Any], how: Settings, index: Optional[bytes], told: Progress) -> None:
        ...

    def _reopen(self, source: Source, given: Dict[str, Any], how: Settings, index: bytes) -> None:
        ...

    def _stored_index(self) -> bytes:
        ...

    @property
    def rate(self) -> int:
        ...

    @property
    def channels(self) -> int:
        ...

    @property
    def layout(self) -> str:
        ...

    @property
    def start_time(self) -> Fraction:
        ...

    @property
    def duration(self) -> Fraction:
        ...

    @property
    def metadata(self) -> SoundMetadata:
        ...

    def time(self, number: int) -> Fraction:
        ...

    def number_at(self, t: _times.Time) -> int:
        ...

    def __getitem__(self, key: Any) -> '_Samples':
        ...

    def between(self, t0: _times.Time, t1: _times.Time) -> '_Samples':
        ...

    def blocks(self, size: int) -> Iterator['_Samples']:
        ...

    def __repr__(self) -> str:
        ...

    def _read(self, first: int, stop: int) -> '_Samples':
        ...

    def _blocks(self, size: int) -> Iterator['_Samples']:
        ...

    def _first_from(self, time: Fraction) -> int:
        ...

    def _number_at(self, time: Fraction) -> int:
        ...

    @staticmethod
    def _pair(time: Fraction) -> Tuple[int, int]:
        ...
