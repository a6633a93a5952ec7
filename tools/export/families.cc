#include "export/families.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstddef>
#include <limits>
#include <set>
#include <string_view>
#include <utility>

#include "zor/percentile.h"

namespace zorstat {
namespace {

namespace zp = zor::process;
using prometheus::ClientMetric;
using prometheus::MetricType;
using zp::Number;
using Labels = std::vector<ClientMetric::Label>;

// In the order of kFamilies.
enum Family {
  kSample,
  kOutside,
  kInterval,
  kBaseline,
  kBaselineLow,
  kBaselineHigh,
  kBaselineLearning,
  kBaselineOutside,
  kRefused,
  kResets,
  kPolls,
  kPollInterval,
  kLastPoll,
  kIntervalEnd
};

// One name for all objects, which are labels, so that one rule serves them all.
struct FamilyRow {
  const char *name;
  MetricType type;
  const char *help;
};
constexpr FamilyRow kFamilies[] = {
    {"zorstat_sample", MetricType::Histogram, "Samples of an object that has a range, since the start."},
    {"zorstat_outside_total", MetricType::Counter, "Samples beyond the configured range."},
    {"zorstat_interval", MetricType::Summary,
     "Quantiles of the last finished interval; sum and count are since the start."},
    {"zorstat_baseline", MetricType::Summary, "Samples since the baseline has learnt."},
    {"zorstat_baseline_low", MetricType::Gauge, "First value of the learnt range."},
    {"zorstat_baseline_high", MetricType::Gauge, "Last value of the learnt range."},
    {"zorstat_baseline_learning", MetricType::Gauge, "1 while the baseline learns, 0 afterwards."},
    {"zorstat_baseline_outside_total", MetricType::Counter, "Samples beyond the learnt range."},
    {"zorstat_refused_values_total", MetricType::Counter,
     "Values that a full sum or bucket, or a baseline far from them, has not counted."},
    {"zorstat_resets_total", MetricType::Counter, "How often the polled counter began anew."},
    {"zorstat_polls_total", MetricType::Counter, "Polls since the start."},
    {"zorstat_poll_interval_seconds", MetricType::Gauge, "Time between polls."},
    {"zorstat_last_poll_timestamp_seconds", MetricType::Gauge, "Time of the last poll."},
    {"zorstat_interval_end_timestamp_seconds", MetricType::Gauge, "End of the last finished interval."},
};

bool IsLeast(Number value, zor_process_data_type_t type) {
  switch (type) {
    case ZOR_PROCESS_DATA_TYPE_INT32:
      return value == Number(std::numeric_limits<std::int32_t>::min());
    case ZOR_PROCESS_DATA_TYPE_INT64:
      return value == Number(std::numeric_limits<std::int64_t>::min());
    default:
      return value == Number();
  }
}

// The number below one that is not the least.
Number Before(Number number) {
  if (number.is_negative() || number == Number()) return static_cast<std::int64_t>(number.bits()) - 1;
  return number.bits() - 1;
}

// Bounds that look the same in the text format would be the same series: the higher one stands for both.
void AppendEdge(Number edge, std::vector<Number> *edges) {
  constexpr const char *kText = "{:.16g}";
  const auto text = [&](Number number) { return fmt::format(kText, static_cast<double>(number)); };
  if (!edges->empty() && text(edges->back()) == text(edge)) edges->pop_back();
  edges->push_back(edge);
}

std::vector<ClientMetric::Quantile> QuantilesOf(const zp::Reading &reading) {
  if (reading.samples == 0) return {};
  // The extremes need no buckets.
  if (!reading.points) return {{0, static_cast<double>(reading.min)}, {1, static_cast<double>(reading.max)}};
  std::vector<ClientMetric::Quantile> quantiles;
  quantiles.reserve(reading.points->size());
  for (std::size_t i = 0; i < reading.points->size(); ++i) {
    constexpr double kWhole = 100'000;
    quantiles.push_back({g_stats_percentile_1000[i] / kWhole, static_cast<double>((*reading.points)[i])});
  }
  return quantiles;
}

}  // namespace

// Of an object that has a range. Which buckets there are comes from the settings alone, so that instances and hosts
// have the same edges. With the same buckets those of a coarse set are among those of one finer by a whole factor.
void FamilyMaker::FindEdges(const InstanceReadings &instance, ObjectSeries *object) const {
  if (!object->plan->range || !instance.values || !instance.values->distribution) return;
  const auto &[start, last, below, above, buckets] = *instance.values->distribution;
  if (!IsLeast(start, run_.table.columns[object->plan->column].type)) AppendEdge(Before(start), &object->edges);
  const std::size_t count = std::min<std::size_t>(object->plan->edges, buckets.size());
  for (std::size_t i = 1; i <= count; ++i) AppendEdge(buckets[i * buckets.size() / count - 1].last, &object->edges);
}

// Objects come in the same order each time.
void FamilyMaker::Meet(const std::vector<ObjectReadings> &objects) {
  for (std::size_t i = objects_.size(); i < objects.size(); ++i) {
    objects_.push_back({std::string(objects[i].name), objects[i].plan});
  }
  for (std::size_t i = 0; i < objects.size(); ++i) {
    ObjectSeries &object = objects_[i];
    for (const InstanceReadings &instance : objects[i].instances) {
      if (object.edges.empty()) FindEdges(instance, &object);
      InstanceSeries &series = object.series[instance.name()];
      series.counts.resize(object.edges.size());
    }
  }
}

void FamilyMaker::Follow(const std::vector<ObjectReadings> &in_progress) {
  Meet(in_progress);
  for (std::size_t i = 0; i < in_progress.size(); ++i) {
    std::set<std::string_view> there;
    for (const InstanceReadings &instance : in_progress[i].instances) there.insert(instance.name());
    std::erase_if(objects_[i].series, [&](const auto &item) { return !there.contains(item.first); });
  }
}

void FamilyMaker::Add(const InstanceReadings &instance, const ObjectSeries &object, InstanceSeries *series) {
  if (const auto &values = instance.values) {
    series->summary.sample_count += values->samples;
    series->summary.sample_sum += static_cast<double>(values->sum);
    series->refused += values->refused;
    if (!object.edges.empty()) {
      const zp::Distribution &distribution = *values->distribution;
      series->below += distribution.below;
      series->above += distribution.above;
      series->counts.front() += distribution.below;
      std::size_t edge = 0;
      for (const zp::Bucket &bucket : distribution.buckets) {
        while (object.edges[edge] < bucket.last) ++edge;
        series->counts[edge] += bucket.count;
      }
    }
  }
  series->resets += instance.values ? instance.values->resets : instance.baseline->resets;
  if (const auto &reading = instance.baseline) {
    series->refused += reading->refused;
    BaselineSeries &baseline = series->baseline.emplace();
    baseline.is_learning = reading->baseline == zp::Stage::learning;
    if (const auto &learnt = reading->distribution) {
      baseline.low = learnt->start;
      baseline.high = learnt->last;
      baseline.below = learnt->below;
      baseline.above = learnt->above;
    }
    baseline.summary = {reading->samples, static_cast<double>(reading->sum), QuantilesOf(*reading)};
  }
}

void FamilyMaker::EndInterval(const IntervalReadings &interval) {
  interval_end_ = interval.time;
  Meet(interval.objects);
  for (std::size_t i = 0; i < interval.objects.size(); ++i) {
    for (const InstanceReadings &instance : interval.objects[i].instances) {
      InstanceSeries &series = objects_[i].series.find(instance.name())->second;
      Add(instance, objects_[i], &series);
      if (instance.values) series.summary.quantile = QuantilesOf(*instance.values);
    }
  }
}

void FamilyMaker::EndPoll(std::int64_t time) {
  ++polls_;
  last_poll_ = time;
}

// Fills the families, and leaves out those that stay empty.
class FamilyMaker::Builder {
 public:
  Builder() {
    for (const FamilyRow &row : kFamilies) families_.push_back({row.name, row.help, row.type, {}});
  }

