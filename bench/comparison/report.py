#!/usr/bin/env python3
"""The tables and the picture of bench/compare: report.py RESULTS.csv

Writes table.md and ratios.svg beside the results.
"""

import collections
import csv
import pathlib
import statistics
import sys

from plan import CONVERTING, LIMIT, MARK_LOOP, MARK_PEER, OURS, READER, WORK


def read(path):
    """(work, who) -> round -> that run."""
    runs = collections.defaultdict(dict)
    with open(path, newline="") as file:
        for row in csv.DictReader(file):
            runs[row["work"], row["who"]][int(row["round"])] = row
    return runs


def ratios(runs, work, other, part="seconds"):
    """Ours to another's, round by round."""
    ours, theirs = runs[work, OURS], runs[work, other]
    return [float(ours[n][part]) / float(theirs[n][part]) for n in ours if n in theirs]


def median(runs, work, who, part="seconds"):
    return statistics.median(float(run[part]) for run in runs[work, who].values())


def spread(values):
    if not values:
        return ""
    return f"{statistics.median(values):.2f} ({min(values):.2f} to {max(values):.2f})"


def peers_of(runs, work):
    return [who for (label, who) in runs
            if label == work and who not in (OURS, READER, LIMIT, CONVERTING)]


def best_peer(runs, work, task):
    there = peers_of(runs, work)
    wanted = MARK_PEER.get(task)
    if wanted:
        return wanted if wanted in there else None
    return min(there, key=lambda who: median(runs, work, who), default=None)


def verdict(value, mark):
    if mark is None or value is None:
        return ""
    return f"≤ {mark:.2f}: " + ("reached" if round(value, 2) <= mark else "missed")


def middle(values):
    return statistics.median(values) if values else None


def mark_rows(runs):
    for work, task, _, _, loop_mark, peer_mark in WORK:
        if not runs.get((work, OURS)):
            continue
        loop = MARK_LOOP.get(task, LIMIT)
        peer = best_peer(runs, work, task)
        to_loop = ratios(runs, work, loop)
        to_peer = ratios(runs, work, peer) if peer else []
        yield (work, spread(to_loop), verdict(middle(to_loop), loop_mark),
               f"{spread(to_peer)} {peer or ''}".strip(), verdict(middle(to_peer), peer_mark),
               spread(ratios(runs, work, LIMIT, "cpu")), spread(ratios(runs, work, LIMIT, "peak")))


def figures(runs):
    everyone = list(dict.fromkeys(who for _, who in runs))
    yield ["work", *everyone]
    for work, *_ in WORK:
        if runs.get((work, OURS)):
            yield [work] + [
                f"{median(runs, work, who):.2f} s, {median(runs, work, who, 'peak') / 2**20:.0f} MiB"
                if runs.get((work, who)) else "" for who in everyone]


def table(rows):
    rows = [list(row) for row in rows]
    lines = ["| " + " | ".join(row) + " |" for row in rows]
    return "\n".join([lines[0], "|" + "---|" * len(rows[0]), *lines[1:]])


def disagreements(runs):
    """Work of which not everybody gave the same number of pictures, samples or packets."""
    for work, *_ in WORK:
        counts = {who: next(iter(run.values()))["count"]
                  for (label, who), run in runs.items() if label == work and run}
        counts = {who: count for who, count in counts.items() if count.isdigit()}
        if len(set(counts.values())) > 1:
            yield f"- {work}: " + ", ".join(f"{who} {count}" for who, count in counts.items())


def draw(runs, path):
    import matplotlib

    matplotlib.use("svg")
    from matplotlib import pyplot

    matplotlib.rcParams["svg.hashsalt"] = "tarn"
    works = [work for work, *_ in WORK if runs.get((work, OURS))][::-1]
    figure, axes = pyplot.subplots(figsize=(9, 0.42 * len(works) + 1.4))
    axes.axvline(1, color="black", linewidth=1)
    names = [who for who in dict.fromkeys(who for _, who in runs) if who != OURS]
    markers = dict(zip(names, "osD^vPX*"))
    for name in names:
        there = [(row, ratios(runs, work, name)) for row, work in enumerate(works)
                 if runs.get((work, name))]
        axes.errorbar([statistics.median(values) for _, values in there], [row for row, _ in there],
                      xerr=[[statistics.median(values) - min(values) for _, values in there],
                            [max(values) - statistics.median(values) for _, values in there]],
                      fmt=markers[name], label=name, markersize=5, capsize=2, linewidth=1)
    axes.set_xscale("log", base=2)
    ticks = [1 / 16, 1 / 8, 1 / 4, 1 / 2, 1, 2]
    axes.set_xticks(ticks, [f"{tick:.2g}" for tick in ticks])
    axes.set_yticks(range(len(works)), works)
    axes.set_xlabel("our time divided by theirs: left of 1 we are faster")
    axes.grid(axis="x", alpha=0.3)
    axes.legend(loc="lower left", fontsize=8)
    figure.tight_layout()
    figure.savefig(path, metadata={"Date": None})
    lines = pathlib.Path(path).read_text().splitlines()
    pathlib.Path(path).write_text("".join(line.rstrip() + "\n" for line in lines))


def main(path):
    runs = read(path)
    folder = pathlib.Path(path).parent
    head = ("work", "time to the loop", "mark", "time to the best peer", "mark",
            "CPU time to the loop", "peak memory to the loop")
    text = table([head, *mark_rows(runs)]) + "\n\n" + table(figures(runs)) + "\n"
    differing = list(disagreements(runs))
    if differing:
        text += "\nNot everybody counted the same:\n\n" + "\n".join(differing) + "\n"
    (folder / "table.md").write_text(text)
    print(text)
    try:
        draw(runs, folder / "ratios.svg")
    except ImportError:
        print("no picture: python3-matplotlib is not installed", file=sys.stderr)


if __name__ == "__main__":
    main(sys.argv[1])
