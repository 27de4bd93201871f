"""Where bytes come from, and what is said of those that do not."""

import io
import os
import pathlib
import tempfile
import zipfile

import numpy as np
import pytest
from conftest import COUNT

import tarn_videoio as tv


@pytest.fixture(scope="module")
def content(clip):
    return pathlib.Path(clip).read_bytes()


class Bare:
    """A file object with nothing but the two methods."""

    def __init__(self, content):
        self.file = io.BytesIO(content)

    def read(self, count):
        return self.file.read(count)

    def seek(self, *place):
        return self.file.seek(*place)


def test_every_kind_of_source(clip, content, pictures, tmp_path):
    archive = tmp_path / "clips.zip"
    with zipfile.ZipFile(archive, "w") as packed:
        packed.write(clip, "clip.mp4")
    with open(clip, "rb") as file, open(clip, "rb", buffering=0) as bare, \
            tempfile.TemporaryFile() as temporary, zipfile.ZipFile(archive).open("clip.mp4") as zipped:
        temporary.write(content)
        for source in (clip, pathlib.Path(clip), f"file:{clip}", content, bytearray(content),
                       memoryview(content), memoryview(content * 2)[:len(content)], file, bare,
                       temporary, zipped, io.BytesIO(content), Bare(content)):
            v = tv.VideoReader(source)
            assert len(v) == COUNT
            for number in (25, 3, 39):
                np.testing.assert_array_equal(v[number], pictures[number])


def test_memory_may_change_afterwards(content, pictures):
    block = bytearray(content)
    v = tv.VideoReader(block)
    block[:] = bytes(len(block))
    np.testing.assert_array_equal(v[30], pictures[30])


def test_two_readers_share_a_file_object(clip, other_clip, content, pictures):
    for file in (io.BytesIO(content), open(clip, "rb")):
        one, two = tv.VideoReader(file), tv.VideoReader(file)
        for number in range(0, COUNT, 7):
            np.testing.assert_array_equal(one[number], pictures[number])
            np.testing.assert_array_equal(two[-number - 1], pictures[-number - 1])
        file.close()


@pytest.mark.parametrize("source", [None, 5, 1.5, [], {}, object(), io.BytesIO, np.zeros(5)])
def test_what_is_no_source(source):
    for ask in (tv.VideoReader, tv.FrameIndex.build, tv.probe):
        with pytest.raises(TypeError):
            ask(source)


def test_a_text_file_is_no_source(clip):
    with open(clip, encoding="latin-1") as file, pytest.raises(TypeError, match="rb"):
        tv.VideoReader(file)
    with pytest.raises(TypeError):
        tv.VideoReader(io.StringIO("x"))


def test_what_open_would_raise(tmp_path):
    missing = tmp_path / "missing.mp4"
    for ask in (tv.VideoReader, tv.FrameIndex.build, tv.probe):
        with pytest.raises(FileNotFoundError) as raised:
            ask(missing)
        assert raised.value.filename == str(missing) and raised.value.errno == 2
        with pytest.raises(IsADirectoryError):
            ask(tmp_path)
        with pytest.raises(NotADirectoryError):
            ask(__file__ + "/clip.mp4")
        with pytest.raises(FileNotFoundError):
            ask("")
        with pytest.raises(OSError):
            ask("x" * 5000)


@pytest.mark.skipif(os.geteuid() == 0, reason="root may read everything")
def test_a_forbidden_file(tmp_path):
    path = tmp_path / "forbidden.mp4"
    path.write_bytes(b"x")
    path.chmod(0)
    with pytest.raises(PermissionError):
        tv.VideoReader(path)


@pytest.mark.parametrize("path", ["a\0b", "a\ud800b", "\0"])
def test_impossible_paths(path):
    with pytest.raises(ValueError):
        tv.VideoReader(path)


def test_names_that_ffmpeg_would_take_for_something_else(tmp_path, content, pictures, monkeypatch):
    monkeypatch.chdir(tmp_path)
    for name in ("12:30.mp4", "file:1.mp4", "http:x.mp4", "a b%03d.mp4", "ü\udcff.mp4", "-i.mp4",
                 "concat:a|b.mp4"):
        pathlib.Path(name).write_bytes(content)
        for source in (name, pathlib.Path(name)):
            np.testing.assert_array_equal(tv.VideoReader(source)[3], pictures[3])
    with pytest.raises(FileNotFoundError):
        tv.VideoReader("13:30.mp4")


