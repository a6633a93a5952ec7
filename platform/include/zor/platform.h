/* The calls that libzor_process makes to its platform: named hash sets, the real-time clock and data lists.
 *
 * libzor_platform.so.1 provides them. Any other library of that name may take its place without a rebuild, and a
 * host program that defines one of these functions itself is the one that is called. */
#ifndef ZOR_PLATFORM_H_
#define ZOR_PLATFORM_H_

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#define ZOR_PLATFORM_API __attribute__((visibility("default")))

struct timespec; /* <time.h> */

/* A set of records, each of which begins with two link words that belong to the set and a pointer to its name.
 * The records and their names are the caller's; the set holds only references. A record stays in place while it
 * is in a set, and its name unchanged. The set itself is one word. */
typedef struct kel_hashset {
  void *impl;
} kel_hashset_t;

/* The head of every record that is kept in a set. */
typedef struct kel_hashset_record {
  void *links[2];
  char *name;
} kel_hashset_record_t;

/* Called for each record of a walk. It may remove the record in hand from the set, and free it. */
typedef void (*kel_hashset_callback_t)(void *record, void *context);

/* Makes an empty set in place. It allocates nothing. */
ZOR_PLATFORM_API void kel_ext_hash_name_init(kel_hashset_t *set);

/* The record of that name, or null. O(1). */
ZOR_PLATFORM_API void *kel_ext_hash_name_get(kel_hashset_t *set, const char *name);

/* Adds a record under its name. Returns 0; non-zero when the set refuses it: a record of that name is present, or
 * there is no memory. O(1). */
ZOR_PLATFORM_API int kel_hashset_insert(kel_hashset_t *set, void *record);

/* Takes a record out. A record that is not in the set is left alone. O(1). */
ZOR_PLATFORM_API void kel_hashset_remove(kel_hashset_t *set, void *record);

/* The record that has the name of key_record, or null. Only the name of key_record is read. O(1). */
ZOR_PLATFORM_API void *kel_hashset_get(kel_hashset_t *set, void *key_record);

/* A walk over all records, in the order of their insertion: the first one, and the one after `record`; null at the
 * end. O(1). */
ZOR_PLATFORM_API void *kel_hashset_first(kel_hashset_t *set);
ZOR_PLATFORM_API void *kel_hashset_next(kel_hashset_t *set, void *record);

/* Calls the callback for every record, in the order of insertion. */
ZOR_PLATFORM_API void kel_hashset_iterate(kel_hashset_t *set, kel_hashset_callback_t callback, void *context);

/* Releases the set's own storage, not the records; the set is empty afterwards. */
ZOR_PLATFORM_API void kel_hashset_free(kel_hashset_t *set);

/* Fills *now from the real-time clock. */
ZOR_PLATFORM_API void kel_time_get_timespec_realtime(struct timespec *now);

/* Appends a text item of `size` bytes, its NUL included, to a data list; name and text are copied. The library
 * passes 3 and 0 as type and flags. Returns 0, or non-zero when the item could not be appended. */
ZOR_PLATFORM_API int vamra_edm_datalist_add(uint64_t datalist, const char *name, int32_t type, int32_t flags,
                                            const void *text, int32_t size);

#ifdef __cplusplus
}
#endif

#endif /* ZOR_PLATFORM_H_ */
