/* Analyzers: an instance's baseline. A learner finds its usual range; then every sample is counted in a
 * distribution over this range and around it. */
#ifndef ZOR_ANALYZER_H_
#define ZOR_ANALYZER_H_

#include "zor/dynamic_counters.h"
#include "zor/learner.h"
#include "zor/range_counters.h"
#include "zor/summary.h"
#include "zor/types.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Stages of an analyzer. */
enum {
  STATS_ANALYZER_LEARNING = 0,
  STATS_ANALYZER_ANALYZING = 1,
  STATS_ANALYZER_ERROR = 2 /* the learnt range could not be turned into counters; samples are ignored */
};

/* stats_analyzer_<type>_t
 *   stage             STATS_ANALYZER_*
 *   learner           the learning cycle
 *   summary           of the samples counted while analyzing; empty in the other stages
 *   range_counters    buckets between the learnt low and high values; Nsc holds their number from init on
 *   dynamic_counters  buckets outside; MaxNdc holds their cap from init on
 *
 * stats_analyzer_init_<type>(analyzer, samples, buckets, max_nodes)
 *   Starts learning from `samples` samples, for `buckets` buckets inside the learnt range and at most max_nodes
 *   outside. Returns 0; 1 if samples is 0, 2 without memory: the record must then not be used, except for uninit
 *   when it was all zero before.
 *
 * stats_analyzer_db_init_<type>(analyzer)
 *   Builds the counters from a complete learning cycle and enters the Analyzing stage. Returns 0, or the code of
 *   stats_range_counters_init_<type> (2 also when nothing was learnt) and the stage stays: the caller sets Error.
 *
 * stats_analyzer_uninit_<type>(analyzer)
 *   Frees what the analyzer owns, in any stage.
 *
 * stats_analyzer_clear_<type>(analyzer)
 *   Ends learning early, with the samples taken so far. Does nothing in the other stages.
 *
 * stats_analyzer_insert_<type>(analyzer, value)
 *   Takes a sample. Returns 0 when it was learnt from or counted in a bucket; 2 when it was counted outside all
 *   buckets because their cap is reached; 3 when its count is full (not counted: the owner restarts the analysis);
 *   -3 in the Error stage or without memory for a bucket (not counted).
 *   The sample that completes learning is not counted. Allocates only when a bucket outside is first needed.
 *
 * stats_analyzer_get_percentile_values_<type>(analyzer, points, results, count)
 *   Estimates percentiles of the samples counted: see stats_percentile_get_values_<type>. Returns 0, and the
 * results are 0 where the estimate failed; 1, writing nothing, unless analyzing.
 *
 * stats_analyzer_print_<type>(analyzer)
 *   Writes the stage, the summary and the stage's records to standard output. */
#define ZOR_DECLARE_ANALYZER(type, value, unsigned_value, total)                                          \
  typedef struct stats_analyzer_##type {                                                                  \
    uint32_t stage;                                                                                       \
    stats_learner_##type##_t learner;                                                                     \
    stats_summary_##type##_t summary;                                                                     \
    stats_range_counters_##type##_t range_counters;                                                       \
    stats_dynamic_counters_##type##_t dynamic_counters;                                                   \
  } stats_analyzer_##type##_t;                                                                            \
  ZOR_API uint32_t stats_analyzer_init_##type(stats_analyzer_##type##_t *analyzer, uint32_t samples,      \
                                              uint16_t buckets, uint16_t max_nodes);                      \
  ZOR_API uint32_t stats_analyzer_db_init_##type(stats_analyzer_##type##_t *analyzer);                    \
  ZOR_API void stats_analyzer_uninit_##type(stats_analyzer_##type##_t *analyzer);                         \
  ZOR_API void stats_analyzer_clear_##type(stats_analyzer_##type##_t *analyzer);                          \
  ZOR_API int32_t stats_analyzer_insert_##type(stats_analyzer_##type##_t *analyzer, value sample);        \
  ZOR_API uint32_t stats_analyzer_get_percentile_values_##type(                                           \
      stats_analyzer_##type##_t *analyzer, const uint32_t *points, stats_fixed_point_##type##_t *results, \
      uint32_t count);                                                                                    \
  ZOR_API void stats_analyzer_print_##type(const stats_analyzer_##type##_t *analyzer);
ZOR_PROCESS_FOR_EACH_TYPE(ZOR_DECLARE_ANALYZER)
#undef ZOR_DECLARE_ANALYZER

#ifdef __cplusplus
}
#endif

#endif /* ZOR_ANALYZER_H_ */
