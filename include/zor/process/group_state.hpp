/** @file
 * @brief What the handles of a group share. */
#ifndef ZOR_PROCESS_GROUP_STATE_HPP_
#define ZOR_PROCESS_GROUP_STATE_HPP_

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <limits>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "zor/entry.h"
#include "zor/process/data_group.hpp"
#include "zor/process/instance_table.hpp"
#include "zor/process/readings.hpp"
#include "zor/process/result.hpp"
#include "zor/process/row.hpp"
#include "zor/process/settings.hpp"

namespace zor::process::detail {

/** How the group was set up. */
struct Setup {
  GroupSettings settings;
  std::uint64_t interval; /**< polls; 0: none was given */
  std::vector<ObjectInfo> objects = {};
  Statistics statistics = Statistics::none; /**< of all objects together */

  bool has_baselines() const { return overlap(statistics, Statistics::baseline); }
  /** Whether each value is noted in the table of instances. */
  bool follows_values() const {
    const auto is_counter = [](const ObjectInfo &object) { return object.is_counter(); };
    return settings.expire != 0 || std::any_of(objects.begin(), objects.end(), is_counter);
  }
  /** The index of the object that a column feeds. */
  std::size_t object_of(std::size_t column) const {
    const auto is_fed = [column](const ObjectInfo &object) { return object.column == column; };
    return static_cast<std::size_t>(std::find_if(objects.begin(), objects.end(), is_fed) - objects.begin());
  }
  /** Counted here: after a failed clear the data group's own count runs past its interval. */
  std::uint64_t polls_between_clears() const {
    constexpr auto kNever = std::numeric_limits<std::uint64_t>::max();
    if (interval != 0) return interval;
    return overlap(statistics, Statistics::distribution) ? kLargestCount : kNever;
  }
};

/** What has come of the polls so far. */
struct Tally {
  bool is_open = false;       /**< a poll is */
  std::uint64_t polls = 0;    /**< since the last clear */
  std::uint64_t interval = 1; /**< one more with each clear */
  std::uint64_t refused = 0;
  std::uint64_t removals = 0;                  /**< restarts, and clears after which instances were removed */
  std::optional<Error> failure = std::nullopt; /**< the first that no end() has told yet */
  std::string records = {};
  std::vector<Reading> readings = {};
};

struct GroupState {
  GroupState(std::shared_ptr<zor_process_engine_t> engine, Name name, Setup given)
      : dg(std::move(engine), name), setup(std::move(given)) {}

  Status send_template(const std::shared_ptr<const Columns> &columns) {
    std::vector<zor_process_column_t> sent;
    sent.reserve(columns->infos.size());
    for (const auto &[column, type] : columns->infos) sent.push_back(column_of(column.c_str(), type));
    std::vector<void *> pointers;
    pointers.reserve(sent.size());
    for (zor_process_column_t &column : sent) pointers.push_back(&column);
    const std::uint32_t code = dg.send(ZOR_PROCESS_MSG_TEMPLATE, pointers.data(), pointers.size());
    if (code != ZOR_PROCESS_SUCCESS) {
      dg.set(ZOR_PROCESS_OPER_CLEAR, nullptr);  // else a part of the columns would stay, and take the place
      return check(dg.place(), code);
    }
    row.set_columns(columns);
    for (ObjectInfo &object : setup.objects) object.find_column(row.infos());
    follows_values_ = setup.follows_values();
    return Done{};
  }

  /** Drops all that is collected, and takes a template. */
  Status start_anew(const std::shared_ptr<const Columns> &columns) {
    dg.set(ZOR_PROCESS_OPER_CLEAR, nullptr);
    row.reset();
    instances.clear();
    ++tally.removals;
    return send_template(columns);
  }

  template <class Cells>
  Status send_row(const Name &key, const Cells &cells) {
    const char *wrong = row.fill(key, cells);
    std::uint32_t code = ZOR_PROCESS_ERROR_INVALID_PARAMS;
    if (!wrong) {
      if (follows_values_) follow(key);
      code = send_values(key);
      if (code == ZOR_PROCESS_SUCCESS) return Done{};
      wrong = code == ZOR_PROCESS_ERROR_IN_DATA ? "a sum is full, and the columns after it are not counted"
                                                : zor_proc_get_error_string_list(code);
    }
    return note(Error{code, dg.place() + ", row '" + std::string(key) + "': " + wrong});
  }

  /** Ends the poll; what fails is kept for end(). */
  void end_poll() {
    tally.is_open = false;
    note(check(dg.place(), dg.send(ZOR_PROCESS_MSG_END_OF_POLL)));
    if (++tally.polls >= setup.polls_between_clears()) {
      note(clear());
    } else if (dg.has_baseline_records()) {
      collect();
    }
  }
  Status take_failure() {
    if (!tally.failure) return Done{};
    return *std::exchange(tally.failure, std::nullopt);
  }

