"""Images, probing, remuxing, clips for training, versions."""

import io
import os
import pathlib
import re
import subprocess
from fractions import Fraction

import numpy as np
import pytest
from conftest import COUNT, HEIGHT, WIDTH, ffmpeg, ffprobe, make_pictures, raw

import tarn_videoio as tv


@pytest.fixture(scope="module")
def picture():
    return make_pictures(1, 37, 53)[0]


def seen_by_ffmpeg(path, height, width):
    return np.frombuffer(ffmpeg("-i", path, "-f", "rawvideo", "-pix_fmt", "rgb24", "-"),
                         np.uint8).reshape(height, width, 3)


# Images

@pytest.mark.parametrize("name", ["x.png", "x.PNG", "x.ppm", "x.Ppm", "12:30.png", "ü%03d.png"])
def test_images_come_back(tmp_path, picture, name, monkeypatch):
    monkeypatch.chdir(tmp_path)
    tv.write_image(name, picture)
    content = pathlib.Path(name).read_bytes()
    for source in (name, pathlib.Path(name), content, bytearray(content), io.BytesIO(content)):
        found = tv.read_image(source)
        assert found.dtype == np.uint8 and found.flags.owndata and found.flags.writeable
        np.testing.assert_array_equal(found, picture)
    assert os.listdir() == [name]


def test_written_images_are_read_by_ffmpeg(tmp_path, picture):
    for extension in ("png", "ppm"):
        path = tmp_path / f"x.{extension}"
        tv.write_image(path, picture[::-1])
        np.testing.assert_array_equal(seen_by_ffmpeg(path, 37, 53), picture[::-1])


def test_images_of_ffmpeg_are_read(tmp_path, picture):
    for extension in ("png", "ppm"):
        path = tmp_path / f"x.{extension}"
        ffmpeg("-f", "rawvideo", "-pix_fmt", "rgb24", "-s", "53x37", "-i", "-", path,
               stdin=picture.tobytes())
        np.testing.assert_array_equal(tv.read_image(path), picture)


@pytest.mark.parametrize("extension", ["jpg", "JPEG"])
def test_quality_of_jpeg(tmp_path, extension):
    rough = np.random.default_rng(6).normal(0, 12, (48, 64, 1))
    photo = np.clip(np.linspace(40, 200, 64)[:, None] + rough, 0, 255).astype(np.uint8)
    photo = np.ascontiguousarray(np.broadcast_to(photo, (48, 64, 3)))
    sizes = []
    for quality in (1, 50, 100):
        path = tmp_path / f"{quality}.{extension}"
        tv.write_image(path, photo, quality=quality)
        sizes.append(path.stat().st_size)
    assert sizes == sorted(sizes) and 2 * sizes[0] < sizes[2]
    assert np.abs(tv.read_image(path).astype(int) - photo).mean() < 3


def test_compression_of_png(tmp_path, picture):
    sizes = []
    for compression in (0, 9):
        path = tmp_path / f"{compression}.png"
        tv.write_image(path, picture, compression=compression)
        np.testing.assert_array_equal(seen_by_ffmpeg(path, 37, 53), picture)
        sizes.append(path.stat().st_size)
    assert sizes[0] > sizes[1]


def with_orientation(jpeg, orientation):
    """The bytes of a JPEG with an EXIF block of one entry."""
    tiff = b"II*\0\x08\0\0\0\x01\0\x12\x01\x03\0\x01\0\0\0" + bytes([orientation]) + bytes(7)
    block = b"Exif\0\0" + tiff
    return jpeg[:2] + b"\xff\xe1" + (len(block) + 2).to_bytes(2, "big") + block + jpeg[2:]


def test_photos_stand_upright(tmp_path):
    photo = np.zeros((32, 48, 3), np.uint8)
    photo[:16, :24] = 255
    path = tmp_path / "x.jpg"
    tv.write_image(path, photo)
    stored = tv.read_image(path).astype(int)
    for orientation, expected in ((1, stored), (2, stored[:, ::-1]), (3, stored[::-1, ::-1]),
                                  (6, np.rot90(stored, -1)), (8, np.rot90(stored))):
        content = with_orientation(path.read_bytes(), orientation)
        np.testing.assert_array_equal(tv.read_image(content), expected)
        np.testing.assert_array_equal(tv.read_image(content, upright=False), stored)


@pytest.mark.parametrize("options, error", [
    ({"quality": 0}, ValueError), ({"quality": 101}, ValueError), ({"quality": 50.0}, TypeError),
    ({"quality": True}, TypeError), ({"compression": -1}, ValueError),
    ({"compression": 10}, ValueError), ({"compression": "9"}, TypeError)])
def test_wrong_options_of_images(tmp_path, picture, options, error):
    for name in ("x.png", "x.jpg", "x.ppm"):
        with pytest.raises(error):
            tv.write_image(tmp_path / name, picture, **options)
    assert os.listdir(tmp_path) == []


