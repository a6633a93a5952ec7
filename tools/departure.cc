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

}  // namespace

Departure LargestDeparture(std::span<const Band> intervals) {
  Departure largest;
  for (std::size_t i = kFewest; i < intervals.size(); ++i) {
    const std::size_t count = std::min(i, kBefore);
    const auto before = intervals.subspan(i - count, count);
    if (intervals[i].samples < MedianOf(before, &Band::samples) / 2) continue;
    const double level = MedianOf(before, &Band::median);
    const double median = intervals[i].median;
    const double narrowest = std::max(1.0, 0.01 * std::max(std::abs(level), std::abs(median)));
    const double widths = std::abs(median - level) / std::max(MedianOf(before, &Band::width), narrowest);
    if (widths > largest.widths) largest = {widths, i};
  }
  return largest;
}

}  // namespace zorstat
