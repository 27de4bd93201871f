"""Parts of a clip and what proves them."""

import pytest
from conftest import COUNT, encode, ffmpeg

import tarn_videoio as tv


def test_partitions_begin_at_key_frames_and_are_the_whole(clip):
    v = tv.VideoReader(clip)
    keys = v.key_frames.tolist()
    for count in (None, 1, 2, 3, 4, 100):
        parts = v.partitions(count)
        assert all(isinstance(part, tuple) for part in parts)
        assert [n for first, stop in parts for n in range(first, stop)] == list(range(COUNT))
        assert all(first in keys and first < stop for first, stop in parts)
        assert count is None or len(parts) <= count
    assert v.partitions(1) == [(0, COUNT)]
    assert [first for first, _ in v.partitions()] == keys


@pytest.mark.parametrize("count, error", [(0, ValueError), (-1, ValueError), (1.5, TypeError),
                                          (True, TypeError), ("2", TypeError)])
def test_partitions_of_a_wrong_count(clip, count, error):
    with pytest.raises(error):
        tv.VideoReader(clip).partitions(count)


def test_digest_is_of_what_is_decoded(tmp_path, clip, pictures):
    v = tv.VideoReader(clip)
    whole = v.digest()
    assert isinstance(whole, bytes) and len(whole) == 16
    assert v.digest(0, COUNT) == v.digest(-COUNT) == whole
    # Neither format, size nor container count, nor where the reader stands.
    copy = tmp_path / "copy.mkv"
    ffmpeg("-i", clip, "-c", "copy", copy)
    v[33]
    assert v.digest() == whole
    assert tv.VideoReader(copy, format="gray8", size=(24, 32)).digest() == whole
    # One other picture makes another.
    other = pictures.copy()
    other[20, 0, 0, 0] ^= 1
    changed = tv.VideoReader(encode(tmp_path / "other.mp4", other))
    assert changed.digest() != whole and changed.digest(0, 20) == v.digest(0, 20)
    assert changed.digest(20, 21) != v.digest(20, 21)
    assert v.digest(5, 5) == v.digest(COUNT) == bytes(16)


def test_digest_is_that_of_the_index(clip):
    index = tv.FrameIndex.build(clip, checksums=True)
    v = tv.VideoReader(clip)
    for first, stop in [(0, None), (3, 17), (-7, -2), (40, 40)]:
        assert v.digest(first, stop) == index.digest(first, stop)
    with pytest.raises(tv.Error, match="clip.mp4"):
        tv.FrameIndex.build(clip).digest()


@pytest.mark.parametrize("first, stop, error", [
    (0, COUNT + 1, IndexError), (-COUNT - 1, None, IndexError), (5, 4, IndexError),
    (COUNT + 1, None, IndexError), (10**30, None, ValueError), (0.0, None, TypeError),
    (0, "x", TypeError), (True, None, TypeError)])
def test_digest_of_frames_that_there_are_not(clip, first, stop, error):
    v = tv.VideoReader(clip)
    with pytest.raises(error):
        v.digest(first, stop)
    with pytest.raises(error):
        tv.FrameIndex.build(clip, checksums=True).digest(first, stop)


def test_closed(clip):
    v = tv.VideoReader(clip)
    v.close()
    for ask in (lambda: v.partitions(0), lambda: v.digest("x")):
        with pytest.raises(ValueError, match="closed"):
            ask()
