// Numbers at their ends: counters that stop or wrap, sums at the ends of 64 bits, ranges at the ends of the types,
// and sizes far beyond the usual.

#include <algorithm>
#include <limits>

#include "engine/registry.h"
#include "engine_fixture.h"

class LimitsTest : public EngineTest {
 protected:
  // Sends `count` ends of poll; returns the numbers of those after which something could be collected.
  std::vector<int> PollsThatCleared(int count) {
    std::vector<int> cleared;
    for (int poll = 1; poll <= count; ++poll) {
      EXPECT_EQ(EndOfPoll(), 0u);
      auto cursor = Cursor();
      Next(cursor, 0);
      if (zor_process_engine_get_clear_buffer(&cursor) && !Collect().empty()) cleared.push_back(poll);
    }
    return cleared;
  }
};

template <class V>
class TypedLimitsTest : public LimitsTest {
 protected:
  static constexpr V kMin = std::numeric_limits<V>::min();
  static constexpr V kMax = std::numeric_limits<V>::max();
};
TYPED_TEST_SUITE(TypedLimitsTest, ValueTypes);

// A count of 16 or 32 bits, set to its last value, and one more sample.
TYPED_TEST(TypedLimitsTest, CountersStopOrWrap) {
  using V = TypeParam;
  using A = Api<V>;
  typename A::Summary summary = {5, 5, 5, UINT32_MAX};
  EXPECT_EQ(A::SummaryEval(&summary, 7), 0u);
  EXPECT_EQ(std::tuple(summary.Vmax, summary.Vtotal, summary.u32_no_of_samples), std::tuple(7, 12, 0u));  // wraps

  typename A::RangeCounters range = {};
  ASSERT_EQ(A::RangeInit(&range, 10, 19, 1), 0u);
  for (std::uint16_t *counter :
       {&range.u16_min_exception_counter, range.pu16_counters, &range.u16_max_exception_counter}) {
    const V sample = static_cast<V>(counter == range.pu16_counters                ? 15
                                    : counter == &range.u16_min_exception_counter ? 9
                                                                                  : 20);
    *counter = 65534;
    range.u16_no_of_samples = 65535;
    EXPECT_EQ(A::RangeInsert(&range, sample), sample < 10 ? -1 : sample < 20 ? 0 : 1);
    EXPECT_EQ(std::tuple(*counter, range.u16_no_of_samples), std::tuple(65535, 0));
    EXPECT_EQ(A::RangeInsert(&range, sample), 3);
    EXPECT_EQ(std::tuple(*counter, range.u16_no_of_samples), std::tuple(65535, 0));
  }

  typename A::DynamicCounters dynamic = {};
  A::DynamicInit(&dynamic, &range, 0);
  for (auto *list : {&dynamic.min_list, &dynamic.max_list}) {
    const V sample = list == &dynamic.min_list ? 9 : 20;
    list->exceptions = 65534;
    EXPECT_EQ(A::DynamicInsert(&dynamic, sample), 2);
    EXPECT_EQ(A::DynamicInsert(&dynamic, sample), 3);
    EXPECT_EQ(list->exceptions, 65535);
  }
  A::DynamicUninit(&dynamic);
  std::free(range.pu16_counters);
}

TYPED_TEST(TypedLimitsTest, SumsReachBothEndsOf64Bits) {
  using V = TypeParam;
  using A = Api<V>;
  using Totals = std::numeric_limits<typename A::Total>;
  for (const int direction : {1, -1}) {
    if (direction < 0 && !std::is_signed_v<V>) continue;
    const auto step = static_cast<V>(direction);
    const auto end = direction > 0 ? Totals::max() : Totals::min();
    typename A::Summary summary = {0, 0, static_cast<typename A::Total>(end - step), 3};
    EXPECT_EQ(A::SummaryEval(&summary, step), 0u);
    EXPECT_EQ(summary.Vtotal, end);
    EXPECT_EQ(A::SummaryEval(&summary, step), 1u);
    EXPECT_EQ(A::SummaryEval(&summary, direction > 0 ? this->kMax : this->kMin), 1u);
    EXPECT_EQ(A::SummaryEval(&summary, 0), 0u);
    EXPECT_EQ(std::tuple(summary.Vtotal, summary.u32_no_of_samples), std::tuple(end, 5u));
    if constexpr (sizeof(V) == 8) {
      summary.u32_no_of_samples = 1;
      const std::string average = "\nAverage: " + std::to_string(end) + ".000\n";
      EXPECT_THAT(Printed([&] { A::SummaryPrint(&summary); }), ::testing::EndsWith(average));
    }
  }
}

