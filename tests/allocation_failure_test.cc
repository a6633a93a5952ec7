// Without memory: scenarios that touch everything are run with their first allocation failing, then with their
// second, and so on until they need no more; alone, and with every later one failing too. Each step holds what came
// of it against what it may come to; each run frees all that it allocated, and the next one, with memory, is as if
// nothing had been.

#include <algorithm>

#include "engine_fixture.h"
#include "failing_heap.h"

namespace {

template <class Scenario>
void ForEachFailure(Scenario scenario) {
  const auto run = [&](long failing, bool from_there_on) {
    const long alive = heap.alive;
    heap = {failing, from_there_on, false, 0, alive};
    auto outcome = scenario();
    EXPECT_EQ(heap.alive, alive) << "leaked";
    return outcome;
  };
  const auto expected = run(0, false);
  std::printf("%ld allocations, each failing alone and with all after it\n", heap.count);
  for (const bool from_there_on : {false, true}) {
    for (long n = 1, needed = n; needed >= n; ++n) {
      run(n, from_there_on);
      needed = heap.count;
      EXPECT_EQ(run(0, false), expected) << "afterwards";
      ASSERT_FALSE(::testing::Test::HasFailure()) << "allocation " << n << (from_there_on ? " and all later" : "");
    }
  }
}

// What an instance holds. Learnt samples count too.
struct State {
  std::string column, key;
  bool baseline = false;
  std::uint64_t counted = 0;      // by the summary
  std::uint64_t distributed = 0;  // by the distribution: the same samples
  std::int64_t total = 0;
  std::string records = "";  // its clear buffer
  bool operator==(const State &) const = default;
};

template <class V>
State StateOf(const zor_process_object_oper_entry_t &column, const void *record) {
  const auto &entry = *static_cast<const typename Api<V>::Entry *>(record);
  const auto *analyzer = entry.analyzer;
  const auto &summary = analyzer ? analyzer->summary : *entry.summary;
  State state = {column.name, entry.name, analyzer != nullptr, summary.u32_no_of_samples};
  state.total = static_cast<std::int64_t>(summary.Vtotal);
  if (entry.clear_buffer) state.records = WithoutTime(entry.clear_buffer);
  std::erase(state.records, '\r');
  if (!analyzer || analyzer->stage == STATS_ANALYZER_ANALYZING) {
    const auto &range = analyzer ? analyzer->range_counters : *entry.range_counters;
    state.distributed = range.u16_min_exception_counter + range.u16_max_exception_counter;
    for (unsigned b = 0; b < range.Nsc; ++b) state.distributed += range.pu16_counters[b];
    EXPECT_EQ(state.distributed, range.u16_no_of_samples);
  }
  if (!analyzer) return state;
  if (analyzer->stage == STATS_ANALYZER_ANALYZING) {
    for (const auto *list : {&analyzer->dynamic_counters.min_list, &analyzer->dynamic_counters.max_list}) {
      for (const auto *node = list->head; node; node = node->next) state.distributed += node->Count;
      state.distributed += list->exceptions;
    }
  }
  state.counted += analyzer->learner.got;
  state.distributed += analyzer->learner.got;
  return state;
}

constexpr std::uint32_t kClearInterval = 4;
constexpr std::uint64_t kLearnt = 3;  // samples from which a baseline learns

constexpr struct {
  const char *name;
  std::uint32_t type_code;
  std::uint16_t flags;
} kObjects[] = {{"i32", 1, 7}, {"u32", 2, 7}, {"i64", 3, 7}, {"u64", 4, 7}, {"b32", 1, 8}, {"b64", 4, 8}};

}  // namespace

class AllocationFailureTest : public EngineTest {
 protected:
  std::vector<State> States() {
    std::vector<State> states;
    const auto *dg = static_cast<zor_process_dg_t *>(kel_ext_hash_name_get(&engine.dgs, "ifstats"));
    if (!dg || !dg->oper_entries) return states;
    for (void *c = kel_hashset_first(dg->oper_entries); c; c = kel_hashset_next(dg->oper_entries, c)) {
      auto &column = *static_cast<zor_process_object_oper_entry_t *>(c);
      constexpr decltype(&StateOf<std::int32_t>) kStateOf[] = {StateOf<std::int32_t>, StateOf<std::uint32_t>,
                                                               StateOf<std::int64_t>, StateOf<std::uint64_t>};
      for (void *e = kel_hashset_first(&column.instances); e; e = kel_hashset_next(&column.instances, e)) {
        states.push_back(kStateOf[column.data_type - 1](column, e));
        EXPECT_EQ(states.back().counted, states.back().distributed) << column.name << " " << states.back().key;
      }
    }
    return states;
  }

  // A configuration step, tried once more when there was no memory. False when there still is none.
  template <class Step>
  bool Configured(Step step) {
    std::uint32_t code = Armed(step);
    if (code == ZOR_PROCESS_ERROR_NO_MEMORY) code = Armed(step);
    EXPECT_EQ(code, code == 0 || !heap.from_there_on ? 0u : 2u);
    return code == 0;
  }

