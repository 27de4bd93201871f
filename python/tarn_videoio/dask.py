"""Clips on many processors and machines, by Dask.

    import tarn_videoio.dask as tvd

    mean = tvd.frames("clip.mp4").mean(axis=0).compute()
    with distributed.Client("tcp://scheduler:8786"):
        counts = tvd.map(count_faces, paths)   # for each path a list, in frame order

Nothing but paths, options and indices travels to workers; each part is read by one thread. Others
do what a worker that dies was doing. A file that changes meanwhile ends in an exception.
"""

from __future__ import annotations

import inspect
import os
import pickle
from contextlib import contextmanager
from dataclasses import replace
from functools import partial
from hashlib import blake2b
from typing import (TYPE_CHECKING, Any, Callable, Dict, Iterable, Iterator, List, Mapping, Optional,
                    Sequence, Tuple, Union)

import numpy as np

from . import _checks, _parts
from ._calls import Progress, ProgressFunction
from ._cluster import OnCluster, thread_count
from ._errors import Error
from ._index import FrameIndex, index_of
from ._jobs import Job, Task
from ._sound import AudioReader
from ._video import FrameBatch, VideoReader

Given = Union[FrameIndex, str, "os.PathLike[str]", None]

if TYPE_CHECKING:  # types are checked the same whether Dask is there or not
    dask: Any
    distributed: Any
else:
    import dask
    import dask.array
    import dask.base
    import dask.highlevelgraph

    try:
        import distributed
        import distributed.worker
    except ImportError:  # Dask alone has schedulers for one machine
        distributed = None

__all__ = ["frames", "index", "map", "sounds"]

# What is no option of a reader on a worker.
_NOT_OPTIONS = {"self", "source", "threads", "index", "checksums", "progress"}
_ROUND = 2000  # tasks that a scheduler of this machine is given at once


def frames(source: Any, *, chunk: Optional[int] = None,
           **reader_options: Any) -> Any:
    """The pictures of a clip as a dask.array: (N, H, W, 3), or (N, …) as `format` says.

    Its chunks are partitions of the clip of about `chunk` frames each (unless told, of at most
    1000 frames and about 128 MiB): they begin where decoding can begin, so some may be longer. The
    index is made here, unless `index` is given; pictures are read when they are computed, by
    workers. `reader_options` are those of VideoReader but for `threads`, which is 1; with
    `checksums` every picture is proven.

    Raises what VideoReader raises; computing raises tv.IndexMismatch when the clip is not what it
    was when the array was made.
    """
    size = _checks.optional_integer(chunk, "chunk", 1)
    options = dict(reader_options)
    given = index_of(options.pop("index", None))
    checksums = _checks.flag(options.pop("checksums", False), "checksums")
    progress = options.pop("progress", None)
    clip = _parts.clip_of(source, _reader_options(options), checksums)
    with clip.open(given, progress) as reader:
        shape, kind = _parts.picture_layout(reader)
        found = _parts.prepared_of(clip, reader, size)
    name = "tarn-frames-" + dask.base.tokenize(found.key, found.parts)
    index_name = "tarn-index-" + dask.base.tokenize(found.key)
    layer, others = _held(index_name, found)
    parts = found.parts or ((0, 0),)
    zeros = (0,) * len(shape)
    for place, (first, stop) in enumerate(parts):
        layer[(name, place) + zeros] = (_parts.read_array, index_name, first, stop, others)
    chunks = (tuple(stop - first for first, stop in parts),) + tuple((n,) for n in shape)
    return _array(name, layer, chunks, kind)


def sounds(source: Any, *, chunk: Optional[int] = None, **reader_options: Any) -> Any:
    """The sound of a clip as a dask.array: float32 (samples, channels).

    `chunk` is how many samples a chunk has, a minute of them unless told. The index is made here;
    samples are read when they are computed, by workers. `reader_options` are those of AudioReader.
    """
    size = _checks.optional_integer(chunk, "chunk", 1)
    with AudioReader(_parts.clip_of(source, {}, False).content(), **reader_options) as reader:
        count, channels, size = len(reader), reader.channels, size or 60 * reader.rate
        recipe = pickle.dumps(reader)  # a path, options and the index
    mark = dask.base.tokenize(recipe, size)
    name, held = "tarn-sounds-" + mark, "tarn-index-" + mark
    layer, others = _held(held, recipe)
    ends = [min(first + size, count) for first in range(0, count, size)] or [0]
    for place, stop in enumerate(ends):
        layer[(name, place, 0)] = (_parts.read_samples, held, place * size, stop, others)
    chunks = (tuple(stop - place * size for place, stop in enumerate(ends)), (channels,))
    return _array(name, layer, chunks, np.dtype(np.float32))