  Status clear() {
    collect();  // a record left uncollected would be in the way
    const std::size_t kept = keep_readings();
    const std::uint32_t code = dg.clear(kCleared);
    if (code != ZOR_PROCESS_SUCCESS) return stop_half_way(kept, code);
    collect();
    tally.polls = 0;
    ++tally.interval;
    if (follows_values_) {
      instances.for_each([](InstanceState &state) { state.resets = state.refused = 0; });
    } else {
      instances.clear();
    }
    if (setup.settings.expire != 0) remove_expired();
    return Done{};
  }
  /** Of a baseline without a sample since its last record it would be that record again. */
  Status snapshot() {
    collect();
    const std::uint32_t code = dg.clear(Statistics::baseline);
    collect([](const auto &entry) { return entry.sample_count != 0; });
    return whole(code);
  }

  /** The statistics in progress, in the order of a walk. */
  std::vector<Reading> readings() const {
    std::vector<Reading> all;
    std::size_t count = 0;
    dg.for_each_entry([&](const auto &, void *) { ++count; });
    all.reserve(count);
    dg.for_each_entry([&](const zor_process_object_oper_entry_t &column, const void *entry) {
      Reading &reading =
          all.emplace_back(visit_entry(column, entry, [](const auto &typed) { return read(typed); }));
      reading.object = column.name;
      const InstanceState *state = instances.find(reading.name, setup.object_of(column.column));
      if (!state) return;
      reading.refused = state->refused;
      reading.resets = state->resets;
    });
    return all;
  }

  /** What was collected, between two polls. */
  Result<std::string> save() {
    StateWriter writer;
    transfer_counts(writer);
    writer.transfer(tally.records);
    instances.save(writer);
    if (Status saved = dg.save(writer.bytes()); !saved) return saved.error();
    return std::move(writer.bytes());
  }
  Status load(std::string_view saved, Counters counters) {
    StateReader reader(saved);
    transfer_counts(reader);
    reader.transfer(tally.records);
    instances.load(reader, setup.objects.size());
    const Status loaded = reader.is_good() ? dg.load(reader.left()) : check(dg.place(), ZOR_PROCESS_ERROR_IN_DATA);
    if (!loaded) {
      tally = {};
      for (ObjectInfo &object : setup.objects) object.resets = 0;
      const auto columns = row.columns();
      const Status started = start_anew(columns);
      return started ? loaded : started;
    }
    if (counters == Counters::begin_anew) begin_counters_anew();
    return Done{};
  }

  DataGroup dg;
  Setup setup;
  RowMessage row;
  Tally tally;
  InstanceTable instances;

 private:
  static zor_process_column_t column_of(const char *name, std::uint32_t type) {
    const bool is_signed = type == ZOR_PROCESS_DATA_TYPE_INT32 || type == ZOR_PROCESS_DATA_TYPE_INT64;
    const bool is_wide = type == ZOR_PROCESS_DATA_TYPE_INT64 || type == ZOR_PROCESS_DATA_TYPE_UINT64;
    if (type == kKeyType) return {name, ZOR_PROCESS_VALUE_STRING, 0, 0, ZOR_PROCESS_COLUMN_KEY};
    return {name, is_signed ? std::uint32_t{ZOR_PROCESS_VALUE_SIGNED} : std::uint32_t{ZOR_PROCESS_VALUE_UNSIGNED},
            0, is_wide ? 8U : 4U, 0};
  }

  /** Notes the values of a row, and puts what counters have risen to in the place of theirs. */
  void follow(std::string_view key) {
    std::vector<InstanceState> *states = nullptr;
    for (std::size_t i = 0; i < setup.objects.size(); ++i) {
      ObjectInfo &object = setup.objects[i];
      const void *value = row.value(object.column);
      if (!value || !object.processes(key)) continue;
      if (!states) states = &instances.row(key, setup.objects.size());
      InstanceState &state = (*states)[i];
      if (object.is_counter()) row.replace(object.column, count_on(state, object, value));
      state.seen = tally.interval;
    }
  }

  template <class Archive>
  void transfer_counts(Archive &archive) {
    for (std::uint64_t *count : {&tally.polls, &tally.interval, &tally.refused}) archive.transfer(*count);
    for (ObjectInfo &object : setup.objects) archive.transfer(object.resets);
  }

  /** As a counter that is reset counts from 0. */
  void begin_counters_anew() {
    std::size_t i = 0;
    instances.for_each([&](InstanceState &state) {
      ObjectInfo &object = setup.objects[i++ % setup.objects.size()];
      if (!object.is_counter() || state.seen == 0 || state.last == 0) return;
      state.last = 0;
      ++state.resets;
      ++object.resets;
    });
  }

