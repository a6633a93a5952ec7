// The percentiles of records and of readings beside the exact ones of the same samples.
#ifndef ZOR_BENCH_ESTIMATES_H_
#define ZOR_BENCH_ESTIMATES_H_

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <random>
#include <string>
#include <vector>

#include "zor/process.hpp"

namespace bench {

using Random = std::mt19937_64;

inline double Normal(Random &random, double mean, double deviation) {
  return std::normal_distribution<double>(mean, deviation)(random);
}
inline double Uniform(Random &random, double low, double high) {
  return std::uniform_real_distribution<double>(low, high)(random);
}
inline double Exponential(Random &random, double mean) {
  return std::exponential_distribution<double>(1 / mean)(random);
}
inline bool Chance(Random &random, double share) { return std::bernoulli_distribution(share)(random); }

// Values at the points of g_stats_percentile_1000.
using Nine = std::array<double, 9>;
inline constexpr double kInnerPoints = 7;  // without the extremes

// The interpolation between neighbouring samples at the position 1 + p (n - 1). The samples ascend.
inline Nine ExactPoints(const std::vector<std::uint64_t> &samples) {
  Nine points;
  for (std::size_t i = 0; i < points.size(); ++i) {
    const double position = g_stats_percentile_1000[i] / 100000.0 * static_cast<double>(samples.size() - 1);
    const auto k = static_cast<std::size_t>(position);
    const auto low = static_cast<double>(samples[k]);
    const auto high = static_cast<double>(samples[std::min(k + 1, samples.size() - 1)]);
    points[i] = low + (position - std::floor(position)) * (high - low);
  }
  return points;
}

// The last nine fields of the last record.
inline Nine PointsOf(const std::string &records) {
  Nine points;
  std::size_t comma = records.size();
  for (std::size_t i = points.size(); i-- > 0;) {
    comma = records.rfind(", ", comma - 1);
    points[i] = std::strtod(records.c_str() + comma + 2, nullptr);
  }
  return points;
}

// Without points nine zeros, as in a record.
inline Nine PointsOf(const zor::process::Reading &reading) {
  Nine points = {};
  for (std::size_t i = 0; i < points.size() && reading.points; ++i) {
    points[i] = static_cast<double>((*reading.points)[i]);
  }
  return points;
}

struct PointError {
  std::size_t point;
  double widths;    // in buckets' widths
  double relative;  // as a share of the exact value
};

// Of the records or the readings of many sets of samples.
struct Errors {
  double estimates = 0;
  double failed = 0;               // the last point is not the maximum
  double misplaced = 0;            // a point is below the one before it, or outside the extremes
  std::vector<PointError> points;  // between the extremes, of those that did not fail

  void Add(const Nine &exact, const Nine &estimate, double width) {
    ++estimates;
    if (estimate.back() != exact.back()) {
      ++failed;
      return;
    }
    const auto [min, max] = std::minmax_element(estimate.begin(), estimate.end());
    const bool is_inside = *min >= exact.front() && *max <= exact.back();
    if (!is_inside || !std::is_sorted(estimate.begin(), estimate.end())) ++misplaced;
    for (std::size_t i = 1; i + 1 < estimate.size(); ++i) {
      const double error = std::abs(estimate[i] - exact[i]);
      points.push_back({i, error / width, error / exact[i]});
    }
  }
};

struct Comparison {
  Errors record, reading;
};

inline double Percent(double part, double whole) { return whole > 0 ? 100 * part / whole : 0; }

}  // namespace bench

#endif  // ZOR_BENCH_ESTIMATES_H_
