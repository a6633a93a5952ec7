/* Percentile estimation from data that does not keep its samples. */
#ifndef ZOR_PERCENTILE_H_
#define ZOR_PERCENTILE_H_

#include "zor/types.h"

#ifdef __cplusplus
extern "C" {
#endif

/* The nine standard points, in thousandths of a percent: the minimum, the points three, two and one standard
 * deviation below the mean of a normal distribution, the median, the same above, and the maximum. */
ZOR_API extern const uint32_t g_stats_percentile_1000[9];
ZOR_API extern const uint32_t g_stats_percentile_size;

/* stats_percentile_lookup_<type>_t: finds the values of given ranks. A rank is the 1-based position of a sample
 * in ascending order of all samples; Vk is the value of rank k and Vk1 that of rank k + 1.
 *   context  the owner's record
 *   ranks    count ranks, not descending
 *   total    number of samples over which the ranks were computed
 *   min, max smallest and largest sample
 *   vk, vk1  count values each, written by the callback
 *   below    number of samples below the part still to be searched, 0 at the start
 *   cursor   index of the first rank still to be served, 0 at the start
 * Returns 0 when all ranks from the cursor on are served (cursor is then count), 1 when only the Vk1 of the last
 * rank was not found, 2 when it stopped at the rank that cursor names.
 *
 * stats_percentile_get_values_<type>(points, results, count, min, max, total, lookup, context)
 *   Estimates the percentiles at count points (thousandths of a percent, ascending, at most 100000) into results:
 *   the linear interpolation between Vk and Vk1 at the position 1 + point * (total - 1) / 100000, truncated to
 *   thousandths. A Vk1 below its Vk counts as equal to it.
 *   Returns 0; 1 or 2 without memory (results untouched); 3 for a point above 100000 (results up to it are 0);
 *   4 when the lookup returned 2 or total is 0 (all results are 0). Allocates and frees three small arrays.
 *
 * stats_percentile_get_Vk_Vk1_<type>(below, total, lowest, highest, k, samples, vk, vk1)
 *   The model of a bucket that covers the values lowest to highest and holds `samples` samples, `below` samples
 *   lying before it and `total` being the number of all: their density is assumed to change linearly, rising
 *   below the median, falling above it, and rising then falling in the bucket that holds the median. With weights
 *   1 to r (or r to 1) over a run of r values and u samples, the running count after j values is
 *   floor(u * j(j+1) / (r(r+1))) when rising and the ceiling of the cumulated share when falling. Writes the
 *   values of the bucket's k-th sample and the next one.
 *   Returns 0; 1 when only vk is written (the next sample is not located here); 2 when the bucket is inverted or
 *   holds fewer than k samples (both values are then 0). The cost does not depend on the width of the bucket.
 *
 * stats_percentile_print_<type>(points, results, count)
 *   Emits one console line per point, "P[015.870] = 15.870", through the current print handle. */
#define ZOR_DECLARE_PERCENTILE(type, value, unsigned_value, total_type)                                            \
  typedef uint32_t (*stats_percentile_lookup_##type##_t)(void *context, const uint32_t *ranks, uint32_t total,     \
                                                         value min, value max, value *vk, value *vk1,              \
                                                         uint32_t *below, uint32_t count, uint32_t *cursor);       \
  ZOR_API uint32_t stats_percentile_get_values_##type(                                                             \
      const uint32_t *points, stats_fixed_point_##type##_t *results, uint32_t count, value min, value max,         \
      uint32_t total, stats_percentile_lookup_##type##_t lookup, void *context);                                   \
  ZOR_API uint32_t stats_percentile_get_Vk_Vk1_##type(uint32_t below, uint32_t total, value lowest, value highest, \
                                                      uint32_t k, uint32_t samples, value *vk, value *vk1);        \
  ZOR_API void stats_percentile_print_##type(const uint32_t *points, const stats_fixed_point_##type##_t *results,  \
                                             uint32_t count);
ZOR_PROCESS_FOR_EACH_TYPE(ZOR_DECLARE_PERCENTILE)
#undef ZOR_DECLARE_PERCENTILE

#ifdef __cplusplus
}
#endif

#endif /* ZOR_PERCENTILE_H_ */
