"""The C library: the records of zor/engine.h and zor/entry.h field by field, and the functions used here."""

import ctypes
import os
from ctypes import POINTER, c_char_p, c_int32, c_int64, c_uint16, c_uint32, c_uint64, c_void_p
from typing import Any

SONAME = "libzor_process.so.1"

# A PyDLL keeps the interpreter's lock during a call: the library takes one at a time, for all engines together.
lib: Any = ctypes.PyDLL(os.environ.get("ZOR_PROCESS_LIBRARY") or SONAME)
# The free() of the whole process, as the library's malloc() is: a preloaded allocator has both.
free = ctypes.PyDLL(None).free
free.restype, free.argtypes = None, [c_void_p]


def record(**fields: Any) -> Any:
    """A C record of these fields."""
    return type("Record", (ctypes.Structure,), {"_fields_": list(fields.items())})


Engine = record(user=c_uint64, dgs=c_void_p)
Attr = record(flags=POINTER(c_uint16), buckets=POINTER(c_uint32), clear_type=POINTER(c_uint32),
              clear_interval=POINTER(c_uint32))
ObjectAttr = record(id=POINTER(c_uint32), common=POINTER(Attr), value_kind=POINTER(c_uint32),
                    range_type=POINTER(c_uint32), range=POINTER(c_uint64))
Column = record(name=c_char_p, type=c_uint32, reserved=c_uint32, width=c_uint32, flags=c_uint32)
Cell = record(type=c_uint32, length=c_uint32, value=c_void_p)
Msg = record(user=c_uint64, kind=c_uint32, count=c_int32, columns=c_void_p)
OperEntry = record(links=c_void_p * 2, name=c_char_p, column=c_uint32, flags=c_uint16, dg_name=c_char_p,
                   data_type=c_uint32, instances=c_void_p)
Cursor = record(dg_name=c_char_p, dg=c_void_p, oper_entry=POINTER(OperEntry), entry=c_void_p, flags=c_uint16)

OPER_SET, OPER_DELETE, OPER_CLEAR, OPER_GET = range(4)
MSG_TEMPLATE, MSG_ROW, MSG_END_OF_POLL = range(3)
VALUE_UNSIGNED, VALUE_SIGNED, VALUE_STRING = range(3)
COLUMN_KEY = 1

Predicate = ctypes.CFUNCTYPE(ctypes.c_int, POINTER(Cursor), c_void_p)

# Texts that the caller frees are void pointers: ctypes would turn a char pointer into bytes, and lose it.
_PROTOTYPES: list[Any] = [
    ("kel_ext_hash_name_init", None, c_void_p),
    ("kel_hashset_free", None, c_void_p),
    ("zor_process_engine_set_dg", c_uint32, POINTER(Engine), c_uint32, POINTER(c_char_p), POINTER(Attr)),
    ("zor_process_engine_set_object", c_uint32, POINTER(Engine), c_uint32, c_char_p, POINTER(c_char_p),
     POINTER(ObjectAttr)),
    ("zor_process_engine_set_poll_interval", None, POINTER(Engine), c_char_p, c_uint32),
    ("zor_process_engine_process_data", c_uint32, POINTER(Engine), c_char_p, POINTER(Msg)),
    ("zor_process_engine_clear_dg_data", c_uint32, POINTER(Engine), c_char_p, c_uint16, c_uint32),
    ("zor_process_engine_remove_instances", c_uint32, POINTER(Engine), c_char_p, Predicate, c_void_p),
    ("zor_process_engine_get_next_object_instance_data", c_void_p, POINTER(Engine), POINTER(Cursor), c_uint32),
    ("zor_process_engine_get_clear_buffer", c_void_p, POINTER(Cursor)),
    ("zor_process_engine_set_clear_buffer", None, POINTER(Cursor), c_void_p),
    ("zor_proc_get_error_string_list", c_char_p, c_uint32),
]
for _name, _result, *_arguments in _PROTOTYPES:
    getattr(lib, _name).restype, getattr(lib, _name).argtypes = _result, _arguments

POINTS = tuple((c_uint32 * 9).in_dll(lib, "g_stats_percentile_1000"))


def _entry(name: str, value: Any, unsigned: Any, total: Any) -> Any:
    """The entry of an instance whose values are of this type, and the first value of each of its buckets."""
    summary = record(min=value, max=value, total=total, count=c_uint32)
    counters = record(start=value, end=value, exact_end=value, buckets=c_uint16, samples=c_uint16,
                      counts=POINTER(c_uint16), below=c_uint16, above=c_uint16)
    node = record(next=c_void_p, start=value, count=c_uint16)
    side = record(head=POINTER(node), length=c_uint16, exceptions=c_uint16)
    dynamic = record(counters=c_void_p, most=c_uint16, width=unsigned, positions=unsigned, below=side, above=side)
    learner = c_uint64 * 6
    analyzer = record(stage=c_uint32, learner=learner, summary=summary, counters=counters, dynamic=dynamic)
    start_of = getattr(lib, "stats_range_counters_get_start_" + name)
    start_of.restype, start_of.argtypes = value, [POINTER(counters), c_uint32]
    entry = record(links=c_void_p * 2, name=c_char_p, last_value=value, mode=c_uint16, sample_count=c_uint16,
                   clear_count=c_uint16, clear_buffer=c_void_p, oper_entry=c_void_p, summary=POINTER(summary),
                   counters=POINTER(counters), analyzer=POINTER(analyzer))
    return entry, start_of


# By data type.
TYPES = {1: c_int32, 2: c_uint32, 3: c_int64, 4: c_uint64}
ENTRIES = {1: _entry("int32", c_int32, c_uint32, c_int64), 2: _entry("uint32", c_uint32, c_uint32, c_uint64),
           3: _entry("int64", c_int64, c_uint64, c_int64), 4: _entry("uint64", c_uint64, c_uint64, c_uint64)}
