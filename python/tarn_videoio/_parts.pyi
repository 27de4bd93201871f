# Made of _parts.py by python/make-stubs; what is changed there is changed here by running it.
from __future__ import annotations
import os
import pickle
import threading
import traceback
from contextlib import contextmanager, suppress
from dataclasses import dataclass, field, replace
from hashlib import blake2b
from importlib import import_module
from math import ceil
from typing import Any, Callable, Iterator, List, Mapping, Optional, Sequence, Tuple, Union
import numpy as np
from ._calls import ProgressFunction
from ._errors import Error
from ._index import FrameIndex
from ._sources import name_of_file, origin_of
from ._video import FrameBatch, VideoReader
Stamp = Optional[Tuple[int, ...]]

def is_openable(source: Any) -> bool:
    ...

@dataclass(frozen=True)
class Clip:
    source: Any
    options: Mapping[str, Any]
    checksums: bool
    index: Union[bytes, str, None] = field(default=None, repr=False)
    target: str = ''

    @property
    def name(self) -> str:
        ...

    def given_index(self) -> Optional[FrameIndex]:
        ...

    def content(self) -> Any:
        ...

    def open(self, index: Optional[FrameIndex], progress: Optional[ProgressFunction]=None) -> VideoReader:
        ...

    @property
    def path(self) -> Optional[str]:
        ...

    def stamp(self) -> Stamp:
        ...

def clip_of(source: Any, options: Mapping[str, Any], checksums: bool, index: Union[bytes, str, None]=None) -> Clip:
    ...

@dataclass(frozen=True)
class Prepared:
    clip: Clip
    index: bytes = field(repr=False)
    identity: bytes
    frames: int
    parts: Tuple[Tuple[int, int], ...]

    @property
    def key(self) -> Any:
        ...

class Readers:

    def __init__(self) -> None:
        ...

    def renew_lock(self) -> None:
        ...

    def take(self, prepared: Prepared) -> Tuple[Stamp, VideoReader]:
        ...

    def give(self, prepared: Prepared, stamp: Stamp, reader: VideoReader) -> None:
        ...

    def close(self) -> None:
        ...
readers: Readers

def picture_layout(reader: VideoReader) -> Tuple[Tuple[int, ...], 'np.dtype[Any]']:
    ...

def prepare(clip: Clip, chunk: Optional[int]) -> Prepared:
    ...

def prepared_of(clip: Clip, reader: VideoReader, chunk: Optional[int]) -> Prepared:
    ...

def read(prepared: Prepared, first: int, stop: int) -> FrameBatch:
    ...

@dataclass(frozen=True, eq=False)
class Held:
    value: Any

    def __call__(self) -> Any:
        ...

def read_array(prepared: Prepared, first: int, stop: int, _: Any=None) -> Any:
    ...

def read_samples(recipe: bytes, first: int, stop: int, _: Any=None) -> Any:
    ...

@dataclass(frozen=True)
class Failure:
    error: BaseException
    where: str

    @classmethod
    def of(cls, error: BaseException, where: str) -> 'Failure':
        ...

    def throw(self) -> None:
        ...

def _travels(error: BaseException) -> bool:
    ...

@dataclass
class Piece:
    identity: bytes
    frames: int
    results: List[Tuple[int, int, Any]]
    failure: Optional[Failure] = None

class Stopped(Exception):

    def __init__(self, failure: Failure) -> None:
        ...

@contextmanager
def _failing(piece: Piece, where: str) -> Iterator[None]:
    ...

@dataclass(frozen=True, eq=False)
class Preparing:
    chunk: Optional[int]

    def __call__(self, clip: Clip) -> Union[Prepared, Failure]:
        ...

@dataclass(frozen=True, eq=False)
class Applying:
    function: Callable[[FrameBatch], Any]
    chunk: Optional[int]
    stops: bool = False

    def __call__(self, clips: Sequence[Clip], place: int=0, of: int=1, prepared: Union[Prepared, Failure, None]=None) -> List[Piece]:
        ...

    def _apply(self, clip: Clip, place: int, of: int, prepared: Union[Prepared, Failure, None]) -> Piece:
        ...

@dataclass(frozen=True, eq=False)
class Indexing:
    stops: bool = False

    def __call__(self, clips: Sequence[Clip], place: int=0, of: int=1, prepared: Union[Prepared, Failure, None]=None) -> List[Piece]:
        ...

def store_index(clip: Clip) -> None:
    ...
