// The engine from call to call: configuration, messages, the latch, clears, walks. fuzz/engine.cc sends it any
// sequence of calls, and holds it against what it promises.

#include <algorithm>

#include "engine_fixture.h"
#include "stats/bucket_model.h"

static constexpr std::uint32_t kUint64 = ZOR_PROCESS_DATA_TYPE_UINT64;
using Codes = std::vector<std::uint32_t>;  // of calls in their order

TEST_F(EngineTest, AnswersForWhatIsNotThere) {
  const char *const null = nullptr, *found = nullptr;
  const auto dg = [&](std::uint32_t operation, const char *name, bool with = true) {
    zor_process_attr_t attr = {};
    return zor_process_engine_set_dg(&engine, operation, &(found = name), with ? &attr : nullptr);
  };
  const auto object = [&](std::uint32_t operation, const char *name, bool with = true, const char *of = "ifstats") {
    zor_process_object_attr_t attr = {};
    return zor_process_engine_set_object(&engine, operation, of, &(found = name), with ? &attr : nullptr);
  };
  const auto instance = [&](std::uint32_t operation, const char *name, const char *of = "rx") {
    return zor_process_engine_set_object_instance(&engine, operation, "ifstats", of, &(found = name));
  };
  MakeDg(0);
  EXPECT_EQ((Codes{object(0, "rx"), object(0, "tx", false), instance(0, "eth0")}), (Codes{0, 0, 0}));
  EXPECT_EQ((Codes{dg(0, null), dg(0, "a", false), dg(1, null), dg(1, "none"), dg(2, null), dg(2, "none"),
                   dg(5, "none"), dg(3, "ifstats", false), dg(1, "ifstats"), dg(3, "none")}),
            (Codes{1, 1, 1, 4, 1, 4, 3, 1, 0, 4}));
  EXPECT_STREQ(found, "none");
  EXPECT_EQ((Codes{object(0, null), object(1, null), object(1, "none"), object(2, "rx"), object(3, "rx", false),
                   object(1, "rx"), object(7, "rx", true, "none"), object(3, "none")}),
            (Codes{1, 1, 5, 3, 1, 0, 4, 5}));
  EXPECT_STREQ(found, "none");
  EXPECT_EQ((Codes{instance(0, null), instance(0, "eth0"), instance(0, "eth0", "none"), instance(1, null),
                   instance(1, "none"), instance(1, "eth0", "tx"), instance(2, "eth0"), instance(4, "eth0", "tx")}),
            (Codes{1, 0, 5, 1, 6, 6, 3, 6}));
  EXPECT_STREQ(found, "eth0");  // tx never had any
  const auto walk = [&](auto next) {
    std::string names;
    for (const char *name = nullptr; next(name) == 0; name = found) names += std::string(found) + " ";
    return names + (found ? found : "end");
  };
  EXPECT_EQ(walk([&](const char *name) { return dg(4, name); }), "ifstats end");
  EXPECT_EQ(walk([&](const char *name) { return object(4, name); }), "rx tx end");
  EXPECT_EQ(walk([&](const char *name) { return instance(4, name); }), "eth0 end");

  zor_process_attr_t attr = {};
  const char *rx = "rx";
  EXPECT_EQ((Codes{zor_process_engine_set_dg(nullptr, 0, &rx, &attr),
                   zor_process_engine_set_dg(&engine, 0, nullptr, &attr),
                   zor_process_engine_set_object(nullptr, 0, "ifstats", &rx, nullptr),
                   zor_process_engine_set_object(&engine, 0, "ifstats", nullptr, nullptr),
                   zor_process_engine_set_object_instance(&engine, 0, "none", "rx", &rx),
                   zor_process_engine_set_object_instance(&engine, 0, "ifstats", "rx", nullptr),
                   zor_process_engine_clear_dg_data(&engine, "none", 7, 0), Clear(7)}),
            (Codes{1, 1, 4, 1, 4, 1, 16, 0}));
  zor_process_data_cursor_t cursor = Cursor(), other = {"none", nullptr, nullptr, nullptr, 0};
  for (zor_process_data_cursor_t *none : {&cursor, &other}) {  // nor is there anything to walk or to print
    EXPECT_EQ(Next(*none), "(null)");
    EXPECT_EQ(none->dg, nullptr);
    zor_process_engine_print_object_instance_data(&engine, none, nullptr, nullptr, nullptr, 7);
  }
}

