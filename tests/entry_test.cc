// One instance: its records, headers and report, its baseline, and its operations through the tables.

#include "engine_fixture.h"

class EntryTest : public EngineTest {};
template <class V>
class TypedEntryTest : public EngineTest {};
TYPED_TEST_SUITE(TypedEntryTest, ValueTypes);

// One object over 0 to 99 in ten buckets, the twenty samples of a known distribution, in every kind of output.
TYPED_TEST(TypedEntryTest, RendersRecordsHeadersAndReport) {
  using V = TypeParam;
  this->MakeDg(0);
  ASSERT_EQ(this->MakeObject("rxbytes", ZOR_PROCESS_FLAG_PERCENTILE, 0, 4, 0, 99, 10), 0u);
  ASSERT_EQ(this->Template({{"interface", 0}, {"rxbytes", Api<V>::kTypeCode}}), 0u);
  for (int v : {12, 15, 21, 25, 29, 30, 33, 34, 36, 38, 41, 43, 45, 47, 49, 51, 53, 58, 63, 65}) {
    ASSERT_EQ(this->Row("a-name-of-20-letters", {static_cast<V>(v)}), 0u);
    this->EndOfPoll();
  }
  const std::string summary = "ifstats-summary, rxbytes, a-name-of-20-letters, 20, 12, 65, 39.400\n";
  const std::string percentiles =
      "ifstats-percentile, rxbytes, a-name-of-20-letters, 20, 12.000, 12.000, 12.000, 28.015, 40.000, 50.984, "
      "60.566, 60.975, 65.000\n";
  const std::string headers =
      "Schema-def ifstats-percentile \"%u, %s, %s, %u, %f, %f, %f, %f, %f, %f, %f, %f, %f,\"\n"
      "       Epochtime Object Instance No-Of-Samples <0.000> <0.013> <2.280> <15.870> <50.000> <84.130> <97.720> "
      "<99.870> <100.000>\n";
  auto cursor = this->Cursor();
  EXPECT_EQ(WithoutTime(this->Next(cursor)), percentiles);
  cursor = this->Cursor();
  EXPECT_EQ(WithoutTime(this->Next(cursor, ZOR_PROCESS_OUTPUT_SCHEMA_DEF)), headers);
  ASSERT_EQ(this->MakeObject("rxbytes", ZOR_PROCESS_FLAG_SUMMARY), 0u);  // adds a section to what is rendered
  cursor = this->Cursor();
  EXPECT_EQ(WithoutTime(this->Next(cursor, ZOR_PROCESS_OUTPUT_SCHEMA_DEF | ZOR_PROCESS_OUTPUT_RECORD)),
            "Schema-def ifstats-summary \"%u, %s, %s, %u, %u, %u, %f\"\n"
            "       Epochtime Object Instance No-Of-Samples Min Max Average\n" +
                summary + headers + percentiles);

  const std::uint32_t median = 50;
  std::string report;
  for (const std::string &item : this->Report(7, nullptr, nullptr, &median)) report += item;
  EXPECT_EQ(report,
            "\nObjectname       : rxbytes\n"
            "\nNumber of samples: 20\n"
            "\nSummary Data     :\n"
            "Instance         Min     Max     Sum         Average\n"
            "--------------------------------------------------------\n"
            "a-name-of-20-lett\n"
            "ers              12      65      788         39.400\n"
            "\nDistribution Data:\n"
            "* Buckets with no data are not shown\n"
            "\nInstance     Number of  Range               Range\n"
            "             buckets    start               end\n"
            "-------------------------------------------------------\n"
            "a-name-of-20-\n"
            "letters      10       0                   100                 \n"
            "\nBucket    Bucket         Bucket         Count\n"
            "Index     Start          End\n"
            "------------------------------------------------------\n"
            "2         10.000        20.000        2\n"
            "3         20.000        30.000        3\n"
            "4         30.000        40.000        5\n"
            "5         40.000        50.000        5\n"
            "6         50.000        60.000        3\n"
            "7         60.000        70.000        2\n"
            "\n\nPercentile Data:\n"
            "Instance         : a-name-of-20-letters                   \n"
            "Percentile Values: \n"
            "P[050.000] = 40.000\n"
            "\n");

  // Cleared, it says so.
  EXPECT_EQ(zor_process_engine_clear_dg_data(&this->engine, "ifstats", 7, 1), 0u);
  EXPECT_EQ(WithoutTime(this->Collect()), summary + percentiles);
  cursor = this->Cursor();
  EXPECT_EQ(WithoutTime(this->Next(cursor)),
            "ifstats-summary, rxbytes, a-name-of-20-letters, 0\n"
            "ifstats-percentile, rxbytes, a-name-of-20-letters, 0\n");
  EXPECT_THAT(this->Report(7),
              ::testing::IsSupersetOf({"0       0       0           ", "0.000\n", "No samples\n"}));
}

