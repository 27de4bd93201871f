"""What is written is what the ffmpeg program reads; what is refused changes nothing."""

import json
import os
import subprocess
import sys
from fractions import Fraction

import numpy as np
import pytest
from conftest import HEIGHT, WIDTH, ffmpeg, ffprobe, in_child, raw, within

import tarn_videoio as tv


def times_of(path):
    """The times of the pictures in seconds, exactly, as ffprobe has the packets."""
    base = Fraction(ffprobe(path, "stream=time_base")[0])
    return sorted(int(line) * base for line in ffprobe(path, "packet=pts"))


def end_of(path):
    """When the last picture goes, in seconds."""
    told = stream(path)
    return (told["start_pts"] + told["duration_ts"]) * Fraction(told["time_base"])


def colours(path):
    return raw(path, "rgb24", HEIGHT, WIDTH, 3)


def sound(path, channels=1):
    return np.frombuffer(ffmpeg("-i", path, "-map", "a:0", "-f", "f32le", "-"),
                         np.float32).reshape(-1, channels)


def stream(path, kind="v"):
    return json.loads(subprocess.run(
        ["ffprobe", "-v", "error", "-select_streams", f"{kind}:0", "-show_streams", "-of", "json",
         str(path)], stdout=subprocess.PIPE, check=True).stdout)["streams"][0]


# Pictures and times

@pytest.mark.parametrize("extension", [".mkv", ".MKV"])
def test_ffv1_keeps_rgb(tmp_path, pictures, extension):
    path = tmp_path / f"clip{extension}"
    with tv.VideoWriter(path, rate=25, codec="ffv1") as w:
        w.write(pictures[0])
        w.write(pictures[1:5])
        w.write(pictures[5:])
    np.testing.assert_array_equal(colours(path), pictures)
    assert times_of(path) == [Fraction(n, 25) for n in range(len(pictures))]
    assert os.listdir(tmp_path) == [path.name]


def test_our_own_reader_gets_it_back(tmp_path, pictures):
    path = tmp_path / "clip.mkv"
    with tv.VideoWriter(path, rate=25, codec="ffv1") as w:
        w.write(pictures)
    np.testing.assert_array_equal(tv.VideoReader(path)[:], pictures)


@pytest.mark.parametrize("extension", [".mp4", ".mov"])
def test_h264_keeps_times_and_nearly_pictures(tmp_path, pictures, extension):
    path = tmp_path / f"clip{extension}"
    with tv.VideoWriter(path, rate="30000/1001", crf=1, preset="fast") as w:
        w.write(pictures)
    assert times_of(path) == [Fraction(n * 1001, 30000) for n in range(len(pictures))]
    assert end_of(path) == Fraction(len(pictures) * 1001, 30000)
    assert stream(path)["codec_name"] == "h264"
    luma = raw(path, "gray", HEIGHT, WIDTH).astype(float)
    weights = np.array([0.299, 0.587, 0.114])
    assert np.abs(luma - pictures @ weights).mean() < 3


@pytest.mark.parametrize("codec", ["hevc", "vp9", "av1", "libx264"])
def test_codecs(tmp_path, pictures, codec):
    path = tmp_path / "clip.mkv"
    try:
        with tv.VideoWriter(path, rate=25, codec=codec) as w:
            w.write(np.tile(pictures[:5], (1, 2, 2, 1)))  # some take no small ones
    except ValueError as error:
        if "there is no encoder" in str(error):
            pytest.skip(f"this FFmpeg has no encoder of {codec}")
        raise
    assert stream(path)["codec_name"] == codec.replace("libx264", "h264")
    assert len(times_of(path)) == 5


# FFmpeg before 5 begins the tracks of MP4 at whole milliseconds alone.
BEGINS_ANYWHERE = int(tv.versions()["libavformat"].split(".")[0]) >= 59


