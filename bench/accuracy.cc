// How far the percentiles of records and of readings are off, on samples of several kinds: prints the tables in
// docs/percentiles.md; with --csv the figures of its plot.
//
// One instance counts interval after interval. The record and the reading of each are held against the exact
// percentiles of its samples.

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <iterator>
#include <string>
#include <utility>
#include <vector>

#include "estimates.h"

namespace {

using namespace bench;
using namespace zor::process;

constexpr int kIntervals = 1000;
constexpr std::uint64_t kWidth = 1000000;  // of the range
constexpr std::uint32_t kSamples[] = {3, 6, 12, 60, 360, 8640};
constexpr std::uint32_t kBuckets[] = {10, 30, 100, 300, 1000, 3000, 10000};
constexpr std::size_t kLowest = 1, kMedian = 4, kUpper = 6;  // 0.13, 50 and 97.72 %

// Of values from 0 to kWidth; others are drawn again.
struct Kind {
  const char *name;
  std::function<double(Random &)> sample;
};

const Kind kKinds[] = {
    {"uniform", [](Random &r) { return Uniform(r, 0, 1e6); }},
    {"normal", [](Random &r) { return Normal(r, 500000, 100000); }},
    {"exponential", [](Random &r) { return Exponential(r, 100000); }},
    {"log-normal", [](Random &r) { return std::exp(Normal(r, std::log(50000), 1)); }},
    {"bimodal", [](Random &r) { return Normal(r, Chance(r, 0.5) ? 200000 : 800000, 20000); }},
};

// How the samples lie to the range.
struct Situation {
  const char *name;
  std::function<bool(std::uint32_t i, std::uint32_t samples)> is_above;
  std::uint64_t start;  // of the range
};

constexpr auto kNone = [](auto, auto) { return false; };
const Situation kInside = {"all inside", kNone, 0};
const Situation kOutside[] = {
    {"one above", [](auto i, auto) { return i < 1; }, 0},
    {"three above", [](auto i, auto) { return i < 3; }, 0},
    {"two thirds above", [](auto i, auto samples) { return 3 * i < 2 * samples; }, 0},
    {"all below", kNone, kWidth},
};

std::vector<std::uint64_t> Draw(Random &random, const Kind &kind, const Situation &situation, std::uint32_t count) {
  std::vector<std::uint64_t> samples(count);
  for (std::uint32_t i = 0; i < count; ++i) {
    double value = -1;
    while (value < 0 || value >= kWidth) value = kind.sample(random);
    if (situation.is_above(i, count)) value = Uniform(random, kWidth, 2 * kWidth);
    samples[i] = static_cast<std::uint64_t>(value);
  }
  return samples;
}

void Measure(const Kind &kind, const Situation &situation, std::uint32_t count, std::uint32_t buckets,
             Comparison &errors) {
  const Range range(situation.start, situation.start + kWidth - 1);
  Engine engine;
  Group group = *engine.group("g", {.clear = Interval::polls(count), .keep_readings = true});
  Template table("key");
  const auto column = table.column<std::uint64_t>("v");
  if (!group.object("v", {.statistics = Statistics::percentile, .range = range, .buckets = buckets}) ||
      !group.start(table)) {
    std::abort();
  }
  Random random;
  for (int interval = 0; interval < kIntervals; ++interval) {
    std::vector<std::uint64_t> samples = Draw(random, kind, situation, count);
    for (const std::uint64_t sample : samples) {
      Poll poll = *group.poll();
      if (!poll.row("i", {column(sample)}) || !poll.end()) std::abort();
    }
    std::sort(samples.begin(), samples.end());
    const Nine exact = ExactPoints(samples);
    const double width = static_cast<double>(kWidth) / buckets;
    errors.record.Add(exact, PointsOf(group.take_records()), width);
    errors.reading.Add(exact, PointsOf(group.take_readings().front()), width);
  }
}

Comparison MeasureAllKinds(const Situation &situation, std::uint32_t count) {
  Comparison errors;
  for (const Kind &kind : kKinds) Measure(kind, situation, count, 100, errors);
  return errors;
}

double Quantile(std::vector<double> values, double q) {
  if (values.empty()) return NAN;
  std::sort(values.begin(), values.end());
  return values[static_cast<std::size_t>(q * static_cast<double>(values.size() - 1))];
}

double ErrorInWidths(const Errors &errors, double q) {
  std::vector<double> widths;
  for (const PointError &error : errors.points) widths.push_back(error.widths);
  return Quantile(widths, q);
}

double NoneOrOff(const Errors &errors) { return errors.failed + errors.misplaced; }

void PrintInsideHead(const char *rows) {
  std::printf("| %-11s | record: half |  95 %% | largest | reading: half |  95 %% | largest |\n", rows);
  std::printf("|---|--:|--:|--:|--:|--:|--:|\n");
}

void PrintInside(const std::string &name, const Comparison &errors) {
  std::printf("| %-11s |", name.c_str());
  for (const auto &[estimator, width] : {std::pair(&errors.record, 12), std::pair(&errors.reading, 13)}) {
    std::printf(" %*.2f | %5.2f | %7.2f |", width, ErrorInWidths(*estimator, 0.5), ErrorInWidths(*estimator, 0.95),
                ErrorInWidths(*estimator, 1));
  }
  std::printf("\n");
}

void PrintInsideTable() {
  double off = 0, largest = 0;
  PrintInsideHead("samples");
  for (const std::uint32_t count : kSamples) {
    const Comparison errors = MeasureAllKinds(kInside, count);
    PrintInside(std::to_string(count), errors);
    off += NoneOrOff(errors.record) + NoneOrOff(errors.reading);
    for (const PointError &error : errors.record.points) {
      if (count >= 60 && error.point > kLowest) largest = std::max(largest, error.widths);
    }
  }
  std::printf("\nWithout points, or with misplaced ones: %.0f records and readings.\n", off);
  std::printf("Records of 60 samples and more, without the point 0.13 %%: %.2f widths at most.\n\n", largest);
}

void PrintKindTable() {
  PrintInsideHead("kind");
  for (const Kind &kind : kKinds) {
    Comparison errors;
    Measure(kind, kInside, 6, 100, errors);
    PrintInside(kind.name, errors);
  }
  std::printf("\n");
}

// Of records the share without points and that with misplaced ones, then the errors of records and readings.
void PrintOutside(const Situation &situation, const Comparison &errors) {
  const Errors &record = errors.record;
  char shares[32], high[32] = "-";
  std::snprintf(shares, sizeof shares, "%.0f / %.0f", Percent(record.failed, record.estimates),
                Percent(record.misplaced, record.estimates));
  if (!record.points.empty()) std::snprintf(high, sizeof high, "%.1f", ErrorInWidths(record, 0.95));
  std::printf(" %*s | %4s / %4.1f |", static_cast<int>(std::strlen(situation.name)), shares, high,
              ErrorInWidths(errors.reading, 0.95));
}

void PrintOutsideTable() {
  double off = 0;
  std::printf("| samples |");
  for (const Situation &situation : kOutside) std::printf(" %s |        95 %% |", situation.name);
  std::printf("\n|--:|--:|--:|--:|--:|--:|--:|--:|--:|\n");
  for (const std::uint32_t count : kSamples) {
    std::printf("| %7u |", count);
    for (const Situation &situation : kOutside) {
      const Comparison errors = MeasureAllKinds(situation, count);
      PrintOutside(situation, errors);
      off += NoneOrOff(errors.reading);
    }
    std::printf("\n");
  }
  std::printf("\nWithout points, or with misplaced ones: %.0f readings.\n", off);
}

constexpr int kInstances = 1000;

// Microseconds for each instance, in the fastest of some runs. run() returns the number of instances.
template <class Run>
double TimeOf(Run run) {
  using Clock = std::chrono::steady_clock;
  double least = INFINITY;
  for (int i = 0; i < 50; ++i) {
    const auto begin = Clock::now();
    if (run() != kInstances) std::abort();
    least = std::min(least, std::chrono::duration<double, std::micro>(Clock::now() - begin).count());
  }
  return least / kInstances;
}

// What the records and the reading of one of many instances take.
void PrintCost() {
  constexpr int kPolls = 60;
  Engine engine;
  Group group = *engine.group("g");
  Template table("key");
  const auto column = table.column<std::uint64_t>("v");
  if (!group.object("v", {.statistics = Statistics::percentile, .range = Range(0, kWidth - 1)}) ||
      !group.start(table)) {
    std::abort();
  }
  Random random;
  for (int i = 0; i < kInstances * kPolls; ++i) {
    Poll poll = *group.poll();
    const auto value = static_cast<std::uint64_t>(Uniform(random, 0, kWidth));
    if (!poll.row(std::to_string(i % kInstances), {column(value)}) || !poll.end()) std::abort();
  }
  const double records = TimeOf([&] {
    Walk walk = group.walk();
    return std::distance(walk.begin(), walk.end());
  });
  const double readings = TimeOf([&] { return group.readings().size(); });
  std::printf("%d samples in 100 buckets: records %.1f us, reading %.1f us.\n", kPolls, records, readings);
}

// What 95 of 100 errors of a point stay below, as a share of the exact value.
double HighError(const Errors &errors, std::size_t point) {
  std::vector<double> shares;
  for (const PointError &error : errors.points) {
    if (error.point == point) shares.push_back(error.relative);
  }
  return Quantile(shares, 0.95);
}

void PrintCsv() {
  std::printf("kind,buckets,median_record,median_reading,upper_record,upper_reading\n");
  for (const Kind &kind : kKinds) {
    for (const std::uint32_t buckets : kBuckets) {
      Comparison errors;
      Measure(kind, kInside, 360, buckets, errors);
      std::printf("%s,%u,%g,%g,%g,%g\n", kind.name, buckets, HighError(errors.record, kMedian),
                  HighError(errors.reading, kMedian), HighError(errors.record, kUpper),
                  HighError(errors.reading, kUpper));
    }
  }
}

}  // namespace

int main(int argc, char **argv) {
  if (argc > 1 && std::strcmp(argv[1], "--csv") == 0) {
    PrintCsv();
  } else {
    PrintInsideTable();
    PrintKindTable();
    PrintOutsideTable();
    PrintCost();
  }
}
