// The exported functions of the statistics: for each value type a line that calls the template.

#include "stats/analyzer.h"
#include "stats/dynamic_counters.h"
#include "stats/learner.h"
#include "stats/percentile.h"
#include "stats/range_counters.h"
#include "stats/sorted_array.h"
#include "stats/summary.h"

const std::uint32_t g_stats_percentile_1000[9] = {0, 130, 2280, 15870, 50000, 84130, 97720, 99870, 100000};
const std::uint32_t g_stats_percentile_size = 9;

#define ZOR_DEFINE_SUMMARY(type, value, unsigned_value, total)                               \
  std::uint32_t stats_summary_eval_##type(stats_summary_##type##_t *summary, value sample) { \
    return zor::CountInSummary<value>(*summary, sample);                                     \
  }                                                                                          \
  void stats_summary_print_##type(const stats_summary_##type##_t *summary) { zor::PrintSummary<value>(*summary); }
ZOR_PROCESS_FOR_EACH_TYPE(ZOR_DEFINE_SUMMARY)

#define ZOR_DEFINE_RANGE_COUNTERS(type, value, unsigned_value, total_type)                                         \
  std::uint32_t stats_range_counters_init_##type(stats_range_counters_##type##_t *record, value start, value last, \
                                                 std::uint16_t nsc) {                                              \
    return zor::InitRangeCounters<value>(*record, start, last, nsc);                                               \
  }                                                                                                                \
  std::int32_t stats_range_counters_insert_##type(stats_range_counters_##type##_t *record, value sample) {         \
    return zor::CountInRange<value>(*record, sample);                                                              \
  }                                                                                                                \
  value stats_range_counters_get_start_##type(const stats_range_counters_##type##_t *record,                       \
                                              std::uint32_t index) {                                               \
    return zor::Advance(record->Start, zor::EdgeOf<value>(*record, index));                                        \
  }                                                                                                                \
  std::uint32_t stats_range_counters_find_Vk_Vk1_##type(                                                           \
      void *record, const std::uint32_t *ranks, std::uint32_t total, value min, value max, value *vk, value *vk1,  \
      std::uint32_t *below, std::uint32_t count, std::uint32_t *cursor) {                                          \
    return static_cast<std::uint32_t>(                                                                             \
        zor::FindInRange<value>(*static_cast<const stats_range_counters_##type##_t *>(record),                     \
                                {ranks, total, min, max, vk, vk1, *below, count, *cursor}));                       \
  }                                                                                                                \
  void stats_range_counters_print_##type(const stats_range_counters_##type##_t *record) {                          \
    zor::PrintRangeCounters<value>(*record);                                                                       \
  }
ZOR_PROCESS_FOR_EACH_TYPE(ZOR_DEFINE_RANGE_COUNTERS)

#define ZOR_DEFINE_PERCENTILE(type, value, unsigned_value, total_type)                                         \
  std::uint32_t stats_percentile_get_values_##type(                                                            \
      const std::uint32_t *points, stats_fixed_point_##type##_t *results, std::uint32_t count, value min,      \
      value max, std::uint32_t total, stats_percentile_lookup_##type##_t lookup, void *context) {              \
    return static_cast<std::uint32_t>(zor::EstimatePercentiles<value>(                                         \
        points, results, count, min, max, total, [&](const zor::RankSearch<value> &s) {                        \
          return static_cast<zor::Found>(                                                                      \
              lookup(context, s.ranks, s.total, s.min, s.max, s.vk, s.vk1, &s.below, s.count, &s.cursor));     \
        }));                                                                                                   \
  }                                                                                                            \
  std::uint32_t stats_percentile_get_Vk_Vk1_##type(std::uint32_t below, std::uint32_t total, value lowest,     \
                                                   value highest, std::uint32_t k, std::uint32_t samples,      \
                                                   value *vk, value *vk1) {                                    \
    return static_cast<std::uint32_t>(                                                                         \
        zor::LocateInBucket<value>(below, total, lowest, highest, k, samples, *vk, *vk1));                     \
  }                                                                                                            \
  void stats_percentile_print_##type(const std::uint32_t *points, const stats_fixed_point_##type##_t *results, \
                                     std::uint32_t count) {                                                    \
    zor::PrintPercentiles<value>(points, results, count);                                                      \
  }
ZOR_PROCESS_FOR_EACH_TYPE(ZOR_DEFINE_PERCENTILE)

#define ZOR_DEFINE_SORTED_ARRAY(type, value, unsigned_value, total)                                            \
  std::uint32_t stats_sorted_array_init_##type(stats_sorted_array_##type##_t *array, std::uint32_t size) {     \
    return zor::InitSortedArray<value>(*array, size);                                                          \
  }                                                                                                            \
  void stats_sorted_array_uninit_##type(stats_sorted_array_##type##_t *array) {                                \
    zor::UninitSortedArray<value>(*array);                                                                     \
  }                                                                                                            \
  std::uint32_t stats_sorted_array_adv_insert_##type(stats_sorted_array_##type##_t *array, value sample,       \
                                                     std::int32_t mode, std::uint32_t *was_full, value *out) { \
    return zor::InsertSorted<value>(*array, sample, mode, was_full, out);                                      \
  }                                                                                                            \
  void stats_sorted_array_print_##type(const stats_sorted_array_##type##_t *array) {                           \
    zor::PrintSortedArray<value>(*array);                                                                      \
  }
