"""Frames by number through PyAV, in the way its documentation describes: seek to before the time, decode
up to it. The number of a frame is the place of its time among those of all packets.

    pyav.py NAME CLIP TRUTH SECONDS
"""

import sys
import time
import zlib

import av


def crc_of(frame):
    crc = 0
    for index, plane in enumerate(frame.planes):
        data = memoryview(plane)
        width = plane.width * BYTES.get((frame.format.name, index), 1)
        for row in range(plane.height):
            start = row * plane.line_size
            crc = zlib.crc32(data[start:start + width], crc)
    return crc


class Bytes(dict):
    """Bytes of a pixel in a plane, where it is not one."""

    def get(self, key, default):
        name, _ = key
        if "10le" in name or "12le" in name or "9le" in name or "gray16" in name:
            return 2
        return {"rgb24": 3, "bgr24": 3, "bgra": 4, "rgba": 4, "bgr0": 4}.get(name, default)


BYTES = Bytes()


def shuffled(frames):
    """The order that the other programs use: std::mt19937_64 with seed 7."""
    size, shift, mask = 312, 156, (1 << 64) - 1
    state = [7]
    for i in range(1, size):
        state.append((6364136223846793005 * (state[-1] ^ (state[-1] >> 62)) + i) & mask)
    position = size
    frames = list(frames)
    for left in range(len(frames), 1, -1):
        if position >= size:
            for i in range(size):
                y = (state[i] & 0xFFFFFFFF80000000) | (state[(i + 1) % size] & 0x7FFFFFFF)
                state[i] = state[(i + shift) % size] ^ (y >> 1) ^ (0xB5026F5AA96619E9 if y & 1 else 0)
            position = 0
        y = state[position]
        position += 1
        y ^= (y >> 29) & 0x5555555555555555
        y ^= (y << 17) & 0x71D67FFFEDA60000
        y ^= (y << 37) & 0xFFF7EEE000000000
        y ^= y >> 43
        at = y % left
        frames[left - 1], frames[at] = frames[at], frames[left - 1]
    return frames


def orders(count):
    wanted = 150 if count > 300 else count
    forward = [0 if wanted == 1 else i * (count - 1) // (wanted - 1) for i in range(wanted)]
    return {
        "forward": forward,
        "reverse": forward[::-1],
        "shuffled": shuffled(forward),
        "7th": list(range(0, min(count, 1050), 7)),
    }


def main(name, clip, truth_path, seconds):
    # Its own callback may wait for the interpreter, which waits for the decoder's threads.
    av.logging.restore_default_callback()
    with open(truth_path) as file:
        truth = [int(line) for line in file]
    try:
        with av.open(clip) as container:
            times = sorted(p.pts for p in container.demux(video=0) if p.pts is not None and p.size)
        container = av.open(clip)
        stream = container.streams.video[0]
        stream.thread_type = "AUTO"
    except Exception:
        print(f"{name},pyav,none,0,0,0,0,0,0,0,0,refused,0,")
        return

    def read(number):
        target = times[number]
        container.seek(target, stream=stream)
        for frame in container.decode(stream):
            if frame.pts is not None and frame.pts >= target:
                return crc_of(frame)
        raise LookupError

    for order, frames in orders(len(truth)).items():
        asked = wrong = failed = 0
        begin = time.monotonic()
        for number in frames:
            if time.monotonic() - begin > seconds:
                break
            asked += 1
            try:
                wrong += read(number) != truth[number]
            except Exception:
                failed += 1
        took = time.monotonic() - begin
        print(f"{name},pyav,{order},{len(truth)},{len(times)},{asked},{wrong},{failed},0,0,0,sound,{took:.3f},",
              flush=True)


main(sys.argv[1], sys.argv[2], sys.argv[3], float(sys.argv[4]))
