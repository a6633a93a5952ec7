"""Engines, their groups, and the polls that feed these."""

import ctypes
import weakref
from contextlib import contextmanager
from ctypes import byref, c_char_p, c_uint16, c_uint32, c_uint64, c_void_p, pointer
from dataclasses import dataclass
from operator import index
from typing import Any, Callable, Iterator, Mapping, Optional

from . import _library as c
from ._library import lib
from .readings import Reading, read
from .settings import (BAD_BUCKETS, BAD_NAME, CLEARED, LARGEST_COUNT, MIXED, Code, Error, Interval, Statistics,
                       Template, Type, Values, check, check_code, in_full, in_polls, is_count, is_mixed, is_name)

Key = tuple[str, str]  # the names of an instance's object and itself


@dataclass
class _Object:
    values: Values
    range: Optional[tuple[int, int]]
    resets: int = 0  # of all its instances, ever


@dataclass
class _State:
    """What is known of an instance beside its statistics."""
    last: int = 0     # value of a counter
    risen: int = 0    # sum of its samples: what the library is given in place of the value
    seen: int = 0     # the interval of its last value
    resets: int = 0   # since the last clear
    refused: int = 0  # since the last clear


class Engine:
    """An engine and its groups. It lives while it or one of its groups does."""

    def __init__(self) -> None:
        self.handle = c.Engine()
        dgs = c_void_p.from_buffer(self.handle, c.Engine.dgs.offset)
        lib.kel_ext_hash_name_init(byref(dgs))
        weakref.finalize(self, lib.kel_hashset_free, pointer(dgs))

    def group(self, name: str, *, poll_interval: int = 10, clear: Optional[Interval] = None,
              statistics: Statistics = Statistics.NONE, buckets: int = 100, keep_readings: bool = False,
              expire: int = 0) -> "Group":
        """Makes a group, or raises an Error that tells what is wrong with its settings.

        poll_interval: seconds, 10 at least
        clear: 1 to 65535 polls; else 65535, when a bucket can be full, and never without buckets
        statistics: of every object
        buckets: of objects that set none, 1 to 65535
        keep_readings: those of each interval wait for Group.take_readings()
        expire: after so many intervals without a value an instance is removed, with what a baseline has learnt;
            0: never"""
        return Group(self, name, poll_interval, clear, in_full(statistics), buckets, keep_readings, expire)


def _delete(engine: Engine, name: bytes) -> None:
    lib.zor_process_engine_set_dg(engine.handle, c.OPER_DELETE, c_char_p(name), None)


