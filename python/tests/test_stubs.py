"""The stubs, and the types of the package's own code."""

import os
import pathlib
import shutil
import subprocess
import sys

import numpy as np
import pytest

import tarn_videoio as tv

PACKAGE = pathlib.Path(tv.__file__).parent
SOURCES = pathlib.Path(__file__).resolve().parent.parent

pytest.importorskip("mypy")
if not (pathlib.Path(np.__file__).parent / "py.typed").exists():
    pytest.skip("NumPy before 1.20 has no types", allow_module_level=True)


def run(*command, folder):
    done = subprocess.run([sys.executable, *command], cwd=folder, stdout=subprocess.PIPE,
                          stderr=subprocess.STDOUT, env={**os.environ, "MYPYPATH": str(folder)})
    assert done.returncode == 0, done.stdout.decode()


def test_stubtest_accepts_the_stubs(tmp_path):
    os.symlink(PACKAGE, tmp_path / "tarn_videoio")
    run("-m", "mypy.stubtest", "tarn_videoio", folder=tmp_path)
    assert (PACKAGE / "py.typed").exists()


def test_stubs_are_those_of_the_code():
    run(SOURCES / "make-stubs", "--check", folder=SOURCES)


def test_the_code_keeps_its_own_types(tmp_path):
    copy = tmp_path / "tarn_videoio"
    copy.mkdir()
    for path in (SOURCES / "tarn_videoio").iterdir():
        if path.suffix == ".py" or path.name == "_native.pyi":
            shutil.copy(path, copy)
    run("-m", "mypy", "--strict", "-p", "tarn_videoio", folder=tmp_path)


PROGRAM = """
from fractions import Fraction
import numpy as np
import tarn_videoio as tv

with tv.VideoReader("clip.mp4", size=(90, 160)) as v:
    number: int = v.number_at("1/3")
    time: Fraction = v.frame(number).time
    batch: tv.FrameBatch = v.frames(np.array([1, 2]))
    for picture in v:
        picture.mean()
with tv.VideoWriter("copy.mp4", rate=Fraction(25)) as w:
    w.write(batch.data, time=batch.times)
"""


def test_programs_are_checked(tmp_path):
    os.symlink(PACKAGE, tmp_path / "tarn_videoio")
    (tmp_path / "program.py").write_text(PROGRAM)
    run("-m", "mypy", "--strict", "program.py", folder=tmp_path)
    (tmp_path / "wrong.py").write_text(PROGRAM + "v.frame('x').tme\n")
    with pytest.raises(AssertionError, match="tme"):
        run("-m", "mypy", "--strict", "wrong.py", folder=tmp_path)


def test_everything_public_is_documented():
    for name in tv.__all__:
        one = getattr(tv, name)
        if name.startswith("__"):
            continue
        assert one.__doc__, name
        for member, value in vars(one).items() if isinstance(one, type) else ():
            if not member.startswith("_") and (callable(value) or isinstance(value, property)):
                assert value.__doc__ or member == "closed", f"{name}.{member}"
