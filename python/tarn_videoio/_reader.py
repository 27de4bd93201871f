"""What readers of pictures and of sound have in common."""

from __future__ import annotations

from typing import Any, Callable, Dict, Generic, Iterator, Tuple, Type, TypeVar

from . import _native
from ._calls import Progress, call
from ._errors import Error
from ._metadata import SoundMetadata, VideoMetadata, streams_of
from ._sources import Settings, Source, origin_of

Result = TypeVar("Result")
Item = TypeVar("Item")
Native = TypeVar("Native", _native.VideoReader, _native.AudioReader)
Metadata = TypeVar("Metadata", VideoMetadata, SoundMetadata)
Self = TypeVar("Self", bound="Reader[Any, Any]")


class Reader(Generic[Native, Item]):
    """A sequence that is read from a source until it is closed."""

    def _open(self, kind: Callable[..., Native], source: Source, given: Dict[str, Any],
              how: Settings, index: Any, told: Progress, step: str) -> None:
        """`given` are the settings of what is read, `how` those of the source."""
        self._origin = origin_of(source)
        self._settings = given
        self._how = how
        # Of an absolute path, so that another process finds it from another folder.
        self._recipe = None if self._origin.kind == "file" else self._origin.source
        self._native: Native = self._call(kind, self._origin.open(how),
                                          dict(given, progress=told), index)
        self._found: Any = None
        told.finish(self._native.count(), self._origin.name, step)

    def _reopen(self, source: Source, given: Dict[str, Any], how: Settings, index: bytes) -> None:
        """Opens what `__reduce__` told of."""
        raise NotImplementedError

    def _stored_index(self) -> bytes:
        raise NotImplementedError

    def _call(self, function: Callable[..., Result], *arguments: Any) -> Result:
        return call(self._origin.name, function, *arguments, path=self._origin.path)

    def _metadata(self, kind: Type[Metadata], what: str) -> Metadata:
        stream = self._call(self._native.stream)
        if self._found is None:
            self._found = streams_of(self._origin, self._how)[stream]
        if not isinstance(self._found, kind):
            raise Error(f"{self._origin.name} has changed: stream {stream} is no {what} now")
        return self._found

    def __len__(self) -> int:
        try:
            return self._native.count()
        except _native.Failure:
            return self._call(self._native.count)

    def __getitem__(self, key: Any) -> Item:
        raise NotImplementedError

    def __iter__(self) -> Iterator[Item]:
        number = 0
        while number < len(self):
            yield self[number]
            number += 1

    def close(self) -> None:
        """Lets go of the source. Waits for a call of another thread to end."""
        self._call(self._native.close)

    @property
    def closed(self) -> bool:
        return self._native.is_closed()

    def __enter__(self: Self) -> Self:
        len(self)  # raises when it is closed
        return self

    def __exit__(self, *_: Any) -> None:
        self.close()

    def __reduce__(self) -> Any:
        index = self._stored_index()
        if self._recipe is None:
            self._origin.source  # raises
        return _restored, (type(self), self._recipe, self._settings, tuple(self._how), index)


def _restored(kind: Type[Reader[Any, Any]], source: Any, given: Dict[str, Any],
              how: Tuple[Any, ...], index: bytes) -> Reader[Any, Any]:
    made = kind.__new__(kind)
    made._reopen(source, given, Settings(*how), index)
    return made
