"""Pictures of a video by number and time."""

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

if TYPE_CHECKING:
    from numpy.typing import NDArray

    _Pictures = NDArray[Any]
    _Numbers = NDArray[np.int64]

FORMATS: Tuple[str, ...] = ("rgb24", "rgb48", "gray8", "gray16", "nv12")
_FURTHEST_TICK = 2**62


@dataclass(frozen=True, eq=False)
class Frame:
    """One picture and what it is.

    `time` and `duration` are seconds. `key` says whether decoding can start at it. `reached` says
    how sure it is: "exact" when it was decoded from the key frame before it, "retry" from an
    earlier one, "linear" from the start of the stream, and "proven" when its checksum was compared.
    """

    data: "_Pictures" = field(repr=False)
    number: int
    time: Fraction
    duration: Fraction
    key: bool
    reached: str


@dataclass(frozen=True, eq=False)
class FrameBatch:
    """Several pictures in one array.

    `data` has the axes of `numbers` in front of those of a picture. `times` and `durations` are
    lists of seconds, one for each picture, in the order of `numbers.ravel()`.
    """

    data: "_Pictures" = field(repr=False)
    numbers: "_Numbers"
    times: List[Fraction]
    durations: List[Fraction]

    def __len__(self) -> int:
        return len(self.data)


def picture_shape(format: str, height: int, width: int) -> Tuple[int, ...]:
    """Shape of the array of one picture."""
    if format == "nv12":
        return height + (height + 1) // 2, width + width % 2
    return (height, width, 3) if format.startswith("rgb") else (height, width)


def picture_type(format: str) -> "np.dtype[Any]":
    return np.dtype(np.uint16 if format in ("rgb48", "gray16") else np.uint8)


