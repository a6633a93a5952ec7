/** @file
 * @brief Dynamic counters: buckets outside the range of range counters, created when a sample first falls into one.
 */
#ifndef ZOR_DYNAMIC_COUNTERS_H_
#define ZOR_DYNAMIC_COUNTERS_H_

#include "zor/range_counters.h"
#include "zor/types.h"

#ifdef __cplusplus
extern "C" {
#endif

#define ZOR_DECLARE_DYNAMIC_COUNTERS(type, value, unsigned_value, total_type)                                      \
  /** A bucket of the values Vstart to Vstart + Range - 1. */                                                      \
  typedef struct stats_dynamic_counter_node_##type {                                                               \
    struct stats_dynamic_counter_node_##type *next; /**< the bucket above on this side, or null */                 \
    value Vstart;                                   /**< its first value */                                        \
    uint16_t Count;                                 /**< its samples; stops at 65535 */                            \
  } stats_dynamic_counter_node_##type##_t;                                                                         \
  /** The buckets of one side. */                                                                                  \
  typedef struct stats_dynamic_counters_list_##type {                                                              \
    stats_dynamic_counter_node_##type##_t *head; /**< ascending by Vstart; owned */                                \
    uint16_t length;                             /**< number of buckets */                                         \
    uint16_t exceptions; /**< samples of this side that found no bucket, the cap being reached; stops at 65535 */  \
  } stats_dynamic_counters_list_##type##_t;                                                                        \
  /** Dynamic counters. */                                                                                         \
  typedef struct stats_dynamic_counters_##type {                                                                   \
    stats_range_counters_##type##_t                                                                                \
        *range_counters;  /**< the record extended; not owned, and it must live as long */                         \
    uint16_t MaxNdc;      /**< cap on the number of buckets, both sides together */                                \
    unsigned_value Range; /**< width of a bucket: that of the sub-ranges, rounded up; at least 1 */                \
    unsigned_value                                                                                                 \
        NdnMin; /**< number of bucket positions below Start; the lowest one starts at the type's minimum */        \
    stats_dynamic_counters_list_##type##_t min_list; /**< below Start: at Start - q * Range for q = 1, 2, ... */   \
    stats_dynamic_counters_list_##type##_t max_list; /**< from End on: at End + j * Range for j = 0, 1, ... */     \
  } stats_dynamic_counters_##type##_t;                                                                             \
  /** Sets a record up with empty lists. It frees nothing: a record that holds buckets is uninit first.            \
      Allocates nothing.                                                                                           \
      @param counters        the record                                                                            \
      @param range_counters  the range to extend, initialised                                                      \
      @param max_nodes       cap on the number of buckets, both sides together; 0 to 65535 */                      \
  ZOR_API void stats_dynamic_counters_init_##type(stats_dynamic_counters_##type##_t *counters,                     \
                                                  stats_range_counters_##type##_t *range_counters,                 \
                                                  uint16_t max_nodes);                                             \
  /** Frees every bucket and sets all fields to zero.                                                              \
      @param counters  the record */                                                                               \
  ZOR_API void stats_dynamic_counters_uninit_##type(stats_dynamic_counters_##type##_t *counters);                  \
  /** Counts a sample outside the range. Walks a list of at most MaxNdc buckets; allocates one when it is          \
      first needed.                                                                                                \
      @param counters  the record                                                                                  \
      @param sample    any value of the type                                                                       \
      @return 0 when it was counted in a bucket, 2 when it was counted as an exception; and with nothing           \
              counted: 3 when its count is full, -2 when it lies inside the range, -3 without memory for a new     \
              bucket */                                                                                            \
  ZOR_API int32_t stats_dynamic_counters_insert_##type(stats_dynamic_counters_##type##_t *counters, value sample); \
  /** The rank lookup over the whole distribution: the buckets below, the range counters, the buckets above,       \
      with each side's exceptions assumed beyond its outermost bucket. See stats_percentile_lookup_int32_t.        \
      One pass over buckets and counters.                                                                          \
      @param counters  the record                                                                                  \
      @param ranks     `count` ranks, not descending                                                               \
      @param total     number of samples over which the ranks were computed                                        \
      @param min       smallest sample                                                                             \
      @param max       largest sample                                                                              \
      @param vk        `count` values, written                                                                     \
      @param vk1       `count` values, written                                                                     \
      @param below     0 on entry, or null                                                                         \
      @param count     number of ranks                                                                             \
      @param cursor    index of the first rank still to be served, moved on; 0 at the start                        \
      @return 0 when every rank was served, else 2 */                                                              \
  ZOR_API uint32_t stats_dynamic_counters_find_Vk_Vk1_##type(                                                      \
      void *counters, const uint32_t *ranks, uint32_t total, value min, value max, value *vk, value *vk1,          \
      uint32_t *below, uint32_t count, uint32_t *cursor);                                                          \
  /** Writes the record to standard output.                                                                        \
      @param counters  the record */                                                                               \
  ZOR_API void stats_dynamic_counters_print_##type(const stats_dynamic_counters_##type##_t *counters);             \
  /** Writes the buckets of one side to standard output.                                                           \
      @param list  the side                                                                                        \
      @param name  what to call it */                                                                              \
  ZOR_API void stats_dynamic_counters_list_print_##type(const stats_dynamic_counters_list_##type##_t *list,        \
                                                        const char *name);                                         \
  /** Writes one bucket to standard output.                                                                        \
      @param node  the bucket */                                                                                   \
  ZOR_API void stats_dynamic_counter_node_print_##type(const stats_dynamic_counter_node_##type##_t *node);
ZOR_PROCESS_FOR_EACH_TYPE(ZOR_DECLARE_DYNAMIC_COUNTERS)
#undef ZOR_DECLARE_DYNAMIC_COUNTERS

#ifdef __cplusplus
}
#endif

#endif /* ZOR_DYNAMIC_COUNTERS_H_ */
