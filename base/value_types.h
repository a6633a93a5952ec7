// The records and companion types of each value type, so that an algorithm is written once over the value type.
#ifndef ZOR_BASE_VALUE_TYPES_H_
#define ZOR_BASE_VALUE_TYPES_H_

#include <cstdint>

#include "zor/analyzer.h"
#include "zor/dynamic_counters.h"
#include "zor/learner.h"
#include "zor/percentile.h"
#include "zor/range_counters.h"
#include "zor/sorted_array.h"
#include "zor/summary.h"
#include "zor/types.h"

namespace zor {

template <class V>
struct Types;

#define ZOR_DEFINE_TYPES(type, value, unsigned_value, total)    \
  template <>                                                   \
  struct Types<value> {                                         \
    using Unsigned = unsigned_value;                            \
    using Total = total;                                        \
    using FixedPoint = stats_fixed_point_##type##_t;            \
    using Summary = stats_summary_##type##_t;                   \
    using RangeCounters = stats_range_counters_##type##_t;      \
    using SortedArray = stats_sorted_array_##type##_t;          \
    using Learner = stats_learner_##type##_t;                   \
    using DynamicNode = stats_dynamic_counter_node_##type##_t;  \
    using DynamicList = stats_dynamic_counters_list_##type##_t; \
    using DynamicCounters = stats_dynamic_counters_##type##_t;  \
    using Analyzer = stats_analyzer_##type##_t;                 \
    using Lookup = stats_percentile_lookup_##type##_t;          \
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
using SortedArray = typename Types<V>::SortedArray;
template <class V>
using Learner = typename Types<V>::Learner;
template <class V>
using DynamicNode = typename Types<V>::DynamicNode;
template <class V>
using DynamicList = typename Types<V>::DynamicList;
template <class V>
using DynamicCounters = typename Types<V>::DynamicCounters;
template <class V>
using Analyzer = typename Types<V>::Analyzer;
template <class V>
using Lookup = typename Types<V>::Lookup;

// Calls function(V()) for the value type V of a data-type code, which is one of the four.
template <class Function>
inline auto WithValueType(std::uint32_t data_type, Function function) {
  switch (data_type) {
    // NOLINTNEXTLINE(bugprone-branch-clone): the branches differ in the type of the argument.
    case ZOR_PROCESS_DATA_TYPE_INT32:
      return function(std::int32_t());
    case ZOR_PROCESS_DATA_TYPE_UINT32:
      return function(std::uint32_t());
    case ZOR_PROCESS_DATA_TYPE_INT64:
      return function(std::int64_t());
    default:
      return function(std::uint64_t());
  }
}

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

#endif  // ZOR_BASE_VALUE_TYPES_H_
