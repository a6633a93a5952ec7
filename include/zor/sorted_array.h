/* Sorted arrays: the smallest or the largest samples of a stream, in bounded memory. */
#ifndef ZOR_SORTED_ARRAY_H_
#define ZOR_SORTED_ARRAY_H_

#include "zor/types.h"

#ifdef __cplusplus
extern "C" {
#endif

/* What an insertion into a full array does. */
enum {
  STATS_SORTED_ARRAY_REFUSE = 0,
  STATS_SORTED_ARRAY_KEEP_SMALLEST = 1, /* the largest value makes room */
  STATS_SORTED_ARRAY_KEEP_LARGEST = 2   /* the smallest value makes room */
};

/* stats_sorted_array_<type>_t
 *   p_values      Size values, the first Valid_Length of them in ascending order; owned
 *   Size          capacity, at least 1
 *   Valid_Length  number of values held
 *
 * stats_sorted_array_init_<type>(array, size)
 *   Makes an empty array with room for size values. Returns 0; 1 if size is 0 (nothing is written); 2 without
 *   memory (p_values is then null).
 *
 * stats_sorted_array_uninit_<type>(array)
 *   Frees the storage and sets every field to zero.
 *
 * stats_sorted_array_adv_insert_<type>(array, value, mode, was_full, out_value)
 *   Inserts a value. Into a full array mode (STATS_SORTED_ARRAY_*) decides; when something makes room or is turned
 *   away, *out_value is the value that is not in the array afterwards and *was_full is 1, else *was_full is 0.
 *   Both places may be null. A value equal to the one that would make room is turned away.
 *   Returns 0 when the value went in, 1 when it did not; a full array given another mode returns 0 and does
 *   nothing. Costs at most one pass over the values; allocates nothing.
 *
 * stats_sorted_array_print_<type>(array)
 *   Writes capacity, length and values to standard output. */
#define ZOR_DECLARE_SORTED_ARRAY(type, value, unsigned_value, total)                                         \
  typedef struct stats_sorted_array_##type {                                                                 \
    value *p_values;                                                                                         \
    uint32_t Size;                                                                                           \
    uint32_t Valid_Length;                                                                                   \
  } stats_sorted_array_##type##_t;                                                                           \
  ZOR_API uint32_t stats_sorted_array_init_##type(stats_sorted_array_##type##_t *array, uint32_t size);      \
  ZOR_API void stats_sorted_array_uninit_##type(stats_sorted_array_##type##_t *array);                       \
  ZOR_API uint32_t stats_sorted_array_adv_insert_##type(stats_sorted_array_##type##_t *array, value sample,  \
                                                        int32_t mode, uint32_t *was_full, value *out_value); \
  ZOR_API void stats_sorted_array_print_##type(const stats_sorted_array_##type##_t *array);
ZOR_PROCESS_FOR_EACH_TYPE(ZOR_DECLARE_SORTED_ARRAY)
#undef ZOR_DECLARE_SORTED_ARRAY

#ifdef __cplusplus
}
#endif

#endif /* ZOR_SORTED_ARRAY_H_ */