class VideoReader(Reader[_native.VideoReader, "_Pictures"]):
    """The pictures of a video by number or time, in any order, as NumPy arrays.

    Frame n is the n-th picture that comes out when the stream is decoded from start to end; a
    reader gives that picture or raises. Numbers may be negative and count from the end then.

    `source` is a path or URL, the bytes of a whole file, or a binary file object. `stream` is the
    container's number of it; without one it is the best video stream. `size` is the (height, width)
    of what is delivered. `colours` is "tagged" for those that the clip is tagged with, or "bt601".
    `threads` are those of the decoder, 0 for one per core. `index` is a FrameIndex or the path of
    one; without it the reader makes one, of which `progress(step, done, total)` tells: it may
    return False or raise to stop. With `checksums` every picture is proven. Timeouts are seconds,
    `demuxer` and `options` FFmpeg's.

    `format` says what arrays hold:

    - "rgb24": uint8 (H, W, 3), "rgb48": uint16 (H, W, 3), 65535 the brightest
    - "gray8": uint8 (H, W), "gray16": uint16 (H, W), 65535 white
    - "nv12": uint8 (H + (H+1)//2, W rounded up to even): luma, then Cb and Cr in turn

    They are C-contiguous and own their memory. A reader may be used by several threads, whose calls
    wait for each other, and in forked processes; it can be pickled unless its source is a file
    object.
    """

    def __init__(self, source: Source, *, stream: Optional[int] = None, format: str = "rgb24",
                 size: Optional[Tuple[int, int]] = None, colours: str = "tagged",
                 threads: int = 1,
                 index: Union[FrameIndex, str, "os.PathLike[str]", None] = None,
                 checksums: bool = False, progress: Optional[ProgressFunction] = None,
                 open_timeout: Optional[float] = None, read_timeout: Optional[float] = None,
                 demuxer: Optional[str] = None,
                 options: Optional[Dict[str, Any]] = None) -> None:
        height, width = pair_of_size(size)
        self._begin(source, {
            "stream": _checks.optional_integer(stream, "stream"),
            "format": _checks.word(format, "format", FORMATS),
            "height": height,
            "width": width,
            "colours": _checks.word(colours, "colours", ("tagged", "bt601")),
            "threads": _checks.integer(threads, "threads", 0, MOST_THREADS),
            "checksums": _checks.flag(checksums, "checksums"),
        }, settings(open_timeout, read_timeout, demuxer, options), index_of(index),
            Progress(progress))

    def _begin(self, source: Source, given: Dict[str, Any], how: Settings,
               index: Optional[FrameIndex], told: Progress) -> None:
        self._format: str = given["format"]
        self._open(_native.VideoReader, source, given, how,
                   None if index is None else index._native, told, "packets")
        self._shape = picture_shape(self._format, *self._native.size())

    def _reopen(self, source: Source, given: Dict[str, Any], how: Settings, index: bytes) -> None:
        self._begin(source, given, how, FrameIndex.from_bytes(index), Progress(None))

    def _stored_index(self) -> bytes:
        return self.index.to_bytes()

    # What there is

    @property
    def ticks(self) -> "_Numbers":
        """The time of each frame as a multiple of `time_base`: int64 (N,)."""
        return self._call(self._native.ticks)

    @property
    def time_base(self) -> Fraction:
        """One tick in seconds."""
        return Fraction(*self._call(self._native.time_base))

    @property
    def key_frames(self) -> "_Numbers":
        """The numbers of the frames from which decoding can start: int64, rising."""
        return self._call(self._native.key_frames)

    @property
    def index(self) -> FrameIndex:
        """The index in use, with what was learned of it: worth saving."""
        return FrameIndex(self._call(self._native.index), self._origin.name)

    @property
    def metadata(self) -> VideoMetadata:
        """What the source tells of the stream; `frame_count` is that of the index."""
        return replace(self._metadata(VideoMetadata, "video"), frame_count=len(self))

    def time(self, number: int) -> Fraction:
        """When a frame is shown, in seconds."""
        return self._times([self._one(number)])[0][0]

    def duration(self, number: int) -> Fraction:
        """For how long a frame is shown, in seconds."""
        return self._times([self._one(number)])[0][1]

    def number_at(self, t: _times.Time) -> int:
        """The number of the frame that is on screen at a time in seconds.

        Raises ValueError for a time without a frame.
        """
        count = len(self)
        return self._number_at(_times.exact(t), self.time_base, count)

    # Pictures

    def __getitem__(self, key: Any) -> "_Pictures":
        count = len(self)
        if isinstance(key, tuple):
            raise TypeError("frames are told by one number, slice or array of numbers")
        if key is None or key is Ellipsis:
            raise TypeError(f"numbers of frames cannot be {key!r}")
        if isinstance(key, (int, np.integer)) or (not isinstance(key, (slice, np.ndarray))
                                                  and hasattr(key, "__index__")):
            return self._picture(_numbers.one(key, count))[0]
        if isinstance(key, np.ndarray) and key.ndim == 0 and key.dtype.kind in "iu":
            return self._picture(_numbers.one(key.item(), count))[0]
        numbers = _numbers.many(key, count)
        return self._read(numbers, self._memory(numbers.shape))

    def frame(self, number: int) -> Frame:
        """One picture with its number, time and duration."""
        number = self._one(number)
        data, reached = self._picture(number)
        (time, duration), = self._times([number])
        return Frame(data, number, time, duration, self._call(self._native.is_key, number), reached)

    def frames(self, numbers: Any, *, out: Optional["_Pictures"] = None) -> FrameBatch:
        """Several frames in the order asked for, each as often as it is named.

        Each group of pictures is decoded once, whatever the order. `out` is filled and becomes the
        batch's data: an array of the pictures' type and of the shape (n, ...) of the batch.
        """
        return self._batch(_numbers.many(numbers, len(self)), out)

    def frame_at(self, t: _times.Time) -> Frame:
        """The frame that is on screen at a time in seconds."""
        return self.frame(self.number_at(t))

    def frames_at(self, ts: Iterable[_times.Time], *,
                  out: Optional["_Pictures"] = None) -> FrameBatch:
        """The frames that are on screen at several times in seconds."""
        count = len(self)
        if isinstance(ts, (str, bytes)):
            raise TypeError("times have to be a list or an array of them")
        base = self.time_base
        numbers = [self._number_at(_times.exact(t), base, count) for t in ts]
        return self._batch(np.array(numbers, np.int64), out)

    def frames_between(self, t0: _times.Time, t1: _times.Time, *,
                       rate: Optional[_times.Time] = None) -> FrameBatch:
        """The frames that are on screen in [t0, t1), in seconds.

        With a rate it is those on screen at t0, t0 + 1/rate, … before t1. What lies outside of the
        clip is left out.
        """
        count = len(self)
        begin, end = _times.exact(t0), _times.exact(t1)
        step = None if rate is None else 1 / _times.positive(rate, "rate")
        return self._batch(self._numbers_between(begin, end, step, count), None)

    # Parts of the clip

    def partitions(self, count: Optional[int] = None) -> List[Tuple[int, int]]:
        """All frames in at most `count` ranges (first, stop), rising, that cost about the same.

        Each begins where decoding can begin, so that they can be read one by one, in any order, on
        any machine. What one costs is how many packets have to be decoded for it. Without a count
        there are as many as there are such places.
        """
        frames = len(self)
        most = max(frames, 1)
        if count is not None:
            most = min(most, _checks.integer(count, "count", 1, None))
        return self._call(self._native.partitions, most)

    def digest(self, first: int = 0, stop: Optional[int] = None) -> bytes:
        """A hash over the frames `first` to `stop` - 1 as they are decoded: 16 bytes.

        It has nothing to do with the format, colours or size of the reader, and needs no stored
        checksums. The same pictures in the same order have the same digest, on every host. Decodes
        all of them. Raises IndexError for frames that there are not.
        """
        begin, end = _numbers.span(first, stop, len(self))
        return self._call(self._native.digest, begin, end)

    def __repr__(self) -> str:
        if self.closed:
            return f"<VideoReader of {self._origin.name}, closed>"
        return f"<VideoReader of {self._origin.name}: {len(self)} frames>"

    # How it is done

    def _one(self, number: Any) -> int:
        return _numbers.one(number, len(self))

    def _memory(self, shape: Tuple[int, ...]) -> "_Pictures":
        return np.empty(shape + self._shape, picture_type(self._format))

    def _picture(self, number: int) -> Tuple["_Pictures", str]:
        data = self._memory(())
        try:
            reached, = self._call(self._native.read_into, np.array([number], np.int64),
                                  data[np.newaxis])
            self._fill_margin(data)
        except Error as error:
            if error.code != 0 or type(error) is not Error:
                raise
            # A picture of another size than the container announces comes in its own.
            try:
                data, reached = self._call(self._native.read_own_size, number)
            except ValueError:
                raise error from None
        return data, reached

    def _read(self, numbers: "_Numbers", data: "_Pictures") -> "_Pictures":
        if numbers.size:
            flat = np.ascontiguousarray(numbers).reshape(-1)
            places = data if numbers.ndim == 1 else data.reshape(
                (numbers.size,) + self._shape)
            self._call(self._native.read_into, flat, places)
            self._fill_margin(data)
        return data

    def _fill_margin(self, data: "_Pictures") -> None:
        """The luma of an odd width leaves a byte at the end of the rows of NV12."""
        height, width = self._native.size()
        if self._format == "nv12" and width % 2:
            data[..., :height, width] = data[..., :height, width - 1]

    def _batch(self, numbers: "_Numbers", out: Optional["_Pictures"]) -> FrameBatch:
        if out is None:
            data = self._memory(numbers.shape)
        else:
            data = self._fitting(out, numbers)
        self._read(numbers, data)
        times = self._times(numbers)
        return FrameBatch(data, numbers, [time for time, _ in times],
                          [duration for _, duration in times])

    def _fitting(self, out: Any, numbers: "_Numbers") -> "_Pictures":
        if not isinstance(out, np.ndarray):
            raise TypeError(f"out has to be an array, not {type(out).__name__}")
        if out.dtype != picture_type(self._format) or not out.dtype.isnative:
            raise TypeError(f"out has to be of {picture_type(self._format)}, not {out.dtype}")
        wanted = numbers.shape + self._shape
        if out.shape != wanted:
            raise ValueError(f"out has to have the shape {wanted}, not {out.shape}")
        if not out.flags.writeable:
            raise ValueError("out is read-only")
        if not out.flags.c_contiguous:
            raise ValueError("out has to be C-contiguous")
        if not out.flags.aligned:
            raise ValueError("out is not aligned")
        return out

    def _times(self, numbers: Any) -> List[Tuple[Fraction, Fraction]]:
        flat = np.ascontiguousarray(numbers, np.int64).reshape(-1)
        return [(Fraction(*time), Fraction(*duration))
                for time, duration in self._call(self._native.times, flat)]

    def _number_at(self, t: Fraction, base: Fraction, count: int) -> int:
        # The times of all frames are multiples of the time base, so rounding down to it changes
        # nothing; the library's fractions have 64 bits.
        tick = max(-_FURTHEST_TICK, min(_FURTHEST_TICK, floor(t / base)))
        rounded = tick * base
        try:
            return self._call(self._native.number_at, _times.pair(rounded))
        except (Error, ValueError):
            self._call(self._native.count)  # raises when it is closed
            raise ValueError(f"no frame of {self._origin.name} is shown at {t} s") from None

    def _numbers_between(self, begin: Fraction, end: Fraction, step: Optional[Fraction],
                         count: int) -> "_Numbers":
        nothing = np.empty(0, np.int64)
        if count == 0 or begin >= end:
            return nothing
        first = self.time(0)
        last = self._times([count - 1])[0]
        stop = min(end, last[0] + last[1])
        base = self.time_base
        if step is None:
            begin = max(begin, first)
            if begin >= stop:
                return nothing
            # The last one that begins before the end.
            final = ceil(stop / base) - 1
            return np.arange(self._number_at(begin, base, count),
                             self._number_at(final * base, base, count) + 1, dtype=np.int64)
        begun = max(0, ceil((first - begin) / step))
        ended = ceil((stop - begin) / step)
        if ended <= begun:
            return nothing
        self._memory((ended - begun,))  # raises when there are more than memory holds
        return np.array([self._number_at(begin + place * step, base, count)
                         for place in range(begun, ended)], np.int64)
