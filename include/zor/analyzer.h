/** @file
 * @brief Analyzers: an instance's baseline. A learner finds its usual range; then every sample is counted in a
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

/** Stages of an analyzer. */
enum {
  STATS_ANALYZER_LEARNING = 0,  /**< samples go to the learner */
  STATS_ANALYZER_ANALYZING = 1, /**< samples are counted */
  STATS_ANALYZER_ERROR = 2      /**< the learnt range could not be turned into counters; samples are ignored */
};

#define ZOR_DECLARE_ANALYZER(type, value, unsigned_value, total)                                               \
  /** An analyzer. */                                                                                          \
  typedef struct stats_analyzer_##type {                                                                       \
    uint32_t stage;                                 /**< STATS_ANALYZER_* */                                   \
    stats_learner_##type##_t learner;               /**< the learning cycle */                                 \
    stats_summary_##type##_t summary;               /**< of the samples counted while analyzing; else empty */ \
    stats_range_counters_##type##_t range_counters; /**< buckets between the learnt low and high values; Nsc   \
                                                         holds their number from init on */                    \
    stats_dynamic_counters_##type##_t                                                                          \
        dynamic_counters; /**< buckets outside; MaxNdc holds their cap from init on */                         \
  } stats_analyzer_##type##_t;                                                                                 \
  /** Starts learning. What the record held before is overwritten, not freed. Two allocations.                 \
      @param analyzer   the record; all zero before, if uninit is to be safe after a failure                   \
      @param samples    number of samples to learn from, 1 to 330382099                                        \
      @param buckets    number of buckets inside the learnt range, 1 to 65535                                  \
      @param max_nodes  most buckets outside it                                                                \
      @return 0; 1 if samples is 0, 2 without memory: the record must then not be used */                      \
  ZOR_API uint32_t stats_analyzer_init_##type(stats_analyzer_##type##_t *analyzer, uint32_t samples,           \
                                              uint16_t buckets, uint16_t max_nodes);                           \
  /** Builds the counters from a complete learning cycle and enters the Analyzing stage. One allocation. The   \
      analyzer itself does so when the last sample was learnt.                                                 \
      @param analyzer  the record                                                                              \
      @return 0; else the code of the range counters' init (2 also when nothing was learnt), and the stage     \
              stays: the caller sets STATS_ANALYZER_ERROR */                                                   \
  ZOR_API uint32_t stats_analyzer_db_init_##type(stats_analyzer_##type##_t *analyzer);                         \
  /** Frees what the analyzer owns, in any stage.                                                              \
      @param analyzer  the record */                                                                           \
  ZOR_API void stats_analyzer_uninit_##type(stats_analyzer_##type##_t *analyzer);                              \
  /** Ends learning early, with the samples taken so far. Does nothing in the other stages.                    \
      @param analyzer  the record */                                                                           \
  ZOR_API void stats_analyzer_clear_##type(stats_analyzer_##type##_t *analyzer);                               \
  /** Takes a sample; the one that completes learning is not counted. Constant time but for a walk over the    \
      buckets outside; allocates only when one of them is first needed, and the counters at the end of         \
      learning.                                                                                                \
      @param analyzer  the record                                                                              \
      @param sample    any value of the type                                                                   \
      @return 0 when it was learnt from or counted in a bucket; 2 when it was counted outside all buckets,     \
              their cap being reached; 3 when its count is full (not counted: the owner restarts the           \
              analysis); -3 in the Error stage or without memory for a bucket (not counted) */                 \
  ZOR_API int32_t stats_analyzer_insert_##type(stats_analyzer_##type##_t *analyzer, value sample);             \
  /** Estimates percentiles of the samples counted, as stats_percentile_get_values_int32() does over the whole \
      distribution.                                                                                            \
      @param analyzer  the record                                                                              \
      @param points    `count` points in thousandths of a percent, 0 to 100000, ascending                      \
      @param results   `count` values, written; 0 where the estimate failed                                    \
      @param count     number of points                                                                        \
      @return 0; 1, writing nothing, unless analyzing */                                                       \
  ZOR_API uint32_t stats_analyzer_get_percentile_values_##type(                                                \
      stats_analyzer_##type##_t *analyzer, const uint32_t *points, stats_fixed_point_##type##_t *results,      \
      uint32_t count);                                                                                         \
  /** Writes the stage, the summary and the stage's records to standard output.                                \
      @param analyzer  the record */                                                                           \
  ZOR_API void stats_analyzer_print_##type(const stats_analyzer_##type##_t *analyzer);
ZOR_PROCESS_FOR_EACH_TYPE(ZOR_DECLARE_ANALYZER)
#undef ZOR_DECLARE_ANALYZER

#ifdef __cplusplus
}
#endif

#endif /* ZOR_ANALYZER_H_ */
