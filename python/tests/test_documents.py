"""The programs of the pages and the examples run as they stand there."""

import pathlib
import re
import subprocess
import sys

import numpy as np
import pytest
from conftest import encode, ffmpeg, make_pictures

ROOT = pathlib.Path(__file__).resolve().parent.parent.parent


@pytest.fixture()
def folder(tmp_path):
    encode(tmp_path / "video.mp4", make_pictures(100), options=("-pix_fmt", "yuv420p", "-c:v",
                                                                "libx264", "-g", "12"))
    ffmpeg("-i", tmp_path / "video.mp4", "-f", "lavfi", "-i", "sine=d=4", "-c:v", "copy",
           tmp_path / "clip.mp4")
    return tmp_path


def run(folder, *command):
    done = subprocess.run([sys.executable, *map(str, command)], cwd=folder, timeout=120,
                          stdout=subprocess.PIPE, stderr=subprocess.PIPE)
    assert done.returncode == 0, done.stderr.decode()
    return done.stdout.decode()


@pytest.mark.parametrize("page", ["docs/python.md", "README.md"])
def test_the_programs_of_a_page_run_in_order(folder, page):
    blocks = re.findall(r"^```python\n(.*?)^```$", (ROOT / page).read_text(), re.S | re.M)
    assert blocks
    (folder / "program.py").write_text("\n".join(blocks))
    run(folder, "-W", "error", "program.py")


def test_read_clip(folder):
    lines = run(folder, ROOT / "examples/python/read_clip.py", "clip.mp4").splitlines()
    assert lines[0].split()[0] == "0" and 9 <= len(lines) < 100


def test_write_clip(folder):
    run(folder, ROOT / "examples/python/write_clip.py", "new.mp4")
    assert len(ffmpeg("-i", folder / "new.mp4", "-f", "rawvideo", "-pix_fmt", "gray", "-")) == \
        25 * 120 * 160


def test_cut_sound(folder):
    told = run(folder, ROOT / "examples/python/cut_sound.py", "clip.mp4", "1/2", "3/2", "part.wav")
    whole = np.frombuffer(ffmpeg("-i", folder / "clip.mp4", "-f", "f32le", "-"), np.float32)
    part = np.frombuffer(ffmpeg("-i", folder / "part.wav", "-f", "f32le", "-"), np.float32)
    np.testing.assert_array_equal(part, whole[22050:66150])
    assert told == "44100 samples\n"


def test_contact_sheet(folder):
    pytest.importorskip("matplotlib")
    run(folder, ROOT / "examples/python/contact_sheet.py", "clip.mp4", "sheet.png")
    assert (folder / "sheet.png").read_bytes().startswith(b"\x89PNG")


def test_training_batches(folder):
    pytest.importorskip("torch")
    lines = run(folder, ROOT / "examples/python/training_batches.py", "clip.mp4").splitlines()
    assert len(lines) == 7 and lines[-1].startswith("(4, 90, 160, 3)")


def test_examples_keep_their_types(tmp_path):
    pytest.importorskip("mypy")
    if not (pathlib.Path(np.__file__).parent / "py.typed").exists():
        pytest.skip("NumPy before 1.20 has no types")
    import os

    import tarn_videoio as tv
    os.symlink(pathlib.Path(tv.__file__).parent, tmp_path / "tarn_videoio")
    for path in (ROOT / "examples/python").glob("*.py"):
        (tmp_path / path.name).write_text(path.read_text())
    names = sorted(path.name for path in tmp_path.glob("*.py"))
    assert names
    done = subprocess.run([sys.executable, "-m", "mypy", "--strict", "--ignore-missing-imports",
                           *names], cwd=tmp_path, stdout=subprocess.PIPE,
                          env={**os.environ, "MYPYPATH": str(tmp_path)})
    assert done.returncode == 0, done.stdout.decode()
