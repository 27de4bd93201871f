# Made of _jobs.py by python/make-stubs; what is changed there is changed here by running it.
from __future__ import annotations
from dataclasses import dataclass, replace
from math import ceil
from typing import Any, Dict, List, Optional, Sequence, Tuple
from ._calls import Progress
from ._errors import Cancelled, Error
from ._parts import Clip, Failure, Piece

@dataclass(frozen=True)
class Task:
    clips: Tuple[int, ...]
    place: int = 0
    of: int = 1
    deaths: int = 0

class Job:

    def __init__(self, clips: Sequence[Clip], stops: bool, progress: Progress) -> None:
        ...

    def plan(self, threads: int, divides: bool) -> List[Task]:
        ...

    def clips_of(self, task: Task, with_index: bool) -> List[Clip]:
        ...

    def take(self, task: Task, pieces: Sequence[Piece]) -> None:
        ...

    def _complete(self, number: int) -> None:
        ...

    def fail(self, task: Task, error: BaseException) -> None:
        ...

    def _fail(self, number: int, failure: Failure) -> None:
        ...

    def _settle(self, number: int, found: Any) -> None:
        ...

    def has_failed(self, number: int) -> bool:
        ...

    def once_more(self, task: Task, why: str) -> List[Task]:
        ...

    def names(self, tasks: Optional[Sequence[Task]]=None) -> str:
        ...

    def found(self) -> List[Any]:
        ...

def _size_of(clip: Clip) -> Optional[int]:
    ...
