"""Settings of groups and objects, and how they are refused."""

import enum
import re
from dataclasses import dataclass
from datetime import timedelta
from operator import index
from typing import Any, Mapping, Union

from ._library import lib

Code = enum.IntEnum("Code", "SUCCESS INVALID_PARAMS NO_MEMORY OPER_NOT_FOUND DG_NOT_FOUND OBJECT_NOT_FOUND "
                    "INSTANCE_NOT_FOUND UNSUPPORTED_OBJECT_TYPE IN_TEMPLATE NO_KEY INVALID_KEY_TYPE IN_DATA "
                    "IN_ROW_DATA INVALID_CLEAR_INTERVAL INVALID_POLL_INTERVAL INVALID_RANGE MAX_LIMIT", start=0)
#: The library's texts of the codes.
ERROR_TEXTS = tuple(lib.zor_proc_get_error_string_list(code).decode() for code in Code)

#: A number of polls, or a time, which is rounded up to whole polls.
Interval = Union[int, timedelta]


class Error(Exception):
    """A refusal or a failure, told as "group 'net', object 'rx': the range is inverted"."""

    def __init__(self, code: Code, message: str) -> None:
        super().__init__(message)
        self.code = code


class Type(enum.IntEnum):
    """The type of a column."""
    INT32 = 1
    UINT32 = 2
    INT64 = 3
    UINT64 = 4

    @property
    def range(self) -> range:
        """Its values."""
        return (range(-2**31, 2**31), range(2**32), range(-2**63, 2**63), range(2**64))[self - 1]


class Statistics(enum.IntFlag):
    """The analyses of an object, as a set. A baseline goes with no other."""
    NONE = 0
    SUMMARY = 1       # minimum, maximum, sum, average
    DISTRIBUTION = 2  # counts per bucket of a range
    PERCENTILE = 4    # nine percentiles, summary and distribution
    BASELINE = 8      # learnt range and its percentiles


class Values(enum.Enum):
    """How values become samples."""
    SAMPLED = 0     # each value is a sample
    CUMULATIVE = 1  # differences with wrap-around: a counter that begins anew gives one huge sample
    #: For real counters: an unsigned one that goes down was reset, and its sample is its value, what it has counted
    #: since; but in a column of 32 bits it has wrapped if the difference then lies in the object's range or,
    #: without one, is below 2^31. Signed columns are taken as cumulative.
    COUNTER = 2


@dataclass(frozen=True)
class Template:
    """The columns of a table: the key, which names the rows, and values. A column feeds the object of its name; one
    without an object is skipped, so that groups can share a table."""
    key: str
    columns: Mapping[str, Type]


CLEARED = Statistics.SUMMARY | Statistics.DISTRIBUTION | Statistics.PERCENTILE
LARGEST_COUNT = 65535  # buckets and intervals count in 16 bits
BAD_NAME = "a name is empty, or holds a comma or a control character"
BAD_BUCKETS = "the number of buckets is not 1 to 65535"
MIXED = "a baseline goes with no other statistic, of the object or of its group"


def is_name(text: str) -> bool:
    """NUL would cut a name; the others break record lines."""
    return re.fullmatch(r"[^\0-\x1f,\x7f]+", text) is not None


def is_count(count: int) -> bool:
    return 1 <= count <= LARGEST_COUNT


def in_full(statistics: Statistics) -> Statistics:
    """Percentiles bring summary and distribution."""
    return statistics | CLEARED if statistics & Statistics.PERCENTILE else statistics


def is_mixed(statistics: Statistics) -> bool:
    return bool(statistics & Statistics.BASELINE) and statistics != Statistics.BASELINE


def in_polls(interval: Interval, poll_interval: int) -> int:
    return -(-interval // timedelta(seconds=poll_interval)) if isinstance(interval, timedelta) else index(interval)


def check(place: str, *rules: Any) -> None:
    """Raises the first rule that is broken: (is_broken, message[, code])."""
    for is_broken, message, *code in rules:
        if is_broken:
            raise Error(Code(*code or [Code.INVALID_PARAMS]), f"{place}: {message}")


def check_code(place: str, code: int) -> None:
    check(place, (code, ERROR_TEXTS[code], code))
