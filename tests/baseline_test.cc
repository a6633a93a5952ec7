// Sorted arrays, learners, dynamic counters, analyzers, and the baseline of an instance through the engine.

#include <algorithm>
#include <cmath>
#include <limits>
#include <map>
#include <random>

#include "engine_fixture.h"

namespace {

// A value of the type at a distance from its minimum, so that one table serves signed and unsigned types.
template <class V>
constexpr V FromMin(std::uint64_t distance) {
  using U = typename Api<V>::Unsigned;
  return static_cast<V>(static_cast<U>(std::numeric_limits<V>::min()) + static_cast<U>(distance));
}

}  // namespace

template <class V>
class BaselineTest : public EngineTest {};
TYPED_TEST_SUITE(BaselineTest, ValueTypes);

TYPED_TEST(BaselineTest, SortedArrayKeepsEitherTail) {
  using V = TypeParam;
  using A = Api<V>;
  typename A::SortedArray array;
  std::memset(&array, 0x55, sizeof array);  // the caller's storage holds anything
  EXPECT_EQ(A::ArrayInit(&array, 0), 1u);
  ASSERT_EQ(A::ArrayInit(&array, 3), 0u);
  EXPECT_EQ(Printed([&] { A::ArrayPrint(&array); }),
            "Sorted-Array => Size = 3, Valid-Length = 0\nSorted-Array-Content => \n");
  const auto contents = [&] { return std::vector<V>(array.p_values, array.p_values + array.Valid_Length); };
  std::uint32_t was_full = 7;
  V out = 99;
  for (V v : {5, 1, 3}) EXPECT_EQ(A::ArrayInsert(&array, v, 1, &was_full, &out), 0u);
  EXPECT_EQ(std::tuple(contents(), was_full, out), std::tuple(std::vector<V>{1, 3, 5}, 0u, V{99}));
  EXPECT_EQ(A::ArrayInsert(&array, 4, 0, &was_full, &out), 1u);
  EXPECT_EQ(A::ArrayInsert(&array, 4, 3, &was_full, &out), 0u);
  EXPECT_EQ(std::tuple(contents(), was_full, out), std::tuple(std::vector<V>{1, 3, 5}, 0u, V{99}));
  const struct {
    int value, mode;
    std::uint32_t code;
    int out;
    std::vector<V> contents;
  } steps[] = {{4, 2, 0, 1, {3, 4, 5}}, {3, 2, 1, 3, {3, 4, 5}}, {2, 1, 0, 5, {2, 3, 4}},
               {9, 1, 1, 9, {2, 3, 4}}, {4, 1, 1, 4, {2, 3, 4}}, {9, 2, 0, 2, {3, 4, 9}}};
  for (const auto &step : steps) {
    EXPECT_EQ(A::ArrayInsert(&array, step.value, step.mode, &was_full, &out), step.code);
    EXPECT_EQ(std::tuple(was_full, out, contents()), std::tuple(1u, static_cast<V>(step.out), step.contents));
  }
  EXPECT_EQ(A::ArrayInsert(&array, 1, 1, nullptr, nullptr), 0u);
  EXPECT_EQ(Printed([&] { A::ArrayPrint(&array); }),
            "Sorted-Array => Size = 3, Valid-Length = 3\nSorted-Array-Content => [1][3][4]\n");
  A::ArrayUninit(&array);
  EXPECT_EQ(array.p_values, nullptr);
}

