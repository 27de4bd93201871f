# Made of _index.py by python/make-stubs; what is changed there is changed here by running it.
from __future__ import annotations
import os
from typing import Any, Optional, Union
from . import _checks, _native, _numbers
from ._calls import Progress, ProgressFunction, call
from ._sources import Source, local_path, origin_of, settings
MOST_THREADS: int

class FrameIndex:

    def __init__(self, native: _native.FrameIndex, name: str) -> None:
        ...

    @classmethod
    def build(cls, source: Source, *, stream: Optional[int]=None, checksums: bool=False, threads: int=0, progress: Optional[ProgressFunction]=None, open_timeout: Optional[float]=None, read_timeout: Optional[float]=None, demuxer: Optional[str]=None, options: Optional[Any]=None) -> 'FrameIndex':
        ...

    @classmethod
    def load(cls, path: Union[str, 'os.PathLike[str]']) -> 'FrameIndex':
        ...

    @classmethod
    def from_bytes(cls, data: Union[bytes, bytearray, memoryview]) -> 'FrameIndex':
        ...

    @classmethod
    def _of(cls, data: bytes, name: str) -> 'FrameIndex':
        ...

    def save(self, path: Union[str, 'os.PathLike[str]']) -> None:
        ...

    def to_bytes(self) -> bytes:
        ...

    def match(self, source: Source) -> str:
        ...

    def digest(self, first: int=0, stop: Optional[int]=None) -> bytes:
        ...

    def __len__(self) -> int:
        ...

    @property
    def has_checksums(self) -> bool:
        ...

    @property
    def damaged(self) -> bool:
        ...

    def __reduce__(self) -> Any:
        ...

    def __repr__(self) -> str:
        ...

def _restored(data: bytes, name: str) -> FrameIndex:
    ...

def index_of(value: Any) -> Optional[FrameIndex]:
    ...
