"""Many clips as tasks: who does what, and whether the parts together are the whole."""

from __future__ import annotations

from dataclasses import dataclass, replace
from math import ceil
from typing import Any, Dict, List, Optional, Sequence, Tuple

from ._calls import Progress
from ._errors import Cancelled, Error
from ._parts import Clip, Failure, Piece

_SHARES = 4  # tasks for each thread, so that those who are ready first find some more
_MOST_CLIPS = 32  # of a task
_DEATHS = 3  # how often what a task does may kill it


@dataclass(frozen=True)
class Task:
    """The `place`-th of `of` shares of one clip, or all of several."""

    clips: Tuple[int, ...]
    place: int = 0
    of: int = 1
    deaths: int = 0


class Job:
    """Clips, what is known of them so far, and what has failed."""

    def __init__(self, clips: Sequence[Clip], stops: bool, progress: Progress) -> None:
        self.clips = clips
        self._stops = stops
        self._progress = progress
        self._pieces: Dict[int, List[Tuple[int, Piece]]] = {}
        self._found: Dict[int, Any] = {}

    def plan(self, threads: int, divides: bool) -> List[Task]:
        """The largest clips first. One that would keep a thread busy for long is divided; small
        ones share a task."""
        sizes = [_size_of(clip) for clip in self.clips]
        known = [size for size in sizes if size is not None]
        usual = max(1.0, sum(known) / len(known)) if known else 1.0
        weights = [usual if size is None else max(1.0, size) for size in sizes]
        share = sum(weights) / (_SHARES * threads)
        tasks: List[Task] = []
        group: List[int] = []
        load = 0.0
        for number in sorted(range(len(self.clips)), key=lambda n: -weights[n]):
            shares = min(ceil(weights[number] / share), _SHARES * threads) if divides else 1
            if shares > 1:
                tasks += [Task((number,), place, shares) for place in range(shares)]
                continue
            if group and (load + weights[number] > share / _SHARES or len(group) == _MOST_CLIPS):
                tasks.append(Task(tuple(group)))
                group, load = [], 0.0
            group.append(number)
            load += weights[number]
        return tasks + ([Task(tuple(group))] if group else [])

    def clips_of(self, task: Task, with_index: bool) -> List[Clip]:
        """What a task is told; a given index is left out where another task hands it over."""
        told = [self.clips[number] for number in task.clips]
        return told if with_index else [replace(clip, index=None) for clip in told]

    def take(self, task: Task, pieces: Sequence[Piece]) -> None:
        """What a task has made of its clips."""
        for number, piece in zip(task.clips, pieces):
            if number in self._found:
                continue
            if piece.failure is not None:
                self._fail(number, piece.failure)
                continue
            there = self._pieces.setdefault(number, [])
            there.append((task.place, piece))
            if len(there) == task.of:
                self._complete(number)

    def _complete(self, number: int) -> None:
        pieces = [piece for _, piece in sorted(self._pieces.pop(number), key=lambda one: one[0])]
        reached = 0
        for first, stop, _ in (result for piece in pieces for result in piece.results):
            if first != reached:
                break
            reached = stop
        # An index may have been made twice, when a worker died: of the same clip, or not.
        if len({piece.identity for piece in pieces}) != 1 or reached != pieces[0].frames:
            error = Error(f"{self.clips[number].name} has changed while it was read")
            self._fail(number, Failure.of(error, self.clips[number].name))
            return
        self._settle(number, [value for piece in pieces for _, _, value in piece.results])

    def fail(self, task: Task, error: BaseException) -> None:
        for number in task.clips:
            if number not in self._found:
                self._fail(number, Failure.of(error, self.clips[number].name))

    def _fail(self, number: int, failure: Failure) -> None:
        if self._stops:
            failure.throw()
        self._pieces.pop(number, None)
        failure.error.__cause__ = Error(failure.where)
        self._settle(number, failure.error)

    def _settle(self, number: int, found: Any) -> None:
        self._found[number] = found
        done, total = len(self._found), len(self.clips)
        if not self._progress("sources", done, total):
            raise Cancelled(f"progress returned False: {done} of {total} sources are done")

    def has_failed(self, number: int) -> bool:
        return isinstance(self._found.get(number), BaseException)

    def once_more(self, task: Task, why: str) -> List[Task]:
        """What to do instead of a task that died with its worker: each clip by itself, so that it
        shows which one it is. After a few times it fails; `why` has {} for the clip's name."""
        if task.deaths + 1 < _DEATHS:
            return [replace(task, clips=(number,), deaths=task.deaths + 1)
                    for number in task.clips]
        name = self.clips[task.clips[0]].name
        self.fail(task, Error(why.replace("{}", name, 1)))
        return []

    def names(self, tasks: Optional[Sequence[Task]] = None) -> str:
        """Of the clips that are not done, or of some tasks: the first few."""
        numbers = range(len(self.clips)) if tasks is None else [n for t in tasks for n in t.clips]
        open_ones = sorted({number for number in numbers if number not in self._found})
        told = ", ".join(self.clips[number].name for number in open_ones[:3])
        return told + (f" and {len(open_ones) - 3} more" if len(open_ones) > 3 else "")

    def found(self) -> List[Any]:
        return [self._found[number] for number in range(len(self.clips))]


def _size_of(clip: Clip) -> Optional[int]:
    """Bytes; None where only workers can tell."""
    try:
        stamp = clip.stamp()
    except OSError:
        return None
    return None if stamp is None else stamp[2]
