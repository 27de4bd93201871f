"""Writes a second of a moving square, with a tone:

    write_clip.py clip.mp4
"""

import sys

import numpy as np

import tarn_videoio as tv

RATE, SAMPLES = 25, 48000

with tv.VideoWriter(sys.argv[1], rate=RATE, audio_rate=SAMPLES) as w:
    for number in range(RATE):
        picture = np.zeros((120, 160, 3), np.uint8)
        picture[40:80, 4 * number:4 * number + 40] = (255, 128, 0)
        w.write(picture)
    seconds = np.arange(SAMPLES) / SAMPLES
    w.write_audio((np.sin(2 * np.pi * 440 * seconds) / 4).astype(np.float32))