class Group:
    """A data group, made by Engine.group(). It goes with the last reference to it."""

    def __init__(self, engine: Engine, name: str, poll_interval: int, clear: Optional[Interval],
                 statistics: Statistics, buckets: int, keep_readings: bool, expire: int) -> None:
        self._engine, self._name, self._place = engine, _encode(name), f"group {name!r}"
        has_time = 10 <= index(poll_interval) < 2**32
        self._interval = in_polls(clear, poll_interval) if clear is not None and has_time else 0
        check(self._place, (not is_name(name), BAD_NAME),
              (":" in name, "a colon in it would end its name in record lines"),
              (self._set(c.OPER_GET, c.Attr()) == Code.SUCCESS, "exists already"),
              (not has_time, "the poll interval is below 10 seconds", Code.INVALID_POLL_INTERVAL),
              (clear is not None and not is_count(self._interval), "the clear interval is not 1 to 65535 polls",
               Code.INVALID_CLEAR_INTERVAL),
              (is_mixed(statistics), MIXED), (not is_count(buckets), BAD_BUCKETS))
        attr = c.Attr(pointer(c_uint16(statistics)), pointer(c_uint32(buckets)))
        check_code(self._place, self._set(c.OPER_SET, attr))
        weakref.finalize(self, _delete, engine, self._name)
        lib.zor_process_engine_set_poll_interval(engine.handle, self._name, poll_interval)
        self._poll_interval, self._keeps_readings, self._expire = poll_interval, keep_readings, expire
        self._common, self._statistics = statistics, Statistics.NONE  # of every object; of all together
        self._objects: dict[str, _Object] = {}
        self._row: Optional[_Row] = None  # once there is a template
        self._open: Optional[Poll] = None
        self._polls, self._number = 0, 1  # polls since the last clear; the interval in progress
        self._states: dict[Key, _State] = {}
        self._records: list[str] = []
        self._readings: list[Reading] = []
        #: Values refused since the group was made: they did not fit into the sum; or a baseline has counted them
        #: without a bucket or, without a usable range, not at all.
        self.refused = 0

    def object(self, name: str, statistics: Statistics = Statistics.NONE, *, values: Values = Values.SAMPLED,
               range: Optional[tuple[int, int]] = None, buckets: Optional[int] = None,
               learning: Optional[Interval] = None) -> None:
        """Adds an object, before the template, or raises an Error; then nothing is added.

        name: its own and its column's
        statistics: one at least, with those of the group
        range: of a distribution, lowest and highest value, both included; else all values of the column's type
        buckets: 1 to 65535; else those of the group
        learning: of a baseline, 1 to 65535 polls; else those of clear, or 2000"""
        place = self._place_of(name)
        statistics = in_full(statistics)
        total = statistics | self._common
        is_baseline = bool(total & Statistics.BASELINE)
        polls = self._interval if learning is None else in_polls(learning, self._poll_interval)
        low, high = map(index, range or (0, 0))
        check(place, (not is_name(name), BAD_NAME), (self._row, "objects come before the template"),
              (name in self._objects, "exists already"), (not total, "no statistics are selected"),
              (is_mixed(total), MIXED), (buckets is not None and not is_count(buckets), BAD_BUCKETS),
              (low > high, "the range is inverted", Code.INVALID_RANGE),
              (not any(_fits((low, high), kind) for kind in Type), "no type holds the range", Code.INVALID_RANGE),
              (range and is_baseline, "a baseline learns its own range", Code.INVALID_RANGE),
              (learning is not None and not is_baseline, "only a baseline learns", Code.INVALID_CLEAR_INTERVAL),
              (learning is not None and not is_count(polls), "the learning interval is not 1 to 65535 polls",
               Code.INVALID_CLEAR_INTERVAL))
        range_type = 0 if range is None else Type.INT64 if low < 0 else Type.UINT64
        common = c.Attr(pointer(c_uint16(statistics)), pointer(c_uint32(buckets or 0)),
                        pointer(c_uint32(1 if polls else 0)), pointer(c_uint32(polls)))
        attr = c.ObjectAttr(pointer(c_uint32(0)), pointer(common), pointer(c_uint32(values != Values.SAMPLED)),
                            pointer(c_uint32(range_type)), (c_uint64 * 2)(low, high))
        code = self._set_object(c.OPER_SET, name, attr)
        if code:
            self._set_object(c.OPER_DELETE, name, None)  # else a part of it would stay
        check_code(place, code)
        self._objects[name] = _Object(values, range and (low, high))
        self._statistics |= total

    def start(self, template: Template) -> None:
        """Takes the template. Again with the same columns it changes nothing."""
        self._check_template(template)
        if self._row is None:
            self._send_template(template)
        elif list(self._row.kinds.items()) != list(template.columns.items()):
            raise Error(Code.IN_TEMPLATE, f"{self._place}: the template has changed: restart() takes it, and drops "
                        "what is collected")

    def restart(self, template: Template) -> None:
        """Clears the group, keeps the records, then drops all data (counters are primed and baselines learn anew)
        and takes a template of other columns."""
        self._check_template(template)
        self.clear()
        self._set(c.OPER_CLEAR, None)
        self._row = None
        self._states.clear()
        self._send_template(template)

    @contextmanager
    def poll(self) -> "Iterator[Poll]":
        """A poll: with group.poll() as poll, and a poll.row() for each instance. It ends with the block, whatever
        leaves it; the end clears the group when its interval is over, and raises what fails in that."""
        check(self._place, (self._open, "a poll before the last one has ended"))
        if self._row is None:
            raise Error(Code.NO_KEY, f"{self._place}: a poll before the template")
        self._open = poll = Poll(self, self._row)
        try:
            yield poll
        finally:
            self._open = None
            self._end_poll()

    def clear(self) -> None:
        """Renders and clears summaries and distributions now; the interval begins anew. When it stops half-way, the
        records of what was cleared can be taken, and the rest is kept."""
        self._collect()  # a record left uncollected would be in the way
        readings = self.readings() if self._keeps_readings else []
        code = self._clear(CLEARED)
        collected = self._collect()

        def was_cleared(key: Key) -> bool:
            return code == 0 or key in collected

        for key, state in self._states.items():
            if was_cleared(key):
                state.resets = state.refused = 0
        self._readings += [reading for reading in readings if was_cleared((reading.object, reading.name))]
        self._check_whole(code)
        self._polls = 0
        self._number += 1
        if self._expire:
            self._remove_expired()

    def snapshot(self) -> None:
        """Renders the baselines that have learnt, now, and clears nothing. One without a sample since its last
        record is left out: it would be that record again."""
        self._collect()
        code = self._clear(Statistics.BASELINE)
        self._collect(lambda entry: bool(entry.sample_count))
        self._check_whole(code)

    def take_records(self) -> str:
        """The record lines since the last call."""
        records, self._records = self._records, []
        return "".join(records)

    def readings(self) -> list[Reading]:
        """The statistics of every instance, for the interval in progress, at any time."""
        readings = []
        for key, kind, entry, _ in self._walk():
            state = self._states.get(key, _State())
            readings.append(Reading(*key, refused=state.refused, resets=state.resets))
            read(kind, entry, readings[-1])
        return readings

    def take_readings(self) -> list[Reading]:
        """The readings of the intervals that have ended since the last call, with keep_readings."""
        readings, self._readings = self._readings, []
        return readings

    def resets(self, name: str) -> int:
        """The number of times that counters of an object were reset, see Values.COUNTER."""
        return self._objects[name].resets

    # What the C interface is asked.

    def _set(self, operation: int, attr: Any) -> int:
        return int(lib.zor_process_engine_set_dg(self._engine.handle, operation, c_char_p(self._name), attr))

    def _set_object(self, operation: int, name: str, attr: Any) -> int:
        return int(lib.zor_process_engine_set_object(self._engine.handle, operation, self._name,
                                                     c_char_p(_encode(name)), attr))

    def _lift(self, code: int) -> int:
        """A failure latches the data group. As settings were checked it does not last: the latch is lifted."""
        if code:
            lib.zor_process_engine_clear_dg_data(self._engine.handle, self._name, 0, 0)
        return code

    def _send(self, kind: int, columns: Any = None, count: int = 0) -> int:
        msg = c.Msg(0, kind, count, ctypes.cast(columns, c_void_p))
        return self._lift(lib.zor_process_engine_process_data(self._engine.handle, self._name, msg))

    def _clear(self, mask: Statistics) -> int:
        return self._lift(lib.zor_process_engine_clear_dg_data(self._engine.handle, self._name, mask, 0))

    def _walk(self) -> Iterator[tuple[Key, Type, Any, Any]]:
        """Each instance, and the cursor at it."""
        cursor = c.Cursor(dg_name=self._name)
        while True:
            # Renders nothing, and moves on.
            c.free(lib.zor_process_engine_get_next_object_instance_data(self._engine.handle, cursor, 0))
            if not cursor.entry:
                return
            yield (*_look(cursor), cursor)

    def _collect(self, wants: Callable[[Any], bool] = lambda entry: True) -> set[Key]:
        """Takes over the clear buffers of all instances, and drops what is not wanted; tells which had one."""
        collected = set()
        for key, _, entry, cursor in self._walk():
            text = lib.zor_process_engine_get_clear_buffer(cursor)
            if text:
                collected.add(key)
                if wants(entry):  # kept before it is taken, so that no failure loses it
                    self._records.append(_decode(ctypes.string_at(text)))
                lib.zor_process_engine_set_clear_buffer(cursor, None)
                c.free(text)
        return collected

    # Templates, rows and ends of poll.

    def _place_of(self, name: str) -> str:
        return f"{self._place}, object {name!r}"

    def _check_template(self, template: Template) -> None:
        kinds = template.columns
        check("template", (not all(map(is_name, [template.key, *kinds])), BAD_NAME, Code.IN_TEMPLATE),
              (template.key in kinds, "two columns have the same name", Code.IN_TEMPLATE),
              (not set(kinds.values()) <= set(Type), "no such data type", Code.IN_TEMPLATE))
        for name, settings in self._objects.items():
            check(self._place_of(name),
                  (name == template.key, "its column is the key", Code.UNSUPPORTED_OBJECT_TYPE),
                  (name not in kinds, "the template has no column of its name", Code.IN_TEMPLATE),
                  (settings.range and name in kinds and not _fits(settings.range, kinds[name]),
                   "the range does not fit the type of its column", Code.INVALID_RANGE))

    def _send_template(self, template: Template) -> None:
        columns = [c.Column(_encode(template.key), c.VALUE_STRING, 0, 0, c.COLUMN_KEY)]
        for name, kind in template.columns.items():
            value = c.VALUE_SIGNED if -1 in kind.range else c.VALUE_UNSIGNED
            columns.append(c.Column(_encode(name), value, 0, ctypes.sizeof(c.TYPES[kind]), 0))
        code = self._send(c.MSG_TEMPLATE, _pointers(columns), len(columns))
        if code:
            self._set(c.OPER_CLEAR, None)  # else a part of the columns would stay, and take the place
        check_code(self._place, code)
        self._row = _Row(template)

    def _state(self, name: str, key: str) -> _State:
        return self._states.setdefault((name, key), _State())

    def _follow(self, name: str, kind: Type, key: str, value: int) -> int:
        """Notes a value; what a counter has risen to is given to the library in its place."""
        settings = self._objects.get(name)
        is_counter = settings is not None and settings.values == Values.COUNTER and -1 not in kind.range
        if settings is None or not (is_counter or self._expire):
            return value
        state = self._state(name, key)
        state.seen = self._number
        if not is_counter:
            return value
        modulus = kind.range.stop
        low, high = settings.range or (0, 2**31 - 1)
        has_wrapped = kind == Type.UINT32 and low <= (value - state.last) % modulus <= high
        was_reset = value < state.last and not has_wrapped
        state.risen = (state.risen + value - (0 if was_reset else state.last)) % modulus
        state.last = value
        state.resets += was_reset
        settings.resets += was_reset
        return state.risen

    def _send_row(self, row: "_Row", key: str, values: Mapping[str, int]) -> int:
        """Sends the row in one message. A refused value takes those after it in its message with it: as a baseline
        refuses often, there each value gets a message to itself."""
        values = {name: self._follow(name, row.kinds[name], key, value) for name, value in values.items()}
        if len(values) != 1 and not self._statistics & Statistics.BASELINE:
            code = self._send(c.MSG_ROW, row.fill(key, values))
            self.refused += code == Code.IN_DATA
            return code
        failure = 0
        for name, value in values.items():
            code = self._send(c.MSG_ROW, row.fill(key, {name: value}))
            if code == Code.IN_DATA:
                self.refused += 1
                self._state(name, key).refused += 1
            failure = failure or (code if code != Code.IN_DATA else 0)
        return failure

    def _end_poll(self) -> None:
        code = self._send(c.MSG_END_OF_POLL)
        self._polls += 1
        # Counted here: after a failed clear the data group's own count would run past its interval.
        has_buckets = self._statistics & Statistics.DISTRIBUTION
        if self._polls >= (self._interval or (LARGEST_COUNT if has_buckets else self._polls + 1)):
            self.clear()
        elif self._statistics & Statistics.BASELINE:
            self._collect()
        check_code(self._place, code)

    def _check_whole(self, code: int) -> None:
        check(self._place, (code, "the clear stopped half-way: what it did not reach is kept", code))

    def _remove_expired(self) -> None:
        """Removes the instances that had no value for long. All records were collected, so none is in the way."""
        expired = {key for key, state in self._states.items()
                   if state.seen and self._number - state.seen > self._expire}
        failures: list[BaseException] = []

        def ask(cursor: Any, _: Any) -> int:
            try:
                return _look(cursor.contents)[0] in expired
            except BaseException as failure:  # the library could not pass it on
                failures.append(failure)
                return 0

        if expired:
            lib.zor_process_engine_remove_instances(self._engine.handle, self._name, c.Predicate(ask), None)
            if failures:
                raise failures[0]
            for key in expired:
                del self._states[key]


