#!/usr/bin/python3
"""Draws the percentile records of one instance, and behind them the samples that they summarise.

    zorstat replay data/cpu.csv --cumulative all --objects user --instances cpu --range 0:1999 --buckets 200 \\
        --clear 24 | docs/examples/plot_records.py data/cpu.csv user cpu >docs/records.svg

Arguments: the poll file, a column of it that counts up, and the instance.
"""

import csv
import sys

from parse_records import parse

WIDTH, HEIGHT, LEFT, BOTTOM = 860, 300, 46, 40
BANDS = [
    (0, 8, "#dbe7f5", "minimum to maximum"),
    (2, 6, "#aac8e8", "2.28 to 97.72 %"),
    (3, 5, "#6f9fd4", "15.87 to 84.13 %"),
]


def samples(path, column, instance):
    """The differences of a counter: (time, sample) for every poll but the first."""
    last = None
    with open(path, encoding="utf-8") as file:
        rows = csv.reader(file)
        index = next(rows).index(column)
        for row in rows:
            if row[1] == instance:
                if last is not None:
                    yield int(row[0]), int(row[index]) - last
                last = int(row[index])


def main():
    points = list(samples(*sys.argv[1:4]))
    records = [r for r in parse(sys.stdin) if r.kind == "percentile" and r.instance == sys.argv[3] and r.values]
    first, last = points[0][0], max(points[-1][0], records[-1].time)
    top = max(max(value for _, value in points), max(record.values[8] for record in records))

    def x(time):
        return round(LEFT + (time - first) / (last - first) * (WIDTH - LEFT - 10), 1)

    def y(value):
        return round(HEIGHT - BOTTOM - float(value) / float(top) * (HEIGHT - BOTTOM - 30), 1)

    out = [f'<svg xmlns="http://www.w3.org/2000/svg" width="{WIDTH}" height="{HEIGHT}" font-family="sans-serif" '
           f'font-size="11" fill="#444"><rect width="100%" height="100%" fill="#fff"/>']
    starts = [first] + [record.time for record in records]
    for low, high, colour, _ in BANDS:
        out.append(f'<path fill="{colour}" d="' + "".join(
            f"M{x(start)} {y(record.values[high])}H{x(record.time)}V{y(record.values[low])}H{x(start)}z"
            for start, record in zip(starts, records)) + '"/>')
    out.append('<path stroke="#222" stroke-linecap="round" stroke-width="2.6" d="' +
               "".join(f"M{x(time)} {y(value)}h0" for time, value in points) + '"/>')
    out.append('<path stroke="#c2571a" stroke-width="2.5" d="' + "".join(
        f"M{x(start)} {y(record.values[4])}H{x(record.time)}" for start, record in zip(starts, records)) + '"/>')
    for value in range(0, int(top) + 1, 500):
        out.append(f'<text x="{LEFT - 6}" y="{y(value) + 4}" text-anchor="end">{value}</text>')
    for minute in range(0, (last - first) // 60 + 1, 10):
        out.append(f'<text x="{x(first + 60 * minute)}" y="{HEIGHT - BOTTOM + 16}" text-anchor="middle">'
                   f'{minute} min</text>')
    legend = [(colour, text) for _, _, colour, text in BANDS] + [("#c2571a", "median"), ("#222", "samples")]
    for i, (colour, text) in enumerate(legend):
        out.append(f'<rect x="{LEFT + 150 * i}" y="8" width="10" height="10" fill="{colour}"/>'
                   f'<text x="{LEFT + 150 * i + 15}" y="17">{text}</text>')
    out.append(f'<text x="{LEFT}" y="{HEIGHT - 6}">{records[0].dg}, {records[0].object}, {records[0].instance}: '
               f'{len(points)} samples, {len(records)} records</text></svg>')
    print("\n".join(out))


if __name__ == "__main__":
    main()