TYPED_TEST(BaselineTest, LearnerCutsOffBothTails) {
  using V = TypeParam;
  using A = Api<V>;
  std::mt19937 random(7);
  for (std::uint32_t expected : {1u, 2u, 3u, 4u, 100u, 769u, 770u, 1000u, 10000u}) {
    typename A::Learner learner = {};
    ASSERT_EQ(A::LearnerInit(&learner, expected), 0u);
    for (int cycle = 0; cycle < 2; ++cycle) {
      std::vector<V> samples;
      for (std::uint32_t i = 0; i < expected; ++i) samples.push_back(FromMin<V>(random() % (2 * expected)));
      V min = 1, max = 2, low = 3, high = 4;
      for (std::uint32_t i = 0; i < expected; ++i) {
        EXPECT_EQ(A::LearnerLearn(&learner, samples[i]), i + 1 == expected ? 1u : 0u);
        if (i + 1 < expected) {
          EXPECT_EQ(A::LearnerRange(&learner, &min, &max, &low, &high), 0u);
        }
      }
      ASSERT_EQ(A::LearnerRange(&learner, &min, &max, &low, &high), 1u);
      std::sort(samples.begin(), samples.end());
      EXPECT_EQ(std::tuple(min, max), std::tuple(samples.front(), samples.back())) << expected;
      EXPECT_LE(low, high);
      if (expected >= 4) {
        const std::uint32_t cut = 13 * expected / 10000;
        EXPECT_EQ(std::tuple(low, high), std::tuple(samples[cut], samples[expected - 1 - cut])) << expected;
      }
      if (expected != 10000) continue;
      std::vector<std::uint32_t> ranks = {1, 2, 13, 9987, 9999, 10000, 5000};
      std::vector<V> vk(7), vk1(7);
      std::uint32_t cursor = 0;
      EXPECT_EQ(
          A::LearnerFind(&learner, ranks.data(), expected, min, max, vk.data(), vk1.data(), nullptr, 7, &cursor),
          2u);
      EXPECT_EQ(cursor, 6u);
      for (std::size_t i : {1u, 2u, 3u, 4u}) {
        EXPECT_EQ(std::tuple(vk[i], vk1[i]), std::tuple(samples[ranks[i] - 1], samples[ranks[i]])) << ranks[i];
      }
      cursor = 0;
      EXPECT_EQ(
          A::LearnerFind(&learner, ranks.data(), expected, min, max, vk.data(), vk1.data(), nullptr, 6, &cursor),
          0u);
      EXPECT_EQ(
          A::LearnerFind(&learner, ranks.data(), expected, min, max, vk.data(), vk1.data(), nullptr, 6, &cursor),
          2u);
    }
    A::LearnerUninit(&learner);
  }
  typename A::Learner learner = {};
  EXPECT_EQ(A::LearnerInit(&learner, 0), 1u);
  ASSERT_EQ(A::LearnerInit(&learner, 10000), 0u);
  A::LearnerLearn(&learner, 5);
  std::uint32_t rank = 1, cursor = 0;
  V vk, vk1;
  EXPECT_EQ(A::LearnerFind(&learner, &rank, 1, 5, 5, &vk, &vk1, nullptr, 1, &cursor), 2u);  // not complete
  EXPECT_EQ(Printed([&] { A::LearnerPrint(&learner); }),
            "Learner data:\nSamples: Expected = 10000, Got = 1\nSorted-Array => Size = 14, Valid-Length = 1\n"
            "Sorted-Array-Content => [5]\nSorted-Array => Size = 14, Valid-Length = 0\nSorted-Array-Content => \n");
  A::LearnerUninit(&learner);
}

namespace {

// Range counters with dynamic counters around them, and the sorted samples that they were given.
template <class V>
struct Around {
  using A = Api<V>;
  Around(V start, V last, std::uint16_t nsc, std::uint16_t cap) {
    EXPECT_EQ(A::RangeInit(&range, start, last, nsc), 0u);
    A::DynamicInit(&dynamic, &range, cap);
  }
  ~Around() {
    A::DynamicUninit(&dynamic);
    std::free(range.pu16_counters);
  }
  std::int32_t Insert(V v) {
    std::int32_t code = A::DynamicInsert(&dynamic, v);
    if (code == -2) code = A::RangeInsert(&range, v);
    if (code == 0 || code == 2) samples.insert(std::upper_bound(samples.begin(), samples.end(), v), v);
    return code;
  }
  std::uint32_t Find(std::vector<std::uint32_t> ranks) {
    cursor = below = 0;
    vk.assign(ranks.size(), 0);
    vk1.assign(ranks.size(), 0);
    return A::DynamicFind(&dynamic, ranks.data(), static_cast<std::uint32_t>(samples.size()), samples.front(),
                          samples.back(), vk.data(), vk1.data(), &below, static_cast<std::uint32_t>(ranks.size()),
                          &cursor);
  }
  typename A::RangeCounters range = {};
  typename A::DynamicCounters dynamic = {};
  std::vector<V> samples, vk, vk1;
  std::uint32_t cursor, below;
};

}  // namespace