class Poll:
    """A poll of a group, see Group.poll()."""

    def __init__(self, group: Group, row: "_Row") -> None:
        self._group, self._row = group, row

    def row(self, key: str, values: Mapping[str, Optional[int]]) -> None:
        """Counts the values of an instance, by column; None and columns left out have no value. Raises what is
        wrong with the row before any of it is counted: an Error, or an OverflowError for a value that its column
        does not hold. A value that its object refuses is no failure, see Group.refused, unless others are lost with
        it: an Error with Code.IN_DATA."""
        group, kinds = self._group, self._row.kinds
        place = f"{group._place}, row {key!r}"
        check(place, (group._open is not self, "the poll has ended"), (not is_name(key), BAD_NAME),
              (not values.keys() <= kinds.keys(), "a value is of no column of the template"))
        given = {name: index(value) for name, value in values.items() if value is not None}
        for name, value in given.items():
            if value not in kinds[name].range:
                raise OverflowError(f"{place}, column {name!r}: {value} is not of its type, {kinds[name].name}")
        code = group._send_row(self._row, key, given)
        check(place, (code == Code.IN_DATA, "a sum is full, and the columns after it are not counted", code))
        check_code(place, code)


class _Row:
    """The message of a row, filled anew for each one."""

    def __init__(self, template: Template) -> None:
        self.kinds = dict(template.columns)  # as they were when they were taken
        self._numbers = {name: c.TYPES[kind]() for name, kind in self.kinds.items()}
        self._cells = {name: c.Cell(0, 0, ctypes.addressof(number)) for name, number in self._numbers.items()}
        self._key = c.Cell(c.VALUE_STRING)
        self._columns = _pointers([self._key, *self._cells.values()])

    def fill(self, key: str, values: Mapping[str, int]) -> Any:
        """The columns of the message, valid until the next call."""
        self._name = ctypes.create_string_buffer(_encode(key))
        self._key.value = ctypes.addressof(self._name)
        for name, cell in self._cells.items():
            cell.length = 8 if name in values else 0
            self._numbers[name].value = values.get(name, 0)
        return self._columns


def _encode(text: str) -> bytes:
    return text.encode(errors="surrogateescape")  # as file names do, so that any bytes pass


def _decode(text: bytes) -> str:
    return text.decode(errors="surrogateescape")


def _pointers(records: list[Any]) -> Any:
    return (c_void_p * len(records))(*map(ctypes.addressof, records))


def _look(cursor: Any) -> tuple[Key, Type, Any]:
    """The instance at a cursor: its names, its type and its entry."""
    column = cursor.oper_entry.contents
    entry = c.ENTRIES[column.data_type][0].from_address(cursor.entry)
    return (_decode(column.name), _decode(entry.name)), Type(column.data_type), entry


def _fits(values: tuple[int, int], kind: Type) -> bool:
    return values[0] in kind.range and values[1] in kind.range
