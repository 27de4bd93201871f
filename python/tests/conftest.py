"""Clips whose pictures are known, made by the ffmpeg program."""

import faulthandler
import os
import signal
import subprocess
import sys
import threading
from contextlib import contextmanager

import numpy as np
import pytest
from hypothesis import settings

settings.register_profile("here", database=None, deadline=None)
settings.load_profile("here")

COUNT, HEIGHT, WIDTH = 40, 48, 64

shown = {"stderr": 2}


def pytest_configure():
    """While tests run, pytest has a file of its own in the place of standard error."""
    shown["stderr"] = os.dup(2)


def ffmpeg(*arguments, stdin=None):
    """Runs the ffmpeg program and gives its standard output."""
    done = subprocess.run(["ffmpeg", "-v", "error", "-nostdin" if stdin is None else "-y", "-y",
                           *map(str, arguments)], input=stdin, stdout=subprocess.PIPE,
                          stderr=subprocess.PIPE, check=False)
    assert done.returncode == 0, done.stderr.decode()
    return done.stdout


def ffprobe(path, entries):
    """The values that ffprobe has, one a line."""
    told = subprocess.run(["ffprobe", "-v", "error", "-select_streams", "v:0", "-show_entries",
                           entries, "-of", "csv=p=0", str(path)], stdout=subprocess.PIPE,
                          check=True).stdout.decode().split()
    return [line.rstrip(",") for line in told]


# Every picture, whatever its time: FFmpeg before 5.1 has another name for it.
EVERY_PICTURE = ("-fps_mode" if b"-fps_mode" in ffmpeg("-h", "full") else "-vsync", "passthrough")


def raw(path, pixel_format, height, width, channels=None, dtype=np.uint8, *options):
    """All pictures as the ffmpeg program gives them."""
    shape = (-1, height, width) + (() if channels is None else (channels,))
    return np.frombuffer(ffmpeg("-i", path, *options, *EVERY_PICTURE, "-f", "rawvideo", "-pix_fmt",
                                pixel_format, "-"), dtype).reshape(shape)


def make_pictures(count=COUNT, height=HEIGHT, width=WIDTH, seed=1):
    """Pictures that all differ."""
    generator = np.random.default_rng(seed)
    coarse = generator.integers(0, 256, (count, (height + 7) // 8, (width + 7) // 8, 3), np.uint8)
    return np.ascontiguousarray(coarse.repeat(8, 1).repeat(8, 2)[:, :height, :width])


def encode(path, pictures, rate="25", options=("-c:v", "libx264rgb", "-qp", "0", "-g", "10",
                                               "-bf", "3", "-sc_threshold", "0"), before=()):
    """A clip of given RGB pictures; lossless unless told otherwise."""
    _, height, width, _ = pictures.shape
    ffmpeg(*before, "-f", "rawvideo", "-pix_fmt", "rgb24", "-s", f"{width}x{height}", "-r", rate,
           "-i", "-", *options, path, stdin=pictures.tobytes())
    return str(path)


@pytest.fixture(scope="session")
def pictures():
    return make_pictures()


@pytest.fixture(scope="session")
def clip(tmp_path_factory, pictures):
    """40 known pictures at 25 a second, a key picture every 10."""
    return encode(tmp_path_factory.mktemp("clips") / "clip.mp4", pictures)


@pytest.fixture(scope="session")
def other_clip(tmp_path_factory):
    return encode(tmp_path_factory.mktemp("clips") / "other.mp4", make_pictures(20, seed=9))


@pytest.fixture(scope="session")
def noise():
    return np.random.default_rng(2).integers(0, 256, (COUNT, 192, 256, 3), np.uint8)


@pytest.fixture(scope="session")
def large_clip(tmp_path_factory, noise):
    """Known pictures that take far more bytes than are read ahead."""
    return encode(tmp_path_factory.mktemp("clips") / "large.mp4", noise)


@pytest.fixture(scope="session")
def uneven(tmp_path_factory, pictures):
    """The same pictures at the times n * n / 1000 s after 1 s."""
    path = tmp_path_factory.mktemp("clips") / "uneven.mkv"
    return encode(path, pictures, "1000", ("-vf", "settb=1/1000,setpts=1000+N*N", *EVERY_PICTURE,
                                           "-c:v", "libx264rgb", "-qp", "0", "-g",
                                           "10", "-sc_threshold", "0"))


@pytest.fixture(scope="session")
def yuv_clip(tmp_path_factory, pictures):
    """An ordinary clip: 4:2:0, BT.601 in limited range."""
    path = tmp_path_factory.mktemp("clips") / "yuv.mp4"
    return encode(path, pictures, options=("-vf", "scale=out_color_matrix=bt601:out_range=tv",
                                           "-pix_fmt", "yuv420p", "-c:v", "libx264", "-g", "10"))


@contextmanager
def within(seconds):
    """Ends the test program, rather than hang for ever, and says which test it was and where."""
    def end():
        name = os.environ.get("PYTEST_CURRENT_TEST", "a test")
        os.write(shown["stderr"], f"\n{name} hangs for {seconds} s\n".encode())
        faulthandler.dump_traceback(shown["stderr"], all_threads=True)
        os._exit(70)

    timer = threading.Timer(seconds, end)
    timer.daemon = True
    timer.start()
    try:
        yield
    finally:
        timer.cancel()


def in_child(function, seconds=30):
    """Runs a function in a forked process. It has to come back without an exception in time."""
    child = os.fork()
    if child == 0:
        signal.alarm(seconds)
        code = 1
        try:
            function()
            code = 0
        except BaseException:
            import traceback
            traceback.print_exc()
        finally:
            sys.stderr.flush()
            os._exit(code)
    _, status = os.waitpid(child, 0)
    assert status == 0, f"the child ended with {status}"

