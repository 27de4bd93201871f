"""One piece of work in Python by one library: peers.py WHO TASK CLIP TARGET [--check]

WHO is tarn, pyav or opencv. Prints the CPU seconds from before opening to the last result, and how much it
gave. With --check it prints what was right and what was asked for instead: pictures are compared with the
same library's own reading from start to end, because each converts colours in its own way; samples too, and
written pictures by the times that ffprobe finds. All decode with one thread.
"""

import hashlib
import os
import subprocess
import sys
import time
from fractions import Fraction

import numpy as np

from orders import BLOCKS, RATE, SAMPLES, WRITTEN, numbers_of, times_of

os.environ["OPENCV_FFMPEG_CAPTURE_OPTIONS"] = "threads;1"
os.environ["OPENCV_FFMPEG_WRITER_OPTIONS"] = "preset;veryfast|crf;23|bf;0"


class Tarn:
    def __init__(self):
        import tarn_videoio
        self.tv = tarn_videoio

    def open(self, clip):
        self.v = self.tv.VideoReader(clip)

    def order(self):
        return iter(self.v)

    def one_by_one(self, numbers):
        return (self.v[number] for number in numbers)

    def batch(self, numbers):
        return self.v[numbers]

    def by_time(self, times):
        return (self.v.frame_at(one).data for one in times)

    def every(self, step):
        return iter(self.v[::step])

    def sound(self, clip, begins):
        a = self.tv.AudioReader(clip)
        return (a[first:first + SAMPLES] for first in begins)

    def all_sound(self, clip):
        return self.tv.AudioReader(clip)[:]

    def write(self, path, pictures):
        with self.tv.VideoWriter(path, rate=RATE, preset="veryfast", crf=23, options={"bf": 0}) as w:
            for picture in pictures:
                w.write(picture)


class Pyav:
    """As its documentation has it: seek to before the time, decode up to it."""

    def __init__(self):
        import av
        av.logging.restore_default_callback()
        self.av = av

    def open(self, clip):
        self.container = self.av.open(clip)
        self.stream = self.container.streams.video[0]
        self.stream.codec_context.thread_count = 1
        self.start = self.stream.start_time or 0

    def order(self):
        return (frame.to_ndarray(format="rgb24") for frame in self.container.decode(self.stream))

    def by_time(self, times):
        for one in times:
            target = self.start + int(one / self.stream.time_base)
            self.container.seek(target, stream=self.stream)
            found = None
            for frame in self.container.decode(self.stream):
                if frame.pts > target and found is not None:
                    break
                found = frame
            yield found.to_ndarray(format="rgb24")

    def one_by_one(self, numbers):
        ticks = 1 / (self.stream.average_rate * self.stream.time_base)
        for number in numbers:
            target = self.start + round(number * ticks)
            self.container.seek(target, stream=self.stream)
            for frame in self.container.decode(self.stream):
                if frame.pts >= target:
                    yield frame.to_ndarray(format="rgb24")
                    break

    def batch(self, numbers):
        return np.stack(list(self.one_by_one(numbers)))

    def every(self, step):
        for place, frame in enumerate(self.container.decode(self.stream)):
            if place % step == 0:
                yield frame.to_ndarray(format="rgb24")

    def _blocks(self, container):
        resampler = self.av.AudioResampler(format="flt")
        for frame in container.decode(audio=0):
            for block in resampler.resample(frame):
                yield frame, block.to_ndarray().reshape(-1, len(frame.layout.channels))

    def sound(self, clip, begins):
        container = self.av.open(clip)
        stream = container.streams.audio[0]
        for first in begins:
            # Some blocks earlier: AAC needs the one before.
            target = int(Fraction(first - 4096, stream.rate) / stream.time_base)
            container.seek(max(0, target), stream=stream)
            parts, begin = [], None
            for frame, block in self._blocks(container):
                if begin is None:
                    begin = round(frame.pts * stream.time_base * stream.rate)
                parts.append(block)
                if begin + sum(map(len, parts)) >= first + SAMPLES:
                    break
            yield np.concatenate(parts)[first - begin:first - begin + SAMPLES]

    def all_sound(self, clip):
        return np.concatenate([block for _, block in self._blocks(self.av.open(clip))])

    def write(self, path, pictures):
        with self.av.open(path, "w") as container:
            stream = container.add_stream("libx264", rate=RATE, options={
                "preset": "veryfast", "crf": "23", "bf": "0"})
            stream.height, stream.width, _ = pictures[0].shape
            stream.pix_fmt, stream.bit_rate = "yuv420p", 0
            for picture in pictures:
                container.mux(stream.encode(self.av.VideoFrame.from_ndarray(picture, format="rgb24")))
            container.mux(stream.encode())


