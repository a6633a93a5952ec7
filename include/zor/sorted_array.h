/** @file
 * @brief Sorted arrays: the smallest or the largest samples of a stream, in bounded memory. */
#ifndef ZOR_SORTED_ARRAY_H_
#define ZOR_SORTED_ARRAY_H_

#include "zor/types.h"

#ifdef __cplusplus
extern "C" {
#endif

/** What an insertion into a full array does. */
enum {
  STATS_SORTED_ARRAY_REFUSE = 0,        /**< turns the value away */
  STATS_SORTED_ARRAY_KEEP_SMALLEST = 1, /**< the largest value makes room */
  STATS_SORTED_ARRAY_KEEP_LARGEST = 2   /**< the smallest value makes room */
};

#define ZOR_DECLARE_SORTED_ARRAY(type, value, unsigned_value, total)                                           \
  /** A sorted array. The record is the caller's, its storage the record's. */                                 \
  typedef struct stats_sorted_array_##type {                                                                   \
    value *p_values;       /**< Size values, the first Valid_Length of them in ascending order; owned */       \
    uint32_t Size;         /**< capacity, at least 1 */                                                        \
    uint32_t Valid_Length; /**< number of values held */                                                       \
  } stats_sorted_array_##type##_t;                                                                             \
  /** Makes an empty array. What the record held before is overwritten, not freed. One allocation.             \
      @param array  the record                                                                                 \
      @param size   capacity in values, at least 1                                                             \
      @return 0; 1 if size is 0 (nothing is written); 2 without memory (p_values is then null) */              \
  ZOR_API uint32_t stats_sorted_array_init_##type(stats_sorted_array_##type##_t *array, uint32_t size);        \
  /** Frees the storage and sets every field to zero.                                                          \
      @param array  the record, initialised or all zero */                                                     \
  ZOR_API void stats_sorted_array_uninit_##type(stats_sorted_array_##type##_t *array);                         \
  /** Inserts a value. When something makes room or is turned away, *out_value is the value that is not in the \
      array afterwards and *was_full is 1; else *was_full is 0. A value equal to the one that would make room  \
      is turned away. At most one pass over the values; allocates nothing.                                     \
      @param array      the record                                                                             \
      @param sample     the value                                                                              \
      @param mode       what happens when the array is full: STATS_SORTED_ARRAY_KEEP_SMALLEST, _KEEP_LARGEST,  \
                        or _REFUSE (which reports nothing in *out_value)                                       \
      @param was_full   may be null                                                                            \
      @param out_value  may be null                                                                            \
      @return 0 when the value went in, 1 when it did not; a full array given another mode returns 0 and does  \
              nothing */                                                                                       \
  ZOR_API uint32_t stats_sorted_array_adv_insert_##type(stats_sorted_array_##type##_t *array, value sample,    \
                                                        int32_t mode, uint32_t *was_full, value *out_value);   \
  /** Writes capacity, length and values to standard output.                                                   \
      @param array  the record */                                                                              \
  ZOR_API void stats_sorted_array_print_##type(const stats_sorted_array_##type##_t *array);
ZOR_PROCESS_FOR_EACH_TYPE(ZOR_DECLARE_SORTED_ARRAY)
#undef ZOR_DECLARE_SORTED_ARRAY

#ifdef __cplusplus
}
#endif

#endif /* ZOR_SORTED_ARRAY_H_ */