// What fuzz/engine.cc does not see: what is set beside a setting.
TEST_F(EngineTest, KeepsSettings) {
  std::uint16_t flags = 2;
  std::uint32_t buckets = 9, type = 2, interval = 5;
  zor_process_attr_t all = {&flags, &buckets, &type, &interval},
                     without_type = {&flags, nullptr, nullptr, &interval};
  EXPECT_EQ((Codes{SetDg(0, "ifstats", &without_type), SetDg(3, "ifstats", &all)}), (Codes{0, 0}));
  EXPECT_EQ((Codes{flags, buckets, type, interval}), (Codes{2, 100, 0, 0}));
  flags = 1, type = 2, interval = 5;
  EXPECT_EQ((Codes{SetDg(0, "ifstats", &all), flags}), (Codes{0, 3}));  // added, and written back
  EXPECT_EQ((Codes{SetDg(1, "ifstats", &all), flags}), (Codes{0, 0}));  // taken away, nothing deleted

  const char *name = "rx";
  std::uint32_t id = 0, kind = 1, range_type = 3;
  std::uint64_t range[2] = {77, 78};
  zor_process_object_attr_t attr = {&id, nullptr, &kind, &range_type, nullptr};
  const auto set = [&](std::uint32_t o) {
    return zor_process_engine_set_object(&engine, o, "ifstats", &name, &attr);
  };
  EXPECT_EQ(set(0), 1u);  // a range type without a range: created and identified all the same
  EXPECT_STREQ(zor_process_engine_get_object_name_byid(&engine, "ifstats", id), "rx");
  EXPECT_EQ((Codes{set(3), kind, range_type}), (Codes{0, 0, 0}));
  range_type = 3, attr.range = range;
  EXPECT_EQ(set(0), 0u);
  attr.range = nullptr;
  EXPECT_EQ((Codes{set(3), range_type}), (Codes{1, 3}));
  range_type = 0, attr.range = range;
  EXPECT_EQ(set(0), 0u);  // takes the range away
  range[0] = 5;
  EXPECT_EQ((Codes{set(3), range_type, static_cast<std::uint32_t>(range[0])}), (Codes{0, 0, 5}));
}

TEST_F(EngineTest, HandsOutIdentifiers) {
  MakeDg(0);
  const auto identify = [&](const char *name, std::uint32_t id) {
    zor_process_object_attr_t attr = {&id, nullptr, nullptr, nullptr, nullptr};
    EXPECT_EQ(zor_process_engine_set_object(&engine, 0, "ifstats", &name, &attr), 0u);
    return id;
  };
  const auto find = [&](const char *name) { return zor_process_object_get_id_byname(&engine, "ifstats", name); };
  const std::string longer(300, 'l');
  const std::uint32_t id = identify("rxbytes", 0);
  EXPECT_EQ((Codes{identify(longer.c_str(), id + 1), identify("next", 0)}), (Codes{id + 1, id + 2}));
  EXPECT_EQ((Codes{find("rx"), find(""), find("rxbytes2"), find(nullptr), find((longer + "x").c_str()),
                   zor_process_object_get_id_byname(&engine, "none", "rx")}),
            (Codes{id, id, 0, 0, 0, 0}));  // a beginning is enough
  EXPECT_EQ(zor_process_engine_get_object_name_byid(&engine, "ifstats", 4000000000u), nullptr);
  EXPECT_EQ(zor_process_engine_get_object_name_byid(&engine, "none", id), nullptr);
  EXPECT_STREQ(zor_proc_get_error_string_list(14), "ZOR_PROCESS_ERROR_INVALID_POLL_INTERVAL");
  EXPECT_STREQ(zor_proc_get_error_string_list(16), "Max Limit");
}

