/** @file
 * @brief The process engine: describe data groups, feed polls, collect records.
 *
 * An engine holds data groups (DGs); a DG holds objects, each a named counter column with the analyses that it
 * wants; the instances of an object are the rows of the table, named by the row's key. The road of a poll:
 *
 * - once: zor_process_engine_set_dg(), zor_process_engine_set_object(), zor_process_engine_set_poll_interval();
 * - a template first, then rows and an end of poll for each poll: zor_process_engine_process_data();
 * - after a clear, to collect records: zor_process_engine_get_next_object_instance_data(),
 *   zor_process_engine_get_clear_buffer(), zor_process_engine_set_clear_buffer().
 *
 * Names given in are copied. Names handed out are the records' own strings: not to be changed or freed, valid until
 * the record is deleted. Strings are NUL-terminated bytes of any encoding. */
#ifndef ZOR_ENGINE_H_
#define ZOR_ENGINE_H_

#include <stddef.h>

#include "zor/platform.h"
#include "zor/print_handle.h"
#include "zor/types.h"

#ifdef __cplusplus
extern "C" {
#endif

/** The engine handle, owned by the caller, who initialises dgs with kel_ext_hash_name_init() before the first call
 * and deletes every DG and releases dgs with kel_hashset_free() after the last. */
typedef struct zor_process_engine {
  uint64_t user;     /**< the caller's; never read or written by the library */
  kel_hashset_t dgs; /**< zor_process_dg_t */
} zor_process_engine_t;

/** A data group. The fields from key_column to poll_state are its collected data. */
typedef struct zor_process_dg {
  void *links[2];               /**< the set's */
  char *name;                   /**< owned */
  uint16_t flags;               /**< analyses that apply to every object of the DG */
  uint32_t no_of_buckets;       /**< for objects that set none; 100 at first */
  uint32_t clear_interval_type; /**< 1: polls, and the DG clears itself at this interval; 2: hours */
  uint32_t clear_interval;      /**< in that unit */
  kel_hashset_t objects;        /**< zor_process_object_t */
  uint32_t poll_interval;       /**< seconds between polls */
  int32_t key_column;           /**< of the template; -1 while none named one */
  kel_hashset_t *oper_entries;  /**< zor_process_object_oper_entry_t; null until the first message */
  uint16_t poll_count;          /**< ends of poll since the last clear; counted when clear_interval_type is 1 */
  uint32_t status;              /**< latched result of processing */
  uint64_t no_of_samples;       /**< polls that delivered at least one value */
  uint8_t poll_state;           /**< 1: the next value is the first of a poll; 2: this poll was counted */
} zor_process_dg_t;

/** An object. */
typedef struct zor_process_object {
  void *links[2];               /**< the set's */
  char *name;                   /**< matched against the names of template columns; owned */
  uint32_t id;                  /**< its identifier; 0 while it has none */
  char *dg_name;                /**< owned */
  uint16_t flags;               /**< its analyses, besides those of the DG */
  uint32_t no_of_buckets;       /**< 0: the DG's */
  uint32_t clear_interval_type; /**< 0: the DG's type and interval */
  uint32_t clear_interval;      /**< as in the DG; counts only for baselines */
  uint32_t value_kind;          /**< 1: a cumulative counter; else each value is a sample */
  uint32_t range_type;          /**< data-type code of the bounds: 0 no range, 3 signed or 4 unsigned 64-bit */
  uint64_t *range;              /**< two bounds, low then high; null without a range; owned */
  kel_hashset_t *instances;     /**< zor_process_object_instance_t; null: every instance is processed */
} zor_process_object_t;

/** The name of an instance to be processed. */
typedef struct zor_process_object_instance {
  void *links[2]; /**< the set's */
  char *name;     /**< owned */
} zor_process_object_instance_t;

/** An oper entry: a template column that feeds an object. */
typedef struct zor_process_object_oper_entry {
  void *links[2];          /**< the set's */
  char *name;              /**< the column's and the object's; owned */
  uint32_t column;         /**< index in the template and in every row */
  uint16_t flags;          /**< of DG and object together when the template was processed */
  char *dg_name;           /**< owned */
  uint32_t data_type;      /**< zor_process_data_type_t */
  kel_hashset_t instances; /**< zor_process_object_instance_entry_<type>_t, zor/entry.h */
} zor_process_object_oper_entry_t;

/** A walk over the instances of a DG, owned by the caller. Start it with dg_name set and all else null. It must not
 * be kept across the deletion of the DG or a reset of its data. */
typedef struct zor_process_data_cursor {
  const char *dg_name;                         /**< never changed by the library */
  zor_process_dg_t *dg;                        /**< the DG, once found */
  zor_process_object_oper_entry_t *oper_entry; /**< the column of the instance returned last */
  void *entry;                                 /**< the instance returned last, or null */
  uint16_t flags;                              /**< sections used for it */
} zor_process_data_cursor_t;

/** Settings of a DG, and those that an object shares with it. A null pointer leaves the setting alone on set and
 * skips it on get. */
typedef struct zor_process_attr {
  uint16_t *flags;   /**< ZOR_PROCESS_FLAG_*; set adds bits, delete takes them away; the result is written back */
  uint32_t *buckets; /**< 1 to 65535; for an object 0 means the DG's */
  uint32_t *clear_type;     /**< 1 polls, 2 hours */
  uint32_t *clear_interval; /**< on set read only together with clear_type; 1 to 65535 to be met */
} zor_process_attr_t;

/** Settings of an object. A null pointer leaves the setting alone on set and skips it on get. */
typedef struct zor_process_object_attr {
  uint32_t *id;               /**< on set, 0 asks for a new identifier, which is written back */
  zor_process_attr_t *common; /**< the settings that a DG has too */
  uint32_t *value_kind;       /**< 1: a cumulative counter; else each value is a sample */
  uint32_t *range_type;       /**< 0 no range, 3 signed or 4 unsigned bounds */
  uint64_t *range; /**< two 64-bit bounds, low then high, signed or unsigned as range_type says; copied */
} zor_process_object_attr_t;

/** Kinds of message. */
enum {
  ZOR_PROCESS_MSG_TEMPLATE = 0,   /**< the columns of the table */
  ZOR_PROCESS_MSG_ROW = 1,        /**< the values of one instance */
  ZOR_PROCESS_MSG_END_OF_POLL = 2 /**< all rows of the poll are given */
};
/** Kinds of value in templates and rows. */
enum {
  ZOR_PROCESS_VALUE_UNSIGNED = 0, /**< an unsigned integer */
  ZOR_PROCESS_VALUE_SIGNED = 1,   /**< a signed integer */
  ZOR_PROCESS_VALUE_STRING = 2    /**< a NUL-terminated string */
};
/** Flags of a column. */
enum { ZOR_PROCESS_COLUMN_KEY = 1 /**< the key column, which names the instance */ };

/** A column of a template. */
typedef struct zor_process_column {
  const char *name;  /**< the object's name, where it feeds one */
  uint32_t type;     /**< ZOR_PROCESS_VALUE_* */
  uint32_t reserved; /**< not read */
  uint32_t width;    /**< in bytes: 8 means a 64-bit value, anything else a 32-bit value */
  uint32_t flags;    /**< ZOR_PROCESS_COLUMN_KEY: this is the key column */
} zor_process_column_t;

/** A cell of a row. */
typedef struct zor_process_cell {
  uint32_t type;     /**< tested only for the key, which must be a string */
  uint32_t length;   /**< 0 marks an empty cell, which is skipped; not tested for the key */
  const void *value; /**< the key string, or a value as the template's column says, of any alignment */
} zor_process_cell_t;

/** A message; only read by the library. */
typedef struct zor_process_msg {
  uint64_t user;  /**< the caller's; not read */
  uint32_t kind;  /**< ZOR_PROCESS_MSG_* */
  int32_t count;  /**< template: number of columns */
  void **columns; /**< template: zor_process_column_t pointers; row: zor_process_cell_t pointers, indexed by
                     template column, null where there is no value. The array reaches every template column. */
} zor_process_msg_t;

/** @name Configuration
 * Each call works on the record that *name names; for get and get-next a null *name means the first record. On
 * success of these two *name is set to the record's own name; get-next sets it to null when there is no further
 * record. Each costs a look-up or two by name, O(1).
 * @{ */

/** Sets, deletes, resets or reads a DG.
 *   - set creates the DG if it is missing and applies the settings; attr is required
 *   - delete with attr takes flag bits away; without, it deletes the DG with all that it holds
 *   - clear resets the collected data; objects and settings stay, and the next template is processed again
 *   - get, get-next report the settings
 * @param engine     the engine
 * @param operation  ZOR_PROCESS_OPER_*
 * @param name       the DG's name, in and out
 * @param attr       the settings; see above for when it may be null
 * @return 0; 1 without a name or a required attr; 2 without memory; 3 for an unknown operation; 4 when there is no
 *         such DG, or no further one */
ZOR_API uint32_t zor_process_engine_set_dg(zor_process_engine_t *engine, uint32_t operation, const char **name,
                                           zor_process_attr_t *attr);

/** Sets, deletes or reads an object of a DG; there is no clear. A range type without a range is refused, what comes
 * before it (the object and its identifier) staying set. Flags take effect with the next template, the other
 * settings for instances that appear afterwards. Deleting an object leaves its column's data in place, and the next
 * row fails with 5.
 * @param engine     the engine
 * @param operation  ZOR_PROCESS_OPER_*
 * @param dg_name    the DG's name
 * @param name       the object's name, in and out
 * @param attr       the settings; null on set creates the object only, null on delete deletes it
 * @return 0; 1 without a name or a required attr or range; 2 without memory; 3 for an unknown operation; 4 when
 * there is no such DG; 5 when there is no such object, or no further one */
ZOR_API uint32_t zor_process_engine_set_object(zor_process_engine_t *engine, uint32_t operation,
                                               const char *dg_name, const char **name,
                                               zor_process_object_attr_t *attr);

/** Adds (set), deletes or reads the name of an instance to be processed; a name already there is accepted. While an
 * object has none and never had one, every instance is processed; once it had one, only those named are.
 * @param engine       the engine
 * @param operation    ZOR_PROCESS_OPER_*, but for clear
 * @param dg_name      the DG's name
 * @param object_name  the object's name
 * @param name         the instance's name, in and out
 * @return 0; 1 without a name; 2 without memory; 3 for an unknown operation; 4 when there is no such DG; 5 when
 * there is no such object; 6 when there is no such instance name, or no further one */
ZOR_API uint32_t zor_process_engine_set_object_instance(zor_process_engine_t *engine, uint32_t operation,
                                                        const char *dg_name, const char *object_name,
                                                        const char **name);

/** Sets the seconds between polls, by which hours are turned into polls. A DG that does not exist is ignored.
 * @param engine   the engine
 * @param dg_name  the DG's name
 * @param seconds  at least 10; with less every message is refused with 14 */
ZOR_API void zor_process_engine_set_poll_interval(zor_process_engine_t *engine, const char *dg_name,
                                                  uint32_t seconds);
/** @} */

/** @name Processing
 * @{ */

/** Takes a message: a template first, then for each poll its rows and an end of poll. At the end of every
 * clear_interval-th poll of a DG whose clear type is 1, all summaries and distributions are rendered into clear
 * buffers and reset. A row costs one look-up and a constant time per column, and allocates only for an instance
 * seen first; an end of poll is constant but for the clear. Values of a row taken before a failure stay counted.
 * @param engine   the engine
 * @param dg_name  the DG's name
 * @param msg      the message
 * @return 4 when there is no such DG and 1 for a null message; otherwise the DG's status: the first failure is
 *         latched and returned for every later message, until the data is reset (zor_process_engine_set_dg(),
 * clear) or a zor_process_engine_clear_dg_data() succeeds. Code 14 ends when the poll interval is valid */
ZOR_API uint32_t zor_process_engine_process_data(zor_process_engine_t *engine, const char *dg_name,
                                                 const zor_process_msg_t *msg);

/** The periods that have ended in the baselines of a DG: while this does not change, and nothing is cleared, there
 * is no new record to be collected, and no need for a walk. Constant time.
 * @param engine   the engine
 * @param dg_name  the DG's name
 * @return their number since the DG was made; 0 when there is no such DG */
ZOR_API uint64_t zor_process_engine_get_periods_ended(zor_process_engine_t *engine, const char *dg_name);

/** Clears the statistics of a DG that mask and an object's flags have in common: each instance's records are
 * rendered into its clear buffer, then its statistics are reset. Stops at the first instance that fails, which
 * keeps its statistics, as do those after it. Linear in the instances; one allocation for each.
 * @param engine   the engine
 * @param dg_name  the DG's name
 * @param mask     ZOR_PROCESS_FLAG_*. With the distribution alone the text is empty, and is to be collected all the
 *                 same; with none nothing is rendered or reset and only the DG's latch is taken away
 * @param mode     no meaning
 * @return 16 when there is no such DG; otherwise the DG's new status: 0, 2 without memory or when an instance does
 * not keep a selected statistic, 13 when an instance holds an uncollected clear buffer */
ZOR_API uint32_t zor_process_engine_clear_dg_data(zor_process_engine_t *engine, const char *dg_name, uint16_t mask,
                                                  uint32_t mode);
/** @} */

/** @name Removing instances
 * @{ */

/** Asked of each instance whether it is to be removed.
 * @param instance  its DG, oper entry and entry; only to be read
 * @param context   handed to zor_process_engine_remove_instances()
 * @return 0 to keep it */
typedef int (*zor_process_instance_predicate_fn)(const zor_process_data_cursor_t *instance, void *context);

/** Removes instances from the collected data of a DG, each with all that its object's statistics hold of it: for
 * tables whose rows come and go. An instance whose clear buffer has not been collected stays and is not asked for.
 * The others lose nothing, the last values of their counters included. A removed one that comes again is new: its
 * counter is primed, its baseline learns. One pass over all instances and rows, whatever goes; allocates nothing.
 * No cursor may be kept across the call.
 * @param engine      the engine
 * @param dg_name     the DG's name
 * @param is_removed  asked of each instance
 * @param context     handed to it
 * @return 0; 1 without is_removed; 4 when there is no such DG */
ZOR_API uint32_t zor_process_engine_remove_instances(zor_process_engine_t *engine, const char *dg_name,
                                                     zor_process_instance_predicate_fn is_removed, void *context);
/** @} */

/** @name Saving and loading
 * @{ */

/** Writes the collected data of a DG, so that it can go on in another process: the last values of counters,
 * statistics, baselines, learning ones too, and records that were not collected. Settings are not written but for
 * comparison. One pass over all instances and their buckets; allocates nothing once a row has come.
 * @param engine   the engine
 * @param dg_name  the DG's name
 * @param data     written, if there is room for all of it: bytes in the machine's order; null to learn the size
 * @param size     the room; changed to the size of the data
 * @return 0; 1 without size; 2 without memory; 4 when there is no such DG; 8 while it has no template */
ZOR_API uint32_t zor_process_engine_save_dg_data(zor_process_engine_t *engine, const char *dg_name, void *data,
                                                 size_t *size);

/** Reads what zor_process_engine_save_dg_data() has written into a DG that has its template and no instances yet.
 * Anything else is refused, be it torn, changed or of other settings; what it takes leaves no record that calls
 * could not have made, but for sums and counts that do not fit together. Linear in the data.
 * @param engine   the engine
 * @param dg_name  the DG's name
 * @param data     the bytes, at any address
 * @param size     their number
 * @return 0; 1 without data or when the DG has instances; 4 when there is no such DG; 8 while it has no template:
 *         nothing has changed then. 11 for other data, 15 when a range does not fit, 2 without memory: the data of
 *         the DG is reset then, as by zor_process_engine_set_dg() with clear, and it awaits its template */
ZOR_API uint32_t zor_process_engine_load_dg_data(zor_process_engine_t *engine, const char *dg_name,
                                                 const void *data, size_t size);
/** @} */

/** @name Reading
 * @{ */

/** Renders the next instance of a walk. The sections are those of the flags of DG and object as they are now. To
 * move on costs constant time; with output_mode 0 nothing is rendered but an empty text.
 * @param engine       the engine
 * @param cursor       the walk
 * @param output_mode  ZOR_PROCESS_OUTPUT_*
 * @return a text from malloc that the caller frees, or null. After a null the cursor's entry tells why: null when
 * the walk is over (the next call begins anew), else the instance that could not be rendered (the next call goes on
 * after it) */
ZOR_API char *zor_process_engine_get_next_object_instance_data(zor_process_engine_t *engine,
                                                               zor_process_data_cursor_t *cursor,
                                                               uint32_t output_mode);

/** Reads the clear buffer of the cursor's instance. To take it over, set null afterwards, and free() the text when
 * done with it; left in place it makes the instance's next clear fail. Constant time.
 * @param cursor  a cursor that names an instance
 * @return the text, or null; null where a walk is over */
ZOR_API char *zor_process_engine_get_clear_buffer(const zor_process_data_cursor_t *cursor);

/** Replaces the clear buffer of the cursor's instance. What it held before is not freed. While the instance's
 * baseline is learning the given text is freed instead. Constant time.
 * @param cursor  a cursor that names an instance
 * @param text    a text from malloc, which the instance takes over, or null */
ZOR_API void zor_process_engine_set_clear_buffer(const zor_process_data_cursor_t *cursor, char *text);

/** Prints a report through a handle, which stays the current one (pvg_prt_handle). A name that does not exist ends
 * it without a word. Linear in the instances; one allocation and one item per line.
 * @param engine         the engine
 * @param dg_ref         the DG: only dg and dg_name are read
 * @param object_name    null for all
 * @param instance_name  null for all
 * @param percentile     one percentile in whole percent, 0 to 100, instead of the nine points, or null
 * @param flags          sections: summary, distribution, percentile
 * @param handle         receives the lines; null for standard output */
ZOR_API void zor_process_engine_print_object_instance_data_with_handle(
    zor_process_engine_t *engine, const zor_process_data_cursor_t *dg_ref, const char *object_name,
    const char *instance_name, const uint32_t *percentile, uint32_t flags, zor_process_print_handle_t *handle);

/** Prints a report to standard output.
 * @param engine         the engine
 * @param dg_ref         the DG: only dg and dg_name are read
 * @param object_name    null for all
 * @param instance_name  null for all
 * @param percentile     one percentile in whole percent, 0 to 100, instead of the nine points, or null
 * @param flags          sections: summary, distribution, percentile */
ZOR_API void zor_process_engine_print_object_instance_data(zor_process_engine_t *engine,
                                                           const zor_process_data_cursor_t *dg_ref,
                                                           const char *object_name, const char *instance_name,
                                                           const uint32_t *percentile, uint32_t flags);

/** The name of the first object of a DG that has an identifier. Linear in the objects.
 * @param engine   the engine
 * @param dg_name  the DG's name
 * @param id       the identifier
 * @return its name, the record's own string; null when there is no such DG or object */
ZOR_API const char *zor_process_engine_get_object_name_byid(zor_process_engine_t *engine, const char *dg_name,
                                                            uint32_t id);

/** The identifier of the first object of a DG whose name begins with a text. Linear in the objects.
 * @param engine       the engine
 * @param dg_name      the DG's name
 * @param object_name  the whole name, or the beginning of one
 * @return its identifier; 0 when there is no such DG or object, or it has none */
ZOR_API uint32_t zor_process_object_get_id_byname(zor_process_engine_t *engine, const char *dg_name,
                                                  const char *object_name);
/** @} */

/** The text of an error code.
 * @param code  any value
 * @return a constant string, "unknown error code" above 16 */
ZOR_API const char *zor_proc_get_error_string_list(uint32_t code);
/** The texts of the error codes 0 to 16. */
ZOR_API extern const char *const ppc_g_zor_proc_error_string_list[17];

#ifdef __cplusplus
}
#endif

#endif /* ZOR_ENGINE_H_ */
