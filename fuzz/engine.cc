// Sequences of engine calls of any shape, decoded from bytes. Nothing here knows what the engine does inside; what
// it promises is checked: a setting that was set is what is got; a row counts in the instances of its key alone,
// once in each column that it has a value for; a clear moves what is counted into records, or leaves it; a walk
// meets each instance once; records have their form.

#include <ctime>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "input.h"
#include "zor/datalist.h"
#include "zor/process.h"

// Stands for the platform's clock.
void kel_time_get_timespec_realtime(struct timespec *now) { *now = {1700000000, 0}; }

namespace zor_fuzz {
namespace {

const char *const kNames[] = {"a", "b", "ab", "c, d", "", "a name longer than the report has room for in a line"};
constexpr std::size_t kColumns = 8;
constexpr std::uint32_t kMostRows = 70000;  // in all: enough for every 16-bit count to reach its end

using Text = std::unique_ptr<char, decltype(&std::free)>;
using ObjectColumn = zor_process_object_oper_entry_t;
using EntryHead = kel_hashset_record_t;

// The number of samples in the summaries of a text, which is lines of the promised form and nothing else.
std::uint32_t CheckRecords(std::string text, const std::string &dg, const std::string &names) {
  std::uint32_t counted = 0;
  for (std::size_t end; !text.empty(); text.erase(0, end + 2)) {
    end = text.find("\r\n");
    ZOR_REQUIRE(end != std::string::npos);
    if (text.rfind("Schema-def " + dg + "-", 0) == 0 || text.rfind("       Epochtime Object ", 0) == 0) continue;
    const bool summary = text.rfind(dg + "-summary: ", 0) == 0;
    ZOR_REQUIRE(summary || text.rfind(dg + "-percentile: ", 0) == 0 || text.rfind(dg + "-baseline: ", 0) == 0);
    const std::string head = ": 1700000000, " + names + ", ";
    const std::size_t values = text.find(": ", dg.size()) + head.size();
    ZOR_REQUIRE(text.compare(values - head.size(), head.size(), head) == 0);
    ZOR_REQUIRE(text.find_first_not_of("0123456789-., ", values) == end);
    const std::uint64_t samples = std::strtoul(&text[values], nullptr, 10);
    ZOR_REQUIRE(std::count(&text[values], &text[end], ',') == (samples == 0 ? 0 : summary ? 3 : 9));
    if (summary) counted += static_cast<std::uint32_t>(samples);
  }
  return counted;
}

// What an instance holds.
struct State {
  std::uint32_t column;             // of the template
  bool has_summary;                 // else nothing is seen of what it counts
  std::uint32_t counted, recorded;  // by the summary, and by that in the clear buffer
  std::string records;
  bool operator==(const State &) const = default;
};
using States = std::map<std::pair<std::string, std::string>, State>;  // by column and key

// The settings of a data group or an object.
struct Settings {
  explicit Settings(Input &in)
      : flags(in.OneIn(8) ? in.Take<std::uint16_t>() : static_cast<std::uint16_t>(in.Below(16))) {
    for (std::uint32_t &value : values) value = in.OneIn(8) ? in.Value<std::uint32_t>() : in.Below(8);
  }
  zor_process_attr_t attr() { return {&flags, &values[0], &values[1], &values[2]}; }
  bool operator==(const Settings &) const = default;

  std::uint16_t flags;
  std::uint32_t values[3];  // buckets, type and length of the clear interval
};

class Session {
 public:
  explicit Session(Input &in) : in_(in) { kel_ext_hash_name_init(&engine_.dgs); }

  ~Session() {
    for (const char *name : kNames) {
      Walk(name);
      zor_process_engine_set_dg(&engine_, ZOR_PROCESS_OPER_DELETE, &name, nullptr);
    }
    kel_hashset_free(&engine_.dgs);
  }

  void Step() {
    const std::uint32_t step = in_.Below(16);
    if (step == 0) return SetDg();
    if (step < 3) return SetObject();
    if (step == 3) return SetInstance();
    if (step == 4) return zor_process_engine_set_poll_interval(&engine_, DgName(), 9 + in_.Below(100));
    if (step == 5) return SendTemplate();
    if (step < 9) return SendRows();
    if (step < 11) return EndPolls();
    if (step == 11) return Clear();
    if (step < 14) return Walk(DgName());
    if (step == 14) return Remove();
    Report();
  }

