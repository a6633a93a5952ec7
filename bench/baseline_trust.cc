// How far baseline percentiles can be trusted, on streams of several kinds: prints the table in docs/baselines.md.
//
// Each baseline learns from 500 samples, in 100 buckets, and then gives a record every 500 samples, twenty times.
// Records and readings are held against the exact percentiles of all samples since learning.

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <string>
#include <vector>

#include "estimates.h"

namespace {

using namespace bench;
using namespace zor::process;

constexpr int kBaselines = 200;
constexpr int kPeriod = 500;
constexpr int kPeriods = 20;
constexpr std::uint32_t kBuckets = 100;

using Stream = std::function<double(Random &, int)>;

struct Tally : Comparison {
  double samples = 0, refused = 0;
};

void Measure(const Stream &stream, std::uint64_t seed, Tally &tally) {
  Engine engine;
  Group group = *engine.group("g");
  Template table("key");
  const auto column = table.column<std::uint64_t>("v");
  if (!group.object(
          "v", {.statistics = Statistics::baseline, .buckets = kBuckets, .learning = Interval::polls(kPeriod)}) ||
      !group.start(table)) {
    std::abort();
  }
  Random random(seed);
  std::vector<std::uint64_t> samples;
  for (int i = 0; i < kPeriod * (kPeriods + 1); ++i) {
    const auto value = static_cast<std::uint64_t>(std::max(0.0, stream(random, i)));
    Poll poll = *group.poll();
    if (!poll.row("i", {column(value)}) || !poll.end()) std::abort();
    if (i >= kPeriod) samples.push_back(value);
    const std::string record = group.take_records();
    if (record.empty()) continue;
    std::sort(samples.begin(), samples.end());
    const Nine exact = ExactPoints(samples);
    const Reading reading = group.readings().front();
    const Distribution &learnt = *reading.distribution;
    const double width = (static_cast<double>(learnt.last) - static_cast<double>(learnt.start) + 1) / kBuckets;
    tally.record.Add(exact, PointsOf(record), width);
    tally.reading.Add(exact, PointsOf(reading), width);
  }
  tally.samples += kPeriod * kPeriods;
  tally.refused += static_cast<double>(group.refused());
}

const struct {
  const char *name;
  Stream stream;
} kKinds[] = {
    {"steady, normal", [](Random &r, int) { return Normal(r, 100000, 5000); }},
    {"steady, uniform", [](Random &r, int) { return Uniform(r, 0, 1e6); }},
    {"exponential", [](Random &r, int) { return Exponential(r, 100000); }},
    {"heavy tail (log-normal, 1)", [](Random &r, int) { return std::exp(Normal(r, 11, 1)); }},
    {"rare spikes (0.2 %, ten times)",
     [](Random &r, int) { return Normal(r, 100000, 5000) * (Chance(r, 0.002) ? 10 : 1); }},
    {"mostly idle, bursts (2 %)",
     [](Random &r, int) { return Chance(r, 0.02) ? Exponential(r, 100000) : Normal(r, 100, 10); }},
    {"daily cycle, learnt in part",
     [](Random &r, int i) { return Normal(r, 100000 + 50000 * std::sin(i * 6.2832 / 4000), 5000); }},
    {"step to twice, after learning", [](Random &r, int i) { return Normal(r, i < 3000 ? 100000 : 200000, 5000); }},
    {"slow growth (to twice)", [](Random &r, int i) { return Normal(r, 100000 + 10 * i, 5000); }},
};

// Of a record without points none is close.
void PrintErrors(int width, const Errors &errors) {
  const auto close = std::count_if(errors.points.begin(), errors.points.end(),
                                   [](const PointError &error) { return error.widths <= 2; });
  std::printf(" %*.1f %% | %4.1f %% | %5.1f %% |", width - 2, Percent(errors.failed, errors.estimates),
              Percent(errors.misplaced, errors.estimates),
              Percent(static_cast<double>(close), kInnerPoints * errors.estimates));
}

}  // namespace

int main() {
  std::printf("| %-30s | refused | record: none |    off |   close | reading: none |    off |   close |\n",
              "stream");
  std::printf("|---|--:|--:|--:|--:|--:|--:|--:|\n");
  for (const auto &kind : kKinds) {
    Tally tally;
    for (int i = 0; i < kBaselines; ++i) Measure(kind.stream, static_cast<std::uint64_t>(i), tally);
    std::printf("| %-30s | %5.2f %% |", kind.name, Percent(tally.refused, tally.samples));
    PrintErrors(12, tally.record);
    PrintErrors(13, tally.reading);
    std::printf("\n");
  }
}
