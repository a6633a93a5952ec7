#!/usr/bin/python3
"""Reads record lines, one table row out for each: kind, data group, time, object, instance, samples, and the median
of percentiles and baselines or the average of a summary, "-" where there is none.

    zorstat replay data/net.csv --config data/net.toml --headers | docs/examples/parse_records.py
"""

import re
import sys
from decimal import Decimal
from typing import Iterator, NamedTuple, TextIO

HEAD = re.compile(r"(.*)-(summary|percentile|baseline): (\d+)")
NO_OF_VALUES = {"summary": 3, "percentile": 9, "baseline": 9}


class Record(NamedTuple):
    kind: str
    dg: str
    time: int
    object: str
    instance: str
    samples: int
    values: tuple[Decimal, ...]  # minimum, maximum, average; or the nine points; or none


def parse(lines: TextIO) -> Iterator[Record]:
    for line in lines:
        if line.startswith("Schema-def "):
            next(lines, None)  # the second line of a header names the fields
            continue
        first, *fields = line.rstrip("\r\n").split(", ")
        head = HEAD.fullmatch(first)
        if not head or len(fields) not in (3, 3 + NO_OF_VALUES[head[2]]):
            raise ValueError(f"not a record: {line!r}")
        yield Record(head[2], head[1], int(head[3]), fields[0], fields[1], int(fields[2]),
                     tuple(map(Decimal, fields[3:])))


def main():
    for record in parse(sys.stdin):
        value = "-" if not record.values else record.values[2 if record.kind == "summary" else 4]
        print(record.kind, record.dg, record.time, record.object, record.instance, record.samples, value, sep="\t")


if __name__ == "__main__":
    main()