TYPED_TEST(BaselineTest, DynamicCountersExtendTheGrid) {
  using V = TypeParam;
  const V zero = std::numeric_limits<V>::min();
  const auto at = [](std::uint64_t distance) { return FromMin<V>(distance); };
  Around<V> around(at(100), at(200), 10, 10);
  EXPECT_EQ(std::tuple(around.dynamic.Range, around.dynamic.NdnMin), std::tuple(11u, 10u));
  EXPECT_EQ(around.Insert(at(100)), 0);
  EXPECT_EQ(around.Insert(at(200)), 0);
  EXPECT_EQ(around.dynamic.max_list.length, 0);
  for (int d : {212, 201, 211, 99, 89, 88, 1, 0}) EXPECT_EQ(around.Insert(at(d)), 0);
  const auto nodes = [](const auto &list) {
    std::vector<std::pair<V, int>> out;
    for (auto *node = list.head; node; node = node->next) out.emplace_back(node->Vstart, node->Count);
    EXPECT_EQ(out.size(), list.length);
    return out;
  };
  using Nodes = std::vector<std::pair<V, int>>;
  EXPECT_EQ(nodes(around.dynamic.max_list), (Nodes{{at(201), 2}, {at(212), 1}}));
  EXPECT_EQ(nodes(around.dynamic.min_list), (Nodes{{zero, 1}, {at(1), 1}, {at(78), 1}, {at(89), 2}}));
  for (int d : {12, 23, 300, 400}) EXPECT_EQ(around.Insert(at(d)), 0);
  EXPECT_EQ(around.Insert(at(50)), 2);  // the cap
  EXPECT_EQ(around.Insert(at(500)), 2);
  EXPECT_EQ(around.Insert(at(98)), 0);
  EXPECT_EQ(around.dynamic.min_list.exceptions + around.dynamic.max_list.exceptions, 2);
  for (int i = 3; i < 65535; ++i) ASSERT_EQ(Api<V>::DynamicInsert(&around.dynamic, at(90)), 0);
  EXPECT_EQ(Api<V>::DynamicInsert(&around.dynamic, at(90)), 3);

  // At the top of the type nothing wraps, and a range of one value still has buckets around it.
  const V top = std::numeric_limits<V>::max();
  Around<V> narrow(top, top, 5, 3);
  EXPECT_EQ(narrow.dynamic.Range, 1u);
  for (V v : {top, static_cast<V>(top - 1), zero, top}) EXPECT_EQ(narrow.Insert(v), 0);
  EXPECT_EQ(nodes(narrow.dynamic.max_list), (Nodes{{top, 2}}));
  EXPECT_EQ(nodes(narrow.dynamic.min_list), (Nodes{{zero, 1}, {static_cast<V>(top - 1), 1}}));
  EXPECT_EQ(narrow.Find({1, 2, 3, 4}), 0u);
  EXPECT_EQ(narrow.vk, (std::vector<V>{zero, static_cast<V>(top - 1), top, top}));
}

