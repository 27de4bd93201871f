"""Clips are written: pictures, sound, or both."""

from __future__ import annotations

import os
import warnings
from fractions import Fraction
from math import gcd
from typing import (TYPE_CHECKING, Any, Callable, Dict, List, Mapping, Optional, Sequence, Tuple,
                    Union)

import numpy as np

from . import _checks, _native, _times
from ._calls import call
from ._errors import OF_A_FULL_DISK, Error
from ._native import ClipWriter as NativeWriter
from ._sources import Source, local_path, origin_of, plain_path
from ._video import FORMATS, picture_type

if TYPE_CHECKING:
    from numpy.typing import NDArray

    _Pictures = NDArray[Any]
    _Samples = NDArray[np.float32]

Path = Union[str, "os.PathLike[str]"]
Times = Union[_times.Time, Sequence[_times.Time]]

# SVT-AV1 writes to standard error, unless this says otherwise when it is opened. It is the lowest
# level: release 4 takes what is below it for no level at all, and tells everything.
os.environ.setdefault("SVT_LOG", "-1")

_FINEST = 2**31 - 1  # ticks a second in MP4 and MOV
_MOST_SAMPLES_A_SECOND = 10**7
_MOST_CHANNELS = 255


class _Writer:
    """What a writer of pictures and one of sound have in common."""

    _native: Optional[NativeWriter] = None
    _name = ""

    def _open(self, path: Path, extensions: Sequence[str], options: Dict[str, Any]) -> None:
        self._name = local_path(path)
        if os.path.splitext(self._name)[1].lower() not in extensions:
            raise ValueError(f"{self._name!r} does not end in {', '.join(extensions)}")
        self._process = os.getpid()
        self._native = self._call(NativeWriter, os.fsencode(plain_path(self._name)), options)

    def _call(self, function: Callable[..., Any], *arguments: Any) -> Any:
        return call(self._name, function, *arguments, path=self._name, writing=True)

    def _opened(self) -> NativeWriter:
        if self._native is None or self._native.is_closed():
            raise ValueError(f"{self._name} is closed")
        if self._process != os.getpid():
            raise Error(f"{self._name} is written by the process that this one was forked of")
        return self._native

    def _write_samples(self, samples: Any, time: Optional[_times.Time]) -> None:
        native = self._opened()
        block = _block_of(samples)
        begins = None if time is None else _times.pair(_times.exact(time))
        if len(block):
            self._call(native.write_samples, block, begins)

    def close(self) -> None:
        """Completes the file, or raises; after that nothing more can be written.

        A clip without pictures and sound raises tv.Error, and there is no file then.
        """
        if self.closed:
            return
        native = self._opened()
        try:
            self._call(native.finish)
        except ValueError as error:
            raise Error(str(error)) from None

    @property
    def closed(self) -> bool:
        return self._native is None or self._native.is_closed()

    def __exit__(self, kind: Any, *_: Any) -> None:
        if kind is None:
            self.close()
        elif self._native is not None and not self.closed:
            self._call(self._native.abandon)

    def __del__(self) -> None:
        if self._native is not None and not self._native.is_closed():
            warnings.warn(f"{self._name} was never closed, so it is not there", ResourceWarning,
                          source=self)

    def __reduce__(self) -> Any:
        raise TypeError(f"the writer of {self._name} cannot be pickled")

    def __repr__(self) -> str:
        state = ", closed" if self.closed else ""
        return f"<{type(self).__name__} of {self._name}{state}>"


