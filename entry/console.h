// The console sections of an instance. The report around them puts headings and the instance's name.
#ifndef ZOR_ENTRY_CONSOLE_H_
#define ZOR_ENTRY_CONSOLE_H_

#include <cstdint>

#include "entry/instance_entry.h"

namespace zor {

// Both extremes, the sum and the average as one row. The entry keeps a summary.
template <class V>
void PrintSummaryRow(const Entry<V> &entry);

// The range and a row per bucket that holds samples; false, and nothing printed, without at least two buckets.
template <class V>
bool PrintDistribution(const Entry<V> &entry);

// A line per point: the nine standard points, or the one that `percentile` gives in whole percent. The entry keeps
// a summary and a distribution. False without memory.
template <class V>
bool PrintPercentileList(const Entry<V> &entry, const std::uint32_t *percentile);

// The analyzer's report, on standard output behind a line with the names. The entry keeps a baseline.
template <class V>
void PrintBaseline(const char *object_name, const Entry<V> &entry);

}  // namespace zor

#endif  // ZOR_ENTRY_CONSOLE_H_