TYPED_TEST(BaselineTest, FindsRanksAcrossTheWholeDistribution) {
  using V = TypeParam;
  const auto at = [](std::uint64_t distance) { return FromMin<V>(distance); };
  Around<V> around(at(100), at(200), 10, 10);
  EXPECT_EQ(Printed([&] { Api<V>::DynamicPrint(&around.dynamic); }),
            "Dynamic Counters data:\nMaxNdc = 10, Range = 11, NdnMin = 10\nMin List length = 0\n"
            "List Exceptions count = 0\nMax List length = 0\nList Exceptions count = 0\n");
  for (int d : {80, 90, 99, 100, 150, 199, 205, 230}) around.Insert(at(d));
  ASSERT_EQ(around.Find({1, 2, 3, 4, 5, 6, 7, 8}), 0u);
  EXPECT_EQ(around.cursor, 8u);
  // Every value lies in its sample's bucket; the last below the range is followed by Start, the last inside by the
  // first bucket above.
  for (std::size_t i = 0; i < 8; ++i) {
    EXPECT_LE(around.vk[i], around.vk1[i]) << i;
    EXPECT_LE(around.vk[i], around.vk[i < 7 ? i + 1 : i]) << i;
    const V low = around.vk[i] < around.samples[i] ? around.vk[i] : around.samples[i];
    const V high = around.vk[i] < around.samples[i] ? around.samples[i] : around.vk[i];
    EXPECT_LE(high - low, 11) << i;
  }
  EXPECT_EQ(around.vk1[2], at(100));
  EXPECT_EQ(around.vk1[5], at(201));
  std::uint32_t rank = 5, cursor = 0;
  V vk, vk1;
  EXPECT_EQ(Api<V>::DynamicFind(&around.dynamic, &rank, 8, at(80), at(230), &vk, &vk1, nullptr, 1, &cursor), 0u);
  EXPECT_EQ(vk, around.vk[4]);
  cursor = 1;
  EXPECT_EQ(Api<V>::DynamicFind(&around.dynamic, &rank, 8, at(80), at(230), &vk, &vk1, nullptr, 1, &cursor), 2u);

  // Nothing above the range: the value after its last sample is the next one.
  Around<V> inside(at(100), at(109), 10, 10);
  for (int d : {101, 103, 103, 105}) inside.Insert(at(d));
  inside.samples.push_back(at(109));  // counted nowhere: rank 4 is the last one found
  ASSERT_EQ(inside.Find({1, 2, 4}), 0u);
  EXPECT_EQ(std::tuple(inside.vk[2], inside.vk1[2]), std::tuple(at(105), at(106)));

  // Exceptions on both sides, beyond the outermost buckets.
  Around<V> capped(at(100), at(199), 10, 2);
  for (int d : {95, 205}) ASSERT_EQ(capped.Insert(at(d)), 0);
  for (int d : {10, 20, 30, 500, 600, 700}) ASSERT_EQ(capped.Insert(at(d)), 2);
  ASSERT_EQ(capped.Find({2, 3, 4, 5, 6, 7}), 0u);
  EXPECT_EQ(capped.vk1[1], at(90));  // the first bucket follows the last exception
  EXPECT_LT(capped.vk[0], at(90));
  EXPECT_EQ(capped.vk1[2], at(100));  // the range, empty, follows the buckets below it
  EXPECT_GE(capped.vk[4], at(210));
  EXPECT_LE(capped.vk1[5], at(700));
  Around<V> without(at(100), at(199), 10, 0);  // and without any bucket
  for (int d : {10, 20, 30, 150, 500, 600}) without.Insert(at(d));
  ASSERT_EQ(without.Find({2, 3, 4, 5}), 0u);
  EXPECT_LT(without.vk[1], at(100));
  EXPECT_EQ(without.vk1[1], at(100));
  EXPECT_GE(without.vk[3], at(200));
  // An extreme in the outermost bucket leaves no room for exceptions beyond it: such a rank cannot be served.
  for (int d : {90, 50}) ASSERT_EQ(capped.Insert(at(d)), d == 50 ? 2 : 0);
  Around<V> cornered(at(100), at(199), 10, 1);
  ASSERT_EQ(cornered.Insert(at(0)), 0);
  for (int d : {50, 60}) ASSERT_EQ(cornered.Insert(at(d)), 2);
  EXPECT_EQ(cornered.Find({1, 2, 3}), 2u);
  EXPECT_EQ(cornered.cursor, 1u);
}

namespace {

template <class V>
std::string Values(typename Api<V>::Analyzer &analyzer) {
  typename Api<V>::FixedPoint values[9];
  EXPECT_EQ(Api<V>::AnalyzerValues(&analyzer, g_stats_percentile_1000, values, g_stats_percentile_size), 0u);
  pvg_prt_handle = nullptr;
  return Printed([&] { Api<V>::PercentilePrint(g_stats_percentile_1000, values, 9); });
}

}  // namespace