  ClientMetric &Add(Family family, const Labels &labels) {
    ClientMetric &metric = families_[family].metric.emplace_back();
    metric.label = labels;
    return metric;
  }
  template <class Number>
  void AddCounter(Family family, const Labels &labels, Number value) {
    Add(family, labels).counter.value = static_cast<double>(value);
  }
  template <class Number>
  void AddGauge(Family family, const Labels &labels, Number value) {
    Add(family, labels).gauge.value = static_cast<double>(value);
  }
  void AddSides(Family family, Labels labels, std::uint64_t below, std::uint64_t above) {
    labels.push_back({"side", "below"});
    AddCounter(family, labels, below);
    labels.back().value = "above";
    AddCounter(family, labels, above);
  }

  void AddSeries(const ObjectSeries &object, const Labels &labels, const InstanceSeries &series) {
    const bool has_summary = HasSummary(*object.plan);
    if (has_summary) Add(kInterval, labels).summary = series.summary;
    if (!object.edges.empty()) {
      ClientMetric::Histogram &histogram = Add(kSample, labels).histogram;
      histogram.sample_sum = has_summary ? series.summary.sample_sum : std::numeric_limits<double>::quiet_NaN();
      for (std::size_t i = 0; i < object.edges.size(); ++i) {
        histogram.sample_count += series.counts[i];
        histogram.bucket.push_back({histogram.sample_count, static_cast<double>(object.edges[i])});
      }
      histogram.sample_count += series.above;
      histogram.bucket.push_back({histogram.sample_count, std::numeric_limits<double>::infinity()});
      AddSides(kOutside, labels, series.below, series.above);
    }
    AddCounter(kRefused, labels, series.refused);
    if (object.plan->values == Values::counter) AddCounter(kResets, labels, series.resets);
    if (series.baseline) AddBaseline(labels, *series.baseline);
  }

