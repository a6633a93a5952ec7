/** @file
 * @brief Data lists in memory, as libzor_platform keeps them: to create one, read it and free it.
 *
 * Items are added with vamra_edm_datalist_add(). */
#ifndef ZOR_DATALIST_H_
#define ZOR_DATALIST_H_

#include "zor/platform.h"

#ifdef __cplusplus
extern "C" {
#endif

/** An item of a data list. The strings belong to the list and live as long as it. */
typedef struct zor_datalist_item {
  const char *name; /**< its name */
  const char *text; /**< its text */
  uint32_t size;    /**< of the text in bytes, its NUL included */
} zor_datalist_item_t;

/** Creates an empty list. One allocation.
 * @return its handle, which the caller frees with zor_datalist_free(); 0 without memory */
ZOR_PLATFORM_API uint64_t zor_datalist_create(void);

/** Counts the items. Constant time.
 * @param datalist  a list's handle, or 0
 * @return their number; 0 for the handle 0 */
ZOR_PLATFORM_API uint32_t zor_datalist_count(uint64_t datalist);

/** Reads an item. Constant time.
 * @param datalist  a list's handle, or 0
 * @param index     which one, from 0, in the order of appending
 * @param item      written
 * @return 0, or 1 when there is no such item */
ZOR_PLATFORM_API int zor_datalist_get(uint64_t datalist, uint32_t index, zor_datalist_item_t *item);

/** Frees a list and its items.
 * @param datalist  a list's handle, or 0, which is ignored */
ZOR_PLATFORM_API void zor_datalist_free(uint64_t datalist);

#ifdef __cplusplus
}
#endif

#endif /* ZOR_DATALIST_H_ */