TYPED_TEST(BaselineTest, AnalyzerLearnsThenCounts) {
  using V = TypeParam;
  using A = Api<V>;
  typename A::Analyzer analyzer = {};
  EXPECT_EQ(A::AnalyzerInit(&analyzer, 0, 10, 10), 1u);
  ASSERT_EQ(A::AnalyzerInit(&analyzer, 1000, 10, 10), 0u);
  typename A::FixedPoint untouched = {7, 7};
  for (int i = 1; i <= 1000; ++i) {
    EXPECT_EQ(analyzer.stage, STATS_ANALYZER_LEARNING);
    EXPECT_EQ(A::AnalyzerInsert(&analyzer, static_cast<V>((i * 7) % 1000)), 0);
  }
  EXPECT_EQ(analyzer.stage, STATS_ANALYZER_ANALYZING);
  EXPECT_EQ(std::tuple(analyzer.range_counters.Start, analyzer.range_counters.End), std::tuple(V{1}, V{999}));
  EXPECT_EQ(analyzer.summary.u32_no_of_samples, 0u);
  for (int v : {500, 999, 1, 0}) EXPECT_EQ(A::AnalyzerInsert(&analyzer, static_cast<V>(v)), 0);
  EXPECT_EQ(
      Printed([&] { A::AnalyzerPrint(&analyzer); }),
      "Analyzer: Stage = Analyzing\nVmin = 0, Vmax = 999\nVtotal = 1500, u32_no_of_samples = 4\nAverage: 375.000\n"
      "Counters data:\nStart = 1, End = 999, Nsc = 10\nNo. of Samples = 2\nCounter[0] = 1\nCounter[5] = 1\n"
      "Min Exception Counter = 0\nMax Exception Counter = 0\nDynamic Counters data:\nMaxNdc = 10, Range = 100, "
      "NdnMin = " +
          std::to_string(static_cast<V>(analyzer.dynamic_counters.NdnMin)) +
          "\nMin List length = 1\nVstart = " + std::to_string(analyzer.dynamic_counters.min_list.head->Vstart) +
          ", Count = 1\nList Exceptions count = 0\nMax List length = 1\nVstart = 999, Count = 1\n"
          "List Exceptions count = 0\n");
  A::AnalyzerClear(&analyzer);  // only ends learning
  EXPECT_EQ(analyzer.summary.u32_no_of_samples, 4u);
  A::AnalyzerUninit(&analyzer);

  // Ended early with two samples, with one, with none.
  for (int samples : {2, 1, 0}) {
    analyzer = {};
    ASSERT_EQ(A::AnalyzerInit(&analyzer, 10000, 10, 10), 0u);
    EXPECT_THAT(
        Printed([&] { A::AnalyzerPrint(&analyzer); }),
        ::testing::StartsWith("Analyzer: Stage = Learning\nVmin = 0, Vmax = 0\nVtotal = 0, u32_no_of_samples = "
                              "0\nLearner data:\nSamples: Expected = 10000, Got = 0\n"));
    EXPECT_EQ(A::AnalyzerValues(&analyzer, g_stats_percentile_1000, &untouched, 1), 1u);
    EXPECT_EQ(untouched.int_part, 7);
    for (int i = 0; i < samples; ++i) A::AnalyzerInsert(&analyzer, static_cast<V>(10 + i));
    A::AnalyzerClear(&analyzer);
    EXPECT_EQ(analyzer.stage, samples ? STATS_ANALYZER_ANALYZING : STATS_ANALYZER_ERROR);
    for (std::uint32_t rank : {3u, 9999u}) {  // places that hold no sample
      std::uint32_t cursor = 0;
      V vk, vk1;
      EXPECT_EQ(A::LearnerFind(&analyzer.learner, &rank, 10000, 0, 9, &vk, &vk1, nullptr, 1, &cursor), 2u);
    }
    EXPECT_EQ(A::AnalyzerInsert(&analyzer, V{10}), samples ? 0 : -3);
    if (samples) {
      EXPECT_EQ(analyzer.range_counters.End, static_cast<V>(10 + samples));
    } else {
      EXPECT_EQ(Printed([&] { A::AnalyzerPrint(&analyzer); }),
                "Analyzer: Stage = Error\nVmin = 0, Vmax = 0\nVtotal = 0, u32_no_of_samples = 0\n");
    }
    A::AnalyzerUninit(&analyzer);
  }
}

// Percentiles of a stream that keeps to what was learnt stay within a bucket's width of the exact ones.
TYPED_TEST(BaselineTest, EstimatesWithinABucket) {
  using V = TypeParam;
  using A = Api<V>;
  typename A::Analyzer analyzer = {};
  ASSERT_EQ(A::AnalyzerInit(&analyzer, 2000, 100, 10), 0u);
  std::mt19937 random(3);
  std::normal_distribution<double> normal(5000, 700);
  std::vector<double> samples;
  for (int i = 0; i < 20000; ++i) {
    const auto v = static_cast<V>(normal(random));
    const auto code = A::AnalyzerInsert(&analyzer, v);
    EXPECT_TRUE(code == 0 || code == 2);
    if (i >= 2000) samples.push_back(static_cast<double>(v));
  }
  std::sort(samples.begin(), samples.end());
  typename A::FixedPoint values[9];
  ASSERT_EQ(A::AnalyzerValues(&analyzer, g_stats_percentile_1000, values, 9), 0u);
  for (int i = 0; i < 9; ++i) {
    const double exact = samples[static_cast<std::size_t>(g_stats_percentile_1000[i] / 100000.0 * 17999)];
    EXPECT_NEAR(static_cast<double>(values[i].int_part), exact,
                static_cast<double>(analyzer.dynamic_counters.Range) + 1)
        << i;
  }
  A::AnalyzerUninit(&analyzer);
}

