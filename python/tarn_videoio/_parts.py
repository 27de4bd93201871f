"""Parts of clips, as a worker reads them: what a task is told, what it does, what it hands back.

A task is told a path, options and an index, and never pictures. Knows nothing of Dask.
"""

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

_KEPT = 8  # readers that a process keeps open while no task uses them
_PART_BYTES = 128 << 20  # of the pictures of a part, unless told: as large as Dask's own chunks
_PART_FRAMES = 1000  # at most then, so that small pictures are spread over workers, too
_ATTEMPTS = 3  # at reading a part of a file that is touched meanwhile

Stamp = Optional[Tuple[int, ...]]


def is_openable(source: Any) -> bool:
    """Whether it says where a file is and opens it, anywhere: an OpenFile of fsspec."""
    return hasattr(source, "fs") and hasattr(source, "path") and callable(
        getattr(source, "open", None))


@dataclass(frozen=True)
class Clip:
    """A clip and how it is read."""

    source: Any  # an absolute path, a URL, or an OpenFile of fsspec
    options: Mapping[str, Any]  # of VideoReader, without those below
    checksums: bool
    index: Union[bytes, str, None] = field(default=None, repr=False)  # given: bytes, or its path
    target: str = ""  # where its index is to be stored

    @property
    def name(self) -> str:
        return str(self.source.path) if is_openable(self.source) else str(self.source)

    def given_index(self) -> Optional[FrameIndex]:
        if isinstance(self.index, bytes):
            return FrameIndex.from_bytes(self.index)
        return None if self.index is None else FrameIndex.load(self.index)

    def content(self) -> Any:
        """What a reader is made of."""
        return self.source.open() if is_openable(self.source) else self.source

    def open(self, index: Optional[FrameIndex],
             progress: Optional[ProgressFunction] = None) -> VideoReader:
        return VideoReader(self.content(), index=index, checksums=self.checksums, threads=1,
                           progress=progress, **self.options)

    @property
    def path(self) -> Optional[str]:
        """Of a local file."""
        return None if is_openable(self.source) else origin_of(self.source).path

    def stamp(self) -> Stamp:
        """What changes when somebody writes into the file; None for what is no local file."""
        path = self.path
        if path is None:
            return None
        found = os.stat(path)
        return found.st_dev, found.st_ino, found.st_size, found.st_mtime_ns


def clip_of(source: Any, options: Mapping[str, Any], checksums: bool,
            index: Union[bytes, str, None] = None) -> Clip:
    """A clip that any process can open. TypeError for a source that cannot travel."""
    if not is_openable(source):
        origin = origin_of(source)
        if origin.kind != "path":
            kind = "bytes" if origin.kind == "memory" else name_of_file(source)
            raise TypeError(f"only paths and URLs travel to workers, not {kind}")
        source = origin.source
    return Clip(source, options, checksums, index)


@dataclass(frozen=True)
class Prepared:
    """A clip, its index, and where it is cut."""

    clip: Clip
    index: bytes = field(repr=False)
    identity: bytes  # of the index
    frames: int
    parts: Tuple[Tuple[int, int], ...]  # (first, stop), rising, without gaps

    @property
    def key(self) -> Any:
        return (self.clip.name, self.identity, self.clip.checksums,
                repr(sorted(self.clip.options.items())))