class VideoWriter(_Writer):
    """Writes a clip that gives back what was given: every picture at its time, every sample.

    `path` ends in .mp4, .mov or .mkv. `rate` is pictures a second, `time_base` the grid of times in
    seconds; both are int, float, Fraction or str. `codec` is "h264", "hevc", "av1", "vp9", "ffv1"
    (which keeps RGB as it is) or an encoder of FFmpeg. `format` says what arrays are given:

    - "rgb24": uint8 (H, W, 3), "rgb48": uint16 (H, W, 3), "gray8": uint8 (H, W),
      "gray16": uint16 (H, W), "nv12": uint8 (H + (H+1)//2, W)

    `crf` is constant quality, `bit_rate` bits a second, `options` the encoder's own. `colours` is
    "bt601", "bt709", "bt2020" or None for what is usual. `rotation` is by how many degrees a player
    turns the pictures clockwise. `audio_rate` is samples a second, `audio_channels` what the first
    block has if not told. `origin="first"` makes the first picture's time 0. `fragmented` writes
    an MP4 or MOV in fragments of at most a second.

    Leaving the block completes the file; by an exception, it leaves nothing under the name.
    """

    def __init__(self, path: Path, *, rate: Optional[_times.Time] = None,
                 time_base: Optional[_times.Time] = None, codec: str = "h264",
                 format: str = "rgb24", crf: Optional[float] = None, preset: Optional[str] = None,
                 bit_rate: Optional[int] = None, options: Optional[Mapping[str, Any]] = None,
                 threads: int = 0, colours: Optional[str] = None, rotation: int = 0,
                 metadata: Optional[Mapping[str, Any]] = None, audio_rate: Optional[int] = None,
                 audio_channels: Optional[int] = None, audio_codec: str = "aac",
                 audio_bit_rate: Optional[int] = None, fragmented: bool = False,
                 faststart: bool = True, overwrite: bool = True,
                 origin: str = "given") -> None:
        self._format = _checks.word(format, "format", FORMATS)
        self._step = None if rate is None else 1 / _times.positive(rate, "rate")
        self._grid = self._step if time_base is None else _times.positive(time_base, "time_base")
        self._scale = 1
        self._last: Optional[Fraction] = None
        self._end: Optional[Fraction] = None  # of the last picture, where it came with a duration
        given: Dict[str, Any] = {
            "rate": None if self._step is None else _times.pair(1 / self._step, "rate"),
            "time_base": None if time_base is None else _times.pair(
                _times.positive(time_base, "time_base"), "time_base"),
            "codec": _checks.text(codec, "codec"),
            "crf": None if crf is None else _checks.number(crf, "crf"),
            "preset": None if preset is None else _checks.text(preset, "preset"),
            "bit_rate": _checks.optional_integer(bit_rate, "bit_rate", 1, 2**62),
            "options": _checks.texts(options, "options"),
            "threads": _checks.integer(threads, "threads", 0, 512),
            "colours": None if colours is None else _checks.word(
                colours, "colours", ("bt601", "bt709", "bt2020")),
            "rotation": _checks.integer(rotation, "rotation", 0, 359),
            "metadata": _checks.texts(metadata, "metadata"),
            "audio_rate": _checks.optional_integer(audio_rate, "audio_rate", 1,
                                                   _MOST_SAMPLES_A_SECOND),
            "audio_channels": _checks.optional_integer(audio_channels, "audio_channels", 1,
                                                       _MOST_CHANNELS),
            "audio_codec": _checks.text(audio_codec, "audio_codec"),
            "audio_bit_rate": _checks.optional_integer(audio_bit_rate, "audio_bit_rate", 1, 2**62),
            "faststart": _checks.flag(faststart, "faststart"),
            "overwrite": _checks.flag(overwrite, "overwrite"),
            "origin": _checks.word(origin, "origin", ("given", "first")),
            "fragmented": _checks.flag(fragmented, "fragmented"),
        }
        self._open(path, (".mp4", ".mov", ".mkv"), given)

    def __enter__(self) -> "VideoWriter":
        self._opened()
        return self

    def write(self, picture: "_Pictures", time: Optional[Times] = None,
              duration: Optional[_times.Time] = None) -> None:
        """Writes a picture, or a batch of them with one axis more in front.

        Without a time it is shown at the end of the one before, where that has a duration, and else
        1/rate after it. `time` is in seconds; of a batch it is a list of one for each picture, or
        that of the first, which the others follow at the rate. `duration` is for how long a picture
        is shown if no other follows, or one without a time. What is refused, for
        a wrong shape or time (ValueError) or type (TypeError), changes nothing.
        """
        native = self._opened()
        batch, height, width = batch_of(picture, self._format)
        length = None if duration is None else _times.positive(duration, "duration")
        lasts = None if length is None else _times.pair(length, "duration")
        if time is None and length is not None:
            begin = self._next()
            time = [begin + place * length for place in range(len(batch))]
        if time is None and self._step is None and len(batch) > 1:
            raise ValueError(f"{self._name}: {len(batch)} pictures without times need a rate")
        times = None if time is None else self._times_of(time, len(batch))
        if not len(batch):
            return
        pairs = None if times is None else [_times.pair(one) for one in times]
        self._call(native.write_pictures, self._format, batch, height, width, pairs, lasts)
        self._note(times, len(batch), length)

    def write_audio(self, samples: "_Samples", *, time: Optional[_times.Time] = None) -> None:
        """Writes sound behind what came before: float32 (n,) or (n, channels), 1.0 full scale.

        The first sample of all stands at 0 s, or at `time`, which the first block alone may have.
        """
        self._write_samples(samples, time)

    def _times_of(self, time: Times, count: int) -> List[Fraction]:
        """The times of a batch, checked as a whole: the library would take some and refuse one."""
        if not isinstance(time, (list, tuple, np.ndarray)) or np.ndim(time) == 0:
            first = _times.exact(time)
            if count > 1 and self._step is None:
                raise ValueError(f"{self._name}: {count} pictures with one time need a rate")
            found = [first + place * (self._step or 0) for place in range(count)]
        else:
            found = [_times.exact(one) for one in time]
            if len(found) != count:
                raise ValueError(f"{self._name}: {len(found)} times for {count} pictures")
        if count > 1:
            self._check_rising(found)
        self._check_grid(found)
        return found

    def _check_rising(self, times: List[Fraction]) -> None:
        before = self._last
        for time in times:
            if before is not None and time <= before:
                raise ValueError(f"{self._name}: the time {time} s does not lie after {before} s")
            before = time

    def _check_grid(self, times: List[Fraction]) -> None:
        scale = self._scale
        for time in times:
            if self._grid is not None and (time / self._grid).denominator != 1:
                nearest = round(time / self._grid) * self._grid
                raise ValueError(f"{self._name}: the time {time} s is no multiple of {self._grid} "
                                 f"s; the nearest is {nearest} s")
            scale = scale * time.denominator // gcd(scale, time.denominator)
        if self._grid is None and scale > _FINEST and not self._name.lower().endswith(".mkv"):
            raise ValueError(f"{self._name}: no tick that a track can have holds these times")

    def _next(self) -> Fraction:
        """When a picture without a time is shown."""
        if self._end is not None:
            return self._end
        if self._last is None:
            return Fraction(0)
        if self._step is None:
            raise ValueError(f"{self._name}: a picture without a time needs a rate, or a duration "
                             "of the one before")
        return self._last + self._step

    def _note(self, times: Optional[List[Fraction]], count: int,
              length: Optional[Fraction]) -> None:
        if times is None:
            self._last = self._next() + (count - 1) * (self._step or Fraction(0))
            self._end = None
            return
        self._last = times[-1]
        self._end = None if length is None else self._last + length
        for time in times:
            self._scale = self._scale * time.denominator // gcd(self._scale, time.denominator)