// An instance's baseline through the engine: learning, records at the end of every period, the refusal to overwrite
// one, the report, a refused outlier, and the restart after a count is full.
TYPED_TEST(BaselineTest, LivesInTheEngine) {
  using V = TypeParam;
  std::uint32_t type = 1, interval = 5;
  std::uint16_t flags = ZOR_PROCESS_FLAG_BASELINE;
  std::uint32_t buckets = 4;
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
  EXPECT_EQ(zor_process_engine_clear_dg_data(&this->engine, "ifstats", 15, 0), 0u);
  EXPECT_EQ(this->Collect(), "");  // learning keeps no text
  EXPECT_EQ(feed({50}), 0u);
  EXPECT_EQ(this->Collect(), "");
  auto cursor = this->Cursor();
  EXPECT_EQ(
      WithoutTime(this->Next(cursor, 6)),
      "Schema-def ifstats-baseline \"%u, %s, %s, %u, %f, %f, %f, %f, %f, %f, %f, %f, %f\"\n"
      "       Epochtime Object Instance No-Of-Samples <0.000> <0.013> <2.280> <15.870> <50.000> <84.130> <97.720> "
      "<99.870> <100.000>\nifstats-baseline, rx, a, 0\n");
  EXPECT_EQ(feed({30, 30, 30, 30}), 0u);
  EXPECT_EQ(this->Collect(), "");
  EXPECT_EQ(feed({30}), 0u);
  EXPECT_EQ(WithoutTime(this->Collect()),
            "ifstats-baseline, rx, a, 5, 30.000, 30.000, 30.000, 30.000, 30.000, 30.000, "
            "30.000, 30.000, 30.000\n");
  EXPECT_EQ(feed({30, 30, 30, 30, 30}), 0u);
  EXPECT_EQ(feed({30, 30, 30, 30, 30}), 11u);  // the record of ten samples still stands
  EXPECT_EQ(feed({30}), 11u);
  EXPECT_THAT(WithoutTime(this->Collect()), ::testing::StartsWith("ifstats-baseline, rx, a, 10, "));
  EXPECT_EQ(zor_process_engine_clear_dg_data(&this->engine, "ifstats", 0, 0), 0u);

  cursor = this->Cursor();
  const std::string console = Printed([&] { this->Next(cursor, ZOR_PROCESS_OUTPUT_CONSOLE); });
  EXPECT_THAT(console, ::testing::StartsWith("Object: rx, Instance: a\nAnalyzer: Stage = Analyzing\nVmin = 30, "));

  const auto *entry = static_cast<typename Api<V>::Entry *>(cursor.entry);
  EXPECT_EQ(entry->analyzer->summary.u32_no_of_samples, 15u);
  interval = 100;  // far outside: ten buckets, then refusals that latch the data group
  for (int i = 0; i < 10; ++i) {
    EXPECT_EQ(feed({1000 + 100 * i}), 0u);
    std::free(zor_process_engine_get_clear_buffer(&cursor));
    zor_process_engine_set_clear_buffer(&cursor, nullptr);
  }
  EXPECT_EQ(feed({9000}), 11u);
  EXPECT_EQ(feed({30}), 11u);
  EXPECT_EQ(zor_process_engine_clear_dg_data(&this->engine, "ifstats", 0, 0), 0u);
  EXPECT_EQ(entry->analyzer->summary.Vmax, 9000);

  const V value = 30;
  std::uint32_t ended = 0;
  for (int i = 15; i < 65535; ++i) {
    g_zor_poi_entry_insert_funcs[Api<V>::kTypeCode - 1](cursor.entry, &value, &ended);
    std::free(zor_process_engine_get_clear_buffer(&cursor));
    zor_process_engine_set_clear_buffer(&cursor, nullptr);
  }
  EXPECT_EQ(entry->analyzer->summary.u32_no_of_samples, 65546u);
  EXPECT_EQ(g_zor_poi_entry_insert_funcs[Api<V>::kTypeCode - 1](cursor.entry, &value, &ended), 0);
  EXPECT_EQ(std::tuple(entry->analyzer->stage, entry->analyzer->summary.u32_no_of_samples, entry->sample_count),
            std::tuple(1u, 0u, 0));
  EXPECT_EQ(std::tuple(entry->analyzer->range_counters.Nsc, entry->analyzer->dynamic_counters.MaxNdc),
            std::tuple(4, 10));
  EXPECT_EQ(feed({31, 32, 33}), 0u);
  EXPECT_EQ(std::tuple(entry->analyzer->summary.Vmin, entry->analyzer->summary.u32_no_of_samples),
            std::tuple(V{31}, 3u));
}
