// The records and companion types of each value type, so that an algorithm is written once over the value type.
#ifndef ZOR_STATS_VALUE_TYPES_H_
#define ZOR_STATS_VALUE_TYPES_H_

#include <cstdint>

#include "zor/percentile.h"
#include "zor/range_counters.h"
#include "zor/summary.h"
#include "zor/types.h"

namespace zor {

template <class V>
struct Types;

#define ZOR_DEFINE_TYPES(type, value, unsigned_value, total) \
  template <>                                                \
  struct Types<value> {                                      \
    using Unsigned = unsigned_value;                         \
    using Total = total;                                     \
    using FixedPoint = stats_fixed_point_##type##_t;         \
    using Summary = stats_summary_##type##_t;                \
    using RangeCounters = stats_range_counters_##type##_t;   \
    using Lookup = stats_percentile_lookup_##type##_t;       \
  };
ZOR_PROCESS_FOR_EACH_TYPE(ZOR_DEFINE_TYPES)
#undef ZOR_DEFINE_TYPES

template <class V>
using Unsigned = typename Types<V>::Unsigned;
template <class V>
using FixedPoint = typename Types<V>::FixedPoint;
template <class V>
using Summary = typename Types<V>::Summary;
template <class V>
using RangeCounters = typename Types<V>::RangeCounters;
template <class V>
using Lookup = typename Types<V>::Lookup;

// high - low as an unsigned number of the value's width: exact for every high >= low, and wrapping otherwise.
template <class V>
constexpr Unsigned<V> Distance(V low, V high) {
  return static_cast<Unsigned<V>>(static_cast<Unsigned<V>>(high) - static_cast<Unsigned<V>>(low));
}

// value + distance, wrapping at the width of the value.
template <class V>
constexpr V Advance(V value, Unsigned<V> distance) {
  return static_cast<V>(static_cast<Unsigned<V>>(value) + distance);
}

}  // namespace zor

#endif  // ZOR_STATS_VALUE_TYPES_H_
