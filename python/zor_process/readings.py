"""Readings: the statistics of an instance as plain data. Number, extremes, sum and average are those of its
records; percentiles are estimated from its buckets as zor/process/readings.hpp does, to the digit: never outside
the extremes, always ascending, and there whenever a sample is."""

import ctypes
import enum
from dataclasses import dataclass
from decimal import Decimal
from typing import Any, Iterator, Optional

from ._library import ENTRIES, POINTS
from .settings import Type


class Stage(enum.IntEnum):
    """The stage of a baseline."""
    LEARNING = 0   # no sample is counted yet
    ANALYZING = 1  # the range is learnt
    FAILED = 2     # what was learnt could not be used; samples are refused


@dataclass
class Bucket:
    """Samples from first to last, both included."""
    first: int
    last: int
    count: int


@dataclass
class Distribution:
    """How the samples spread. Those of a baseline are the ones since it has learnt."""
    start: int  # the first value of the range
    last: int   # its last one; below start where the range is nothing but the type's largest value
    below: int  # samples below the range
    above: int  # samples above it
    buckets: list[Bucket]  # of the range, ascending, without gaps; those that hold no value are left out


@dataclass
class Reading:
    """The statistics of an instance, for the samples since the last clear; for a baseline, since it has learnt."""
    object: str
    name: str                   # of the instance
    samples: int = 0            # without any the next four are 0
    min: int = 0
    max: int = 0
    sum: int = 0                # exact
    average: Decimal = Decimal("0.000")           # cut to thousandths towards zero
    points: Optional[tuple[Decimal, ...]] = None  # at 0, 0.13, 2.28, 15.87, 50, 84.13, 97.72, 99.87 and 100 %
    distribution: Optional[Distribution] = None   # where one is kept; of a baseline, when it has learnt
    baseline: Optional[Stage] = None              # of a baseline
    refused: int = 0            # values since the last clear, see Group.refused
    resets: int = 0             # of the counter since the last clear, see Values.COUNTER


def _decimal(thousandths: int) -> Decimal:
    return Decimal(f"{thousandths}E-3")  # exact, whatever the context


@dataclass
class _Segment:
    """Samples of which only the smallest and largest possible value are known."""
    first: int
    last: int
    before: int  # samples of the segments below
    count: int

    def holds(self, sample: int) -> bool:
        return sample - self.before < self.count


class _Segments:
    """All samples of a distribution, as segments that ascend, and percentiles of them.

    Sample k of n, counted from 0, is taken to stand at first + (last - first) * (i + 1/2) / count, where i counts
    it in its segment: in the middle of its part. The samples 0 and n - 1 stand at the extremes. They take half a
    part of their segments, whose ends the extremes are; it is shared out to the others. A point p lies between the
    samples on both sides of p * (n - 1), by linear interpolation."""

    def __init__(self, low: int, high: int) -> None:
        self.low, self.high, self.total = low, high, 0
        self.list: list[_Segment] = []

    def add(self, first: int, last: int, count: int) -> None:
        """There are no samples beyond the extremes: the segment is cut to them."""
        if count != 0:
            first = min(max(first, self.low), self.high)
            self.list.append(_Segment(first, min(max(last, first), self.high), self.total, count))
            self.total += count

    def points(self) -> Optional[tuple[Decimal, ...]]:
        if self.total == 0:
            return None
        points, index = [], 0
        for point in POINTS:
            sample, rest = divmod(point * (self.total - 1), 100000)
            while not self.list[index].holds(sample):
                index += 1
            points.append(self._between(index, sample, rest / 100000))
        return tuple(map(_decimal, sorted(points)))  # of 64 bits, not all values are doubles

    def _place(self, segment: _Segment, sample: int) -> tuple[int, float]:
        """A value that need not be whole: of 64 bits, a double alone would lose digits."""
        if sample == 0:
            return self.low, 0.0
        if sample == self.total - 1:
            return self.high, 0.0
        head = 0.5 if segment.before == 0 else 0.0
        tail = 0.5 if segment.before + segment.count == self.total else 0.0
        part = sample - segment.before + 0.5 - head
        return segment.first, float(segment.last - segment.first) * part / (segment.count - head - tail)

    def _between(self, index: int, sample: int, share: float) -> int:
        """What lies between a sample and the next one, at this share of their distance, in thousandths."""
        segment = self.list[index]
        base, low = self._place(segment, sample)
        offset = low + 0.0005
        if share > 0:
            following = segment if segment.holds(sample + 1) else self.list[index + 1]
            next_base, next_offset = self._place(following, sample + 1)
            offset += share * max(0.0, float(next_base - base) + next_offset - low)
        if offset >= float(self.high - base):
            return self.high * 1000
        whole = int(offset)
        return (base + whole) * 1000 + int((offset - whole) * 1000)


def _read_buckets(counters: Any, start_of: Any) -> Iterator[Bucket]:
    first = counters.start
    for i, count in enumerate(counters.counts[:counters.buckets]):
        following = start_of(counters, i + 1)
        if following != first:  # else it holds no value
            yield Bucket(first, following - 1, count)
        first = following


def _nodes(side: Any) -> Iterator[Any]:
    node = side.head
    while node:
        yield node.contents
        node = ctypes.cast(node.contents.next, type(node))


def _read_distribution(kind: Type, counters: Any, dynamic: Any, segments: _Segments) -> Distribution:
    """A baseline has a few buckets outside the range, the dynamic ones. Of samples that found none only the number
    is known: they are taken to lie beyond the outermost bucket of their side."""
    start, end, lowest, highest = counters.start, counters.end, kind.range[0], kind.range[-1]
    below, above, lower, upper = counters.below, counters.above, [], []
    if dynamic:
        below, above, width = dynamic.below.exceptions, dynamic.above.exceptions, dynamic.width
        # Counted from the range on, so that the one at the type's smallest value can be narrower.
        lower = [Bucket(node.start, start - (start - node.start - 1) // width * width - 1, node.count)
                 for node in _nodes(dynamic.below)]
        upper = [Bucket(node.start, min(node.start + width - 1, highest), node.count)
                 for node in _nodes(dynamic.above)]
    buckets = list(_read_buckets(counters, ENTRIES[kind][1]))
    segments.add(lowest, (lower[0].first if lower else start) - 1, below)
    for bucket in lower + buckets + upper:
        segments.add(bucket.first, bucket.last, bucket.count)
    segments.add(min(upper[-1].last + 1, highest) if upper else end, highest, above)
    return Distribution(start, end - 1, below + sum(bucket.count for bucket in lower),
                        above + sum(bucket.count for bucket in upper), buckets)


def read(kind: Type, entry: Any, reading: Reading) -> None:
    """All that an entry holds but its refused values and resets."""
    analyzer = entry.analyzer.contents if entry.analyzer else None
    summary = analyzer.summary if analyzer else entry.summary.contents if entry.summary else None
    counters = entry.counters.contents if entry.counters else None
    if analyzer:
        reading.baseline = Stage(analyzer.stage)
        counters = analyzer.counters if reading.baseline == Stage.ANALYZING else None
    if summary and summary.count:
        reading.samples, reading.sum = summary.count, summary.total
        reading.min, reading.max = summary.min, summary.max
        average = abs(reading.sum) * 1000 // reading.samples
        reading.average = _decimal(average if reading.sum >= 0 else -average)
    if counters:
        segments = _Segments(reading.min, reading.max)
        reading.distribution = _read_distribution(kind, counters, analyzer and analyzer.dynamic, segments)
        if reading.samples:
            reading.points = segments.points()
