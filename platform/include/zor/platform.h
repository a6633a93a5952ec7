/** @file
 * @brief The calls that libzor_process makes to its platform: named hash sets, the real-time clock and data lists.
 *
 * libzor_platform.so.1 provides them. Any other library of that name may take its place without a rebuild, and a
 * host program that defines one of these functions itself is the one that is called. Costs are those of
 * libzor_platform. */
#ifndef ZOR_PLATFORM_H_
#define ZOR_PLATFORM_H_

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/** Marks what the platform library exports. */
#define ZOR_PLATFORM_API __attribute__((visibility("default")))

struct timespec; /* <time.h> */

/** A set of records, each of which begins with two link words that belong to the set and a pointer to its name. The
 * records and their names are the caller's; the set holds only references. A record stays in place while it is in a
 * set, and its name unchanged. The set itself is one word. */
typedef struct kel_hashset {
  void *impl; /**< the platform's */
} kel_hashset_t;

/** The head of every record that is kept in a set. */
typedef struct kel_hashset_record {
  void *links[2]; /**< the set's */
  char *name;     /**< the record's name */
} kel_hashset_record_t;

/** Called for each record of a walk. It may remove the record in hand from the set, and free it.
 * @param record   the record in hand
 * @param context  handed to kel_hashset_iterate() */
typedef void (*kel_hashset_callback_t)(void *record, void *context);

/** Makes an empty set in place. Allocates nothing.
 * @param set  the set; what it held before is overwritten */
ZOR_PLATFORM_API void kel_ext_hash_name_init(kel_hashset_t *set);

/** Finds a record by name. O(1).
 * @param set   the set
 * @param name  the name, or null
 * @return the record, or null */
ZOR_PLATFORM_API void *kel_ext_hash_name_get(kel_hashset_t *set, const char *name);

/** Adds a record under its name. O(1) on average; allocates when the set grows.
 * @param set     the set
 * @param record  the record, whose links are written
 * @return 0; non-zero when the set refuses it: a record of that name is present, or there is no memory */
ZOR_PLATFORM_API int kel_hashset_insert(kel_hashset_t *set, void *record);

/** Takes a record out. A record that is not in the set is left alone. O(1).
 * @param set     the set
 * @param record  the record, which is not freed */
ZOR_PLATFORM_API void kel_hashset_remove(kel_hashset_t *set, void *record);

/** Finds the record that has the name of another. O(1).
 * @param set         the set
 * @param key_record  a record of which only the name is read
 * @return the record, or null */
ZOR_PLATFORM_API void *kel_hashset_get(kel_hashset_t *set, void *key_record);

/** Begins a walk over all records, in the order of their insertion. O(1).
 * @param set  the set
 * @return the first record, or null */
ZOR_PLATFORM_API void *kel_hashset_first(kel_hashset_t *set);

/** Goes on with a walk. O(1).
 * @param set     the set
 * @param record  a record of it
 * @return the record after it, or null at the end */
ZOR_PLATFORM_API void *kel_hashset_next(kel_hashset_t *set, void *record);

/** Calls the callback for every record, in the order of insertion.
 * @param set       the set
 * @param callback  called with each record
 * @param context   handed to it */
ZOR_PLATFORM_API void kel_hashset_iterate(kel_hashset_t *set, kel_hashset_callback_t callback, void *context);

/** Releases the set's own storage, not the records; the set is empty afterwards.
 * @param set  the set */
ZOR_PLATFORM_API void kel_hashset_free(kel_hashset_t *set);

/** Reads the real-time clock, whose seconds stand in the records.
 * @param now  written */
ZOR_PLATFORM_API void kel_time_get_timespec_realtime(struct timespec *now);

/** Appends a text item to a data list; name and text are copied.
 * @param datalist  the list's handle, from the print handle
 * @param name      the item's name, "buf1", "buf2", ...
 * @param type      3, a text
 * @param flags     0
 * @param text      the text
 * @param size      its size in bytes, its NUL included
 * @return 0; non-zero when it could not be appended, and the line is then lost */
ZOR_PLATFORM_API int vamra_edm_datalist_add(uint64_t datalist, const char *name, int32_t type, int32_t flags,
                                            const void *text, int32_t size);

#ifdef __cplusplus
}
#endif

#endif /* ZOR_PLATFORM_H_ */
