"""Pictures by number and time: what comes, in which shape, and what is refused."""

import math
from fractions import Fraction

import numpy as np
import pytest
from conftest import COUNT, HEIGHT, WIDTH, encode, ffmpeg, ffprobe, make_pictures, raw
from hypothesis import given, settings
from hypothesis import strategies as st

import tarn_videoio as tv


@pytest.fixture(scope="module")
def v(clip):
    with tv.VideoReader(clip) as reader:
        yield reader


def test_gives_every_picture_in_order_backward_and_mixed(v, pictures):
    assert len(v) == COUNT
    order = np.random.default_rng(3).permutation(COUNT)
    for numbers in (range(COUNT), range(COUNT - 1, -1, -1), order):
        for number in numbers:
            np.testing.assert_array_equal(v[number], pictures[number])


def test_iterates_in_order(v, pictures):
    np.testing.assert_array_equal(np.stack(list(v)), pictures)


@pytest.mark.parametrize("key", [
    slice(None), slice(3, 30, 4), slice(30, 3, -4), slice(-5, None), slice(5, 5), slice(10**30),
    slice(None, None, -1), [5, 3, 3], [-1, 0], np.array([7, 8, 39]), np.array([2], np.uint8), [],
    np.array([[1, 2], [30, 4]]), np.arange(COUNT) % 3 == 0, range(3, 9)])
def test_takes_what_numpy_takes(v, pictures, key):
    expected = pictures[np.array(key, np.int64) if isinstance(key, range) else
                        key if len(np.shape(key)) == 0 or np.size(key) else np.array([], int)]
    found = v[key]
    assert found.dtype == np.uint8
    np.testing.assert_array_equal(found, expected)


@pytest.mark.parametrize("number", [0, -1, np.int64(4), np.uint8(7), np.array(9), True and 5])
def test_takes_any_whole_number(v, pictures, number):
    np.testing.assert_array_equal(v[number], pictures[number])


@pytest.mark.parametrize("number", [COUNT, -COUNT - 1, 10**30, -10**30, np.uint64(2**64 - 1)])
def test_refuses_numbers_outside(v, number, capfd):
    for ask in (lambda: v[number], lambda: v[[number]], lambda: v.frame(number),
                lambda: v.frames([0, number]), lambda: v.time(number), lambda: v.duration(number)):
        with pytest.raises(IndexError):
            ask()
    assert capfd.readouterr() == ("", "")


def test_an_integer_outside_reads_nothing(clip):
    class Counting:
        def __init__(self):
            self.file = open(clip, "rb")
            self.reads = 0

        def read(self, count):
            self.reads += 1
            return self.file.read(count)

        def seek(self, *place):
            return self.file.seek(*place)

    source = Counting()
    reader = tv.VideoReader(source)
    reads = source.reads
    with pytest.raises(IndexError):
        reader[COUNT]
    assert source.reads == reads
    reader.close()
    source.file.close()


@pytest.mark.parametrize("key", [1.0, "1", None, Ellipsis, True, np.bool_(True), (1, 2), {1: 2},
                                 object(), [1.5], np.array([1.0]), ["1"], [None], [True, 2],
                                 b"12", np.array(["a"]), {1, 2}, np.array(True),
                                 np.array(None)])
def test_refuses_what_is_no_number(v, key):
    with pytest.raises(TypeError):
        v[key]


@pytest.mark.parametrize("numbers", [True, np.bool_(True), np.array(True), [np.bool_(True), 2]])
def test_a_truth_value_is_no_number_among_several(v, numbers):
    with pytest.raises(TypeError):
        v.frames(numbers)


def test_a_mask_has_to_be_as_long_as_the_clip(v):
    with pytest.raises(IndexError):
        v[np.array([True, False])]


@given(st.data())
@settings(max_examples=30, deadline=None)
def test_slices_are_those_of_numpy(v, pictures, data):
    part = data.draw(st.slices(COUNT))
    np.testing.assert_array_equal(v[part], pictures[part])


@given(st.lists(st.integers(-COUNT, COUNT - 1), max_size=12))
@settings(max_examples=30, deadline=None)
def test_lists_are_those_of_numpy(v, pictures, numbers):
    batch = v.frames(numbers)
    np.testing.assert_array_equal(batch.data, pictures[np.array(numbers, np.int64)])
    assert batch.numbers.tolist() == [number % COUNT for number in numbers]