class Readers:
    """Open readers of this process that no task uses just now: the last ones used."""

    def __init__(self) -> None:
        self._idle: List[Tuple[Any, Stamp, VideoReader]] = []
        self.renew_lock()

    def renew_lock(self) -> None:
        self._lock = threading.Lock()

    def take(self, prepared: Prepared) -> Tuple[Stamp, VideoReader]:
        """A reader, for the caller alone. One of a file that was touched is opened once more, which
        finds out whether it is still what the index was made of."""
        stamp = prepared.clip.stamp()
        found = None
        with self._lock:
            for place, (key, opened, reader) in enumerate(self._idle):
                if key == prepared.key:
                    found = opened, reader
                    del self._idle[place]
                    break
        if found is not None and found[0] == stamp:
            return found
        if found is not None:
            found[1].close()
        return stamp, prepared.clip.open(FrameIndex.from_bytes(prepared.index))

    def give(self, prepared: Prepared, stamp: Stamp, reader: VideoReader) -> None:
        with self._lock:
            self._idle.append((prepared.key, stamp, reader))
            surplus = self._idle[:-_KEPT]
            del self._idle[:-_KEPT]
        for _, _, old in surplus:
            old.close()

    def close(self) -> None:
        with self._lock:
            surplus, self._idle = self._idle, []
        for _, _, old in surplus:
            old.close()


readers: Readers = Readers()
os.register_at_fork(after_in_child=readers.renew_lock)


def picture_layout(reader: VideoReader) -> Tuple[Tuple[int, ...], "np.dtype[Any]"]:
    """Shape and type of one picture as the reader delivers it."""
    empty = reader.frames([])
    return empty.data.shape[1:], empty.data.dtype


def prepare(clip: Clip, chunk: Optional[int]) -> Prepared:
    """Takes or makes the index of a clip, and cuts it into parts of about `chunk` frames."""
    stamp = clip.stamp()
    reader = clip.open(clip.given_index())
    found = prepared_of(clip, reader, chunk)
    readers.give(found, stamp, reader)
    return found


