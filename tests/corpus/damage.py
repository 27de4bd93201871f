"""Changes bytes of a file at random places, the same ones each time:
    python3 damage.py SEED DISTANCE FILE DAMAGED
One byte in DISTANCE on average gets another value."""

import random
import sys

seed, distance, source, target = sys.argv[1:]
chance = random.Random(int(seed))
with open(source, "rb") as file:
    data = bytearray(file.read())
place = -1
while True:
    # random() alone gives the same numbers on every release of Python.
    place += 1 + int(chance.random() * (2 * int(distance) - 1))
    if place >= len(data):
        break
    data[place] ^= 1 + int(chance.random() * 255)
with open(target, "wb") as file:
    file.write(data)
