#include "engine_fixture.h"

static constexpr std::uint32_t kUint64 = ZOR_PROCESS_DATA_TYPE_UINT64;

TEST_F(EngineTest, LatchesFailuresUntilTheDataIsReset) {
  EXPECT_EQ(EndOfPoll(), 4u);
  MakeDg(1);
  EXPECT_EQ(zor_process_engine_process_data(&engine, "ifstats", nullptr), 1u);
  zor_process_engine_set_poll_interval(&engine, "ifstats", 9);
  EXPECT_EQ(EndOfPoll(), 14u);
  zor_process_engine_set_poll_interval(&engine, "ifstats", 10);
  EXPECT_EQ(Row("a", {}), 9u);  // no template yet; and the row took the template's place
  EXPECT_EQ(EndOfPoll(), 9u);
  EXPECT_EQ(zor_process_engine_clear_dg_data(&engine, "ifstats", 7, 0), 0u);
  MakeObject("rx", 0);
  EXPECT_EQ(Template({{"key", 0}, {"rx", kUint64}}), 0u);  // ignored
  EXPECT_EQ(Row("a", {std::uint64_t{1}}), 9u);
  zor_process_engine_set_poll_interval(&engine, "ifstats", 0);
  EXPECT_EQ(EndOfPoll(), 14u);  // takes the place of the latched code
  zor_process_engine_set_poll_interval(&engine, "ifstats", 10);
  EXPECT_EQ(EndOfPoll(), 0u);

  EXPECT_EQ(SetDg(ZOR_PROCESS_OPER_CLEAR, "ifstats"), 0u);
  EXPECT_EQ(Template({{"key", 0}, {"rx", kUint64}}), 0u);
  EXPECT_EQ(Row("a", {std::uint64_t{1}}), 0u);
  EXPECT_EQ(Send(3), 11u);
  EXPECT_EQ(Row("a", {std::uint64_t{2}}), 11u);
  EXPECT_EQ(zor_process_engine_clear_dg_data(&engine, "ifstats", 0, 0), 0u);  // concerns nothing, lifts the latch
  EXPECT_EQ(Send(4), 12u);
  EXPECT_EQ(zor_process_engine_clear_dg_data(&engine, "ifstats", 1, 0), 0u);
  EXPECT_EQ(WithoutTime(Collect()), "ifstats-summary, rx, a, 1, 1, 1, 1.000\n");
  EXPECT_EQ(zor_process_engine_clear_dg_data(&engine, "none", 7, 0), 16u);
}