// Samples at both ends of the type and in its middle, over ranges at its ends, in one bucket and in the most that
// there can be: what is rendered are the samples themselves at the extremes, and values between them elsewhere.
TYPED_TEST(TypedLimitsTest, RangesReachBothEndsOfTheType) {
  using V = TypeParam;
  const V middle = V(this->kMin / 2 + this->kMax / 2);
  constexpr std::uint32_t slot = Api<V>::kTypeCode - 1;
  const V ranges[][2] = {{this->kMin, this->kMax},    {this->kMin, this->kMin}, {this->kMax, this->kMax},
                         {this->kMin, middle},        {middle, this->kMax},     {this->kMax - 1, this->kMax},
                         {this->kMin, this->kMin + 1}};
  for (const auto &range : ranges) {
    for (const std::uint32_t buckets : {1u, 65535u}) {
      auto *entry = static_cast<typename Api<V>::Entry *>(
          g_zor_poi_entry_create_funcs[slot]("key", 0, ZOR_PROCESS_FLAG_PERCENTILE, range, buckets, 1, nullptr));
      ASSERT_NE(entry, nullptr);
      std::uint32_t ended = 0;
      for (const V v : {this->kMin, middle, this->kMax, this->kMin, this->kMax}) {
        entry->summary->Vtotal = 0;  // the sum is another matter
        EXPECT_EQ(g_zor_poi_entry_insert_funcs[slot](entry, &v, &ended), 0);
      }
      const auto &record = *entry->range_counters;
      EXPECT_EQ(record.u16_no_of_samples, 5);
      typename Api<V>::FixedPoint values[9];
      const std::uint32_t code = Api<V>::GetValues(g_stats_percentile_1000, values, 9, this->kMin, this->kMax, 5,
                                                   Api<V>::RangeFind, entry->range_counters);
      EXPECT_EQ(code, 0u) << range[0] << " " << range[1] << " " << buckets;
      EXPECT_EQ(std::tuple(values[0].int_part, values[8].int_part), std::tuple(this->kMin, this->kMax));
      for (int i = 1; i < 9; ++i) EXPECT_GE(values[i].int_part, values[i - 1].int_part) << i;
      g_zor_poi_entry_destroy_funcs[slot](entry);
    }
  }
}

// An analyzer that learns from the ends of its type has buckets and ranks there too.
TYPED_TEST(TypedLimitsTest, BaselinesReachBothEndsOfTheType) {
  using V = TypeParam;
  using A = Api<V>;
  const V learnt[][2] = {{this->kMin, this->kMax}, {this->kMin, this->kMin}, {this->kMax, this->kMax}};
  for (const auto &samples : learnt) {
    for (const std::uint16_t buckets : {1, 65535}) {
      typename A::Analyzer analyzer = {};
      ASSERT_EQ(A::AnalyzerInit(&analyzer, 2, buckets, 10), 0u);
      for (const V v : samples) EXPECT_EQ(A::AnalyzerInsert(&analyzer, v), 0);
      ASSERT_EQ(analyzer.stage, STATS_ANALYZER_ANALYZING);
      std::uint32_t counted = 0;
      for (const V v : {this->kMin, this->kMax, V(this->kMin / 2 + this->kMax / 2), this->kMax, this->kMin}) {
        analyzer.summary.Vtotal = 0;
        const auto code = A::AnalyzerInsert(&analyzer, v);
        EXPECT_THAT(code, ::testing::AnyOf(0, 1));
        counted += code == 0;
      }
      EXPECT_EQ(analyzer.summary.u32_no_of_samples, counted);
      typename A::FixedPoint values[9];
      EXPECT_EQ(A::AnalyzerValues(&analyzer, g_stats_percentile_1000, values, 9), 0u);
      // A bucket as wide as the type has no width as a number of a signed one: samples above it are not found.
      const bool found = static_cast<V>(analyzer.dynamic_counters.Range) > 0;
      EXPECT_EQ(std::tuple(values[0].int_part, values[8].int_part),
                found ? std::tuple(this->kMin, this->kMax) : std::tuple(V{0}, V{0}));
      for (int i = 1; i < 9; ++i) EXPECT_GE(values[i].int_part, values[i - 1].int_part) << i;
      A::AnalyzerUninit(&analyzer);
    }
  }
}

