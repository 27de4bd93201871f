"""Clips on many processors, where things go wrong: complete results, or a failure with a name."""

import os
import signal
import threading
import time
from contextlib import suppress
from itertools import count

import numpy as np
import pytest
from clusters import (HERE, check, clips, dask, distributed, in_processes, in_threads,  # noqa: F401
                      limited, no_cluster, told)
from conftest import encode, make_pictures

import tarn_videoio as tv
import tarn_videoio.dask as tvd


class OwnError(Exception):
    def __init__(self, one, two):  # cannot be pickled
        super().__init__(one + two)


@pytest.mark.parametrize("cluster", ["no_cluster", "in_threads", "in_processes"])
def test_failures_have_names(clips, tmp_path, cluster, request):
    request.getfixturevalue(cluster)
    good = clips[0][0]
    text = tmp_path / "text.mp4"
    text.write_text("no clip" * 1000)

    def divides(batch):
        if batch.numbers[0] == 10:
            raise ZeroDivisionError("mine")

    def fails(batch):
        raise OwnError("a", "b")

    for source, error in ((tmp_path / "missing.mp4", FileNotFoundError),
                          (tmp_path, IsADirectoryError), (text, tv.Error)):
        with pytest.raises(error, match=os.path.basename(source)):
            tvd.map(len, [good, source, good])
    with pytest.raises(ZeroDivisionError, match="mine") as raised:
        tvd.map(divides, [good], chunk=10)
    assert isinstance(raised.value.__cause__, tv.Error)
    assert f"{good}, frames 10 to 16" in str(raised.value.__cause__)
    with pytest.raises(tv.Error, match=f"{good}.*OwnError"):
        tvd.map(fails, [good], chunk=10)
    # The rest is done.
    found = tvd.map(told, [good, text, clips[3][0], tmp_path / "missing.mp4"], chunk=10,
                    on_error="return")
    check(found[0], clips[0][1])
    check(found[2], clips[3][1])
    assert type(found[1]) is tv.Error and "text.mp4" in str(found[1])
    assert type(found[3]) is FileNotFoundError and "missing.mp4" in str(found[3])


def test_what_cannot_travel_back(in_processes, clip):
    with pytest.raises(Exception) as raised:
        tvd.map(lambda batch: threading.Lock(), [clip])
    assert clip in str(raised.value) or clip in str(raised.value.__cause__)


