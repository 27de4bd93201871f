"""Forks, threads, pickles, closing, signals, references, log lines."""

import copy
import gc
import io
import logging
import multiprocessing
import os
import pickle
import signal
import subprocess
import sys
import threading
import weakref
from concurrent.futures import ThreadPoolExecutor

import numpy as np
import pytest
from conftest import COUNT, in_child, within

import tarn_videoio as tv


def read_all(reader, numbers, pictures):
    for number in numbers:
        np.testing.assert_array_equal(reader[number], pictures[number])


# Fork

@pytest.mark.parametrize("threads", [1, 2])
@pytest.mark.parametrize("kind", ["path", "bytes", "file", "object"])
def test_works_on_after_fork(clip, pictures, kind, threads):
    with open(clip, "rb") as file:
        source = {"path": clip, "bytes": file.read(), "file": file,
                  "object": io.BytesIO(open(clip, "rb").read())}[kind]
        v = tv.VideoReader(source, threads=threads)
        read_all(v, (3, 20), pictures)
        with within(60):
            for _ in range(5):
                in_child(lambda: read_all(v, (21, 2, 39, 5), pictures))
                read_all(v, (22, 6), pictures)
            children = []
            for place in range(4):
                child = os.fork()
                if child == 0:
                    code = 1
                    try:
                        signal.alarm(30)
                        read_all(v, range(place, COUNT, 3), pictures)
                        code = 0
                    finally:
                        os._exit(code)
                children.append(child)
            read_all(v, range(COUNT), pictures)
            assert [os.waitpid(child, 0)[1] for child in children] == [0] * 4
        v.close()


def test_a_child_may_close_and_fork_again(clip, pictures):
    v = tv.VideoReader(clip)
    read_all(v, [7], pictures)

    def child():
        read_all(v, [8], pictures)
        in_child(lambda: read_all(v, [9], pictures))
        v.close()
        with pytest.raises(ValueError, match="closed"):
            v[0]

    with within(60):
        in_child(child)
    read_all(v, [8], pictures)


def test_a_fork_in_the_middle_of_a_call_of_another_thread(large_clip, noise):
    started, go_on = threading.Event(), threading.Event()

    class Waiting(io.BytesIO):
        waits = False
        breaks = False

        def read(self, count=-1):
            if self.breaks:
                raise OSError(5, "broken")
            if self.waits:
                started.set()
                go_on.wait(30)
            return super().read(count)

    file = Waiting(open(large_clip, "rb").read())
    v = tv.VideoReader(file)
    file.waits = True
    thread = threading.Thread(target=lambda: v[35])
    with within(60):
        thread.start()
        assert started.wait(30)

        def child():
            file.waits = False
            file.breaks = True
            for _ in range(2):
                with pytest.raises(OSError, match="broken"):
                    v[35]
            file.breaks = False
            read_all(v, (35, 2), noise)
            v.close()

        in_child(child)
        file.waits = False
        go_on.set()
        thread.join()
    read_all(v, (35, 2), noise)


def _worker(arguments):
    reader, numbers = arguments
    return [reader[number].copy() for number in numbers]


@pytest.mark.parametrize("method", ["fork", "spawn"])
def test_worker_processes(clip, pictures, method):
    v = tv.VideoReader(clip)
    read_all(v, [4], pictures)
    with within(120), multiprocessing.get_context(method).Pool(2) as pool:
        parts = pool.map(_worker, [(v, range(0, 20)), (v, range(20, COUNT))])
    np.testing.assert_array_equal(np.concatenate(parts), pictures)


# Pickle

def test_pickles(clip, pictures):
    content = open(clip, "rb").read()
    for source in (clip, content, bytearray(content)):
        v = tv.VideoReader(source, format="gray16", size=(24, 32), checksums=True, threads=2,
                           colours="bt601", open_timeout=5, read_timeout=2.5)
        for twin in (pickle.loads(pickle.dumps(v)), copy.copy(v), copy.deepcopy(v)):
            np.testing.assert_array_equal(twin[[3, 30]], v[[3, 30]])
            assert twin.frame(5).reached == "proven" and twin.index.has_checksums


def test_pickled_with_its_index(clip):
    """Opens at once: nothing is asked of the packets."""
    packed = pickle.dumps(tv.VideoReader(clip))
    assert len(packed) > len(tv.VideoReader(clip).index.to_bytes())


def test_a_file_object_does_not_pickle(clip):
    with open(clip, "rb") as file:
        v = tv.VideoReader(file)
        with pytest.raises(TypeError, match="pickle"):
            pickle.dumps(v)
        v.close()


