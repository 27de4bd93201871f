"""Makes the tables of docs/reliability.md of what `run` has measured:
    python3 table.py RESULTS.csv EXPLAINED.txt
EXPLAINED.txt has three columns, with " ;; " between them: a pattern of OUTCOME/FILE/ENTRY POINT, a
pattern of what is said of it, and why that is so. Fails on what is not equal and not explained."""

import csv
import re
import sys

OUTCOMES = ["equal", "refused", "differs", "crash", "hang"]

with open(sys.argv[1], newline="") as file:
    rows = list(csv.DictReader(file))
with open(sys.argv[2]) as file:
    explained = [line.rstrip("\n").split(" ;; ") for line in file if not line.startswith("#")]


def reason(row):
    """Why a row is no plain success; None when nobody knows."""
    key = "/".join([row["outcome"], row["file"], row["entry point"]])
    for pattern, note, why in explained:
        if re.search(pattern, key) and re.search(note, row["note"]):
            return why
    return None


entries = list(dict.fromkeys(row["entry point"] for row in rows))
print(f"{len({row['file'] for row in rows})} files, {len(rows)} outcomes.\n")
print("| entry point | " + " | ".join(OUTCOMES) + " |")
print("|---|" + "---:|" * len(OUTCOMES))
for entry in entries + ["all"]:
    of_entry = [row for row in rows if entry in (row["entry point"], "all")]
    counts = [sum(row["outcome"] == outcome for row in of_entry) for outcome in OUTCOMES]
    print(f"| {entry} | " + " | ".join(str(count) for count in counts) + " |")

timed = [row for row in rows if row["seconds"]]
timed.sort(key=lambda row: -float(row["seconds"]))
print("\nWhat took the library longest:\n")
print("| seconds | file | entry point |")
print("|---:|---|---|")
for row in timed[:10]:
    print(f"| {float(row['seconds']):.1f} | {row['file']} | {row['entry point']} |")

unexplained = []
reasons = {}
for row in rows:
    if row["outcome"] == "equal":
        continue
    why = reason(row)
    if why is None:
        unexplained.append(row)
        why = "**not explained**: " + row["note"]
    reasons.setdefault((row["outcome"], row["entry point"], why), []).append(row["file"])

print("\n## Whatever is not equal\n")
print("| outcome | entry point | why | files |")
print("|---|---|---|---|")
for (outcome, entry, why), files in sorted(reasons.items()):
    print(f"| {outcome} | {entry} | {why.replace('|', '/')} | {len(files)}: {', '.join(sorted(files))} |")

for row in unexplained:
    print(f"not explained: {row['file']}: {row['entry point']}: {row['outcome']}: {row['note']}",
          file=sys.stderr)
sys.exit(1 if unexplained else 0)
