/* A collector that is its own platform: it defines the clock and the data list that the library calls, in place of
 * those of libzor_platform, and polls the load of /proc/loadavg. What a program defines is what the library calls;
 * the named sets, which are not defined here, remain those of libzor_platform.
 *
 *   cc -std=c99 own_platform.c $(pkg-config --cflags --libs zor_process) -o own_platform
 *   ./own_platform [POLLS [SECONDS]]          3 polls, one every 10 seconds
 *
 * or with CMake: find_package(zor_process), target_link_libraries(own_platform PRIVATE zor::process). A program
 * that is built with -fvisibility=hidden must show these functions, as ZOR_PLATFORM_API does in their declarations.
 */
#define _POSIX_C_SOURCE 199309L /* nanosleep */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>

#include "zor/process.h"

#define DG "load"
#define OBJECT "centiload"

static zor_process_engine_t engine;
static time_t poll_time; /* all records of a poll are to bear the same time */

/* A data list of our own is a file. The library gives it a name for the item, which is of no use here. */
struct file_list {
  FILE *file;
  int failed;
};

void kel_time_get_timespec_realtime(struct timespec *now) {
  now->tv_sec = poll_time;
  now->tv_nsec = 0;
}

int vamra_edm_datalist_add(uint64_t datalist, const char *name, int32_t type, int32_t flags, const void *text,
                           int32_t size) {
  struct file_list *list = (struct file_list *)(uintptr_t)datalist;
  (void)name, (void)type, (void)flags, (void)size; /* the text ends with a NUL, which size counts */
  if (fputs(text, list->file) < 0) list->failed = 1;
  return list->failed;
}

static void check(uint32_t code, const char *what) {
  if (code == ZOR_PROCESS_SUCCESS) return;
  fprintf(stderr, "own_platform: %s: %s\n", what, zor_proc_get_error_string_list(code));
  exit(1);
}

static void send_message(uint32_t kind, void **columns, int32_t count) {
  zor_process_msg_t msg = {0, 0, 0, NULL};
  msg.kind = kind;
  msg.count = count;
  msg.columns = columns;
  check(zor_process_engine_process_data(&engine, DG, &msg), "process a message");
}

static void configure(void) {
  const char *dg = DG, *object = OBJECT;
  uint16_t flags = ZOR_PROCESS_FLAG_SUMMARY;
  zor_process_attr_t attr = {&flags, NULL, NULL, NULL};
  zor_process_column_t key = {"minutes", ZOR_PROCESS_VALUE_STRING, 0, 0, ZOR_PROCESS_COLUMN_KEY};
  zor_process_column_t load = {OBJECT, ZOR_PROCESS_VALUE_UNSIGNED, 0, 4, 0};
  void *columns[2];
  columns[0] = &key;
  columns[1] = &load;
  kel_ext_hash_name_init(&engine.dgs);
  check(zor_process_engine_set_dg(&engine, ZOR_PROCESS_OPER_SET, &dg, &attr), "set the data group");
  check(zor_process_engine_set_object(&engine, ZOR_PROCESS_OPER_SET, DG, &object, NULL), "set the object");
  zor_process_engine_set_poll_interval(&engine, DG, 10);
  send_message(ZOR_PROCESS_MSG_TEMPLATE, columns, 2);
}

/* The averages of one, five and fifteen minutes, in hundredths. */
static void poll_load(void) {
  static const char *const names[] = {"1", "5", "15"};
  double loads[3];
  int i;
  FILE *file = fopen("/proc/loadavg", "r");
  if (!file || fscanf(file, "%lf %lf %lf", &loads[0], &loads[1], &loads[2]) != 3) {
    fprintf(stderr, "own_platform: cannot read /proc/loadavg\n");
    exit(1);
  }
  fclose(file);
  poll_time = time(NULL);
  for (i = 0; i < 3; ++i) {
    const uint32_t value = (uint32_t)(loads[i] * 100 + 0.5);
    zor_process_cell_t key = {ZOR_PROCESS_VALUE_STRING, 0, NULL};
    zor_process_cell_t load = {ZOR_PROCESS_VALUE_UNSIGNED, sizeof value, NULL};
    void *cells[2];
    key.value = names[i];
    load.value = &value;
    cells[0] = &key;
    cells[1] = &load;
    send_message(ZOR_PROCESS_MSG_ROW, cells, 0);
  }
  send_message(ZOR_PROCESS_MSG_END_OF_POLL, NULL, 0);
}

/* The records of what was collected so far, and the report. */
static int print(void) {
  zor_process_data_cursor_t cursor = {DG, NULL, NULL, NULL, 0};
  zor_process_print_handle_t handle = {0, 0, "", NULL, 0};
  struct file_list list;
  for (;;) {
    char *records = zor_process_engine_get_next_object_instance_data(&engine, &cursor, ZOR_PROCESS_OUTPUT_RECORD);
    if (!cursor.entry) break;
    check(records ? ZOR_PROCESS_SUCCESS : ZOR_PROCESS_ERROR_NO_MEMORY, "render an instance");
    fputs(records, stdout);
    free(records);
  }
  list.file = stdout;
  list.failed = 0;
  handle.datalist = (uintptr_t)&list;
  cursor.dg = NULL;
  zor_process_engine_print_object_instance_data_with_handle(&engine, &cursor, NULL, NULL, NULL,
                                                            ZOR_PROCESS_FLAG_SUMMARY, &handle);
  pvg_prt_handle = NULL; /* the library keeps the handle, which ends here */
  return list.failed || fflush(stdout) != 0;
}

int main(int argc, char **argv) {
  const char *dg = DG;
  const int polls = argc > 1 ? atoi(argv[1]) : 3;
  const double seconds = argc > 2 ? atof(argv[2]) : 10;
  struct timespec wait;
  int i, failed;
  wait.tv_sec = (time_t)seconds;
  wait.tv_nsec = (long)((seconds - (double)wait.tv_sec) * 1e9);
  configure();
  for (i = 0; i < polls; ++i) {
    if (i > 0) nanosleep(&wait, NULL);
    poll_load();
  }
  failed = print();
  check(zor_process_engine_set_dg(&engine, ZOR_PROCESS_OPER_DELETE, &dg, NULL), "delete the data group");
  kel_hashset_free(&engine.dgs);
  return failed;
}
