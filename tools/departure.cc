#include "departure.h"

#include <algorithm>
#include <cmath>
#include <vector>

namespace zorstat {
namespace {

constexpr std::size_t kFewest = 3;

// The mean of the two in the middle, where there are two.
double MedianOf(std::span<const Band> intervals, double Band::*member) {
  std::vector<double> values;
  for (const Band &interval : intervals) values.push_back(interval.*member);
  std::sort(values.begin(), values.end());
  return (values[(values.size() - 1) / 2] + values[values.size() / 2]) / 2;
}

}  // namespace

std::optional<Band> BandOf(std::span<const double> points, std::uint64_t samples) {
  if (points.empty()) return std::nullopt;
  const std::size_t middle = points.size() / 2;
  return Band{points[middle], points[middle + 1] - points[middle - 1], static_cast<double>(samples)};
}

std::optional<double> LastJump(std::span<const Band> intervals) {
  if (intervals.size() <= kFewest) return std::nullopt;
  const Band &last = intervals.back();
  auto before = intervals.first(intervals.size() - 1);
  before = before.last(std::min(before.size(), kBandsBefore));
  if (last.samples < MedianOf(before, &Band::samples) / 2) return std::nullopt;
  const double level = MedianOf(before, &Band::median);
  const double narrowest = std::max(1.0, 0.01 * std::max(std::abs(level), std::abs(last.median)));
  return (last.median - level) / std::max(MedianOf(before, &Band::width), narrowest);
}

Departure LargestDeparture(std::span<const Band> intervals) {
  Departure largest;
  for (std::size_t i = 0; i < intervals.size(); ++i) {
    const double widths = std::abs(LastJump(intervals.first(i + 1)).value_or(0));
    if (widths > largest.widths) largest = {widths, i};
  }
  return largest;
}

}  // namespace zorstat