// A baseline whose number of samples is a multiple of 65536: the entry keeps no part of it, and its own count
// wraps.
TEST_F(LimitsTest, BaselinePeriodsOf65536Samples) {
  char name[] = "object", dg[] = "dg";
  zor_process_object_oper_entry_t oper = {};
  oper.name = name, oper.dg_name = dg, oper.flags = ZOR_PROCESS_FLAG_BASELINE;
  auto *entry = static_cast<Api<std::uint32_t>::Entry *>(zor_process_object_instance_entry_create_uint32(
      "key", 0, ZOR_PROCESS_FLAG_BASELINE, nullptr, 10, 65536, &oper));
  ASSERT_NE(entry, nullptr);
  for (std::uint32_t period = 1; period <= 2; ++period) {
    for (std::uint32_t i = 1; i <= 65536; ++i) {
      std::uint32_t ended = 0;
      ASSERT_EQ(zor_process_object_instance_entry_insert_uint32(entry, &i, &ended), 0);
      ASSERT_EQ(ended, i == 65536 ? 1u : 0u);
    }
    EXPECT_EQ(entry->clear_buffer != nullptr, period == 2);
  }
  EXPECT_THAT(entry->clear_buffer, ::testing::HasSubstr(", object, key, 65536, 1.000, "));
  zor_process_object_instance_entry_destroy_uint32(entry);
}

// The count of polls has 16 bits: an interval that it passed, or cannot hold, comes when it has wrapped.
TEST_F(LimitsTest, CountOfPollsWraps) {
  const struct {
    std::uint32_t interval;
    int polls;
    std::vector<int> cleared;
  } cases[] = {{0, 65540, {65536}}, {65535, 131073, {65535, 131070}}, {65536, 70000, {}}};
  for (const auto &c : cases) {
    MakeDg(1, 1, c.interval);
    MakeObject("rx", 0);
    ASSERT_EQ(Template({{"key", 0}, {"rx", 2}}), 0u);
    ASSERT_EQ(Row("a", {1u}), 0u);
    EXPECT_EQ(PollsThatCleared(c.polls), c.cleared) << c.interval;
    SetDg(ZOR_PROCESS_OPER_DELETE, "ifstats");
  }
  MakeDg(1, 1, 2);
  MakeObject("rx", 0);
  ASSERT_EQ(Template({{"key", 0}, {"rx", 2}}), 0u);
  ASSERT_EQ(Row("a", {1u}), 0u);
  ASSERT_EQ(zor_process_engine_clear_dg_data(&engine, "ifstats", 1, 0), 0u);
  ASSERT_EQ(EndOfPoll(), 0u);
  ASSERT_EQ(EndOfPoll(), 13u);
  ASSERT_EQ(zor_process_engine_clear_dg_data(&engine, "ifstats", 0, 0), 0u);
  Collect();
  EXPECT_EQ(PollsThatCleared(65540), (std::vector<int>{65536, 65538, 65540}));
}

TEST_F(LimitsTest, IdentifiersWrapPast0) {
  MakeDg(0);
  const auto identify = [&](const char *name, std::uint32_t id) {
    zor_process_object_attr_t attr = {&id, nullptr, nullptr, nullptr, nullptr};
    EXPECT_EQ(zor_process_engine_set_object(&engine, 0, "ifstats", &name, &attr), 0u);
    return id;
  };
  zor::next_object_id = UINT32_MAX - 1;
  EXPECT_EQ(identify("taken", UINT32_MAX), UINT32_MAX);
  EXPECT_EQ(identify("taken too", 1), 1u);
  EXPECT_EQ(identify("last", 0), UINT32_MAX - 1);
  EXPECT_EQ(identify("first again", 0), 2u);
  zor::next_object_id = UINT32_MAX;
  EXPECT_EQ(identify("others", 0), 3u);
}

