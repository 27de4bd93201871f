# Made of _sources.py by python/make-stubs; what is changed there is changed here by running it.
from __future__ import annotations
import io
import os
import re
import stat
import threading
import weakref
from math import ceil
from typing import Any, Mapping, MutableMapping, NamedTuple, Optional, Tuple, Union
import numpy as np
from . import _checks, _native
from ._calls import call

class FileBytes:
    _all: 'MutableMapping[int, FileBytes]' = weakref.WeakValueDictionary()

    def __init__(self, file: Any) -> None:
        ...

    @classmethod
    def of(cls, file: Any) -> 'FileBytes':
        ...

    @classmethod
    def after_fork(cls) -> None:
        ...

    def _descriptor(self) -> Optional[int]:
        ...

    def read_at(self, position: int, count: int) -> bytes:
        ...

    def size(self) -> int:
        ...

def name_of_file(file: Any) -> str:
    ...

def local_path(source: Any) -> str:
    ...

def plain_path(path: str) -> str:
    ...

class Settings(NamedTuple):
    open_timeout: int = 0
    read_timeout: int = 0
    demuxer: str = ''
    options: Mapping[str, str] = {}

def _milliseconds(seconds: Optional[float], name: str) -> int:
    ...

def settings(open_timeout: Optional[float]=None, read_timeout: Optional[float]=None, demuxer: Optional[str]=None, options: Optional[Mapping[str, Any]]=None) -> Settings:
    ...

class Origin(NamedTuple):
    kind: str
    content: Any
    name: str
    path: Optional[str]

    @property
    def source(self) -> Any:
        ...

    def open(self, how: Settings=Settings()) -> _native.Source:
        ...
Source = Union[str, 'os.PathLike[str]', bytes, bytearray, memoryview, Any]

def origin_of(source: Source) -> Origin:
    ...

def pair_of_size(size: Any) -> Tuple[int, int]:
    ...
