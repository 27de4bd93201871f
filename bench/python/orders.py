"""What is asked of a clip: the same of every library."""

import random
import subprocess
from fractions import Fraction

RATE = Fraction(25)
WRITTEN = 75  # pictures
SAMPLES = 4800  # of a range
# Where ranges of sound begin, with odd and even places.
BLOCKS = [random.Random(3).randrange(5000, 340000) for _ in range(40)]
ASKED = 32


def count_of(clip):
    return int(subprocess.run(["ffprobe", "-v", "error", "-select_streams", "v", "-show_entries",
                               "stream=nb_frames", "-of", "csv=p=0", clip], stdout=subprocess.PIPE,
                              check=True).stdout.decode().strip().rstrip(","))


def numbers_of(clip):
    return random.Random(7).sample(range(count_of(clip)), ASKED)


def times_of(clip):
    """In the middle of the same pictures."""
    return [(number + Fraction(1, 2)) / RATE for number in numbers_of(clip)]
