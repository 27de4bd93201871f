"""Short pieces of a video, for training."""

from __future__ import annotations

from typing import TYPE_CHECKING, Any, Optional

import numpy as np

from . import _checks
from ._video import FrameBatch, VideoReader

if TYPE_CHECKING:
    from numpy.typing import NDArray

_MOST = 2**40


def clips(v: VideoReader, count: int, length: int, *, step: int = 1, start: int = 0,
          stop: Optional[int] = None, policy: str = "repeat",
          rng: Optional[np.random.Generator] = None) -> FrameBatch:
    """`count` clips of `length` frames each, `step` apart: data of (count, length, H, W, 3).

    They are taken of the frames from `start` to before `stop`. Their beginnings are spread evenly
    from the first to the last place at which a clip is whole, or drawn by `rng`. Where there is no
    such place, `policy` says what comes after the end: "repeat" the clip's last frame, "wrap" the
    clip from its beginning again, "error" raises ValueError.
    """
    if not isinstance(v, VideoReader):
        raise TypeError(f"clips are made of a VideoReader, not of {type(v).__name__}")
    frames = len(v)
    count = _checks.integer(count, "count", 0, _MOST)
    length = _checks.integer(length, "length", 1, _MOST)
    step = _checks.integer(step, "step", 1, _MOST)
    policy = _checks.word(policy, "policy", ("repeat", "wrap", "error"))
    first = _checks.integer(start, "start", -2**62, 2**62)
    last = frames if stop is None else _checks.integer(stop, "stop", -2**62, 2**62)
    first, last, _ = slice(first, last).indices(frames)
    if rng is not None and not isinstance(rng, np.random.Generator):
        raise TypeError(f"rng has to be a numpy.random.Generator, not {type(rng).__name__}")
    if first >= last:
        raise ValueError(f"no frames from {start} to {stop} of {frames}")
    whole = last - ((length - 1) * step + 1)  # the last place at which a clip is whole
    if whole < first and policy == "error":
        raise ValueError(f"{length} frames {step} apart do not fit into {last - first}")
    v._memory((count, length))  # raises when there are more than memory holds
    begins = _beginnings(count, first, max(first, whole), rng)
    return v.frames(begins[:, np.newaxis] + step * _places(length, step, last - first, policy))


def _beginnings(count: int, first: int, last: int,
                rng: Optional[np.random.Generator]) -> "NDArray[np.int64]":
    if rng is not None:
        return rng.integers(first, last + 1, count, np.int64)
    if count < 2:
        return np.full(count, first, np.int64)
    places: "NDArray[np.int64]" = np.arange(count, dtype=np.int64)
    return first + places * (last - first) // (count - 1)


def _places(length: int, step: int, frames: int, policy: str) -> "NDArray[Any]":
    """Which of a clip's frames each is; those after the end are others by the policy."""
    there = (frames - 1) // step + 1
    places: "NDArray[np.int64]" = np.arange(length, dtype=np.int64)
    return places % there if policy == "wrap" else np.minimum(places, there - 1)
