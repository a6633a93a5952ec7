#include "stats/analyzer.h"

#include <cstdio>
#include <cstdlib>

#include "stats/dynamic_counters.h"
#include "stats/learner.h"
#include "stats/range_counters.h"
#include "stats/summary.h"

namespace zor {
namespace {

constexpr const char *stats_analyzer_stage_names[] = {"Learning", "Analyzing", "Error"};

constexpr std::uint32_t kNoRange =
    2;  // range counters call an inverted range so; nothing learnt is no range either
constexpr std::int32_t kIgnored = -3;

template <class V>
std::uint32_t BuildCounters(Analyzer<V> &analyzer) {
  const auto learnt = GetLearntRange<V>(analyzer.learner);
  if (!learnt) return kNoRange;
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

template <class V>
void EndLearning(Analyzer<V> &analyzer) {
  if (analyzer.stage != STATS_ANALYZER_LEARNING) return;
  analyzer.learner.got = analyzer.learner.expected;
  BeginAnalyzing<V>(analyzer);
}

}  // namespace

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

template <class V>
void RestartAnalysis(Analyzer<V> &analyzer) {
  const std::uint16_t max_nodes = analyzer.dynamic_counters.MaxNdc;
  FreeCounters<V>(analyzer);
  analyzer.dynamic_counters.MaxNdc = max_nodes;
  analyzer.summary = {};
  BeginAnalyzing<V>(analyzer);
}

template <class V>
Estimate EstimateBaseline(Analyzer<V> &analyzer, const std::uint32_t *points, FixedPoint<V> *results,
                          std::uint32_t count) {
  const Summary<V> &summary = analyzer.summary;
  return EstimatePercentiles<V>(points, results, count, summary.Vmin, summary.Vmax, summary.u32_no_of_samples,
                                FindInWholeDistribution<V>, &analyzer.dynamic_counters);
}

template <class V>
void PrintAnalyzer(const Analyzer<V> &analyzer) {
  std::printf("Analyzer: Stage = %s\n", stats_analyzer_stage_names[analyzer.stage]);
  PrintSummary<V>(analyzer.summary);
  if (analyzer.stage == STATS_ANALYZER_LEARNING) {
    PrintLearner<V>(analyzer.learner);
  } else if (analyzer.stage == STATS_ANALYZER_ANALYZING) {
    PrintRangeCounters<V>(analyzer.range_counters);
    PrintDynamicCounters<V>(analyzer.dynamic_counters);
  }
}

#define ZOR_INSTANTIATE(type, value, unsigned_value, total)                                                   \
  template std::uint32_t InitAnalyzer<value>(Analyzer<value> &, std::uint32_t, std::uint16_t, std::uint16_t); \
  template void UninitAnalyzer<value>(Analyzer<value> &);                                                     \
  template std::int32_t Analyze<value>(Analyzer<value> &, value);                                             \
  template void RestartAnalysis<value>(Analyzer<value> &);                                                    \
  template Estimate EstimateBaseline<value>(Analyzer<value> &, const std::uint32_t *, FixedPoint<value> *,    \
                                            std::uint32_t);                                                   \
  template void PrintAnalyzer<value>(const Analyzer<value> &);
ZOR_PROCESS_FOR_EACH_TYPE(ZOR_INSTANTIATE)

}  // namespace zor

#define ZOR_DEFINE_ANALYZER(type, value, unsigned_value, total)                                                 \
  std::uint32_t stats_analyzer_init_##type(stats_analyzer_##type##_t *analyzer, std::uint32_t samples,          \
                                           std::uint16_t buckets, std::uint16_t max_nodes) {                    \
    return zor::InitAnalyzer<value>(*analyzer, samples, buckets, max_nodes);                                    \
  }                                                                                                             \
  std::uint32_t stats_analyzer_db_init_##type(stats_analyzer_##type##_t *analyzer) {                            \
    return zor::BuildCounters<value>(*analyzer);                                                                \
  }                                                                                                             \
  void stats_analyzer_uninit_##type(stats_analyzer_##type##_t *analyzer) {                                      \
    zor::UninitAnalyzer<value>(*analyzer);                                                                      \
  }                                                                                                             \
  void stats_analyzer_clear_##type(stats_analyzer_##type##_t *analyzer) { zor::EndLearning<value>(*analyzer); } \
  std::int32_t stats_analyzer_insert_##type(stats_analyzer_##type##_t *analyzer, value sample) {                \
    return zor::Analyze<value>(*analyzer, sample);                                                              \
  }                                                                                                             \
  std::uint32_t stats_analyzer_get_percentile_values_##type(                                                    \
      stats_analyzer_##type##_t *analyzer, const std::uint32_t *points, stats_fixed_point_##type##_t *results,  \
      std::uint32_t count) {                                                                                    \
    if (analyzer->stage != STATS_ANALYZER_ANALYZING) return 1;                                                  \
    zor::EstimateBaseline<value>(*analyzer, points, results, count);                                            \
    return 0;                                                                                                   \
  }                                                                                                             \
  void stats_analyzer_print_##type(const stats_analyzer_##type##_t *analyzer) {                                 \
    zor::PrintAnalyzer<value>(*analyzer);                                                                       \
  }
ZOR_PROCESS_FOR_EACH_TYPE(ZOR_DEFINE_ANALYZER)
