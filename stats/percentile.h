#ifndef ZOR_STATS_PERCENTILE_H_
#define ZOR_STATS_PERCENTILE_H_

#include <cstdint>

#include "base/value_types.h"

namespace zor {

// What a search for the samples of ranks k and k + 1 came to.
enum class Found : std::uint32_t { kBoth = 0, kFirstOnly = 1, kNone = 2 };

// The bucket model: see stats_percentile_get_Vk_Vk1_<type> in zor/percentile.h.
template <class V>
Found LocateInBucket(std::uint32_t below, std::uint32_t total, V lowest, V highest, std::uint32_t k,
                     std::uint32_t samples, V *vk, V *vk1);

// See stats_percentile_get_values_<type> in zor/percentile.h.
enum class Estimate : std::uint32_t { kDone = 0, kNoRanks = 1, kNoValues = 2, kInvalidPoint = 3, kNotFound = 4 };

template <class V>
Estimate EstimatePercentiles(const std::uint32_t *points, FixedPoint<V> *results, std::uint32_t count, V min, V max,
                             std::uint32_t total, Lookup<V> lookup, void *context);

inline bool IsOutOfMemory(Estimate result) { return result == Estimate::kNoRanks || result == Estimate::kNoValues; }

template <class V>
void PrintPercentiles(const std::uint32_t *points, const FixedPoint<V> *results, std::uint32_t count);

}  // namespace zor

#endif  // ZOR_STATS_PERCENTILE_H_
