"""What a user tries who does not trust it."""

import io
import subprocess
import sys
from fractions import Fraction

import numpy as np
import pytest

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
