"""Clips on many processors: what comes back is complete and in order."""

import os
import pickle
import re
import subprocess
import sys

import numpy as np
import pytest
from clusters import (check, clips, dask, distributed, in_processes, in_threads,  # noqa: F401
                      limited, no_cluster, told)
from conftest import COUNT, ffmpeg, raw

import tarn_videoio as tv
import tarn_videoio.dask as tvd

# Arrays

def test_an_array_is_the_clip(clip, pictures):
    array = tvd.frames(clip, chunk=10)
    assert array.shape == pictures.shape and array.dtype == np.uint8
    assert array.chunks[0] == (10, 10, 10, 10)
    np.testing.assert_array_equal(array.compute(), pictures)
    np.testing.assert_array_equal(array.compute(), raw(clip, "rgb24", 48, 64, 3))
    for key in (slice(3, 29, 5), slice(None, None, -7), 12, -1, [5, 3, 3, 39],
                (slice(8, 12), slice(0, 10), 5)):
        np.testing.assert_array_equal(array[key].compute(), pictures[key])
    np.testing.assert_allclose(array.mean(axis=0).compute(), pictures.mean(axis=0))
    again = array.rechunk((7, 48, 32, 3))
    assert again.chunks[0] == (7, 7, 7, 7, 7, 5)
    np.testing.assert_array_equal(again.compute(), pictures)
    assert (array.max() - array.min()).compute() == pictures.max() - pictures.min()