@pytest.mark.parametrize("wrong, error", [
    (np.zeros((5, 5, 3)), TypeError), (np.zeros((5, 5), np.uint8), ValueError),
    (np.zeros((5, 5, 4), np.uint8), ValueError), (np.zeros((1, 5, 5, 3), np.uint8), ValueError),
    (np.zeros((0, 5, 3), np.uint8), ValueError), (np.zeros((5, 0, 3), np.uint8), ValueError),
    ([[[1, 2, 3]]], TypeError), (None, TypeError), (np.zeros((5, 5, 3), bool), TypeError)])
def test_what_is_no_picture(tmp_path, wrong, error):
    path = tmp_path / "x.png"
    path.write_bytes(b"was there")
    with pytest.raises(error):
        tv.write_image(path, wrong)
    assert path.read_bytes() == b"was there"


def test_images_that_cannot_be(tmp_path, picture):
    (tmp_path / "folder.png").mkdir()
    (tmp_path / "x.gif").write_bytes(b"GIF89a")
    (tmp_path / "junk.png").write_bytes(b"junk")
    with pytest.raises(ValueError):
        tv.read_image(tmp_path / "x.gif")
    with pytest.raises(ValueError):
        tv.write_image(tmp_path / "x.webp", picture)
    for name in ("missing.png", "missing"):
        with pytest.raises(FileNotFoundError):
            tv.read_image(tmp_path / name)
    with pytest.raises(IsADirectoryError):
        tv.read_image(tmp_path / "folder.png")
    with pytest.raises(IsADirectoryError):
        tv.write_image(tmp_path / "folder.png", picture)
    with pytest.raises(FileNotFoundError):
        tv.write_image(tmp_path / "no" / "x.png", picture)
    with pytest.raises(tv.Error, match="junk.png"):
        tv.read_image(tmp_path / "junk.png")
    for junk in (b"", b"junk", io.BytesIO(b"junk")):
        with pytest.raises(tv.Error):
            tv.read_image(junk)
    with pytest.raises(TypeError):
        tv.read_image(5)
    with pytest.raises(TypeError):
        tv.read_image(b"", upright=1)


# Probe

def test_probe_tells_what_ffprobe_does(tmp_path, yuv_clip):
    path = tmp_path / "both.mp4"
    ffmpeg("-i", yuv_clip, "-f", "lavfi", "-i", "sine=d=1:r=44100", "-c:v", "copy", "-ac", 2, path)
    for source in (path, path.read_bytes(), io.BytesIO(path.read_bytes())):
        found = tv.probe(source)
        assert "mp4" in found.container and found.duration == Fraction(COUNT, 25)
        video, sound = found.streams
        assert (video.codec, video.width, video.height, video.type) == ("h264", WIDTH, HEIGHT,
                                                                       "video")
        assert (sound.codec, sound.rate, sound.channels, sound.layout, sound.sample_format) == (
            "aac", 44100, 2, "stereo", "fltp")
        assert sound.bit_rate > 0 and sound.container == found.container
        assert sound.tags["language"] == "und" and (video.index, sound.index) == (0, 1)
        told = found.to_dict()
        assert told["container"] == found.container and told["duration"] == found.duration
        assert told["streams"][0]["width"] == WIDTH and told["streams"][1]["rate"] == 44100
        assert told["streams"][0]["colour_primaries"] is None


def test_probe_has_what_metadata_has(yuv_clip):
    told, m = tv.probe(yuv_clip).streams[0], tv.VideoReader(yuv_clip).metadata
    for name in ("width height coded_width coded_height codec pixel_format bits frame_count "
                 "duration average_rate rotation mirrored colour_space colour_range "
                 "colour_primaries colour_transfer sample_aspect_ratio container bit_rate "
                 "tags").split():
        assert getattr(told, name) == getattr(m, name)


# Remux

def test_remux_copies_pictures_and_times(tmp_path, clip, pictures):
    path = tmp_path / "copy.mkv"
    for source in (clip, pathlib.Path(clip).read_bytes(), open(clip, "rb")):
        tv.remux(source, path)
        np.testing.assert_array_equal(raw(path, "rgb24", HEIGHT, WIDTH, 3), pictures)
        assert sorted(Fraction(t) for t in ffprobe(path, "packet=pts_time")) == [
            Fraction(n, 25) for n in range(COUNT)]
    with pytest.raises(FileExistsError):
        tv.remux(clip, path, overwrite=False)
    assert os.listdir(tmp_path) == ["copy.mkv"]


