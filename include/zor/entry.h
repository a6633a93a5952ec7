/* Instance entries: the statistics of one instance of an object, in four typed variants. */
#ifndef ZOR_ENTRY_H_
#define ZOR_ENTRY_H_

#include "zor/analyzer.h"
#include "zor/range_counters.h"
#include "zor/summary.h"
#include "zor/types.h"

#ifdef __cplusplus
extern "C" {
#endif

struct zor_process_object_oper_entry; /* zor/engine.h */

/* The seven operations of an entry, with one signature for all four data types: `entry` is a
 * zor_process_object_instance_entry_<type>_t, `range` points to two bounds of the value type, low then high, and
 * `value` to one value of it (of any alignment).
 *
 * create(key, value_kind, flags, range, buckets, clear_count, oper_entry)
 *   Returns a new entry, which the caller puts into its set, or null: no memory, the baseline flag together with
 *   another one, no buckets, an inverted range.
 *   key          the instance's name; copied
 *   value_kind   1: a cumulative counter, whose samples are the differences of successive values, computed with
 *                wrap-around; the first value only primes it. Else: values are samples as they come
 *   flags        ZOR_PROCESS_FLAG_*, the low 16 bits
 *   range        counted range of the distribution, both bounds included; null: the full range of the type
 *   buckets      number of sub-ranges, the low 16 bits
 *   clear_count  samples in a baseline's learning cycle and between its records
 *   oper_entry   stored in the entry, not owned
 *
 * insert(entry, value, period_ended)
 *   Counts a value. Sets *period_ended to 1 when a baseline period ends, else leaves it alone. Returns
 *      0  taken
 *      1  the sum would overflow (the summary does not count the sample, the distribution does); or a baseline
 *         record could not be stored: the one before is not collected, or there is no memory
 *      2  a baseline counted the sample outside all buckets, their cap being reached
 *     -3  a baseline did not count it: it learnt no usable range, or there is no memory for a bucket
 *   A baseline with a full count is restarted over the learnt range, and the sample is lost with the counts; 0.
 *   Allocates nothing but a baseline's buckets outside its range, and its records at the end of a period.
 *
 * clear(selection, entry, mode)
 *   Empties the summary (ZOR_PROCESS_FLAG_SUMMARY in selection) and the counts of the distribution
 *   (ZOR_PROCESS_FLAG_DISTRIBUTION). mode is not used.
 *
 * destroy(entry)
 *   Frees the entry and all that it owns. The caller has taken it out of its set.
 *
 * get_data(output_mode, dg_name, object_name, flags, percentile, entry)
 *   Renders the sections that flags select, in the order summary, distribution (console only), percentile,
 *   baseline.
 *   output_mode  ZOR_PROCESS_OUTPUT_*; with the console bit no record or header text is produced
 *   percentile   null, or one percentile in whole percent that the console shows instead of the nine points
 *   Returns a text from malloc that the caller frees; null when the entry does not keep a selected statistic or
 *   there is no memory. Lines end with CR LF.
 *
 * get_clear_buffer(entry)
 *   The uncollected clear buffer, or null. It stays in the entry, and the entry's, until it is replaced.
 *
 * set_clear_buffer(entry, text)
 *   The entry takes text, from malloc, or null. What it held before is not freed: who replaces it owns it. While a
 *   baseline is learning the text is freed instead. */
typedef void *(*zor_process_entry_create_fn)(const char *key, uint32_t value_kind, uint32_t flags,
                                             const void *range, uint32_t buckets, uint32_t clear_count,
                                             struct zor_process_object_oper_entry *oper_entry);
typedef int32_t (*zor_process_entry_insert_fn)(void *entry, const void *value, uint32_t *period_ended);
typedef void (*zor_process_entry_clear_fn)(uint32_t selection, void *entry, uint32_t mode);
typedef void (*zor_process_entry_destroy_fn)(void *entry);
typedef char *(*zor_process_entry_get_data_fn)(uint16_t output_mode, const char *dg_name, const char *object_name,
                                               uint16_t flags, const uint32_t *percentile, void *entry);
typedef char *(*zor_process_entry_get_clear_buffer_fn)(void *entry);
typedef void (*zor_process_entry_set_clear_buffer_fn)(void *entry, char *text);

/* zor_process_object_instance_entry_<type>_t
 *   links           the set's
 *   name            the instance's name; owned
 *   last_value      previous value of a cumulative counter
 *   mode            bit 0: cumulative counter; bit 1: last_value holds a value
 *   sample_count    samples counted by the baseline since its last record
 *   clear_count     samples per baseline record: the low 16 bits of the count given at creation
 *   clear_buffer    uncollected records, or null
 *   oper_entry      the oper entry that holds this entry
 *   summary, range_counters, analyzer
 *                   the statistics kept; null where the flags do not ask for them; owned */
#define ZOR_DECLARE_ENTRY(type, value, unsigned_value, total)                                                  \
  typedef struct zor_process_object_instance_entry_##type {                                                    \
    void *links[2];                                                                                            \
    char *name;                                                                                                \
    value last_value;                                                                                          \
    uint16_t mode;                                                                                             \
    uint16_t sample_count;                                                                                     \
    uint16_t clear_count;                                                                                      \
    char *clear_buffer;                                                                                        \
    struct zor_process_object_oper_entry *oper_entry;                                                          \
    stats_summary_##type##_t *summary;                                                                         \
    stats_range_counters_##type##_t *range_counters;                                                           \
    stats_analyzer_##type##_t *analyzer;                                                                       \
  } zor_process_object_instance_entry_##type##_t;                                                              \
  ZOR_API void *zor_process_object_instance_entry_create_##type(                                               \
      const char *key, uint32_t value_kind, uint32_t flags, const void *range, uint32_t buckets,               \
      uint32_t clear_count, struct zor_process_object_oper_entry *oper_entry);                                 \
  ZOR_API int32_t zor_process_object_instance_entry_insert_##type(void *entry, const void *sample,             \
                                                                  uint32_t *period_ended);                     \
  ZOR_API void zor_process_object_instance_entry_clear_##type(uint32_t selection, void *entry, uint32_t mode); \
  ZOR_API void zor_process_object_instance_entry_destroy_##type(void *entry);                                  \
  ZOR_API char *zor_process_object_instance_entry_get_data_##type(uint16_t output_mode, const char *dg_name,   \
                                                                  const char *object_name, uint16_t flags,     \
                                                                  const uint32_t *percentile, void *entry);    \
  ZOR_API char *zor_process_object_instance_entry_get_clear_buffer_##type(void *entry);                        \
  ZOR_API void zor_process_object_instance_entry_set_clear_buffer_##type(void *entry, char *text);