  void refuse(std::string_view key, std::size_t column) {
    ++tally.refused;
    const std::size_t object = setup.object_of(column);
    InstanceState *state = instances.find(key, object);
    if (!state) state = &instances.row(key, setup.objects.size())[object];
    ++state->refused;
  }

  /** Sends the row in one message. A refused value takes those after it in its message with it: as a baseline
   * refuses often, there each value gets a message to itself. */
  std::uint32_t send_values(std::string_view key) {
    if (setup.has_baselines() || row.values() == 1) return send_one_by_one(key);
    const std::uint32_t code = dg.send(ZOR_PROCESS_MSG_ROW, row.whole());
    if (code == ZOR_PROCESS_ERROR_IN_DATA) ++tally.refused;
    return code;
  }

  std::uint32_t send_one_by_one(std::string_view key) {
    std::uint32_t failure = ZOR_PROCESS_SUCCESS;
    row.for_each_value([&](std::size_t column, void **columns) {
      errno = 0;
      std::uint32_t code = dg.send(ZOR_PROCESS_MSG_ROW, columns);
      // A baseline without memory refuses this value, or ignores all later ones: only malloc() tells the
      // difference.
      if (errno == ENOMEM) code = ZOR_PROCESS_ERROR_NO_MEMORY;
      if (code == ZOR_PROCESS_ERROR_IN_DATA) {
        refuse(key, column);
      } else if (failure == ZOR_PROCESS_SUCCESS) {
        failure = code;
      }
    });
    return failure;
  }

  Status note(Status status) {
    if (!status && !tally.failure) tally.failure = status.error();
    return status;
  }

  Status whole(std::uint32_t code) const {
    return check(dg.place(), {{code != ZOR_PROCESS_SUCCESS,
                               "the clear stopped half-way: what it did not reach is kept", code}});
  }
  static std::string_view name_of(const void *entry) {
    kel_hashset_record_t head;  // what every entry begins with
    std::memcpy(&head, entry, sizeof head);
    return head.name;
  }

  /** Keeps what a clear is about to reset. Returns how many readings were kept before. */
  std::size_t keep_readings() {
    const std::size_t kept = tally.readings.size();
    if (!setup.settings.keep_readings) return kept;
    std::vector<Reading> read = readings();
    tally.readings.insert(tally.readings.end(), std::make_move_iterator(read.begin()),
                          std::make_move_iterator(read.end()));
    return kept;
  }
  /** What was cleared has a clear buffer. Of the others, which go on and are read again, the readings are dropped.
   */
  Status stop_half_way(std::size_t kept, std::uint32_t code) {
    auto reading = tally.readings.begin() + static_cast<std::ptrdiff_t>(kept);
    auto end = reading;  // of those that stay
    const bool has_readings = reading != tally.readings.end();
    dg.for_each_entry([&](const zor_process_object_oper_entry_t &column, void *entry) {
      if (g_zor_poi_entry_get_clear_buffer_funcs[column.data_type - 1](entry)) {
        InstanceState *state = instances.find(name_of(entry), setup.object_of(column.column));
        if (state) state->resets = state->refused = 0;
        if (has_readings) std::iter_swap(end++, reading);
      }
      if (has_readings) ++reading;
    });
    tally.readings.erase(end, tally.readings.end());
    collect();
    return whole(code);
  }

  bool is_expired(const InstanceState &state) const {
    return state.seen != 0 && tally.interval - state.seen > setup.settings.expire;
  }
  /** Removes the instances that had no value for long. All records were collected, so that none is in the way. */
  void remove_expired() {
    bool has_expired = false;
    instances.for_each([&](const InstanceState &state) { has_expired = has_expired || is_expired(state); });
    if (!has_expired) return;
    ++tally.removals;
    dg.remove_instances([&](const zor_process_object_oper_entry_t &column, const void *entry) {
      const InstanceState *state = instances.find(name_of(entry), setup.object_of(column.column));
      return state && is_expired(*state);
    });
    instances.for_each([&](InstanceState &state) {
      if (is_expired(state)) state = {};
    });
    instances.drop_unseen();
  }

  /** Takes over the clear buffers of all instances, and drops what is not wanted. */
  void collect() {
    collect([](const auto &) { return true; });
  }
  template <class Wants>
  void collect(Wants wants) {
    dg.for_each_entry([&](const zor_process_object_oper_entry_t &column, void *entry) {
      const std::uint32_t type = column.data_type - 1;
      char *text = g_zor_poi_entry_get_clear_buffer_funcs[type](entry);
      if (!text) return;
      // Kept before it is taken, so that no failure loses it.
      if (visit_entry(column, entry, wants)) tally.records += text;
      g_zor_poi_entry_set_clear_buffer_funcs[type](entry, nullptr);
      std::free(text);
    });
  }

  bool follows_values_ = false;
};

}  // namespace zor::process::detail

#endif /* ZOR_PROCESS_GROUP_STATE_HPP_ */
