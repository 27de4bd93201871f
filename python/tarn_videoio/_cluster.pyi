# Made of _cluster.py by python/make-stubs; what is changed there is changed here by running it.
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
dask: Any
distributed: Any

def thread_count(client: Any) -> int:
    ...

class OnCluster:

    def __init__(self, client: Any, work: Any, preparing: Any, job: Job) -> None:
        ...

    def run(self, tasks: Sequence[Task]) -> None:
        ...

    def _cancel(self) -> None:
        ...

    def _fill(self) -> None:
        ...

    def _submit(self, task: Task) -> None:
        ...

    def _fetch(self, future: Any) -> None:
        ...

    def _call(self, what: str, function: Any, *arguments: Any) -> Any:
        ...

    def _take(self, task: Task, pieces: Any, error: Optional[BaseException]) -> None:
        ...

    def _require_cluster(self) -> None:
        ...

    def _look(self) -> None:
        ...

    def _is_idle(self) -> bool:
        ...

    def _give_out_again(self) -> None:
        ...

def _seconds(setting: str, otherwise: float) -> float:
    ...

def _executing(metrics: Mapping[str, Any]) -> int:
    ...