ZOR_PROCESS_FOR_EACH_TYPE(ZOR_DECLARE_ENTRY)
#undef ZOR_DECLARE_ENTRY

/* The tables through which an entry's operations are reached, indexed by data-type code - 1. */
ZOR_API extern const zor_process_entry_create_fn g_zor_poi_entry_create_funcs[ZOR_PROCESS_NO_OF_DATA_TYPES];
ZOR_API extern const zor_process_entry_insert_fn g_zor_poi_entry_insert_funcs[ZOR_PROCESS_NO_OF_DATA_TYPES];
ZOR_API extern const zor_process_entry_destroy_fn g_zor_poi_entry_destroy_funcs[ZOR_PROCESS_NO_OF_DATA_TYPES];
ZOR_API extern const zor_process_entry_get_data_fn g_zor_poi_entry_get_data_funcs[ZOR_PROCESS_NO_OF_DATA_TYPES];
ZOR_API extern const zor_process_entry_clear_fn g_zor_poi_entry_clear_funcs[ZOR_PROCESS_NO_OF_DATA_TYPES];
ZOR_API extern const zor_process_entry_get_clear_buffer_fn
    g_zor_poi_entry_get_clear_buffer_funcs[ZOR_PROCESS_NO_OF_DATA_TYPES];
ZOR_API extern const zor_process_entry_set_clear_buffer_fn
    g_zor_poi_entry_set_clear_buffer_funcs[ZOR_PROCESS_NO_OF_DATA_TYPES];

#ifdef __cplusplus
}
#endif

#endif /* ZOR_ENTRY_H_ */
