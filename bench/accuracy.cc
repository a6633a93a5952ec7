// How far the percentiles of a distribution are off, on samples of several kinds: prints the tables in
// docs/percentiles.md; with --csv the figures of its plot.
//
// Each instance gets the samples of one clear interval. Its nine percentiles are held against the exact ones, of
// the same definition: the interpolation between neighbouring samples at the position 1 + p (n - 1).

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <random>
#include <vector>

#include "zor/process.h"

namespace {

constexpr int kInstances = 1000;
constexpr std::uint64_t kLast = 999999;  // of the range 0 to 999,999
constexpr int kPoints = 9;
constexpr int kMedian = 4, kUpper = 6;  // P50 and P97.72
constexpr std::uint16_t kBuckets[] = {10, 30, 100, 300, 1000, 3000, 10000};

using Random = std::mt19937_64;

struct Kind {
  const char *name;
  std::function<double(Random &)> sample;
};

double Normal(Random &random, double mean, double deviation) {
  return std::normal_distribution<double>(mean, deviation)(random);
}

const Kind kKinds[] = {
    {"uniform", [](Random &r) { return std::uniform_real_distribution<double>(0, 1e6)(r); }},
    {"normal", [](Random &r) { return Normal(r, 500000, 100000); }},
    {"exponential", [](Random &r) { return std::exponential_distribution<double>(1e-5)(r); }},
    {"log-normal (heavy tail)", [](Random &r) { return std::exp(Normal(r, std::log(50000), 1)); }},
    {"bimodal", [](Random &r) { return Normal(r, std::bernoulli_distribution(0.5)(r) ? 200000 : 800000, 20000); }},
};

// Errors of each point, over all instances.
struct Errors {
  double samples_outside = 0;
  std::vector<double> widths[kPoints];    // |estimate - exact| in buckets' widths
  std::vector<double> relative[kPoints];  // and as a share of the exact value
};

double Quantile(std::vector<double> values, double q) {
  std::sort(values.begin(), values.end());
  return values[static_cast<std::size_t>(q * static_cast<double>(values.size() - 1))];
}

double Exact(const std::vector<std::uint64_t> &sorted, std::uint32_t point) {
  const double position = point / 100000.0 * static_cast<double>(sorted.size() - 1);
  const auto rank = static_cast<std::size_t>(position);
  const auto low = static_cast<double>(sorted[rank]);
  const auto high = static_cast<double>(sorted[std::min(rank + 1, sorted.size() - 1)]);
  return low + (position - std::floor(position)) * (high - low);
}

Errors Measure(const Kind &kind, std::uint32_t samples, std::uint16_t buckets) {
  Errors errors;
  for (int instance = 0; instance < kInstances; ++instance) {
    Random random(static_cast<std::uint64_t>(instance));
    stats_range_counters_uint64_t range = {};
    if (stats_range_counters_init_uint64(&range, 0, kLast, buckets) != 0) std::abort();
    std::vector<std::uint64_t> values(samples);
    for (std::uint64_t &value : values) {
      value = static_cast<std::uint64_t>(std::max(0.0, kind.sample(random)));
      if (stats_range_counters_insert_uint64(&range, value) != 0) ++errors.samples_outside;
    }
    std::sort(values.begin(), values.end());
    stats_fixed_point_uint64_t results[kPoints];
    if (stats_percentile_get_values_uint64(g_stats_percentile_1000, results, kPoints, values.front(), values.back(),
                                           samples, stats_range_counters_find_Vk_Vk1_uint64, &range) != 0) {
      std::abort();
    }
    for (int i = 1; i < kPoints - 1; ++i) {
      const double exact = Exact(values, g_stats_percentile_1000[i]);
      const double estimate = static_cast<double>(results[i].int_part) + results[i].thousandths / 1000.0;
      const double error = std::abs(estimate - exact);
      errors.widths[i].push_back(error * buckets / (kLast + 1));
      if (exact > 0) errors.relative[i].push_back(error / exact);
    }
    std::free(range.pu16_counters);
  }
  errors.samples_outside /= kInstances * static_cast<double>(samples);
  return errors;
}

// In buckets' widths, of 100 buckets: what 95 of 100 errors stay below, and the largest.
void PrintPoints(std::uint32_t samples) {
  std::printf("| %u samples | outside | 0.13 %% | 2.28 %% | 15.87 %% | 50 %% | 84.13 %% | 97.72 %% | 99.87 %% |\n",
              samples);
  std::printf("|---|--:|--:|--:|--:|--:|--:|--:|--:|\n");
  for (const Kind &kind : kKinds) {
    const Errors errors = Measure(kind, samples, 100);
    std::printf("| %s | %.2f %% |", kind.name, 100 * errors.samples_outside);
    for (int i = 1; i < kPoints - 1; ++i) {
      std::printf(" %.2f, %.2f |", Quantile(errors.widths[i], 0.95), Quantile(errors.widths[i], 1));
    }
    std::printf("\n");
  }
  std::printf("\n");
}

void PrintCsv(std::uint32_t samples) {
  std::printf("kind,buckets,median_p50,median_p95,upper_p50,upper_p95\n");
  for (const Kind &kind : kKinds) {
    for (const std::uint16_t buckets : kBuckets) {
      const Errors errors = Measure(kind, samples, buckets);
      std::printf("%s,%u,%g,%g,%g,%g\n", kind.name, buckets, Quantile(errors.relative[kMedian], 0.5),
                  Quantile(errors.relative[kMedian], 0.95), Quantile(errors.relative[kUpper], 0.5),
                  Quantile(errors.relative[kUpper], 0.95));
    }
  }
}

}  // namespace

int main(int argc, char **argv) {
  if (argc > 1 && std::strcmp(argv[1], "--csv") == 0) {
    PrintCsv(360);
    return 0;
  }
  for (const std::uint32_t samples : {60, 360, 8640}) PrintPoints(samples);
}