def test_damaged_clips(in_threads, tmp_path, clip):
    content = bytearray(open(clip, "rb").read())
    path = tmp_path / "damaged.mp4"
    path.write_bytes(content)
    index = tv.FrameIndex.build(path, checksums=True)
    content[len(content) // 2] ^= 255
    path.write_bytes(content)
    with pytest.raises(tv.IndexMismatch, match="damaged.mp4"):
        tvd.map(len, [clip, path], chunk=10, index=[None, index])
    path.write_bytes(content[:len(content) // 3])
    with pytest.raises(tv.Error, match="damaged.mp4"):
        tvd.map(len, [clip, path], chunk=10, index=[None, index])


def test_damage_that_only_reading_finds(in_threads, tmp_path, large_clip):
    """The samples by which an index knows its clip do not lie where the damage is."""
    content = open(large_clip, "rb").read()
    index = tv.FrameIndex.build(large_clip, checksums=True)
    path = tmp_path / "damaged.mp4"
    for place in range(len(content) // 2, len(content), 5003):
        damaged = bytearray(content)
        damaged[place:place + 100] = bytes(byte ^ 85 for byte in content[place:place + 100])
        path.write_bytes(damaged)
        if index.match(path) == "fresh":
            break
    assert index.match(path) == "fresh"
    with pytest.raises(tv.Error, match="damaged.mp4") as raised:
        tvd.map(len, [path], chunk=10, index=index)
    assert not isinstance(raised.value, tv.IndexMismatch)


@pytest.mark.parametrize("checksums", [True, False])
@pytest.mark.parametrize("cluster", ["no_cluster", "in_threads"])
def test_a_clip_that_changes_in_mid_job(tmp_path, clip, checksums, cluster, request):
    request.getfixturevalue(cluster)
    path = tmp_path / "changing.mp4"
    path.write_bytes(open(clip, "rb").read())
    twin = encode(tmp_path / "twin.mp4", make_pictures(seed=77))

    def change(batch):
        with suppress(FileNotFoundError):  # the first one does it
            os.replace(twin, path)
        return len(batch)

    with dask.config.set(num_workers=1), \
            pytest.raises(tv.Error, match="changing.mp4"):
        tvd.map(change, [path], chunk=10, checksums=checksums)


def test_a_clip_that_is_only_touched(tmp_path, clip, pictures):
    path = tmp_path / "touched.mp4"
    path.write_bytes(open(clip, "rb").read())

    def touch(batch):
        os.utime(path)
        return told(batch)

    with dask.config.set(scheduler="sync"):
        results, = tvd.map(touch, [path], chunk=10)
    check(results, pictures)


def test_progress_stops(in_threads, clips):
    paths = [path for path, _ in clips]
    with pytest.raises(tv.Cancelled):
        tvd.map(len, paths, progress=lambda *_: False)
    with pytest.raises(OwnError):
        def stop(*_):
            raise OwnError("a", "b")
        tvd.map(len, paths, progress=stop)
    assert tvd.map(len, paths[:1]) == [[17]]  # the cluster goes on


def dies_once(marker):
    def function(batch):
        if batch.numbers[0] == 10:
            try:
                os.close(os.open(marker, os.O_CREAT | os.O_EXCL))
            except FileExistsError:
                pass
            else:
                os.kill(os.getpid(), signal.SIGKILL)
        return told(batch)
    return function


def test_a_worker_that_is_killed(in_processes, tmp_path, clips):
    found = tvd.map(dies_once(str(tmp_path / "died")), [path for path, _ in clips], chunk=10)
    assert (tmp_path / "died").exists()
    for results, (_, pictures) in zip(found, clips):
        check(results, pictures)


def test_an_array_whose_only_worker_is_killed(tmp_path):
    pictures = make_pictures(200)
    clip = encode(tmp_path / "long.mp4", pictures)
    marker = str(tmp_path / "died")

    def weigh(block):
        if block.shape[0] > 1:  # Dask asks with less
            try:
                os.close(os.open(marker, os.O_CREAT | os.O_EXCL))
            except FileExistsError:
                pass
            else:
                time.sleep(0.5)  # until the scheduler knows who has the index
                os.kill(os.getpid(), signal.SIGKILL)
        return block

    with distributed.LocalCluster(n_workers=1, threads_per_worker=1, processes=True,
                                  local_directory=str(tmp_path), **HERE) as cluster, \
            distributed.Client(cluster):
        array = tvd.frames(clip, chunk=10)
        assert array.numblocks[0] == 20
        weighed = array.map_blocks(weigh, dtype=array.dtype, meta=array._meta)
        found = weighed.sum(axis=(1, 2, 3), dtype=np.int64).compute()
    assert os.path.exists(marker)
    assert np.array_equal(found, pictures.sum(axis=(1, 2, 3), dtype=np.int64))


def lose(cluster, lost):
    """What workers say of finished tasks does not arrive, if `lost()`."""
    def wrapped(send):
        return lambda message: (None if message["op"] == "task-finished" and lost()
                                else send(message))

    for worker in cluster.workers.values():
        worker.batched_send = wrapped(worker.batched_send)


def test_tasks_that_the_scheduler_waits_for_in_vain(in_threads, clips):
    """They are done once more, and those that run already are waited for."""
    times = count(1)
    lose(in_threads.cluster, lambda: next(times) in (1, 4))

    def rests(batch):
        time.sleep(0.5)
        return told(batch)

    with dask.config.set({"tarn-videoio.idle-timeout": 4}):
        found = tvd.map(rests, [path for path, _ in clips], chunk=10)
    assert next(times) > 4
    for results, (_, pictures) in zip(found, clips):
        check(results, pictures)


def test_workers_that_do_nothing(in_threads, clips):
    lose(in_threads.cluster, lambda: True)
    with dask.config.set({"tarn-videoio.idle-timeout": 2}):
        found = tvd.map(len, [clips[0][0], clips[4][0]], on_error="return")
    for failure, (path, _) in zip(found, (clips[0], clips[4])):
        assert type(failure) is tv.Error and path in str(failure) and "nothing" in str(failure)


def test_a_task_that_takes_long(in_threads, tmp_path, clip):
    """Workers that do something are waited for."""
    def sleeps(batch):
        with open(tmp_path / "calls", "a") as calls:
            calls.write("called ")
        time.sleep(7)
        return len(batch)

    with dask.config.set({"tarn-videoio.idle-timeout": 2}):
        assert tvd.map(sleeps, [clip], chunk=40) == [[40]]
    assert (tmp_path / "calls").read_text() == "called "


def test_a_clip_that_kills_workers(in_processes, clips):
    """It is told by its name, and every other clip has a result or a failure of its own."""
    def kill(batch):
        if len(batch) == 1:
            os.kill(os.getpid(), signal.SIGKILL)
        return told(batch)

    with dask.config.set({"distributed.scheduler.allowed-failures": 0}):
        in_processes.run_on_scheduler(
            lambda dask_scheduler: setattr(dask_scheduler, "allowed_failures", 0))
        found = tvd.map(kill, [path for path, _ in clips], chunk=10, on_error="return")
    assert type(found[2]) is tv.Error and "22.mp4" in str(found[2]) and "died" in str(found[2])
    for results, (path, pictures) in zip(found, clips):
        if isinstance(results, list):
            check(results, pictures)
        else:  # it was about to be read by workers that died
            assert path in str(results)


def test_a_cluster_without_workers(tmp_path, clip):
    """Is waited for, but not for ever."""
    with distributed.LocalCluster(n_workers=0, processes=False, local_directory=str(tmp_path),
                                  **HERE) as cluster, \
            distributed.Client(cluster), \
            dask.config.set({"tarn-videoio.no-workers-timeout": 1}):
        with pytest.raises(tv.Error, match="no workers.*clip.mp4"):
            tvd.map(len, [clip])


def test_workers_that_come_late(tmp_path, clip, pictures):
    with distributed.LocalCluster(n_workers=0, threads_per_worker=1, processes=False,
                                  local_directory=str(tmp_path), **HERE) as cluster, \
            distributed.Client(cluster):
        timer = threading.Timer(0.5, cluster.scale, [1])
        timer.start()
        results, = tvd.map(told, [clip], chunk=10)
        timer.join()
        check(results, pictures)