// Bounds of buckets whose width is no whole number, over negative values, are exact in thousandths; and what is
// asked for later than the data began is not kept.
TEST_F(EntryTest, PrintsBoundsAndWhatIsNotKept) {
  MakeDg(0);
  ASSERT_EQ(MakeObject("drift", 2, 0, 3, static_cast<std::uint64_t>(-11), 88, 3), 0u);
  ASSERT_EQ(MakeObject("narrow", 2, 0, 3, 0, 9, 1), 0u);
  ASSERT_EQ(MakeObject("sum", 3, 0, 4, 0, 9, 2), 0u);
  ASSERT_EQ(Template({{"key", 0}, {"drift", 3}, {"narrow", 1}, {"sum", 4}}), 0u);
  for (std::int64_t v : {-11, 0, 88, -12, 89}) ASSERT_EQ(Row("a", {v, std::int32_t{1}, std::nullopt}), 0u);
  const auto items = Report(2, "drift");
  EXPECT_EQ(items.size(), 14u);
  EXPECT_EQ(items[items.size() - 2], "1         -11.000        22.333        2\n");
  EXPECT_EQ(items.back(), "3         55.666        88.999        1\n");
  EXPECT_EQ(Report(2, "narrow").size(), 4u);  // a single bucket has no table: only the object's headings
  EXPECT_EQ(Row("a", {std::nullopt, std::nullopt, UINT64_MAX}), 0u);
  EXPECT_EQ(Row("a", {std::nullopt, std::nullopt, std::uint64_t{1}}), 11u);  // the sum is full
  EXPECT_THAT(Report(7), ::testing::IsSupersetOf({"18446744073709551615.000\n",
                                                  "1         0.000        5.000        1\n", "Not configured\n"}));
  for (const std::uint16_t later : {1, 4, 8}) {
    ASSERT_EQ(MakeObject("drift", later), 0u);
    auto cursor = Cursor();
    EXPECT_EQ(Next(cursor), "(null)");  // the cursor names the instance, and the walk goes on after it
    EXPECT_NE(cursor.entry, nullptr);
    EXPECT_EQ(Next(cursor), "");
  }
  const zor_process_data_cursor_t dg = Cursor();  // without a handle the report goes to standard output
  EXPECT_THAT(
      Printed([&] { zor_process_engine_print_object_instance_data(&engine, &dg, "drift", "a", nullptr, 4); }),
      ::testing::EndsWith("Percentile Values: \nNot configured\n"));
  // The number of a line is cut where its name has no room.
  zor_process_print_handle_t handle = {zor_datalist_create(), 99998, {}, nullptr, 0};
  zor_process_engine_print_object_instance_data_with_handle(&engine, &dg, "sum", "a", nullptr, 0, &handle);
  pvg_prt_handle = nullptr;
  zor_datalist_item_t item;
  ASSERT_EQ(zor_datalist_get(handle.datalist, 1, &item), 0);
  EXPECT_EQ(std::tuple(std::string(item.name), handle.buf_count), std::tuple("buf1000", 100000));
  zor_datalist_free(handle.datalist);
}