  bool Configure() {
    const auto set_object = [&](const auto &object) {
      std::uint16_t flags = object.flags;
      std::uint32_t id = 0, buckets = 10, polls = 1, every = kLearnt, range_type = flags == 7 ? 4 : 0;
      std::uint64_t range[2] = {0, 99}, kept[2] = {7, 7};
      zor_process_attr_t common = {&flags, &buckets, &polls, &every};
      zor_process_object_attr_t attr = {&id, &common, nullptr, &range_type, range};
      const char *name = object.name;
      const std::uint32_t code = zor_process_engine_set_object(&engine, 0, "ifstats", &name, &attr);
      attr.range = kept;  // the settings are there, but for a range that could not be kept
      if (zor_process_engine_set_object(&engine, ZOR_PROCESS_OPER_GET, "ifstats", &name, &attr) == 0) {
        EXPECT_EQ(std::tuple(flags, id != 0, every), std::tuple(object.flags, true, kLearnt));
        EXPECT_EQ(kept[1], code != 0 || range_type == 0 ? 7u : 99u);
      }
      return code;
    };
    const auto set_dg = [&] {
      std::uint32_t polls = 1, every = kClearInterval;
      zor_process_attr_t attr = {nullptr, nullptr, &polls, &every};
      return SetDg(ZOR_PROCESS_OPER_SET, "ifstats", &attr);
    };
    if (!Configured(set_dg)) return false;
    zor_process_engine_set_poll_interval(&engine, "ifstats", 10);
    std::vector<Column> columns = {{"key", 0}};
    for (const auto &object : kObjects) {
      if (!Configured([&] { return set_object(object); })) return false;
      columns.push_back({object.name, object.type_code});
    }
    if (!Configured([&] { return set_object(kObjects[0]); })) return false;  // its range again
    if (!Configured([&] { return MakeObject("unused", 0); })) return false;  // makes their set grow
    for (const char *watched : {"k0", "k0", "other"}) {
      if (!Configured([&] { return AddInstance("u64", watched); })) return false;
    }
    return Configured([&] {
      EXPECT_EQ(SetDg(ZOR_PROCESS_OPER_CLEAR, "ifstats"), 0u);  // a template is taken once
      return Template(columns);
    });
  }

  // A row counts in its columns from the first one on, in all of them when it succeeds, and changes nothing else.
  void CheckedRow(const std::string &key, std::uint64_t value, std::size_t columns = std::size(kObjects)) {
    std::vector<std::optional<Value>> values(std::size(kObjects));
    for (std::size_t i = 0; i < columns; ++i) {
      values[i] = kObjects[i].type_code >= 3 ? Value(value) : Value(static_cast<std::uint32_t>(value));
    }
    auto before = States();
    const std::uint32_t code = Armed([&] { return Row(key.c_str(), values); });
    auto after = States();
    bool stopped = false;
    for (std::size_t i = 0; i < columns; ++i) {
      const std::string column = kObjects[i].name;
      if (column == "u64" && key != "k0") continue;  // not watched
      const State was = Extract(before, column, key), is = Extract(after, column, key);
      const std::uint64_t counted = is.counted - was.counted;
      EXPECT_LE(counted, stopped ? 0 : 1) << column;
      const bool learns = is.baseline && is.counted <= kLearnt;
      EXPECT_EQ(is.total - was.total, learns ? 0 : static_cast<std::int64_t>(counted * value));
      EXPECT_EQ(is.records, was.records.empty() && is.baseline ? is.records : was.records);
      stopped = stopped || counted == 0;
    }
    EXPECT_EQ(after, before);
    EXPECT_THAT(code, ::testing::AnyOf(0, ZOR_PROCESS_ERROR_NO_MEMORY, ZOR_PROCESS_ERROR_IN_DATA));
    if (code != ZOR_PROCESS_ERROR_IN_DATA) {  // a refused value may have been counted: a record was not
      EXPECT_EQ(stopped, code != 0);
    }
    EXPECT_EQ(Armed([&] { return Clear(0); }), 0u);
  }

  // Takes the state of an instance out of a list; an empty one when it is not there.
  static State Extract(std::vector<State> &states, const std::string &column, const std::string &key) {
    const auto is_it = [&](const State &s) { return s.column == column && s.key == key; };
    const auto at = std::find_if(states.begin(), states.end(), is_it);
    const State state = at == states.end() ? State{column, key} : *at;
    std::erase_if(states, is_it);
    return state;
  }

  std::vector<std::string> Walk(std::uint32_t mode) {
    std::vector<std::string> texts;
    zor_process_data_cursor_t cursor = Cursor();
    for (;;) {
      std::string text = WithoutTime(Next(cursor, mode));
      if (!cursor.entry) return texts;
      texts.push_back(std::move(text));
    }
  }

