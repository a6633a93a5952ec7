/* Summary statistics: minimum, maximum, sum and count of a stream of samples. */
#ifndef ZOR_SUMMARY_H_
#define ZOR_SUMMARY_H_

#include "zor/types.h"

#ifdef __cplusplus
extern "C" {
#endif

/* stats_summary_<type>_t: a record whose fields are all zero is an empty summary; to clear one is to set every
 * field to zero. It owns nothing.
 *   Vmin, Vmax         smallest and largest sample; without meaning while the count is 0
 *   Vtotal             exact sum of the samples counted
 *   u32_no_of_samples  number of samples counted
 *
 * stats_summary_eval_<type>(summary, value)
 *   Counts one sample, in constant time. Returns 0; or 1 if the sum would leave 64 bits, and then nothing changes.
 *
 * stats_summary_print_<type>(summary)
 *   Writes the fields, and the average if there are samples, to standard output. The average is Vtotal /
 *   u32_no_of_samples, truncated to thousandths. */
#define ZOR_DECLARE_SUMMARY(type, value, unsigned_value, total)                                \
  typedef struct stats_summary_##type {                                                        \
    value Vmin;                                                                                \
    value Vmax;                                                                                \
    total Vtotal;                                                                              \
    uint32_t u32_no_of_samples;                                                                \
  } stats_summary_##type##_t;                                                                  \
  ZOR_API uint32_t stats_summary_eval_##type(stats_summary_##type##_t *summary, value sample); \
  ZOR_API void stats_summary_print_##type(const stats_summary_##type##_t *summary);
ZOR_PROCESS_FOR_EACH_TYPE(ZOR_DECLARE_SUMMARY)
#undef ZOR_DECLARE_SUMMARY

#ifdef __cplusplus
}
#endif

#endif /* ZOR_SUMMARY_H_ */