// A baseline through the engine: learning, a record at the end of every period, the refusal to overwrite one,
// refused outliers, and the restart after a count is full.
TYPED_TEST(TypedEntryTest, LearnsABaseline) {
  using V = TypeParam;
  std::uint32_t type = 1, interval = 5, buckets = 4;
  std::uint16_t flags = ZOR_PROCESS_FLAG_BASELINE;
  const char *name = "rx";
  this->MakeDg(0);
  zor_process_attr_t common = {&flags, &buckets, &type, &interval};
  zor_process_object_attr_t attr = {nullptr, &common, nullptr, nullptr, nullptr};
  ASSERT_EQ(zor_process_engine_set_object(&this->engine, 0, "ifstats", &name, &attr), 0u);
  ASSERT_EQ(this->Template({{"key", 0}, {"rx", Api<V>::kTypeCode}}), 0u);
  const auto feed = [&](std::initializer_list<int> values) {
    std::uint32_t code = 0;
    for (int v : values) code = this->Row("a", {static_cast<V>(v)});
    return code;
  };
  EXPECT_EQ(feed({10, 20, 30, 40}), 0u);
  EXPECT_EQ(this->Clear(15), 0u);
  EXPECT_EQ(feed({50}), 0u);
  EXPECT_EQ(this->Collect(), "");  // learning keeps no text
  auto cursor = this->Cursor();
  EXPECT_EQ(
      WithoutTime(this->Next(cursor, 6)),
      "Schema-def ifstats-baseline \"%u, %s, %s, %u, %f, %f, %f, %f, %f, %f, %f, %f, %f\"\n"
      "       Epochtime Object Instance No-Of-Samples <0.000> <0.013> <2.280> <15.870> <50.000> <84.130> <97.720> "
      "<99.870> <100.000>\nifstats-baseline, rx, a, 0\n");
  EXPECT_EQ(feed({30, 30, 30, 30, 30}), 0u);
  EXPECT_EQ(WithoutTime(this->Collect()),
            "ifstats-baseline, rx, a, 5, 30.000, 30.000, 30.000, 30.000, 30.000, 30.000, 30.000, 30.000, 30.000\n");
  EXPECT_EQ(feed({30, 30, 30, 30, 30}), 0u);
  EXPECT_EQ(feed({30, 30, 30, 30, 30}), 11u);  // the record of ten samples still stands
  EXPECT_THAT(WithoutTime(this->Collect()), ::testing::StartsWith("ifstats-baseline, rx, a, 10, "));
  EXPECT_EQ(this->Clear(0), 0u);
  cursor = this->Cursor();
  EXPECT_THAT(Printed([&] { this->Next(cursor, ZOR_PROCESS_OUTPUT_CONSOLE); }),
              ::testing::StartsWith("Object: rx, Instance: a\nAnalyzer: Stage = Analyzing\nVmin = 30, "));
  for (int i = 0; i < 10; ++i) {  // far outside: ten buckets, then refusals that latch the data group
    EXPECT_EQ(feed({1000 + 100 * i}), 0u);
    this->Collect();
  }
  EXPECT_EQ(feed({9000}), 11u);
  EXPECT_EQ(feed({30}), 11u);
  EXPECT_EQ(this->Clear(0), 0u);
  auto *entry = static_cast<typename Api<V>::Entry *>(cursor.entry);
  EXPECT_EQ(std::tuple(entry->analyzer->summary.Vmax, entry->analyzer->summary.u32_no_of_samples),
            std::tuple(V{9000}, 26u));
  std::fill_n(entry->analyzer->range_counters.pu16_counters, 4, std::uint16_t{65535});
  EXPECT_EQ(feed({30}), 0u);
  EXPECT_EQ(std::tuple(entry->analyzer->stage, entry->analyzer->summary.u32_no_of_samples, entry->sample_count,
                       entry->analyzer->range_counters.Nsc, entry->analyzer->dynamic_counters.MaxNdc),
            std::tuple(1u, 0u, 0, 4, 10));
  EXPECT_EQ(feed({31, 32, 33}), 0u);
  EXPECT_EQ(entry->analyzer->summary.u32_no_of_samples, 3u);
}