ZOR_PROCESS_FOR_EACH_TYPE(ZOR_DEFINE_SORTED_ARRAY)

#define ZOR_DEFINE_LEARNER(type, value, unsigned_value, total_type)                                              \
  std::uint32_t stats_learner_init_##type(stats_learner_##type##_t *learner, std::uint32_t samples) {            \
    return zor::InitLearner<value>(*learner, samples);                                                           \
  }                                                                                                              \
  void stats_learner_uninit_##type(stats_learner_##type##_t *learner) { zor::UninitLearner<value>(*learner); }   \
  std::uint32_t stats_learner_learn_##type(stats_learner_##type##_t *learner, value sample) {                    \
    return zor::Learn<value>(*learner, sample) ? 1 : 0;                                                          \
  }                                                                                                              \
  std::uint32_t stats_learner_get_value_range_##type(const stats_learner_##type##_t *learner, value *min,        \
                                                     value *max, value *low, value *high) {                      \
    const auto range = zor::GetLearntRange<value>(*learner);                                                     \
    if (!range) return 0;                                                                                        \
    *min = range->min;                                                                                           \
    *max = range->max;                                                                                           \
    *low = range->low;                                                                                           \
    *high = range->high;                                                                                         \
    return 1;                                                                                                    \
  }                                                                                                              \
  std::uint32_t stats_learner_find_Vk_Vk1_##type(void *learner, const std::uint32_t *ranks, std::uint32_t total, \
                                                 value min, value max, value *vk, value *vk1, std::uint32_t *,   \
                                                 std::uint32_t count, std::uint32_t *cursor) {                   \
    std::uint32_t none = 0;                                                                                      \
    return static_cast<std::uint32_t>(                                                                           \
        zor::FindInTails<value>(*static_cast<const stats_learner_##type##_t *>(learner),                         \
                                {ranks, total, min, max, vk, vk1, none, count, *cursor}));                       \
  }                                                                                                              \
  void stats_learner_print_##type(const stats_learner_##type##_t *learner) { zor::PrintLearner<value>(*learner); }
ZOR_PROCESS_FOR_EACH_TYPE(ZOR_DEFINE_LEARNER)

#define ZOR_DEFINE_DYNAMIC_COUNTERS(type, value, unsigned_value, total_type)                                     \
  void stats_dynamic_counters_init_##type(stats_dynamic_counters_##type##_t *counters,                           \
                                          stats_range_counters_##type##_t *range_counters,                       \
                                          std::uint16_t max_nodes) {                                             \
    zor::InitDynamicCounters<value>(*counters, *range_counters, max_nodes);                                      \
  }                                                                                                              \
  void stats_dynamic_counters_uninit_##type(stats_dynamic_counters_##type##_t *counters) {                       \
    zor::UninitDynamicCounters<value>(*counters);                                                                \
  }                                                                                                              \
  std::int32_t stats_dynamic_counters_insert_##type(stats_dynamic_counters_##type##_t *counters, value sample) { \
    return zor::CountOutsideRange<value>(*counters, sample);                                                     \
  }                                                                                                              \
  std::uint32_t stats_dynamic_counters_find_Vk_Vk1_##type(                                                       \
      void *counters, const std::uint32_t *ranks, std::uint32_t total, value min, value max, value *vk,          \
      value *vk1, std::uint32_t *below, std::uint32_t count, std::uint32_t *cursor) {                            \
    std::uint32_t from_start = 0;                                                                                \
    return static_cast<std::uint32_t>(zor::FindInWholeDistribution<value>(                                       \
        *static_cast<const stats_dynamic_counters_##type##_t *>(counters),                                       \
        {ranks, total, min, max, vk, vk1, below ? *below : from_start, count, *cursor}));                        \
  }                                                                                                              \
  void stats_dynamic_counters_print_##type(const stats_dynamic_counters_##type##_t *counters) {                  \
    zor::PrintDynamicCounters<value>(*counters);                                                                 \
  }                                                                                                              \
  void stats_dynamic_counters_list_print_##type(const stats_dynamic_counters_list_##type##_t *list,              \
                                                const char *name) {                                              \
    zor::PrintList<value>(*list, name);                                                                          \
  }                                                                                                              \
  void stats_dynamic_counter_node_print_##type(const stats_dynamic_counter_node_##type##_t *node) {              \
    zor::PrintNode<value>(*node);                                                                                \
  }
ZOR_PROCESS_FOR_EACH_TYPE(ZOR_DEFINE_DYNAMIC_COUNTERS)

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
