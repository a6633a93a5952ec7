// The console lines of each section. The report around them puts headings and the instance's name. False without
// memory; the entry keeps the section's statistics.
#ifndef ZOR_ENTRY_CONSOLE_H_
#define ZOR_ENTRY_CONSOLE_H_

#include "entry/sections.h"

namespace zor {

// Both extremes, the sum and the average as one row.
template <class V>
bool PrintSummaryRow(const Rendering<V> &r);

// The range and a row per bucket that holds samples.
template <class V>
bool PrintDistribution(const Rendering<V> &r);

// A line per point: the nine standard points, or the one that the call names.
template <class V>
bool PrintPercentileList(const Rendering<V> &r);

// The analyzer's report, on standard output behind a line with the names.
template <class V>
bool PrintBaseline(const Rendering<V> &r);

}  // namespace zor

#endif  // ZOR_ENTRY_CONSOLE_H_
