#!/usr/bin/env python3
"""Medians of the walks, and their ratios round by round: walks.py WALKS.csv"""

import collections
import csv
import statistics
import sys

MARKS = [  # task, ours, theirs
    ("50 random frames", ("tarn", "random"), ("ffms2", "random")),
    ("50 random frames", ("tarn", "random"), ("opencv", "random")),
    ("every 10th of 1000", ("tarn", "every10"), ("ffms2", "every10")),
    ("every 10th of 1000", ("tarn", "every10"), ("opencv", "every10")),
    ("every 10th of 1000", ("tarn", "every10"), ("opencv", "every10-set")),
]

with open(sys.argv[1], newline="") as file:
    rows = list(csv.DictReader(file))
clips = list(dict.fromkeys(row["clip"] for row in rows))
# (clip, reader, task) -> round -> (seconds, CPU seconds)
measured = collections.defaultdict(dict)
for row in rows:
    key = row["clip"], row["reader"], row["task"]
    measured[key][row["round"]] = float(row["seconds"]), float(row["cpu"])


def spread(values):
    return f"{statistics.median(values):.2f} ({min(values):.2f} to {max(values):.2f})"


print("\n| reader | task |", " | ".join(f"{clip}: s | CPU s" for clip in clips), "|")
print("|---" * (2 + 2 * len(clips)) + "|")
for reader, task in dict.fromkeys((row["reader"], row["task"]) for row in rows):
    cells = [
        spread([round[part] for round in measured[clip, reader, task].values()])
        for clip in clips
        for part in (0, 1)
    ]
    print(f"| {reader} | {task} |", " | ".join(cells), "|")

print("\n| walk | ours to |", " | ".join(f"{clip}: time | CPU" for clip in clips), "|")
print("|---" * (2 + 2 * len(clips)) + "|")
for name, ours, theirs in MARKS:
    cells = []
    for clip in clips:
        for part in (0, 1):
            own, other = measured[(clip, *ours)], measured[(clip, *theirs)]
            cells.append(spread([own[round][part] / other[round][part] for round in own]))
    print(f"| {name} | {theirs[0]}, {theirs[1]} |", " | ".join(cells), "|")
