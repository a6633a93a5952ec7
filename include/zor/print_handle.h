/** @file
 * @brief The print handle: where console lines go. */
#ifndef ZOR_PRINT_HANDLE_H_
#define ZOR_PRINT_HANDLE_H_

#include "zor/types.h"

#ifdef __cplusplus
extern "C" {
#endif

/** A print handle, owned by the caller of the console report. Each line is appended to the data list as a text item
 * of its own; a line of a screen may be several items, so a reader concatenates them in order. */
typedef struct zor_process_print_handle {
  uint64_t datalist; /**< the platform's handle of the data list; never changed by the library */
  int32_t buf_count; /**< number of lines appended so far; the caller sets its start, normally 0 */
  char buf_name[8];  /**< name of the line being appended: "buf1", "buf2", ...; cut to 7 characters, so names repeat
                        from the 10000th line on */
  char *buf;         /**< text of the line being appended; null between lines */
  int32_t buf_len;   /**< its length without the NUL */
} zor_process_print_handle_t;

/** The handle that receives console lines, one for the whole process; null at first, and then they go to standard
 * output. Not owned. The report sets it and leaves it set: set it to null before the handle's storage goes, or the
 * next console line goes through a dangling pointer. */
ZOR_API extern zor_process_print_handle_t *pvg_prt_handle;

#ifdef __cplusplus
}
#endif

#endif /* ZOR_PRINT_HANDLE_H_ */