def _held(name: str, value: Any) -> Tuple[Dict[Any, Any], List[Any]]:
    """What the tasks of an array need is a task of its own, so that it travels to each worker once.

    With it come tasks that give nothing and are needed, too. Dask from 2022.11 to 2024.6 holds
    tasks back that need fewer than five others, and those wait for ever when one of them dies with
    the last worker that has it.
    """
    others = [(name + "-other", place) for place in range(4 if _forgets_waiting() else 0)]
    return {key: (_parts.Held(value if key == name else None),) for key in (name, *others)}, others


def _forgets_waiting() -> bool:
    try:
        version = tuple(int(number) for number in distributed.__version__.split(".")[:2])
    except (AttributeError, ValueError):  # there is none, or it is nobody's release
        return False
    return (2022, 11) <= version < (2024, 7)


def _array(name: str, layer: Dict[Any, Any], chunks: Any, kind: "np.dtype[Any]") -> Any:
    graph = dask.highlevelgraph.HighLevelGraph.from_collections(name, layer)
    return dask.array.Array(graph, name, chunks, meta=np.empty((0,) * len(chunks), kind))


def map(function: Callable[[FrameBatch], Any], sources: Iterable[Any], *,
        chunk: Optional[int] = None, checksums: bool = True,
        index: Union[Given, Sequence[Given]] = None, on_error: str = "raise",
        progress: Optional[ProgressFunction] = None, **reader_options: Any) -> List[Any]:
    """For each source the list of what `function(batch)` gives for its parts, in frame order.

    A batch is the FrameBatch of a part: about `chunk` frames (unless told, at most 1000 and about
    128 MiB) that begin where decoding can begin. Runs on the cluster of the current
    distributed.Client; without one, on Dask's scheduler for this machine. Large sources come first;
    a large one is spread over workers, small ones share a task.

    With `checksums` every picture that `function` gets was compared with the index, and a
    difference raises tv.Error. `index` is a list with an index, or the path of one, for each
    source; those that are missing are made by workers, which with `checksums` decodes the clip
    once more. `reader_options` are those of VideoReader but for `threads`, which is 1.

    The first failure ends the job: a tv.Error or OSError that names the source, or what `function`
    raised, with a tv.Error as its cause that names the source and the frames. With
    `on_error="return"` the others are done, and the exception stands in place of the list of the
    source that failed. Workers may die: their work is done by others; what has killed its workers
    again and again is a failure, and so is a cluster that has had no worker for 300 s
    (Dask's setting "tarn-videoio.no-workers-timeout"). When no worker of the cluster does anything
    for 60 s ("tarn-videoio.idle-timeout") the tasks are handed out once more, at most twice.

    `progress("sources", done, total)` may return False or raise to stop.
    """
    if not callable(function):
        raise TypeError("function has to be callable with a FrameBatch")
    size = _checks.optional_integer(chunk, "chunk", 1)
    clips = _clips(sources, reader_options, _checks.flag(checksums, "checksums"), index)
    return _spread(_parts.Applying(function, size),
                   _parts.Preparing(size), clips, on_error, progress)


def index(sources: Iterable[Any], folder: Union[str, "os.PathLike[str]", None] = None, *,
          checksums: bool = False, on_error: str = "raise",
          progress: Optional[ProgressFunction] = None, **reader_options: Any) -> List[Any]:
    """Makes the indices of many clips side by side, and gives their paths in the same order.

    They are stored beside the sources as `<source>.index`, or in a folder that all workers share.
    One that is there and still that of its clip is left as it is. `checksums` decodes the clips
    and keeps a checksum of every picture. Runs where `map` does, with the same failures.
    """
    clips = _clips(sources, reader_options, _checks.flag(checksums, "checksums"), None)
    at = None if folder is None else os.path.abspath(os.fspath(folder))
    if at is not None and not os.path.isdir(at):
        raise NotADirectoryError(f"indices are to be stored in {at}, which is no folder")
    clips = [replace(clip, target=_index_path(clip, at)) for clip in clips]
    found = _spread(_parts.Indexing(), None, clips, on_error, progress)
    return [one[0] if isinstance(one, list) else one for one in found]


def _index_path(clip: _parts.Clip, folder: Optional[str]) -> str:
    if folder is None:
        path = clip.path
        if path is None:
            raise ValueError(f"an index cannot be stored beside {clip.name}: name a folder")
        return path + ".index"
    # Clips of several folders may have the same name.
    mark = blake2b(clip.name.encode("utf-8", "surrogateescape"), digest_size=4).hexdigest()
    return os.path.join(folder, f"{os.path.basename(clip.name.rstrip('/'))}-{mark}.index")


