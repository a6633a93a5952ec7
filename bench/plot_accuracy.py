#!/usr/bin/python3
"""Draws docs/percentiles-accuracy.svg from the figures of `accuracy --csv`. Needs python3-matplotlib.

    build/bench/bench/accuracy --csv | bench/plot_accuracy.py [FILE.svg]
"""

import csv
import sys
from collections import defaultdict
from pathlib import Path

import matplotlib

matplotlib.use("svg")
import matplotlib.pyplot as plt

DOCS = Path(__file__).resolve().parent.parent / "docs"
COLOURS = ["#1f5fa8", "#c2571a", "#3a8a3a", "#8a3a8a", "#777777"]


def main():
    path = sys.argv[1] if len(sys.argv) > 1 else DOCS / "percentiles-accuracy.svg"
    plt.rcParams["svg.hashsalt"] = "accuracy"
    kinds = defaultdict(list)
    for row in csv.DictReader(sys.stdin):
        kinds[row["kind"]].append(row)
    figure, panels = plt.subplots(1, 2, figsize=(9, 3.4), sharey=True, layout="constrained")
    for axes, point, title in zip(panels, ("median", "upper"), ("Median", "97.72 %")):
        for colour, (kind, rows) in zip(COLOURS, kinds.items()):
            buckets = [int(row["buckets"]) for row in rows]
            readings = [100 * float(row[point + "_reading"]) for row in rows]
            records = [100 * float(row[point + "_record"]) for row in rows]
            axes.plot(buckets, readings, color=colour, marker="o", markersize=4, linewidth=1.4, label=kind)
            axes.plot(buckets, records, ":", color=colour, linewidth=1.2)
        axes.set_xscale("log")
        axes.set_yscale("log")
        axes.set_title(title, fontsize=10)
        axes.set_xlabel("buckets over 0 to 999,999", fontsize=9)
        axes.tick_params(labelsize=8)
        axes.grid(alpha=0.25)
        axes.spines[["top", "right"]].set_visible(False)
    panels[0].set_ylabel("error, % of the exact value", fontsize=9)
    panels[1].legend(fontsize=8, frameon=False)
    figure.savefig(path, metadata={"Date": None})
    print(path)


if __name__ == "__main__":
    main()
