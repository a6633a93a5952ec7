#!/usr/bin/python3
"""Draws docs/performance-*.svg from the figures of script/bench. Needs python3-matplotlib.

    bench/plot.py [FIGURES.json [DIRECTORY]]
"""

import json
import sys
from pathlib import Path

import matplotlib

matplotlib.use("svg")
import matplotlib.pyplot as plt

ROOT = Path(__file__).resolve().parent.parent
STYLES = {
    "ours": ("libzor_process", "#1f5fa8", "o"),
    "floor": ("three cache lines", "#999999", "s"),
    "gsl": ("GSL histogram", "#c2571a", "^"),
}


def read(path):
    return {run["name"]: run for run in json.loads(Path(path).read_text())["benchmarks"]}


def series(runs, prefix, key):
    """Points (x, median, p25, p75) of the scenarios prefix/x, ascending."""
    found = []
    for name, run in runs.items():
        head, _, x = name.rpartition("/")
        if head == prefix and key in run:
            found.append((int(x), run[key], run[key + "_p25"], run[key + "_p75"]))
    return sorted(found)


def widths(runs, key):
    """The same for the percentiles, whose widths are in the names of the counters."""
    run = runs.get("percentiles/width", {})
    names = [name for name in run if name.startswith(key + "_") and name.count("_") == 1]
    return sorted((int(n.rpartition("_")[2]), run[n], run[n + "_p25"], run[n + "_p75"]) for n in names)


def draw(path, title, x_label, lines, y_label="ns per sample", log_x=True, powers=False):
    lines = [line for line in lines if line[1]]
    if not lines:
        print(f"no figures for {path.name}", file=sys.stderr)
        return
    figure, axes = plt.subplots(figsize=(4.6, 2.9), layout="constrained")
    for key, points, *label in lines:
        name, colour, marker = STYLES[key]
        x, median, low, high = zip(*points)
        shuffled = bool(label)
        axes.plot(x, median, "--" if shuffled else "-", color=colour, marker=marker, markersize=4,
                  linewidth=1.4, label=name + "".join(label))
        axes.fill_between(x, low, high, color=colour, alpha=0.15, linewidth=0)
    if log_x:
        axes.set_xscale("log")
    ticks = sorted({point[0] for line in lines for point in line[1]})
    axes.set_xticks(ticks, [f"$2^{{{t}}}$" if powers else f"{t:,}" for t in ticks])
    axes.minorticks_off()
    axes.set_ylim(bottom=0)
    axes.set_title(title, fontsize=10)
    axes.set_xlabel(x_label, fontsize=9)
    axes.set_ylabel(y_label, fontsize=9)
    axes.tick_params(labelsize=8)
    axes.grid(alpha=0.25)
    axes.spines[["top", "right"]].set_visible(False)
    axes.legend(fontsize=8, frameon=False)
    figure.savefig(path, metadata={"Date": None})
    plt.close(figure)
    print(path)


def main():
    source = sys.argv[1] if len(sys.argv) > 1 else ROOT / "build/bench/bench.json"
    docs = Path(sys.argv[2]) if len(sys.argv) > 2 else ROOT / "docs"
    docs.mkdir(exist_ok=True)
    plt.rcParams["svg.hashsalt"] = "performance"
    runs = read(source)
    draw(docs / "performance-instances.svg", "Rows of 10 columns", "instances",
         [("ours", series(runs, "rows_stable", "ours")), ("floor", series(runs, "rows_stable", "floor")),
          ("ours", series(runs, "rows_shuffled", "ours"), ", shuffled"),
          ("floor", series(runs, "rows_shuffled", "floor"), ", shuffled")])
    draw(docs / "performance-columns.svg", "10,000 statistics in rows of different length", "columns",
         [("ours", series(runs, "scaling/columns", "ours")), ("floor", series(runs, "scaling/columns", "floor"))])
    draw(docs / "performance-buckets.svg", "1,000 instances × 10 columns", "buckets",
         [("ours", series(runs, "scaling/buckets", "ours"))])
    draw(docs / "performance-width.svg", "1,000 instances × 10 columns, distribution", "width of the range",
         [("ours", series(runs, "scaling/width", "ours"))], log_x=False, powers=True)
    draw(docs / "performance-percentiles.svg", "Nine percentiles of 2,000 samples in 100 buckets",
         "width of the range", [("ours", widths(runs, "ours")), ("gsl", widths(runs, "gsl"))],
         y_label="ns", log_x=False, powers=True)


if __name__ == "__main__":
    main()