def prepared_of(clip: Clip, reader: VideoReader, chunk: Optional[int]) -> Prepared:
    """What a reader of a clip knows of it."""
    frames = len(reader)
    if chunk is None:
        shape, kind = picture_layout(reader)
        bytes_each = max(1, int(np.prod(shape)) * kind.itemsize)
        chunk = max(1, min(_PART_FRAMES, _PART_BYTES // bytes_each))
    parts = tuple(reader.partitions(ceil(frames / chunk))) if frames else ()
    index = reader.index.to_bytes()
    return Prepared(replace(clip, index=None), index, blake2b(index, digest_size=16).digest(),
                    frames, parts)


def read(prepared: Prepared, first: int, stop: int) -> FrameBatch:
    """The frames `first` to `stop` - 1, of the clip that the index was made of.

    With checksums each of them is compared with the index while it is read.
    """
    for _ in range(_ATTEMPTS):
        stamp, reader = readers.take(prepared)
        try:
            batch = reader.frames(range(first, stop))
            same = prepared.clip.stamp() == stamp
        except BaseException:
            reader.close()
            raise
        if same:
            readers.give(prepared, stamp, reader)
            return batch
        reader.close()
    raise Error(f"{prepared.clip.name} is written to while it is read")


@dataclass(frozen=True, eq=False)
class Held:
    """Gives a value: a task that others take it from."""

    value: Any

    def __call__(self) -> Any:
        return self.value


def read_array(prepared: Prepared, first: int, stop: int, _: Any = None) -> Any:
    return read(prepared, first, stop).data


def read_samples(recipe: bytes, first: int, stop: int, _: Any = None) -> Any:
    """The samples `first` to `stop` - 1 of a pickled AudioReader, which has its index with it."""
    with pickle.loads(recipe) as reader:
        return reader[first:stop]


# What a task does with clips, and what comes back

@dataclass(frozen=True)
class Failure:
    """An exception on its way to another process, which keeps neither its cause nor its place."""

    error: BaseException
    where: str

    @classmethod
    def of(cls, error: BaseException, where: str) -> "Failure":
        told = "".join(traceback.format_exception(type(error), error, error.__traceback__))
        error.__traceback__ = None
        if not _travels(error):
            error = Error(f"{where}: {type(error).__name__}: {error}")
        return cls(error, f"{where}\n\n{told}")

    def throw(self) -> None:
        raise self.error from Error(self.where)


def _travels(error: BaseException) -> bool:
    """Whether another process gets the same exception."""
    by_value: Any = pickle
    with suppress(ImportError):  # it comes with Dask, and knows classes of __main__
        by_value = import_module("cloudpickle")
    try:
        twin = pickle.loads(by_value.dumps(error))
        return type(twin).__name__ == type(error).__name__ and str(twin) == str(error)
    except Exception:
        return False


@dataclass
class Piece:
    """What a task made of the parts of a clip, or of some of them, up to a failure."""

    identity: bytes
    frames: int
    results: List[Tuple[int, int, Any]]  # first, stop, what the function gave
    failure: Optional[Failure] = None


class Stopped(Exception):
    """Ends a job with its first failure."""

    def __init__(self, failure: Failure) -> None:
        super().__init__(failure)
        self.failure = failure


@contextmanager
def _failing(piece: Piece, where: str) -> Iterator[None]:
    try:
        yield
    except (Exception, SystemExit) as error:
        piece.failure = Failure.of(error, where)


@dataclass(frozen=True, eq=False)
class Preparing:
    """The task that makes the index of a clip that several tasks read."""

    chunk: Optional[int]

    def __call__(self, clip: Clip) -> Union[Prepared, Failure]:
        try:
            return prepare(clip, self.chunk)
        except Exception as error:
            return Failure.of(error, clip.name)


@dataclass(frozen=True, eq=False)
class Applying:
    """The task that applies a function to parts of clips."""

    function: Callable[[FrameBatch], Any]
    chunk: Optional[int]
    stops: bool = False  # at the first failure: for a scheduler that tells all at the end

    def __call__(self, clips: Sequence[Clip], place: int = 0, of: int = 1,
                 prepared: Union[Prepared, Failure, None] = None) -> List[Piece]:
        """The `place`-th of `of` shares of the parts of each clip."""
        pieces = []
        for clip in clips:
            pieces.append(self._apply(clip, place, of, prepared))
            failure = pieces[-1].failure
            if failure is not None and self.stops:
                raise Stopped(failure)
        return pieces

    def _apply(self, clip: Clip, place: int, of: int,
               prepared: Union[Prepared, Failure, None]) -> Piece:
        piece = Piece(b"", 0, [])
        if prepared is None:
            prepared = Preparing(self.chunk)(clip)
        if isinstance(prepared, Failure):
            piece.failure = prepared
            return piece
        piece.identity, piece.frames = prepared.identity, prepared.frames
        count = len(prepared.parts)
        for first, stop in prepared.parts[place * count // of:(place + 1) * count // of]:
            with _failing(piece, f"{clip.name}, frames {first} to {stop - 1}"):
                piece.results.append((first, stop, self.function(read(prepared, first, stop))))
            if piece.failure is not None:
                break
        return piece


@dataclass(frozen=True, eq=False)
class Indexing:
    """The task that makes and stores indices."""

    stops: bool = False

    def __call__(self, clips: Sequence[Clip], place: int = 0, of: int = 1,
                 prepared: Union[Prepared, Failure, None] = None) -> List[Piece]:
        pieces = []
        for clip in clips:
            piece = Piece(b"", 1, [])
            with _failing(piece, clip.name):
                store_index(clip)
                piece.results.append((0, 1, clip.target))
            if piece.failure is not None and self.stops:
                raise Stopped(piece.failure)
            pieces.append(piece)
        return pieces


def store_index(clip: Clip) -> None:
    """Leaves an index as it is that is there and still the clip's."""
    if os.path.exists(clip.target):
        try:
            there = FrameIndex.load(clip.target)
            if (there.has_checksums or not clip.checksums) and \
                    there.match(clip.content()) == "fresh":
                clip.open(there).close()  # of the same stream
                return
        except Error:
            pass  # damaged, or of another stream
    with clip.open(None) as reader:
        reader.index.save(clip.target)
