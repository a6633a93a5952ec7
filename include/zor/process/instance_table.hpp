/** @file
 * @brief What is known of the instances of a group beside their statistics: how counters go on, and what has become
 * of values. */
#ifndef ZOR_PROCESS_INSTANCE_TABLE_HPP_
#define ZOR_PROCESS_INSTANCE_TABLE_HPP_

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "zor/process/saved_state.hpp"
#include "zor/process/settings.hpp"
#include "zor/process/table.hpp"

namespace zor::process::detail {

/** An object of a group, and its column once there is a template. */
struct ObjectInfo {
  std::string name;
  std::optional<Range> range;
  Values values;
  std::vector<std::string> instances; /**< the ones to be processed, sorted; without any, all */
  std::size_t column = 0;
  std::uint32_t type = 0;   /**< of the column */
  std::uint64_t resets = 0; /**< of all its instances, ever */

  /** Whether its values are those of a counter that can be told to have been reset. */
  bool is_counter() const {
    return values == Values::counter &&
           (type == ZOR_PROCESS_DATA_TYPE_UINT32 || type == ZOR_PROCESS_DATA_TYPE_UINT64);
  }
  void find_column(const std::vector<ColumnInfo> &columns) {
    const auto is_of = [this](const ColumnInfo &info) { return info.name == name; };
    column = static_cast<std::size_t>(std::find_if(columns.begin(), columns.end(), is_of) - columns.begin());
    type = columns[column].type;
  }
  bool processes(std::string_view instance) const {
    return instances.empty() || std::binary_search(instances.begin(), instances.end(), instance);
  }
};

/** What is known of an instance of an object. */
struct InstanceState {
  std::uint64_t last = 0;    /**< value of a counter; its first bytes, in the type of the column, as in a cell */
  std::uint64_t risen = 0;   /**< sum of its samples, likewise: what the library is given in place of the value */
  std::uint64_t seen = 0;    /**< the interval of its last value, counted from 1; 0: it never had one */
  std::uint64_t resets = 0;  /**< since the last clear */
  std::uint64_t refused = 0; /**< since the last clear */
};

/** Whether a counter was reset: it went down, and not because it wrapped. With 64 bits none does. */
template <class U>
bool was_reset(U last, U value, const std::optional<Range> &range) {
  const U difference = value - last;
  if (value >= last) return false;
  if (sizeof(U) == sizeof(std::uint64_t)) return true;
  return range ? difference < range->bounds[0] || difference > range->bounds[1] : difference > INT32_MAX;
}

/** Takes the next value of a counter, whose first one has risen from 0: the library, too, takes it for a start. */
template <class U>
void count_on(InstanceState &state, ObjectInfo &object, const void *given) {
  U last;
  U risen;
  U value;
  std::memcpy(&last, &state.last, sizeof last);
  std::memcpy(&risen, &state.risen, sizeof risen);
  std::memcpy(&value, given, sizeof value);
  const bool begins_anew = was_reset(last, value, object.range);
  risen += begins_anew ? value : value - last;
  state.resets += begins_anew;
  object.resets += begins_anew;
  std::memcpy(&state.last, &value, sizeof value);
  std::memcpy(&state.risen, &risen, sizeof risen);
}

/** Takes the next value of a counter, and returns what the library is given in its place. */
inline const void *count_on(InstanceState &state, ObjectInfo &object, const void *value) {
  if (object.type == ZOR_PROCESS_DATA_TYPE_UINT32) {
    count_on<std::uint32_t>(state, object, value);
  } else {
    count_on<std::uint64_t>(state, object, value);
  }
  return &state.risen;
}

/** Rows by name. As in the library the next row is nearly always the one that came next in the last poll, so that
 * it is found in one comparison. */
class InstanceTable {
 public:
  /** The states of a row's instances, by the index of the object; a row without any is added. */
  std::vector<InstanceState> &row(std::string_view name, std::size_t objects) {
    Place *place = last_ ? last_->second.follower : nullptr;
    if (!place || place->first != name) {
      auto found = rows_.find(name);
      if (found == rows_.end()) found = rows_.emplace(name, Row{std::vector<InstanceState>(objects)}).first;
      place = &*found;
      if (last_) last_->second.follower = place;
    }
    last_ = place;
    return place->second.states;
  }
  /** Of an instance, or null. */
  const InstanceState *find(std::string_view name, std::size_t object) const {
    const auto found = rows_.find(name);
    return found == rows_.end() ? nullptr : &found->second.states[object];
  }
  InstanceState *find(std::string_view name, std::size_t object) {
    const auto found = rows_.find(name);
    return found == rows_.end() ? nullptr : &found->second.states[object];
  }
  template <class Visit>
  void for_each(Visit visit) {
    for (auto &[name, row] : rows_) std::for_each(row.states.begin(), row.states.end(), visit);
  }
  /** Drops the rows none of whose instances had a value. */
  void drop_unseen() {
    last_ = nullptr;
    for (auto row = rows_.begin(); row != rows_.end();) {
      row->second.follower = nullptr;  // which may go
      const auto &states = row->second.states;
      const bool was_seen =
          std::any_of(states.begin(), states.end(), [](const auto &state) { return state.seen != 0; });
      row = was_seen ? std::next(row) : rows_.erase(row);
    }
  }
  void clear() {
    rows_.clear();
    last_ = nullptr;
  }
  void save(StateWriter &writer) const {
    writer.transfer(rows_.size());
    for (const auto &[name, row] : rows_) {
      writer.transfer(name);
      for (InstanceState state : row.states) transfer(writer, state);
    }
  }
  /** Reads the rows into an empty table. */
  void load(StateReader &reader, std::size_t objects) {
    std::size_t count = 0;
    reader.transfer(count);
    for (std::string name; count != 0 && reader.is_good(); --count) {
      reader.transfer(name);
      for (InstanceState &state : row(name, objects)) transfer(reader, state);
    }
  }

 private:
  template <class Archive>
  static void transfer(Archive &archive, InstanceState &state) {
    for (std::uint64_t *field : {&state.last, &state.risen, &state.seen, &state.resets, &state.refused}) {
      archive.transfer(*field);
    }
  }

  struct Row;
  using Place = std::pair<const std::string, Row>;
  struct Row {
    std::vector<InstanceState> states;
    Place *follower = nullptr; /**< the row that came next, last time */
  };
  std::map<std::string, Row, std::less<>> rows_;
  Place *last_ = nullptr; /**< the row that came before */
};

}  // namespace zor::process::detail

#endif /* ZOR_PROCESS_INSTANCE_TABLE_HPP_ */
