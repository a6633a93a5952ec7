/** @file
 * @brief Range counters: a histogram of equal sub-ranges with 16-bit counters. */
#ifndef ZOR_RANGE_COUNTERS_H_
#define ZOR_RANGE_COUNTERS_H_

#include "zor/types.h"

#ifdef __cplusplus
extern "C" {
#endif

#define ZOR_DECLARE_RANGE_COUNTERS(type, value, unsigned_value, total_type)                                       \
  /** Range counters. Every counter stops at 65535; to clear a record is to set all counts to zero. The           \
      record's owner frees pu16_counters with free(). */                                                          \
  typedef struct stats_range_counters_##type {                                                                    \
    value Start;      /**< first value of the counted range */                                                    \
    value End;        /**< first value above it: the last value plus 1, or the last value itself when that is the \
                           type's largest */                                                                      \
    value Vexact_end; /**< from here on (value - Start) * Nsc could overflow, and a coarser formula is used */    \
    uint16_t Nsc;     /**< number of sub-ranges, 1 to 65535 */                                                    \
    uint16_t u16_no_of_samples;         /**< number of samples counted, modulo 65536 */                           \
    uint16_t *pu16_counters;            /**< Nsc counters, from malloc */                                         \
    uint16_t u16_min_exception_counter; /**< samples below Start */                                               \
    uint16_t u16_max_exception_counter; /**< samples at or above End */                                           \
  } stats_range_counters_##type##_t;                                                                              \
  /** Sets a record up; what it held before is overwritten, not freed. One allocation of 2 * nsc bytes.           \
      @param record  the record                                                                                   \
      @param start   first value of the range                                                                     \
      @param last    last value of the range, included; not below start                                           \
      @param nsc     number of sub-ranges, 1 to 65535                                                             \
      @return 0; 1 if nsc is 0 and 2 if last is below start (nothing is written); 3 without memory                \
              (pu16_counters is then null) */                                                                     \
  ZOR_API uint32_t stats_range_counters_init_##type(stats_range_counters_##type##_t *record, value start,         \
                                                    value last, uint16_t nsc);                                    \
  /** Counts one sample. Its sub-range is floor((sample - Start) * Nsc / (End - Start)) below Vexact_end; from    \
      there on floor((sample - Start) / floor((End - Start) / Nsc)), the last sub-range taking what is left       \
      over. Constant time; allocates nothing.                                                                     \
      @param record  the record                                                                                   \
      @param sample  any value of the type                                                                        \
      @return -1 when it lies below Start, 0 when it was counted in a sub-range, 1 when it lies at or above       \
              End; 3 when its counter is full (nothing changes) */                                                \
  ZOR_API int32_t stats_range_counters_insert_##type(stats_range_counters_##type##_t *record, value sample);      \
  /** The first value that is counted in a sub-range or one above it: sub-range i counts the values from          \
     get_start(i) to the one before get_start(i + 1), which are none where both are the same, as where there are  \
     more sub-ranges than values. Constant time.                                                                  \
      @param record  the record                                                                                   \
      @param index   the sub-range, from 0                                                                        \
      @return the value; End for an index from Nsc on */                                                          \
  ZOR_API value stats_range_counters_get_start_##type(const stats_range_counters_##type##_t *record,              \
                                                      uint32_t index);                                            \
  /** The rank lookup of a record: see stats_percentile_lookup_int32_t. One pass over the counters for all        \
      ranks, from where the last call stopped.                                                                    \
      @param record  the record                                                                                   \
      @param ranks   `count` ranks, not descending                                                                \
      @param total   number of samples over which the ranks were computed                                         \
      @param min     smallest sample                                                                              \
      @param max     largest sample                                                                               \
      @param vk      `count` values, written                                                                      \
      @param vk1     `count` values, written                                                                      \
      @param below   samples below the part still to be searched, moved on; 0 at the start                        \
      @param count   number of ranks                                                                              \
      @param cursor  index of the first rank still to be served, moved on; 0 at the start                         \
      @return 0 when every rank was served, 1 when only the last Vk1 was not, 2 when it stopped at *cursor */     \
  ZOR_API uint32_t stats_range_counters_find_Vk_Vk1_##type(void *record, const uint32_t *ranks, uint32_t total,   \
                                                           value min, value max, value *vk, value *vk1,           \
                                                           uint32_t *below, uint32_t count, uint32_t *cursor);    \
  /** Writes the record and its counters above zero to standard output.                                           \
      @param record  the record */                                                                                \
  ZOR_API void stats_range_counters_print_##type(const stats_range_counters_##type##_t *record);
ZOR_PROCESS_FOR_EACH_TYPE(ZOR_DECLARE_RANGE_COUNTERS)
#undef ZOR_DECLARE_RANGE_COUNTERS

#ifdef __cplusplus
}
#endif

#endif /* ZOR_RANGE_COUNTERS_H_ */
