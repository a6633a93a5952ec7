// The entry record of each value type, and what is estimated from it.
#ifndef ZOR_ENTRY_INSTANCE_ENTRY_H_
#define ZOR_ENTRY_INSTANCE_ENTRY_H_

#include "base/value_types.h"
#include "stats/percentile.h"
#include "stats/range_counters.h"
#include "zor/entry.h"

namespace zor {

template <class V>
struct EntryOf;

#define ZOR_DEFINE_ENTRY_OF(type, value, unsigned_value, total)  \
  template <>                                                    \
  struct EntryOf<value> {                                        \
    using Record = zor_process_object_instance_entry_##type##_t; \
  };
ZOR_PROCESS_FOR_EACH_TYPE(ZOR_DEFINE_ENTRY_OF)
#undef ZOR_DEFINE_ENTRY_OF

template <class V>
using Entry = typename EntryOf<V>::Record;

// The percentiles of an entry that keeps a summary and a distribution.
template <class V>
Estimate EstimateDistribution(const Entry<V> &entry, const std::uint32_t *points, FixedPoint<V> *results,
                              std::uint32_t count) {
  const Summary<V> &summary = *entry.summary;
  return EstimatePercentiles<V>(
      points, results, count, summary.Vmin, summary.Vmax, summary.u32_no_of_samples,
      [&](const RankSearch<V> &search) { return FindInRange<V>(*entry.range_counters, search); });
}

// Bits of an entry's mode.
inline constexpr std::uint16_t kModeCumulative = 1;
inline constexpr std::uint16_t kModePrimed = 2;

}  // namespace zor

#endif  // ZOR_ENTRY_INSTANCE_ENTRY_H_
