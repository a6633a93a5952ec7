/** @file
 * @brief Summary statistics: minimum, maximum, sum and count of a stream of samples. */
#ifndef ZOR_SUMMARY_H_
#define ZOR_SUMMARY_H_

#include "zor/types.h"

#ifdef __cplusplus
extern "C" {
#endif

#define ZOR_DECLARE_SUMMARY(type, value, unsigned_value, total)                                            \
  /** A summary. A record whose fields are all zero is an empty one; to clear one is to set every field to \
      zero. It owns nothing. */                                                                            \
  typedef struct stats_summary_##type {                                                                    \
    value Vmin;                 /**< smallest sample; without meaning while the count is 0 */              \
    value Vmax;                 /**< largest sample; without meaning while the count is 0 */               \
    total Vtotal;               /**< exact sum of the samples counted */                                   \
    uint32_t u32_no_of_samples; /**< number of samples counted, modulo 2^32 */                             \
  } stats_summary_##type##_t;                                                                              \
  /** Counts one sample: Vmin and Vmax take it in, Vtotal grows by it, the count by 1. Constant time;      \
      allocates nothing.                                                                                   \
      @param summary  the record                                                                           \
      @param sample   any value of the type                                                                \
      @return 0; 1 if the sum would leave 64 bits, and then nothing changes */                             \
  ZOR_API uint32_t stats_summary_eval_##type(stats_summary_##type##_t *summary, value sample);             \
  /** Writes the fields, and the average if there are samples, to standard output. The average is Vtotal / \
      u32_no_of_samples, truncated towards zero to thousandths.                                            \
      @param summary  the record */                                                                        \
  ZOR_API void stats_summary_print_##type(const stats_summary_##type##_t *summary);
ZOR_PROCESS_FOR_EACH_TYPE(ZOR_DECLARE_SUMMARY)
#undef ZOR_DECLARE_SUMMARY

#ifdef __cplusplus
}
#endif

#endif /* ZOR_SUMMARY_H_ */