class Opencv:
    """Pictures are BGR."""

    def __init__(self):
        import cv2
        cv2.setNumThreads(1)
        self.cv2 = cv2

    def open(self, clip):
        self.video = self.cv2.VideoCapture(clip, self.cv2.CAP_FFMPEG)

    def order(self):
        while True:
            done, picture = self.video.read()
            if not done:
                return
            yield picture

    def _at(self, what, places):
        for place in places:
            self.video.set(what, place)
            yield self.video.read()[1]

    def one_by_one(self, numbers):
        return self._at(self.cv2.CAP_PROP_POS_FRAMES, numbers)

    def by_time(self, times):
        return self._at(self.cv2.CAP_PROP_POS_MSEC, [float(1000 * one) for one in times])

    def batch(self, numbers):
        return np.stack(list(self.one_by_one(numbers)))

    def every(self, step):
        place = 0
        while self.video.grab():
            if place % step == 0:
                yield self.video.retrieve()[1]
            place += 1

    def write(self, path, pictures):
        height, width, _ = pictures[0].shape
        writer = self.cv2.VideoWriter(path, self.cv2.CAP_FFMPEG, self.cv2.VideoWriter_fourcc(*"avc1"),
                                      float(RATE), (width, height))
        for picture in pictures:
            writer.write(picture)
        writer.release()


def work(peer, task, clip):
    """What the task gives, one by one."""
    if task == "sound":
        return peer.sound(clip, BLOCKS)
    peer.open(clip)
    if task == "order":
        return peer.order()
    if task == "every 10th":
        return peer.every(10)
    if task == "by time":
        return peer.by_time(times_of(clip))
    return (peer.batch if task == "batch" else peer.one_by_one)(numbers_of(clip))


def wanted(task, clip, count):
    """The numbers of the pictures that a task should give."""
    if task == "order":
        return range(count)
    if task == "every 10th":
        return range(0, count, 10)
    return numbers_of(clip)


def key(picture):
    return None if picture is None else hashlib.md5(picture.tobytes()).digest()


def check(peer, task, clip, target):
    if task == "write":
        peer.write(target, [np.full((120, 160, 3), 3 * n, np.uint8) for n in range(WRITTEN)])
        told = subprocess.run(["ffprobe", "-v", "error", "-select_streams", "v", "-show_entries",
                               "frame=pts_time", "-of", "csv=p=0", target], stdout=subprocess.PIPE,
                              check=True).stdout.decode().replace(",", " ").split()
        return sum(abs(float(one) - n / RATE) < 1e-5 for n, one in enumerate(told)), WRITTEN
    if task == "sound":
        whole = peer.all_sound(clip)
        return sum(np.array_equal(part, whole[first:first + SAMPLES])
                   for first, part in zip(BLOCKS, peer.sound(clip, BLOCKS))), len(BLOCKS)
    peer.open(clip)
    truth = [key(picture) for picture in peer.order()]
    numbers = wanted(task, clip, len(truth))
    return sum(key(picture) == truth[number]
               for number, picture in zip(numbers, work(peer, task, clip))), len(numbers)


def main(who, task, clip, target):
    peer = {"tarn": Tarn, "pyav": Pyav, "opencv": Opencv}[who]()
    if task == "sound" and who == "opencv":
        sys.exit(2)
    if "--check" in sys.argv:
        print(*check(peer, task, clip, target))
        return
    if task == "write":
        pictures = [np.roll(picture, 7, 1) for picture in np.load(clip)]
    begin = time.process_time()
    count = 0
    if task == "write":
        peer.write(target, pictures)
        count = len(pictures)
    else:
        for _ in work(peer, task, clip):
            count += 1
    print(f"{time.process_time() - begin:.6f} {count}")


main(*sys.argv[1:5])
