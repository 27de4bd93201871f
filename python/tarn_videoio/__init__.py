"""Exact reading and writing of video, sound and images over FFmpeg.

    import tarn_videoio as tv

    with tv.VideoReader("clip.mp4") as v:
        picture = v[100]             # uint8 (H, W, 3)
        batch = v.frames([5, 3, 9])  # decoded once, in this order
"""

from ._clips import clips
from ._errors import Cancelled, Error, IndexMismatch, Timeout
from ._images import read_image, write_image
from ._index import FrameIndex
from ._metadata import Probe, SoundMetadata, StreamMetadata, VideoMetadata, probe
from ._sound import AudioReader
from ._version import __version__, versions
from ._video import Frame, FrameBatch, VideoReader
from ._writers import AudioWriter, VideoWriter, remux

__all__ = [
    "AudioReader", "AudioWriter", "Cancelled", "Error", "Frame", "FrameBatch", "FrameIndex", "IndexMismatch",
    "Probe", "SoundMetadata", "StreamMetadata", "Timeout", "VideoMetadata", "VideoReader",
    "VideoWriter", "__version__", "clips", "probe", "read_image", "remux", "versions",
    "write_image",
]
