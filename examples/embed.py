#!/usr/bin/env python3
"""A collector in Python: polls the disks of /proc/diskstats and prints the records of every third poll.

    python3 embed.py [POLLS [SECONDS]]      6 polls, one every 10 seconds

The package zor_process is that of python3-zor-process; PYTHONPATH leads to a copy in another place, and
LD_LIBRARY_PATH to its library.
"""

import sys
import time

from zor_process import Engine, Statistics, Template, Type, Values


def main(polls: int = 6, seconds: float = 10) -> None:
    table = Template("device", {"reads": Type.UINT64, "writes": Type.UINT64})
    disk = Engine().group("disk", clear=3, statistics=Statistics.SUMMARY | Statistics.PERCENTILE)
    for column in table.columns:
        disk.object(column, values=Values.COUNTER)
    disk.start(table)
    for poll_number in range(polls):
        if poll_number > 0:
            time.sleep(seconds)
        with disk.poll() as poll, open("/proc/diskstats") as stats:
            for fields in map(str.split, stats):
                poll.row(fields[2], {"reads": int(fields[3]), "writes": int(fields[7])})
        print(disk.take_records(), end="", flush=True)


if __name__ == "__main__":
    main(*(convert(argument) for convert, argument in zip((int, float), sys.argv[1:])))