// Names of no letters and of very many, on all three levels.
TEST_F(LimitsTest, NamesOfAnyLength) {
  for (const std::size_t length : {std::size_t{0}, std::size_t{100000}}) {
    const std::string dg(length, 'd'), object(length, 'o'), instance(length, 'i');
    const char *dg_name = dg.c_str(), *object_name = object.c_str(), *instance_name = instance.c_str();
    std::uint16_t flags = ZOR_PROCESS_FLAG_PERCENTILE;
    zor_process_attr_t attr = {&flags, nullptr, nullptr, nullptr};
    zor_process_object_attr_t no_attr = {};
    ASSERT_EQ(zor_process_engine_set_dg(&engine, 0, &dg_name, &attr), 0u);
    ASSERT_EQ(zor_process_engine_set_object(&engine, 0, dg_name, &object_name, &no_attr), 0u);
    ASSERT_EQ(zor_process_engine_set_object_instance(&engine, 0, dg_name, object_name, &instance_name), 0u);
    zor_process_engine_set_poll_interval(&engine, dg_name, 10);
    zor_process_column_t key = {"key", 2, 0, 0, 1}, column = {object_name, 0, 0, 8, 0};
    const std::uint64_t value = 7;
    zor_process_cell_t key_cell = {2, 0, instance_name}, cell = {0, 8, &value};
    void *columns[] = {&key, &column}, *cells[] = {&key_cell, &cell};
    const zor_process_msg_t first = {0, 0, 2, columns}, row = {0, 1, 2, cells};
    ASSERT_EQ(zor_process_engine_process_data(&engine, dg_name, &first), 0u);
    ASSERT_EQ(zor_process_engine_process_data(&engine, dg_name, &row), 0u);
    zor_process_data_cursor_t cursor = {dg_name, nullptr, nullptr, nullptr, 0};
    std::string values;
    for (int i = 0; i < 9; ++i) values += ", 7.000";
    EXPECT_EQ(WithoutTime(Next(cursor)), dg + "-percentile, " + object + ", " + instance + ", 1" + values + "\n");

    zor_process_print_handle_t handle = {zor_datalist_create(), 0, {}, nullptr, 0};
    zor_process_engine_print_object_instance_data_with_handle(&engine, &cursor, nullptr, nullptr, nullptr, 7,
                                                              &handle);
    pvg_prt_handle = nullptr;
    // A name of n letters takes as many pieces as begin before its end, and at least one.
    const auto pieces = [&](std::size_t width) { return length == 0 ? 1 : (length + width - 1) / width; };
    const std::size_t names = 2 * pieces(17) - 1 + 2 * pieces(13) - 1 + 2 * pieces(39) - 1;
    EXPECT_EQ(zor_datalist_count(handle.datalist), names + 30) << length;
    zor_datalist_free(handle.datalist);
    dg_name = dg.c_str();
    EXPECT_EQ(zor_process_engine_set_dg(&engine, 1, &dg_name, nullptr), 0u);
  }
}

TEST_F(LimitsTest, ManyObjectsAndManyInstances) {
  const std::size_t sizes[][2] = {{1000, 10}, {1, 100000}};
  for (const auto &[objects, instances] : sizes) {
    MakeDg(ZOR_PROCESS_FLAG_SUMMARY);
    std::vector<std::string> names;
    for (std::size_t i = 0; i < objects; ++i) names.push_back("object-" + std::to_string(i));
    std::vector<Column> columns = {{"key", 0}};
    for (const std::string &name : names) {
      ASSERT_EQ(MakeObject(name.c_str(), 0), 0u);
      columns.push_back({name.c_str(), ZOR_PROCESS_DATA_TYPE_UINT32});
    }
    ASSERT_EQ(Template(columns), 0u);
    const std::vector<std::optional<Value>> values(objects, 3u);
    for (std::size_t i = 0; i < instances; ++i) ASSERT_EQ(Row(std::to_string(i).c_str(), values), 0u);
    ASSERT_EQ(zor_process_engine_clear_dg_data(&engine, "ifstats", 1, 0), 0u);
    const std::string records = WithoutTime(Collect());
    EXPECT_EQ(static_cast<std::size_t>(std::count(records.begin(), records.end(), '\n')), objects * instances);
    EXPECT_THAT(records, ::testing::EndsWith("ifstats-summary, " + names.back() + ", " +
                                             std::to_string(instances - 1) + ", 1, 3, 3, 3.000\n"));
    SetDg(ZOR_PROCESS_OPER_DELETE, "ifstats");
  }
}
