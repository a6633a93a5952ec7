#include "export/verdict.h"

#include <fmt/format.h>

#include <algorithm>
#include <map>
#include <string>
#include <utility>

#include "error.h"
#include "notes.h"
#include "text.h"

namespace zorstat {
namespace {

using zor::process::Distribution;

bool HasRange(const ObjectPlan &plan) {
  constexpr unsigned kBuckets = ZOR_PROCESS_FLAG_DISTRIBUTION | ZOR_PROCESS_FLAG_PERCENTILE;
  return plan.statistics == ZOR_PROCESS_FLAG_BASELINE || (plan.range && (plan.statistics & kBuckets) != 0);
}

// Samples that a range was held against, in all intervals together.
struct Judged {
  std::uint64_t outside = 0, samples = 0;
  std::string range;

  void Add(std::uint64_t more_outside, std::uint64_t more_samples, const Distribution &distribution) {
    outside += more_outside;
    samples += more_samples;
    if (range.empty()) range = fmt::format("{}:{}", distribution.start.text(), distribution.last.text());
  }
  double percent() const {
    return samples == 0 ? 0 : 100.0 * static_cast<double>(outside) / static_cast<double>(samples);
  }
};

struct Instance {
  std::string object, name;
  Judged configured = {}, learnt = {};

  bool is_learnt_worse() const { return learnt.percent() > configured.percent(); }
  const Judged &worse() const { return is_learnt_worse() ? learnt : configured; }
};

class VerdictExporter : public Exporter {
 public:
  explicit VerdictExporter(const Setting<double> &most) : most_(most) {}

  void Begin(const Run &run) override {
    if (std::any_of(run.plans.begin(), run.plans.end(), HasRange)) return;
    throw SettingsError(most_.where +
                        ": nothing to judge: expected an object with buckets in a range, or a baseline");
  }

  void EndInterval(const IntervalReadings &interval) override {
    for (const ObjectReadings &object : interval.objects) {
      for (const InstanceReadings &instance : object.instances) Add(object, instance);
    }
  }

  void Finish() override {
    std::erase_if(instances_,
                  [&](const Instance &instance) { return !(instance.worse().percent() > most_.value); });
    if (instances_.empty()) return;
    std::stable_sort(instances_.begin(), instances_.end(), [](const Instance &a, const Instance &b) {
      return a.worse().percent() > b.worse().percent();
    });
    std::vector<std::vector<std::string>> rows;
    for (const Instance &instance : instances_) {
      const Judged &worse = instance.worse();
      rows.push_back({fmt::format("{:.2f} %", worse.percent()),
                      fmt::format("{} of {} samples", worse.outside, worse.samples),
                      fmt::format("outside {}{}", worse.range, instance.is_learnt_worse() ? " (learnt)" : ""),
                      Printable(instance.object), Printable(instance.name)});
      if (rows.size() == kNamed) break;
    }
    std::string lines;
    AppendColumns(rows, {false, false, true, true, true}, &lines);
    NameList notes = Split(lines, '\n');
    notes.pop_back();
    if (instances_.size() > kNamed) {
      notes.push_back(fmt::format("{} more instances outside", instances_.size() - kNamed));
    }
    throw Verdict(std::move(notes));
  }

 private:
  void Add(const ObjectReadings &object, const InstanceReadings &instance) {
    const auto [at, is_new] = known_.try_emplace({std::string(object.name), instance.name()}, instances_.size());
    if (is_new) instances_.push_back({std::string(object.name), instance.name()});
    Instance &judged = instances_[at->second];
    if (instance.baseline && instance.baseline->distribution) {
      judged.learnt.Add(instance.outside, instance.judged, *instance.baseline->distribution);
    }
    if (!instance.values || !instance.values->distribution || !object.plan->range) return;
    const Distribution &distribution = *instance.values->distribution;
    judged.configured.Add(SamplesOutside(distribution), SamplesOf(distribution), distribution);
  }

  Setting<double> most_;
  std::vector<Instance> instances_;
  std::map<std::pair<std::string, std::string>, std::size_t> known_;  // of these
};

}  // namespace

std::unique_ptr<Exporter> MakeVerdict(const Settings &settings) {
  return settings.fail_outside ? std::make_unique<VerdictExporter>(*settings.fail_outside) : nullptr;
}

}  // namespace zorstat
