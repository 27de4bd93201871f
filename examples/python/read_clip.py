"""Prints when each key picture of a clip is shown, and how bright it is:

    read_clip.py clip.mp4
"""

import sys

import tarn_videoio as tv

with tv.VideoReader(sys.argv[1], format="gray8") as v:
    for number in v.key_frames:
        frame = v.frame(int(number))
        print(f"{frame.number:6} {float(frame.time):9.3f} s {frame.data.mean():6.1f}")
