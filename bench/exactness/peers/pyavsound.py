"""Ranges of sound through PyAV, in the way its documentation describes: seek to before the time of the
first sample, decode, and place each frame by its time.

    pyavsound.py NAME CLIP DECODED SECONDS

DECODED is without ".f32" and ".ranges", as tarn_sound_exactness leaves them. No order takes longer than
SECONDS.
"""

import collections
import sys
import time

import av
import numpy

SCALES = {"u8": (128, 128), "s16": (0, 32768), "s32": (0, 2147483648), "s64": (0, 2.0**63)}


def floats_of(frame, channels):
    """The samples of a frame as rows of floats."""
    name = frame.format.name
    samples = frame.to_ndarray()
    samples = samples.T if name.endswith("p") else samples.reshape(-1, channels)
    offset, scale = SCALES.get(name.rstrip("p"), (0, 1))
    if scale == 1:
        return samples.astype(numpy.float32)
    return (samples.astype(numpy.int64) - offset).astype(numpy.float32) / numpy.float32(scale)


def main(name, clip, decoded, seconds):
    # Its own callback may wait for the interpreter, which waits for the decoder's threads.
    av.logging.restore_default_callback()
    av.logging.set_level(av.logging.PANIC)
    orders = collections.defaultdict(list)
    with open(decoded + ".ranges") as file:
        rate, channels = map(int, file.readline().split())
        for line in file:
            order, first, count = line.split()
            orders[order].append((int(first), int(count)))
    truth = numpy.fromfile(decoded + ".f32", dtype=numpy.float32).reshape(-1, channels)
    try:
        container = av.open(clip)
        stream = container.streams.audio[0]
        start = next(frame.pts for frame in container.decode(stream)) or 0
    except Exception:
        print(f"{name},pyav,none,{len(truth)},0,0,0,0,0,0,refused")
        return

    def read(first, count):
        """What comes at these samples; rows that do not come are missing."""
        got = numpy.full((count, channels), numpy.nan, dtype=numpy.float32)
        container.seek(start + int(first / rate / stream.time_base), stream=stream)
        for frame in container.decode(stream):
            at = round((frame.pts - start) * stream.time_base * rate) - first
            if at >= count:
                break
            samples = floats_of(frame, channels)
            begin, end = max(at, 0), min(at + len(samples), count)
            if begin < end:
                got[begin:end] = samples[begin - at:end - at]
            if at + len(samples) >= count:
                break
        if numpy.isnan(got).any():
            raise LookupError
        return got

    for order, ranges in orders.items():
        asked = wrong = failed = differing = 0
        largest = 0.0
        begin = time.monotonic()
        for first, count in ranges:
            if time.monotonic() - begin > seconds:
                break
            asked += 1
            try:
                got = read(first, count)
            except Exception:
                failed += 1
                continue
            wanted = truth[first:first + count]
            same = (got.view(numpy.uint32) == wanted.view(numpy.uint32)).all(axis=1)
            if not same.all():
                wrong += 1
                differing += int((~same).sum())
                largest = max(largest, float(numpy.abs(got.astype(float) - wanted).max()))
        took = time.monotonic() - begin
        print(f"{name},pyav,{order},{len(truth)},{asked},{wrong},{failed},{differing},{largest:g},{took:.3f},",
              flush=True)


main(sys.argv[1], sys.argv[2], sys.argv[3], float(sys.argv[4]))