@pytest.mark.skipif(not BEGINS_ANYWHERE, reason="this FFmpeg begins MP4 at milliseconds")
def test_times_are_kept_as_given(tmp_path, pictures):
    path = tmp_path / "clip.mp4"
    given = [Fraction(1, 3), Fraction(1, 2), Fraction(5, 7), Fraction(2)]
    with tv.VideoWriter(path) as w:
        w.write(pictures[0], time=given[0])
        w.write(pictures[1], time=0.5)
        w.write(pictures[2], time="5/7")
        w.write(pictures[3], time=2, duration=Fraction(1, 4))
    reader = tv.VideoReader(path)
    assert [reader.time(n) for n in range(4)] == given
    assert reader.duration(0) == Fraction(1, 6)
    assert times_of(path) == given and end_of(path) == Fraction(9, 4)


@pytest.mark.parametrize("ending", ["mp4", "mov", "mkv"])
@pytest.mark.parametrize("fragmented", [False, True])
@pytest.mark.parametrize("preset", ["ultrafast", "medium"])
def test_pictures_last_as_long_as_was_given(tmp_path, ending, fragmented, preset):
    # Even pictures, of which the encoder makes B-pictures unless it is to be fast.
    path = tmp_path / f"clip.{ending}"
    given = [Fraction(ms, 1000) for ms in (0, 100, 110, 300, 700, 710, 720, 730, 1000, 1100, 1101)]
    with tv.VideoWriter(path, time_base="1/1000", preset=preset, fragmented=fragmented) as w:
        for number, time in enumerate(given):
            w.write(np.full((HEIGHT, WIDTH, 3), 20 * number, np.uint8), time=time,
                    duration=Fraction(1, 4) if time == given[-1] else None)
    reader = tv.VideoReader(path)
    ends = given[1:] + [given[-1] + Fraction(1, 4)]
    assert [reader.duration(n) for n in range(len(given))] == [
        end - time for time, end in zip(given, ends)]


def test_origin_first_makes_the_first_time_0(tmp_path, pictures):
    path = tmp_path / "clip.mp4"
    with tv.VideoWriter(path, origin="first") as w:
        w.write(pictures[:3], time=[Fraction(10, 3), Fraction(11, 3), 5])
    assert times_of(path) == [0, Fraction(1, 3), Fraction(5, 3)]


def test_a_batch_with_times(tmp_path, pictures):
    path = tmp_path / "clip.mp4"
    with tv.VideoWriter(path, rate=10, time_base="1/100") as w:
        w.write(pictures[:2], time=1)
        w.write(pictures[2:4], time=np.array([1.25, 1.5]))
        w.write(pictures[4])
    assert times_of(path) == [1, Fraction(11, 10), Fraction(5, 4), Fraction(3, 2),
                                 Fraction(8, 5)]


def test_matroska_rounds_to_milliseconds(tmp_path, pictures):
    path = tmp_path / "clip.mkv"
    with tv.VideoWriter(path, codec="ffv1") as w:
        w.write(pictures[0], time=0)
        w.write(pictures[1], time=Fraction(1, 3))
        w.write(pictures[2], time=Fraction(2, 3))
    for found, given in zip(times_of(path), (0, Fraction(1, 3), Fraction(2, 3))):
        assert abs(found - given) <= Fraction(1, 2000)


@pytest.mark.parametrize("options, first, second, nearest", [
    ({"rate": 25}, 0, Fraction(1, 24), "1/25"), ({"time_base": "1/1000"}, 0, 0.0333, "33/1000"),
    ({"rate": 25}, 0, 0, None), ({"rate": 25}, 1, "24/25", None), ({}, 0, 0, None),
    ({}, Fraction(1, 65537), Fraction(1, 65521), None), ({}, 0, Fraction(1, 2**31), None),
    ({}, 0, float("nan"), None), ({}, 0, "x", None), ({}, 0, None, None), ({}, 0, 10**30, None)])
def test_a_time_that_is_refused_changes_nothing(tmp_path, pictures, options, first, second,
                                                nearest):
    if (first * 1000) % 1 and not BEGINS_ANYWHERE:
        pytest.skip("this FFmpeg begins MP4 at milliseconds")
    path = tmp_path / "clip.mp4"
    with tv.VideoWriter(path, **options) as w:
        w.write(pictures[0], time=first)
        with pytest.raises(ValueError, match=nearest):
            w.write(pictures[1], time=second)
        with pytest.raises(ValueError):
            w.write(pictures[1:3], time=[3, second] if second is not None else [3, 3])
        w.write(pictures[1], time=2)
    assert times_of(path) == [first, 2]
    luma = raw(path, "gray", HEIGHT, WIDTH).astype(float)
    assert np.abs(luma[1] - pictures[1] @ [0.299, 0.587, 0.114]).mean() < 12


