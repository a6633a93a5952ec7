// Polls at full speed for a given time, as a collector that runs for months would: a table of many instances and
// ten columns of all types and analyses, cleared and collected, reset, reconfigured and deleted over and over.
// Every sample must come back in a record, every code must be the expected one, and after each deletion the heap
// must hold what it held after the first.
//
//   soak [seconds [instances]]
#include <malloc.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "zor/datalist.h"
#include "zor/process.h"

namespace {

constexpr const char *kDg = "soak";
constexpr std::uint32_t kClearPolls = 6;
constexpr int kIntervals = 4;  // between two resets

struct Counter {
  const char *name;
  std::uint32_t type;  // ZOR_PROCESS_VALUE_*
  std::uint32_t width;
  std::uint16_t flags;
  std::uint32_t value_kind;
  std::uint64_t range_high;  // 0: the type's range
};

constexpr std::uint16_t kAll =
    ZOR_PROCESS_FLAG_SUMMARY | ZOR_PROCESS_FLAG_DISTRIBUTION | ZOR_PROCESS_FLAG_PERCENTILE;

// Baselines come last: a value that one refuses ends its row.
constexpr std::array<Counter, 10> kCounters = {{
    {"i32", ZOR_PROCESS_VALUE_SIGNED, 4, kAll, 0, 999},
    {"u32", ZOR_PROCESS_VALUE_UNSIGNED, 4, ZOR_PROCESS_FLAG_SUMMARY, 0, 0},
    {"i64", ZOR_PROCESS_VALUE_SIGNED, 8, ZOR_PROCESS_FLAG_PERCENTILE, 0, 999},
    {"u64", ZOR_PROCESS_VALUE_UNSIGNED, 8, kAll, 0, 0},
    {"u32_cumulative", ZOR_PROCESS_VALUE_UNSIGNED, 4, kAll, 1, 999},
    {"u64_cumulative", ZOR_PROCESS_VALUE_UNSIGNED, 8, ZOR_PROCESS_FLAG_SUMMARY, 1, 0},
    {"i64_narrow", ZOR_PROCESS_VALUE_SIGNED, 8, kAll, 0, 9},
    {"u64_wide", ZOR_PROCESS_VALUE_UNSIGNED, 8, ZOR_PROCESS_FLAG_PERCENTILE, 0, 999999},
    {"i32_baseline", ZOR_PROCESS_VALUE_SIGNED, 4, ZOR_PROCESS_FLAG_BASELINE, 0, 0},
    {"u64_baseline", ZOR_PROCESS_VALUE_UNSIGNED, 8, ZOR_PROCESS_FLAG_BASELINE, 0, 0},
}};

[[noreturn]] void Fail(const std::string &what) {
  std::fprintf(stderr, "soak: %s\n", what.c_str());
  std::exit(1);
}

struct Totals {
  std::uintmax_t polls = 0, values = 0, refused = 0, records = 0, summarised = 0, cycles = 0;
};

class Collector {
 public:
  explicit Collector(std::uint32_t instances) : instances_(instances) {
    kel_ext_hash_name_init(&engine_.dgs);
    cells_[0] = {ZOR_PROCESS_VALUE_STRING, 0, key_};
    for (std::size_t i = 0; i < kCounters.size(); ++i)
      cells_[i + 1] = {kCounters[i].type, kCounters[i].width, &values_[i]};
    for (std::size_t i = 0; i < cells_.size(); ++i) pointers_[i] = &cells_[i];
  }
  ~Collector() { kel_hashset_free(&engine_.dgs); }
  Collector(const Collector &) = delete;
  Collector &operator=(const Collector &) = delete;

  // From a new data group to its deletion, with a reset and another configuration half-way.
  void Cycle() {
    const char *dg = kDg;
    Configure(static_cast<std::uint32_t>(50 + totals.cycles % 50));
    Run();
    Report();
    Expect(zor_process_engine_set_dg(&engine_, ZOR_PROCESS_OPER_CLEAR, &dg, nullptr), 0, "reset");
    Configure(static_cast<std::uint32_t>(1 + totals.cycles % 400));
    SelectInstances();
    Run();
    Expect(zor_process_engine_set_dg(&engine_, ZOR_PROCESS_OPER_DELETE, &dg, nullptr), 0, "delete");
    ++totals.cycles;
  }

  Totals totals;

 private:
  static void Expect(std::uint32_t code, std::uint32_t expected, const char *what) {
    if (code != expected) Fail(std::string(what) + ": " + zor_proc_get_error_string_list(code));
  }

