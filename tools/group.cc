#include "group.h"

#include <fmt/format.h>

#include <cerrno>
#include <cstdlib>
#include <memory>
#include <new>

#include "capture.h"
#include "error.h"
#include "zor/datalist.h"
#include "zor/entry.h"

namespace zorstat {
namespace {

constexpr uint16_t kCleared =
    ZOR_PROCESS_FLAG_SUMMARY | ZOR_PROCESS_FLAG_DISTRIBUTION | ZOR_PROCESS_FLAG_PERCENTILE;
constexpr uint16_t kBaseline = ZOR_PROCESS_FLAG_BASELINE;

struct Free {
  void operator()(char *text) const { std::free(text); }
};
using Text = std::unique_ptr<char, Free>;

std::string_view Meaning(uint32_t code) {
  switch (code) {
    case ZOR_PROCESS_ERROR_NO_MEMORY:
      return "out of memory";
    case ZOR_PROCESS_ERROR_INVALID_CLEAR_INTERVAL:
      return "an earlier record was not collected";
    case ZOR_PROCESS_ERROR_INVALID_RANGE:
      return "the range does not fit the column's type";
    default:
      return "the library did not expect this call";
  }
}

void Check(uint32_t code, const std::string &where, const std::string &object) {
  if (code == ZOR_PROCESS_SUCCESS) return;
  throw Error(fmt::format("{}: {}: library error {} \"{}\": {}", where, object, code,
                          zor_proc_get_error_string_list(code), Meaning(code)));
}

template <typename Entry>
uint32_t SampleCount(const void *entry) {
  return static_cast<const Entry *>(entry)->sample_count;
}

// Samples that the baseline of the cursor's instance has counted since its last record.
uint32_t SamplesSinceRecord(const zor_process_data_cursor_t &cursor) {
#define ZORSTAT_SAMPLE_COUNT(type, value, unsigned_value, total) \
  SampleCount<zor_process_object_instance_entry_##type##_t>,
  static constexpr uint32_t (*kSampleCounts[])(const void *) = {ZOR_PROCESS_FOR_EACH_TYPE(ZORSTAT_SAMPLE_COUNT)};
#undef ZORSTAT_SAMPLE_COUNT
  return kSampleCounts[cursor.oper_entry->data_type - 1](cursor.entry);
}

// Appends the cursor's record first and takes it from the library then, so that no failure loses it.
void TakeBuffer(const zor_process_data_cursor_t &cursor, std::string *records) {
  char *text = zor_process_engine_get_clear_buffer(&cursor);
  if (text == nullptr) return;
  records->append(text);
  zor_process_engine_set_clear_buffer(&cursor, nullptr);
  std::free(text);
}

class DataList {
 public:
  DataList() {
    handle_.datalist = zor_datalist_create();
    if (handle_.datalist == 0) throw std::bad_alloc();
  }
  ~DataList() {
    if (pvg_prt_handle == &handle_) pvg_prt_handle = nullptr;
    zor_datalist_free(handle_.datalist);
  }
  DataList(const DataList &) = delete;
  DataList &operator=(const DataList &) = delete;

  zor_process_print_handle_t *handle() { return &handle_; }

  // Appends the items that were added since the last call.
  void AppendNewItems(std::string *text) {
    zor_datalist_item_t item;
    for (; zor_datalist_get(handle_.datalist, next_, &item) == 0; ++next_) text->append(item.text);
  }

