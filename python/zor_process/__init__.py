"""Statistics of polled performance counters: libzor_process for Python 3.11 and later, without a compiler.

    from zor_process import Engine, Statistics, Template, Type, Values

    net = Engine().group("net", clear=60)  # a poll every 10 s, records every 60 polls
    net.object("rx_bytes", Statistics.SUMMARY | Statistics.PERCENTILE, values=Values.COUNTER)
    net.start(Template("interface", {"rx_bytes": Type.UINT64}))

and then, every 10 seconds:

    with net.poll() as poll:
        poll.row("eth0", {"rx_bytes": received})
    print(net.take_records(), end="")

What comes of it is text, the record lines; or data, see Group.readings() and Group.take_readings(). As in the C++
header, zor/process.hpp, what the C interface would report late, or never, is refused when it is asked for, by an
Error that has the library's code; no failure latches a group; records do not wait in clear buffers.

The library is libzor_process.so.1 where the system finds it; the environment variable ZOR_PROCESS_LIBRARY names
another file, as in a build tree. A group, and the engine that it is of, are used by one thread at a time.
"""

from .group import Engine, Group, Poll
from .readings import Bucket, Distribution, Reading, Stage
from .settings import ERROR_TEXTS, Code, Error, Interval, Statistics, Template, Type, Values

__all__ = ["Bucket", "Code", "Distribution", "ERROR_TEXTS", "Engine", "Error", "Group", "Interval", "Poll",
           "Reading", "Stage", "Statistics", "Template", "Type", "Values"]
