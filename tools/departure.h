// Which instance has left its ways, and when.
#ifndef ZORSTAT_DEPARTURE_H_
#define ZORSTAT_DEPARTURE_H_

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

namespace zorstat {

// Of the samples of one interval.
struct Band {
  double median = 0;
  double width = 0;  // from the 15.87 % to the 84.13 % point
  double samples = 0;
};

// From the points of an interval, an odd number of them: from the one in the middle to both sides.
std::optional<Band> BandOf(std::span<const double> points, std::uint64_t samples);

struct Departure {
  double widths = 0;         // 0 where there are too few intervals to tell
  std::size_t interval = 0;  // the one that departs most
};

inline constexpr std::size_t kBandsBefore = 6;

// The jump of the last interval of one instance, held against up to six before it, three at the least. With the
// median M of their medians, and W of their widths:
//
//   jump = (median - M) / max(W, 1, 0.01 max(|M|, |median|))
//
// Samples are whole numbers, so no band is taken to be narrower than 1, nor than a hundredth of the level: what was
// constant departs by 200 widths at the most. Nothing is told of an interval with less than half of the samples
// that those before it typically have, as the last one of a run may be: its median is chance.
std::optional<double> LastJump(std::span<const Band> intervals);

// The largest one, up or down, of intervals in the order of time.
Departure LargestDeparture(std::span<const Band> intervals);

}  // namespace zorstat

#endif  // ZORSTAT_DEPARTURE_H_
