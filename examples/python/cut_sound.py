"""Cuts a part out of the sound of a clip, to the sample; the ends are seconds, such as 1/2:

    cut_sound.py clip.mp4 1/2 3/2 part.wav
"""

import sys

import tarn_videoio as tv

source, begin, end, target = sys.argv[1:5]
with tv.AudioReader(source) as a:
    samples = a.between(begin, end)
    with tv.AudioWriter(target, a.rate, codec="pcm_f32le") as w:
        w.write(samples)
print(f"{len(samples)} samples")