 private:
  const char *DgName() { return in_.OneIn(32) ? nullptr : kNames[in_.Below(3)]; }
  const char *Name() { return in_.OneIn(64) ? nullptr : kNames[in_.Below(std::size(kNames))]; }
  zor_process_dg_t *FindDg(const char *name) {
    return name ? static_cast<zor_process_dg_t *>(kel_ext_hash_name_get(&engine_.dgs, name)) : nullptr;
  }

  void SetDg() {
    const std::uint32_t operation = in_.Below(6);
    const char *name = DgName();
    Settings settings(in_), got(in_);
    zor_process_attr_t attr = settings.attr(), got_attr = got.attr();
    if (zor_process_engine_set_dg(&engine_, operation, &name, in_.OneIn(4) ? nullptr : &attr) != 0) return;
    if (operation != ZOR_PROCESS_OPER_SET) return;
    ZOR_REQUIRE(zor_process_engine_set_dg(&engine_, ZOR_PROCESS_OPER_GET, &name, &got_attr) == 0);
    ZOR_REQUIRE(got == settings);
  }

  void SetObject() {
    const std::uint32_t operation = in_.OneIn(3) ? in_.Below(6) : 0u, absent = in_.OneIn(2) ? 0 : in_.Below(6);
    const char *dg = DgName(), *name = Name();
    Settings settings(in_), got(in_);
    std::uint32_t values[] = {in_.Below(4), in_.Below(3), in_.Below(7)}, kind = 7;  // id, kind, type of range
    std::uint64_t range[] = {in_.Value<std::uint64_t>(), in_.Value<std::uint64_t>()};
    zor_process_attr_t common = settings.attr(), got_common = got.attr();
    zor_process_object_attr_t attr = {&values[0], &common, &values[1], &values[2], absent == 1 ? nullptr : range};
    if (absent == 2) attr = {nullptr, nullptr, &values[1], nullptr, nullptr};
    zor_process_object_attr_t *given = absent == 3 ? nullptr : &attr,
                              get = {nullptr, &got_common, &kind, nullptr, nullptr};
    if (zor_process_engine_set_object(&engine_, operation, dg, &name, given) != 0) return;
    if (operation != ZOR_PROCESS_OPER_SET || !given) return;
    ZOR_REQUIRE(zor_process_engine_set_object(&engine_, ZOR_PROCESS_OPER_GET, dg, &name, &get) == 0);
    ZOR_REQUIRE(kind == values[1] && (!attr.common || got == settings));
  }

  void SetInstance() {
    const std::uint32_t operation = in_.OneIn(3) ? in_.Below(6) : 0u;
    const char *dg = DgName(), *object = Name(), *name = Name();
    zor_process_engine_set_object_instance(&engine_, operation, dg, object, &name);
    zor_process_object_get_id_byname(&engine_, dg, object);
    zor_process_engine_get_object_name_byid(&engine_, dg, in_.Below(4));
  }

  // Calls function(column, entry) for each instance of a data group.
  template <class Function>
  void ForEachInstance(const char *dg_name, Function function) {
    const zor_process_dg_t *dg = FindDg(dg_name);
    if (!dg || !dg->oper_entries) return;
    for (void *c = kel_hashset_first(dg->oper_entries); c; c = kel_hashset_next(dg->oper_entries, c)) {
      auto &column = *static_cast<ObjectColumn *>(c);
      for (void *e = kel_hashset_first(&column.instances); e; e = kel_hashset_next(&column.instances, e)) {
        function(column, *static_cast<EntryHead *>(e));
      }
    }
  }

  States StatesOf(const char *dg) {
    States states;
    ForEachInstance(dg, [&](ObjectColumn &column, EntryHead &entry) {
      const std::uint32_t type = column.data_type - 1;
      const Text text(g_zor_poi_entry_get_data_funcs[type](4, dg, column.name, 1, nullptr, &entry), std::free);
      const char *records = g_zor_poi_entry_get_clear_buffer_funcs[type](&entry);
      const std::string names = std::string(column.name) + ", " + entry.name;
      const State state = {column.column, text != nullptr, CheckRecords(text ? text.get() : "", dg, names),
                           CheckRecords(records ? records : "", dg, names), records ? records : "none"};
      ZOR_REQUIRE(states.emplace(std::pair(column.name, entry.name), state).second);
    });
    return states;
  }

