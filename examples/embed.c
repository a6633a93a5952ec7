/* A collector in C99: polls the CPU counters of /proc/stat, collects the records that the library makes of them,
 * and prints a report.
 *
 *   cc -std=c99 embed.c $(pkg-config --cflags --libs zor_process) -o embed
 *   ./embed [POLLS [SECONDS]]                 5 polls, one every 10 seconds
 *
 * or with CMake: find_package(zor_process), target_link_libraries(embed PRIVATE zor::process). */
#define _POSIX_C_SOURCE 199309L /* nanosleep */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>

#include "zor/datalist.h"
#include "zor/process.h"

#define DG "cpu"
#define OBJECT "user"

static zor_process_engine_t engine;

static void check(uint32_t code, const char *what) {
  if (code == ZOR_PROCESS_SUCCESS) return;
  fprintf(stderr, "embed: %s: %s\n", what, zor_proc_get_error_string_list(code));
  exit(1);
}

/* A data group that clears itself every 3 polls, with one object: a cumulative counter, its summary and percentiles
 * over 0 to 999 ticks per poll in 50 buckets. */
static void configure(void) {
  const char *dg = DG, *object = OBJECT;
  uint32_t clear_type = 1, clear_interval = 3, buckets = 50, cumulative = 1,
           range_type = ZOR_PROCESS_DATA_TYPE_UINT64;
  uint64_t range[2] = {0, 999};
  uint16_t flags = ZOR_PROCESS_FLAG_SUMMARY | ZOR_PROCESS_FLAG_PERCENTILE;
  zor_process_attr_t dg_attr = {NULL, NULL, &clear_type, &clear_interval};
  zor_process_attr_t common = {&flags, &buckets, NULL, NULL};
  zor_process_object_attr_t object_attr = {NULL, &common, &cumulative, &range_type, range};

  kel_ext_hash_name_init(&engine.dgs);
  check(zor_process_engine_set_dg(&engine, ZOR_PROCESS_OPER_SET, &dg, &dg_attr), "set the data group");
  check(zor_process_engine_set_object(&engine, ZOR_PROCESS_OPER_SET, DG, &object, &object_attr), "set the object");
  zor_process_engine_set_poll_interval(&engine, DG, 10);
}

static void send_message(uint32_t kind, void **columns, int32_t count) {
  zor_process_msg_t msg = {0, 0, 0, NULL};
  msg.kind = kind;
  msg.count = count;
  msg.columns = columns;
  check(zor_process_engine_process_data(&engine, DG, &msg), "process a message");
}

/* The columns of the table: the key, which names the instance, and the counter. */
static void send_template(void) {
  zor_process_column_t key = {"cpu", ZOR_PROCESS_VALUE_STRING, 0, 0, ZOR_PROCESS_COLUMN_KEY};
  zor_process_column_t user = {OBJECT, ZOR_PROCESS_VALUE_UNSIGNED, 0, 8, 0};
  void *columns[2];
  columns[0] = &key;
  columns[1] = &user;
  send_message(ZOR_PROCESS_MSG_TEMPLATE, columns, 2);
}

/* One poll: a row for each CPU, then the end of the poll. */
static void poll_cpus(void) {
  char line[4096], name[32];
  uint64_t user;
  FILE *stat = fopen("/proc/stat", "r");
  if (!stat) {
    perror("embed: /proc/stat");
    exit(1);
  }
  while (fgets(line, sizeof line, stat)) {
    unsigned long long ticks;
    zor_process_cell_t key_cell = {ZOR_PROCESS_VALUE_STRING, 0, NULL};
    zor_process_cell_t user_cell = {ZOR_PROCESS_VALUE_UNSIGNED, sizeof user, NULL};
    void *cells[2];
    if (sscanf(line, "%31s %llu", name, &ticks) != 2 || strncmp(name, "cpu", 3) != 0) break;
    user = ticks;
    key_cell.value = name;
    user_cell.value = &user;
    cells[0] = &key_cell;
    cells[1] = &user_cell;
    send_message(ZOR_PROCESS_MSG_ROW, cells, 0);
  }
  fclose(stat);
  send_message(ZOR_PROCESS_MSG_END_OF_POLL, NULL, 0);
}

/* After a clear every instance holds its records until they are taken over. */
static void collect(void) {
  zor_process_data_cursor_t cursor = {DG, NULL, NULL, NULL, 0};
  for (;;) {
    char *records;
    free(zor_process_engine_get_next_object_instance_data(&engine, &cursor, 0)); /* moves on, renders nothing */
    if (!cursor.entry) return;
    records = zor_process_engine_get_clear_buffer(&cursor);
    if (!records) continue;
    fputs(records, stdout);
    zor_process_engine_set_clear_buffer(&cursor, NULL);
    free(records);
  }
}

/* The report is appended to a data list, line by line, and read back. */
static void report(void) {
  zor_process_data_cursor_t dg = {DG, NULL, NULL, NULL, 0};
  zor_process_print_handle_t handle = {0, 0, "", NULL, 0};
  zor_datalist_item_t item;
  uint32_t i;
  handle.datalist = zor_datalist_create();
  zor_process_engine_print_object_instance_data_with_handle(
      &engine, &dg, NULL, NULL, NULL, ZOR_PROCESS_FLAG_SUMMARY | ZOR_PROCESS_FLAG_PERCENTILE, &handle);
  pvg_prt_handle = NULL; /* the library keeps the handle, which ends here */
  for (i = 0; zor_datalist_get(handle.datalist, i, &item) == 0; ++i) fputs(item.text, stdout);
  zor_datalist_free(handle.datalist);
}

static void wait_for(double seconds) {
  struct timespec time;
  time.tv_sec = (time_t)seconds;
  time.tv_nsec = (long)((seconds - (double)time.tv_sec) * 1e9);
  nanosleep(&time, NULL);
}

int main(int argc, char **argv) {
  const char *dg = DG;
  const int polls = argc > 1 ? atoi(argv[1]) : 5;
  const double seconds = argc > 2 ? atof(argv[2]) : 10;
  int i;
  configure();
  send_template();
  for (i = 0; i < polls; ++i) {
    if (i > 0) wait_for(seconds);
    poll_cpus();
    collect();
  }
  report();
  check(zor_process_engine_set_dg(&engine, ZOR_PROCESS_OPER_DELETE, &dg, NULL), "delete the data group");
  kel_hashset_free(&engine.dgs);
  return fflush(stdout) == 0 ? 0 : 1;
}
