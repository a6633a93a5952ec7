#include "departure.h"

#include <algorithm>
#include <cmath>
#include <vector>

namespace zorstat {
namespace {

constexpr std::size_t kBefore = 6;
constexpr std::size_t kFewest = 3;

// The mean of the two in the middle, where there are two.
double MedianOf(std::span<const Band> intervals, double Band::*member) {
  std::vector<double> values;
  for (const Band &interval : intervals) values.push_back(interval.*member);
  std::sort(values.begin(), values.end());
  return (values[(values.size() - 1) / 2] + values[values.size() / 2]) / 2;
}

// Those that the last one is held against.
std::span<const Band> BeforeLast(std::span<const Band> intervals) {
  const auto before = intervals.first(intervals.size() - 1);
  return before.last(std::min(before.size(), kBefore));
}

}  // namespace

std::optional<double> LastJump(std::span<const Band> intervals) {
  if (intervals.size() <= kFewest) return std::nullopt;
  const auto before = BeforeLast(intervals);
  const double level = MedianOf(before, &Band::median);
  const double median = intervals.back().median;
  const double narrowest = std::max(1.0, 0.01 * std::max(std::abs(level), std::abs(median)));
  return (median - level) / std::max(MedianOf(before, &Band::width), narrowest);
}

Departure LargestDeparture(std::span<const Band> intervals) {
  Departure largest;
  for (std::size_t i = kFewest; i < intervals.size(); ++i) {
    const auto so_far = intervals.first(i + 1);
    if (intervals[i].samples < MedianOf(BeforeLast(so_far), &Band::samples) / 2) continue;
    const double widths = std::abs(*LastJump(so_far));
    if (widths > largest.widths) largest = {widths, i};
  }
  return largest;
}

}  // namespace zorstat
