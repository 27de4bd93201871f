"""What a source tells of its streams before anything is decoded."""

from __future__ import annotations

import dataclasses
from dataclasses import dataclass
from fractions import Fraction
from typing import Any, Dict, List, Optional, Union

from . import _native
from ._calls import call
from ._sources import Origin, Settings, Source, origin_of, settings


@dataclass(frozen=True)
class StreamMetadata:
    """What is told of any stream. What is not told is None.

    Names are FFmpeg's. Times are seconds, `bit_rate` is bits a second.
    """

    index: int
    type: str
    container: Optional[str]
    codec: Optional[str]
    time_base: Optional[Fraction]
    duration: Optional[Fraction]
    bit_rate: Optional[int]
    frame_count: Optional[int]
    tags: Dict[str, str]


@dataclass(frozen=True)
class VideoMetadata(StreamMetadata):
    """What is told of a stream of pictures.

    `width` and `height` are those of the upright picture in pixels, `coded_width` and
    `coded_height` those of the stored one. `rotation` is by how many degrees it is turned
    clockwise to stand upright, `mirrored` whether it is then mirrored left to right.
    """

    width: Optional[int]
    height: Optional[int]
    coded_width: Optional[int]
    coded_height: Optional[int]
    pixel_format: Optional[str]
    bits: Optional[int]
    average_rate: Optional[Fraction]
    rotation: int
    mirrored: bool
    turn_is_exact: bool
    colour_space: Optional[str]
    colour_range: Optional[str]
    colour_primaries: Optional[str]
    colour_transfer: Optional[str]
    sample_aspect_ratio: Optional[Fraction]


@dataclass(frozen=True)
class SoundMetadata(StreamMetadata):
    """What is told of a stream of sound; `rate` is samples a second of one channel."""

    sample_format: Optional[str]
    rate: Optional[int]
    channels: Optional[int]
    layout: Optional[str]


_TYPES = {"video": VideoMetadata, "audio": SoundMetadata}


def _made(told: Dict[str, Any]) -> StreamMetadata:
    kind = _TYPES.get(told["type"], StreamMetadata)
    values = {}
    for field in dataclasses.fields(kind):
        value = told[field.name]
        values[field.name] = Fraction(*value) if isinstance(value, tuple) else value
    made: StreamMetadata = kind(**values)
    return made


def streams_of(origin: Origin, how: Settings = Settings()) -> List[StreamMetadata]:
    """All streams of a source, in the container's order."""
    told = call(origin.name, _native.describe, origin.open(how), path=origin.path)
    return [_made(stream) for stream in told]


@dataclass(frozen=True)
class Probe:
    """What `probe` finds: the container, its longest stream's duration in seconds, its streams."""

    container: Optional[str]
    duration: Optional[Fraction]
    streams: List[Union[VideoMetadata, SoundMetadata, StreamMetadata]]

    def to_dict(self) -> Dict[str, Any]:
        """The same as dicts and lists."""
        return {"container": self.container, "duration": self.duration,
                "streams": [dataclasses.asdict(stream) for stream in self.streams]}


def probe(source: Source, *, open_timeout: Optional[float] = None,
          read_timeout: Optional[float] = None, demuxer: Optional[str] = None,
          options: Optional[Dict[str, Any]] = None) -> Probe:
    """What a source holds. Decodes no more than FFmpeg does to find out.

    `source` and the options of opening are those of `VideoReader`.
    """
    streams = streams_of(origin_of(source),
                         settings(open_timeout, read_timeout, demuxer, options))
    durations = [stream.duration for stream in streams if stream.duration is not None]
    return Probe(streams[0].container if streams else None, max(durations, default=None), streams)
