#ifndef ZOR_STATS_ANALYZER_H_
#define ZOR_STATS_ANALYZER_H_

#include <cstdint>

#include "base/value_types.h"
#include "stats/percentile.h"

namespace zor {

template <class V>
std::uint32_t InitAnalyzer(Analyzer<V> &analyzer, std::uint32_t samples, std::uint16_t buckets,
                           std::uint16_t max_nodes);
template <class V>
void UninitAnalyzer(Analyzer<V> &analyzer);

// See stats_analyzer_insert_<type> in zor/analyzer.h for the result.
template <class V>
std::int32_t Analyze(Analyzer<V> &analyzer, V value);

// Begins the Analyzing stage afresh over the learnt range, after a count was found full.
template <class V>
void RestartAnalysis(Analyzer<V> &analyzer);

// The percentiles of the samples counted. The stage is Analyzing.
template <class V>
Estimate EstimateBaseline(Analyzer<V> &analyzer, const std::uint32_t *points, FixedPoint<V> *results,
                          std::uint32_t count);

template <class V>
void PrintAnalyzer(const Analyzer<V> &analyzer);

}  // namespace zor

#endif  // ZOR_STATS_ANALYZER_H_
