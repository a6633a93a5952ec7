#include "collector.h"

#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <functional>
#include <nlohmann/json.hpp>
#include <set>
#include <string_view>
#include <utility>

#include "error.h"
#include "notes.h"
#include "text.h"

namespace zorstat {
namespace {

namespace zp = zor::process;
using zp::Statistics;

constexpr std::string_view kNineZeros = ", 0.000, 0.000, 0.000, 0.000, 0.000, 0.000, 0.000, 0.000, 0.000\r\n";
constexpr std::string_view kOnlyZeros = ", 0, 0, 0.000\r\n";  // in a summary
constexpr std::string_view kNoSamples = ", 0\r\n";
constexpr std::uint32_t kDefaultLearning = 2000;  // samples
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

// A field of a record; name and time are before the first comma.
constexpr int kInstance = 2;
std::string_view FieldOf(std::string_view line, int commas) {
  for (; commas != 0; --commas) line.remove_prefix(line.find(',') + 1);
  return line.substr(1, line.find(',') - 1);
}

// The instances that have counted nothing but zeros.
std::set<std::string, std::less<>> IdleInstances(const zp::Group &group) {
  std::set<std::string, std::less<>> idle;
  for (zp::Reading &reading : group.readings()) {
    if (reading.min == zp::Number() && reading.max == zp::Number()) idle.insert(std::move(reading.name));
  }
  return idle;
}

zp::ObjectSettings SettingsOf(const ObjectPlan &plan, std::uint32_t poll_interval) {
  zp::ObjectSettings settings;
  settings.statistics = StatisticsOf(plan);
  settings.values = plan.values;
  settings.range = plan.range;
  settings.buckets = plan.buckets;
  settings.instances = plan.instances.value_or(NameList{});
  if (StatisticsOf(plan) == Statistics::baseline) {
    settings.learning = zp::Interval::polls(plan.clear ? ClearPolls(*plan.clear, poll_interval) : kDefaultLearning);
  }
  return settings;
}

}  // namespace

Collector::Collector(const Run &run, const Settings &settings, bool keep_readings, std::size_t cores)
    : run_(run),
      workers_(std::min(cores, run.plans.size() + 1)),
      has_headers_(settings.headers),
      headers_wanted_(has_headers_),
      keep_readings_(keep_readings) {
  const auto has_buckets = [](const ObjectPlan &plan) { return overlap(StatisticsOf(plan), kBuckets); };
  if (settings.clear) {
    clear_polls_ = ClearPolls(*settings.clear, run.poll_interval);
  } else if (std::any_of(run.plans.begin(), run.plans.end(), has_buckets)) {
    clear_polls_ = zp::kLargestCount;  // a bucket counts no further
  }
  if (settings.expire) expire_ = settings.expire->value;
  if (settings.percentile) percentile_ = settings.percentile->value;
  if (settings.instances) missing_instances_ = settings.instances->value;
  for (const ObjectPlan &plan : run.plans) objects_.push_back(MakeObject(plan));
}

Collector::Object Collector::MakeObject(const ObjectPlan &plan) const {
  const Column &column = run_.table.columns[plan.column];
  zp::GroupSettings settings;
  settings.poll_interval = std::chrono::seconds(run_.poll_interval);
  settings.keep_readings = keep_readings_;
  if (clear_polls_) settings.clear = zp::Interval::polls(*clear_polls_);  // a baseline has no part in it but expiry
  settings.expire = expire_;
  zp::Engine engine;
  zp::Group group = Take(engine.group(run_.group, settings), "settings", column.name);
  Check(group.object(column.name, SettingsOf(plan, run_.poll_interval)), "settings", column.name);
  zp::Template columns(run_.table.key);
  const auto values = columns.column(column.name, column.type);
  Check(group.start(columns), "template", column.name);
  return {column.name, &plan, StatisticsOf(plan), std::move(group), values};
}

// Does it with each object and appends the records that the objects have then, in their order. A failure of one
// keeps no other from being done, so that it is the same who does them.
template <class Do>
void Collector::Collect(Do do_it, bool is_much, std::string *records) {
  FirstFailure failure;
  if (is_much && is_shared_) {
    failure.Try([&] { workers_.Run(objects_.size(), [&](std::size_t i) { do_it(objects_[i]); }); });
  } else {
    for (Object &object : objects_) failure.Try([&] { do_it(object); });
  }
  for (Object &object : objects_) records->append(std::exchange(object.records, {}));
  failure.Rethrow();
}

void Collector::AddRows(const Poll &poll, const std::string &source, const std::function<void()> &meanwhile) {
  rest_ = true;
  last_time_ = poll.time;
  any_row_ = any_row_ || poll.rows() != 0;
  // To wake a thread takes as long as to count some hundred values.
  constexpr std::size_t kWorthSharing = 1000;
  is_shared_ = workers_.count() > 1 && poll.rows() * objects_.size() >= kWorthSharing;
  if (!is_shared_) return AddRows(poll, source, objects_);
  // Parts of a few objects each: with one, a row would be looked at too often; with many, cores would wait at the
  // end.
  constexpr std::size_t kParts = 4;  // for each core
  const std::size_t size = std::max<std::size_t>(objects_.size() / (kParts * workers_.count()), 1);
  const std::size_t parts = (objects_.size() + size - 1) / size;
  workers_.Run(parts + 1, [&](std::size_t part) {
    if (part == 0) return meanwhile ? meanwhile() : void();
    const std::size_t begin = (part - 1) * size;
    AddRows(poll, source, std::span(objects_).subspan(begin, std::min(size, objects_.size() - begin)));
  });
}

void Collector::AddRows(const Poll &poll, const std::string &source, std::span<Object> objects) {
  for (Object &object : objects) object.poll.emplace(Take(object.group.poll(), source, object.name));
  for (std::size_t row = 0; row < poll.rows(); ++row) {
    const zp::Name key = poll.key(row);
    for (Object &object : objects) {
      const Value &value = poll.values(row)[object.plan->column];
      if (!value) continue;
      object.has_value = true;
      Check(object.poll->row(key, {object.column(*value)}), source, object.name);
    }
  }
}

void Collector::EndPoll(std::string *records) {
  const std::size_t start = records->size();
  const bool is_due = clear_polls_ && polls_since_clear_ + 1 == *clear_polls_;
  const auto end = [&](Object &object) {
    const zp::Status ended = object.poll->end();
    TakeRecords(object);
    Check(ended, "end of poll", object.name);
  };
  Collect(end, is_due, records);
  ++polls_since_clear_;
  if (is_due) BeginInterval();
  InsertHeaders(start, records);
}

void Collector::Clear(std::string *records) {
  if (!rest_) return;
  const std::size_t start = records->size();
  const auto clear = [&](Object &object) {
    const zp::Status cleared = object.group.clear();
    TakeRecords(object);
    Check(cleared, "end of interval", object.name);
  };
  Collect(clear, true, records);
  BeginInterval();
  InsertHeaders(start, records);
}

void Collector::RepeatHeaders() {
  headers_wanted_ = has_headers_;
  headers_written_.clear();
}

// All groups have been cleared.
void Collector::BeginInterval() {
  rest_ = false;
  FindMissing();
  if (keep_readings_) KeepReadings();
  polls_since_clear_ = 0;
}

void Collector::KeepReadings() {
  std::vector<std::vector<Reading>> ended;
  std::vector<std::map<std::string, Judged>> judged;
  for (Object &object : objects_) {
    std::vector<Reading> taken = object.group.take_readings();
    ended.push_back(taken.empty() ? std::exchange(object.ended, {}) : std::move(taken));
    judged.emplace_back();
    for (const Reading &reading : ended.back()) {
      if (reading.baseline) judged.back()[reading.name] = JudgedIn(reading);
    }
  }
  auto next = ended.begin();
  interval_ = {last_time_, polls_since_clear_, Join([&](const Object &) { return std::move(*next++); })};
  for (std::size_t i = 0; i < objects_.size(); ++i) objects_[i].judged = std::move(judged[i]);
}

Collector::Judged Collector::JudgedIn(const Reading &baseline) {
  if (!baseline.distribution) return {};
  return {SamplesOf(*baseline.distribution), SamplesOutside(*baseline.distribution)};
}

// A baseline stands behind the other statistics of its column.
template <class Read>
std::vector<ObjectReadings> Collector::Join(Read read) const {
  std::vector<ObjectReadings> joined;
  for (const Object &object : objects_) {
    if (IsFirstOfColumn(object)) joined.push_back({object.name, object.plan, {}});
    std::vector<InstanceReadings> &instances = joined.back().instances;
    std::vector<Reading> readings = read(object);
    instances.reserve(instances.size() + readings.size());
    if (object.statistics != Statistics::baseline) {
      for (Reading &reading : readings) instances.push_back({std::move(reading), std::nullopt});
      continue;
    }
    std::map<std::string_view, InstanceReadings *> known;
    for (InstanceReadings &instance : instances) known.emplace(instance.name(), &instance);
    for (Reading &reading : readings) {
      const auto found = known.find(reading.name);
      InstanceReadings &instance = found == known.end() ? instances.emplace_back() : *found->second;
      const auto [judged, outside] = JudgedIn(reading);
      const auto last = object.judged.find(reading.name);
      auto [judged_before, outside_before] = last == object.judged.end() ? Judged() : last->second;
      // The counts begin anew when one of them is full.
      if (judged < judged_before || outside < outside_before) judged_before = outside_before = 0;
      instance.judged = judged - judged_before;
      instance.outside = outside - outside_before;
      instance.baseline = std::move(reading);
    }
  }
  return joined;
}

std::optional<IntervalReadings> Collector::TakeInterval() { return std::exchange(interval_, std::nullopt); }

std::vector<ObjectReadings> Collector::InProgress() const {
  return Join([](const Object &object) { return object.group.readings(); });
}

// Before the instances that had values expire.
void Collector::FindMissing() {
  std::erase_if(missing_instances_, [&](const std::string &instance) {
    const auto has_it = [&](const Object &object) { return object.group.has_instance(instance); };
    return std::any_of(objects_.begin(), objects_.end(), has_it);
  });
}

void Collector::Finish(std::string *records) {
  const std::size_t start = records->size();
  FirstFailure failure;
  failure.Try([&] { Collect([&](Object &object) { FinishObject(object); }, true, records); });
  failure.Try([&] { InsertHeaders(start, records); });
  if (keep_readings_ && rest_) KeepReadings();
  FindMissing();
  failure.Rethrow();
}

void Collector::Pause() {
  for (Object &object : objects_) object.learning = object.group.still_learning();
  FindMissing();
}

nlohmann::json Collector::Save() const {
  nlohmann::json objects = nlohmann::json::array();
  for (const Object &object : objects_) {
    const std::string group = Take(object.group.save(), "state", object.name);
    objects.push_back({{"group", nlohmann::json::binary({group.begin(), group.end()})},
                       {"has_value", object.has_value},
                       {"refused", object.refused},
                       {"percentiles", object.percentiles},
                       {"unknown", object.unknown},
                       {"judged", object.judged}});
  }
  return {{"objects", std::move(objects)},
          {"missing", missing_instances_},
          {"headers_wanted", headers_wanted_},
          {"headers", headers_written_},
          {"time", last_time_},
          {"polls", polls_since_clear_},
          {"rest", rest_},
          {"any_row", any_row_}};
}

bool Collector::Load(const nlohmann::json &state, zp::Counters counters) {
  const nlohmann::json &objects = state.at("objects");
  if (objects.size() != objects_.size()) return false;
  for (std::size_t i = 0; i < objects_.size(); ++i) {
    Object &object = objects_[i];
    const auto &group = objects[i].at("group").get_binary();
    if (!object.group.load({reinterpret_cast<const char *>(group.data()), group.size()}, counters)) return false;
    objects[i].at("has_value").get_to(object.has_value);
    objects[i].at("refused").get_to(object.refused);
    objects[i].at("percentiles").get_to(object.percentiles);
    objects[i].at("unknown").get_to(object.unknown);
    objects[i].at("judged").get_to(object.judged);
  }
  state.at("missing").get_to(missing_instances_);
  state.at("headers_wanted").get_to(headers_wanted_);
  state.at("headers").get_to(headers_written_);
  state.at("time").get_to(last_time_);
  state.at("polls").get_to(polls_since_clear_);
  state.at("rest").get_to(rest_);
  state.at("any_row").get_to(any_row_);
  return true;
}

void Collector::FinishObject(Object &object) const {
  const bool is_baseline = object.statistics == Statistics::baseline;
  if (!rest_ && !is_baseline) return;
  if (is_baseline && keep_readings_) object.ended = object.group.readings();
  const zp::Status rendered = is_baseline ? object.group.snapshot() : object.group.clear();
  TakeRecords(object);
  Check(rendered, "last records", object.name);
  object.learning = object.group.still_learning();
}

// As long as all samples are counted, only those outside the range make an estimate fail.
const char *Collector::WhyUnknown(const Object &object) {
  const std::uint64_t refused = object.group.refused();
  if (object.statistics == Statistics::baseline) {
    return refused != 0 ? "samples without a bucket" : "samples outside the learnt range";
  }
  return refused != object.refused ? "a sum was full" : "samples outside the range";
}

void Collector::TakeRecords(Object &object) const {
  const std::string lines = object.group.take_records();
  if (lines.empty()) return;
  object.records += lines;
  const bool is_baseline = object.statistics == Statistics::baseline;
  const std::string head = run_.group + (is_baseline ? "-baseline: " : "-percentile: ");
  std::optional<std::set<std::string, std::less<>>> idle;  // baselines that have counted nothing but zeros
  std::string_view before;                                 // of a percentile record, the summary of its instance
  for (std::string_view rest = lines; !rest.empty();) {
    const std::string_view line = rest.substr(0, rest.find('\n') + 1);
    rest.remove_prefix(line.size());
    const std::string_view summary = std::exchange(before, line);
    if (!line.starts_with(head) || line.ends_with(kNoSamples)) continue;
    ++object.percentiles;
    if (!line.ends_with(kNineZeros)) continue;
    if (is_baseline && !idle) idle = IdleInstances(object.group);
    if (is_baseline ? idle->contains(FieldOf(line, kInstance)) : summary.ends_with(kOnlyZeros)) continue;
    ++object.unknown[WhyUnknown(object)];
  }
  object.refused = object.group.refused();
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
  NoteCounts(&notes);
  NoteInput(&notes);
  return notes;
}

// A baseline beside other statistics of a column is behind them.
bool Collector::IsFirstOfColumn(const Object &object) const {
  return &object == objects_.data() || (&object)[-1].plan->column != object.plan->column;
}

// What came of the samples.
void Collector::NoteCounts(std::vector<std::string> *notes) const {
  SomeNotes learning("objects: no baseline yet", notes);
  Items refused;
  Items unknown;
  Items resets;
  std::uint64_t percentiles = 0;
  std::uint64_t all_unknown = 0;
  for (const Object &object : objects_) {
    const std::string name = Printable(object.name);
    if (const std::uint64_t count = object.group.refused(); count != 0) {
      refused.Add(fmt::format("{} {} ({})", name, count,
                              object.statistics == Statistics::baseline ? "without a bucket"
                              : overlap(object.statistics, kBuckets)
                                  ? "not in the sum, so that percentiles do not hold"
                                  : "not in the sum"));
    }
    if (object.learning != 0) {
      learning.Add(fmt::format("{}: no baseline yet, {} instance{} still learning", name, object.learning,
                               object.learning == 1 ? " is" : "s are"));
    }
    const std::uint64_t reset = object.group.resets(object.name);
    if (reset != 0 && IsFirstOfColumn(object)) resets.Add(fmt::format("{} {}", name, reset));
    percentiles += object.percentiles;
    for (const auto &[reason, count] : object.unknown) {
      unknown.Add(fmt::format("{} {} ({})", name, count, reason));
      all_unknown += count;
    }
  }
  learning.End();
  if (!refused.empty()) notes->push_back("refused values: " + refused.text());
  if (!resets.empty()) notes->push_back("counter resets: " + resets.text());
  if (!unknown.empty()) {
    notes->push_back(
        fmt::format("percentiles unknown in {} of {} records: {}", all_unknown, percentiles, unknown.text()));
  }
}

// What was strange in the polls.
void Collector::NoteInput(std::vector<std::string> *notes) const {
  Items empty;
  for (const Object &object : objects_) {
    if (!object.has_value && IsFirstOfColumn(object)) empty.Add(Printable(object.name));
  }
  if (!empty.empty() && any_row_) notes->push_back("columns without a value: " + empty.text());
  SomeNotes missing("instances: had no values", notes);
  for (const std::string &instance : missing_instances_) {
    missing.Add(fmt::format("instance {}: had no values", Printable(instance)));
  }
  missing.End();
}

}  // namespace zorstat