TEST_F(EngineTest, LatchesFailuresUntilTheDataIsReset) {
  EXPECT_EQ(EndOfPoll(), 4u);
  MakeDg(1);
  EXPECT_EQ(zor_process_engine_process_data(&engine, "ifstats", nullptr), 1u);
  zor_process_engine_set_poll_interval(&engine, "ifstats", 9);
  EXPECT_EQ(EndOfPoll(), 14u);
  zor_process_engine_set_poll_interval(&engine, "ifstats", 10);
  EXPECT_EQ(Row("a", {}), 9u);  // no template yet; and the row took the template's place
  EXPECT_EQ((Codes{EndOfPoll(), Clear(7)}), (Codes{9, 0}));
  MakeObject("rx", 0);
  EXPECT_EQ(Template({{"key", 0}, {"rx", kUint64}}), 0u);  // ignored
  EXPECT_EQ(Row("a", {std::uint64_t{1}}), 9u);
  zor_process_engine_set_poll_interval(&engine, "ifstats", 0);
  EXPECT_EQ(EndOfPoll(), 14u);  // takes the place of the latched code
  zor_process_engine_set_poll_interval(&engine, "ifstats", 10);
  EXPECT_EQ((Codes{EndOfPoll(), SetDg(ZOR_PROCESS_OPER_CLEAR, "ifstats")}), (Codes{0, 0}));
  EXPECT_EQ(Template({{"key", 0}, {"rx", kUint64}}), 0u);
  EXPECT_EQ(Row("a", {std::uint64_t{1}}), 0u);
  EXPECT_EQ(Report(0).at(1), "\nNumber of samples: 1\n");
  EXPECT_EQ((Codes{Send(3), Row("a", {std::uint64_t{2}}), Clear(0), Send(4), Clear(1)}), (Codes{11, 11, 0, 12, 0}));
  EXPECT_EQ(WithoutTime(Collect()), "ifstats-summary, rx, a, 1, 1, 1, 1.000\n");
}

TEST_F(EngineTest, RefusesTemplatesAndRowsThatDoNotFit) {
  struct Case {
    std::vector<zor_process_column_t *> columns;
    std::uint32_t expected;
  };
  zor_process_column_t key = {"key", 2, 0, 0, 1}, number_key = {"key", 0, 0, 8, 1}, rx = {"rx", 0, 0, 8, 0},
                       text = {"rx", 2, 0, 8, 0}, unknown = {"unknown", 2, 0, 8, 0},
                       late_key = {"late", 2, 0, 0, 1};
  const Case cases[] = {
      {{&key, &rx}, 0}, {{nullptr}, 8}, {{&key, nullptr, &rx}, 8},  {{&number_key}, 10},
      {{&text}, 7},     {{}, 0},        {{&unknown, &key, &rx}, 0}, {{&key, &rx, &rx, &late_key}, 0}};
  MakeDg(0);
  MakeObject("rx", 1);
  MakeObject("off", 0);
  for (const Case &c : cases) {
    ASSERT_EQ(SetDg(ZOR_PROCESS_OPER_CLEAR, "ifstats"), 0u);
    std::vector<void *> columns(c.columns.begin(), c.columns.end());
    EXPECT_EQ(Send(0, columns.size(), columns.data()), c.expected) << &c - cases;
  }
  // The later key column counts, and the first of two columns of one name.
  std::uint64_t one = 1, two = 2;
  zor_process_cell_t cells[] = {{2, 0, "early"}, {0, 8, &one}, {0, 8, &two}, {2, 0, "late"}};
  void *row[] = {&cells[0], &cells[1], &cells[2], &cells[3]};
  EXPECT_EQ(Send(1, 0, row), 0u);
  auto cursor = Cursor();
  EXPECT_EQ(WithoutTime(Next(cursor)), "ifstats-summary, rx, late, 1, 1, 1, 1.000\n");
  EXPECT_TRUE(Ends(cursor));
  const auto refused = [&](void **columns) { return std::pair{Send(1, 0, columns), Clear(0)}; };
  constexpr std::pair<std::uint32_t, std::uint32_t> kWithoutKey = {10, 0};
  cells[3].type = 0;
  EXPECT_EQ(refused(row), kWithoutKey);
  cells[3] = {2, 0, nullptr};
  EXPECT_EQ(refused(row), kWithoutKey);
  row[3] = nullptr;
  EXPECT_EQ(refused(row), kWithoutKey);
  EXPECT_EQ(refused(nullptr), kWithoutKey);
  ASSERT_EQ(SetDg(ZOR_PROCESS_OPER_CLEAR, "ifstats"), 0u);
  EXPECT_EQ(Send(0, 2, nullptr), 8u);

  // A key alone, a column that is switched off, and cells without a value, without a length and missing: rows pass,
  // and leave nothing behind.
  ASSERT_EQ(MakeObject("counter", 1, 1), 0u);
  for (const auto &columns :
       {std::vector<Column>{{"key", 0}}, {{"key", 0}, {"off", kUint64}}, {{"key", 0}, {"rx", 4}, {"counter", 4}}}) {
    ASSERT_EQ(SetDg(ZOR_PROCESS_OPER_CLEAR, "ifstats"), 0u);
    ASSERT_EQ(Template(columns), 0u);
    zor_process_cell_t without_value = {0, 8, nullptr}, without_length = {0, 0, &one}, off = {0, 8, &one};
    void *first[] = {&cells[0], columns.size() == 3 ? &without_value : &off, nullptr},
         *second[] = {&cells[0], &without_length, nullptr};
    EXPECT_EQ((Codes{Send(1, 0, first), Send(1, 0, second), EndOfPoll(), Clear(7)}), (Codes{0, 0, 0, 0}));
    cursor = Cursor();
    EXPECT_TRUE(Ends(cursor));
  }
  EXPECT_EQ(Report(1, "counter").at(1), "\nNumber of samples: 0\n");  // nothing has primed it
}