  void Configure(std::uint32_t buckets) {
    const char *dg = kDg;
    std::uint16_t no_flags = 0;
    std::uint32_t clear_type = 1;
    std::uint32_t clear_interval = kClearPolls;
    zor_process_attr_t attr = {&no_flags, &buckets, &clear_type, &clear_interval};
    Expect(zor_process_engine_set_dg(&engine_, ZOR_PROCESS_OPER_SET, &dg, &attr), 0, "set the data group");
    zor_process_engine_set_poll_interval(&engine_, kDg, 10);
    std::vector<zor_process_column_t> columns = {{"key", ZOR_PROCESS_VALUE_STRING, 0, 0, ZOR_PROCESS_COLUMN_KEY}};
    for (const Counter &counter : kCounters) {
      const char *object = counter.name;
      if (totals.cycles % 2 == 1) {  // taken away and set anew, as by an operator
        zor_process_engine_set_object(&engine_, ZOR_PROCESS_OPER_DELETE, kDg, &object, nullptr);
        object = counter.name;
      }
      std::uint16_t flags = counter.flags;
      std::uint32_t kind = counter.value_kind;
      std::uint32_t range_type = counter.range_high ? ZOR_PROCESS_DATA_TYPE_UINT64 : 0;
      std::uint64_t range[2] = {0, counter.range_high};
      zor_process_attr_t common = {&flags, nullptr, nullptr, nullptr};
      zor_process_object_attr_t object_attr = {nullptr, &common, &kind, &range_type, range};
      Expect(zor_process_engine_set_object(&engine_, ZOR_PROCESS_OPER_SET, kDg, &object, &object_attr), 0,
             "set an object");
      columns.push_back({counter.name, counter.type, 0, counter.width, 0});
    }
    std::vector<void *> pointers;
    for (zor_process_column_t &column : columns) pointers.push_back(&column);
    const zor_process_msg_t msg = {0, ZOR_PROCESS_MSG_TEMPLATE, static_cast<std::int32_t>(pointers.size()),
                                   pointers.data()};
    Expect(zor_process_engine_process_data(&engine_, kDg, &msg), 0, "template");
    selected_ = instances_;
  }

  // One object keeps the first half of the instances alone.
  void SelectInstances() {
    selected_ = instances_ / 2;
    for (std::uint32_t row = 0; row < selected_; ++row) {
      NameRow(row);
      const char *name = key_;
      Expect(zor_process_engine_set_object_instance(&engine_, ZOR_PROCESS_OPER_SET, kDg, kCounters[0].name, &name),
             0, "set an instance");
    }
  }

  void NameRow(std::uint32_t row) { std::snprintf(key_, sizeof key_, "instance %ju/%u", totals.cycles % 100, row); }

  void Run() {
    for (int interval = 0; interval < kIntervals; ++interval) {
      for (std::uint32_t poll = 0; poll < kClearPolls; ++poll) Poll();
      const std::uint64_t summarised = totals.summarised;
      Collect();
      const std::uint64_t primed = interval == 0 ? 2 : 0;  // a cumulative counter's first value is no sample
      const std::uint64_t expected =
          (std::uint64_t{instances_} * 7 + selected_) * kClearPolls - instances_ * primed;
      if (totals.summarised - summarised != expected) {
        Fail(std::to_string(totals.summarised - summarised) + " samples came back in summaries, not " +
             std::to_string(expected));
      }
    }
  }

  void Poll() {
    const zor_process_msg_t row = {0, ZOR_PROCESS_MSG_ROW, 0, pointers_.data()};
    for (std::uint32_t i = 0; i < instances_; ++i) {
      NameRow(i);
      for (std::size_t c = 0; c < kCounters.size(); ++c) {
        values_[c] = random_() % 1000 + (kCounters[c].value_kind == 1 ? totals.polls * 1000 : 0);
      }
      const std::uint32_t code = zor_process_engine_process_data(&engine_, kDg, &row);
      if (code == ZOR_PROCESS_ERROR_IN_DATA) {
        // A baseline refused an outlier: the summaries before it are counted; go on.
        ++totals.refused;
        Expect(zor_process_engine_clear_dg_data(&engine_, kDg, 0, 0), 0, "unlatch");
      } else {
        Expect(code, 0, "row");
      }
    }
    const zor_process_msg_t end = {0, ZOR_PROCESS_MSG_END_OF_POLL, 0, nullptr};
    Expect(zor_process_engine_process_data(&engine_, kDg, &end), 0, "end of poll");
    totals.values += std::uint64_t{instances_} * kCounters.size();
    ++totals.polls;
  }

