#include "collector.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstring>
#include <string_view>

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
  if (settings.clear) clear_polls_ = ClearPolls(*settings.clear, poll_interval);
  if (settings.percentile) percentile_ = settings.percentile->value;
  if (settings.instances) expected_instances_ = settings.instances->value;
  for (const ObjectPlan &plan : plans) {
    std::optional<uint32_t> clear_polls = clear_polls_;
    if (plan.clear) clear_polls = ClearPolls(*plan.clear, poll_interval);
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
  cell_pointers_[0] = &cells_[0];
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

std::string Collector::EndPoll() {
  Deliver(ZOR_PROCESS_MSG_END_OF_POLL, 0, nullptr, "end of poll");
  const bool cleared = clear_polls_ && ++polls_since_clear_ == *clear_polls_;
  if (cleared) {
    polls_since_clear_ = 0;
    rest_ = false;
  }
  std::string records;
  for (Group &group : groups_) {
    // A baseline fills its buffers on its own, whenever its samples are enough.
    if (cleared || group.is_baseline()) group.TakeRecords(&records);
  }
  return WithHeaders(std::move(records));
}

std::string Collector::Finish() {
  std::string records;
  for (size_t i = 0; i < groups_.size(); ++i) {
    if (rest_ || groups_[i].is_baseline()) learning_[i] = groups_[i].TakeRest(&records);
  }
  return WithHeaders(std::move(records));
}

std::string Collector::WithHeaders(std::string records) {
  if (!headers_wanted_ || records.empty()) return records;
  std::string text;
  headers_wanted_ = false;
  for (Group &group : groups_) {
    const std::string headers = group.Headers();
    if (headers.empty()) headers_wanted_ = true;  // until it has an instance
    for (size_t start = 0; start < headers.size();) {
      size_t end = headers.find('\n', start);
      end = headers.find('\n', end + 1) + 1;
      const std::string header = headers.substr(start, end - start);
      if (headers_written_.insert(header).second) text += header;
      start = end;
    }
  }
  return text + records;
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
    Group &group = groups_[i];
    if (group.refused() != 0) {
      refused += fmt::format("{}{} {} ({})", refused.empty() ? "" : ", ", group.object(), group.refused(),
                             group.is_baseline() ? "without a bucket" : "not in the sum");
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
