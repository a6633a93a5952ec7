/** @file
 * @brief Percentile estimation from data that does not keep its samples. */
#ifndef ZOR_PERCENTILE_H_
#define ZOR_PERCENTILE_H_

#include "zor/types.h"

#ifdef __cplusplus
extern "C" {
#endif

/** The nine standard points, in thousandths of a percent, ascending: the minimum, the points three, two and one
 * standard deviation below the mean of a normal distribution, the median, the same above, and the maximum
 * (0, 130, 2280, 15870, 50000, 84130, 97720, 99870, 100000). */
ZOR_API extern const uint32_t g_stats_percentile_1000[9];
/** Number of the standard points: 9. */
ZOR_API extern const uint32_t g_stats_percentile_size;

#define ZOR_DECLARE_PERCENTILE(type, value, unsigned_value, total_type)                                            \
  /** Rank lookup: finds the values of given ranks. A rank is the 1-based position of a sample in ascending        \
      order of all samples; Vk is the value of rank k and Vk1 that of rank k + 1. Its arguments, in order:         \
      context, the owner's record; ranks, `count` of them, not descending; total, the number of samples over       \
      which the ranks were computed; min and max, the smallest and largest sample; vk and vk1, `count` values      \
      each, written by it; below, the number of samples below the part still to be searched, 0 at the start;       \
      count; cursor, the index of the first rank still to be served, 0 at the start. Returns 0 when all ranks      \
      from the cursor on are served (cursor is then count), 1 when only the Vk1 of the last rank was not           \
      found, 2 when it stopped at the rank that cursor names. */                                                   \
  typedef uint32_t (*stats_percentile_lookup_##type##_t)(void *context, const uint32_t *ranks, uint32_t total,     \
                                                         value min, value max, value *vk, value *vk1,              \
                                                         uint32_t *below, uint32_t count, uint32_t *cursor);       \
  /** Estimates percentiles: the linear interpolation between Vk and Vk1 at the position 1 + point * (total -      \
      1) / 100000, whose whole part is k, truncated downwards to thousandths. A Vk1 below its Vk counts as         \
      equal to it. One lookup for all points; allocates and frees three arrays of `count` elements.                \
      @param points   `count` points in thousandths of a percent, 0 to 100000, ascending                           \
      @param results  `count` values, written                                                                      \
      @param count    number of points                                                                             \
      @param min      smallest sample                                                                              \
      @param max      largest sample                                                                               \
      @param total    number of samples                                                                            \
      @param lookup   the rank lookup                                                                              \
      @param context  handed to lookup                                                                             \
      @return 0; 1 or 2 without memory (results untouched); 3 for a point above 100000 (results up to it are       \
              0); 4 when the lookup returned 2 or total is 0 (all results are 0) */                                \
  ZOR_API uint32_t stats_percentile_get_values_##type(                                                             \
      const uint32_t *points, stats_fixed_point_##type##_t *results, uint32_t count, value min, value max,         \
      uint32_t total, stats_percentile_lookup_##type##_t lookup, void *context);                                   \
  /** The model of one bucket: the values of its k-th sample and the next one. The density of the samples          \
      inside is assumed to change linearly: rising below the median, falling above it, rising and then falling     \
      in the bucket that holds the median. With weights 1 to r (or r to 1) over a run of r values and u            \
      samples, the running count after j values is floor(u * j(j+1) / (r(r+1))) when rising, and the ceiling       \
      of the cumulated share when falling. The cost does not depend on the width of the bucket; allocates          \
      nothing.                                                                                                     \
      @param below    number of samples before this bucket                                                         \
      @param total    number of all samples                                                                        \
      @param lowest   first value of the bucket                                                                    \
      @param highest  last value of the bucket, included                                                           \
      @param k        which sample of this bucket, from 1                                                          \
      @param samples  number of samples in this bucket                                                             \
      @param vk       written: the value of the k-th sample                                                        \
      @param vk1      written: the value of the sample after it                                                    \
      @return 0; 1 when only vk is written (the next sample is not located here); 2 when the bucket is             \
              inverted or holds fewer than k samples (both values are then 0) */                                   \
  ZOR_API uint32_t stats_percentile_get_Vk_Vk1_##type(uint32_t below, uint32_t total, value lowest, value highest, \
                                                      uint32_t k, uint32_t samples, value *vk, value *vk1);        \
  /** Emits one console line per point, "P[015.870] = 15.870", through the current print handle.                   \
      @param points   `count` points in thousandths of a percent                                                   \
      @param results  `count` values                                                                               \
      @param count    number of points */                                                                          \
  ZOR_API void stats_percentile_print_##type(const uint32_t *points, const stats_fixed_point_##type##_t *results,  \
                                             uint32_t count);
ZOR_PROCESS_FOR_EACH_TYPE(ZOR_DECLARE_PERCENTILE)
#undef ZOR_DECLARE_PERCENTILE

#ifdef __cplusplus
}
#endif

#endif /* ZOR_PERCENTILE_H_ */
