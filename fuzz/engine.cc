// Sequences of engine calls of any shape, decoded from bytes. Nothing here knows what the engine does inside; what
// it promises is checked: a setting that was set is what is got; an accepted row counts once in each column that it
// has a value for, in the instances of its key alone; a clear moves samples into records, or leaves them; a removal
// takes the chosen instances alone; a walk meets each instance once.

#include <cstring>
#include <ctime>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "input.h"
#include "zor/process.h"

// Stands for the platform's clock.
void kel_time_get_timespec_realtime(struct timespec *now) { *now = {1700000000, 0}; }

namespace zor_fuzz {
namespace {

const char *const kNames[] = {"a", "b", "ab", "c, d", "", "a name longer than the report has room for in a line"};
constexpr std::size_t kColumns = 8;

using Text = std::unique_ptr<char, decltype(&std::free)>;

// What is seen of an instance.
struct State {
  std::uint32_t column = 0;                // of the template
  bool has_summary = false;                // else its samples are not seen
  std::uint32_t counted = 0, waiting = 0;  // samples, in the statistics and in records not collected
  bool is_held = false;                    // there are such records
  bool operator==(const State &) const = default;
};
using States = std::map<std::pair<std::string, std::string>, State>;  // by column and key

class Session {
 public:
  explicit Session(Input &in) : in_(in) { kel_ext_hash_name_init(&engine_.dgs); }

  ~Session() {
    for (const char *name : kNames) zor_process_engine_set_dg(&engine_, ZOR_PROCESS_OPER_DELETE, &name, nullptr);
    kel_hashset_free(&engine_.dgs);
  }

  void Step() {
    const char *dg = in_.OneIn(32) ? nullptr : kNames[in_.Below(3)];
    const std::uint32_t step = in_.Below(12);
    if (step < 3) return Configure(dg);
    if (step == 3) return SendTemplate(dg);
    if (step < 8) return SendRow(dg);
    if (step == 8) return Remove(dg);
    if (step == 9) return Walk(dg);
    const auto mask = static_cast<std::uint16_t>(in_.OneIn(8) ? in_.Take<std::uint16_t>() : in_.Below(16));
    const States before = StatesOf(dg);
    step == 10 ? Send(dg, in_.OneIn(8) ? in_.Below(8) : 2)
               : zor_process_engine_clear_dg_data(&engine_, dg, mask, 0);
    for (const auto &[names, state] : StatesOf(dg)) {
      const State &was = before.at(names);
      const bool is_moved = !was.is_held && state.waiting != 0;
      ZOR_REQUIRE(state.counted == (is_moved ? 0 : was.counted));
      ZOR_REQUIRE(state.waiting == (is_moved ? was.counted : was.waiting));
    }
  }

 private:
  const char *Name() { return in_.OneIn(64) ? nullptr : kNames[in_.Below(std::size(kNames))]; }
  zor_process_dg_t *FindDg(const char *name) {
    return name ? static_cast<zor_process_dg_t *>(kel_ext_hash_name_get(&engine_.dgs, name)) : nullptr;
  }
  std::uint32_t Send(const char *dg, std::uint32_t kind, void **columns = nullptr, std::int32_t count = 0) {
    const zor_process_msg_t msg = {0, kind, count, columns};
    return zor_process_engine_process_data(&engine_, dg, &msg);
  }

  void Configure(const char *dg) {
    const char *name = Name(), *instance = Name(), *group = dg;
    const std::uint32_t operation = in_.OneIn(3) ? in_.Below(6) : 0u;
    std::uint16_t flags = static_cast<std::uint16_t>(in_.Below(16)), got_flags = 0;
    std::uint32_t common[] = {in_.Below(8), in_.Below(4), in_.OneIn(8) ? in_.Value<std::uint32_t>() : in_.Below(8)},
                  got[3] = {}, own[] = {in_.Below(4), in_.Below(3), in_.Below(7)};  // id, kind, type of range
    std::uint64_t range[] = {in_.Value<std::uint64_t>(), in_.Value<std::uint64_t>()};
    zor_process_attr_t attr = {&flags, &common[0], &common[1], &common[2]},
                       get = {&got_flags, &got[0], &got[1], &got[2]};
    zor_process_object_attr_t object = {&own[0], &attr, &own[1], &own[2], in_.OneIn(4) ? nullptr : range};
    if (in_.OneIn(2)) zor_process_engine_set_poll_interval(&engine_, dg, 9 + in_.Below(100));
    if (in_.OneIn(2) && zor_process_engine_set_dg(&engine_, operation, &group, &attr) == 0 && operation == 0) {
      ZOR_REQUIRE(zor_process_engine_set_dg(&engine_, ZOR_PROCESS_OPER_GET, &group, &get) == 0);
      ZOR_REQUIRE(got_flags == flags && std::equal(got, got + 3, common));
    }
    zor_process_engine_set_object(&engine_, operation, dg, &name, in_.OneIn(8) ? nullptr : &object);
    if (in_.OneIn(4)) zor_process_engine_set_object_instance(&engine_, operation, dg, name, &instance);
  }

  // The samples in a text of records, which begins with the summary where there is one.
  static std::uint32_t SamplesOf(const char *records, const std::string &head) {
    const bool has_summary = records && std::strncmp(records, head.c_str(), head.size()) == 0;
    return has_summary ? static_cast<std::uint32_t>(std::strtoul(records + head.size(), nullptr, 10)) : 0;
  }

