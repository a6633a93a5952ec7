// How far baseline percentiles can be trusted, on streams of several kinds: prints the table in docs/baselines.md.
//
// Each instance learns from 500 samples, in 100 buckets, and then gives a record every 500 samples, twenty times.
// Records are held against the exact percentiles of all samples counted since learning.

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <functional>
#include <random>
#include <vector>

#include "zor/process.h"

namespace {

constexpr int kInstances = 200;
constexpr int kPeriod = 500;
constexpr int kPeriods = 20;
constexpr std::uint16_t kBuckets = 100;
constexpr std::uint16_t kMaxOutsideBuckets = 10;

using Random = std::mt19937_64;
using Stream = std::function<double(Random &, int)>;

struct Tally {
  double samples = 0, refused = 0;
  double records = 0, failed = 0;
  double values = 0, close = 0;
};

// Twice the bucket's width is what two neighbouring buckets can hide; values are compared against it.
void CompareRecord(stats_analyzer_uint64_t &analyzer, std::vector<std::uint64_t> &counted, Tally &tally) {
  stats_fixed_point_uint64_t results[9];
  if (stats_analyzer_get_percentile_values_uint64(&analyzer, g_stats_percentile_1000, results, 9) != 0) return;
  std::sort(counted.begin(), counted.end());
  ++tally.records;
  if (results[8].int_part != counted.back()) {  // the last point is the maximum, unless the estimate failed
    ++tally.failed;
    return;
  }
  for (int i = 0; i < 9; ++i) {
    const double position = g_stats_percentile_1000[i] / 100000.0 * static_cast<double>(counted.size() - 1);
    const auto rank = static_cast<std::size_t>(position);
    const double next = static_cast<double>(counted[std::min(rank + 1, counted.size() - 1)]);
    const double exact = static_cast<double>(counted[rank]) +
                         (position - std::floor(position)) * (next - static_cast<double>(counted[rank]));
    const double estimate = static_cast<double>(results[i].int_part) + results[i].thousandths / 1000.0;
    ++tally.values;
    if (std::abs(estimate - exact) <= 2.0 * static_cast<double>(analyzer.dynamic_counters.Range)) ++tally.close;
  }
}

Tally Measure(const Stream &stream) {
  Tally tally;
  for (int instance = 0; instance < kInstances; ++instance) {
    Random random(static_cast<std::uint64_t>(instance));
    stats_analyzer_uint64_t analyzer = {};
    if (stats_analyzer_init_uint64(&analyzer, kPeriod, kBuckets, kMaxOutsideBuckets) != 0) std::abort();
    std::vector<std::uint64_t> counted;
    for (int i = 0; i < kPeriod * (kPeriods + 1); ++i) {
      const auto value = static_cast<std::uint64_t>(std::max(0.0, stream(random, i)));
      const std::int32_t code = stats_analyzer_insert_uint64(&analyzer, value);
      if (i < kPeriod) continue;
      ++tally.samples;
      if (code != 0) ++tally.refused;
      counted.push_back(value);
      if ((i + 1) % kPeriod == 0) CompareRecord(analyzer, counted, tally);
    }
    stats_analyzer_uninit_uint64(&analyzer);
  }
  return tally;
}

double Normal(Random &random, double mean, double deviation) {
  return std::normal_distribution<double>(mean, deviation)(random);
}

bool Chance(Random &random, double share) { return std::bernoulli_distribution(share)(random); }

}  // namespace

int main() {
  const struct {
    const char *name;
    Stream stream;
  } kinds[] = {
      {"steady, normal", [](Random &r, int) { return Normal(r, 100000, 5000); }},
      {"steady, uniform", [](Random &r, int) { return std::uniform_real_distribution<double>(0, 1e6)(r); }},
      {"exponential", [](Random &r, int) { return std::exponential_distribution<double>(1e-5)(r); }},
      {"heavy tail (log-normal, 1)", [](Random &r, int) { return std::exp(Normal(r, 11, 1)); }},
      {"rare spikes (0.2 %, ten times)",
       [](Random &r, int) { return Normal(r, 100000, 5000) * (Chance(r, 0.002) ? 10 : 1); }},
      {"mostly idle, bursts (2 %)",
       [](Random &r, int) {
         return Chance(r, 0.02) ? std::exponential_distribution<double>(1e-5)(r) : Normal(r, 100, 10);
       }},
      {"daily cycle, learnt in part",
       [](Random &r, int i) { return Normal(r, 100000 + 50000 * std::sin(i * 6.2832 / 4000), 5000); }},
      {"step to twice, after learning",
       [](Random &r, int i) { return Normal(r, i < 3000 ? 100000 : 200000, 5000); }},
      {"slow growth (to twice)", [](Random &r, int i) { return Normal(r, 100000 + 10 * i, 5000); }},
  };
  std::printf("| %-30s | %15s | %14s | %20s |\n", "stream", "samples refused", "records failed",
              "values within 2 buckets");
  std::printf("|%s|%s|%s|%s|\n", "---", "--:", "--:", "--:");
  for (const auto &kind : kinds) {
    const Tally tally = Measure(kind.stream);
    std::printf("| %-30s | %13.2f %% | %12.1f %% | %21.1f %% |\n", kind.name, 100 * tally.refused / tally.samples,
                100 * tally.failed / tally.records, tally.values > 0 ? 100 * tally.close / tally.values : 0.0);
  }
}
