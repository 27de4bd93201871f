# Made of _writers.py by python/make-stubs; what is changed there is changed here by running it.
from __future__ import annotations
import os
import warnings
from fractions import Fraction
from math import gcd
from typing import TYPE_CHECKING, Any, Callable, Dict, List, Mapping, Optional, Sequence, Tuple, Union
import numpy as np
from . import _checks, _native, _times
from ._calls import call
from ._errors import OF_A_FULL_DISK, Error
from ._native import ClipWriter as NativeWriter
from ._sources import Source, local_path, origin_of, plain_path
from ._video import FORMATS, picture_type
from numpy.typing import NDArray
_Pictures = NDArray[Any]
_Samples = NDArray[np.float32]
Path = Union[str, 'os.PathLike[str]']
Times = Union[_times.Time, Sequence[_times.Time]]

class _Writer:
    _native: Optional[NativeWriter] = None

    def _open(self, path: Path, extensions: Sequence[str], options: Dict[str, Any]) -> None:
        ...

    def _call(self, function: Callable[..., Any], *arguments: Any) -> Any:
        ...

    def _opened(self) -> NativeWriter:
        ...

    def _write_samples(self, samples: Any, time: Optional[_times.Time]) -> None:
        ...

    def close(self) -> None:
        ...

    @property
    def closed(self) -> bool:
        ...

    def __exit__(self, kind: Any, *_: Any) -> None:
        ...

    def __del__(self) -> None:
        ...

    def __reduce__(self) -> Any:
        ...

    def __repr__(self) -> str:
        ...

class VideoWriter(_Writer):

    def __init__(self, path: Path, *, rate: Optional[_times.Time]=None, time_base: Optional[_times.Time]=None, codec: str='h264', format: str='rgb24', crf: Optional[float]=None, preset: Optional[str]=None, bit_rate: Optional[int]=None, options: Optional[Mapping[str, Any]]=None, threads: int=0, colours: Optional[str]=None, rotation: int=0, metadata: Optional[Mapping[str, Any]]=None, audio_rate: Optional[int]=None, audio_channels: Optional[int]=None, audio_codec: str='aac', audio_bit_rate: Optional[int]=None, fragmented: bool=False, faststart: bool=True, overwrite: bool=True, origin: str='given') -> None:
        ...

    def __enter__(self) -> 'VideoWriter':
        ...

    def write(self, picture: '_Pictures', time: Optional[Times]=None, duration: Optional[_times.Time]=None) -> None:
        ...

    def write_audio(self, samples: '_Samples', *, time: Optional[_times.Time]=None) -> None:
        ...

    def _times_of(self, time: Times, count: int) -> List[Fraction]:
        ...

    def _check_rising(self, times: List[Fraction]) -> None:
        ...

    def _check_grid(self, times: List[Fraction]) -> None:
        ...

    def _next(self) -> Fraction:
        ...

    def _note(self, times: Optional[List[Fraction]], count: int, length: Optional[Fraction]) -> None:
        ...

class AudioWriter(_Writer):

    def __init__(self, path: Path, rate: int, channels: Optional[int]=None, *, codec: Optional[str]=None, bit_rate: Optional[int]=None, metadata: Optional[Mapping[str, Any]]=None, overwrite: bool=True) -> None:
        ...

    def __enter__(self) -> 'AudioWriter':
        ...

    def write(self, samples: '_Samples') -> None:
        ...

def remux(source: Source, path: Path, *, overwrite: bool=True) -> None:
    ...

def _array_of(value: Any, what: str) -> 'NDArray[Any]':
    ...

def batch_of(picture: Any, format: str) -> Tuple['_Pictures', int, int]:
    ...

def _block_of(samples: Any) -> '_Samples':
    ...
