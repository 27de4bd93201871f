"""Where bytes come from: a path or URL, memory, or a file object."""

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

# What a string begins with that FFmpeg is to open, and no file: "rtsp://", or a protocol of
# FFmpeg's that has no slashes.
_URL = re.compile(r"[A-Za-z][A-Za-z0-9+.\-]*://|(?:file|data|concat|concatf|subfile|crypto|cache|"
                  r"async|pipe|fd)[:,]")
_LONGEST_WAIT = 10 * 365 * 86400  # seconds; the library counts microseconds in 64 bits


class FileBytes:
    """The bytes of a file object, at any place, for several threads and processes."""

    _all: "MutableMapping[int, FileBytes]" = weakref.WeakValueDictionary()

    def __init__(self, file: Any) -> None:
        self.file = file
        self.lock = threading.Lock()

    @classmethod
    def of(cls, file: Any) -> "FileBytes":
        """The same for all readers of a file object, whose position they share."""
        found = cls._all.get(id(file))
        if found is None or found.file is not file:
            found = cls._all[id(file)] = FileBytes(file)
        return found

    @classmethod
    def after_fork(cls) -> None:
        """In the child nobody is there to open a lock that another thread held."""
        for one in list(cls._all.values()):
            one.lock = threading.Lock()

    def _descriptor(self) -> Optional[int]:
        """Of a real file: its position is shared with forked processes, so it is left alone."""
        if type(self.file) not in (io.BufferedReader, io.BufferedRandom, io.FileIO):
            return None
        raw = self.file if isinstance(self.file, io.FileIO) else self.file.raw
        if type(raw) is not io.FileIO or not self.file.readable():
            return None
        if isinstance(self.file, io.BufferedRandom):
            self.file.flush()
        descriptor = self.file.fileno()
        return descriptor if stat.S_ISREG(os.fstat(descriptor).st_mode) else None

    def read_at(self, position: int, count: int) -> bytes:
        descriptor = self._descriptor()
        if descriptor is not None:
            return os.pread(descriptor, count, position)
        with self.lock:
            self.file.seek(position)
            block = self.file.read(count)
        if not isinstance(block, (bytes, bytearray, memoryview)):
            raise TypeError(f"read() of {name_of_file(self.file)} gave "
                            f"{type(block).__name__}, not bytes")
        block = bytes(block)
        if len(block) > count:
            raise OSError(f"read({count}) of {name_of_file(self.file)} gave {len(block)} bytes")
        return block

    def size(self) -> int:
        descriptor = self._descriptor()
        if descriptor is not None:
            return os.fstat(descriptor).st_size
        with self.lock:
            size = self.file.seek(0, os.SEEK_END)
            if size is None:
                size = self.file.tell()
        if isinstance(size, bool) or not isinstance(size, (int, np.integer)):
            raise TypeError(f"seek() of {name_of_file(self.file)} gave {type(size).__name__}")
        if not 0 <= size < 2**63:
            raise OSError(f"seek() of {name_of_file(self.file)} gave {size}")
        return int(size)


os.register_at_fork(after_in_child=FileBytes.after_fork)


def name_of_file(file: Any) -> str:
    name = getattr(file, "name", None)
    if isinstance(name, bytes):
        return os.fsdecode(name)
    if not isinstance(name, str):
        return f"<{type(file).__name__}>"
    try:
        os.fsencode(name)
    except UnicodeEncodeError:  # half a surrogate pair, which no file of the system has
        return name.encode("utf-8", "backslashreplace").decode()
    return name


def local_path(source: Any) -> str:
    """The path that a str, bytes or os.PathLike says, as open() takes it."""
    path: Union[str, bytes] = os.fspath(source)
    if isinstance(path, bytes):
        path = os.fsdecode(path)
    os.fsencode(path)  # raises for half a surrogate pair
    if "\0" in path:
        raise ValueError("embedded null byte")
    return path


def plain_path(path: str) -> str:
    """A path that FFmpeg does not take for a URL, and that stays what it is when the process goes
    into another folder. Links and ".." are left to the system."""
    return os.path.join(os.getcwd(), path) if path and not os.path.isabs(path) else path


class Settings(NamedTuple):
    """How a source is opened: milliseconds, FFmpeg's name of a demuxer, FFmpeg's options."""

    open_timeout: int = 0
    read_timeout: int = 0
    demuxer: str = ""
    options: Mapping[str, str] = {}


def _milliseconds(seconds: Optional[float], name: str) -> int:
    if seconds is None:
        return 0
    found = _checks.number(seconds, name)
    if found <= 0:
        raise ValueError(f"{name} has to be above 0, not {seconds!r}")
    return ceil(min(found, _LONGEST_WAIT) * 1000)


def settings(open_timeout: Optional[float] = None, read_timeout: Optional[float] = None,
             demuxer: Optional[str] = None,
             options: Optional[Mapping[str, Any]] = None) -> Settings:
    return Settings(_milliseconds(open_timeout, "open_timeout"),
                    _milliseconds(read_timeout, "read_timeout"),
                    "" if demuxer is None else _checks.text(demuxer, "demuxer"),
                    _checks.texts(options, "options"))


class Origin(NamedTuple):
    """A source as it was given, told apart."""

    kind: str  # "path", "memory" or "file"
    content: Any
    name: str
    path: Optional[str]  # of a local file, as it was given

    @property
    def source(self) -> Any:
        """What makes the same origin, in any process and folder."""
        if self.kind == "file":
            raise TypeError(f"a reader of the file object {self.name} cannot be pickled: "
                            "only one of a path or of bytes can")
        return self.content

    def open(self, how: Settings = Settings()) -> _native.Source:
        content = os.fsencode(self.content) if self.kind == "path" else self.content
        return call(self.name, _native.Source, self.kind, content, os.fsencode(self.name),
                    (how.open_timeout, how.read_timeout, how.demuxer, dict(how.options)))


Source = Union[str, "os.PathLike[str]", bytes, bytearray, memoryview, Any]


def origin_of(source: Source) -> Origin:
    """Tells what kind of source something is.

    Raises TypeError for what is none.
    """
    if isinstance(source, (bytes, bytearray, memoryview)):
        return Origin("memory", bytes(source), "memory", None)
    if isinstance(source, str) and _URL.match(source) and not os.path.exists(source):
        os.fsencode(source)
        if "\0" in source:
            raise ValueError("embedded null byte")
        return Origin("path", source, source, None)
    if isinstance(source, (str, os.PathLike)):
        path = local_path(source)
        return Origin("path", plain_path(path), path, path)
    if isinstance(source, type) or not all(
            callable(getattr(source, method, None)) for method in ("read", "seek")):
        raise TypeError("a source has to be a path, bytes or a binary file object, not "
                        f"{type(source).__name__}")
    if isinstance(source, io.TextIOBase):
        raise TypeError(f"{name_of_file(source)} is a file of text; open it with mode \"rb\"")
    return Origin("file", FileBytes.of(source), name_of_file(source), None)


def pair_of_size(size: Any) -> Tuple[int, int]:
    """(height, width), or (0, 0) for None."""
    if size is None:
        return 0, 0
    try:
        height, width = size
    except (TypeError, ValueError):
        raise TypeError("size has to be (height, width)") from None
    return (_checks.integer(height, "the height of size", 1, 32768),
            _checks.integer(width, "the width of size", 1, 32768))
