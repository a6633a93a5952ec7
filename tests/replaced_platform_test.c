/* Renders a record and a report line with whatever platform library the loader finds. The argument says which one
 * is expected: "ours", or "other", whose clock stands at 1234567890. */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "zor/process.h"

int main(int argc, char **argv) {
  const int other = argc > 1 && strcmp(argv[1], "other") == 0;
  zor_process_engine_t engine = {0, {NULL}};
  uint16_t flags = ZOR_PROCESS_FLAG_SUMMARY;
  zor_process_attr_t attr = {&flags, NULL, NULL, NULL};
  const char *dg = "dg";
  const char *object = "object";
  zor_process_column_t columns[2] = {{"key", ZOR_PROCESS_VALUE_STRING, 0, 0, ZOR_PROCESS_COLUMN_KEY},
                                     {"object", ZOR_PROCESS_VALUE_UNSIGNED, 0, 8, 0}};
  uint64_t value = 42;
  zor_process_cell_t cells[2] = {{ZOR_PROCESS_VALUE_STRING, 0, "instance"}, {0, 8, &value}};
  void *column_pointers[2] = {&columns[0], &columns[1]};
  void *cell_pointers[2] = {&cells[0], &cells[1]};
  zor_process_msg_t msg = {0, ZOR_PROCESS_MSG_TEMPLATE, 2, column_pointers};
  zor_process_data_cursor_t cursor = {"dg", NULL, NULL, NULL, 0};
  char *text;
  int is_other;

  kel_ext_hash_name_init(&engine.dgs);
  if (zor_process_engine_set_dg(&engine, ZOR_PROCESS_OPER_SET, &dg, &attr) != 0) return 2;
  if (zor_process_engine_set_object(&engine, ZOR_PROCESS_OPER_SET, dg, &object, NULL) != 0) return 2;
  zor_process_engine_set_poll_interval(&engine, dg, 10);
  if (zor_process_engine_process_data(&engine, dg, &msg) != 0) return 2;
  msg.kind = ZOR_PROCESS_MSG_ROW;
  msg.columns = cell_pointers;
  if (zor_process_engine_process_data(&engine, dg, &msg) != 0) return 2;

  text = zor_process_engine_get_next_object_instance_data(&engine, &cursor, ZOR_PROCESS_OUTPUT_RECORD);
  if (!text) return 2;
  is_other = strcmp(text, "dg-summary: 1234567890, object, instance, 1, 42, 42, 42.000\r\n") == 0;
  fputs(text, stdout);
  free(text);
  if (other) {
    zor_process_print_handle_t handle = {7, 0, "", NULL, 0}; /* a handle that only the other library knows */
    zor_process_engine_print_object_instance_data_with_handle(&engine, &cursor, NULL, NULL, NULL, flags, &handle);
    if (handle.buf_count != 8) return 2;
  }
  zor_process_engine_set_dg(&engine, ZOR_PROCESS_OPER_DELETE, &dg, NULL);
  kel_hashset_free(&engine.dgs);
  return is_other != other;
}
