// Showing statistics to Prometheus: making the metrics after a poll, and a scrape of them.

#include <prometheus/histogram.h>
#include <prometheus/registry.h>
#include <prometheus/summary.h>
#include <prometheus/text_serializer.h>

#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

#include "contest.h"
#include "export/families.h"
#include "scenarios.h"

namespace bench {
namespace {

constexpr std::uint32_t kObjects = 10, kSamples = 60, kBuckets = 100, kRange = 10000;

std::uint32_t SampleOf(std::uint32_t instance, std::uint32_t poll) {
  return (instance * 37 + poll * 1009) % kRange;
}
std::string NameOf(std::uint32_t instance) { return "instance" + std::to_string(instance); }

void Check(const zor::process::Status &status) {
  if (!status) std::abort();
}

// Readings of samples, and the families that are made of them.
class Ours {
 public:
  Ours(std::uint32_t instances, std::uint32_t edges)
      : plans_(kObjects), run_{"bench", 10, table_, plans_, true}, maker_(run_) {
    const zor::process::Range range(0, kRange - 1);
    for (std::uint32_t c = 0; c < kObjects; ++c) {
      table_.columns.push_back({"column" + std::to_string(c), ZOR_PROCESS_DATA_TYPE_UINT64, true});
      plans_[c].column = c;
      plans_[c].statistics = ZOR_PROCESS_FLAG_SUMMARY | ZOR_PROCESS_FLAG_PERCENTILE;
      plans_[c].edges = edges;
      plans_[c].range = range;
      plans_[c].values = zor::process::Values::counter;
    }
    zor::process::Engine engine;
    auto group = engine.group("bench", {});
    Check(group->object("column",
                        {zor::process::Statistics::percentile, zor::process::Values::sampled, range, kBuckets}));
    zor::process::Template columns("key");
    const auto column = columns.column<std::uint64_t>("column");
    Check(group->start(columns));
    for (std::uint32_t poll = 0; poll < kSamples; ++poll) {
      auto open = group->poll();
      for (std::uint32_t i = 0; i < instances; ++i) Check(open->row(NameOf(i), {column(SampleOf(i, poll))}));
      Check(open->end());
    }
    const std::vector<zorstat::Reading> readings = group->readings();
    for (std::uint32_t c = 0; c < kObjects; ++c) {
      readings_.push_back({table_.columns[c].name, &plans_[c], {}});
      for (const zorstat::Reading &reading : readings) readings_.back().instances.push_back({reading, {}});
    }
    maker_.EndInterval({1700000000, kSamples, readings_});
    maker_.EndPoll(1700000000);
  }
  zorstat::MetricFamilies Make() { return maker_.Make(readings_); }

 private:
  zorstat::Table table_;
  std::vector<zorstat::ObjectPlan> plans_;
  zorstat::Run run_;
  zorstat::FamilyMaker maker_;
  std::vector<zorstat::ObjectReadings> readings_;
};

// Of the same samples: so many buckets and nine quantiles.
void FillRegistry(std::uint32_t instances, std::uint32_t edges, prometheus::Registry *registry) {
  prometheus::Histogram::BucketBoundaries bounds;
  for (std::uint32_t i = 1; i <= edges; ++i) bounds.push_back(kRange / edges * i - 1);
  prometheus::Summary::Quantiles quantiles;
  for (const double point : {0.0, 0.0013, 0.0228, 0.1587, 0.5, 0.8413, 0.9772, 0.9987, 1.0}) {
    quantiles.emplace_back(point, 0.001);
  }
  auto &histograms = prometheus::BuildHistogram().Name("sample").Help("Samples.").Register(*registry);
  auto &summaries = prometheus::BuildSummary().Name("interval").Help("Quantiles.").Register(*registry);
  for (std::uint32_t c = 0; c < kObjects; ++c) {
    for (std::uint32_t i = 0; i < instances; ++i) {
      const prometheus::Labels labels = {
          {"group", "bench"}, {"key", NameOf(i)}, {"object", "column" + std::to_string(c)}};
      auto &histogram = histograms.Add(labels, bounds);
      auto &summary = summaries.Add(labels, quantiles);
      for (std::uint32_t poll = 0; poll < kSamples; ++poll) {
        histogram.Observe(SampleOf(i, poll));
        summary.Observe(SampleOf(i, poll));
      }
    }
  }
}

std::uint32_t CountSeries(std::string_view text, std::string_view name) {
  std::uint32_t count = 0;
  for (auto at = text.find(name); at != std::string_view::npos; at = text.find(name, at + 1)) ++count;
  return count;
}

void RunScrape(benchmark::State &state, std::uint32_t instances, std::uint32_t edges) {
  constexpr double kMillisecond = 1e6;
  const prometheus::TextSerializer serializer;
  Ours ours(instances, edges);
  prometheus::Registry registry;
  FillRegistry(instances, edges, &registry);
  zorstat::MetricFamilies made;
  std::string text, peer_text;
  Contest contest;
  // What each scrape does: a copy, and the text.
  contest.Add("make", [&] { return Nanoseconds([&] { made = ours.Make(); }) / kMillisecond; });
  contest.Add(kOurs, [&] {
    return Nanoseconds([&] { text = serializer.Serialize(zorstat::MetricFamilies(made)); }) / kMillisecond;
  });
  contest.Add("prometheus_metrics", [&] {
    return Nanoseconds([&] { peer_text = serializer.Serialize(registry.Collect()); }) / kMillisecond;
  });
  contest.Run(state);
  state.counters["bytes"] = static_cast<double>(text.size()) / 1000;
  state.counters["prometheus_metrics_bytes"] = static_cast<double>(peer_text.size()) / 1000;
  const std::uint32_t expected = kObjects * instances * (edges + 1);
  if (CountSeries(text, "\nzorstat_sample_bucket{") != expected) state.SkipWithError("buckets are missing");
  if (CountSeries(peer_text, "\nsample_bucket{") != expected) state.SkipWithError("the peer's buckets are missing");
}

}  // namespace

void RegisterScrape(const Options &options) {
  for (const std::uint32_t instances : {50u, 1000u}) {
    for (const std::uint32_t edges : {20u, 100u}) {
      if (options.quick && instances * edges > 50000) continue;
      Register("scrape/" + std::to_string(instances) + "_" + std::to_string(edges), options.Rounds(11),
               [=](benchmark::State &state) { RunScrape(state, instances, edges); });
    }
  }
}

}  // namespace bench
