/** @file
 * @brief A data group of the C interface, and its records: what the handles of zor/process.hpp stand on. */
#ifndef ZOR_PROCESS_DATA_GROUP_HPP_
#define ZOR_PROCESS_DATA_GROUP_HPP_

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>
#include <string_view>
#include <utility>

#include "zor/engine.h"
#include "zor/entry.h"
#include "zor/process/result.hpp"
#include "zor/process/settings.hpp"

namespace zor::process::detail {

struct Free {
  void operator()(char *text) const { std::free(text); }
};
/** A text of the library. */
using Text = std::unique_ptr<char, Free>;

/** Calls visit(entry) with an entry of a column in its type. */
template <class Visit>
auto visit_entry(const zor_process_object_oper_entry_t &column, const void *entry, Visit visit) {
  switch (column.data_type) {
    case ZOR_PROCESS_DATA_TYPE_INT32:
      return visit(*static_cast<const zor_process_object_instance_entry_int32_t *>(entry));
    case ZOR_PROCESS_DATA_TYPE_UINT32:
      return visit(*static_cast<const zor_process_object_instance_entry_uint32_t *>(entry));
    case ZOR_PROCESS_DATA_TYPE_INT64:
      return visit(*static_cast<const zor_process_object_instance_entry_int64_t *>(entry));
    default:
      return visit(*static_cast<const zor_process_object_instance_entry_uint64_t *>(entry));
  }
}

/** Deletes its data group in the end. */
class DataGroup {
 public:
  DataGroup(std::shared_ptr<zor_process_engine_t> engine, Name group)
      : engine_(std::move(engine)), name_(group.text), place_("group '" + name_ + "'") {}
  DataGroup(const DataGroup &) = delete;
  DataGroup &operator=(const DataGroup &) = delete;
  ~DataGroup() {
    if (record_) set(ZOR_PROCESS_OPER_DELETE, nullptr);
  }

  zor_process_engine_t *engine() const { return engine_.get(); }
  const char *name() const { return name_.c_str(); }
  const std::string &place() const { return place_; } /**< for messages */
  zor_process_data_cursor_t cursor() const { return {name(), nullptr, nullptr, nullptr, 0}; }

  /** Makes the data group, which is there as long as this is. */
  std::uint32_t create(zor_process_attr_t *attr, std::uint32_t poll_seconds) {
    const std::uint32_t code = set(ZOR_PROCESS_OPER_SET, attr);
    if (code != ZOR_PROCESS_SUCCESS) return code;
    record_ = static_cast<zor_process_dg_t *>(kel_ext_hash_name_get(&engine_->dgs, name()));
    zor_process_engine_set_poll_interval(engine(), name(), poll_seconds);
    return code;
  }

  std::uint32_t set(std::uint32_t operation, zor_process_attr_t *attr) const {
    const char *group = name();
    return zor_process_engine_set_dg(engine(), operation, &group, attr);
  }
  std::uint32_t set_object(std::uint32_t operation, const std::string &object,
                           zor_process_object_attr_t *attr) const {
    const char *object_name = object.c_str();
    return zor_process_engine_set_object(engine(), operation, name(), &object_name, attr);
  }
  std::uint32_t add_instance(const std::string &object, const std::string &instance) const {
    const char *instance_name = instance.c_str();
    return zor_process_engine_set_object_instance(engine(), ZOR_PROCESS_OPER_SET, name(), object.c_str(),
                                                  &instance_name);
  }

  std::uint32_t send(std::uint32_t kind, void **columns = nullptr, std::size_t count = 0) const {
    const zor_process_msg_t msg = {0, kind, static_cast<std::int32_t>(count), columns};
    return lift(zor_process_engine_process_data(engine(), name(), &msg));
  }
  std::uint32_t clear(Statistics mask) const {
    return lift(zor_process_engine_clear_dg_data(engine(), name(), static_cast<std::uint16_t>(mask), 0));
  }

  /** Whether a baseline has a new record since this was asked last. */
  bool has_baseline_records() {
    const std::uint64_t ended = zor_process_engine_get_periods_ended(engine(), name());
    return ended != std::exchange(periods_ended_, ended);
  }

  /** Removes the instances for which is_removed(column, entry) holds. */
  template <class IsRemoved>
  void remove_instances(IsRemoved is_removed) const {
    const auto ask = [](const zor_process_data_cursor_t *instance, void *context) -> int {
      return (*static_cast<IsRemoved *>(context))(*instance->oper_entry, instance->entry);
    };
    zor_process_engine_remove_instances(engine(), name(), ask, &is_removed);
  }

  /** Adds the collected data to `bytes`. */
  Status save(std::string &bytes) const {
    std::size_t size = 0;
    const std::uint32_t code = zor_process_engine_save_dg_data(engine(), name(), nullptr, &size);
    if (code != ZOR_PROCESS_SUCCESS) return check(place(), code);
    const std::size_t start = bytes.size();
    bytes.resize(start + size);
    return check(place(), zor_process_engine_save_dg_data(engine(), name(), bytes.data() + start, &size));
  }
  Status load(std::string_view bytes) const {
    const std::uint32_t code = zor_process_engine_load_dg_data(engine(), name(), bytes.data(), bytes.size());
    return check(place(), code);
  }

  /** Calls visit(column) for each column that feeds an object, in the template's order. */
  template <class Visit>
  void for_each_column(Visit visit) const {
    kel_hashset_t *columns = record_->oper_entries;
    if (!columns) return;
    for (void *column = kel_hashset_first(columns); column; column = kel_hashset_next(columns, column)) {
      visit(*static_cast<zor_process_object_oper_entry_t *>(column));
    }
  }
  /** Calls visit(entry) for each instance of a column. */
  template <class Visit>
  static void for_each_entry(zor_process_object_oper_entry_t &column, Visit visit) {
    kel_hashset_t *entries = &column.instances;
    for (void *entry = kel_hashset_first(entries); entry; entry = kel_hashset_next(entries, entry)) visit(entry);
  }
  /** Calls visit(column, entry) for each instance, in the order of a walk. */
  template <class Visit>
  void for_each_entry(Visit visit) const {
    for_each_column([&](zor_process_object_oper_entry_t &column) {
      for_each_entry(column, [&](void *entry) { visit(column, entry); });
    });
  }

 private:
  /** A failure latches the data group. As settings were checked it does not last: the latch is lifted. */
  std::uint32_t lift(std::uint32_t code) const {
    constexpr std::uint16_t kNothing = 0;
    if (code != ZOR_PROCESS_SUCCESS) zor_process_engine_clear_dg_data(engine(), name(), kNothing, 0);
    return code;
  }

  std::shared_ptr<zor_process_engine_t> engine_;
  std::string name_, place_;
  zor_process_dg_t *record_ = nullptr; /**< null before create() */
  std::uint64_t periods_ended_ = 0;    /**< of baselines, when they were asked for */
};

}  // namespace zor::process::detail

#endif /* ZOR_PROCESS_DATA_GROUP_HPP_ */
