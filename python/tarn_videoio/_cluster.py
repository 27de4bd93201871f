"""The tasks of a job on a cluster of Dask: handed out, taken back, given to others when lost."""

from __future__ import annotations

import asyncio
import concurrent.futures
import inspect
import os
import queue
from collections import deque
from typing import TYPE_CHECKING, Any, Deque, Dict, Mapping, Optional, Sequence, Tuple
from uuid import uuid4

from ._errors import Error
from ._jobs import Job, Task

if TYPE_CHECKING:  # types are checked the same whether Dask is there or not
    dask: Any
    distributed: Any
else:
    import dask

    try:
        import distributed
        import distributed.scheduler
    except ImportError:  # Dask alone has schedulers for one machine
        distributed = None

# Of a future whose task the scheduler does not know any more.
_CANCELLED = (asyncio.CancelledError, concurrent.futures.CancelledError)
_NO_WORKERS = 300  # seconds without any worker until a job fails
_IDLE = 60  # seconds in which workers leave what they are given, until they are given it once more
_LOOK = 2  # seconds between looks at what the workers do


def thread_count(client: Any) -> int:
    if client is None:
        return dask.config.get("num_workers", None) or os.cpu_count() or 1
    return sum(client.nthreads().values())


class OnCluster:
    """Keeps the workers of a cluster busy, a few tasks for each at a time: so neither the scheduler
    nor the workers hold more than that, however many clips there are."""

    def __init__(self, client: Any, work: Any, preparing: Any, job: Job) -> None:
        self.client, self.work, self.preparing, self.job = client, work, preparing, job
        self.mark = uuid4().hex[:12]
        self.serial = 0
        self.waiting: Deque[Task] = deque()
        self.running: Dict[str, Tuple[Any, Task]] = {}
        self.prepared: Dict[int, Tuple[Any, int]] = {}  # by clip, with how many tasks need it
        self.finished: "queue.Queue[Any]" = queue.Queue()
        self.most = 8  # tasks at a time
        self.fills = 0
        self.seconds_alone = self.seconds_idle = 0.0

    def run(self, tasks: Sequence[Task]) -> None:
        self.waiting.extend(tasks)
        try:
            self._fill()
            while self.running:
                try:
                    key, pieces, error = self.finished.get(timeout=_LOOK)
                except queue.Empty:
                    self._look()
                    continue
                self.seconds_alone = self.seconds_idle = 0
                if key in self.running:  # else it was given to others
                    self._take(self.running.pop(key)[1], pieces, error)
                self._fill()
        finally:
            self._cancel()

    def _cancel(self) -> None:
        left = [one for one, _ in (*self.running.values(), *self.prepared.values())]
        self.running.clear()
        self.prepared.clear()
        if left and self.client.status == "running":
            self.client.cancel(left, force=True)

    def _fill(self) -> None:
        if self.fills % 16 == 0:  # workers come and go
            self.most = max(8, 4 * thread_count(self.client))
        self.fills += 1
        while self.waiting and len(self.running) < self.most:
            task = self.waiting.popleft()
            if not all(self.job.has_failed(number) for number in task.clips):
                self._submit(task)

    def _submit(self, task: Task) -> None:
        number = task.clips[0]
        prepared = None
        if task.of > 1 and task.deaths == 0:
            if number not in self.prepared:
                self.prepared[number] = (self._call("prepare", self.preparing,
                                                    self.job.clips[number]), task.of)
            prepared = self.prepared[number][0]
        future = self._call("read", self.work, self.job.clips_of(task, prepared is None),
                            task.place, task.of, prepared)
        self.running[future.key] = future, task
        future.add_done_callback(self._fetch)

    def _fetch(self, future: Any) -> None:
        """In a thread of the client's: a result that is lost on its way is made once more, and it
        has to be seen meanwhile whether somebody makes it."""
        pieces, error = None, None
        try:
            pieces = future.result()
        except (Exception, *_CANCELLED) as found:
            error = found
        self.finished.put((future.key, pieces, error))

    def _call(self, what: str, function: Any, *arguments: Any) -> Any:
        self.serial += 1
        # A key of this form makes a group of the task alone. Of a large group Dask holds tasks back
        # in a queue, and until 2024.6 those wait for ever when what they need dies with its worker.
        key = f"tarn-{what}-{self.mark}-{self.serial}", 0
        return self.client.submit(function, *arguments, pure=False, key=str(key))

    def _take(self, task: Task, pieces: Any, error: Optional[BaseException]) -> None:
        number = task.clips[0]
        if task.of > 1 and task.deaths == 0 and number in self.prepared:
            kept, users = self.prepared.pop(number)
            if users > 1:
                self.prepared[number] = kept, users - 1
        if error is None:
            self.job.take(task, pieces)
        elif isinstance(error, (distributed.scheduler.KilledWorker, *_CANCELLED)):
            self._require_cluster()
            self.waiting.extendleft(self.job.once_more(
                task, f"the workers that read {{}} died, one after another: {error}"))
        else:  # what the function gave cannot travel
            self.job.fail(task, error)

    def _require_cluster(self) -> None:
        if self.client.status != "running":
            raise Error(f"the cluster is gone; not done are {self.job.names()}")

    def _look(self) -> None:
        self._require_cluster()
        if not self.client.nthreads():
            self.seconds_alone += _LOOK
            if self.seconds_alone >= _seconds("no-workers-timeout", _NO_WORKERS):
                raise Error(f"the cluster has no workers any more; not done are {self.job.names()}")
            return
        self.seconds_alone = 0
        self.seconds_idle = self.seconds_idle + _LOOK if self._is_idle() else 0
        if self.seconds_idle >= _seconds("idle-timeout", _IDLE):
            self._give_out_again()

    def _is_idle(self) -> bool:
        """Whether there are workers that could do something, and none of the cluster does."""
        asked = self.client.scheduler_info
        newer = "n_workers" in inspect.signature(asked).parameters  # tells of a few unless asked
        workers = list((asked(n_workers=-1) if newer else asked())["workers"].values())
        return any(worker.get("status", "running") == "running" for worker in workers) and all(
            _executing(worker.get("metrics", {})) == 0 for worker in workers)

    def _give_out_again(self) -> None:
        """The scheduler takes tasks for running that no worker knows of: a message was lost, or one
        of them has lost its place. Each is done by itself then, and needs no other one."""
        lost = [task for _, task in self.running.values()]
        self._cancel()
        self.seconds_idle = 0
        for task in lost:
            self.waiting.extendleft(self.job.once_more(
                task, "the workers that are to read {} do nothing, again and again"))
        self._fill()


def _seconds(setting: str, otherwise: float) -> float:
    return float(dask.config.get("tarn-videoio." + setting, otherwise))


def _executing(metrics: Mapping[str, Any]) -> int:
    """How many tasks a worker is doing, as it said a moment ago; 1 where it does not tell."""
    counts = metrics.get("task_counts", metrics)
    return int(counts.get("executing", 0 if counts is not metrics else 1))