def test_errors_pickle():
    for error in (tv.Error("x", -5), tv.Timeout("y", -110), tv.IndexMismatch("z"),
                  tv.Cancelled("c")):
        twin = pickle.loads(pickle.dumps(error))
        assert type(twin) is type(error) and str(twin) == str(error) and twin.code == error.code
    assert isinstance(tv.Timeout("x"), TimeoutError) and isinstance(tv.Timeout("x"), tv.Error)


# Closing

def test_a_closed_reader_says_so_before_anything_else(clip):
    with tv.VideoReader(clip) as v:
        assert v.closed is False
    v.close()
    assert v.closed is True and "closed" in repr(v)
    for ask in (lambda: len(v), lambda: v[0], lambda: v[10**9], lambda: v["x"], lambda: v[1:3],
                lambda: list(v), lambda: v.frame(None), lambda: v.frames([99]),
                lambda: v.frames_at(["x"]), lambda: v.frame_at(-1), lambda: v.number_at("x"),
                lambda: v.frames_between("a", "b"), lambda: v.time(999), lambda: v.duration("x"),
                lambda: v.ticks, lambda: v.time_base, lambda: v.key_frames, lambda: v.index,
                lambda: v.metadata, lambda: v.__enter__(), lambda: pickle.dumps(v)):
        with pytest.raises(ValueError, match="closed"):
            ask()


# Threads

def test_threads_take_turns(clip, pictures):
    v = tv.VideoReader(clip)
    with within(60), ThreadPoolExecutor(6) as pool:
        order = np.random.default_rng(5).integers(0, COUNT, 300).tolist()
        for number, picture in zip(order, pool.map(v.__getitem__, order)):
            np.testing.assert_array_equal(picture, pictures[number])


def test_the_lock_of_python_is_free_meanwhile(clip):
    """A thread of Python runs while another is in the library: the library waits for it."""
    turn = threading.Event()

    class Waiting(io.BytesIO):
        def read(self, count=-1):
            assert turn.wait(30)
            return super().read(count)

    file = Waiting(open(clip, "rb").read())
    with within(60):
        thread = threading.Thread(target=lambda: tv.VideoReader(file))
        thread.start()
        turn.set()
        thread.join()


def test_close_waits_for_a_call(clip):
    v = tv.VideoReader(clip)
    with within(60), ThreadPoolExecutor(2) as pool:
        reading = pool.submit(lambda: v[:])
        v.close()
        try:
            assert len(reading.result()) == COUNT
        except ValueError as error:
            assert "closed" in str(error)


# Signals

LONG = """
import signal, sys, threading, time
import tarn_videoio as tv
{prepare}
threading.Timer(1, lambda: signal.pthread_kill(threading.main_thread().ident, signal.SIGINT)).start()
begun = time.monotonic()
try:
    {work}
    print("came to its end")
except KeyboardInterrupt:
    print("stopped", time.monotonic() - begun < 20)
{after}
"""


@pytest.fixture(scope="module")
def long_clip(tmp_path_factory):
    path = tmp_path_factory.mktemp("long") / "long.mp4"
    subprocess.run(["ffmpeg", "-v", "error", "-f", "lavfi", "-i", "testsrc2=s=1280x720:r=50", "-t",
                    "40", "-c:v", "libx264", "-preset", "ultrafast", "-g", "2000", str(path)],
                   check=True)
    return str(path)


@pytest.mark.parametrize("prepare, work", [
    ("", "tv.FrameIndex.build({clip!r}, checksums=True, threads=1)"),
    ("v = tv.VideoReader({clip!r})", "v[1999]"),
    ("v = tv.VideoReader({clip!r}, size=(36, 64))", "v[:]")])
def test_ctrl_c_ends_a_long_call(long_clip, prepare, work):
    after = "" if not prepare else "print(v[3].shape[2])"  # the reader works on
    program = LONG.format(prepare=prepare.format(clip=long_clip), work=work.format(clip=long_clip),
                          after=after)
    told = subprocess.run([sys.executable, "-c", program], stdout=subprocess.PIPE, timeout=120,
                          check=True).stdout.decode().split("\n")
    assert told[0] == "stopped True"
    assert not prepare or told[1] == "3"


# References

