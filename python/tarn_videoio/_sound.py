"""Sound by number of sample and time."""

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

if TYPE_CHECKING:
    from numpy.typing import NDArray

    _Samples = NDArray[np.float32]

# Later than any sound, in seconds; and what times are rounded down to that are finer than the
# library's fractions of 64 bits hold.
_LATEST = 2**33
_FINEST = 2**40


class AudioReader(Reader[_native.AudioReader, "_Samples"]):
    """The sound of a clip by number of sample or time, in any order, as NumPy arrays.

    Sample n is the n-th sample of each channel that comes out when the stream is decoded from start
    to end, without priming and padding. Arrays are float32 (n, channels), full scale 1; they are
    C-contiguous and own their memory.

    `source` is a path or URL, the bytes of a whole file, or a binary file object. `stream` is the
    container's number of it; without one it is the best stream of sound. With `checksums` all
    samples are proven. `progress(step, done, total)` tells how far the making of the index is; it
    may return False or raise to stop. Timeouts are seconds, `demuxer` and `options` FFmpeg's.

    A reader may be used by several threads, whose calls wait for each other, and in forked
    processes; it can be pickled unless its source is a file object.
    """

    def __init__(self, source: Source, *, stream: Optional[int] = None, checksums: bool = False,
                 progress: Optional[ProgressFunction] = None,
                 open_timeout: Optional[float] = None, read_timeout: Optional[float] = None,
                 demuxer: Optional[str] = None,
                 options: Optional[Dict[str, Any]] = None) -> None:
        self._begin(source, {
            "stream": _checks.optional_integer(stream, "stream"),
            "checksums": _checks.flag(checksums, "checksums"),
        }, settings(open_timeout, read_timeout, demuxer, options), None, Progress(progress))

    def _begin(self, source: Source, given: Dict[str, Any], how: Settings, index: Optional[bytes],
               told: Progress) -> None:
        self._open(_native.AudioReader, source, given, how, index, told, "samples")
        self._rate = self._native.rate()
        self._channels = self._native.channels()
        self._layout = self._native.layout()

    def _reopen(self, source: Source, given: Dict[str, Any], how: Settings, index: bytes) -> None:
        self._begin(source, given, how, index, Progress(None))

    def _stored_index(self) -> bytes:
        return self._call(self._native.index)

    # What there is

    @property
    def rate(self) -> int:
        """Samples a second of each channel."""
        len(self)  # raises when it is closed
        return self._rate

    @property
    def channels(self) -> int:
        """How many channels there are: the columns of what is read."""
        len(self)
        return self._channels

    @property
    def layout(self) -> str:
        """FFmpeg's words for the channels, such as "stereo" or "5.1(side)"."""
        len(self)
        return self._layout

    @property
    def start_time(self) -> Fraction:
        """Time of the first sample, in seconds."""
        return Fraction(*self._call(self._native.start_time))

    @property
    def duration(self) -> Fraction:
        """From the first sample to the end of the last, in seconds, gaps included."""
        return Fraction(*self._call(self._native.duration))

    @property
    def metadata(self) -> SoundMetadata:
        """What the source tells of the stream."""
        return self._metadata(SoundMetadata, "sound")

    def time(self, number: int) -> Fraction:
        """When a sample is heard, in seconds."""
        one = _numbers.one(number, len(self), "sample")
        return Fraction(*self._call(self._native.time, one))

    def number_at(self, t: _times.Time) -> int:
        """The number of the sample that is heard at a time in seconds.

        In a gap it is the one before the gap. Raises ValueError for a time without a sample.
        """
        len(self)
        time = _times.exact(t)
        try:
            return self._number_at(time)
        except Error:
            len(self)  # raises when it is closed
            raise ValueError(f"no sample of {self._origin.name} is heard at {time} s") from None

    # Samples

    def __getitem__(self, key: Any) -> "_Samples":
        count = len(self)
        if isinstance(key, slice):
            if key.step is not None and _checks.integer(key.step, "the step", -2**63,
                                                        2**63 - 1) != 1:
                raise ValueError(f"samples come with a step of 1, not {key.step}")
            first, stop, _ = slice(key.start, key.stop).indices(count)
            return self._read(first, max(first, stop))
        if isinstance(key, (tuple, list)) or key is None or key is Ellipsis:
            raise TypeError("samples are told by one number or a slice")
        number = _numbers.one(key, count, "sample")
        sample: "_Samples" = self._read(number, number + 1)[0].copy()
        return sample

    def between(self, t0: _times.Time, t1: _times.Time) -> "_Samples":
        """The samples with t0 <= time < t1, in seconds, as far as there are any."""
        len(self)
        first = self._first_from(_times.exact(t0))
        return self._read(first, max(first, self._first_from(_times.exact(t1))))

    def blocks(self, size: int) -> Iterator["_Samples"]:
        """All samples in order, `size` at a time; the last block may be shorter."""
        len(self)
        return self._blocks(_checks.integer(size, "size", 1, 2**63 - 1))

    def __repr__(self) -> str:
        if self.closed:
            return f"<AudioReader of {self._origin.name}, closed>"
        return (f"<AudioReader of {self._origin.name}: {len(self)} samples at {self._rate} Hz, "
                f"{self._layout}>")

    # How it is done

    def _read(self, first: int, stop: int) -> "_Samples":
        samples: "_Samples" = np.empty((stop - first, self._channels), np.float32)
        if stop > first:
            self._call(self._native.read_into, first, samples)
        return samples

    def _blocks(self, size: int) -> Iterator["_Samples"]:
        first = 0
        while first < len(self):
            yield self._read(first, min(first + size, len(self)))
            first += size

    def _first_from(self, time: Fraction) -> int:
        """The first sample that is not earlier; their number where there is none."""
        count = len(self)
        if count == 0 or time <= self.start_time:
            return 0
        if time >= self.start_time + self.duration:
            return count
        number = self._number_at(time)
        return number if self.time(number) == time else number + 1

    def _number_at(self, time: Fraction) -> int:
        number = self._call(self._native.number_at, self._pair(time))
        # A time that was rounded down may have come before the sample that it lies on.
        if number + 1 < len(self) and self.time(number + 1) <= time:
            number += 1
        return number

    @staticmethod
    def _pair(time: Fraction) -> Tuple[int, int]:
        time = max(Fraction(-_LATEST), min(Fraction(_LATEST), time))
        if time.denominator >= 2**63 or abs(time.numerator) >= 2**63:
            time = Fraction(floor(time * _FINEST), _FINEST)
        return _times.pair(time)