def test_chunks_are_partitions(clip, clips, pictures):
    reader = tv.VideoReader(clip)
    for chunk in (1, 7, 10, 15, 20, 39, 40, 1000):
        array = tvd.frames(clip, chunk=chunk)
        parts = reader.partitions(-(-COUNT // chunk))
        assert array.chunks[0] == tuple(stop - first for first, stop in parts)
    np.testing.assert_array_equal(tvd.frames(clip).compute(), pictures)
    for path, of_clip in clips:
        np.testing.assert_array_equal(tvd.frames(path, chunk=8).compute(), of_clip)


@pytest.mark.parametrize("options", [
    {"format": "rgb48"}, {"format": "gray8"}, {"format": "gray16"}, {"format": "nv12"},
    {"size": (24, 30)}, {"colours": "bt601", "checksums": True}, {"stream": 0, "threads": 1}])
def test_arrays_in_other_formats(yuv_clip, options):
    array = tvd.frames(yuv_clip, chunk=10, **options)
    whole = tv.VideoReader(yuv_clip, **options)[:]
    assert array.dtype == whole.dtype and array.shape == whole.shape and array.numblocks[0] == 4
    np.testing.assert_array_equal(array.compute(), whole)


@pytest.mark.parametrize("cluster", ["no_cluster", "in_threads", "in_processes"])
def test_arrays_on_schedulers(clip, pictures, cluster, request):
    request.getfixturevalue(cluster)
    array = tvd.frames(clip, chunk=10)
    np.testing.assert_array_equal(array.compute(), pictures)
    np.testing.assert_allclose(array[5:35].mean(axis=0).compute(), pictures[5:35].mean(axis=0))
    lowest = array.persist().min(axis=(1, 2, 3)).compute()
    np.testing.assert_array_equal(lowest, pictures.min(axis=(1, 2, 3)))


def test_arrays_are_read_when_they_are_computed(tmp_path, clip, other_clip):
    path = tmp_path / "clip.mp4"
    path.write_bytes(open(clip, "rb").read())
    array = tvd.frames(path, chunk=10)
    array[:10].compute()
    path.write_bytes(open(other_clip, "rb").read())
    with pytest.raises(tv.IndexMismatch, match="clip.mp4"):
        array[30:].compute()
    path.unlink()
    with pytest.raises(FileNotFoundError, match="clip.mp4"):
        array.compute()


def test_arrays_of_one_clip_have_one_name(tmp_path, clip, other_clip):
    assert tvd.frames(clip, chunk=10).name == tvd.frames(clip, chunk=10).name
    assert len({array.name for array in (
        tvd.frames(clip, chunk=10), tvd.frames(clip, chunk=20), tvd.frames(other_clip, chunk=10),
        tvd.frames(clip, chunk=10, size=(24, 32)))}) == 4


def test_sounds_are_the_clip(in_threads, tmp_path):
    path = tmp_path / "sound.flac"
    ffmpeg("-f", "lavfi", "-i", "sine=r=8000:d=3", "-f", "lavfi", "-i", "sine=f=70:r=8000:d=3",
           "-filter_complex", "amerge", path)
    whole = np.frombuffer(ffmpeg("-i", path, "-f", "f32le", "-"), np.float32).reshape(-1, 2)
    array = tvd.sounds(path, chunk=7001)
    assert array.chunks == ((7001, 7001, 7001, 2997), (2,)) and array.dtype == np.float32
    np.testing.assert_array_equal(array.compute(), whole)
    np.testing.assert_array_equal(array[6990:14010:3, 1].compute(), whole[6990:14010:3, 1])
    np.testing.assert_array_equal(tvd.sounds(path).compute(), whole)
    packed = [len(pickle.dumps(task)) for task in dict(array.__dask_graph__()).values()]
    assert sum(packed) < whole.nbytes / 2
    with pytest.raises(TypeError, match="travel"):
        tvd.sounds(path.read_bytes())


# What travels

def test_an_index_travels_once_and_pictures_never(large_clip, noise):
    array = tvd.frames(large_clip, chunk=10)
    graph = dict(array.__dask_graph__())
    index = tv.FrameIndex.build(large_clip).to_bytes()
    packed = [pickle.dumps(task) for task in graph.values()]
    fillers = [key for key in graph if isinstance(key, tuple) and key[0].endswith("-other")]
    assert len(fillers) in (0, 4)  # by the release of Dask; they give nothing
    assert array.numblocks[0] == 4 and len(graph) - len(fillers) == 5
    assert sum(index in one for one in packed) == 1
    assert sum(map(len, packed)) < len(index) + 5000 < noise[0].nbytes
    np.testing.assert_array_equal(array[35].compute(), noise[35])


def test_tasks_of_map_are_small(in_threads, large_clip, noise, monkeypatch):
    sent = []
    submit = distributed.Client.submit

    def spying(client, function, *arguments, **options):
        sent.append(len(pickle.dumps((function, [a for a in arguments if not isinstance(
            a, distributed.Future)]))))
        return submit(client, function, *arguments, **options)

    monkeypatch.setattr(distributed.Client, "submit", spying)
    index = tv.FrameIndex.build(large_clip, checksums=True)
    results, = tvd.map(told, [large_clip], chunk=10, index=index)
    check(results, noise)
    assert len(sent) > 2 and sum(sent) < len(index.to_bytes()) + 1000 * len(sent)
    assert sum(size > len(index.to_bytes()) for size in sent) == 1


def test_memory_and_files_do_not_travel(clip):
    content = open(clip, "rb").read()
    with open(clip, "rb") as file:
        for source in (content, bytearray(content), file):
            with pytest.raises(TypeError, match="travel"):
                tvd.frames(source)
            with pytest.raises(TypeError, match="travel"):
                tvd.map(told, [source])


def test_dask_is_imported_only_there():
    program = "import sys, tarn_videoio; print('dask' in sys.modules, 'distributed' in sys.modules)"
    done = subprocess.run([sys.executable, "-c", program], stdout=subprocess.PIPE, check=True)
    assert done.stdout.decode().split() == ["False", "False"]


# Functions over many clips

@pytest.mark.parametrize("cluster, checksums", [
    ("no_cluster", True), ("in_threads", True), ("in_threads", False), ("in_processes", True)])
def test_map_gives_everything_in_order(clips, cluster, checksums, request):
    request.getfixturevalue(cluster)
    found = tvd.map(told, [path for path, _ in clips], chunk=10, checksums=checksums)
    assert [len(results) for results in found] == [2, 6, 1, 4, 3]
    for results, (_, pictures) in zip(found, clips):
        check(results, pictures)
    pids = {pid for results in found for _, _, _, pid in results}
    assert (os.getpid() in pids) == (cluster != "in_processes") and len(pids) <= 2


@pytest.mark.parametrize("scheduler", ["threads", "sync", "processes"])
def test_map_on_schedulers_of_this_machine(clips, scheduler):
    with dask.config.set(scheduler=scheduler, num_workers=2):
        found = tvd.map(told, [path for path, _ in clips[:2]], chunk=10)
        for results, (_, pictures) in zip(found, clips):
            check(results, pictures)
        with pytest.raises(FileNotFoundError, match="nowhere"):
            tvd.map(told, [clips[0][0], "/nowhere.mp4"])


def test_a_scheduler_that_is_set_comes_before_a_client(in_processes, clip, pictures):
    with dask.config.set(scheduler="sync"):
        results, = tvd.map(told, [clip], chunk=10)
    check(results, pictures)
    assert {pid for _, _, _, pid in results} == {os.getpid()}


def test_map_within_a_task(in_threads, clip, pictures):
    results, = in_threads.submit(lambda: tvd.map(told, [clip], chunk=10)).result(timeout=60)
    check(results, pictures)


@pytest.mark.parametrize("chunk, parts", [(1, 4), (10, 4), (20, 2), (40, 1), (None, 1)])
def test_chunks_of_map(clip, pictures, chunk, parts):
    results, = tvd.map(told, [clip], chunk=chunk)
    assert len(results) == parts
    check(results, pictures)


def test_map_of_many_small_clips(in_threads, tmp_path, clip, pictures):
    paths = []
    for number in range(150):
        paths.append(tmp_path / f"{number}.mp4")
        os.link(clip, paths[-1])
    steps = []
    found = tvd.map(lambda batch: (batch.numbers[0], int(batch.data.sum())), paths, chunk=10,
                    progress=lambda *step: steps.append(step))
    one = [(first, int(pictures[first:first + 10].sum())) for first in (0, 10, 20, 30)]
    assert found == [one] * 150
    assert steps == [("sources", done, 150) for done in range(1, 151)]


def test_map_of_nothing(in_threads, clip):
    assert tvd.map(told, []) == [] and tvd.index([]) == []
    assert tvd.map(lambda batch: None, iter([clip])) == [[None]]


def test_options_and_indices_of_map(yuv_clip, clip, tmp_path):
    whole = tv.VideoReader(yuv_clip, format="gray16", size=(20, 30))[:]
    results, = tvd.map(lambda batch: batch.data, [yuv_clip], chunk=10, format="gray16",
                       size=(20, 30))
    np.testing.assert_array_equal(np.concatenate(results), whole)
    index = tv.FrameIndex.build(clip)
    index.save(tmp_path / "clip.index")
    for given in (index, tmp_path / "clip.index", [index], [None]):
        results, = tvd.map(len, [clip], chunk=10, index=given)
        assert results == [10] * 4
    with pytest.raises(tv.IndexMismatch, match="yuv.mp4"):
        tvd.map(len, [clip, yuv_clip], index=[index, index])
    with pytest.raises(FileNotFoundError):
        tvd.map(len, [clip], index=tmp_path / "nowhere.index")


def test_wrong_arguments(clip):
    for ask, error in [
            (lambda: tvd.map(None, [clip]), TypeError),
            (lambda: tvd.map(len, clip), TypeError),
            (lambda: tvd.map(len, [3]), TypeError),
            (lambda: tvd.map(len, [clip], chunk=0), ValueError),
            (lambda: tvd.map(len, [clip], chunk="x"), TypeError),
            (lambda: tvd.map(len, [clip], checksums=1), TypeError),
            (lambda: tvd.map(len, [clip], threads=2), ValueError),
            (lambda: tvd.map(len, [clip], colour="red"), TypeError),
            (lambda: tvd.map(len, [clip], format="red"), ValueError),
            (lambda: tvd.map(len, [clip], on_error="x"), ValueError),
            (lambda: tvd.map(len, [clip, clip], index=[None]), ValueError),
            (lambda: tvd.map(len, [clip], progress=3), TypeError),
            (lambda: tvd.index([clip], clip), NotADirectoryError),
            (lambda: tvd.index(["http://127.0.0.1:9/clip.mp4"]), ValueError),
            (lambda: tvd.frames(clip, chunk=0), ValueError),
            (lambda: tvd.frames(clip, threads=0), ValueError),
            (lambda: tvd.frames(clip, colour="red"), TypeError),
            (lambda: tvd.frames("/nowhere.mp4"), FileNotFoundError)]:
        with pytest.raises(error):
            ask()


def test_openfiles_of_fsspec(clip, pictures):
    fsspec = pytest.importorskip("fsspec", reason="fsspec is not installed")
    source = fsspec.open(clip)
    np.testing.assert_array_equal(tvd.frames(source, chunk=10).compute(), pictures)
    results, = tvd.map(told, [source], chunk=10)
    check(results, pictures)


# Indices

@pytest.mark.parametrize("cluster", ["no_cluster", "in_threads"])
def test_indices_side_by_side(tmp_path, clip, other_clip, pictures, cluster, request):
    request.getfixturevalue(cluster)
    (tmp_path / "a").mkdir()
    (tmp_path / "b").mkdir()
    (tmp_path / "indices").mkdir()
    sources = [tmp_path / "a" / "clip.mp4", tmp_path / "b" / "clip.mp4"]
    sources[0].write_bytes(open(clip, "rb").read())
    sources[1].write_bytes(open(other_clip, "rb").read())
    beside = tvd.index(sources)
    assert beside == [f"{source}.index" for source in sources]
    assert [len(tv.FrameIndex.load(path)) for path in beside] == [COUNT, 20]
    stored = tvd.index(sources, tmp_path / "indices", checksums=True)
    assert len(set(stored)) == 2 and {os.path.dirname(p) for p in stored} == {
        str(tmp_path / "indices")}
    assert all(tv.FrameIndex.load(path).has_checksums for path in stored)
    results, _ = tvd.map(told, sources, chunk=10, index=stored)
    check(results, pictures)
    # One that fits is left alone, any other is made once more.
    written = os.stat(stored[0]).st_ino
    with open(stored[1], "r+b") as file:
        file.truncate(100)
    assert tvd.index(sources, tmp_path / "indices", checksums=True) == stored
    assert os.stat(stored[0]).st_ino == written and len(tv.FrameIndex.load(stored[1])) == 20
    sources[0].write_bytes(open(other_clip, "rb").read())
    tvd.index(sources)
    assert len(tv.FrameIndex.load(beside[0])) == 20
    with pytest.raises(FileNotFoundError, match="nowhere.mp4"):
        tvd.index([sources[0], tmp_path / "nowhere.mp4"])
    with pytest.raises(OSError, match="indices"):
        os.rename(tmp_path / "indices", tmp_path / "gone")
        tvd.index(sources, tmp_path / "indices")


# The page

def test_programs_of_the_page_run(tmp_path, clip):
    page = os.path.join(os.path.dirname(__file__), "..", "..", "docs", "cluster.md")
    with open(page, encoding="utf-8") as file:
        programs = re.findall(r"^```python\n(.*?)^```$", file.read(), re.DOTALL | re.MULTILINE)
    ffmpeg("-stream_loop", 7, "-i", clip, "-c", "copy", tmp_path / "clip.mp4")
    ffmpeg("-i", clip, "-c", "copy", tmp_path / "clip.mkv")
    told = []
    for number, program in enumerate(programs):
        (tmp_path / f"{number}.py").write_text(program, encoding="utf-8")
        told.append(subprocess.run([sys.executable, f"{number}.py"], cwd=tmp_path, check=True,
                                   stdout=subprocess.PIPE).stdout.decode().split("\n"))
    assert told[0] == ["clip.mp4 320", "clip.mkv 40", ""]
    assert told[1][0] == "(320, 32, 48, 3) (160, 160)" and len(told) == 2