def test_no_references_are_left(clip, monkeypatch):
    # pytest keeps every line that is logged.
    monkeypatch.setattr(logging.getLogger("tarn_videoio"), "disabled", True)
    content = open(clip, "rb").read()
    numbers, times = [3, 1], ["0.5"]
    out = np.empty((2, 48, 64, 3), np.uint8)
    progress = lambda *_: True  # noqa: E731
    held = (content, numbers, times, out, progress, clip)

    def use():
        v = tv.VideoReader(content, progress=progress)
        v.frames(numbers, out=out)
        v.frames_at(times)
        v[1:3], v.frame(2), v.index.to_bytes(), v.metadata
        for ask in (lambda: v[99], lambda: v["x"], lambda: v.number_at(99),
                    lambda: tv.VideoReader(content[:99]), lambda: v.frames([1], out=out)):
            with pytest.raises(Exception):
                ask()
        list(v)
        pickle.loads(pickle.dumps(v))[0]
        v.close()

    use()
    gc.collect()
    before = [sys.getrefcount(one) for one in held]
    objects = len(gc.get_objects())
    for _ in range(30):
        use()
    gc.collect()
    assert [sys.getrefcount(one) for one in held] == before
    assert len(gc.get_objects()) - objects < 20


def test_file_objects_are_let_go(clip):
    class File(io.BytesIO):
        pass

    file = File(open(clip, "rb").read())
    v = tv.VideoReader(file)
    v[3]
    gone = weakref.ref(file)
    del file
    assert gone() is not None
    del v
    gc.collect()
    assert gone() is None


def test_arrays_outlive_their_reader(clip, pictures):
    v = tv.VideoReader(clip)
    picture, batch = v[3], v.frames([4, 5]).data
    v.close()
    del v
    gc.collect()
    np.testing.assert_array_equal(picture, pictures[3])
    np.testing.assert_array_equal(batch, pictures[[4, 5]])


# Log lines

def damaged(clip):
    content = bytearray(open(clip, "rb").read())
    for place in range(3000, len(content) - 3000, 1500):
        content[place] ^= 0x55
    return bytes(content)


def test_log_lines_come_by_logging_and_nothing_is_printed(clip, caplog, capfd):
    with caplog.at_level(logging.DEBUG, "tarn_videoio"):
        try:
            tv.VideoReader(damaged(clip))[:]
        except tv.Error:
            pass
        with pytest.raises(tv.Error):
            tv.VideoReader(b"junk" * 100)
    assert {record.name for record in caplog.records} == {"tarn_videoio"}
    assert any(record.levelno == logging.ERROR for record in caplog.records)
    assert {record.threadName for record in caplog.records} == {"MainThread"}
    assert capfd.readouterr() == ("", "")


def test_without_logging_nothing_is_printed(clip, tmp_path):
    path = tmp_path / "damaged.mp4"
    path.write_bytes(damaged(clip))
    program = f"""
import tarn_videoio as tv
for source in (b"junk" * 100, {str(path)!r}):
    try:
        tv.VideoReader(source, threads=2)[:]
    except tv.Error:
        pass
"""
    done = subprocess.run([sys.executable, "-c", program], stdout=subprocess.PIPE,
                          stderr=subprocess.PIPE, check=True)
    assert (done.stdout, done.stderr) == (b"", b"")


def test_the_interpreter_ends_with_readers_open(clip):
    program = f"""
import io, threading
import tarn_videoio as tv
a = tv.VideoReader({clip!r}, threads=4)
b = tv.VideoReader(io.BytesIO(open({clip!r}, "rb").read()), threads=4)
a[30], b[30]
c = tv.VideoReader({clip!r}); c.me = c
"""
    done = subprocess.run([sys.executable, "-c", program], stdout=subprocess.PIPE,
                          stderr=subprocess.PIPE, timeout=60)
    assert (done.returncode, done.stdout, done.stderr) == (0, b"", b"")


# Waiting

def test_a_source_that_does_not_answer():
    import socket
    with socket.socket() as server:
        server.bind(("127.0.0.1", 0))
        server.listen()
        url = f"http://127.0.0.1:{server.getsockname()[1]}/clip.mp4"
        with within(60), pytest.raises(tv.Timeout) as raised:
            tv.VideoReader(url, open_timeout=0.3)
        assert isinstance(raised.value, TimeoutError) and url in str(raised.value)
        assert raised.value.code < 0


def test_a_url_that_is_not_there():
    import socket
    with socket.socket() as server:
        server.bind(("127.0.0.1", 0))
        port = server.getsockname()[1]
    with pytest.raises(tv.Error, match=str(port)) as raised:
        tv.VideoReader(f"http://127.0.0.1:{port}/clip.mp4")
    assert raised.value.code < 0