TEST_F(EngineTest, FollowsTheConfigurationOfItsObjects) {
  MakeDg(0);
  MakeObject("rx", 1);
  MakeObject("tx", 1);
  ASSERT_EQ(Template({{"key", 0}, {"rx", kUint64}, {"tx", kUint64}}), 0u);
  EXPECT_EQ(Row("before", {std::uint64_t{1}, std::nullopt}), 0u);
  AddInstance("rx", "eth0");
  EXPECT_EQ(Row("eth0", {std::uint64_t{2}, std::uint64_t{3}}), 0u);
  EXPECT_EQ(Row("eth1", {std::uint64_t{9}, std::uint64_t{4}}), 0u);  // rx does not watch eth1
  EXPECT_EQ(Row("before", {std::uint64_t{5}, std::nullopt}), 0u);    // an instance that exists goes on
  const char *eth0 = "eth0", *tx = "tx";
  EXPECT_EQ(zor_process_engine_set_object_instance(&engine, 1, "ifstats", "rx", &eth0), 0u);
  EXPECT_EQ(Row("eth2", {std::uint64_t{9}, std::nullopt}), 0u);  // an empty list watches nothing new
  auto cursor = Cursor();
  std::string records;
  for (int i = 0; i < 4; ++i) records += WithoutTime(Next(cursor));
  EXPECT_EQ(records,
            "ifstats-summary, rx, before, 2, 1, 5, 3.000\nifstats-summary, rx, eth0, 1, 2, 2, 2.000\n"
            "ifstats-summary, tx, eth0, 1, 3, 3, 3.000\nifstats-summary, tx, eth1, 1, 4, 4, 4.000\n");
  EXPECT_TRUE(Ends(cursor));
  EXPECT_EQ(WithoutTime(Next(cursor)), "ifstats-summary, rx, before, 2, 1, 5, 3.000\n");  // begins anew
  cursor = {nullptr, cursor.dg, nullptr, nullptr, 0};                                     // by its DG alone
  EXPECT_EQ(WithoutTime(Next(cursor)), "ifstats-summary, rx, before, 2, 1, 5, 3.000\n");

  EXPECT_EQ(zor_process_engine_set_object(&engine, 1, "ifstats", &tx, nullptr), 0u);
  EXPECT_EQ(Row("eth0", {std::uint64_t{6}, std::uint64_t{7}}), 5u);
  Next(cursor);
  EXPECT_TRUE(Ends(cursor));                                        // the walk ends before it
  EXPECT_EQ(Report(1, "tx").front(), "\nObjectname       : tx\n");  // its data stays, without a sample count
  EXPECT_THAT(Report(8), ::testing::ElementsAre("\nObjectname       : rx\n", "\nNumber of samples: 1\n",
                                                "\nObjectname       : tx\n"));
  EXPECT_EQ(Report(7, "none").size(), 0u);
  EXPECT_EQ(Report(1, "rx", "none").size(), 5u);
}