TEST_F(EngineTest, RefusesTemplatesAndRowsThatDoNotFit) {
  struct Case {
    std::vector<zor_process_column_t *> columns;
    std::uint32_t expected;
  };
  zor_process_column_t key = {"key", 2, 0, 0, 1}, number_key = {"key", 0, 0, 8, 1}, rx = {"rx", 0, 0, 8, 0},
                       text = {"rx", 2, 0, 8, 0}, other_text = {"unknown", 2, 0, 8, 0},
                       late_key = {"late", 2, 0, 0, 1};
  const Case cases[] = {
      {{&key, &rx}, 0}, {{nullptr}, 8}, {{&key, nullptr, &rx}, 8},     {{&number_key}, 10},
      {{&text}, 7},     {{}, 0},        {{&other_text, &key, &rx}, 0}, {{&key, &rx, &rx, &late_key}, 0}};
  MakeDg(0);
  MakeObject("rx", 1);
  MakeObject("off", 0);
  for (const Case &c : cases) {
    ASSERT_EQ(SetDg(ZOR_PROCESS_OPER_CLEAR, "ifstats"), 0u);
    std::vector<void *> columns(c.columns.begin(), c.columns.end());
    EXPECT_EQ(Send(0, static_cast<int>(columns.size()), columns.data()), c.expected) << &c - cases;
  }
  // The later key column counts, and the first of two columns of one name.
  std::uint64_t one = 1, two = 2;
  zor_process_cell_t cells[] = {{2, 0, "early"}, {0, 8, &one}, {0, 8, &two}, {2, 0, "late"}};
  void *row[] = {&cells[0], &cells[1], &cells[2], &cells[3]};
  EXPECT_EQ(Send(1, 0, row), 0u);
  auto cursor = Cursor();
  EXPECT_EQ(WithoutTime(Next(cursor)), "ifstats-summary, rx, late, 1, 1, 1, 1.000\n");
  Next(cursor);
  EXPECT_EQ(cursor.entry, nullptr);
  const auto refused = [&] {
    const std::uint32_t result = Send(1, 0, row);
    zor_process_engine_clear_dg_data(&engine, "ifstats", 0, 0);
    return result;
  };
  cells[3].type = 0;
  EXPECT_EQ(refused(), 10u);
  cells[3] = {2, 0, nullptr};
  EXPECT_EQ(refused(), 10u);
  row[3] = nullptr;
  EXPECT_EQ(refused(), 10u);
  EXPECT_EQ(Send(1, 0, nullptr), 10u);
  ASSERT_EQ(SetDg(ZOR_PROCESS_OPER_CLEAR, "ifstats"), 0u);
  EXPECT_EQ(Send(0, 2, nullptr), 8u);

  // A key alone, and the column of an object that is switched off: rows pass, and leave nothing behind.
  for (const auto &columns : {std::vector<Column>{{"key", 0}}, {{"key", 0}, {"off", kUint64}}}) {
    ASSERT_EQ(SetDg(ZOR_PROCESS_OPER_CLEAR, "ifstats"), 0u);
    ASSERT_EQ(Template(columns), 0u);
    EXPECT_EQ(Row("a", {std::uint64_t{1}}), 0u);
    EXPECT_EQ(EndOfPoll(), 0u);
    EXPECT_EQ(zor_process_engine_clear_dg_data(&engine, "ifstats", 7, 0), 0u);
    cursor = Cursor();
    EXPECT_EQ(Next(cursor), "(null)");
    EXPECT_EQ(cursor.entry, nullptr);
  }
  // A cell of a length without a value, and one that is missing, are empty too.
  ASSERT_EQ(SetDg(ZOR_PROCESS_OPER_CLEAR, "ifstats"), 0u);
  ASSERT_EQ(MakeObject("counter", 1, 1), 0u);
  ASSERT_EQ(Template({{"key", 0}, {"rx", kUint64}, {"counter", kUint64}}), 0u);
  EXPECT_EQ(Report(1, "counter").at(1), "\nNumber of samples: 0\n");  // nothing has primed it
  zor_process_cell_t without_value = {0, 8, nullptr}, without_length = {0, 0, &one};
  void *empty[] = {&cells[0], &without_value, nullptr}, *short_cell[] = {&cells[0], &without_length, nullptr};
  EXPECT_EQ(Send(1, 0, empty), 0u);
  EXPECT_EQ(Send(1, 0, short_cell), 0u);
  cursor = Cursor();
  EXPECT_EQ(Next(cursor), "(null)");
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
  const char *eth0 = "eth0";
  EXPECT_EQ(zor_process_engine_set_object_instance(&engine, 1, "ifstats", "rx", &eth0), 0u);
  EXPECT_EQ(Row("eth2", {std::uint64_t{9}, std::nullopt}), 0u);  // an empty list watches nothing new
  EXPECT_EQ(EndOfPoll(), 0u);

  auto cursor = Cursor();
  std::string records;
  for (int i = 0; i < 4; ++i) records += Next(cursor);
  EXPECT_EQ(WithoutTime(records),
            "ifstats-summary, rx, before, 2, 1, 5, 3.000\nifstats-summary, rx, eth0, 1, 2, 2, 2.000\n"
            "ifstats-summary, tx, eth0, 1, 3, 3, 3.000\nifstats-summary, tx, eth1, 1, 4, 4, 4.000\n");
  EXPECT_EQ(Next(cursor), "(null)");
  EXPECT_EQ(cursor.entry, nullptr);
  EXPECT_EQ(WithoutTime(Next(cursor)), "ifstats-summary, rx, before, 2, 1, 5, 3.000\n");  // begins anew

  cursor = {nullptr, cursor.dg, nullptr, nullptr, 0};  // by its DG alone
  EXPECT_EQ(WithoutTime(Next(cursor)), "ifstats-summary, rx, before, 2, 1, 5, 3.000\n");

  const char *tx = "tx";
  EXPECT_EQ(zor_process_engine_set_object(&engine, 1, "ifstats", &tx, nullptr), 0u);
  EXPECT_EQ(Row("eth0", {std::uint64_t{6}, std::uint64_t{7}}), 5u);
  cursor = Cursor();
  for (int i = 0; i < 2; ++i) Next(cursor);
  EXPECT_EQ(Next(cursor), "(null)");  // the walk ends before it
  EXPECT_EQ(cursor.entry, nullptr);
  EXPECT_EQ(Report(1, "tx").front(), "\nObjectname       : tx\n");  // its data stays, without a sample count
  EXPECT_THAT(Report(8), ::testing::ElementsAre("\nObjectname       : rx\n", "\nNumber of samples: 2\n",
                                                "\nObjectname       : tx\n"));
  EXPECT_TRUE(Report(7, "none").empty());
  EXPECT_EQ(Report(1, "rx", "none").size(), 5u);
}

