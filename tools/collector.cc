#include "collector.h"

#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <string_view>
#include <utility>

#include "error.h"

namespace zorstat {
namespace {

namespace zp = zor::process;
using zp::Statistics;

constexpr Statistics kBuckets = Statistics::distribution | Statistics::percentile;

Statistics StatisticsOf(const ObjectPlan &plan) { return static_cast<Statistics>(plan.statistics); }

void Check(const zp::Status &status, std::string_view where, std::string_view object) {
  if (status) return;
  const auto &[code, message] = status.error();
  throw Error(fmt::format("{}: {}: library error {} \"{}\": {}", where, object, code,
                          zor_proc_get_error_string_list(code),
                          code == ZOR_PROCESS_ERROR_NO_MEMORY ? "out of memory" : message));
}

template <class T>
T Take(zp::Result<T> result, std::string_view where, std::string_view object) {
  if (!result) Check(result.error(), where, object);
  return *std::move(result);
}

zp::ObjectSettings SettingsOf(const ObjectPlan &plan, std::uint32_t poll_interval) {
  zp::ObjectSettings settings;
  settings.statistics = StatisticsOf(plan);
  settings.values = plan.cumulative ? zp::Values::cumulative : zp::Values::sampled;
  settings.range = plan.range;
  settings.buckets = plan.buckets;
  settings.instances = plan.instances.value_or(NameList{});
  if (plan.clear) settings.learning = zp::Interval::polls(ClearPolls(*plan.clear, poll_interval));
  return settings;
}

}  // namespace

Collector::Collector(const Table &table, const std::vector<ObjectPlan> &plans, const Settings &settings,
                     const std::string &dg, std::uint32_t poll_interval)
    : table_(table), headers_wanted_(settings.headers) {
  const auto has_buckets = [](const ObjectPlan &plan) { return overlap(StatisticsOf(plan), kBuckets); };
  if (settings.clear) {
    clear_polls_ = ClearPolls(*settings.clear, poll_interval);
  } else if (std::any_of(plans.begin(), plans.end(), has_buckets)) {
    clear_polls_ = zp::kLargestCount;  // a bucket counts no further
  }
  if (settings.percentile) percentile_ = settings.percentile->value;
  if (settings.instances) expected_instances_ = settings.instances->value;
  for (const ObjectPlan &plan : plans) objects_.push_back(MakeObject(plan, dg, poll_interval));
}

Collector::Object Collector::MakeObject(const ObjectPlan &plan, const std::string &dg,
                                        std::uint32_t poll_interval) const {
  const Column &column = table_.columns[plan.column];
  zp::GroupSettings settings;
  settings.poll_interval = std::chrono::seconds(poll_interval);
  if (clear_polls_ && StatisticsOf(plan) != Statistics::baseline) {
    settings.clear = zp::Interval::polls(*clear_polls_);
  }
  zp::Engine engine;
  zp::Group group = Take(engine.group(dg, settings), "settings", column.name);
  Check(group.object(column.name, SettingsOf(plan, poll_interval)), "settings", column.name);
  zp::Template columns(table_.key);
  const auto values = columns.column(column.name, column.type);
  Check(group.start(columns), "template", column.name);
  return {column.name, plan.column, StatisticsOf(plan), std::move(group), values};
}

void Collector::AddRows(const Poll &poll, const std::string &source) {
  rest_ = true;
  for (Object &object : objects_) object.poll.emplace(Take(object.group.poll(), source, object.name));
  for (std::size_t row = 0; row < poll.rows(); ++row) {
    const zp::Name key = poll.key(row);
    for (Object &object : objects_) {
      const Value &value = poll.values(row)[object.index];
      if (value) Check(object.poll->row(key, {object.column(*value)}), source, object.name);
    }
  }
}

void Collector::EndPoll(std::string *records) {
  const std::size_t start = records->size();
  for (Object &object : objects_) {
    const zp::Status ended = object.poll->end();
    records->append(object.group.take_records());
    Check(ended, "end of poll", object.name);
  }
  if (clear_polls_ && ++polls_since_clear_ == *clear_polls_) {
    polls_since_clear_ = 0;
    rest_ = false;
  }
  InsertHeaders(start, records);
}

void Collector::Finish(std::string *records) {
  const std::size_t start = records->size();
  FirstFailure failure;
  for (Object &object : objects_) {
    failure.Try([&] { FinishObject(object, records); });
  }
  failure.Try([&] { InsertHeaders(start, records); });
  failure.Rethrow();
}

void Collector::FinishObject(Object &object, std::string *records) const {
  const bool is_baseline = object.statistics == Statistics::baseline;
  if (!rest_ && !is_baseline) return;
  const zp::Status rendered = is_baseline ? object.group.snapshot() : object.group.clear();
  records->append(object.group.take_records());
  Check(rendered, "last records", object.name);
  object.learning = object.group.still_learning();
}

void Collector::InsertHeaders(std::size_t position, std::string *records) {
  if (!headers_wanted_ || records->size() == position) return;
  bool all_known = true;
  for (const Object &object : objects_) {
    const auto headers = Take(object.group.headers(), "headers", object.name);
    if (headers.empty()) all_known = false;  // until it has an instance
    for (const std::string &header : headers) {
      if (headers_written_.contains(header)) continue;
      records->insert(position, header);
      position += header.size();
      headers_written_.insert(header);
    }
  }
  headers_wanted_ = !all_known;
}

std::string Collector::Report() const {
  std::string report;
  for (const Object &object : objects_) {
    zp::ReportSettings settings;
    settings.sections = object.statistics;
    settings.percentile = percentile_;
    report += Take(object.group.report(settings), "report", object.name);
    if (const std::uint64_t refused = object.group.refused(); refused != 0) {
      const bool is_baseline = object.statistics == Statistics::baseline;
      report += fmt::format("\nValues {}: {}\n", is_baseline ? "without a bucket" : "not in the sum", refused);
    }
  }
  return report;
}

std::vector<std::string> Collector::Notes() const {
  std::vector<std::string> notes;
  std::string refused;
  for (const Object &object : objects_) {
    if (const std::uint64_t count = object.group.refused(); count != 0) {
      refused +=
          fmt::format("{}{} {} ({})", refused.empty() ? "" : ", ", object.name, count,
                      object.statistics == Statistics::baseline ? "without a bucket"
                      : overlap(object.statistics, kBuckets)    ? "not in the sum, so that percentiles do not hold"
                                                                : "not in the sum");
    }
    if (object.learning != 0) {
      notes.push_back(fmt::format("{}: no baseline yet, {} instance{} still learning", object.name, object.learning,
                                  object.learning == 1 ? " is" : "s are"));
    }
  }
  if (!refused.empty()) notes.push_back("refused values: " + refused);
  for (const std::string &instance : expected_instances_) {
    const auto has_it = [&](const Object &object) { return object.group.has_instance(instance); };
    if (std::none_of(objects_.begin(), objects_.end(), has_it)) {
      notes.push_back(fmt::format("instance {}: had no values", instance));
    }
  }
  return notes;
}

}  // namespace zorstat
