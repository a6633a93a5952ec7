#include "collector.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstring>
#include <string_view>

#include "error.h"

namespace zorstat {
namespace {

bool IsSigned(zor_process_data_type_t type) {
  return type == ZOR_PROCESS_DATA_TYPE_INT32 || type == ZOR_PROCESS_DATA_TYPE_INT64;
}

uint32_t Width(zor_process_data_type_t type) {
  return type == ZOR_PROCESS_DATA_TYPE_INT64 || type == ZOR_PROCESS_DATA_TYPE_UINT64 ? 8 : 4;
}

}  // namespace

Collector::Collector(const Table &table, const std::vector<ObjectPlan> &plans, const Settings &settings,
                     const std::string &dg, uint32_t poll_interval)
    : table_(table),
      headers_wanted_(settings.headers),
      cells_(table.columns.size() + 1),
      cell_pointers_(table.columns.size() + 1) {
  const auto has_buckets = [](const ObjectPlan &plan) { return HasBuckets(plan.statistics); };
  if (settings.clear) {
    clear_polls_ = ClearPolls(*settings.clear, poll_interval);
  } else if (std::any_of(plans.begin(), plans.end(), has_buckets)) {
    clear_polls_ = kLargestCount;  // a bucket counts no further
  }
  if (settings.percentile) percentile_ = settings.percentile->value;
  if (settings.instances) expected_instances_ = settings.instances->value;
  for (const ObjectPlan &plan : plans) {
    std::optional<uint32_t> clear_polls;
    if (plan.clear) {
      clear_polls = ClearPolls(*plan.clear, poll_interval);
    } else if (plan.statistics != ZOR_PROCESS_FLAG_BASELINE) {
      clear_polls = clear_polls_;
    }
    groups_.emplace_back(dg, table.columns[plan.column].name, plan, poll_interval, clear_polls);
  }
  learning_.resize(groups_.size());

  std::vector<zor_process_column_t> columns;
  columns.push_back({table.key.c_str(), ZOR_PROCESS_VALUE_STRING, 0, 0, ZOR_PROCESS_COLUMN_KEY});
  for (const Column &column : table.columns) {
    const uint32_t type = IsSigned(column.type) ? ZOR_PROCESS_VALUE_SIGNED : ZOR_PROCESS_VALUE_UNSIGNED;
    columns.push_back({column.name.c_str(), type, 0, Width(column.type), 0});
  }
  std::vector<void *> pointers;
  pointers.reserve(columns.size());
  for (zor_process_column_t &column : columns) pointers.push_back(&column);
  Deliver(ZOR_PROCESS_MSG_TEMPLATE, static_cast<int32_t>(pointers.size()), pointers.data(), "template");

  cells_[0].type = ZOR_PROCESS_VALUE_STRING;
  cell_pointers_[0] = cells_.data();
  for (size_t i = 1; i < columns.size(); ++i) {
    cells_[i].type = columns[i].type;
    cells_[i].length = columns[i].width;
  }
}

void Collector::Deliver(uint32_t kind, int32_t count, void **columns, const std::string &where) {
  const zor_process_msg_t message{0, kind, count, columns};
  for (Group &group : groups_) group.Process(message, where);
}

void Collector::AddRows(const Poll &poll, const std::string &source) {
  rest_ = true;
  for (size_t row = 0; row < poll.rows(); ++row) {
    cells_[0].value = poll.key(row);
    cells_[0].length = static_cast<uint32_t>(std::strlen(poll.key(row)));
    const Value *values = poll.values(row);
    for (size_t i = 0; i < table_.columns.size(); ++i) {
      cells_[i + 1].value = &values[i].bits;
      cell_pointers_[i + 1] = values[i].present ? &cells_[i + 1] : nullptr;
    }
    Deliver(ZOR_PROCESS_MSG_ROW, static_cast<int32_t>(cells_.size()), cell_pointers_.data(), source);
  }
}

void Collector::EndPoll(std::string *records) {
  const size_t start = records->size();
  Deliver(ZOR_PROCESS_MSG_END_OF_POLL, 0, nullptr, "end of poll");
  const bool cleared = clear_polls_ && ++polls_since_clear_ == *clear_polls_;
  if (cleared) {
    polls_since_clear_ = 0;
    rest_ = false;
  }
  for (Group &group : groups_) {
    // A baseline fills its buffers on its own, whenever its samples are enough.
    if (cleared || group.is_baseline()) group.TakeRecords(records);
  }
  InsertHeaders(start, records);
}

void Collector::Finish(std::string *records) {
  const size_t start = records->size();
  FirstFailure failure;
  for (size_t i = 0; i < groups_.size(); ++i) {
    failure.Try([&] {
      if (rest_ || groups_[i].is_baseline()) learning_[i] = groups_[i].TakeRest(records);
    });
  }
  failure.Try([&] { InsertHeaders(start, records); });
  failure.Rethrow();
}

void Collector::InsertHeaders(size_t position, std::string *records) {
  if (!headers_wanted_ || records->size() == position) return;
  bool all_known = true;
  for (Group &group : groups_) {
    const std::string headers = group.Headers();
    if (headers.empty()) all_known = false;  // until it has an instance
    for (size_t start = 0; start < headers.size();) {
      size_t end = headers.find('\n', start);
      end = headers.find('\n', end + 1) + 1;
      const std::string header = headers.substr(start, end - start);
      start = end;
      if (headers_written_.contains(header)) continue;
      records->insert(position, header);
      position += header.size();
      headers_written_.insert(header);
    }
  }
  headers_wanted_ = !all_known;
}

std::string Collector::Report() {
  std::string report;
  for (Group &group : groups_) report += group.Report(percentile_);
  return report;
}

std::vector<std::string> Collector::Notes() {
  std::vector<std::string> notes;
  std::string refused;
  for (size_t i = 0; i < groups_.size(); ++i) {
    const Group &group = groups_[i];
    if (group.refused() != 0) {
      refused += fmt::format("{}{} {} ({})", refused.empty() ? "" : ", ", group.object(), group.refused(),
                             group.is_baseline()   ? "without a bucket"
                             : group.has_buckets() ? "not in the sum, so that percentiles do not hold"
                                                   : "not in the sum");
    }
    if (learning_[i] != 0) {
      notes.push_back(fmt::format("{}: no baseline yet, {} instance{} still learning", group.object(), learning_[i],
                                  learning_[i] == 1 ? " is" : "s are"));
    }
  }
  if (!refused.empty()) notes.push_back("refused values: " + refused);
  for (const std::string &instance : expected_instances_) {
    const auto has_it = [&](Group &group) { return group.HasInstance(instance); };
    if (std::none_of(groups_.begin(), groups_.end(), has_it)) {
      notes.push_back(fmt::format("instance {}: had no values", instance));
    }
  }
  return notes;
}

}  // namespace zorstat