TEST_F(EngineTest, ConvertsRangesToTheColumnsType) {
  const std::uint64_t minus5 = static_cast<std::uint64_t>(-5), int32_max = 2147483647, uint32_max = 4294967295;
  const struct {
    std::uint32_t data_type, range_type;
    std::uint64_t low, high;
    std::uint32_t expected;
  } cases[] = {{1, 3, minus5, 5, 0},
               {2, 3, minus5, 5, 15},
               {3, 3, minus5, 5, 0},
               {4, 3, 0, 5, 15},
               {1, 3, 0, int32_max + 1, 15},
               {1, 4, 0, int32_max, 0},
               {1, 4, 0, int32_max + 1, 15},
               {1, 4, int32_max + 1, 0, 15},
               {2, 4, 0, uint32_max, 0},
               {2, 4, 0, uint32_max + 1, 15},
               {3, 4, 0, minus5, 15},
               {4, 4, 0, minus5, 0},
               {4, 1, 0, 5, 15},
               {3, 2, 0, 5, 15},
               {4, 5, 7, 5, 0},
               {1, 3, 5, minus5, 2},
               {1, 3, minus5 << 32, 5, 15}};
  MakeDg(0);
  for (const auto &c : cases) {
    ASSERT_EQ(SetDg(ZOR_PROCESS_OPER_CLEAR, "ifstats"), 0u);
    ASSERT_EQ(MakeObject("rx", 2, 0, c.range_type, c.low, c.high), 0u);
    ASSERT_EQ(Template({{"key", 0}, {"rx", c.data_type}}), 0u);
    EXPECT_EQ(Row("a", {std::uint64_t{0}}), c.expected) << &c - cases;
  }
}

// Rows find a value's sub-range in another way than the call for a record of its own, where the range allows it.
template <class V>
class RowsTest : public EngineTest {};
TYPED_TEST_SUITE(RowsTest, ValueTypes);

TYPED_TEST(RowsTest, CountInTheSubRangesOfTheDirectCall) {
  using V = TypeParam;
  using U = zor::Unsigned<V>;
  constexpr V kMin = std::numeric_limits<V>::min(), kMax = std::numeric_limits<V>::max();
  constexpr std::uint16_t kBuckets = 100;
  constexpr std::uint64_t kWidest = std::uint64_t{1} << 32;
  this->MakeDg(0);
  for (const std::uint64_t width :
       {std::uint64_t{2}, std::uint64_t{99}, std::uint64_t{101}, std::uint64_t{999983}, kWidest / 100,
        kWidest / 100 + 1, kWidest / 2, kWidest - 1, kWidest, kWidest + 1}) {
    for (const V low : {kMin, zor::Advance(kMin, U{12345}), V(-1000)}) {
      const auto room = zor::Distance(low, kMax);
      const V high = width > room ? kMax : zor::Advance(low, static_cast<U>(width - 1));
      SCOPED_TRACE(::testing::Message() << low << " to " << high);
      ASSERT_EQ(this->SetDg(ZOR_PROCESS_OPER_CLEAR, "ifstats"), 0u);
      ASSERT_EQ(this->MakeObject("rx", ZOR_PROCESS_FLAG_PERCENTILE, 0, low < 0 ? 3 : 4,
                                 static_cast<std::uint64_t>(low), static_cast<std::uint64_t>(high), kBuckets),
                0u);
      ASSERT_EQ(this->Template({{"key", 0}, {"rx", Api<V>::kTypeCode}}), 0u);
      typename Api<V>::RangeCounters expected;
      ASSERT_EQ(Api<V>::RangeInit(&expected, low, high, kBuckets), 0u);
      for (unsigned edge = 0; edge <= kBuckets; ++edge) {
        const auto start = static_cast<U>(static_cast<zor::Wide>(zor::Distance(low, high)) * edge / kBuckets);
        for (int beside = -2; beside <= 2; ++beside) {
          const V value = zor::Advance(low, static_cast<U>(start + static_cast<U>(beside)));
          this->Row("a", {value});  // whether the sum takes it or not
          this->Clear(0);
          Api<V>::RangeInsert(&expected, value);
        }
      }
      auto cursor = this->Cursor();
      this->Next(cursor, 0);
      const auto &counted = *static_cast<typename Api<V>::Entry *>(cursor.entry)->range_counters;
      EXPECT_THAT(std::vector(counted.pu16_counters, counted.pu16_counters + kBuckets),
                  ::testing::ElementsAreArray(expected.pu16_counters, kBuckets));
      EXPECT_EQ(counted.u16_min_exception_counter, expected.u16_min_exception_counter);
      EXPECT_EQ(counted.u16_max_exception_counter, expected.u16_max_exception_counter);
      EXPECT_EQ(counted.u16_no_of_samples, expected.u16_no_of_samples);
      std::free(expected.pu16_counters);
    }
  }
}