@pytest.mark.parametrize("junk", [b"", b"x", bytes(10**5), b"\0\0\0\x18ftypmp42" + bytes(50)])
def test_junk_is_an_error_that_names_the_source(tmp_path, junk):
    path = tmp_path / "junk.mp4"
    path.write_bytes(junk)
    for source, name in ((path, "junk.mp4"), (junk, "memory"), (io.BytesIO(junk), "BytesIO")):
        for ask in (tv.VideoReader, tv.FrameIndex.build, tv.probe):
            with pytest.raises(tv.Error, match=name) as raised:
                ask(source)
            assert isinstance(raised.value.code, int) and raised.value.code <= 0


def test_truncated_clips_end_in_errors_or_pictures(content, pictures):
    for length in range(0, len(content), len(content) // 23):
        try:
            v = tv.VideoReader(content[:length])
            for number in range(len(v)):
                assert v[number].shape == pictures[0].shape
        except tv.Error:
            pass


def test_sound_alone_is_no_video(tmp_path):
    from conftest import ffmpeg
    path = tmp_path / "sound.wav"
    ffmpeg("-f", "lavfi", "-i", "sine=d=1", path)
    with pytest.raises(tv.Error, match="sound.wav") as raised:
        tv.VideoReader(path)
    assert raised.value.code < 0


class Raising(Bare):
    """Works until it is told to fail."""

    def __init__(self, content, error):
        super().__init__(content)
        self.error = error
        self.fails = False

    def read(self, count):
        if self.fails:
            raise self.error
        return super().read(count)


@pytest.mark.parametrize("error", [ValueError("mine"), OSError(5, "mine"), KeyboardInterrupt("mine"),
                                   StopIteration("mine"), MemoryError("mine"), SystemExit("mine")])
def test_what_a_file_object_raises_comes_through(large_clip, noise, error):
    file = Raising(pathlib.Path(large_clip).read_bytes(), error)
    file.fails = True
    with pytest.raises(type(error), match="mine"):
        tv.VideoReader(file)
    file.fails = False
    v = tv.VideoReader(file)
    np.testing.assert_array_equal(v[1], noise[1])
    file.fails = True
    with pytest.raises(type(error), match="mine"):
        v[35]
    file.fails = False
    np.testing.assert_array_equal(v[35], noise[35])
    np.testing.assert_array_equal(v[2], noise[2])


@pytest.mark.parametrize("lie", [None, "text", 5, [1], b"x" * 10**6, object()])
def test_a_file_object_whose_read_lies(content, lie):
    class Liar(Bare):
        def read(self, count):
            return lie

    with pytest.raises((TypeError, OSError, tv.Error)):
        tv.VideoReader(Liar(content))


@pytest.mark.parametrize("lie", ["text", -1, 2**70, 1.5, True, 10**12, 3])
def test_a_file_object_whose_seek_lies(content, lie):
    class Liar(Bare):
        def seek(self, *place):
            super().seek(*place)
            return lie

    with pytest.raises((TypeError, OSError, tv.Error)):
        tv.VideoReader(Liar(content))


def test_a_file_object_that_gives_less_than_asked(content, pictures):
    class Slow(Bare):
        def read(self, count):
            return super().read(min(count, 777))

    np.testing.assert_array_equal(tv.VideoReader(Slow(content))[38], pictures[38])


def test_a_closed_file_object(large_clip):
    file = open(large_clip, "rb")
    v = tv.VideoReader(file)
    file.close()
    with pytest.raises(ValueError, match="closed"):
        v[30]
    with pytest.raises(ValueError, match="closed"):
        tv.VideoReader(file)


def test_a_file_object_that_uses_its_reader(large_clip):
    class Nested(Bare):
        reader = None

        def read(self, count):
            if self.reader is not None:
                self.reader[3]
            return super().read(count)

    file = Nested(pathlib.Path(large_clip).read_bytes())
    v = tv.VideoReader(file)
    file.reader = v
    with pytest.raises(RuntimeError, match="callback"):
        v[30]


def test_a_relative_path_is_found_from_another_folder_after_pickling(clip, pictures, monkeypatch):
    import pickle
    monkeypatch.chdir(os.path.dirname(clip))
    v = tv.VideoReader(os.path.basename(clip))
    packed = pickle.dumps(v)
    monkeypatch.chdir("/")
    np.testing.assert_array_equal(pickle.loads(packed)[3], pictures[3])


def test_a_clip_that_goes_while_it_is_read(clip, tmp_path, content):
    path = tmp_path / "going.mp4"
    path.write_bytes(content)
    v = tv.VideoReader(path)
    path.write_bytes(content[:1000])
    with pytest.raises(tv.Error, match="going.mp4"):
        for number in (39, 0, 20):
            v[number]