# Arguments

def _reader_options(options: Mapping[str, Any]) -> Dict[str, Any]:
    """Options that a reader on a worker takes."""
    known = set(inspect.signature(VideoReader.__init__).parameters) - _NOT_OPTIONS
    for name in options:
        if name == "threads":
            if options[name] != 1:
                raise ValueError("threads has to be 1: parts are what is done side by side")
        elif name not in known:
            raise TypeError(f"{name} is no option of a reader on workers")
    return {name: value for name, value in options.items() if name != "threads"}


def _clips(sources: Iterable[Any], options: Mapping[str, Any], checksums: bool,
           index: Any) -> List[_parts.Clip]:
    if isinstance(sources, (str, bytes, bytearray, memoryview, os.PathLike)):
        raise TypeError("sources has to be a list of them")
    listed = list(sources)
    chosen = _reader_options(options)
    if index is None or isinstance(index, (FrameIndex, str, os.PathLike)):
        given = [index] * len(listed)
        if index is not None and len(listed) != 1:
            raise ValueError(f"one index for {len(listed)} sources: give a list of indices")
    else:
        given = list(index)
    if len(given) != len(listed):
        raise ValueError(f"{len(given)} indices for {len(listed)} sources")
    return [_parts.clip_of(source, chosen, checksums, _sent(one))
            for source, one in zip(listed, given)]


def _sent(index: Any) -> Union[bytes, str, None]:
    """An index as workers are told of it."""
    if index is None:
        return None
    if isinstance(index, FrameIndex):
        return index.to_bytes()
    if isinstance(index, (str, os.PathLike)):
        return os.path.abspath(os.fspath(index))
    raise TypeError(f"index has to be a FrameIndex or the path of one, not {type(index).__name__}")


# Where it runs

@contextmanager
def _current_client() -> Iterator[Any]:
    """The client of the current cluster; None for a scheduler of this machine."""
    chosen = dask.config.get("scheduler", None)
    if distributed is None or chosen not in (None, "distributed", "dask.distributed"):
        yield None
        return
    if hasattr(distributed.worker.thread_state, "start_time"):
        with distributed.worker_client() as client:  # a task that makes tasks lets others in
            yield client
        return
    try:
        client = distributed.get_client()
    except ValueError:
        client = None
    if client is not None and client.asynchronous:
        raise ValueError("an asynchronous client cannot be waited for")
    yield client


def _spread(work: Any, preparing: Any, clips: List[_parts.Clip], on_error: str,
            progress: Optional[ProgressFunction]) -> List[Any]:
    _checks.word(on_error, "on_error", ("raise", "return"))
    told = Progress(progress)
    try:
        with _current_client() as client:
            threads = max(1, thread_count(client))
            job = Job(clips, on_error == "raise", told)
            tasks = job.plan(threads, preparing is not None)
            if client is None:
                _run_here(replace(work, stops=on_error == "raise"), preparing, job, tasks)
            else:
                OnCluster(client, work, preparing, job).run(tasks)
        told.finish(len(clips), f"{len(clips)} sources", "sources")
        return job.found()
    finally:
        _parts.readers.close()


def _run_here(work: Any, preparing: Any, job: Job, tasks: Sequence[Task]) -> None:
    """By Dask's scheduler for this machine: of threads unless another one is set."""
    for begin in range(0, len(tasks), _ROUND):
        round_ = tasks[begin:begin + _ROUND]
        prepared: Dict[int, Any] = {}
        calls = []
        for task in round_:
            number = task.clips[0]
            if task.of > 1 and number not in prepared:
                prepared[number] = _delayed(preparing, job.clips[number])()
            calls.append(_delayed(work, job.clips_of(task, number not in prepared), task.place,
                                  task.of)(prepared.get(number)))
        try:
            done = dask.compute(*calls)
        except Exception as error:
            failure = getattr(error, "failure", None)
            if isinstance(failure, _parts.Failure):  # of a Stopped, also as other processes show it
                failure.throw()
            if type(error).__name__ == "BrokenProcessPool":
                raise Error(f"a process died that read {job.names(round_)}") from error
            raise
        for task, pieces in zip(round_, done):
            job.take(task, pieces)


def _delayed(function: Any, *arguments: Any) -> Any:
    """A task whose arguments Dask does not look into."""
    return dask.delayed(partial(function, *arguments), pure=False, traverse=False)
