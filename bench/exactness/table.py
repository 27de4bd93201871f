"""Turns the results of bench/exactness/run into the table of docs/exactness.md:

    table.py RESULTS.csv > table.md
"""

import collections
import csv
import sys

READERS = ["reader", "checksums", "seek", "ffms2", "opencv", "pyav"]
TITLES = ["FrameReader", "with checksums", "`seek`", "FFMS2", "OpenCV", "PyAV"]
COUNTS = ["asked", "wrong", "failed", "retried", "linear"]


def cell(rows):
    """What one reader made of one clip."""
    if not rows or all(row["order"] == "none" for row in rows):
        return "refused" if rows else ""
    total = {count: sum(int(row[count]) for row in rows) for count in COUNTS}
    parts = [f"{total['wrong']} wrong"] if total["wrong"] else []
    if total["failed"]:
        parts.append(f"{total['failed']} failed")
    text = ", ".join(parts) + f" of {total['asked']}" if parts else f"exact: {total['asked']}"
    remarks = [f"{total[name]} {name}" for name in ("retried", "linear") if total[name]]
    return text + (f" ({', '.join(remarks)})" if remarks else "")


def main():
    clips = collections.defaultdict(lambda: collections.defaultdict(list))
    with open(sys.argv[1], newline="") as file:
        for row in csv.DictReader(file):
            clips[row["clip"]][row["reader"]].append(row)

    print("| clip | frames | " + " | ".join(TITLES) + " |")
    print("|---" * (len(TITLES) + 2) + "|")
    sums = {reader: collections.Counter() for reader in READERS}
    for clip, readers in clips.items():
        rows = readers["reader"]
        frames = rows[0]["frames"] if rows else ""
        damaged = any(row["state"] == "damaged" for row in readers["checksums"])
        cells = [cell(readers[reader]) for reader in READERS]
        print(f"| {clip}{' (damaged)' if damaged else ''} | {frames} | " + " | ".join(cells) + " |")
        for reader in READERS:
            found = readers[reader]
            sums[reader]["clips"] += bool(found)
            sums[reader]["refused"] += bool(found) and all(r["order"] == "none" for r in found)
            bad = sum(int(row["wrong"]) + int(row["failed"]) for row in found)
            sums[reader]["inexact"] += bad > 0
            for count in COUNTS:
                sums[reader][count] += sum(int(row[count]) for row in found)

    print("\n| reader | clips | refused | accesses | wrong | failed | clips with either |")
    print("|---|---|---|---|---|---|---|")
    for reader, title in zip(READERS, TITLES):
        s = sums[reader]
        print(f"| {title} | {s['clips']} | {s['refused']} | {s['asked']} | {s['wrong']} | "
              f"{s['failed']} | {s['inexact']} |")


main()
