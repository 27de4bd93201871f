# Made of __init__.py by python/make-stubs; what is changed there is changed here by running it.
from ._clips import clips
from ._errors import Cancelled, Error, IndexMismatch, Timeout
from ._images import read_image, write_image
from ._index import FrameIndex
from ._metadata import Probe, SoundMetadata, StreamMetadata, VideoMetadata, probe
from ._sound import AudioReader
from ._version import __version__, versions
from ._video import Frame, FrameBatch, VideoReader
from ._writers import AudioWriter, VideoWriter, remux
__all__ = ['AudioReader', 'AudioWriter', 'Cancelled', 'Error', 'Frame', 'FrameBatch', 'FrameIndex', 'IndexMismatch', 'Probe', 'SoundMetadata', 'StreamMetadata', 'Timeout', 'VideoMetadata', 'VideoReader', 'VideoWriter', '__version__', 'clips', 'probe', 'read_image', 'remux', 'versions', 'write_image']
