"""What a user tries who does not trust it."""

import io
import os
import shutil
import subprocess
import sys
from fractions import Fraction

import numpy as np
import pytest
from conftest import in_child

import tarn_videoio as tv

PICTURES = np.random.default_rng(3).integers(0, 256, (3, 96, 128, 3), np.uint8)

WRITES = """
import numpy as np, tarn_videoio as tv
try:
    with tv.VideoWriter("quiet.mkv", rate=25, codec={codec!r}, preset={preset!r}) as w:
        w.write(np.zeros((3, 96, 128, 3), np.uint8))
except ValueError as error:
    assert "preset" in str(error), error
"""


@pytest.mark.parametrize("codec, preset", [
    ("h264", None), ("h264", "quickest"), ("libx264rgb", "quickest"), ("hevc", None),
    ("hevc", "quickest"), ("av1", None), ("av1", "quickest"), ("vp9", None)])
def test_encoders_print_nothing(tmp_path, codec, preset):
    done = subprocess.run([sys.executable, "-c", WRITES.format(codec=codec, preset=preset)],
                          cwd=tmp_path, stdout=subprocess.PIPE, stderr=subprocess.PIPE, check=False)
    assert (done.returncode, done.stdout, done.stderr) == (0, b"", b"")


def test_what_the_caller_says_to_x265_counts(tmp_path):
    path = tmp_path / "x265.mkv"
    with tv.VideoWriter(path, rate=25, codec="hevc", options={"x265-params": "keyint=1"}) as w:
        w.write(PICTURES)
    with tv.VideoReader(path) as v:
        assert v.key_frames.tolist() == [0, 1, 2]


def test_a_file_object_of_any_name(clip, pictures):
    class Named(io.BytesIO):
        name = "a\udcff\ud800"

    with open(clip, "rb") as file:
        with tv.VideoReader(Named(file.read())) as v:
            assert np.array_equal(v[3], pictures[3])
    with pytest.raises(tv.Error):
        tv.VideoReader(Named(b"junk" * 100))


def test_more_parts_than_frames_may_be_asked_for(clip):
    with tv.VideoReader(clip) as v:
        assert v.partitions(10**20) == v.partitions()


def test_timeouts_may_be_fractions(clip):
    with tv.VideoReader(clip, open_timeout=Fraction(99, 2), read_timeout=np.float32(30)) as v:
        assert len(v) == 40


@pytest.fixture
def elsewhere(clip, tmp_path, monkeypatch):
    """A clip in the current folder, and another folder to go to."""
    here = tmp_path / "here"
    here.mkdir()
    shutil.copy(clip, here / "clip.mp4")
    (tmp_path / "there").mkdir()
    monkeypatch.chdir(here)
    return tmp_path / "there"


def test_a_relative_path_outlives_a_change_of_folder(elsewhere, pictures, monkeypatch):
    with tv.VideoReader("clip.mp4") as v:
        monkeypatch.chdir(elsewhere)
        assert v.metadata.width == pictures.shape[2]
        assert np.array_equal(v[39], pictures[39])

        def child():
            assert np.array_equal(v[20], pictures[20])

        in_child(child)


def test_what_is_written_stands_where_it_was_meant_to(elsewhere, pictures, monkeypatch):
    here = os.getcwd()
    with tv.VideoWriter("made.mkv", rate=25, codec="ffv1") as w:
        w.write(pictures[:2])
        monkeypatch.chdir(elsewhere)
    assert os.listdir(".") == []
    assert np.array_equal(tv.VideoReader(os.path.join(here, "made.mkv"))[:], pictures[:2])


def test_a_copy_that_cannot_grow_tells_the_name_of_the_copy(tmp_path, large_clip):
    code = """
import resource, signal, sys, tarn_videoio as tv
signal.signal(signal.SIGXFSZ, signal.SIG_IGN)
resource.setrlimit(resource.RLIMIT_FSIZE, (20000, 20000))
try:
    tv.remux(sys.argv[1], "copy.mkv")
except OSError as error:
    print(error.filename)
"""
    done = subprocess.run([sys.executable, "-c", code, large_clip], cwd=tmp_path, check=True,
                          stdout=subprocess.PIPE)
    assert done.stdout == b"copy.mkv\n"
    assert os.listdir(tmp_path) == []


def test_floats_between_samples_are_taken_at_their_exact_value(tmp_path):
    path = tmp_path / "sound.wav"
    sound = np.random.default_rng(4).random((48000, 1), dtype=np.float32)
    with tv.AudioWriter(path, 48000) as w:
        w.write(sound)
    with tv.AudioReader(path) as a:
        for time in (place / 48000 for place in range(100)):
            exact = Fraction(time) * 48000
            assert a.number_at(time) == exact // 1
            assert np.array_equal(a.between(time, 1), sound[-(-exact // 1):])
