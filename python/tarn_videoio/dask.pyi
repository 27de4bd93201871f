# Made of dask.py by python/make-stubs; what is changed there is changed here by running it.
from __future__ import annotations
import inspect
import os
import pickle
from contextlib import contextmanager
from dataclasses import replace
from functools import partial
from hashlib import blake2b
from typing import TYPE_CHECKING, Any, Callable, Dict, Iterable, Iterator, List, Mapping, Optional, Sequence, Tuple, Union
import numpy as np
from . import _checks, _parts
from ._calls import Progress, ProgressFunction
from ._cluster import OnCluster, thread_count
from ._errors import Error
from ._index import FrameIndex, index_of
from ._jobs import Job, Task
from ._sound import AudioReader
from ._video import FrameBatch, VideoReader
Given = Union[FrameIndex, str, 'os.PathLike[str]', None]
dask: Any
distributed: Any
__all__ = ['frames', 'index', 'map', 'sounds']

def frames(source: Any, *, chunk: Optional[int]=None, **reader_options: Any) -> Any:
    ...

def sounds(source: Any, *, chunk: Optional[int]=None, **reader_options: Any) -> Any:
    ...

def _held(name: str, value: Any) -> Tuple[Dict[Any, Any], List[Any]]:
    ...

def _forgets_waiting() -> bool:
    ...

def _array(name: str, layer: Dict[Any, Any], chunks: Any, kind: 'np.dtype[Any]') -> Any:
    ...

def map(function: Callable[[FrameBatch], Any], sources: Iterable[Any], *, chunk: Optional[int]=None, checksums: bool=True, index: Union[Given, Sequence[Given]]=None, on_error: str='raise', progress: Optional[ProgressFunction]=None, **reader_options: Any) -> List[Any]:
    ...

def index(sources: Iterable[Any], folder: Union[str, 'os.PathLike[str]', None]=None, *, checksums: bool=False, on_error: str='raise', progress: Optional[ProgressFunction]=None, **reader_options: Any) -> List[Any]:
    ...

def _index_path(clip: _parts.Clip, folder: Optional[str]) -> str:
    ...

def _reader_options(options: Mapping[str, Any]) -> Dict[str, Any]:
    ...

def _clips(sources: Iterable[Any], options: Mapping[str, Any], checksums: bool, index: Any) -> List[_parts.Clip]:
    ...

def _sent(index: Any) -> Union[bytes, str, None]:
    ...

@contextmanager
def _current_client() -> Iterator[Any]:
    ...

def _spread(work: Any, preparing: Any, clips: List[_parts.Clip], on_error: str, progress: Optional[ProgressFunction]) -> List[Any]:
    ...

def _run_here(work: Any, preparing: Any, job: Job, tasks: Sequence[Task]) -> None:
    ...

def _delayed(function: Any, *arguments: Any) -> Any:
    ...
