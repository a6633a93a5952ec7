#include "export/jsonl.h"

#include <fmt/format.h>

#include <cstdint>
#include <iterator>
#include <nlohmann/json.hpp>
#include <optional>
#include <string_view>
#include <utility>

#include "export/arrays.h"

namespace zorstat {
namespace {

namespace zp = zor::process;

std::string Quoted(std::string_view text) { return nlohmann::json(text).dump(); }

// Numbers are written as the digits that they have: a double would lose some of 64 bits.
class JsonLines : public Exporter {
 public:
  JsonLines(const Settings &settings, std::string *lines) : lines_(*lines), host_(Quoted(HostName(settings))) {}

  void Begin(const Run &run) override { group_ = Quoted(run.group); }

  void EndInterval(const IntervalReadings &interval) override {
    text_.clear();
    for (const ObjectReadings &object : interval.objects) {
      const std::string head = fmt::format(R"({{"time":{},"host":{},"group":{},"object":{})", interval.time, host_,
                                           group_, Quoted(object.name));
      for (const InstanceReadings &instance : object.instances) {
        Add(R"({},"instance":{})", head, Quoted(instance.name()));
        AddInstance(instance, *object.plan);
      }
    }
    lines_ += text_;  // all of the interval or none of it, should memory end
  }

 private:
  template <class... Values>
  void Add(fmt::format_string<Values...> format, Values &&...values) {
    fmt::format_to(std::back_inserter(text_), format, std::forward<Values>(values)...);
  }

  void AddInstance(const InstanceReadings &instance, const ObjectPlan &plan) {
    if (instance.values) AddValues(*instance.values, plan);
    if (instance.baseline) AddBaseline(instance);
    const Reading &reading = instance.values ? *instance.values : *instance.baseline;
    Add(",\"resets\":{},\"refused\":{}}}\n", reading.resets, reading.refused);
  }

  void AddValues(const Reading &reading, const ObjectPlan &plan) {
    const std::uint64_t samples = SamplesOf(reading, plan);
    Add(",\"samples\":{}", samples);
    if (samples == 0) return;
    if (HasSummary(plan)) {
      Add(",\"min\":{},\"max\":{},\"sum\":{}", reading.min.text(), reading.max.text(), reading.sum.text());
      AddPercentiles(reading.points);
    }
    // Without a range the buckets cover all values of the type, which tells nothing.
    if (plan.range && reading.distribution) AddDistribution(*reading.distribution);
  }

  void AddPercentiles(const std::optional<zp::Points> &points) {
    text_ += ",\"percentiles\":";
    if (points) {
      AppendArray(*points, &text_);
    } else {
      text_ += "null";
    }
  }

  void AddDistribution(const zp::Distribution &distribution) {
    Add(R"(,"start":{},"last":{},"below":{},"above":{},"buckets":)", distribution.start.text(),
        distribution.last.text(), distribution.below, distribution.above);
    AppendArray(distribution.buckets, &text_);
  }

  void AddBaseline(const InstanceReadings &instance) {
    const std::optional<zp::Distribution> &learnt = instance.baseline->distribution;
    Add(R"(,"low":{},"high":{},"outside":{})", learnt ? learnt->start.text() : "null",
        learnt ? learnt->last.text() : "null", instance.outside);
  }

  std::string &lines_;
  std::string host_, group_;  // quoted
  std::string text_;
};

}  // namespace

std::unique_ptr<Exporter> MakeJsonLines(const Settings &settings, std::string *lines) {
  return std::make_unique<JsonLines>(settings, lines);
}

}  // namespace zorstat