class AudioWriter(_Writer):
    """Writes sound alone: .m4a, .wav, .flac or .mka.

    `rate` is samples a second of one channel, `channels` what the first block has if not told.
    `codec` is "aac", "opus", "flac", "alac", "pcm" or an encoder of FFmpeg; without one it is what
    is usual in the container. `bit_rate` is bits a second.
    """

    def __init__(self, path: Path, rate: int, channels: Optional[int] = None, *,
                 codec: Optional[str] = None, bit_rate: Optional[int] = None,
                 metadata: Optional[Mapping[str, Any]] = None, overwrite: bool = True) -> None:
        self._open(path, (".m4a", ".wav", ".flac", ".mka"), {
            "audio_rate": _checks.integer(rate, "rate", 1, _MOST_SAMPLES_A_SECOND),
            "audio_channels": _checks.optional_integer(channels, "channels", 1, _MOST_CHANNELS),
            "audio_codec": None if codec is None else _checks.text(codec, "codec"),
            "audio_bit_rate": _checks.optional_integer(bit_rate, "bit_rate", 1, 2**62),
            "metadata": _checks.texts(metadata, "metadata"),
            "overwrite": _checks.flag(overwrite, "overwrite"),
        })

    def __enter__(self) -> "AudioWriter":
        self._opened()
        return self

    def write(self, samples: "_Samples") -> None:
        """Writes samples behind those before: float32 (n,) or (n, channels), 1.0 full scale."""
        self._write_samples(samples, None)