@pytest.mark.parametrize("times", [[0, 1], [0, 1, 1], [2, 1, 3], [0, 1, "1/24"], [], [0, 1, "x"],
                                   [[0, 1, 2]], 0.01])
def test_a_batch_is_refused_as_a_whole(tmp_path, pictures, times):
    path = tmp_path / "clip.mkv"
    with tv.VideoWriter(path, rate=25, codec="ffv1") as w:
        with pytest.raises((ValueError, TypeError)):
            w.write(pictures[:3], time=times)
        w.write(pictures[3:5])
    np.testing.assert_array_equal(colours(path), pictures[3:5])


# What pictures may be

@pytest.mark.parametrize("picture, error", [
    (np.zeros((HEIGHT, WIDTH, 3), np.float32), TypeError),
    (np.zeros((HEIGHT, WIDTH, 3), np.uint16), TypeError),
    (np.zeros((HEIGHT, WIDTH, 3), np.int8), TypeError),
    (np.zeros((HEIGHT, WIDTH, 3), bool), TypeError),
    (np.zeros((HEIGHT, WIDTH, 3), object), TypeError),
    (np.full((HEIGHT, WIDTH, 3), np.nan), TypeError),
    ([[[1, 2, 3]]], TypeError), (None, TypeError), (b"abc", TypeError), (5, TypeError),
    ("abc", TypeError), (np.uint8(5), TypeError),
    (np.zeros((HEIGHT, WIDTH), np.uint8), ValueError),
    (np.zeros((HEIGHT, WIDTH, 4), np.uint8), ValueError),
    (np.zeros((1, 1, HEIGHT, WIDTH, 3), np.uint8), ValueError),
    (np.zeros((HEIGHT, WIDTH - 2, 3), np.uint8), ValueError),
    (np.zeros((2, HEIGHT + 2, WIDTH, 3), np.uint8), ValueError),
    (np.zeros((0, WIDTH, 3), np.uint8), ValueError), (np.zeros((HEIGHT, 0, 3), np.uint8), ValueError),
    (np.uint8(5) + np.zeros((), np.uint8), TypeError)])
def test_what_is_refused_changes_nothing(tmp_path, pictures, picture, error):
    path = tmp_path / "clip.mkv"
    with tv.VideoWriter(path, rate=25, codec="ffv1") as w:
        w.write(pictures[0])
        with pytest.raises(error):
            w.write(picture)
        w.write(pictures[1])
        w.write(pictures[:0])
    np.testing.assert_array_equal(colours(path), pictures[:2])


def test_any_layout_in_memory(tmp_path, pictures):
    path = tmp_path / "clip.mkv"
    readonly = pictures[4].copy()
    readonly.flags.writeable = False
    layouts = [pictures[0][::-1][::-1], np.asfortranarray(pictures[1]), pictures[2][:, ::-1][:, ::-1],
               pictures[3][::-1], readonly, np.repeat(pictures[5], 2, 1)[:, ::2],
               np.pad(pictures[6], ((3, 2), (5, 1), (0, 0)))[3:-2, 5:-1],
               np.ascontiguousarray(pictures[7].transpose(1, 0, 2)).transpose(1, 0, 2),
               np.broadcast_to(pictures[8], (2, HEIGHT, WIDTH, 3)), pictures[9:13][::-1],
               np.dstack([pictures[13], pictures[13]])[..., :3]]
    with tv.VideoWriter(path, rate=25, codec="ffv1") as w:
        for layout in layouts:
            w.write(layout)
    expected = [*pictures[:3], pictures[3][::-1], *pictures[4:8], pictures[8], pictures[8],
                *pictures[9:13][::-1], pictures[13]]
    np.testing.assert_array_equal(colours(path), expected)


@pytest.mark.parametrize("format, shape, dtype, pixel_format", [
    ("gray8", (HEIGHT, WIDTH), np.uint8, "gray"),
    ("gray16", (HEIGHT, WIDTH), np.uint16, "gray16le"),
    ("rgb48", (HEIGHT, WIDTH, 3), np.uint16, "rgb48le")])
