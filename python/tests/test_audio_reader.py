"""Sound by number of sample and time, against the ffmpeg program."""

import io
import os
import pickle
import signal
import subprocess
import sys
import threading
from concurrent.futures import ThreadPoolExecutor
from fractions import Fraction

import numpy as np
import pytest
from conftest import encode, ffmpeg, in_child, make_pictures, within

import tarn_videoio as tv

RATE, COUNT = 8000, 30000


def decoded(path, channels, *before):
    """All samples as the ffmpeg program gives them."""
    return np.frombuffer(ffmpeg(*before, "-i", path, "-map", "0:a:0", "-f", "f32le", "-"),
                         np.float32).reshape(-1, channels)


@pytest.fixture(scope="module")
def given():
    """Sample n is n in the left channel and -n in the right one, of 2^15."""
    ramp = np.arange(COUNT, dtype=np.int16)
    return np.stack([ramp, -ramp], 1)


@pytest.fixture(scope="module")
def ramp(tmp_path_factory, given):
    path = tmp_path_factory.mktemp("sound") / "ramp.wav"
    ffmpeg("-f", "s16le", "-ar", RATE, "-ac", 2, "-i", "-", path, stdin=given.tobytes())
    return str(path)


@pytest.fixture(scope="module")
def clip_with_sound(tmp_path_factory):
    """Pictures and 30 s of AAC: a tone that rises and noise."""
    path = tmp_path_factory.mktemp("sound") / "clip.mp4"
    return encode(path, make_pictures(20), before=(
        "-f", "lavfi", "-i", "aevalsrc=0.4*sin(300*t*t)+0.1*random(0)|0.3*sin(700*t):s=44100:d=30"),
        options=("-map", "1:v", "-map", "0:a", "-c:v", "libx264", "-c:a", "aac", "-aac_pns", "0"))


@pytest.fixture(scope="module")
def floats(given):
    return given.astype(np.float32) / 32768


# What there is

def test_tells_what_the_sound_is(ramp):
    a = tv.AudioReader(ramp)
    assert len(a) == COUNT
    assert (a.rate, a.channels, a.layout) == (RATE, 2, "stereo")
    assert a.start_time == 0 and a.duration == Fraction(COUNT, RATE)
    assert isinstance(a.duration, Fraction)
    assert a.metadata.codec == "pcm_s16le" and a.metadata.rate == RATE
    assert a.metadata.container == "wav" and a.metadata.channels == 2


def test_the_best_stream_or_the_one_asked_for(clip_with_sound, clip):
    assert len(tv.AudioReader(clip_with_sound, stream=1)) == len(tv.AudioReader(clip_with_sound))
    for source, stream in ((clip_with_sound, 0), (clip_with_sound, 7), (clip, None)):
        with pytest.raises(tv.Error, match=os.path.basename(source)):
            tv.AudioReader(source, stream=stream)


# Samples

def test_one_sample_and_ranges(ramp, floats):
    a = tv.AudioReader(ramp)
    for number in (0, 12345, -1, np.int64(7)):
        assert a[number].shape == (2,) and a[number].dtype == np.float32
        np.testing.assert_array_equal(a[number], floats[number])
    for key in (slice(0, 10), slice(29000, None), slice(-5, None), slice(None, 3), slice(9, 4),
                slice(40000, 50000), slice(-50000, 2), slice(100, 200, 1)):
        np.testing.assert_array_equal(a[key], floats[key])
        assert a[key].shape == floats[key].shape and a[key].dtype == np.float32


def test_every_array_is_ones_own(ramp, floats):
    a = tv.AudioReader(ramp)
    first = a[5:10]
    assert first.flags.c_contiguous and first.flags.writeable and first.flags.owndata
    first[:] = 7
    np.testing.assert_array_equal(a[5:10], floats[5:10])
    assert a[5].flags.owndata