TEST_F(EngineTest, ConvertsRangesToTheColumnsType) {
  const std::uint64_t minus5 = static_cast<std::uint64_t>(-5), int32_max = 2147483647, uint32_max = 4294967295;
  const struct {
    std::uint32_t data_type, range_type;
    std::uint64_t low, high;
    std::uint32_t expected;
  } cases[] = {
      {1, 3, minus5, 5, 0},
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
      {1, 3, minus5 << 32, 5, 15},
  };
  MakeDg(0);
  for (const auto &c : cases) {
    ASSERT_EQ(SetDg(ZOR_PROCESS_OPER_CLEAR, "ifstats"), 0u);
    ASSERT_EQ(MakeObject("rx", 2, 0, c.range_type, c.low, c.high), 0u);
    ASSERT_EQ(Template({{"key", 0}, {"rx", c.data_type}}), 0u);
    EXPECT_EQ(Row("a", {std::uint64_t{0}}), c.expected) << &c - cases;
  }
}

TEST_F(EngineTest, ClearsAtItsIntervalAndKeepsWhatIsNotCollected) {
  MakeDg(0, 1, 2);
  MakeObject("rx", 1);
  ASSERT_EQ(Template({{"key", 0}, {"rx", kUint64}}), 0u);
  const auto poll = [&](std::uint64_t value) {
    EXPECT_EQ(Row("a", {value}), 0u);
    EXPECT_EQ(Row("b", {value + 1}), 0u);
    return EndOfPoll();
  };
  EXPECT_EQ(poll(1), 0u);
  EXPECT_EQ(Collect(), "");
  EXPECT_EQ(poll(3), 0u);
  EXPECT_EQ(WithoutTime(Collect()),
            "ifstats-summary, rx, a, 2, 1, 3, 2.000\nifstats-summary, rx, b, 2, 2, 4, 3.000\n");
  EXPECT_EQ(poll(5), 0u);
  EXPECT_EQ(poll(7), 0u);
  EXPECT_EQ(poll(9), 0u);
  EXPECT_EQ(poll(11), 13u);  // the records of 5 and 7 wait to be collected
  EXPECT_EQ(EndOfPoll(), 13u);
  EXPECT_EQ(WithoutTime(Collect()),
            "ifstats-summary, rx, a, 2, 5, 7, 6.000\nifstats-summary, rx, b, 2, 6, 8, 7.000\n");
  EXPECT_EQ(EndOfPoll(), 13u);
  EXPECT_EQ(zor_process_engine_clear_dg_data(&engine, "ifstats", 7, 0), 0u);  // nothing was lost
  EXPECT_EQ(WithoutTime(Collect()),
            "ifstats-summary, rx, a, 2, 9, 11, 10.000\nifstats-summary, rx, b, 2, 10, 12, 11.000\n");
}

