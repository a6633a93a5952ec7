/** @file
 * @brief Instance entries: the statistics of one instance of an object, in four typed variants. */
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

/** Creates an entry: one allocation for all that it keeps; a baseline takes four.
 * @param key          the instance's name; copied
 * @param value_kind   1: a cumulative counter, whose samples are the differences of successive values, computed
 * with wrap-around; the first value only primes it. Else: values are samples as they come
 * @param flags        ZOR_PROCESS_FLAG_*, the low 16 bits
 * @param range        counted range of the distribution, two bounds of the value type, low then high, both
 * included; null: the full range of the type
 * @param buckets      number of sub-ranges, the low 16 bits of it
 * @param clear_count  samples in a baseline's learning cycle, at least 1; its low 16 bits are the samples between
 *                     records
 * @param oper_entry   stored in the entry, not owned
 * @return the entry, which the caller puts into a set and destroys; null: no memory, the baseline flag together
 * with another one, no buckets, an inverted range, a baseline with a clear count of 0 */
typedef void *(*zor_process_entry_create_fn)(const char *key, uint32_t value_kind, uint32_t flags,
                                             const void *range, uint32_t buckets, uint32_t clear_count,
                                             struct zor_process_object_oper_entry *oper_entry);

/** Counts a value, in constant time. Allocates nothing but a baseline's counters, buckets outside its range, and
 * records at the end of a period. A baseline with a full count is restarted over the learnt range; the sample is
 * lost with the counts, and the result 0.
 * @param entry         an entry of this data type
 * @param sample        one value of the value type, of any alignment
 * @param period_ended  set to 1 when a baseline period ends, else left alone
 * @return 0: taken.
 *         1: the sum would overflow (the summary does not count the sample, the distribution does); or a baseline
 *         record could not be stored, the one before not being collected, or for want of memory.
 *         2: a baseline counted the sample outside all buckets, their cap being reached.
 *         -3: a baseline did not count it: it learnt no usable range, or there is no memory for a bucket */
typedef int32_t (*zor_process_entry_insert_fn)(void *entry, const void *sample, uint32_t *period_ended);

/** Empties statistics: the summary, and the counts of the distribution. Linear in the buckets.
 * @param selection  ZOR_PROCESS_FLAG_SUMMARY, ZOR_PROCESS_FLAG_DISTRIBUTION; other bits do nothing
 * @param entry      an entry of this data type
 * @param mode       not used */
typedef void (*zor_process_entry_clear_fn)(uint32_t selection, void *entry, uint32_t mode);

/** Frees an entry and all that it owns. The caller has taken it out of its set.
 * @param entry  an entry of this data type */
typedef void (*zor_process_entry_destroy_fn)(void *entry);

/** Renders the sections that flags select, in the order summary, distribution (console only), percentile, baseline.
 * Lines end with CR LF. Reads the clock once; allocates the text in its exact size, and room to write
 * one in that is longer than a kilobyte.
 * @param output_mode  ZOR_PROCESS_OUTPUT_*; with the console bit no record or header text is produced
 * @param dg_name      the data group's name
 * @param object_name  the object's name
 * @param flags        sections, ZOR_PROCESS_FLAG_*
 * @param percentile   null, or one percentile in whole percent that the console shows instead of the nine points
 * @param entry        an entry of this data type
 * @return a text from malloc that the caller frees; null when the entry does not keep a selected statistic or there
 *         is no memory */
typedef char *(*zor_process_entry_get_data_fn)(uint16_t output_mode, const char *dg_name, const char *object_name,
                                               uint16_t flags, const uint32_t *percentile, void *entry);

/** Reads the clear buffer. Constant time.
 * @param entry  an entry of this data type
 * @return the uncollected text, or null; it stays the entry's until it is replaced */
typedef char *(*zor_process_entry_get_clear_buffer_fn)(void *entry);

/** Replaces the clear buffer. What the entry held before is not freed: who replaces it owns it. While a baseline is
 * learning the given text is freed instead. Constant time.
 * @param entry  an entry of this data type
 * @param text   a text from malloc, which the entry takes over, or null */
typedef void (*zor_process_entry_set_clear_buffer_fn)(void *entry, char *text);