def test_what_is_no_range_is_refused(ramp):
    a = tv.AudioReader(ramp)
    for number in (COUNT, -COUNT - 1, 2**70):
        with pytest.raises(IndexError):
            a[number]
        with pytest.raises(IndexError):
            a.time(number)
    for step in (2, -1, 0):
        with pytest.raises(ValueError):
            a[0:10:step]
    for key in (1.5, "1", None, [1, 2], (1, 2), True, ...):
        with pytest.raises(TypeError):
            a[key]
    for size in (0, -1):
        with pytest.raises(ValueError):
            a.blocks(size)
    np.testing.assert_array_equal(a[0:1], [[0, 0]])


def test_compressed_sound_from_anywhere(clip_with_sound):
    expected = decoded(clip_with_sound, 2)
    a = tv.AudioReader(clip_with_sound)
    assert len(a) == len(expected)
    generator = np.random.default_rng(4)
    for first in generator.integers(0, len(a), 30):
        np.testing.assert_array_equal(a[first:first + 3000], expected[first:first + 3000])


@pytest.mark.parametrize("size", [1000, 4096, COUNT, 10**12])
def test_blocks(ramp, floats, size):
    blocks = list(tv.AudioReader(ramp).blocks(size))
    assert all(len(block) == size for block in blocks[:-1]) and 0 < len(blocks[-1]) <= size
    np.testing.assert_array_equal(np.concatenate(blocks), floats)


# Times

def test_times(ramp, floats):
    a = tv.AudioReader(ramp)
    assert a.time(0) == 0 and a.time(4000) == Fraction(1, 2)
    assert a.time(-1) == Fraction(COUNT - 1, RATE)
    assert a.number_at(0) == 0 and a.number_at(0.5) == 4000 and a.number_at("1/2") == 4000
    assert a.number_at(Fraction(4001, RATE) - Fraction(1, 10**30)) == 4000
    assert a.number_at(Fraction(COUNT, RATE) - Fraction(1, 10**9)) == COUNT - 1
    for t in (-1, Fraction(COUNT, RATE), 1e300, -1e-300):
        with pytest.raises(ValueError):
            a.number_at(t)
    for t in (float("nan"), float("inf"), "x"):
        with pytest.raises(ValueError):
            a.number_at(t)
    with pytest.raises(TypeError):
        a.number_at(None)


def test_between(ramp, floats):
    a = tv.AudioReader(ramp)
    for t0, t1, first, stop in ((0, 1, 0, RATE), (0.5, 0.75, 4000, 6000), (-5, "0.001", 0, 8),
                                (3.5, 100, 28000, COUNT), (1, 1, 0, 0), (2, 1, 0, 0),
                                (100, 200, 0, 0), (-2, -1, 0, 0), (-1e300, 1e300, 0, COUNT),
                                (Fraction(1, 16000), Fraction(3, 16000), 1, 2),
                                ("1/8000", "3/8000", 1, 3), (5e-324, Fraction(1, 4000), 1, 2)):
        got = a.between(t0, t1)
        assert got.shape == (stop - first, 2)
        np.testing.assert_array_equal(got, floats[first:stop])


def test_sound_that_begins_later(tmp_path, given):
    path = tmp_path / "late.mkv"
    ffmpeg("-f", "s16le", "-ar", RATE, "-ac", 2, "-i", "-", "-af", "asetpts=PTS+2.5/TB", path,
           stdin=given.tobytes())
    a = tv.AudioReader(path)
    assert a.start_time == Fraction(5, 2)
    assert a.time(8) == Fraction(5, 2) + Fraction(8, RATE)
    assert a.number_at(3) == 4000
    assert len(a.between(0, 3)) == 4000


# Sources

def test_bytes_and_file_objects(ramp, floats):
    data = open(ramp, "rb").read()
    with open(ramp, "rb") as file:
        for source in (data, bytearray(data), memoryview(data), io.BytesIO(data), file):
            np.testing.assert_array_equal(tv.AudioReader(source)[100:200], floats[100:200])


def test_what_is_no_file(tmp_path):
    with pytest.raises(FileNotFoundError):
        tv.AudioReader(tmp_path / "none.wav")
    with pytest.raises(IsADirectoryError):
        tv.AudioReader(tmp_path)
    (tmp_path / "noise.wav").write_bytes(b"x" * 5000)
    with pytest.raises(tv.Error, match="noise.wav"):
        tv.AudioReader(tmp_path / "noise.wav")
    with pytest.raises(TypeError):
        tv.AudioReader(7)