  void Collect() {
    zor_process_data_cursor_t cursor = {kDg, nullptr, nullptr, nullptr, 0};
    for (;;) {
      std::free(zor_process_engine_get_next_object_instance_data(&engine_, &cursor, 0));
      if (!cursor.entry) return;
      char *text = zor_process_engine_get_clear_buffer(&cursor);
      if (!text) continue;
      zor_process_engine_set_clear_buffer(&cursor, nullptr);
      Count(text);
      std::free(text);
    }
  }

  // A record: "<dg>-<section>: <time>, <object>, <instance>, <samples>, ...".
  void Count(const char *text) {
    for (const char *line = text; line && *line; line = std::strchr(line, '\n'), line += line ? 1 : 0) {
      ++totals.records;
      if (std::strncmp(line, "soak-summary: ", 14) != 0) continue;
      const char *field = line;
      for (int comma = 0; comma < 3 && field; ++comma) field = std::strchr(field + 1, ',');
      if (!field) Fail(std::string("a record without its fields: ") + line);
      totals.summarised += std::strtoull(field + 1, nullptr, 10);
    }
  }

  void Report() {
    zor_process_print_handle_t handle = {zor_datalist_create(), 0, "", nullptr, 0};
    const zor_process_data_cursor_t dg = {kDg, nullptr, nullptr, nullptr, 0};
    NameRow(0);
    zor_process_engine_print_object_instance_data_with_handle(&engine_, &dg, nullptr, key_, nullptr, kAll, &handle);
    if (handle.buf_count == 0) Fail("an empty report");
    zor_datalist_free(handle.datalist);
    pvg_prt_handle = nullptr;
  }

  std::uint32_t instances_;
  std::uint32_t selected_ = 0;
  zor_process_engine_t engine_ = {};
  std::array<std::uint64_t, kCounters.size()> values_ = {};
  std::array<zor_process_cell_t, kCounters.size() + 1> cells_ = {};
  std::array<void *, kCounters.size() + 1> pointers_ = {};
  char key_[48] = "";
  std::mt19937_64 random_;
};

std::size_t HeapInUse() {
  const struct mallinfo2 info = mallinfo2();
  return info.uordblks + info.hblkhd;
}

std::size_t ResidentKilobytes() {
  std::size_t size = 0;
  std::size_t resident = 0;
  if (std::FILE *statm = std::fopen("/proc/self/statm", "r")) {
    if (std::fscanf(statm, "%zu %zu", &size, &resident) != 2) resident = 0;
    std::fclose(statm);
  }
  return resident * static_cast<std::size_t>(sysconf(_SC_PAGESIZE)) / 1024;
}

}  // namespace

int main(int argc, char **argv) {
  // Freed blocks that malloc keeps at hand count as used: without them the heap is known to the byte.
  if (!std::getenv("GLIBC_TUNABLES")) {
    setenv("GLIBC_TUNABLES", "glibc.malloc.tcache_count=0", 1);
    execv("/proc/self/exe", argv);
  }
  mallopt(M_MXFAST, 0);
  const double seconds = argc > 1 ? std::atof(argv[1]) : 60;
  const int instances = argc > 2 ? std::atoi(argv[2]) : 10000;
  if (!(seconds > 0) || instances < 2) Fail("usage: soak [seconds > 0 [instances >= 2]]");
  Collector collector(static_cast<std::uint32_t>(instances));

  using Clock = std::chrono::steady_clock;
  const Clock::time_point start = Clock::now();
  const auto elapsed = [start] { return std::chrono::duration<double>(Clock::now() - start).count(); };
  static char output[BUFSIZ];  // from the start, so that the heap holds nothing of it
  std::setvbuf(stdout, output, _IOLBF, sizeof output);
  std::printf("%9s %9s %9s %13s %11s %9s %12s %12s\n", "seconds", "cycles", "polls", "values", "records", "refused",
              "heap (byte)", "RSS (kB)");
  collector.Cycle();
  const std::size_t first_heap = HeapInUse();
  for (double next_line = 0;; collector.Cycle()) {
    const double now = elapsed();
    const std::size_t heap = HeapInUse();
    const bool over = now >= seconds || heap > first_heap;
    if (now >= next_line || over) {
      const Totals &t = collector.totals;
      std::printf("%9.0f %9ju %9ju %13ju %11ju %9ju %12zu %12zu\n", now, t.cycles, t.polls, t.values, t.records,
                  t.refused, heap, ResidentKilobytes());
      next_line += seconds / 20;
    }
    if (heap > first_heap) Fail("the heap has grown since the first deletion");
    if (over) break;
  }
  std::printf("no error, no sample lost, no growth\n");
}