  std::uint32_t Send(const char *dg, std::uint32_t kind, void **columns = nullptr, std::int32_t count = 0) {
    const zor_process_msg_t msg = {0, kind, count, columns};
    return zor_process_engine_process_data(&engine_, dg, &msg);
  }

  void SendTemplate() {
    zor_process_column_t columns[kColumns] = {};
    void *pointers[kColumns] = {};
    const std::uint32_t count = in_.Below(kColumns);
    for (std::uint32_t i = 0; i < count; ++i) {
      const std::uint32_t shape = in_.Take<std::uint16_t>();
      const bool key = shape % 4 == 0;  // mostly what a collector sends: numbers and a key
      columns[i] = {Name(),
                    shape / 4 % 16 == 0 ? shape / 64 % 4
                    : key               ? 2
                                        : shape / 64 % 2,
                    0, shape / 128 % 2 == 0 ? 8 : shape / 256 % 16, key ? 1 : shape / 128 & 2};
      pointers[i] = shape / 4096 == 15 ? nullptr : &columns[i];
    }
    // Null pointers follow the columns, so that the count may lie; or there is no array.
    const std::uint32_t told = in_.OneIn(8) ? in_.Below(kColumns) : count;
    Send(DgName(), ZOR_PROCESS_MSG_TEMPLATE, in_.OneIn(16) ? nullptr : pointers, static_cast<std::int32_t>(told));
  }

  // Sends a row, once or many times.
  void SendRows() {
    const char *dg_name = DgName(), *key = nullptr;
    const zor_process_dg_t *dg = FindDg(dg_name);
    std::uint8_t values[kColumns][9];  // read unaligned
    zor_process_cell_t cells[kColumns];
    void *pointers[kColumns];
    bool given[kColumns];
    for (std::size_t i = 0; i < kColumns; ++i) {
      const std::uint32_t shape = in_.Take<std::uint8_t>();
      const auto value = in_.Value<std::uint64_t>();
      std::memcpy(values[i] + 1, &value, sizeof value);
      cells[i] = {0, shape % 16 == 14 ? 0u : 8u, shape / 16 == 15 ? nullptr : values[i] + 1};
      if (dg && dg->key_column == static_cast<std::int32_t>(i)) {
        cells[i] = {shape % 16 == 15 ? 0u : 2u, 0, key = Name()};
      }
      pointers[i] = shape % 32 == 31 ? nullptr : &cells[i];
      given[i] = pointers[i] && cells[i].value && cells[i].length != 0;
    }
    States before = StatesOf(dg_name);
    std::uint32_t taken = 0, failed = 0, repeat = in_.OneIn(8) ? 1 + in_.Take<std::uint8_t>() : 1;
    if (repeat == 256 && in_.OneIn(8)) repeat = kMostRows;
    for (; repeat > 0 && failed == 0 && rows_ < kMostRows; --repeat, ++rows_) {
      (Send(dg_name, ZOR_PROCESS_MSG_ROW, pointers) == 0 ? taken : failed) += 1;
    }
    for (const auto &[names, state] : StatesOf(dg_name)) {
      const bool of_key = key && names.second == key, is_new = !before.count(names);
      const std::uint32_t more = state.counted - before[names].counted;
      if (of_key && state.has_summary && given[state.column]) {
        ZOR_REQUIRE(more + is_new >= taken &&
                    more <= taken + failed);  // the first value of a counter only primes it
      } else {
        ZOR_REQUIRE(more == 0 && (of_key || !is_new));
      }
      before.erase(names);
    }
    ZOR_REQUIRE(before.empty());
  }

  void EndPolls() {
    const char *dg = DgName();
    const std::uint32_t kind = in_.OneIn(32) ? std::max(in_.Below(8), 2u) : 2, pick = in_.Below(64);
    std::uint32_t repeat = pick == 0 ? in_.Below(200) : pick == 1 && in_.OneIn(64) ? kMostRows : 0;
    for (; repeat > 0 && Send(dg, kind) == 0 && rows_ < kMostRows; --repeat) ++rows_;
    CheckClear(dg, [&] { Send(dg, kind); });
  }

  void Clear() {
    const char *dg = DgName();
    const auto mask = static_cast<std::uint16_t>(in_.OneIn(8) ? in_.Take<std::uint16_t>() : in_.Below(16));
    CheckClear(dg, [&] { zor_process_engine_clear_dg_data(&engine_, dg, mask, 0); });
  }