def test_checksums(clip_with_sound):
    expected = decoded(clip_with_sound, 2)
    a = tv.AudioReader(clip_with_sound, checksums=True)
    np.testing.assert_array_equal(a[700000:700100], expected[700000:700100])


# Progress

def test_progress(clip_with_sound, ramp):
    for source in (clip_with_sound, ramp):
        for checksums in (False, True):
            told = []
            tv.AudioReader(source, checksums=checksums, progress=lambda *args: told.append(args))
            assert told and {step for step, _, _ in told} <= {"packets", "samples"}
            with pytest.raises(tv.Cancelled):
                tv.AudioReader(source, checksums=checksums, progress=lambda *_: False)

            def fail(*_):
                raise KeyError("mine")

            with pytest.raises(KeyError, match="mine"):
                tv.AudioReader(source, checksums=checksums, progress=fail)


# Processes, threads, closing

def test_works_on_after_fork(clip_with_sound):
    expected = decoded(clip_with_sound, 2)

    def read(*places):
        for place in places:
            np.testing.assert_array_equal(a[place:place + 500], expected[place:place + 500])

    a = tv.AudioReader(clip_with_sound)
    read(400000)
    with within(60):
        for _ in range(3):
            in_child(lambda: read(400500, 10, 900000))
            read(401000, 20)


def test_pickles_with_its_index(ramp, floats):
    data = open(ramp, "rb").read()
    for source in (ramp, data):
        a = tv.AudioReader(source, checksums=True)
        made = pickle.loads(pickle.dumps(a))
        assert len(made) == len(a) and made.layout == "stereo"
        np.testing.assert_array_equal(made[777:999], floats[777:999])
    with pytest.raises(TypeError):
        pickle.dumps(tv.AudioReader(io.BytesIO(data)))


def test_a_pickle_of_a_changed_file_is_refused(tmp_path, ramp, clip_with_sound):
    path = tmp_path / "sound.wav"
    path.write_bytes(open(ramp, "rb").read())
    pickled = pickle.dumps(tv.AudioReader(path))
    path.write_bytes(open(clip_with_sound, "rb").read())
    with pytest.raises(tv.IndexMismatch, match="sound.wav"):
        pickle.loads(pickled)


def test_several_threads(clip_with_sound):
    expected = decoded(clip_with_sound, 2)
    a = tv.AudioReader(clip_with_sound)

    def read(seed):
        for first in np.random.default_rng(seed).integers(0, len(a), 15):
            np.testing.assert_array_equal(a[first:first + 400], expected[first:first + 400])

    with within(120), ThreadPoolExecutor(4) as threads:
        list(threads.map(read, range(4)))


def test_closed(ramp):
    with tv.AudioReader(ramp) as a:
        blocks = a.blocks(100)
        next(blocks)
    for use in (lambda: len(a), lambda: a[0], lambda: a[0:1], lambda: a.rate, lambda: a.layout,
                lambda: a.time(0), lambda: a.number_at(0), lambda: a.between(0, 1),
                lambda: a.blocks(7), lambda: next(blocks), lambda: a.metadata, lambda: a.duration,
                lambda: pickle.dumps(a), lambda: a.__enter__()):
        with pytest.raises(ValueError, match="closed"):
            use()
    assert "closed" in repr(a) and a.closed
    a.close()


def test_ctrl_c_ends_a_long_call(tmp_path):
    path = tmp_path / "long.wav"
    ffmpeg("-f", "lavfi", "-i", "anoisesrc=r=48000:d=1200", "-ac", 2, path)
    script = f"""
import tarn_videoio as tv
a = tv.AudioReader({str(path)!r})
print("reads", flush=True)
while True:
    a[0:len(a)]
"""
    child = subprocess.Popen([sys.executable, "-c", script], stdout=subprocess.PIPE,
                             stderr=subprocess.PIPE)
    assert child.stdout.readline() == b"reads\n"
    timer = threading.Timer(0.3, child.send_signal, [signal.SIGINT])
    timer.start()
    _, errors = child.communicate(timeout=60)
    assert b"KeyboardInterrupt" in errors
