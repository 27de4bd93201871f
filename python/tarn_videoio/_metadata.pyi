# Made of _metadata.py by python/make-stubs; what is changed there is changed here by running it.
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
    sample_format: Optional[str]
    rate: Optional[int]
    channels: Optional[int]
    layout: Optional[str]

def _made(told: Dict[str, Any]) -> StreamMetadata:
    ...

def streams_of(origin: Origin, how: Settings=Settings()) -> List[StreamMetadata]:
    ...

@dataclass(frozen=True)
class Probe:
    container: Optional[str]
    duration: Optional[Fraction]
    streams: List[Union[VideoMetadata, SoundMetadata, StreamMetadata]]

    def to_dict(self) -> Dict[str, Any]:
        ...

def probe(source: Source, *, open_timeout: Optional[float]=None, read_timeout: Optional[float]=None, demuxer: Optional[str]=None, options: Optional[Dict[str, Any]]=None) -> Probe:
    ...