// The count of polls has 16 bits: an interval that it passed, or cannot hold, comes when it has wrapped.
TEST_F(EngineTest, CountOfPollsWraps) {
  const struct {
    std::uint32_t interval;
    int polls, passed;  // by a clear that failed
    std::vector<int> cleared;
  } cases[] = {{0, 65540, 0, {65536}},
               {65535, 131073, 0, {65535, 131070}},
               {65536, 70000, 0, {}},
               {2, 65540, 2, {65536, 65538, 65540}}};
  for (const auto &c : cases) {
    MakeDg(1, 1, c.interval);
    MakeObject("rx", 0);
    ASSERT_EQ((Codes{Template({{"key", 0}, {"rx", 2}}), Row("a", {1u})}), (Codes{0, 0}));
    if (c.passed) {
      ASSERT_EQ((Codes{Clear(1), EndOfPoll(), EndOfPoll(), Clear(0)}), (Codes{0, 0, 13, 0}));
    }
    Collect();
    std::vector<int> cleared;
    for (int poll = 1; poll <= c.polls; ++poll) {
      ASSERT_EQ(EndOfPoll(), 0u);
      if (!Collect().empty()) cleared.push_back(poll);
    }
    EXPECT_EQ(cleared, c.cleared) << c.interval;
    SetDg(ZOR_PROCESS_OPER_DELETE, "ifstats");
  }
}

TEST_F(EngineTest, ClearsOnlyWhatTheMaskSelects) {
  MakeDg(0);
  MakeObject("rx", 4, 1);
  ASSERT_EQ(Template({{"key", 0}, {"rx", kUint64}}), 0u);
  std::uint64_t counter = 0;
  for (int i = 0; i < 4; ++i) {
    EXPECT_EQ((Codes{Row("a", {counter += 10}), EndOfPoll()}), (Codes{0, 0}));
  }
  EXPECT_EQ(Report(1).at(1), "\nNumber of samples: 3\n");  // the first value only primed the counter
  const auto clear = [&](std::uint16_t mask) {
    EXPECT_EQ(Clear(mask), 0u);
    return WithoutTime(Collect());
  };
  EXPECT_EQ(clear(8), "");
  const std::string percentiles =
      "ifstats-percentile, rx, a, 3, 10.000, 10.000, 10.000, 10.000, 10.000, 10.000, 10.000, 10.000, 10.000\n";
  EXPECT_EQ(clear(4) + clear(4), percentiles + percentiles);  // rendered, not reset
  EXPECT_EQ(clear(1), "ifstats-summary, rx, a, 3, 10, 10, 10.000\n");
  EXPECT_EQ(clear(7), "ifstats-summary, rx, a, 0\nifstats-percentile, rx, a, 0\n");
  EXPECT_EQ(Row("a", {counter + 5}), 0u);  // still primed
  EXPECT_EQ(clear(1), "ifstats-summary, rx, a, 1, 5, 5, 5.000\n");
}

// An object's clear interval becomes a number of samples; seen in the entry that keeps it.
TEST_F(EngineTest, TurnsHoursIntoPolls) {
  std::uint32_t cases[][4] = {{1, 7, 10, 7},    {2, 1, 60, 60},   {2, 1, 700, 6},   {2, 1, 900, 4},
                              {0, 0, 10, 2000}, {5, 9, 10, 2000}, {1, 65537, 10, 1}};
  for (auto &[type, interval, poll_interval, expected] : cases) {
    for (const bool at_dg : {false, true}) {
      if (!at_dg && type == 0) continue;
      MakeDg(1, at_dg ? type : 9, interval);
      zor_process_engine_set_poll_interval(&engine, "ifstats", poll_interval);
      const char *name = "rx";
      zor_process_attr_t common = {nullptr, nullptr, &type, &interval};
      zor_process_object_attr_t attr = {nullptr, at_dg ? nullptr : &common, nullptr, nullptr, nullptr};
      ASSERT_EQ(zor_process_engine_set_object(&engine, 0, "ifstats", &name, &attr), 0u);
      ASSERT_EQ((Codes{Template({{"key", 0}, {"rx", kUint64}}), Row("a", {std::uint64_t{1}})}), (Codes{0, 0}));
      auto cursor = Cursor();
      Next(cursor);
      EXPECT_EQ(static_cast<Api<std::uint64_t>::Entry *>(cursor.entry)->clear_count, expected);
      SetDg(ZOR_PROCESS_OPER_DELETE, "ifstats");
    }
  }
}
