#ifndef ZOR_STATS_ANALYZER_H_
#define ZOR_STATS_ANALYZER_H_

#include <cstdint>
#include <cstdio>
#include <cstdlib>

#include "base/value_types.h"
#include "stats/dynamic_counters.h"
#include "stats/learner.h"
#include "stats/percentile.h"
#include "stats/range_counters.h"
#include "stats/summary.h"

namespace zor {

inline constexpr const char *kStageNames[] = {"Learning", "Analyzing", "Error"};

// Results, beside those of the counters.
inline constexpr std::uint32_t kNothingLearnt = 2;  // as of an inverted range
inline constexpr std::int32_t kIgnored = -3;

// Enters the Analyzing stage over what was learnt; see stats_analyzer_db_init_<type> in zor/analyzer.h.
template <class V>
std::uint32_t BuildCounters(Analyzer<V> &analyzer) {
  const auto learnt = GetLearntRange<V>(analyzer.learner);
  if (!learnt) return kNothingLearnt;
  RangeCounters<V> &range = analyzer.range_counters;
  const std::uint32_t result = InitRangeCounters<V>(range, learnt->low, learnt->high, range.Nsc);
  if (result != 0) return result;
  InitDynamicCounters<V>(analyzer.dynamic_counters, range, analyzer.dynamic_counters.MaxNdc);
  analyzer.stage = STATS_ANALYZER_ANALYZING;
  return 0;
}

template <class V>
void BeginAnalyzing(Analyzer<V> &analyzer) {
  if (BuildCounters<V>(analyzer) != 0) analyzer.stage = STATS_ANALYZER_ERROR;
}

template <class V>
void FreeCounters(Analyzer<V> &analyzer) {
  std::free(analyzer.range_counters.pu16_counters);
  analyzer.range_counters.pu16_counters = nullptr;
  UninitDynamicCounters<V>(analyzer.dynamic_counters);
}

// Ends learning with the samples taken so far.
template <class V>
void EndLearning(Analyzer<V> &analyzer) {
  if (analyzer.stage != STATS_ANALYZER_LEARNING) return;
  analyzer.learner.got = analyzer.learner.expected;
  BeginAnalyzing<V>(analyzer);
}

template <class V>
std::uint32_t InitAnalyzer(Analyzer<V> &analyzer, std::uint32_t samples, std::uint16_t buckets,
                           std::uint16_t max_nodes) {
  const std::uint32_t result = InitLearner<V>(analyzer.learner, samples);
  if (result != 0) return result;
  analyzer.summary = {};
  analyzer.range_counters.Nsc = buckets;
  analyzer.dynamic_counters.MaxNdc = max_nodes;
  analyzer.stage = STATS_ANALYZER_LEARNING;
  return 0;
}

template <class V>
void UninitAnalyzer(Analyzer<V> &analyzer) {
  UninitLearner<V>(analyzer.learner);
  if (analyzer.stage == STATS_ANALYZER_ANALYZING) FreeCounters<V>(analyzer);
}

// See stats_analyzer_insert_<type> in zor/analyzer.h for the result.
template <class V>
std::int32_t Analyze(Analyzer<V> &analyzer, V value) {
  switch (analyzer.stage) {
    case STATS_ANALYZER_LEARNING:
      if (Learn<V>(analyzer.learner, value)) BeginAnalyzing<V>(analyzer);
      return 0;
    case STATS_ANALYZER_ANALYZING: {
      std::int32_t result = CountOutsideRange<V>(analyzer.dynamic_counters, value);
      if (result == kInsideRange) result = CountInRange<V>(analyzer.range_counters, value);
      if (result == kCountedInNode || result == kCountedAsException) CountInSummary<V>(analyzer.summary, value);
      return result;
    }
    default:
      return kIgnored;
  }
}

// Begins the Analyzing stage afresh over the learnt range, after a count was found full.
template <class V>
void RestartAnalysis(Analyzer<V> &analyzer) {
  const std::uint16_t max_nodes = analyzer.dynamic_counters.MaxNdc;
  FreeCounters<V>(analyzer);
  analyzer.dynamic_counters.MaxNdc = max_nodes;
  analyzer.summary = {};
  BeginAnalyzing<V>(analyzer);
}

// The percentiles of the samples counted. The stage is Analyzing.
template <class V>
Estimate EstimateBaseline(const Analyzer<V> &analyzer, const std::uint32_t *points, FixedPoint<V> *results,
                          std::uint32_t count) {
  const Summary<V> &summary = analyzer.summary;
  return EstimatePercentiles<V>(
      points, results, count, summary.Vmin, summary.Vmax, summary.u32_no_of_samples,
      [&](const RankSearch<V> &search) { return FindInWholeDistribution<V>(analyzer.dynamic_counters, search); });
}

template <class V>
void PrintAnalyzer(const Analyzer<V> &analyzer) {
  std::printf("Analyzer: Stage = %s\n", kStageNames[analyzer.stage]);
  PrintSummary<V>(analyzer.summary);
  if (analyzer.stage == STATS_ANALYZER_LEARNING) {
    PrintLearner<V>(analyzer.learner);
  } else if (analyzer.stage == STATS_ANALYZER_ANALYZING) {
    PrintRangeCounters<V>(analyzer.range_counters);
    PrintDynamicCounters<V>(analyzer.dynamic_counters);
  }
}

}  // namespace zor

#endif  // ZOR_STATS_ANALYZER_H_
