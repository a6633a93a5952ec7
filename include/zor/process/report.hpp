/** @file
 * @brief What describes a group: the headers of its records, and its console report. */
#ifndef ZOR_PROCESS_REPORT_HPP_
#define ZOR_PROCESS_REPORT_HPP_

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "zor/datalist.h"
#include "zor/engine.h"
#include "zor/print_handle.h"
#include "zor/process/baseline_text.hpp"
#include "zor/process/data_group.hpp"
#include "zor/process/result.hpp"
#include "zor/process/settings.hpp"

namespace zor::process {

/** What a report shows. */
struct ReportSettings {
  Statistics sections = Statistics::summary | Statistics::percentile | Statistics::baseline; /**< of each object */
  std::string object = {};                                                                   /**< empty: all */
  std::string instance = {};                                                                 /**< empty: all */
  std::optional<std::uint32_t> percentile = std::nullopt; /**< one in whole percent, for the nine points */
};

namespace detail {

/** The headers of the columns that have an instance, each kind once. */
inline Result<std::vector<std::string>> headers(const DataGroup &dg) {
  std::vector<std::string> all;
  bool has_memory = true;
  dg.for_each_column([&](zor_process_object_oper_entry_t &column) {
    void *entry = kel_hashset_first(&column.instances);
    if (!entry) return;
    const Text text(g_zor_poi_entry_get_data_funcs[column.data_type - 1](
        ZOR_PROCESS_OUTPUT_SCHEMA_DEF, dg.name(), column.name, column.flags, nullptr, entry));
    has_memory = has_memory && text;
    for (std::string_view rest = text ? text.get() : ""; !rest.empty();) {
      const std::size_t end = rest.find('\n', rest.find('\n') + 1) + 1;  // a header has two lines
      const std::string header(rest.substr(0, end));
      if (std::find(all.begin(), all.end(), header) == all.end()) all.push_back(header);
      rest.remove_prefix(end);
    }
  });
  Status checked = check(dg.place(), {{!has_memory, "no memory for the headers", ZOR_PROCESS_ERROR_NO_MEMORY}});
  if (!checked) return checked.error();
  return all;
}

/** A data list of libzor_platform to which reports are appended. */
class ReportList {
 public:
  ReportList() { handle_.datalist = zor_datalist_create(); }
  ~ReportList() { zor_datalist_free(handle_.datalist); }
  ReportList(const ReportList &) = delete;
  ReportList &operator=(const ReportList &) = delete;

  bool exists() const { return handle_.datalist != 0; }

  /** The library's report of an object. */
  std::string print(const DataGroup &dg, const char *object, const ReportSettings &settings) {
    const zor_process_data_cursor_t cursor = dg.cursor();
    const char *instance = settings.instance.empty() ? nullptr : settings.instance.c_str();
    const std::uint32_t *percentile = settings.percentile ? &*settings.percentile : nullptr;
    zor_process_print_handle_t *before = pvg_prt_handle;
    zor_process_engine_print_object_instance_data_with_handle(
        dg.engine(), &cursor, object, instance, percentile,
        static_cast<std::uint32_t>(settings.sections & kCleared), &handle_);
    pvg_prt_handle = before;  // the library keeps the handle, which ends here
    std::string text;
    zor_datalist_item_t item;
    for (; zor_datalist_get(handle_.datalist, next_, &item) == 0; ++next_) text += item.text;
    return text;
  }

 private:
  zor_process_print_handle_t handle_ = {};
  std::uint32_t next_ = 0; /**< behind what was read */
};

inline std::string baselines_text(zor_process_object_oper_entry_t &column, const std::string &instance) {
  std::string text;
  DataGroup::for_each_entry(column, [&](const void *entry) {
    visit_entry(column, entry, [&](const auto &typed) {
      if (!typed.analyzer || !(instance.empty() || instance == typed.name)) return;
      text += std::string("\nObject: ") + column.name + ", Instance: " + typed.name + "\n" +
              baseline_text(*typed.analyzer);
    });
  });
  return text;
}

inline Result<std::string> report(const DataGroup &dg, const ReportSettings &settings) {
  errno = 0;
  ReportList list;
  Status checked = check(dg.place(), {{settings.percentile.value_or(0) > 100, "a percentile above 100"},
                                      {!list.exists(), "no data list", ZOR_PROCESS_ERROR_NO_MEMORY}});
  if (!checked) return checked.error();
  std::string text;
  dg.for_each_column([&](zor_process_object_oper_entry_t &column) {
    if (!settings.object.empty() && settings.object != column.name) return;
    text += list.print(dg, column.name, settings);
    if (overlap(settings.sections, Statistics::baseline)) text += baselines_text(column, settings.instance);
  });
  // The library leaves out what it has no memory for, and only malloc() tells.
  checked = check(dg.place(), {{errno == ENOMEM, "no memory for all of the report", ZOR_PROCESS_ERROR_NO_MEMORY}});
  if (!checked) return checked.error();
  return text;
}

}  // namespace detail
}  // namespace zor::process

#endif /* ZOR_PROCESS_REPORT_HPP_ */
