#ifndef ZOR_STATS_DYNAMIC_COUNTERS_H_
#define ZOR_STATS_DYNAMIC_COUNTERS_H_

#include <cstdint>

#include "base/value_types.h"

namespace zor {

// Results of counting a sample in dynamic counters.
inline constexpr std::int32_t kCountedInNode = 0;
inline constexpr std::int32_t kCountedAsException = 2;
inline constexpr std::int32_t kNodeFull = 3;
inline constexpr std::int32_t kInsideRange = -2;
inline constexpr std::int32_t kNoMemoryForNode = -3;

template <class V>
void InitDynamicCounters(DynamicCounters<V> &counters, RangeCounters<V> &range_counters, std::uint16_t max_nodes);
template <class V>
void UninitDynamicCounters(DynamicCounters<V> &counters);

template <class V>
std::int32_t CountOutsideRange(DynamicCounters<V> &counters, V value);

// The rank lookup over the buckets below the range, the range and the buckets above; the context is the record.
template <class V>
std::uint32_t FindInWholeDistribution(void *context, const std::uint32_t *ranks, std::uint32_t total, V min, V max,
                                      V *vk, V *vk1, std::uint32_t *below, std::uint32_t count,
                                      std::uint32_t *cursor);

template <class V>
void PrintDynamicCounters(const DynamicCounters<V> &counters);

}  // namespace zor

#endif  // ZOR_STATS_DYNAMIC_COUNTERS_H_