def test_remux_refuses(tmp_path, clip):
    with pytest.raises(FileNotFoundError):
        tv.remux(tmp_path / "missing.mp4", tmp_path / "copy.mp4")
    with pytest.raises(FileNotFoundError):
        tv.remux(clip, tmp_path / "no" / "copy.mp4")
    with pytest.raises(IsADirectoryError):
        (tmp_path / "folder.mp4").mkdir()
        tv.remux(clip, tmp_path / "folder.mp4")
    with pytest.raises(ValueError):
        tv.remux(clip, tmp_path / "copy.txt")
    with pytest.raises(ValueError):
        tv.remux(clip, clip)
    with pytest.raises(TypeError):
        tv.remux(5, tmp_path / "copy.mp4")
    with pytest.raises(TypeError):
        tv.remux(clip, 5)
    with pytest.raises(tv.Error):
        tv.remux(b"junk", tmp_path / "copy.mp4")
    assert os.listdir(tmp_path) == ["folder.mp4"]


# Clips for training

@pytest.fixture(scope="module")
def v(clip):
    return tv.VideoReader(clip)


@pytest.mark.parametrize("arguments, options, expected", [
    ((1, 3), {}, [[0, 1, 2]]), ((0, 3), {}, np.empty((0, 3))),
    ((3, 4), {}, [[0, 1, 2, 3], [18, 19, 20, 21], [36, 37, 38, 39]]),
    ((2, 3), {"step": 5}, [[0, 5, 10], [29, 34, 39]]),
    ((2, 2), {"start": 10, "stop": 20}, [[10, 11], [18, 19]]),
    ((2, 2), {"start": -4}, [[36, 37], [38, 39]]), ((1, 2), {"stop": -38}, [[0, 1]]),
    ((1, 5), {"start": 37}, [[37, 38, 39, 39, 39]]),
    ((1, 5), {"start": 37, "policy": "wrap"}, [[37, 38, 39, 37, 38]]),
    ((2, 4), {"start": 35, "step": 2}, [[35, 37, 39, 39]] * 2),
    ((1, 1), {"start": 39, "policy": "error"}, [[39]])])
def test_clips(v, pictures, arguments, options, expected):
    batch = tv.clips(v, *arguments, **options)
    expected = np.array(expected, np.int64)
    assert isinstance(batch, tv.FrameBatch) and batch.numbers.dtype == np.int64
    np.testing.assert_array_equal(batch.numbers, expected)
    assert batch.data.shape == expected.shape + (HEIGHT, WIDTH, 3)
    np.testing.assert_array_equal(batch.data, pictures[expected])
    assert batch.times == [Fraction(int(number), 25) for number in expected.ravel()]


def test_clips_at_random(v, pictures):
    batch = tv.clips(v, 50, 3, step=2, start=5, stop=20, rng=np.random.default_rng(1))
    begins = batch.numbers[:, 0]
    assert begins.min() == 5 and begins.max() == 15 and len(set(begins)) > 5
    np.testing.assert_array_equal(batch.numbers, begins[:, None] + [0, 2, 4])
    np.testing.assert_array_equal(batch.data, pictures[batch.numbers])
    again = tv.clips(v, 50, 3, step=2, start=5, stop=20, rng=np.random.default_rng(1))
    np.testing.assert_array_equal(again.numbers, batch.numbers)


@pytest.mark.parametrize("arguments, options, error", [
    ((-1, 2), {}, ValueError), ((2, 0), {}, ValueError), ((2, 2), {"step": 0}, ValueError),
    ((2, 2), {"step": -1}, ValueError), ((2.0, 2), {}, TypeError), ((True, 2), {}, TypeError),
    ((2, 2), {"policy": "stop"}, ValueError), ((2, 2), {"policy": None}, TypeError),
    ((2, 41), {"policy": "error"}, ValueError), ((2, 2), {"rng": 5}, TypeError),
    ((2, 2), {"start": 20, "stop": 20}, ValueError), ((2, 2), {"start": 99}, ValueError),
    ((2, 2), {"start": "0"}, TypeError), ((10**9, 10**9), {}, (MemoryError, ValueError))])
def test_clips_refuse(v, arguments, options, error):
    with pytest.raises(error):
        tv.clips(v, *arguments, **options)


def test_clips_of_what_is_no_reader(clip):
    with pytest.raises(TypeError):
        tv.clips(clip, 1, 1)
    closed = tv.VideoReader(clip)
    closed.close()
    with pytest.raises(ValueError, match="closed"):
        tv.clips(closed, "x", None)


# Versions

def test_versions():
    found = tv.versions()
    assert isinstance(found, dict) and found["tarn_videoio"] == tv.__version__
    assert re.fullmatch(r"\d+\.\d+\.\d+", tv.__version__)
    told = subprocess.run(["ffmpeg", "-version"], stdout=subprocess.PIPE, check=True).stdout.decode()
    loaded = re.search(r"^libavformat .*/ *(\d+)\. *(\d+)\. *(\d+) *$", told, re.MULTILINE)
    assert found["libavformat"] == ".".join(loaded.groups())
    assert told.split()[2] == found["ffmpeg"]
