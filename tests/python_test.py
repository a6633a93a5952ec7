#!/usr/bin/env python3
"""The Python package over the library of a build: python_test.py ZORSTAT RECORDING."""

import itertools
import resource
import subprocess
import sys
import unittest
from datetime import timedelta

from zor_process import Code, Engine, Error, Stage, Statistics, Template, Type, Values

ZORSTAT, RECORDING = sys.argv[1:]
BOTH = Statistics.SUMMARY | Statistics.PERCENTILE


def group_of(kind, statistics=BOTH, clear=None, expire=0, **settings):
    group = Engine().group("dg", clear=clear, expire=expire)
    group.object("x", statistics, **settings)
    group.start(Template("key", {"x": kind}))
    return group


def feed(group, values, key="i", column="x"):
    for value in values:
        with group.poll() as poll:
            poll.row(key, {column: value})
    return group


class PythonTest(unittest.TestCase):
    def test_recorded_polls_give_the_records_of_zorstat(self):
        command = [ZORSTAT, "replay", RECORDING, "--cumulative", "all", "--clear", "60"]
        records = subprocess.run(command, capture_output=True, check=True).stdout.decode().split("\r\n")
        with open(RECORDING) as file:
            (_, key, *columns), *rows = [line.rstrip("\n").split(",") for line in file]
        group = Engine().group("net", clear=60, statistics=BOTH, keep_readings=True)
        for column in columns:
            group.object(column, values=Values.COUNTER)
        group.start(Template(key, dict.fromkeys(columns, Type.UINT64)))
        for _, poll_rows in itertools.groupby(rows, lambda row: row[0]):
            with group.poll() as poll:
                for _, name, *values in poll_rows:
                    poll.row(name, dict(zip(columns, map(int, values))))
        group.clear()
        fields = [line.split(", ")[1:] for line in group.take_records().split("\r\n")]
        self.assertEqual(fields, [line.split(", ")[1:] for line in records])
        readings = [[r.object, r.name, *map(str, (r.samples, r.min, r.max, r.average))]
                    for r in group.take_readings()]
        self.assertEqual(readings, fields[:-1:2])

    def test_values_at_the_ends_of_their_types(self):
        for kind in Type:
            low, high = kind.range[0], kind.range[-1]
            group = feed(group_of(kind, buckets=10), [low, high])
            for bad in (low - 1, high + 1):
                self.assertRaisesRegex(OverflowError, f"'x': {bad} ", feed, group, [bad])
            r, = group.readings()
            self.assertEqual((r.samples, r.min, r.max, r.sum), (2, low, high, low + high))
            self.assertEqual((str(r.points[0]), str(r.points[8])), (f"{low}.000", f"{high}.000"))

    def test_counters(self):
        for kind, bounds, values, total, resets in [
            (Type.UINT64, None, [2**64 - 9, 2**64 - 1, 5], 13, 1),
            (Type.UINT32, None, [2**32 - 9, 2**32 - 1, 5], 14, 0),  # wraps
            (Type.UINT32, (0, 5), [2**32 - 9, 2**32 - 4, 1, 0], 10, 1),
            (Type.INT32, None, [2**31 - 1, -2**31, -5], 2**31 - 4, 0),
        ]:
            reading, = feed(group_of(kind, values=Values.COUNTER, range=bounds), values).readings()
            self.assertEqual((reading.sum, reading.resets), (total, resets), (kind, values))

    def test_points_are_those_of_the_cpp_header(self):
        group = group_of(Type.UINT64, values=Values.COUNTER, range=(0, 99999), buckets=10)
        feed(group, itertools.accumulate(range(1000, 40000, 1000)))
        reading, = feed(group, itertools.accumulate(range(41000, 60000, 1000), initial=500)).readings()
        self.assertEqual(" ".join(map(str, reading.points)), "500.000 582.809 1952.341 10545.845 29999.500 "
                         "50426.399 57768.800 58929.800 59000.000")
        self.assertEqual([b.count for b in reading.distribution.buckets], [9, 10, 10, 10, 9, 10, 0, 0, 0, 0])

    def test_a_baseline_learns_and_refuses(self):
        group = feed(group_of(Type.INT32, Statistics.BASELINE, learning=timedelta(minutes=3)), range(18))
        reading, = feed(group, [5, *range(-10**6, -13 * 10**6, -10**6)]).readings()
        self.assertEqual((reading.baseline, reading.min), (Stage.ANALYZING, -12 * 10**6))
        self.assertEqual((reading.samples, reading.distribution.below, reading.refused), (13, 12, 2))

    def test_refusals(self):
        engine = Engine()
        group = engine.group("a")
        for message, code, call in [
            ("control character", 1, lambda: engine.group("a\0b")),
            ("exists already", 1, lambda: engine.group("a")),
            ("not 1 to 65535 polls", 13, lambda: engine.group("b", clear=timedelta(days=8))),
            ("no type holds", 15, lambda: group.object("y", BOTH, range=(-1, 2**63))),
            ("'float'", None, lambda: feed(group_of(Type.INT32), [1.5])),
            ("of no column", 1, lambda: feed(group_of(Type.INT32), [1], column="y")),
        ]:
            with self.assertRaisesRegex((Error, TypeError), message) as raised:
                call()
            self.assertEqual(getattr(raised.exception, "code", None), code and Code(code), message)

    def test_instances_expire_and_nothing_leaks(self):
        group, peaks = feed(group_of(Type.UINT64, clear=1, expire=1, buckets=10), [1], "gone"), []
        for _ in range(1100):
            with group.poll() as poll:
                for i in range(100):
                    poll.row(f"i{i}", {"x": i})
            group.take_records()
            peaks.append(resource.getrusage(resource.RUSAGE_SELF).ru_maxrss)
        self.assertEqual(len(group.readings()), 100)
        self.assertLess(peaks[-1] - peaks[100], 2000)  # KiB: 20 bytes a record


unittest.main(argv=sys.argv[:1])