 private:
  zor_process_print_handle_t handle_{};
  uint32_t next_ = 0;
};

}  // namespace

Group::Group(const std::string &dg, const std::string &object, const ObjectPlan &plan, uint32_t poll_interval,
             std::optional<uint32_t> clear_polls)
    : dg_(dg), object_(object), statistics_(plan.statistics) {
  kel_ext_hash_name_init(&engine_.dgs);
  Configure(plan, poll_interval, clear_polls);
}

Group::~Group() {
  const char *name = dg_.c_str();
  zor_process_engine_set_dg(&engine_, ZOR_PROCESS_OPER_DELETE, &name, nullptr);
  kel_hashset_free(&engine_.dgs);
}

void Group::Configure(const ObjectPlan &plan, uint32_t poll_interval, std::optional<uint32_t> clear_polls) {
  const std::string where = "settings";
  uint32_t clear_type = 1;
  uint32_t clear_interval = clear_polls.value_or(0);
  zor_process_attr_t dg_attr{};
  zor_process_attr_t common{};
  if (clear_polls) {
    // A baseline is never cleared by its data group: the interval is the object's, and is its learning count.
    zor_process_attr_t &attr = is_baseline() ? common : dg_attr;
    attr.clear_type = &clear_type;
    attr.clear_interval = &clear_interval;
  }
  const char *name = dg_.c_str();
  Check(zor_process_engine_set_dg(&engine_, ZOR_PROCESS_OPER_SET, &name, &dg_attr), where, object_);
  zor_process_engine_set_poll_interval(&engine_, dg_.c_str(), poll_interval);

  // Percentiles bring records of the summary with them; said in full, the headers do so too.
  uint16_t flags = (plan.statistics & ZOR_PROCESS_FLAG_PERCENTILE) != 0 ? kCleared : plan.statistics;
  uint32_t buckets = plan.buckets;
  common.flags = &flags;
  common.buckets = &buckets;
  uint32_t value_kind = plan.cumulative ? 1 : 0;
  zor_process_object_attr_t object_attr{};
  object_attr.common = &common;
  object_attr.value_kind = &value_kind;
  Range range = plan.range.value_or(Range(0, 0));
  if (!plan.range) range.type = 0;
  object_attr.range_type = &range.type;
  object_attr.range = range.bounds;
  name = object_.c_str();
  Check(zor_process_engine_set_object(&engine_, ZOR_PROCESS_OPER_SET, dg_.c_str(), &name, &object_attr), where,
        object_);
  for (const std::string &instance : plan.instances.value_or(NameList{})) {
    name = instance.c_str();
    Check(
        zor_process_engine_set_object_instance(&engine_, ZOR_PROCESS_OPER_SET, dg_.c_str(), object_.c_str(), &name),
        where, object_);
  }
}

void Group::Process(const zor_process_msg_t &message, const std::string &where) {
  errno = 0;
  uint32_t code = zor_process_engine_process_data(&engine_, dg_.c_str(), &message);
  // A baseline that lacks memory refuses this value, or all later ones, as it does those that it has no bucket for.
  // Only malloc() tells the difference.
  if (is_baseline() && errno == ENOMEM) code = ZOR_PROCESS_ERROR_NO_MEMORY;
  if (code == ZOR_PROCESS_ERROR_IN_DATA && message.kind == ZOR_PROCESS_MSG_ROW) {
    ++refused_;
    Clear(0, where);  // clears nothing but the latch
  } else {
    Check(code, where, object_);
  }
}

void Group::Clear(uint16_t mask, const std::string &where) {
  Check(zor_process_engine_clear_dg_data(&engine_, dg_.c_str(), mask, 0), where, object_);
}

zor_process_data_cursor_t Group::Start() const {
  zor_process_data_cursor_t cursor{};
  cursor.dg_name = dg_.c_str();
  return cursor;
}

template <typename Visit>
void Group::ForEachInstance(uint32_t output_mode, Visit visit) {
  zor_process_data_cursor_t cursor = Start();
  do {
    // Nothing may be rendered for an instance; the walk ends where there is none.
    const Text text(zor_process_engine_get_next_object_instance_data(&engine_, &cursor, output_mode));
    if (cursor.entry != nullptr) visit(cursor);
  } while (cursor.entry != nullptr);
}

void Group::TakeRecords(std::string *records) {
  ForEachInstance(0, [&](const zor_process_data_cursor_t &cursor) { TakeBuffer(cursor, records); });
}

uint64_t Group::TakeRest(std::string *records) {
  // What a poll that failed has left behind would not let the next record in.
  FirstFailure failure;
  failure.Try([&] { TakeRecords(records); });
  failure.Try([&] { Clear(is_baseline() ? kBaseline : kCleared, "last records"); });
  uint64_t learning = 0;
  failure.Try([&] {
    ForEachInstance(0, [&](const zor_process_data_cursor_t &cursor) {
      std::string repeated;
      if (is_baseline() && zor_process_engine_get_clear_buffer(&cursor) == nullptr) ++learning;
      TakeBuffer(cursor, is_baseline() && SamplesSinceRecord(cursor) == 0 ? &repeated : records);
    });
  });
  failure.Rethrow();
  return learning;
}

std::string Group::Headers() {
  zor_process_data_cursor_t cursor = Start();
  const Text text(
      zor_process_engine_get_next_object_instance_data(&engine_, &cursor, ZOR_PROCESS_OUTPUT_SCHEMA_DEF));
  if (!text && cursor.entry != nullptr) Check(ZOR_PROCESS_ERROR_NO_MEMORY, "headers", object_);
  return text ? text.get() : "";
}

std::string Group::Report(const std::optional<uint32_t> &percentile) {
  // The library leaves out what it has no memory for, and only malloc() tells.
  for (int attempts = 2; attempts > 0; --attempts) {
    errno = 0;
    std::string report = ReportOnce(percentile);
    if (errno != ENOMEM) return report;
  }
  Check(ZOR_PROCESS_ERROR_NO_MEMORY, "report", object_);
  return "";
}

std::string Group::ReportOnce(const std::optional<uint32_t> &percentile) {
  DataList list;
  const zor_process_data_cursor_t dg = Start();
  zor_process_engine_print_object_instance_data_with_handle(
      &engine_, &dg, nullptr, nullptr, percentile ? &*percentile : nullptr, statistics_ & kCleared, list.handle());
  std::string report;
  list.AppendNewItems(&report);
  if (is_baseline()) {
    // The first line of an instance goes to the list, the rest is printed.
    StdoutCapture capture;
    ForEachInstance(ZOR_PROCESS_OUTPUT_CONSOLE, [&](const zor_process_data_cursor_t &) {
      report += "\n";
      list.AppendNewItems(&report);
      report += capture.Take();
    });
  }
  if (refused_ != 0) {
    report += fmt::format("\nValues {}: {}\n", is_baseline() ? "without a bucket" : "not in the sum", refused_);
  }
  return report;
}

bool Group::HasInstance(const std::string &name) {
  const auto *dg = static_cast<zor_process_dg_t *>(kel_ext_hash_name_get(&engine_.dgs, dg_.c_str()));
  if (dg == nullptr || dg->oper_entries == nullptr) return false;
  auto *oper_entry =
      static_cast<zor_process_object_oper_entry_t *>(kel_ext_hash_name_get(dg->oper_entries, object_.c_str()));
  return oper_entry != nullptr && kel_ext_hash_name_get(&oper_entry->instances, name.c_str()) != nullptr;
}

}  // namespace zorstat