def test_arrays_are_the_callers_own(v, pictures):
    first, second, batch = v[4], v[4], v[[4, 4]]
    for array in (first, second, batch):
        assert array.flags.c_contiguous and array.flags.writeable and array.flags.owndata
    first[:] = 0
    batch[0] = 1
    np.testing.assert_array_equal(second, pictures[4])
    np.testing.assert_array_equal(batch[1], pictures[4])
    np.testing.assert_array_equal(v[4], pictures[4])


def test_frame_tells_all(v, pictures):
    frame = v.frame(13)
    np.testing.assert_array_equal(frame.data, pictures[13])
    assert (frame.number, frame.time, frame.duration) == (13, Fraction(13, 25), Fraction(1, 25))
    assert frame.key is False and v.frame(20).key is True and v.frame(-1).number == COUNT - 1
    assert frame.reached in ("exact", "retry", "linear")
    assert "13" in repr(frame) and "array" not in repr(frame)


def test_proven_is_said_of_compared_checksums_alone(clip, v):
    proven = tv.VideoReader(clip, checksums=True)
    assert {proven.frame(number).reached for number in (30, 2, 17)} == {"proven"}
    assert proven.index.has_checksums and not v.index.has_checksums
    assert "proven" not in {v.frame(number).reached for number in (30, 2, 17)}


def test_frames_in_the_order_asked_for(v, pictures):
    numbers = [30, 2, 30, 17]
    batch = v.frames(numbers)
    np.testing.assert_array_equal(batch.data, pictures[numbers])
    assert batch.numbers.dtype == np.int64 and batch.numbers.tolist() == numbers
    assert batch.times == [Fraction(number, 25) for number in numbers]
    assert batch.durations == [Fraction(1, 25)] * 4
    assert isinstance(batch.times, list) and len(batch) == 4


def test_frames_keep_the_shape_of_the_question(v, pictures):
    numbers = np.array([[1, 2, 3], [20, 21, -1]])
    batch = v.frames(numbers)
    assert batch.data.shape == (2, 3, HEIGHT, WIDTH, 3)
    np.testing.assert_array_equal(batch.data, pictures[numbers])
    assert batch.numbers.tolist() == [[1, 2, 3], [20, 21, COUNT - 1]] and len(batch.times) == 6


def test_no_frames_are_an_empty_array(v):
    batch = v.frames([])
    assert batch.data.shape == (0, HEIGHT, WIDTH, 3) and batch.times == []


def test_out_is_filled_and_returned(v, pictures):
    out = np.zeros((5, HEIGHT, WIDTH, 3), np.uint8)
    batch = v.frames([3, 1, 39], out=out[1:4])
    assert np.shares_memory(batch.data, out)
    np.testing.assert_array_equal(out[1:4], pictures[[3, 1, 39]])
    assert not out[0].any() and not out[4].any()
    whole = np.empty((1, HEIGHT, WIDTH, 3), np.uint8)
    assert v.frames([3], out=whole).data is whole


def test_out_may_be_shared_memory(v, pictures):
    from multiprocessing import shared_memory
    block = shared_memory.SharedMemory(create=True, size=2 * HEIGHT * WIDTH * 3)
    out = np.ndarray((2, HEIGHT, WIDTH, 3), np.uint8, buffer=block.buf)
    v.frames([9, 8], out=out)
    equal = np.array_equal(out, pictures[[9, 8]])
    del out
    block.close()
    block.unlink()
    assert equal


def shaped(*shape, dtype=np.uint8):
    return np.zeros(shape, dtype)


@pytest.mark.parametrize("out, error", [
    (shaped(2, HEIGHT, WIDTH, 3, dtype=np.int8), TypeError),
    (shaped(2, HEIGHT, WIDTH, 3, dtype=np.float32), TypeError),
    (shaped(2, HEIGHT, WIDTH, 3, dtype=">u2"), TypeError),
    (shaped(2, HEIGHT, WIDTH, 3, dtype=object), TypeError),
    ([[1]], TypeError), (b"", TypeError), (7, TypeError),
    (shaped(3, HEIGHT, WIDTH, 3), ValueError), (shaped(2, WIDTH, HEIGHT, 3), ValueError),
    (shaped(2, HEIGHT, WIDTH), ValueError), (shaped(2, HEIGHT, WIDTH, 4), ValueError),
    (shaped(0), ValueError), (shaped(2, HEIGHT, WIDTH, 3)[::-1], ValueError),
    (shaped(2, HEIGHT, WIDTH, 6)[..., ::2], ValueError),
    (shaped(2, HEIGHT, 2 * WIDTH, 3)[:, :, :WIDTH], ValueError),
    (np.broadcast_to(np.uint8(0), (2, HEIGHT, WIDTH, 3)), ValueError)])
