#ifndef ZOR_STATS_RANGE_COUNTERS_H_
#define ZOR_STATS_RANGE_COUNTERS_H_

#include <algorithm>
#include <cstdint>
#include <limits>

#include "base/value_types.h"

namespace zor {

inline constexpr std::uint16_t kFullCounter = 65535;

// Results of counting a sample in range counters.
inline constexpr std::int32_t kCountedBelow = -1;
inline constexpr std::int32_t kCountedInside = 0;
inline constexpr std::int32_t kCountedAbove = 1;
inline constexpr std::int32_t kCounterFull = 3;

// 0, or why there can be no such range: 1 without sub-ranges, 2 when it is inverted.
template <class V>
constexpr std::uint32_t CheckRange(V start, V last, std::uint16_t nsc) {
  return nsc == 0 ? 1 : last < start ? 2 : 0;
}

// Sets a record up for a range that was checked, with `nsc` zeroed counters; without them the result is 3.
template <class V>
std::uint32_t SetUpRangeCounters(RangeCounters<V> &record, V start, V last, std::uint16_t nsc,
                                 std::uint16_t *counters);

// Checks the range, and allocates the counters.
template <class V>
std::uint32_t InitRangeCounters(RangeCounters<V> &record, V start, V last, std::uint16_t nsc);

// The sub-range of a value between Start and End. The last one also takes what the rounding of the step leaves
// over.
template <class V>
inline std::uint32_t SubRangeOf(const RangeCounters<V> &record, V value) {
  using U = Unsigned<V>;
  const U width = Distance(record.Start, record.End);
  if (width == 0) return 0;
  const U offset = Distance(record.Start, value);
  U index = 0;
  if (value < record.Vexact_end) {
    index = offset * U{record.Nsc} / width;
  } else if (const U step = width / U{record.Nsc}; step != 0) {
    index = offset / step;
  }
  return static_cast<std::uint32_t>(std::min<U>(index, U{record.Nsc} - U{1}));
}

// Sets all counts to zero; the range stays.
template <class V>
inline void ClearRangeCounters(RangeCounters<V> &record) {
  record.u16_no_of_samples = 0;
  record.u16_min_exception_counter = 0;
  record.u16_max_exception_counter = 0;
  std::fill_n(record.pu16_counters, record.Nsc, std::uint16_t{0});
}

// Counts a sample; a full counter refuses it, and then nothing changes.
template <class V>
inline std::int32_t CountInRange(RangeCounters<V> &record, V value) {
  std::uint16_t *counter;
  std::int32_t result;
  if (value < record.Start) {
    counter = &record.u16_min_exception_counter;
    result = kCountedBelow;
  } else if (value >= record.End) {
    counter = &record.u16_max_exception_counter;
    result = kCountedAbove;
  } else {
    counter = &record.pu16_counters[SubRangeOf(record, value)];
    result = kCountedInside;
  }
  if (*counter == kFullCounter) return kCounterFull;
  ++*counter;
  ++record.u16_no_of_samples;
  return result;
}

// The rank lookup of a record; the context is the record. See stats_percentile_lookup_<type>_t.
template <class V>
std::uint32_t FindInRange(void *context, const std::uint32_t *ranks, std::uint32_t total, V min, V max, V *vk,
                          V *vk1, std::uint32_t *below, std::uint32_t count, std::uint32_t *cursor);

template <class V>
void PrintRangeCounters(const RangeCounters<V> &record);

}  // namespace zor

#endif  // ZOR_STATS_RANGE_COUNTERS_H_
