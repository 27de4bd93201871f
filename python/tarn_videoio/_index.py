"""Which packets of a video become which frames."""

from __future__ import annotations

import os
from typing import Any, Optional, Union

from . import _checks, _native, _numbers
from ._calls import Progress, ProgressFunction, call
from ._sources import Source, local_path, origin_of, settings

MOST_THREADS: int = 512


class FrameIndex:
    """The frames of a video: made once, kept in a file, and given to readers.

    An index belongs to what the clip is, not to where it lies: that of a file is the index of its
    copies, and of the same bytes in memory. It is a value and may be used by any threads.
    """

    def __init__(self, native: _native.FrameIndex, name: str) -> None:
        if not isinstance(native, _native.FrameIndex):
            raise TypeError("make an index with FrameIndex.build, load or from_bytes")
        self._native = native
        self._name = name

    @classmethod
    def build(cls, source: Source, *, stream: Optional[int] = None, checksums: bool = False,
              threads: int = 0, progress: Optional[ProgressFunction] = None,
              open_timeout: Optional[float] = None, read_timeout: Optional[float] = None,
              demuxer: Optional[str] = None, options: Optional[Any] = None) -> "FrameIndex":
        """Makes the index of a source.

        `checksums` decodes all of it and keeps a checksum of every picture. `threads` are those
        of the decoder, 0 for one per core. `progress(step, done, total)` is called now and then;
        it may return False or raise to stop.
        """
        origin = origin_of(source)
        stream = _checks.optional_integer(stream, "stream")
        checksums = _checks.flag(checksums, "checksums")
        threads = _checks.integer(threads, "threads", 0, MOST_THREADS)
        told = Progress(progress)
        opened = origin.open(settings(open_timeout, read_timeout, demuxer, options))
        native = call(origin.name, _native.FrameIndex.build, opened, stream, checksums, threads,
                      told, path=origin.path)
        told.finish(native.count, origin.name)
        return cls(native, origin.name)

    @classmethod
    def load(cls, path: Union[str, "os.PathLike[str]"]) -> "FrameIndex":
        """The index that `save` wrote. Raises tv.Error when the file is damaged."""
        name = local_path(path)
        with open(name, "rb") as file:
            return cls._of(file.read(), name)

    @classmethod
    def from_bytes(cls, data: Union[bytes, bytearray, memoryview]) -> "FrameIndex":
        """The index that `to_bytes` was called of. Raises tv.Error when the bytes are damaged."""
        if not isinstance(data, (bytes, bytearray, memoryview)):
            raise TypeError(f"an index is made of bytes, not of {type(data).__name__}")
        return cls._of(bytes(data), "index")

    @classmethod
    def _of(cls, data: bytes, name: str) -> "FrameIndex":
        return cls(call(name, _native.FrameIndex.from_bytes, data), name)

    def save(self, path: Union[str, "os.PathLike[str]"]) -> None:
        """Writes the index; the file has its name only when it is complete."""
        name = local_path(path)
        call(name, self._native.save, os.fsencode(name), path=name, writing=True)

    def to_bytes(self) -> bytes:
        """What `save` writes, to be sent elsewhere."""
        return call(self._name, self._native.to_bytes)

    def match(self, source: Source) -> str:
        """What the index is to a source: "fresh" when it is that of it, "stale" when the source
        has been changed since, "foreign" when it is another one."""
        origin = origin_of(source)
        return call(origin.name, self._native.match, origin.open(), path=origin.path)

    def digest(self, first: int = 0, stop: Optional[int] = None) -> bytes:
        """What `VideoReader.digest` gives when those are the pictures that it decodes.

        Made of the checksums, decodes nothing. Raises IndexError for frames that there are not,
        and tv.Error for an index without checksums.
        """
        begin, end = _numbers.span(first, stop, len(self))
        return call(self._name, self._native.digest, begin, end)

    def __len__(self) -> int:
        return self._native.count

    @property
    def has_checksums(self) -> bool:
        """Whether there is a checksum of every picture."""
        return self._native.has_checksums

    @property
    def damaged(self) -> bool:
        """Whether the stream was found damaged."""
        return self._native.damaged

    def __reduce__(self) -> Any:
        return _restored, (self.to_bytes(), self._name)

    def __repr__(self) -> str:
        return f"<FrameIndex of {self._name}: {len(self)} frames>"


def _restored(data: bytes, name: str) -> FrameIndex:
    return FrameIndex._of(data, name)


def index_of(value: Any) -> Optional[FrameIndex]:
    """What is given for `index=`: an index, or the path of one."""
    if value is None or isinstance(value, FrameIndex):
        return value
    if isinstance(value, (str, os.PathLike)):
        return FrameIndex.load(value)
    raise TypeError(f"index has to be a FrameIndex or the path of one, not {type(value).__name__}")