  States StatesOf(const char *dg_name) {
    States states;
    const zor_process_dg_t *dg = FindDg(dg_name);
    kel_hashset_t *columns = dg ? dg->oper_entries : nullptr;
    for (void *c = columns ? kel_hashset_first(columns) : nullptr; c; c = kel_hashset_next(columns, c)) {
      auto &column = *static_cast<zor_process_object_oper_entry_t *>(c);
      for (void *e = kel_hashset_first(&column.instances); e; e = kel_hashset_next(&column.instances, e)) {
        const std::string key = static_cast<kel_hashset_record_t *>(e)->name;
        const std::string head = std::string(dg_name) + "-summary: 1700000000, " + column.name + ", " + key + ", ";
        const std::uint32_t type = column.data_type - 1;
        const Text text(g_zor_poi_entry_get_data_funcs[type](4, dg_name, column.name, 1, nullptr, e), std::free);
        const char *held = g_zor_poi_entry_get_clear_buffer_funcs[type](e);
        const State state = {column.column, text != nullptr, SamplesOf(text.get(), head), SamplesOf(held, head),
                             held != nullptr};
        ZOR_REQUIRE(states.emplace(std::pair(column.name, key), state).second);
      }
    }
    return states;
  }

  void SendTemplate(const char *dg) {
    zor_process_column_t columns[kColumns] = {};
    void *pointers[kColumns] = {};
    const std::uint32_t count = in_.Below(kColumns);
    for (std::uint32_t i = 0; i < count; ++i) {
      const std::uint32_t shape = in_.Take<std::uint16_t>();
      const bool key = shape % 4 == 0;  // mostly what a collector sends: numbers and a key
      columns[i] = {Name(), key ? 2 : shape / 64 % 2, 0, shape / 128 % 2 == 0 ? 8 : shape / 256 % 16,
                    key ? 1u : 0u};
      if (shape / 4 % 16 == 0) columns[i].type = shape / 64 % 4;
      pointers[i] = shape / 4096 == 15 ? nullptr : &columns[i];
    }
    // Null pointers follow the columns, so that the count may lie; or there is no array.
    const std::uint32_t told = in_.OneIn(8) ? in_.Below(kColumns) : count;
    Send(dg, ZOR_PROCESS_MSG_TEMPLATE, in_.OneIn(16) ? nullptr : pointers, static_cast<std::int32_t>(told));
  }

  void SendRow(const char *dg_name) {
    const char *key = nullptr;
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
    const bool is_taken = Send(dg_name, ZOR_PROCESS_MSG_ROW, pointers) == 0;
    for (const auto &[names, state] : StatesOf(dg_name)) {
      const bool is_of_key = key && names.second == key, is_new = !before.count(names);
      const std::uint32_t more = state.counted - before[names].counted;
      const bool counts = is_of_key && state.has_summary && given[state.column];
      ZOR_REQUIRE(more <= counts && (is_of_key || !is_new));
      ZOR_REQUIRE(!counts || !is_taken || more + is_new >= 1);  // the first value of a counter only primes it
    }
  }

  // The chosen ones are gone unless they hold records; the others are as they were.
  void Remove(const char *dg) {
    std::uint32_t chosen = in_.Take<std::uint16_t>();
    const auto is_chosen = [](const zor_process_data_cursor_t *instance, void *lengths) -> int {
      const char *name = static_cast<kel_hashset_record_t *>(instance->entry)->name;
      return *static_cast<std::uint32_t *>(lengths) >> std::strlen(name) % 16 & 1;
    };
    States expected = StatesOf(dg);
    std::erase_if(expected, [&](const auto &item) {
      return chosen >> item.first.second.size() % 16 & 1 && !item.second.is_held;
    });
    const bool has_group = FindDg(dg) != nullptr;
    ZOR_REQUIRE((zor_process_engine_remove_instances(&engine_, dg, is_chosen, &chosen) == 0) == has_group);
    ZOR_REQUIRE(StatesOf(dg) == expected);
  }

  // Meets instances once, all of them unless the object of a column is gone. Some records are collected on the way.
  void Walk(const char *dg) {
    const std::uint32_t mode = in_.Below(16);
    States left = StatesOf(dg);
    zor_process_data_cursor_t cursor = {dg, in_.OneIn(4) ? FindDg(dg) : nullptr, nullptr, nullptr, 0};
    for (;;) {
      const Text text(zor_process_engine_get_next_object_instance_data(&engine_, &cursor, mode), std::free);
      if (!cursor.entry) break;
      const std::string key = static_cast<kel_hashset_record_t *>(cursor.entry)->name;
      ZOR_REQUIRE(left.erase({cursor.oper_entry->name, key}) == 1);
      if (in_.OneIn(2)) continue;
      std::free(zor_process_engine_get_clear_buffer(&cursor));
      zor_process_engine_set_clear_buffer(&cursor, nullptr);
    }
    ZOR_REQUIRE(left.empty() || HasLostAnObject(*FindDg(dg)));
  }

  static bool HasLostAnObject(zor_process_dg_t &dg) {
    for (void *c = kel_hashset_first(dg.oper_entries); c; c = kel_hashset_next(dg.oper_entries, c)) {
      if (!kel_hashset_get(&dg.objects, c)) return true;
    }
    return false;
  }

  Input &in_;
  zor_process_engine_t engine_ = {};
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
