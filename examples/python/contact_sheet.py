"""Plots twelve pictures of a clip, spread over it, with their times:

    contact_sheet.py clip.mp4 sheet.png
"""

import sys

import matplotlib

matplotlib.use("Agg")
import matplotlib.pyplot as plt  # noqa: E402

import tarn_videoio as tv  # noqa: E402

with tv.VideoReader(sys.argv[1]) as v:
    batch = v.frames([place * (len(v) - 1) // 11 for place in range(12)])

figure, axes = plt.subplots(3, 4, figsize=(12, 8))
for axis, picture, number, time in zip(axes.flat, batch.data, batch.numbers, batch.times):
    axis.imshow(picture)
    axis.set_title(f"{number}: {float(time):.2f} s")
    axis.axis("off")
figure.savefig(sys.argv[2])
