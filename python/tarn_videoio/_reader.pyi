# Made of _reader.py by python/make-stubs; what is changed there is changed here by running it.
from __future__ import annotations
from typing import Any, Callable, Dict, Generic, Iterator, Tuple, Type, TypeVar
from . import _native
from ._calls import Progress, call
from ._errors import Error
from ._metadata import SoundMetadata, VideoMetadata, streams_of
from ._sources import Settings, Source, origin_of
Result = TypeVar('Result')
Item = TypeVar('Item')
Native = TypeVar('Native', _native.VideoReader, _native.AudioReader)
Metadata = TypeVar('Metadata', VideoMetadata, SoundMetadata)
Self = TypeVar('Self', bound='Reader[Any, Any]')

class Reader(Generic[Native, Item]):

    def _open(self, kind: Callable[..., Native], source: Source, given: Dict[str, Any], how: Settings, index: Any, told: Progress, step: str) -> None:
        ...

    def _reopen(self, source: Source, given: Dict[str, Any], how: Settings, index: bytes) -> None:
        ...

    def _stored_index(self) -> bytes:
        ...

    def _call(self, function: Callable[..., Result], *arguments: Any) -> Result:
        ...

    def _metadata(self, kind: Type[Metadata], what: str) -> Metadata:
        ...

    def __len__(self) -> int:
        ...

    def __getitem__(self, key: Any) -> Item:
        ...

    def __iter__(self) -> Iterator[Item]:
        ...

    def close(self) -> None:
        ...

    @property
    def closed(self) -> bool:
        ...

    def __enter__(self: Self) -> Self:
        ...

    def __exit__(self, *_: Any) -> None:
        ...

    def __reduce__(self) -> Any:
        ...

def _restored(kind: Type[Reader[Any, Any]], source: Any, given: Dict[str, Any], how: Tuple[Any, ...], index: bytes) -> Reader[Any, Any]:
    ...
