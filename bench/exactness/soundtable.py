"""Turns the results of bench/exactness/sound into the tables of docs/exactness.md:

    soundtable.py RESULTS.csv > table.md
"""

import collections
import csv
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


def main():
    clips = collections.defaultdict(lambda: collections.defaultdict(list))
    with open(sys.argv[1], newline="") as file:
        for row in csv.DictReader(file):
            clips[row["clip"]][row["reader"]].append(row)

    print("| reader | clips | refused | ranges | wrong | failed | samples that differ | by up to "
          "| clips with either |")
    print("|---|---|---|---|---|---|---|---|---|")
    for reader, title in zip(READERS, TITLES):
        found = [readers[reader] for readers in clips.values() if readers[reader]]
        total = sums_of(row for rows in found for row in rows)
        refused = sum(all(row["order"] == "none" for row in rows) for rows in found)
        inexact = sum(any(int(row["wrong"]) + int(row["failed"]) for row in rows) for rows in found)
        largest = max((float(row["largest"]) for rows in found for row in rows), default=0)
        print(f"| {title} | {len(found)} | {refused} | {total['asked']} | {total['wrong']} | "
              f"{total['failed']} | {total['differing']} | {largest:.2g} | {inexact} |")

    print("\n| clip | samples | " + " | ".join(TITLES) + " |")
    print("|---" * (len(TITLES) + 2) + "|")
    for clip, readers in clips.items():
        cells = [cell(readers[reader]) for reader in READERS]
        print(f"| {clip} | {readers['reader'][0]['samples']} | " + " | ".join(cells) + " |")


main()
