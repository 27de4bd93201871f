"""Which frames are asked for."""

from __future__ import annotations

import operator
from typing import Any, List, Tuple, Union

import numpy as np

from . import _checks


def one(value: Any, count: int, what: str = "frame") -> int:
    """A number from 0 on; negative ones count from the end. IndexError where there is none."""
    if isinstance(value, (bool, np.bool_)):
        raise TypeError(f"a number of a {what} has to be a whole number, not {value!r}")
    try:
        number = operator.index(value)
    except TypeError:
        raise TypeError(f"a number of a {what} has to be a whole number, not "
                        f"{type(value).__name__}") from None
    if not -count <= number < count:
        raise IndexError(f"{what} {number} of {count}")
    return number + count if number < 0 else number


def span(first: Any, stop: Any, count: int) -> Tuple[int, int]:
    """Where a range of frames begins and stops; negative numbers count from the end.

    None stops at the end. IndexError where there are no such frames.
    """
    found = []
    for place in (first, count if stop is None else stop):
        number = _checks.integer(place, "the end of a range", -2**63, 2**63 - 1)
        if not -count <= number <= count:
            raise IndexError(f"frame {number} of {count}")
        found.append(number + count if number < 0 else number)
    if found[0] > found[1]:
        raise IndexError(f"a range of frames from {found[0]} to {found[1]}")
    return found[0], found[1]


def many(values: Any, count: int) -> "np.ndarray[Any, Any]":
    """Numbers from 0 on in an int64 array of the shape of the question.

    An array of truth values says of each frame whether it is wanted.
    """
    if isinstance(values, (str, bytes, dict, set, frozenset)):
        raise TypeError(f"numbers of frames cannot be a {type(values).__name__}")
    if isinstance(values, slice):
        return np.arange(*values.indices(count), dtype=np.int64)
    if not isinstance(values, np.ndarray):
        values = _array_of(values, count)
    if values.dtype == np.bool_:
        if values.ndim == 0:
            raise TypeError(f"a number of a frame has to be a whole number, not {values[()]!r}")
        if values.shape != (count,):
            raise IndexError(f"{values.shape} truth values for {count} frames")
        return np.flatnonzero(values).astype(np.int64)
    if values.dtype == object:
        values = np.array([one(value, count) for value in values.ravel()],
                          np.int64).reshape(values.shape)
    if values.dtype.kind not in "iu":
        raise TypeError(f"numbers of frames have to be whole numbers, not {values.dtype}")
    if values.dtype == np.uint64:
        values = np.minimum(values, np.uint64(2**63 - 1))
    values = values.astype(np.int64)
    outside = (values >= count) | (values < -count)
    if outside.any():
        raise IndexError(f"frame {values[outside].ravel()[0]} of {count}")
    from_0: "np.ndarray[Any, Any]" = np.where(values < 0, values + count, values)
    return from_0


def _array_of(values: Any, count: int) -> "np.ndarray[Any, Any]":
    if hasattr(values, "__array__"):
        return np.asarray(values)
    if np.ndim(values) == 0 and not hasattr(values, "__iter__"):
        raise TypeError(f"numbers of frames cannot be a {type(values).__name__}")
    listed: List[Union[int, List[Any]]] = list(values)
    if not listed:
        return np.empty(0, np.int64)
    if all(isinstance(value, (bool, np.bool_)) for value in listed):
        return np.array(listed, np.bool_)
    if any(hasattr(value, "__len__") for value in listed):
        rows = [many(value, count) for value in listed]
        if len({row.shape for row in rows}) != 1:
            raise ValueError("rows of different lengths")
        return np.stack(rows)
    return np.array([one(value, count) for value in listed], np.int64)