def remux(source: Source, path: Path, *, overwrite: bool = True) -> None:
    """Copies a clip into another container without decoding it.

    `path` says the container by its end, as for the writers. What the container cannot hold raises
    ValueError. The file gets its name when it is complete.
    """
    origin, name = origin_of(source), local_path(path)
    overwrite = _checks.flag(overwrite, "overwrite")
    os.stat(os.path.dirname(name) or ".")  # raises when there is no such folder
    opened = origin.open()
    if origin.path is not None:
        os.stat(origin.path)
    writing = os.path.isdir(name) or (not overwrite and os.path.exists(name))
    try:
        call(name if writing else origin.name, _native.remux, opened, os.fsencode(plain_path(name)),
             overwrite, path=name if writing or origin.path is None else origin.path, writing=True)
    except OSError as error:
        if error.errno not in OF_A_FULL_DISK:
            raise
        raise OSError(error.errno, error.strerror, name) from None


def _array_of(value: Any, what: str) -> "NDArray[Any]":
    if not isinstance(value, np.ndarray):
        if not hasattr(value, "__array__") or isinstance(value, np.generic):
            raise TypeError(f"{what} have to be an array, not {type(value).__name__}")
        value = np.asarray(value)
    return np.asarray(value)


def batch_of(picture: Any, format: str) -> Tuple["_Pictures", int, int]:
    """Pictures with an axis for their number, and the height and width of one."""
    array = _array_of(picture, "pictures")
    wanted = picture_type(format)
    if array.dtype != wanted or not array.dtype.isnative:
        raise TypeError(f"pictures of {format} have to be of {wanted}, not {array.dtype}")
    axes = 3 if format.startswith("rgb") else 2
    if array.ndim not in (axes, axes + 1) or (axes == 3 and array.shape[-1] != 3):
        raise ValueError(f"an array of the shape {array.shape} is no picture of {format}")
    batch = array if array.ndim == axes + 1 else array[np.newaxis]
    rows, width = batch.shape[1:3]
    height = rows
    if format == "nv12":
        height = rows * 2 // 3
        if height + (height + 1) // 2 != rows or width % 2:
            raise ValueError(f"{rows} rows of {width} are no picture of nv12")
    if not (0 < height <= 65536 and 0 < width <= 65536):
        raise ValueError(f"a picture of {height} x {width}")
    packed = 3 * array.itemsize if axes == 3 else array.itemsize
    if (batch.strides[2] != packed or (axes == 3 and batch.strides[3] != array.itemsize)
            or batch.strides[1] < packed * width or not array.flags.aligned):
        batch = np.array(batch, order="C")
    return batch, height, width


def _block_of(samples: Any) -> "_Samples":
    array = _array_of(samples, "samples")
    if array.dtype != np.float32 or not array.dtype.isnative:
        raise TypeError(f"samples have to be of float32, not {array.dtype}")
    if array.ndim not in (1, 2) or (array.ndim == 2 and not 0 < array.shape[1] <= _MOST_CHANNELS):
        raise ValueError(f"an array of the shape {array.shape} is no sound")
    return np.ascontiguousarray(array.reshape(len(array), -1) if array.size else
                                np.empty((0, 1), np.float32))
