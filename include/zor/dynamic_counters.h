/* Dynamic counters: buckets outside the range of range counters, created when a sample first falls into one. */
#ifndef ZOR_DYNAMIC_COUNTERS_H_
#define ZOR_DYNAMIC_COUNTERS_H_

#include "zor/range_counters.h"
#include "zor/types.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Records, per type:
 * stats_dynamic_counter_node_<type>_t: a bucket of the values Vstart to Vstart + Range - 1 and its samples.
 * stats_dynamic_counters_list_<type>_t: the buckets of one side, ascending by Vstart; exceptions are the samples of
 * this side that found no bucket because the cap was reached.
 * stats_dynamic_counters_<type>_t
 *   range_counters  the record whose range is extended; not owned, and it must live as long
 *   MaxNdc          cap on the number of nodes, both lists together
 *   Range           width of a bucket: that of the sub-ranges, rounded up; at least 1
 *   NdnMin          number of bucket positions below Start; the lowest one starts at the type's minimum
 *   min_list        buckets below Start: Start - q * Range for q = 1, 2, ...
 *   max_list        buckets from End on: End + j * Range for j = 0, 1, ...
 * Nodes are owned. Counts stop at 65535.
 *
 * stats_dynamic_counters_init_<type>(counters, range_counters, max_nodes)
 *   Sets the record up with empty lists. It frees nothing: a record that holds nodes is uninit first.
 *
 * stats_dynamic_counters_uninit_<type>(counters)
 *   Frees every node and sets all fields to zero.
 *
 * stats_dynamic_counters_insert_<type>(counters, value)
 *   Counts a sample outside the range. Returns 0 when it was counted in a bucket, 2 when it was counted as an
 *   exception, 3 when its count is full, -2 when it lies inside the range, -3 without memory for a new bucket; with
 *   the last three nothing is counted. Walks a list of at most MaxNdc nodes.
 *
 * stats_dynamic_counters_find_Vk_Vk1_<type>(counters, ranks, total, min, max, vk, vk1, below, count, cursor)
 *   The rank lookup (stats_percentile_lookup_<type>_t) over the whole distribution: the buckets below, the range
 *   counters, the buckets above, with each side's exceptions assumed beyond its outermost bucket. `below` holds 0
 * on entry, or is null. Returns 0 when every rank was served, else 2.
 *
 * stats_dynamic_counters_print_<type>(counters), stats_dynamic_counters_list_print_<type>(list, name),
 * stats_dynamic_counter_node_print_<type>(node)
 *   Write the record, a list, a node to standard output. */
#define ZOR_DECLARE_DYNAMIC_COUNTERS(type, value, unsigned_value, total_type)                                      \
  typedef struct stats_dynamic_counter_node_##type {                                                               \
    struct stats_dynamic_counter_node_##type *next;                                                                \
    value Vstart;                                                                                                  \
    uint16_t Count;                                                                                                \
  } stats_dynamic_counter_node_##type##_t;                                                                         \
  typedef struct stats_dynamic_counters_list_##type {                                                              \
    stats_dynamic_counter_node_##type##_t *head;                                                                   \
    uint16_t length;                                                                                               \
    uint16_t exceptions;                                                                                           \
  } stats_dynamic_counters_list_##type##_t;                                                                        \
  typedef struct stats_dynamic_counters_##type {                                                                   \
    stats_range_counters_##type##_t *range_counters;                                                               \
    uint16_t MaxNdc;                                                                                               \
    unsigned_value Range;                                                                                          \
    unsigned_value NdnMin;                                                                                         \
    stats_dynamic_counters_list_##type##_t min_list;                                                               \
    stats_dynamic_counters_list_##type##_t max_list;                                                               \
  } stats_dynamic_counters_##type##_t;                                                                             \
  ZOR_API void stats_dynamic_counters_init_##type(stats_dynamic_counters_##type##_t *counters,                     \
                                                  stats_range_counters_##type##_t *range_counters,                 \
                                                  uint16_t max_nodes);                                             \
  ZOR_API void stats_dynamic_counters_uninit_##type(stats_dynamic_counters_##type##_t *counters);                  \
  ZOR_API int32_t stats_dynamic_counters_insert_##type(stats_dynamic_counters_##type##_t *counters, value sample); \
  ZOR_API uint32_t stats_dynamic_counters_find_Vk_Vk1_##type(                                                      \
      void *counters, const uint32_t *ranks, uint32_t total, value min, value max, value *vk, value *vk1,          \
      uint32_t *below, uint32_t count, uint32_t *cursor);                                                          \
  ZOR_API void stats_dynamic_counters_print_##type(const stats_dynamic_counters_##type##_t *counters);             \
  ZOR_API void stats_dynamic_counters_list_print_##type(const stats_dynamic_counters_list_##type##_t *list,        \
                                                        const char *name);                                         \
  ZOR_API void stats_dynamic_counter_node_print_##type(const stats_dynamic_counter_node_##type##_t *node);
ZOR_PROCESS_FOR_EACH_TYPE(ZOR_DECLARE_DYNAMIC_COUNTERS)
#undef ZOR_DECLARE_DYNAMIC_COUNTERS

#ifdef __cplusplus
}
#endif

#endif /* ZOR_DYNAMIC_COUNTERS_H_ */
