"""Turns the results of bench/exactness/sound into the tables of docs/exactness.md:

    soundtable.py RESULTS.csv FOLDER_OF_MADE_CLIPS > table.md

The made clips are put together by what comes before the first dot of their names, after which the
container stands.
"""

import collections
import csv
import os
import re
import sys

READERS = ["reader", "checksums", "ffms2", "pyav"]
TITLES = ["SampleReader", "with checksums", "FFMS2", "PyAV"]
COUNTS = ["asked", "wrong", "failed", "differing"]


def sums_of(rows):
    total = collections.Counter()
    for row in rows:
        total.update({count: int(row[count]) for count in COUNTS})
    return total


def cell(rows):
    """What one reader made of one clip: ranges, and how many were wrong or did not come."""
    if not rows or all(row["order"] == "none" for row in rows):
        return "refused" if rows else ""
    total = sums_of(rows)
    parts = [f"{total['wrong']} wrong"] if total["wrong"] else []
    if total["failed"]:
        parts.append(f"{total['failed']} failed")
    return ", ".join(parts) + f" of {total['asked']}" if parts else f"exact: {total['asked']}"


def codec_of(clip):
    """Of a made clip: "aac-5.1.fragments.mp4" is of "aac-5.1"."""
    return re.match(r"(?:[^.]|\.\d)+", clip).group()


def print_sums(title, clips):
    print(f"\n{title}\n\n| reader | clips | refused | ranges | wrong | failed | samples that differ | by up to "
          "| clips with either |")
    print("|---|---|---|---|---|---|---|---|---|")
    for reader, name in zip(READERS, TITLES):
        found = [readers[reader] for readers in clips.values() if readers[reader]]
        total = sums_of(row for rows in found for row in rows)
        refused = sum(all(row["order"] == "none" for row in rows) for rows in found)
        inexact = sum(any(int(row["wrong"]) + int(row["failed"]) for row in rows) for rows in found)
        largest = max((float(row["largest"]) for rows in found for row in rows), default=0)
        print(f"| {name} | {len(found)} | {refused} | {total['asked']} | {total['wrong']} | "
              f"{total['failed']} | {total['differing']} | {largest:.2g} | {inexact} |")


def print_made(clips):
    codecs = collections.defaultdict(dict)
    for clip, readers in clips.items():
        codecs[codec_of(clip)][clip] = readers
    print("\n| codec | containers | " + " | ".join(TITLES) + " |")
    print("|---" * (len(TITLES) + 2) + "|")
    for codec, its in sorted(codecs.items()):
        cells = [cell([row for readers in its.values() for row in readers[reader]])
                 for reader in READERS]
        containers = ", ".join(clip[len(codec) + 1:] for clip in sorted(its))
        print(f"| {codec} | {containers} | " + " | ".join(cells) + " |")


def print_real(clips):
    print("\n| clip | samples | " + " | ".join(TITLES) + " |")
    print("|---" * (len(TITLES) + 2) + "|")
    for clip, readers in clips.items():
        cells = [cell(readers[reader]) for reader in READERS]
        print(f"| {clip} | {readers['reader'][0]['samples']} | " + " | ".join(cells) + " |")


def main():
    made_names = set(os.listdir(sys.argv[2]))
    made, real = (collections.defaultdict(lambda: collections.defaultdict(list)) for _ in range(2))
    with open(sys.argv[1], newline="") as file:
        for row in csv.DictReader(file):
            clips = made if row["clip"] in made_names else real
            clips[row["clip"]][row["reader"]].append(row)
    print_sums("Made clips:", made)
    print_sums("Real clips:", real)
    print_made(made)
    print_real(real)


main()