def test_refuses_an_out_that_does_not_fit(v, out, error):
    with pytest.raises(error):
        v.frames([1, 2], out=out)


def test_refuses_a_readonly_out(v):
    out = np.zeros((1, HEIGHT, WIDTH, 3), np.uint8)
    out.flags.writeable = False
    with pytest.raises(ValueError, match="read-only"):
        v.frames([1], out=out)
    assert not out.any()


def test_refuses_an_unaligned_out(clip):
    block = np.zeros(HEIGHT * WIDTH * 6 + 1, np.uint8)
    out = block[1:].view(np.uint16).reshape(1, HEIGHT, WIDTH, 3)
    with pytest.raises(ValueError, match="aligned"):
        tv.VideoReader(clip, format="rgb48").frames([0], out=out)


# Formats

def test_grey_and_wide_formats_follow_the_pictures(yuv_clip):
    luma = raw(yuv_clip, "gray", HEIGHT, WIDTH)  # FFmpeg widens the limited range
    grey = tv.VideoReader(yuv_clip, format="gray8")[:]
    assert grey.shape == (COUNT, HEIGHT, WIDTH) and grey.dtype == np.uint8
    assert np.abs(grey.astype(int) - luma).max() <= 1
    wide = tv.VideoReader(yuv_clip, format="gray16")[:]
    assert wide.shape == (COUNT, HEIGHT, WIDTH) and wide.dtype == np.uint16
    stored = raw(yuv_clip, "yuv420p", HEIGHT * 3 // 2, WIDTH)[:, :HEIGHT].astype(float)
    full = np.clip((stored - 16) / 219, 0, 1) * 65535
    assert np.abs(wide - full).max() <= 1
    colours = tv.VideoReader(yuv_clip, format="rgb48")[0]
    assert colours.shape == (HEIGHT, WIDTH, 3) and colours.dtype == np.uint16
    assert np.abs(colours / 257 - tv.VideoReader(yuv_clip)[0]).max() <= 2


def test_nv12_is_what_is_stored(yuv_clip):
    stored = raw(yuv_clip, "nv12", HEIGHT * 3 // 2, WIDTH)
    found = tv.VideoReader(yuv_clip, format="nv12")
    assert found[0].shape == (HEIGHT * 3 // 2, WIDTH)
    np.testing.assert_array_equal(found[:], stored)


def test_nv12_of_odd_sizes_is_rounded_up(tmp_path):
    path = tmp_path / "odd.mkv"
    encode(path, make_pictures(3, 27, 35), options=("-pix_fmt", "yuv420p", "-c:v", "ffv1"))
    found = tv.VideoReader(path, format="nv12")[2]
    assert found.shape == (27 + 14, 36)
    planes = np.frombuffer(ffmpeg("-i", path, "-f", "rawvideo", "-pix_fmt", "yuv420p", "-"),
                           np.uint8).reshape(3, -1)[2]
    np.testing.assert_array_equal(found[:27, :35], planes[:27 * 35].reshape(27, 35))
    np.testing.assert_array_equal(found[:27, 35], found[:27, 34])
    blue, red = planes[27 * 35:].reshape(2, 14, 18)
    np.testing.assert_array_equal(found[27:, ::2], blue)
    np.testing.assert_array_equal(found[27:, 1::2], red)
    batch = tv.VideoReader(path, format="nv12").frames([2, 0])
    np.testing.assert_array_equal(batch.data[0], found)


def test_size_is_what_is_delivered(clip, pictures):
    small = tv.VideoReader(clip, size=(HEIGHT // 8, WIDTH // 8))
    assert small[3].shape == (HEIGHT // 8, WIDTH // 8, 3)
    assert np.abs(small[3].astype(int) - pictures[3, ::8, ::8]).max() <= 1  # squares of 8
    assert (small.metadata.height, small.metadata.width) == (HEIGHT, WIDTH)


def test_colours_are_the_tagged_ones_or_bt601(tmp_path):
    path = tmp_path / "bt709.mp4"
    ffmpeg("-f", "lavfi", "-i", "color=c=0x20C040:s=64x48", "-frames:v", 2, "-vf",
           "scale=out_color_matrix=bt709:out_range=tv", "-colorspace", "bt709", "-pix_fmt",
           "yuv420p", "-c:v", "libx264", "-qp", 0, path)
    y, cb, cr = (int(plane.mean()) for plane in np.split(raw(path, "yuv444p", 144, 64)[0], 3))
    tagged = tv.VideoReader(path)
    assert tagged.metadata.colour_space == "bt709"
    bt709 = (1.164 * (y - 16) + 1.793 * (cr - 128), 1.164 * (y - 16) + 2.112 * (cb - 128))
    assert np.abs(tagged[0][..., [0, 2]] - bt709).max() <= 2
    bt601 = (1.164 * (y - 16) + 1.596 * (cr - 128), 1.164 * (y - 16) + 2.017 * (cb - 128))
    assert np.abs(tv.VideoReader(path, colours="bt601")[0][..., [0, 2]] - bt601).max() <= 2


# Times

def test_times_are_the_containers(uneven):
    v = tv.VideoReader(uneven)
    expected = [Fraction(1000 + n * n, 1000) for n in range(COUNT)]
    assert [v.time(n) for n in range(COUNT)] == expected
    assert [Fraction(t) for t in ffprobe(uneven, "packet=pts_time")] is not None
    assert sorted(Fraction(t) for t in ffprobe(uneven, "packet=pts_time")) == expected
    assert [int(t) * v.time_base for t in v.ticks] == expected and v.ticks.dtype == np.int64
    assert v.duration(3) == Fraction(7, 1000) and v.duration(-2) == Fraction(77, 1000)
    assert v.time(-1) == expected[-1]
    assert v.key_frames.dtype == np.int64 and v.key_frames.tolist() == [0, 10, 20, 30]


@pytest.mark.parametrize("t, number", [
    (1, 0), (1.0, 0), ("1", 0), (Fraction(1001, 1000), 1), ("1.0035", 1), ("2521/1000", COUNT - 1),
    (1.004, 2), (np.float32(1.5), 22), (np.int64(2), 31), ("1.00899999999999999999999999", 2)])
def test_the_frame_on_screen(uneven, pictures, t, number):
    v = tv.VideoReader(uneven)
    assert v.number_at(t) == number  # frame n from 1 s + n * n ms on
    frame = v.frame_at(t)
    assert frame.number == number
    np.testing.assert_array_equal(frame.data, pictures[number])


def test_a_float_is_taken_at_its_exact_value(clip):
    v = tv.VideoReader(clip)
    below = math.nextafter(0.25, 0) if hasattr(math, "nextafter") else 0.25 - 2**-54
    assert (v.number_at(0.25), v.number_at(below)) == (6, 6)
    # 0.28 s is where frame 7 begins; the float next to it lies above or below.
    assert v.number_at(0.28) == (7 if Fraction(0.28) >= Fraction(7, 25) else 6)
    assert v.number_at("0.28") == 7


@pytest.mark.parametrize("t", [0.5, "0.999999", 10**9, -1, 10**40, Fraction(1, 10**40), -10**40,
                               1e308, -5e-324, float("nan"), float("inf"), "nan", "x", "1/0", ""])
def test_a_time_without_a_frame(uneven, t):
    v = tv.VideoReader(uneven)
    for ask in (v.number_at, v.frame_at, lambda t: v.frames_at([1, t])):
        with pytest.raises(ValueError):
            ask(t)


@pytest.mark.parametrize("t", [None, True, b"1", [1], object(), 1j])
def test_what_is_no_time(uneven, t):
    with pytest.raises(TypeError):
        tv.VideoReader(uneven).number_at(t)


def test_frames_at_times(uneven, pictures):
    v = tv.VideoReader(uneven)
    out = np.empty((3, HEIGHT, WIDTH, 3), np.uint8)
    batch = v.frames_at(np.array([2.0, 1.0, 1.5]), out=out)
    assert batch.data is out and batch.numbers.tolist() == [31, 0, 22]
    np.testing.assert_array_equal(out, pictures[[31, 0, 22]])
    with pytest.raises(TypeError):
        v.frames_at("12")


@pytest.mark.parametrize("t0, t1, rate, expected", [
    (0, 100, None, list(range(COUNT))), ("1.002", "1.016", None, [1, 2, 3]),
    ("1.002", "1.0161", None, [1, 2, 3, 4]), (1, 1, None, []), (2, 1, None, []), (0, 1, None, []),
    (50, 60, None, []), ("1.004", "1.0041", None, [2]), (0, "1.0001", None, [0]),
    (1, "1.05", 100, [0, 3, 4, 5, 6]), ("0.99", "1.02", 100, [0, 3]), (0, 10, "1/2", []),
    (0, 3, 1, [0, 31]), (-10**20, 10**20, 1, [0, 31])])
def test_frames_between(uneven, pictures, t0, t1, rate, expected):
    v = tv.VideoReader(uneven)  # ends at 2.521 + 0.077 s
    if rate == "1/2":
        expected = [31]  # 0, 2, 4 … s
    batch = v.frames_between(t0, t1, rate=rate)
    assert isinstance(batch, tv.FrameBatch) and batch.numbers.tolist() == expected
    np.testing.assert_array_equal(batch.data, pictures[np.array(expected, int)])


@pytest.mark.parametrize("rate, error", [(0, ValueError), (-1, ValueError), ("x", ValueError),
                                         (float("nan"), ValueError), (True, TypeError),
                                         (10**30, (MemoryError, ValueError))])
def test_refuses_impossible_rates(uneven, rate, error):
    with pytest.raises(error):
        tv.VideoReader(uneven).frames_between(0, 3, rate=rate)


def test_a_transport_stream_begins_where_it_does(tmp_path, pictures):
    path = encode(tmp_path / "clip.ts", pictures, options=("-pix_fmt", "yuv420p", "-c:v", "libx264",
                                                           "-bf", "0"))
    first = Fraction(ffprobe(path, "packet=pts")[0]) / 90000
    assert first > 1 and tv.VideoReader(path).time(0) == first


# Metadata

def test_metadata_are_those_of_ffprobe(yuv_clip):
    m = tv.VideoReader(yuv_clip).metadata
    width, height, pixel_format, rate, frames = ffprobe(
        yuv_clip, "stream=width,height,pix_fmt,r_frame_rate,nb_frames")[0].split(",")
    assert (m.width, m.height, m.pixel_format) == (int(width), int(height), pixel_format)
    assert (m.coded_width, m.coded_height) == (int(width), int(height))
    assert m.average_rate == Fraction(rate) and m.frame_count == int(frames)
    assert (m.codec, m.bits, m.rotation, m.mirrored) == ("h264", 8, 0, False)
    assert m.duration == Fraction(COUNT, 25) and "mp4" in m.container
    assert m.bit_rate == int(ffprobe(yuv_clip, "stream=bit_rate")[0])
    assert m.colour_primaries is None and m.colour_transfer is None
    assert isinstance(m.tags, dict) and m.tags["major_brand"] == "isom"
    assert m.sample_aspect_ratio in (None, Fraction(1))


def test_rotation_is_the_turn_that_was_applied(tmp_path, pictures):
    plain = encode(tmp_path / "plain.mp4", pictures[:3])
    path = tmp_path / "turned.mp4"
    for angle in (90, 180, 270):
        if has_display_rotation():
            ffmpeg("-display_rotation", angle, "-i", plain, "-c", "copy", path)
        else:
            ffmpeg("-i", plain, "-c", "copy", "-metadata:s:v", f"rotate={angle}", path)
        # FFmpeg itself shows which way that is.
        height, width = (HEIGHT, WIDTH) if angle == 180 else (WIDTH, HEIGHT)
        upright = raw(path, "rgb24", height, width, 3)
        degrees, = (90 * turns for turns in (1, 2, 3)
                    if np.array_equal(np.rot90(pictures[1], -turns), upright[1]))
        v = tv.VideoReader(path)
        assert v.metadata.rotation == degrees and v.metadata.mirrored is False
        np.testing.assert_array_equal(v[:], upright)
        assert (v.metadata.height, v.metadata.width) == (height, width)
        assert (v.metadata.coded_height, v.metadata.coded_width) == (HEIGHT, WIDTH)


def test_mirrored_pictures_are_told(tmp_path, pictures):
    path = tmp_path / "mirrored.mp4"
    plain = encode(tmp_path / "plain.mp4", pictures[:3])
    if not has_display_rotation():
        pytest.skip("this ffmpeg program cannot mirror")
    ffmpeg("-display_hflip", "-i", plain, "-c", "copy", path)
    v = tv.VideoReader(path)
    assert v.metadata.mirrored is True and v.metadata.rotation == 0
    np.testing.assert_array_equal(v[1], pictures[1, :, ::-1])


def has_display_rotation():
    return b"display_rotation" in ffmpeg("-h", "full")


def test_stream_is_the_containers_number(tmp_path, clip, other_clip):
    path = tmp_path / "two.mkv"
    ffmpeg("-i", clip, "-i", other_clip, "-map", "0:v", "-map", "1:v", "-c", "copy", path)
    assert (len(tv.VideoReader(path, stream=0)), len(tv.VideoReader(path, stream=1))) == (40, 20)
    np.testing.assert_array_equal(tv.VideoReader(path, stream=1)[7], make_pictures(20, seed=9)[7])
    with pytest.raises(tv.Error, match="two.mkv"):
        tv.VideoReader(path, stream=2)


@pytest.mark.parametrize("options, error", [
    ({"format": "rgb"}, ValueError), ({"format": None}, TypeError), ({"format": b"rgb24"}, TypeError),
    ({"size": (0, 5)}, ValueError), ({"size": (5, -1)}, ValueError), ({"size": 5}, TypeError),
    ({"size": (5,)}, TypeError), ({"size": (5.0, 5)}, TypeError), ({"size": (True, 5)}, TypeError),
    ({"size": (10**20, 5)}, ValueError), ({"size": "57"}, TypeError),
    ({"colours": "bt709"}, ValueError), ({"colours": 1}, TypeError), ({"threads": -1}, ValueError),
    ({"threads": 10**9}, ValueError), ({"threads": 1.0}, TypeError), ({"threads": True}, TypeError),
    ({"stream": -1}, ValueError), ({"stream": 2**40}, ValueError), ({"stream": "0"}, TypeError),
    ({"checksums": 1}, TypeError), ({"checksums": "no"}, TypeError), ({"progress": 5}, TypeError),
    ({"index": 5}, TypeError), ({"index": b"index"}, TypeError),
    ({"open_timeout": 0}, ValueError), ({"open_timeout": -1}, ValueError),
    ({"read_timeout": float("nan")}, ValueError), ({"read_timeout": float("inf")}, ValueError),
    ({"open_timeout": "1"}, TypeError), ({"open_timeout": True}, TypeError),
    ({"demuxer": 1}, TypeError), ({"demuxer": "a\0b"}, ValueError), ({"options": [1]}, TypeError),
    ({"options": {1: "2"}}, TypeError), ({"options": {"a": None}}, TypeError),
    ({"options": {"a": "\ud800"}}, ValueError), ({"nonsense": 1}, TypeError)])
def test_refuses_impossible_options(clip, options, error):
    with pytest.raises(error):
        tv.VideoReader(clip, **options)


def test_demuxer_and_options_reach_ffmpeg(tmp_path, pictures):
    path = encode(tmp_path / "raw.bin", pictures, options=(
        "-c:v", "libx264rgb", "-qp", "0", "-f", "h264"))
    assert len(tv.VideoReader(path, demuxer="h264", options={"framerate": 50})) == COUNT
    bare = tmp_path / "bare.bin"
    bare.write_bytes(raw(path, "yuv420p", HEIGHT * 3 // 2, WIDTH).tobytes())
    v = tv.VideoReader(bare, demuxer="rawvideo", options={
        "video_size": f"{WIDTH}x{HEIGHT}", "framerate": "50", "pixel_format": "yuv420p"})
    assert len(v) == COUNT and v.time(1) == Fraction(1, 50)
    with pytest.raises(tv.Error, match="raw.bin"):
        tv.VideoReader(path, demuxer="no such demuxer")
    with pytest.raises(tv.Error, match="raw.bin"):
        tv.VideoReader(path, options={"no such option": 1})


def test_a_picture_of_another_size_comes_in_its_own(tmp_path, pictures):
    parts = [tmp_path / "one.h264", tmp_path / "two.h264"]
    encode(parts[0], pictures[:5], options=("-c:v", "libx264rgb", "-qp", "0"))
    bigger = make_pictures(5, 64, 96)
    encode(parts[1], bigger, options=("-c:v", "libx264rgb", "-qp", "0"))
    whole = b"".join(part.read_bytes() for part in parts)
    v = tv.VideoReader(whole, demuxer="h264")
    assert len(v) == 10
    np.testing.assert_array_equal(v[2], pictures[2])
    np.testing.assert_array_equal(v[7], bigger[2])
    with pytest.raises(tv.Error):
        v[:]
    scaled = tv.VideoReader(whole, demuxer="h264", size=(HEIGHT, WIDTH))
    assert scaled[:].shape == (10, HEIGHT, WIDTH, 3)


def test_len_takes_no_time_worth_naming(v):
    # Not timed: it neither waits for a lock nor asks the library.
    assert len(v) == len(v) == COUNT
