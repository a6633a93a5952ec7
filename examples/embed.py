#!/usr/bin/env python3
"""A collector in Python 3.11, by ctypes: polls the disks of /proc/diskstats and prints the records of every third
poll.

    python3 embed.py [POLLS [SECONDS [LIBRARY]]]      6 polls, one every 10 seconds

Without LIBRARY, or the environment variable ZOR_PROCESS_LIBRARY, the library is the installed one. A program needs
neither pkg-config nor CMake for it; LD_LIBRARY_PATH leads to a copy in another place.
"""

import ctypes
import ctypes.util
import os
import sys
import time
from ctypes import POINTER, Structure, byref, c_char_p, c_int32, c_uint16, c_uint32, c_uint64, c_void_p

OPER_SET, OPER_DELETE = 0, 1
FLAG_SUMMARY, FLAG_PERCENTILE = 1, 4
MSG_TEMPLATE, MSG_ROW, MSG_END_OF_POLL = 0, 1, 2
VALUE_UNSIGNED, VALUE_STRING, COLUMN_KEY = 0, 2, 1
DG = b"disk"


# The records of zor/engine.h, field by field.
class Engine(Structure):
    _fields_ = [("user", c_uint64), ("dgs", c_void_p)]


class Attr(Structure):
    _fields_ = [("flags", POINTER(c_uint16)), ("buckets", POINTER(c_uint32)), ("clear_type", POINTER(c_uint32)),
                ("clear_interval", POINTER(c_uint32))]


class ObjectAttr(Structure):
    _fields_ = [("id", POINTER(c_uint32)), ("common", POINTER(Attr)), ("value_kind", POINTER(c_uint32)),
                ("range_type", POINTER(c_uint32)), ("range", POINTER(c_uint64))]


class Column(Structure):
    _fields_ = [("name", c_char_p), ("type", c_uint32), ("reserved", c_uint32), ("width", c_uint32),
                ("flags", c_uint32)]


class Cell(Structure):
    _fields_ = [("type", c_uint32), ("length", c_uint32), ("value", c_void_p)]


class Msg(Structure):
    _fields_ = [("user", c_uint64), ("kind", c_uint32), ("count", c_int32), ("columns", POINTER(c_void_p))]


class Cursor(Structure):
    _fields_ = [("dg_name", c_char_p), ("dg", c_void_p), ("oper_entry", c_void_p), ("entry", c_void_p),
                ("flags", c_uint16)]


def load(path):
    """The library with the functions used here, and the platform's, which it brings along."""
    path = path or os.environ.get("ZOR_PROCESS_LIBRARY") or ctypes.util.find_library("zor_process")
    lib = ctypes.CDLL(path or "libzor_process.so.1")
    prototypes = {
        "kel_ext_hash_name_init": (None, [c_void_p]),
        "kel_hashset_free": (None, [c_void_p]),
        "zor_process_engine_set_dg": (c_uint32, [POINTER(Engine), c_uint32, POINTER(c_char_p), POINTER(Attr)]),
        "zor_process_engine_set_object": (c_uint32, [POINTER(Engine), c_uint32, c_char_p, POINTER(c_char_p),
                                                     POINTER(ObjectAttr)]),
        "zor_process_engine_set_poll_interval": (None, [POINTER(Engine), c_char_p, c_uint32]),
        "zor_process_engine_process_data": (c_uint32, [POINTER(Engine), c_char_p, POINTER(Msg)]),
        # Texts are void pointers here: ctypes would turn a char pointer into bytes, and nobody could free it.
        "zor_process_engine_get_next_object_instance_data": (c_void_p, [POINTER(Engine), POINTER(Cursor),
                                                                        c_uint32]),
        "zor_process_engine_get_clear_buffer": (c_void_p, [POINTER(Cursor)]),
        "zor_process_engine_set_clear_buffer": (None, [POINTER(Cursor), c_void_p]),
        "zor_proc_get_error_string_list": (c_char_p, [c_uint32]),
        "free": (None, [c_void_p]),
    }
    for name, (result, arguments) in prototypes.items():
        function = getattr(lib, name)
        function.restype, function.argtypes = result, arguments
    return lib


class Collector:
    def __init__(self, lib, columns, clear_interval):
        self.lib, self.engine = lib, Engine()
        lib.kel_ext_hash_name_init(ctypes.addressof(self.engine) + Engine.dgs.offset)
        attr = Attr(clear_type=ctypes.pointer(c_uint32(1)), clear_interval=ctypes.pointer(c_uint32(clear_interval)))
        self.check(lib.zor_process_engine_set_dg(self.engine, OPER_SET, byref(c_char_p(DG)), attr))
        common = Attr(flags=ctypes.pointer(c_uint16(FLAG_SUMMARY | FLAG_PERCENTILE)))
        cumulative = ObjectAttr(common=ctypes.pointer(common), value_kind=ctypes.pointer(c_uint32(1)))
        for column in columns:
            name = c_char_p(column)
            self.check(lib.zor_process_engine_set_object(self.engine, OPER_SET, DG, byref(name), cumulative))
        lib.zor_process_engine_set_poll_interval(self.engine, DG, 10)
        key = Column(b"device", VALUE_STRING, 0, 0, COLUMN_KEY)
        self.send(MSG_TEMPLATE, [key] + [Column(name, VALUE_UNSIGNED, 0, 8, 0) for name in columns])

    def check(self, code):
        if code != 0:
            raise RuntimeError(self.lib.zor_proc_get_error_string_list(code).decode())

    def send(self, kind, records=()):
        pointers = (c_void_p * len(records))(*(ctypes.addressof(record) for record in records))
        msg = Msg(0, kind, len(records), ctypes.cast(pointers, POINTER(c_void_p)))
        self.check(self.lib.zor_process_engine_process_data(self.engine, DG, msg))

    def row(self, key, values):
        name, numbers = ctypes.create_string_buffer(key), [c_uint64(value) for value in values]
        cells = [Cell(VALUE_STRING, len(key), ctypes.addressof(name))]
        self.send(MSG_ROW, cells + [Cell(VALUE_UNSIGNED, 8, ctypes.addressof(number)) for number in numbers])

    def collect(self):
        """The records that wait in the clear buffers; each buffer is taken over and freed."""
        lib, cursor = self.lib, Cursor(dg_name=DG)
        while True:
            lib.free(lib.zor_process_engine_get_next_object_instance_data(self.engine, cursor, 0))  # moves on
            if not cursor.entry:
                return
            text = lib.zor_process_engine_get_clear_buffer(cursor)
            if text:
                lib.zor_process_engine_set_clear_buffer(cursor, None)
                yield ctypes.string_at(text).decode()
                lib.free(text)

    def close(self):
        self.check(self.lib.zor_process_engine_set_dg(self.engine, OPER_DELETE, byref(c_char_p(DG)), None))
        self.lib.kel_hashset_free(ctypes.addressof(self.engine) + Engine.dgs.offset)


def main(polls=6, seconds=10.0, library=None):
    collector = Collector(load(library), [b"reads", b"writes"], 3)
    for poll in range(int(polls)):
        if poll > 0:
            time.sleep(float(seconds))
        with open("/proc/diskstats", "rb") as stats:
            for fields in map(bytes.split, stats):
                collector.row(fields[2], [int(fields[3]), int(fields[7])])
        collector.send(MSG_END_OF_POLL)
        sys.stdout.writelines(collector.collect())
    collector.close()


if __name__ == "__main__":
    try:
        main(*sys.argv[1:])
    except (OSError, RuntimeError, ValueError, AttributeError) as error:
        sys.exit(f"embed.py: {error}")
