"""The index: values, files, bytes, and what it is to a source."""

import os
import pathlib
import pickle

import numpy as np
import pytest
from conftest import COUNT, make_pictures

import tarn_videoio as tv


@pytest.fixture(scope="module")
def index(clip):
    return tv.FrameIndex.build(clip)


def test_build(index, clip):
    assert len(index) == COUNT and index.has_checksums is False and index.damaged is False
    proven = tv.FrameIndex.build(clip, checksums=True, threads=1, stream=0)
    assert proven.has_checksums is True and len(proven) == COUNT
    assert "40" in repr(index)


def test_saved_and_loaded(index, clip, tmp_path, pictures):
    path = tmp_path / "clip.index"
    index.save(path)
    loaded = tv.FrameIndex.load(path)
    assert len(loaded) == COUNT and loaded.match(clip) == "fresh"
    assert path.read_bytes() == index.to_bytes()
    for given in (index, loaded, path, str(path), tv.FrameIndex.from_bytes(index.to_bytes()),
                  tv.FrameIndex.from_bytes(bytearray(index.to_bytes())),
                  pickle.loads(pickle.dumps(index)), tv.VideoReader(clip).index):
        np.testing.assert_array_equal(tv.VideoReader(clip, index=given)[17], pictures[17])
    assert os.listdir(tmp_path) == ["clip.index"]


def test_match(index, clip, other_clip, tmp_path):
    content = pathlib.Path(clip).read_bytes()
    copy = tmp_path / "copy.mp4"
    copy.write_bytes(content)
    assert index.match(copy) == index.match(content) == index.match(open(clip, "rb")) == "fresh"
    changed = bytearray(content)
    changed[len(content) // 2] ^= 1
    assert index.match(changed) == "stale"
    assert index.match(other_clip) == "foreign"
    assert tv.FrameIndex.build(content).match(clip) == "fresh"
    with pytest.raises(FileNotFoundError):
        index.match(tmp_path / "missing.mp4")


def test_an_index_of_something_else(index, clip, other_clip):
    with pytest.raises(tv.IndexMismatch, match="other.mp4") as raised:
        tv.VideoReader(other_clip, index=index)
    assert isinstance(raised.value, tv.Error)
    changed = bytearray(pathlib.Path(clip).read_bytes())
    changed[len(changed) // 2] ^= 1
    with pytest.raises(tv.IndexMismatch):
        tv.VideoReader(changed, index=index)


def test_damaged_bytes(index, tmp_path):
    content = index.to_bytes()
    path = tmp_path / "damaged.index"
    for damaged in (b"", b"x", content[:-1], content[:40], content + b"x",
                    content[:50] + bytes([content[50] ^ 1]) + content[51:], bytes(10**4)):
        with pytest.raises(tv.Error):
            tv.FrameIndex.from_bytes(damaged)
        path.write_bytes(damaged)
        for ask in (lambda: tv.FrameIndex.load(path), lambda: tv.VideoReader(b"", index=path)):
            with pytest.raises(tv.Error, match="damaged.index"):
                ask()


def test_files_that_cannot_be(index, clip, tmp_path):
    with pytest.raises(FileNotFoundError):
        tv.FrameIndex.load(tmp_path / "missing.index")
    with pytest.raises(FileNotFoundError):
        tv.VideoReader(clip, index=tmp_path / "missing.index")
    with pytest.raises(IsADirectoryError):
        tv.FrameIndex.load(tmp_path)
    with pytest.raises(FileNotFoundError):
        index.save(tmp_path / "no" / "clip.index")
    with pytest.raises(IsADirectoryError):
        index.save(tmp_path)
    with pytest.raises(OSError):
        index.save("/dev/full")


@pytest.mark.parametrize("ask", [
    lambda: tv.FrameIndex.from_bytes("text"), lambda: tv.FrameIndex.from_bytes(5),
    lambda: tv.FrameIndex.load(5), lambda: tv.FrameIndex(), lambda: tv.FrameIndex(1, "x")])
def test_what_is_no_index(ask):
    with pytest.raises(TypeError):
        ask()


@pytest.mark.parametrize("options, error", [
    ({"stream": "0"}, TypeError), ({"stream": -1}, ValueError), ({"checksums": 2}, TypeError),
    ({"threads": -1}, ValueError), ({"progress": 1}, TypeError), ({"stream": 7}, tv.Error)])
def test_refuses_impossible_options(clip, options, error):
    with pytest.raises(error):
        tv.FrameIndex.build(clip, **options)


# Progress

@pytest.mark.parametrize("checksums", [False, True])
def test_progress_is_told(clip, checksums):
    calls = []
    for make in (tv.FrameIndex.build, tv.VideoReader):
        calls.clear()
        make(clip, checksums=checksums, progress=lambda *call: calls.append(call))
        assert calls and {step for step, _, _ in calls} <= {"packets", "pictures"}
        assert all(0 <= done <= total or total == 0 for _, done, total in calls)
        if checksums:
            assert "pictures" in {step for step, _, _ in calls}


@pytest.mark.parametrize("make", [tv.FrameIndex.build, tv.VideoReader])
def test_progress_may_stop(clip, make):
    for answer in (False, np.bool_(False)):
        with pytest.raises(tv.Cancelled, match="clip.mp4") as raised:
            make(clip, progress=lambda *_: answer)
        assert isinstance(raised.value, tv.Error)
    for answer in (None, True, 0, "", []):
        assert len(make(clip, progress=lambda *_: answer)) == COUNT


@pytest.mark.parametrize("error", [ZeroDivisionError("mine"), KeyboardInterrupt("mine"),
                                   tv.Cancelled("mine"), StopIteration("mine")])
def test_what_progress_raises_comes_through(clip, error):
    def stop(*_):
        raise error

    for make in (tv.FrameIndex.build, tv.VideoReader):
        with pytest.raises(type(error), match="mine") as raised:
            make(clip, progress=stop)
        assert raised.value is error


def test_progress_of_the_wrong_kind(clip):
    with pytest.raises(TypeError):
        tv.FrameIndex.build(clip, progress=lambda: True)


def test_an_index_of_one_stream_is_not_that_of_another(tmp_path, clip, other_clip):
    from conftest import ffmpeg
    path = tmp_path / "two.mkv"
    ffmpeg("-i", clip, "-i", other_clip, "-map", "0:v", "-map", "1:v", "-c", "copy", path)
    index = tv.FrameIndex.build(path, stream=1)
    assert len(index) == 20
    with pytest.raises(tv.IndexMismatch):
        tv.VideoReader(path, stream=0, index=index)
    found = tv.VideoReader(path, stream=1, index=index)
    np.testing.assert_array_equal(found[5], make_pictures(20, seed=9)[5])