#define ZOR_DECLARE_ENTRY(type, value, unsigned_value, total)                                                  \
  /** An instance entry. */                                                                                    \
  typedef struct zor_process_object_instance_entry_##type {                                                    \
    void *links[2];        /**< the set's */                                                                   \
    char *name;            /**< the instance's name; owned */                                                  \
    value last_value;      /**< previous value of a cumulative counter */                                      \
    uint16_t mode;         /**< bit 0: cumulative counter; bit 1: last_value holds a value */                  \
    uint16_t sample_count; /**< samples given to the baseline since its last record */                         \
    uint16_t clear_count;  /**< samples per baseline record: the low 16 bits of the count given at creation */ \
    char *clear_buffer;    /**< uncollected records, or null; owned */                                         \
    struct zor_process_object_oper_entry *oper_entry; /**< the oper entry that holds this entry */             \
    stats_summary_##type##_t *summary;                /**< null where the flags do not ask for it; owned */    \
    stats_range_counters_##type##_t *range_counters;  /**< null where the flags do not ask for it; owned */    \
    stats_analyzer_##type##_t *analyzer;              /**< null where the flags do not ask for it; owned */    \
  } zor_process_object_instance_entry_##type##_t;                                                              \
  /** @copydoc zor_process_entry_create_fn */                                                                  \
  ZOR_API void *zor_process_object_instance_entry_create_##type(                                               \
      const char *key, uint32_t value_kind, uint32_t flags, const void *range, uint32_t buckets,               \
      uint32_t clear_count, struct zor_process_object_oper_entry *oper_entry);                                 \
  /** @copydoc zor_process_entry_insert_fn */                                                                  \
  ZOR_API int32_t zor_process_object_instance_entry_insert_##type(void *entry, const void *sample,             \
                                                                  uint32_t *period_ended);                     \
  /** @copydoc zor_process_entry_clear_fn */                                                                   \
  ZOR_API void zor_process_object_instance_entry_clear_##type(uint32_t selection, void *entry, uint32_t mode); \
  /** @copydoc zor_process_entry_destroy_fn */                                                                 \
  ZOR_API void zor_process_object_instance_entry_destroy_##type(void *entry);                                  \
  /** @copydoc zor_process_entry_get_data_fn */                                                                \
  ZOR_API char *zor_process_object_instance_entry_get_data_##type(uint16_t output_mode, const char *dg_name,   \
                                                                  const char *object_name, uint16_t flags,     \
                                                                  const uint32_t *percentile, void *entry);    \
  /** @copydoc zor_process_entry_get_clear_buffer_fn */                                                        \
  ZOR_API char *zor_process_object_instance_entry_get_clear_buffer_##type(void *entry);                        \
  /** @copydoc zor_process_entry_set_clear_buffer_fn */                                                        \
  ZOR_API void zor_process_object_instance_entry_set_clear_buffer_##type(void *entry, char *text);
ZOR_PROCESS_FOR_EACH_TYPE(ZOR_DECLARE_ENTRY)
#undef ZOR_DECLARE_ENTRY

/** @name Tables of the operations
 * Through them an entry's operations are reached whatever its data type: indexed by data-type code - 1.
 * @{ */
/** zor_process_object_instance_entry_create_* of each data type. */
ZOR_API extern const zor_process_entry_create_fn g_zor_poi_entry_create_funcs[ZOR_PROCESS_NO_OF_DATA_TYPES];
/** zor_process_object_instance_entry_insert_* of each data type. */
ZOR_API extern const zor_process_entry_insert_fn g_zor_poi_entry_insert_funcs[ZOR_PROCESS_NO_OF_DATA_TYPES];
/** zor_process_object_instance_entry_destroy_* of each data type. */
ZOR_API extern const zor_process_entry_destroy_fn g_zor_poi_entry_destroy_funcs[ZOR_PROCESS_NO_OF_DATA_TYPES];
/** zor_process_object_instance_entry_get_data_* of each data type. */
ZOR_API extern const zor_process_entry_get_data_fn g_zor_poi_entry_get_data_funcs[ZOR_PROCESS_NO_OF_DATA_TYPES];
/** zor_process_object_instance_entry_clear_* of each data type. */
ZOR_API extern const zor_process_entry_clear_fn g_zor_poi_entry_clear_funcs[ZOR_PROCESS_NO_OF_DATA_TYPES];
/** zor_process_object_instance_entry_get_clear_buffer_* of each data type. */
ZOR_API extern const zor_process_entry_get_clear_buffer_fn
    g_zor_poi_entry_get_clear_buffer_funcs[ZOR_PROCESS_NO_OF_DATA_TYPES];
/** zor_process_object_instance_entry_set_clear_buffer_* of each data type. */
ZOR_API extern const zor_process_entry_set_clear_buffer_fn
    g_zor_poi_entry_set_clear_buffer_funcs[ZOR_PROCESS_NO_OF_DATA_TYPES];
/** @} */

#ifdef __cplusplus
}
#endif

#endif /* ZOR_ENTRY_H_ */