  // A walk comes to every instance, and renders it whole or not at all.
  void CheckedWalk() {
    constexpr std::uint32_t kMode = ZOR_PROCESS_OUTPUT_SCHEMA_DEF | ZOR_PROCESS_OUTPUT_RECORD;
    const auto expected = Walk(kMode), texts = Armed([&] { return Walk(kMode); });
    ASSERT_EQ(texts.size(), expected.size());
    for (std::size_t i = 0; i < texts.size(); ++i) EXPECT_THAT(texts[i], ::testing::AnyOf(expected[i], "(null)"));
    Printed([&] { Armed([&] { return Walk(ZOR_PROCESS_OUTPUT_CONSOLE); }); });
  }

  // A clear leaves each instance with its records and nothing counted, or as it was: the first ones, and all of
  // them when it succeeds.
  template <class Call>
  void CheckedClear(Call call) {
    const auto before = States();
    const auto records = Walk(ZOR_PROCESS_OUTPUT_RECORD);
    const std::uint32_t code = Armed(call);
    const auto after = States();
    ASSERT_EQ(after.size(), before.size());
    bool stopped = false;
    for (std::size_t i = 0; i < after.size(); ++i) {
      State expected = before[i];
      stopped = stopped || (!expected.baseline && after[i].records.empty());
      if (!expected.baseline && !stopped) expected = {expected.column, expected.key, false, 0, 0, 0, records[i]};
      EXPECT_EQ(after[i], expected);
    }
    EXPECT_EQ(code, stopped ? 2u : 0u);
    EXPECT_EQ(Armed([&] { return Clear(0); }), 0u);
  }

  // Items that there is no memory for are left out; those that arrive are whole and in order.
  void CheckedReport() {
    const auto expected = Report(7);
    zor_process_print_handle_t handle = {Armed([] { return zor_datalist_create(); }), 0, {}, nullptr, 0};
    const zor_process_data_cursor_t dg = Cursor();
    Armed([&] {
      zor_process_engine_print_object_instance_data_with_handle(&engine, &dg, nullptr, nullptr, nullptr, 7,
                                                                &handle);
    });
    pvg_prt_handle = nullptr;
    auto next = expected.begin();
    zor_datalist_item_t item;
    for (std::uint32_t i = 0; zor_datalist_get(handle.datalist, i, &item) == 0; ++i) {
      EXPECT_LE(std::stoi(item.name + 3), handle.buf_count);
      next = std::find(next, expected.end(), item.text);
      ASSERT_NE(next++, expected.end()) << item.text;
    }
    EXPECT_LE(handle.buf_count, static_cast<int>(expected.size()));
    zor_datalist_free(handle.datalist);
  }

  // Returns all records.
  std::string Poll() {
    std::string records;
    for (std::uint64_t poll = 1; poll <= 7; ++poll) {
      // The baselines learn from three polls; from the sixth on samples lie above what they learnt.
      for (std::uint64_t k = 0; k < 2; ++k) {
        CheckedRow("k" + std::to_string(k), poll <= 5 ? 10 * k + poll : 1000 * poll + k);
      }
      for (std::uint64_t k = 2; poll == 2 && k < 7; ++k) CheckedRow("k" + std::to_string(k), k, 1);
      if (poll == kClearInterval) {
        CheckedClear([&] { return EndOfPoll(); });
      } else {
        EXPECT_EQ(Armed([&] { return EndOfPoll(); }), 0u);
      }
      if (poll != kClearInterval && poll != 6) continue;  // 6 ends a period of the baselines
      if (poll == 6) {
        CheckedWalk();
        CheckedReport();
      }
      records += WithoutTime(Armed([&] { return Collect(); }));
      for (const State &state : States()) EXPECT_EQ(state.records, "");
    }
    CheckedClear([&] { return Clear(7); });
    return records + WithoutTime(Collect());
  }
};

TEST_F(AllocationFailureTest, Engine) {
  ForEachFailure([&] {
    const std::string records = Configure() ? Poll() : "";
    const long needed = heap.count;
    Armed([&] { return SetDg(ZOR_PROCESS_OPER_DELETE, "ifstats"); });
    EXPECT_EQ(heap.count, needed) << "deletion needs memory";
    kel_hashset_free(&engine.dgs);
    return records;
  });
}

// An instance takes memory for what it holds, and little more.
TEST_F(AllocationFailureTest, BytesOfAnInstance) {
  using A = Api<std::uint64_t>;
  const std::size_t room = sizeof(A::Entry) + sizeof "key" + 24;
  const std::pair<std::uint32_t, std::size_t> cases[] = {
      {7, room + sizeof(A::Summary) + sizeof(A::RangeCounters) + 20}, {8, room + sizeof(A::Analyzer) + 32}};
  for (const auto &[flags, most] : cases) {
    heap = {0, false, false, 0, heap.alive};
    void *entry = Armed([&, kind = flags] {
      return zor_process_object_instance_entry_create_uint64("key", 0, kind, nullptr, 10, 2, nullptr);
    });
    EXPECT_LE(heap.bytes, most) << flags;
    zor_process_object_instance_entry_destroy_uint64(entry);
  }
}