  // Every sample is still counted, or stands in new records; old ones are kept.
  template <class Call>
  void CheckClear(const char *dg, Call call) {
    const States before = StatesOf(dg);
    call();
    const States after = StatesOf(dg);
    ZOR_REQUIRE(after.size() == before.size());
    for (const auto &[names, state] : after) {
      const State &was = before.at(names);
      const std::uint32_t recorded = was.records == "none" ? state.recorded : 0;
      ZOR_REQUIRE(state.counted == (recorded ? 0 : was.counted) && (recorded == 0 || recorded == was.counted));
      ZOR_REQUIRE(was.records == "none" || state.records == was.records);
    }
  }

  // The chosen ones are gone unless they hold records; the others are as they were.
  void Remove() {
    const char *dg = DgName();
    std::uint32_t chosen = in_.Take<std::uint16_t>();
    const auto is_chosen = [](const zor_process_data_cursor_t *instance, void *lengths) -> int {
      return *static_cast<std::uint32_t *>(lengths) >>
                 std::strlen(static_cast<EntryHead *>(instance->entry)->name) % 16 &
             1;
    };
    States expected = StatesOf(dg);
    std::erase_if(expected, [&](const auto &item) {
      return chosen >> item.first.second.size() % 16 & 1 && item.second.records == "none";
    });
    const bool has_group = FindDg(dg) != nullptr;
    ZOR_REQUIRE((zor_process_engine_remove_instances(&engine_, dg, is_chosen, &chosen) == 0) == has_group);
    ZOR_REQUIRE(StatesOf(dg) == expected);
  }

  // A walk meets all instances in order, up to a column whose object is gone. Some records are collected on the
  // way.
  void Walk(const char *dg) {
    const std::uint32_t mode = in_.Below(16);
    std::vector<void *> met, expected;
    zor_process_data_cursor_t cursor = {dg, in_.OneIn(4) ? FindDg(dg) : nullptr, nullptr, nullptr, 0};
    for (;;) {
      const Text text(zor_process_engine_get_next_object_instance_data(&engine_, &cursor, mode), std::free);
      if (!cursor.entry) break;
      met.push_back(cursor.entry);
      const std::string instance = static_cast<EntryHead *>(cursor.entry)->name;
      CheckRecords(text ? text.get() : "", dg, cursor.oper_entry->name + (", " + instance));
      if (in_.OneIn(2)) continue;
      std::free(zor_process_engine_get_clear_buffer(&cursor));
      zor_process_engine_set_clear_buffer(&cursor, nullptr);
    }
    bool ends = false;
    ForEachInstance(dg, [&](ObjectColumn &column, EntryHead &entry) {
      const char *name = column.name;
      zor_process_object_attr_t attr = {};
      ends = ends || zor_process_engine_set_object(&engine_, ZOR_PROCESS_OPER_GET, dg, &name, &attr) != 0;
      if (!ends) expected.push_back(&entry);
    });
    ZOR_REQUIRE(met == expected);
  }

  void Report() {
    const char *object = in_.OneIn(2) ? Name() : nullptr, *instance = in_.OneIn(2) ? Name() : nullptr;
    const std::uint32_t percentile = in_.Below(120), flags = in_.Below(16);
    const zor_process_data_cursor_t dg = {DgName(), nullptr, nullptr, nullptr, 0};
    zor_process_print_handle_t handle = {zor_datalist_create(), 0, {}, nullptr, 0};
    zor_process_engine_print_object_instance_data_with_handle(&engine_, &dg, object, instance, &percentile, flags,
                                                              &handle);
    zor_process_engine_print_object_instance_data(&engine_, &dg, object, instance, nullptr, flags);
    ZOR_REQUIRE(zor_datalist_count(handle.datalist) == static_cast<std::uint32_t>(handle.buf_count));
    zor_datalist_free(handle.datalist);
  }

  Input &in_;
  zor_process_engine_t engine_ = {};
  std::uint32_t rows_ = 0;
};

}  // namespace
}  // namespace zor_fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  zor_fuzz::SilenceStandardOutput();
  zor_fuzz::Input in(data, size);
  zor_fuzz::Session session(in);
  while (!in.empty()) session.Step();
  return 0;
}