TEST_F(EngineTest, ClearsOnlyWhatTheMaskSelects) {
  MakeDg(0);
  MakeObject("rx", 4, 1);
  ASSERT_EQ(Template({{"key", 0}, {"rx", kUint64}}), 0u);
  std::uint64_t counter = 0;
  for (int i = 0; i < 4; ++i) {
    EXPECT_EQ(Row("a", {counter += 10}), 0u);
    EXPECT_EQ(EndOfPoll(), 0u);
  }
  EXPECT_EQ(Report(1).at(1), "\nNumber of samples: 3\n");  // the first value only primed the counter
  const auto clear = [&](std::uint16_t mask) {
    EXPECT_EQ(zor_process_engine_clear_dg_data(&engine, "ifstats", mask, 0), 0u);
    return WithoutTime(Collect());
  };
  EXPECT_EQ(clear(8), "");
  const std::string percentiles =
      ", rx, a, 3, 10.000, 10.000, 10.000, 10.000, 10.000, 10.000, 10.000, 10.000, 10.000\n";
  EXPECT_EQ(clear(4), "ifstats-percentile" + percentiles);
  EXPECT_EQ(clear(4), "ifstats-percentile" + percentiles);  // rendered, not reset
  EXPECT_EQ(clear(1), "ifstats-summary, rx, a, 3, 10, 10, 10.000\n");
  EXPECT_EQ(clear(7), "ifstats-summary, rx, a, 0\nifstats-percentile, rx, a, 0\n");
  EXPECT_EQ(Row("a", {counter + 5}), 0u);  // still primed
  EXPECT_EQ(clear(1), "ifstats-summary, rx, a, 1, 5, 5, 5.000\n");
}

// An object's clear interval becomes a number of samples; seen in the entry that keeps it.
TEST_F(EngineTest, TurnsHoursIntoPolls) {
  const struct {
    std::uint32_t type, interval, poll_interval;
    std::uint16_t expected;
  } cases[] = {{1, 7, 10, 7},    {2, 1, 60, 60},   {2, 1, 700, 6},   {2, 1, 900, 4},
               {0, 0, 10, 2000}, {5, 9, 10, 2000}, {1, 65537, 10, 1}};
  for (const bool own : {false, true}) {
    for (auto c : cases) {
      const bool at_dg = !own || c.type == 0;
      MakeDg(1, at_dg ? c.type : 9, c.interval);
      zor_process_engine_set_poll_interval(&engine, "ifstats", c.poll_interval);
      const char *name = "rx";
      zor_process_attr_t common = {nullptr, nullptr, &c.type, &c.interval};
      zor_process_object_attr_t attr = {nullptr, at_dg ? nullptr : &common, nullptr, nullptr, nullptr};
      ASSERT_EQ(zor_process_engine_set_object(&engine, 0, "ifstats", &name, &attr), 0u);
      ASSERT_EQ(Template({{"key", 0}, {"rx", kUint64}}), 0u);
      ASSERT_EQ(Row("a", {std::uint64_t{1}}), 0u);
      auto cursor = Cursor();
      Next(cursor);
      ASSERT_NE(cursor.entry, nullptr);
      EXPECT_EQ(static_cast<zor_process_object_instance_entry_uint64_t *>(cursor.entry)->clear_count, c.expected);
      SetDg(ZOR_PROCESS_OPER_DELETE, "ifstats");
    }
  }
}

TEST_F(EngineTest, CountsOnASumThatOverflows) {
  MakeDg(0);
  MakeObject("rx", 3, 0, 4, 0, 9, 2);
  ASSERT_EQ(Template({{"key", 0}, {"rx", kUint64}}), 0u);
  EXPECT_EQ(Row("a", {UINT64_MAX}), 0u);
  EXPECT_EQ(Row("a", {std::uint64_t{1}}), 11u);
  EXPECT_EQ(zor_process_engine_clear_dg_data(&engine, "ifstats", 0, 0), 0u);
  EXPECT_THAT(Report(3),
              ::testing::IsSupersetOf({"18446744073709551615.000\n", "1         0.000        5.000        1\n"}));
}
