/* Range counters: a histogram of equal sub-ranges with 16-bit counters. */
#ifndef ZOR_RANGE_COUNTERS_H_
#define ZOR_RANGE_COUNTERS_H_

#include "zor/types.h"

#ifdef __cplusplus
extern "C" {
#endif

/* stats_range_counters_<type>_t
 *   Start                      first value of the counted range
 *   End                        first value above it: the last value plus 1, or the last value itself when that is
 *                              the type's largest
 *   Vexact_end                 from this value on (value - Start) * Nsc could overflow, and a coarser formula
 *                              finds the sub-range
 *   Nsc                        number of sub-ranges, 1 to 65535
 *   u16_no_of_samples          number of samples counted, modulo 65536
 *   pu16_counters              Nsc counters, from malloc; the record's owner frees them with free()
 *   u16_min_exception_counter  samples below Start
 *   u16_max_exception_counter  samples at or above End
 * Every counter stops at 65535. To clear a record is to set all counts to zero.
 *
 * stats_range_counters_init_<type>(record, start, last, nsc)
 *   Sets the record up for the values start to last, both included, in nsc sub-ranges. Returns 0; 1 if nsc is 0
 *   and 2 if last is below start (nothing is written); 3 without memory (pu16_counters is then null).
 *
 * stats_range_counters_insert_<type>(record, value)
 *   Counts one sample, in constant time. Returns -1 when it lies below Start, 0 when it was counted in a
 *   sub-range, 1 when it lies at or above End, 3 when its counter is full (nothing changes).
 *   The sub-range is floor((value - Start) * Nsc / (End - Start)) below Vexact_end; from there on
 *   floor((value - Start) / floor((End - Start) / Nsc)), the last sub-range taking what is left over.
 *
 * stats_range_counters_find_Vk_Vk1_<type>(record, ranks, total, min, max, vk, vk1, below, count, cursor)
 *   The rank lookup (stats_percentile_lookup_<type>_t) of a record. One call walks the counters once.
 *
 * stats_range_counters_print_<type>(record)
 *   Writes the record and its counters above zero to standard output. */
#define ZOR_DECLARE_RANGE_COUNTERS(type, value, unsigned_value, total_type)                                     \
  typedef struct stats_range_counters_##type {                                                                  \
    value Start;                                                                                                \
    value End;                                                                                                  \
    value Vexact_end;                                                                                           \
    uint16_t Nsc;                                                                                               \
    uint16_t u16_no_of_samples;                                                                                 \
    uint16_t *pu16_counters;                                                                                    \
    uint16_t u16_min_exception_counter;                                                                         \
    uint16_t u16_max_exception_counter;                                                                         \
  } stats_range_counters_##type##_t;                                                                            \
  ZOR_API uint32_t stats_range_counters_init_##type(stats_range_counters_##type##_t *record, value start,       \
                                                    value last, uint16_t nsc);                                  \
  ZOR_API int32_t stats_range_counters_insert_##type(stats_range_counters_##type##_t *record, value sample);    \
  ZOR_API uint32_t stats_range_counters_find_Vk_Vk1_##type(void *record, const uint32_t *ranks, uint32_t total, \
                                                           value min, value max, value *vk, value *vk1,         \
                                                           uint32_t *below, uint32_t count, uint32_t *cursor);  \
  ZOR_API void stats_range_counters_print_##type(const stats_range_counters_##type##_t *record);
ZOR_PROCESS_FOR_EACH_TYPE(ZOR_DECLARE_RANGE_COUNTERS)
#undef ZOR_DECLARE_RANGE_COUNTERS

#ifdef __cplusplus
}
#endif

#endif /* ZOR_RANGE_COUNTERS_H_ */