  MetricFamilies Take() {
    std::erase_if(families_, [](const prometheus::MetricFamily &family) { return family.metric.empty(); });
    return std::move(families_);
  }

 private:
  void AddBaseline(const Labels &labels, const BaselineSeries &baseline) {
    Add(kBaseline, labels).summary = baseline.summary;
    if (baseline.low) AddGauge(kBaselineLow, labels, *baseline.low);
    if (baseline.high) AddGauge(kBaselineHigh, labels, *baseline.high);
    AddGauge(kBaselineLearning, labels, baseline.is_learning);
    AddSides(kBaselineOutside, labels, baseline.below, baseline.above);
  }

  MetricFamilies families_;
};

MetricFamilies FamilyMaker::Make(const std::vector<ObjectReadings> &in_progress) const {
  Builder builder;
  Labels labels = {{"group", run_.group}};
  builder.AddCounter(kPolls, labels, polls_);
  builder.AddGauge(kPollInterval, labels, run_.poll_interval);
  builder.AddGauge(kLastPoll, labels, last_poll_);
  if (interval_end_) builder.AddGauge(kIntervalEnd, labels, *interval_end_);
  labels.push_back({"object", ""});
  labels.push_back({"key", ""});
  for (std::size_t i = 0; i < objects_.size(); ++i) {
    std::map<std::string_view, const InstanceReadings *> now;
    if (i < in_progress.size()) {
      for (const InstanceReadings &instance : in_progress[i].instances) now.emplace(instance.name(), &instance);
    }
    labels[1].value = objects_[i].name;
    for (const auto &[name, ended] : objects_[i].series) {
      InstanceSeries series = ended;
      if (const auto found = now.find(name); found != now.end()) Add(*found->second, objects_[i], &series);
      labels[2].value = name;
      builder.AddSeries(objects_[i], labels, series);
    }
  }
  return builder.Take();
}

}  // namespace zorstat