def test_other_formats_come_back(tmp_path, format, shape, dtype, pixel_format):
    given = np.random.default_rng(4).integers(0, np.iinfo(dtype).max, (3,) + shape, dtype,
                                              endpoint=True)
    path = tmp_path / "clip.mkv"
    with tv.VideoWriter(path, rate=25, codec="ffv1", format=format) as w:
        w.write(given)
        with pytest.raises((TypeError, ValueError)):
            w.write(np.zeros(shape + (3,), np.uint8))
    stored = stream(path)["pix_fmt"]
    found = np.frombuffer(ffmpeg("-i", path, "-f", "rawvideo", "-pix_fmt", pixel_format, "-"),
                          dtype).reshape(given.shape)
    # FFV1 of this FFmpeg may have fewer bits for what it stores; then they are the upper ones.
    loose = 0 if stored in ("gray", "gray16le", "gbrp16le", "rgb48le") else 65535 // 1023
    assert np.abs(found.astype(int) - given).max() <= loose


def test_nv12_is_stored_as_given(tmp_path):
    given = np.random.default_rng(4).integers(16, 235, (3, HEIGHT * 3 // 2, WIDTH), np.uint8)
    path = tmp_path / "clip.mkv"
    with tv.VideoWriter(path, rate=25, codec="ffv1", format="nv12") as w:
        w.write(given[0])
        w.write(given[1:])
        for wrong in (given[0, :-1], given[0, :, :-1]):
            with pytest.raises(ValueError):
                w.write(wrong)
    np.testing.assert_array_equal(raw(path, "nv12", HEIGHT * 3 // 2, WIDTH), given)


def test_an_odd_size_is_told_with_those_that_can(tmp_path):
    path = tmp_path / "clip.mp4"
    w = tv.VideoWriter(path, rate=25)
    with pytest.raises(ValueError, match="50") as raised:
        w.write(np.zeros((49, 65, 3), np.uint8))
    assert "48" in str(raised.value)
    w.write(np.zeros((48, 64, 3), np.uint8))
    w.close()


# Options

@pytest.mark.parametrize("options, error", [
    ({"rate": 0}, ValueError), ({"rate": -1}, ValueError), ({"rate": "x"}, ValueError),
    ({"rate": True}, TypeError), ({"rate": float("nan")}, ValueError), ({"rate": [25]}, TypeError),
    ({"rate": 10**30}, ValueError), ({"time_base": 0}, ValueError), ({"codec": "h265x"}, ValueError),
    ({"codec": "aac"}, ValueError), ({"codec": None}, TypeError), ({"codec": "h\0"}, ValueError),
    ({"format": "rgb"}, ValueError), ({"crf": -1}, ValueError), ({"crf": 99}, ValueError),
    ({"crf": "20"}, TypeError), ({"crf": float("nan")}, ValueError), ({"crf": True}, TypeError),
    ({"preset": "quickest"}, ValueError), ({"preset": 5}, TypeError), ({"bit_rate": 0}, ValueError),
    ({"bit_rate": 1.5}, TypeError), ({"crf": 20, "bit_rate": 10**5}, ValueError),
    ({"options": {"no such": 1}}, ValueError), ({"options": 5}, TypeError),
    ({"threads": -1}, ValueError), ({"colours": "bt470"}, ValueError), ({"colours": 5}, TypeError),
    ({"rotation": 45}, ValueError), ({"rotation": -90}, ValueError), ({"rotation": 90.0}, TypeError),
    ({"metadata": ["a"]}, TypeError), ({"metadata": {"a": 1.5, 2: "x"}}, TypeError),
    ({"audio_rate": 0}, ValueError), ({"audio_rate": 10**12}, ValueError),
    ({"audio_rate": 44100.0}, TypeError), ({"audio_rate": 44100, "audio_channels": 0}, ValueError),
    ({"audio_rate": 44100, "audio_codec": "h264"}, ValueError),
    ({"faststart": 1}, TypeError), ({"overwrite": None}, TypeError), ({"fragmented": "no"}, TypeError),
    ({"origin": "last"}, ValueError), ({"nonsense": 1}, TypeError)])
def test_wrong_options(tmp_path, options, error):
    with pytest.raises(error):
        tv.VideoWriter(tmp_path / "clip.mp4", **options)
    assert os.listdir(tmp_path) == []


@pytest.mark.parametrize("name", ["clip", "clip.avi", "clip.wav", "clip.mp3", ".mp4", ""])
def test_names_that_tell_no_container(tmp_path, name):
    with pytest.raises((ValueError, OSError)):
        tv.VideoWriter(os.path.join(tmp_path, name), rate=25)


@pytest.mark.parametrize("path, error", [(5, TypeError), (None, TypeError), ("a\0.mp4", ValueError),
                                         ("\ud800.mp4", ValueError), (b"x", ValueError)])
def test_impossible_paths(path, error):
    for make in (lambda: tv.VideoWriter(path, rate=25), lambda: tv.AudioWriter(path, 44100)):
        with pytest.raises(error):
            make()


def test_options_reach_the_file(tmp_path, pictures):
    path = tmp_path / "clip.mp4"
    with tv.VideoWriter(path, rate=25, codec="libx264", options={"g": 5, "bf": "0",
                        "sc_threshold": 0}, rotation=90,
                        metadata={"title": "known ü"}, colours="bt709", threads=1) as w:
        w.write(pictures[:12])
    told = stream(path)
    assert (told["color_space"], told["has_b_frames"]) == ("bt709", 0)
    keys = [line.split(",")[1] for line in ffprobe(path, "packet=pts,flags")]
    assert [place for place, flags in enumerate(keys) if "K" in flags] == [0, 5, 10]
    reader = tv.VideoReader(path)
    assert reader.metadata.rotation == 90 and reader[0].shape == (WIDTH, HEIGHT, 3)
    assert reader.metadata.tags["title"] == "known ü"
    content = path.read_bytes()
    assert content.index(b"moov") < content.index(b"mdat")
    with tv.VideoWriter(path, rate=25, faststart=False) as w:
        w.write(pictures[:2])
    content = path.read_bytes()
    assert content.index(b"moov") > content.index(b"mdat")


@pytest.mark.parametrize("colours, height, expected", [
    (None, 48, "smpte170m"), (None, 720, "bt709"), ("bt601", 720, "smpte170m"),
    ("bt2020", 48, "bt2020nc"), ("bt709", 48, "bt709")])
def test_colours_are_tagged(tmp_path, colours, height, expected):
    path = tmp_path / "clip.mp4"
    with tv.VideoWriter(path, rate=25, colours=colours, preset="ultrafast") as w:
        w.write(np.full((height, 64, 3), (32, 192, 64), np.uint8))
    told = stream(path)
    assert told["color_space"] in (expected, "bt470bg" if expected == "smpte170m" else expected)
    assert told["color_range"] == "tv"
    assert np.abs(tv.VideoReader(path)[0].astype(int) - (32, 192, 64)).max() <= 3


DYING = """
import os, sys
import numpy as np
import tarn_videoio as tv
w = tv.VideoWriter(sys.argv[1], rate=25, fragmented=True, preset="ultrafast", options={"tune": "zerolatency"})
for n in range(150):
    w.write(np.full((48, 64, 3), n, np.uint8))
os._exit(0)
"""


def test_fragments_begin_at_least_every_second_with_a_key_picture(tmp_path, pictures):
    path = tmp_path / "clip.mp4"
    with tv.VideoWriter(path, rate=25, fragmented=True) as w:
        for _ in range(3):
            w.write(pictures)
    assert path.read_bytes().count(b"moof") >= 4  # 120 pictures are 4.8 s
    flags = [line.split(",")[1] for line in sorted(
        ffprobe(path, "packet=pts,flags"), key=lambda line: int(line.split(",")[0]))]
    keys = [place for place, flag in enumerate(flags) if "K" in flag]
    assert keys[0] == 0 and max(np.diff(keys + [len(flags)])) <= 25
    assert times_of(path) == [Fraction(n, 25) for n in range(120)]


def test_what_a_process_that_dies_leaves_in_fragments_plays(tmp_path):
    path = tmp_path / "clip.mp4"
    subprocess.run([sys.executable, "-c", DYING, str(path)], check=True)
    luma = np.frombuffer(ffmpeg("-i", path, "-f", "rawvideo", "-pix_fmt", "gray", "-"),
                         np.uint8).reshape(-1, 48, 64)
    assert len(luma) >= 75  # of 6 s, all but what was under way
    assert np.abs(luma[:, 5, 5].astype(int) - np.arange(len(luma))).max() <= 3


# Sound

def tone(count, channels=1, rate=48000):
    times = np.arange(count) / rate
    return np.stack([np.sin(2 * np.pi * 440 * (1 + channel) * times) / 2
                     for channel in range(channels)], 1).astype(np.float32)


def test_sound_beside_pictures(tmp_path, pictures):
    path = tmp_path / "clip.mkv"
    samples = tone(48000, 2)
    with tv.VideoWriter(path, rate=25, codec="ffv1", audio_rate=48000, audio_codec="pcm") as w:
        w.write_audio(samples[:1])
        w.write(pictures[:10])
        w.write_audio(samples[1:10000])
        w.write_audio(samples[:0])
        w.write_audio(samples[10000:][:, :])
        w.write(pictures[10:25])
    np.testing.assert_array_equal(sound(path, 2), samples)
    np.testing.assert_array_equal(colours(path), pictures[:25])


def test_aac_keeps_length_and_place(tmp_path, pictures):
    path = tmp_path / "clip.mp4"
    samples = tone(48000)
    with tv.VideoWriter(path, rate=25, audio_rate=48000) as w:
        w.write(pictures[:25])
        w.write_audio(samples[:, 0])
    found = sound(path)
    assert len(found) >= 48000 and np.abs(found[:48000] - samples).mean() < 0.03
    # Nothing is nearer when it is shifted.
    assert np.abs(found[25:48000] - samples[:-25]).mean() > 0.03
    assert stream(path, "a")["codec_name"] == "aac"


def test_sound_that_begins_later(tmp_path, pictures):
    path = tmp_path / "clip.mov"
    with tv.VideoWriter(path, rate=25, audio_rate=48000, audio_codec="pcm") as w:
        w.write(pictures)
        with pytest.raises(ValueError):
            w.write_audio(tone(480), time=Fraction(1, 7))
        w.write_audio(tone(48000), time=0.5)
        with pytest.raises(ValueError):
            w.write_audio(tone(480), time=3)
    assert Fraction(stream(path, "a")["start_time"]) == Fraction(1, 2)
    np.testing.assert_array_equal(sound(path)[-48000:], tone(48000))


@pytest.mark.parametrize("samples, error", [
    (np.zeros(10), TypeError), (np.zeros(10, np.int16), TypeError), ([0.5], TypeError),
    (None, TypeError), (np.zeros((5, 3), np.float32), ValueError),
    (np.zeros((5, 0), np.float32), ValueError), (np.zeros((5, 2, 1), np.float32), ValueError),
    (np.full((5, 2), np.nan, np.float32), ValueError), (np.float32(1), TypeError),
    (np.array([[0, 0], [np.inf, 0]], np.float32), ValueError),
    (np.zeros((5, 2), ">f4"), TypeError), (np.zeros(10, bool), TypeError)])
def test_sound_that_is_refused_changes_nothing(tmp_path, samples, error):
    path = tmp_path / "sound.wav"
    with tv.AudioWriter(path, 48000, 2) as w:
        w.write(tone(100, 2))
        with pytest.raises(error):
            w.write(samples)
        w.write(tone(50, 2))
    np.testing.assert_array_equal(sound(path, 2), np.concatenate([tone(100, 2), tone(50, 2)]))


def test_sound_without_a_rate_is_refused(tmp_path, pictures):
    with tv.VideoWriter(tmp_path / "clip.mp4", rate=25) as w:
        with pytest.raises(ValueError):
            w.write_audio(tone(10))
        w.write(pictures[0])


@pytest.mark.parametrize("extension, codec", [(".wav", "pcm_f32le"), (".flac", "flac"),
                                              (".mka", "flac"), (".m4a", "aac")])
def test_sound_alone(tmp_path, extension, codec):
    path = tmp_path / f"sound{extension}"
    samples = tone(44100, 2, 44100)
    layouts = [samples[:7], samples[7:20000][::-1][::-1], np.asfortranarray(samples[20000:])]
    with tv.AudioWriter(path, 44100, metadata={"title": "tone"}) as w:
        for block in layouts:
            w.write(block)
    told = stream(path, "a")
    assert (told["codec_name"], told["sample_rate"], told["channels"]) == (codec, "44100", 2)
    off = np.abs(sound(path, 2)[:44100] - samples)
    assert off.mean() < 0.03 if codec == "aac" else off.max() <= {"flac": 2**-22}.get(codec, 0)


@pytest.mark.parametrize("arguments, options, error", [
    ((0,), {}, ValueError), ((-1,), {}, ValueError), (("44100",), {}, TypeError),
    ((True,), {}, TypeError), ((44100, 0), {}, ValueError), ((44100, 10**6), {}, ValueError),
    ((44100,), {"codec": "nothing"}, ValueError), ((44100,), {"codec": 1}, TypeError),
    ((44100,), {"bit_rate": -1}, ValueError), ((44100,), {"metadata": 1}, TypeError),
    ((44100,), {"overwrite": 1}, TypeError), ((), {}, TypeError)])
def test_wrong_options_of_sound(tmp_path, arguments, options, error):
    with pytest.raises(error):
        tv.AudioWriter(tmp_path / "sound.wav", *arguments, **options)
    with pytest.raises(ValueError):
        tv.AudioWriter(tmp_path / "sound.mp4", 44100)
    assert os.listdir(tmp_path) == []


# Files

def test_leaving_by_an_exception_leaves_nothing(tmp_path, pictures):
    path = tmp_path / "clip.mp4"
    for before in (None, b"was there"):
        if before:
            path.write_bytes(before)
        with pytest.raises(ZeroDivisionError):
            with tv.VideoWriter(path, rate=25) as w:
                w.write(pictures)
                1 / 0
        assert w.closed
        assert os.listdir(tmp_path) == ([path.name] if before else [])
        assert not before or path.read_bytes() == before


def test_overwrite(tmp_path, pictures):
    path = tmp_path / "clip.mp4"
    path.write_bytes(b"was there")
    with pytest.raises(FileExistsError):
        tv.VideoWriter(path, rate=25, overwrite=False)
    sound_path = tmp_path / "sound.wav"
    sound_path.write_bytes(b"was there")
    with pytest.raises(FileExistsError):
        tv.AudioWriter(sound_path, 44100, overwrite=False)
    assert path.read_bytes() == sound_path.read_bytes() == b"was there"
    with tv.VideoWriter(path, rate=25) as w:
        w.write(pictures[:3])
    assert len(times_of(path)) == 3


def test_nothing_written_at_all(tmp_path):
    for make in (lambda: tv.VideoWriter(tmp_path / "clip.mp4", rate=25),
                 lambda: tv.AudioWriter(tmp_path / "sound.wav", 44100)):
        w = make()
        with pytest.raises(tv.Error):
            w.close()
        assert w.closed and os.listdir(tmp_path) == []
        w.close()


def test_what_open_would_raise(tmp_path):
    with pytest.raises(FileNotFoundError):
        tv.VideoWriter(tmp_path / "no" / "clip.mp4", rate=25)
    (tmp_path / "folder.mp4").mkdir()
    with pytest.raises(IsADirectoryError):
        tv.VideoWriter(tmp_path / "folder.mp4", rate=25)
    with pytest.raises(NotADirectoryError):
        tv.AudioWriter(__file__ + "/sound.wav", 44100)


FULL = """
import errno, resource, signal, sys
import numpy as np
import tarn_videoio as tv
signal.signal(signal.SIGXFSZ, signal.SIG_IGN)
resource.setrlimit(resource.RLIMIT_FSIZE, (100000, 100000))
w = tv.VideoWriter(sys.argv[1], rate=25, codec="ffv1")
noise = np.random.default_rng(1).integers(0, 256, (20, 96, 128, 3), np.uint8)
try:
    w.write(noise)
    w.close()
except OSError as error:
    print(errno.errorcode[error.errno], error.filename == sys.argv[1])
"""


def test_a_file_that_cannot_grow_is_an_error_of_the_system(tmp_path):
    done = subprocess.run([sys.executable, "-W", "ignore", "-c", FULL, str(tmp_path / "clip.mkv")],
                          stdout=subprocess.PIPE, stderr=subprocess.PIPE, timeout=60)
    assert done.returncode == 0, done.stderr.decode()
    assert done.stdout.decode().split() == ["EFBIG", "True"]
    assert os.listdir(tmp_path) == []


def test_a_closed_writer_says_so_before_anything_else(tmp_path, pictures):
    w = tv.VideoWriter(tmp_path / "clip.mp4", rate=25)
    w.write(pictures[0])
    w.close()
    w.close()
    a = tv.AudioWriter(tmp_path / "sound.wav", 44100)
    a.write(tone(5))
    a.close()
    for ask in (lambda: w.write("x"), lambda: w.write(pictures[0]), lambda: w.write_audio(5),
                lambda: a.write(5), w.__enter__, a.__enter__):
        with pytest.raises(ValueError, match="closed"):
            ask()
    assert "closed" in repr(w) and w.closed and a.closed


def test_a_writer_that_is_forgotten_leaves_nothing_and_says_so(tmp_path, pictures):
    w = tv.VideoWriter(tmp_path / "clip.mp4", rate=25)
    w.write(pictures[0])
    with pytest.warns(ResourceWarning, match="clip.mp4"):
        del w
    assert os.listdir(tmp_path) == []


def test_a_forked_process_does_not_touch_the_clip(tmp_path, pictures):
    path = tmp_path / "clip.mkv"
    with tv.VideoWriter(path, rate=25, codec="ffv1") as w:
        w.write(pictures[:5])

        def child():
            with pytest.raises(tv.Error):
                w.write(pictures[5])
            w.__exit__(ZeroDivisionError, None, None)

        with within(60):
            in_child(child)
        w.write(pictures[5:10])
    np.testing.assert_array_equal(colours(path), pictures[:10])
    assert os.listdir(tmp_path) == ["clip.mkv"]


def test_a_writer_does_not_pickle(tmp_path):
    import pickle
    w = tv.AudioWriter(tmp_path / "sound.wav", 44100)
    with pytest.raises(TypeError):
        pickle.dumps(w)
    w.__exit__(ValueError, None, None)


def test_names_with_a_colon(tmp_path, pictures, monkeypatch):
    monkeypatch.chdir(tmp_path)
    with tv.VideoWriter("12:30.mkv", rate=25, codec="ffv1") as w:
        w.write(pictures[:2])
    assert os.listdir(tmp_path) == ["12:30.mkv"]


def test_no_references_are_left(tmp_path, pictures):
    batch, samples, times = pictures[:2].copy(), tone(10), [Fraction(1, 5), Fraction(2, 5)]
    held = (batch, samples, times)

    def use():
        with tv.VideoWriter(tmp_path / "clip.mkv", rate=25, codec="ffv1", audio_rate=48000,
                            audio_codec="pcm") as w:
            w.write(batch)
            w.write(batch, time=times)
            w.write_audio(samples)
            for wrong in (lambda: w.write(batch, time=times), lambda: w.write_audio(batch),
                          lambda: w.write(samples)):
                with pytest.raises((ValueError, TypeError)):
                    wrong()

    use()
    before = [sys.getrefcount(one) for one in held]
    for _ in range(5):
        use()
    assert [sys.getrefcount(one) for one in held] == before


def test_pictures_may_have_durations_alone(tmp_path):
    picture = np.zeros((48, 64, 3), np.uint8)
    path = tmp_path / "lasting.mp4"
    with tv.VideoWriter(path) as w:
        with pytest.raises(ValueError):
            w.write(picture)
        w.write(picture, duration=Fraction(1, 10))
        w.write(picture, duration=Fraction(1, 4))
        w.write(picture)
        for more in ({}, {"duration": 1}):
            with pytest.raises(ValueError):
                w.write(picture, **more)
        with pytest.raises(ValueError):
            w.write(np.stack([picture] * 2))
        w.write(picture, time=1, duration=Fraction(1, 3))
        w.write(np.stack([picture] * 2), duration=Fraction(1, 6))
    v = tv.VideoReader(path)
    assert [v.time(number) for number in range(len(v))] == [
        0, Fraction(1, 10), Fraction(7, 20), 1, Fraction(4, 3), Fraction(3, 2)]
