// What the statistics come to in figures, and at the ends of numbers. Against samples at random they are held by
// fuzz/statistics.cc.

#include <algorithm>
#include <limits>

#include "engine_fixture.h"

__extension__ using Wide = unsigned __int128;

template <class V>
class StatisticsTest : public ::testing::Test {
 protected:
  static constexpr V kMin = std::numeric_limits<V>::min();
  static constexpr V kMax = std::numeric_limits<V>::max();
};
TYPED_TEST_SUITE(StatisticsTest, ValueTypes);

// The defining inequality of the running count, where no walk over values can follow. With weights 1..r the first j
// with u*j*(j+1) >= k*r*(r+1) is sought; u = 1 and k = 1 make it the last value, u = 2 the one at r / sqrt(2).
TYPED_TEST(StatisticsTest, ServesTheWidestBuckets) {
  using V = TypeParam;
  using U = typename Api<V>::Unsigned;
  constexpr V kMin = TestFixture::kMin, kMax = TestFixture::kMax;
  V vk, vk1;
  const auto locate = [&](std::uint32_t below, V highest, std::uint32_t k, std::uint32_t samples) {
    return Api<V>::GetVkVk1(below, 1000, kMin, highest, k, samples, &vk, &vk1);
  };
  EXPECT_EQ(locate(0, kMax, 1, 1), 1u);
  EXPECT_EQ(vk, kMax);
  EXPECT_EQ(locate(900, kMax, 1, 1), 1u);  // falling: the first weight rounds up
  EXPECT_EQ(vk, kMin);
  EXPECT_EQ(locate(500, kMax, 250, 500), 1u);
  EXPECT_EQ(vk, static_cast<V>(static_cast<U>(kMin) + std::numeric_limits<U>::max() / 2));
  // The first of two samples ends where j (j + 1) / 2 reaches half of n (n + 1) / 2, and not before.
  for (U less = 0; less < 40; ++less) {
    const Wide n = Wide{std::numeric_limits<U>::max()} - less + 1;
    EXPECT_EQ(locate(0, static_cast<V>(kMax - static_cast<V>(less)), 1, 2), 0u);
    const Wide j = static_cast<U>(static_cast<U>(vk) - static_cast<U>(kMin)) + Wide{1};
    const Wide half = n % 2 == 0 ? n / 2 * (n + 1) : n * ((n + 1) / 2);
    EXPECT_LT((j - 1) * j, half);
    EXPECT_GE(j * (j + 1), half);
  }
}

// Ranks just below a range, at its extremes, and in sub-ranges whose bounds are products that the type cannot hold.
TYPED_TEST(StatisticsTest, FindsRanksAtTheEdges) {
  using V = TypeParam;
  using A = Api<V>;
  constexpr V kHalf = static_cast<V>(std::numeric_limits<typename A::Unsigned>::max() / 2), kThird = kHalf / 3;
  const auto find = [](V low, V high, const std::vector<V> &samples, std::uint32_t rank, V min,
                       std::uint32_t code = 0) {
    typename A::RangeCounters range = {};
    EXPECT_EQ(A::RangeInit(&range, low, high, 3), 0u);
    for (const V v : samples) A::RangeInsert(&range, v);
    V vk = 0, vk1 = 0;
    std::uint32_t below = 0, cursor = 0;
    EXPECT_EQ(A::RangeFind(&range, &rank, static_cast<std::uint32_t>(samples.size()), min, samples.back(), &vk,
                           &vk1, &below, 1, &cursor),
              code);
    std::free(range.pu16_counters);
    return vk;
  };
  EXPECT_EQ(find(50, 59, {49, 49, 49, 49, 55}, 2, 49), 49);
  // Extremes may contradict the counts by what rounding can do, and not by more.
  EXPECT_EQ(find(50, 59, {51, 55, 70}, 2, 58), 56);
  find(50, 59, {51, 55, 70}, 2, 59, 2);
  const std::vector<V> samples = {0,         kHalf / 2, kHalf / 2, kHalf / 2, kHalf / 2,
                                  kHalf - 9, kHalf - 9, kHalf - 9, kHalf - 1};
  for (const std::uint32_t rank : {2u, 5u, 8u}) {
    EXPECT_THAT(find(0, kHalf, samples, rank, 0),
                rank == 8 ? ::testing::AllOf(::testing::Ge(kThird * 2), ::testing::Le(kHalf))
                          : ::testing::AllOf(::testing::Ge(kThird), ::testing::Le(kThird * 2 + 2)));
  }
}

// With buckets around the range: its start follows the last sample below it, the first bucket above the last one
// inside, and the lowest bucket the last of the samples for which there was none.
TYPED_TEST(StatisticsTest, FindsRanksAcrossBuckets) {
  using V = TypeParam;
  using A = Api<V>;
  const auto find = [](std::uint16_t cap, const std::vector<V> &samples, const std::vector<V> &vk,
                       const std::vector<V> &vk1) {
    typename A::RangeCounters range = {};
    typename A::DynamicCounters dynamic = {};
    ASSERT_EQ(A::RangeInit(&range, 100, 110, 10), 0u);
    A::DynamicInit(&dynamic, &range, cap);
    for (const V v : samples) {
      if (A::DynamicInsert(&dynamic, v) == -2) A::RangeInsert(&range, v);
    }
    const std::uint32_t ranks[] = {2, 3, 4, 5, 6, 7};
    std::vector<V> found(6), next(6);
    std::uint32_t cursor = 0;
    const auto [min, max] = std::minmax_element(samples.begin(), samples.end());
    for (const std::uint32_t code : {0u, 2u}) {  // then there is no rank left
      EXPECT_EQ(A::DynamicFind(&dynamic, ranks, 8, *min, *max, found.data(), next.data(), nullptr, 6, &cursor),
                code);
    }
    EXPECT_EQ(found, vk);
    EXPECT_EQ(next, vk1);
    A::DynamicUninit(&dynamic);
    std::free(range.pu16_counters);
  };
  find(10, {80, 90, 99, 100, 105, 109, 115, 120}, {91, 99, 101, 105, 109, 115}, {98, 100, 105, 109, 115, 119});
  find(2, {96, 116, 10, 20, 30, 200, 210, 220}, {80, 95, 97, 116, 117, 136}, {81, 96, 100, 117, 118, 137});
}

TYPED_TEST(StatisticsTest, AnalyzerLearnsThenCounts) {
  using V = TypeParam;
  using A = Api<V>;
  typename A::Analyzer analyzer = {};
  EXPECT_EQ(A::AnalyzerInit(&analyzer, 0, 10, 10), 1u);
  ASSERT_EQ(A::AnalyzerInit(&analyzer, 1000, 10, 10), 0u);
  for (int i = 1; i <= 1000; ++i) {
    EXPECT_EQ(analyzer.stage, STATS_ANALYZER_LEARNING);
    EXPECT_EQ(A::AnalyzerInsert(&analyzer, static_cast<V>((i * 7) % 1000)), 0);
  }
  EXPECT_EQ(analyzer.stage, STATS_ANALYZER_ANALYZING);
  for (int v : {500, 999, 1, 0}) EXPECT_EQ(A::AnalyzerInsert(&analyzer, static_cast<V>(v)), 0);
  A::AnalyzerClear(&analyzer);  // only ends learning
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
  A::AnalyzerUninit(&analyzer);

  for (int samples : {1, 0}) {  // learning ended early
    analyzer = {};
    ASSERT_EQ(A::AnalyzerInit(&analyzer, 10000, 10, 10), 0u);
    typename A::FixedPoint untouched = {7, 7};
    EXPECT_EQ(A::AnalyzerValues(&analyzer, g_stats_percentile_1000, &untouched, 1), 1u);
    EXPECT_EQ(untouched.int_part, 7);
    if (samples) A::AnalyzerInsert(&analyzer, V{10});
    const std::string text = Printed([&] { A::AnalyzerPrint(&analyzer); });
    EXPECT_THAT(text, ::testing::HasSubstr("Learner data:\nSamples: Expected = 10000, Got = "));
    A::AnalyzerClear(&analyzer);
    std::uint32_t cursor = 0, rank = 3;  // a place that holds no sample
    V vk, vk1;
    EXPECT_EQ(A::LearnerFind(&analyzer.learner, &rank, 10000, 0, 9, &vk, &vk1, nullptr, 1, &cursor), 2u);
    EXPECT_EQ(A::AnalyzerInsert(&analyzer, V{10}), samples ? 0 : -3);
    EXPECT_EQ(analyzer.stage, samples ? STATS_ANALYZER_ANALYZING : STATS_ANALYZER_ERROR);
    EXPECT_EQ(analyzer.range_counters.End, samples ? V{11} : V{0});
    A::AnalyzerUninit(&analyzer);
  }
}

// A count of 16 or 32 bits, set to its last value, and one more sample.
TYPED_TEST(StatisticsTest, CountersStopOrWrap) {
  using V = TypeParam;
  using A = Api<V>;
  typename A::Summary summary = {5, 5, 5, UINT32_MAX};
  EXPECT_EQ(A::SummaryEval(&summary, 7), 0u);
  EXPECT_EQ(std::tuple(summary.Vmax, summary.Vtotal, summary.u32_no_of_samples), std::tuple(7, 12, 0u));  // wraps

  typename A::RangeCounters range = {};
  typename A::DynamicCounters dynamic = {};
  ASSERT_EQ(A::RangeInit(&range, 10, 19, 1), 0u);
  A::DynamicInit(&dynamic, &range, 0);
  const struct {
    std::uint16_t *counter;
    V sample;
    std::int32_t code;
    std::uint16_t *exceptions;
  } cases[] = {{&range.u16_min_exception_counter, 9, -1, &dynamic.min_list.exceptions},
               {range.pu16_counters, 15, 0, nullptr},
               {&range.u16_max_exception_counter, 20, 1, &dynamic.max_list.exceptions}};
  for (const auto &c : cases) {
    *c.counter = 65534;
    range.u16_no_of_samples = 65535;
    EXPECT_EQ(A::RangeInsert(&range, c.sample), c.code);
    EXPECT_EQ(A::RangeInsert(&range, c.sample), 3);
    EXPECT_EQ(std::tuple(*c.counter, range.u16_no_of_samples), std::tuple(65535, 0));
    if (!c.exceptions) continue;
    *c.exceptions = 65534;
    EXPECT_EQ(A::DynamicInsert(&dynamic, c.sample), 2);
    EXPECT_EQ(A::DynamicInsert(&dynamic, c.sample), 3);
    EXPECT_EQ(*c.exceptions, 65535);
  }
  dynamic.MaxNdc = 1;
  EXPECT_EQ(A::DynamicInsert(&dynamic, 20), 0);
  dynamic.max_list.head->Count = 65535;
  EXPECT_EQ(A::DynamicInsert(&dynamic, 20), 3);
  A::DynamicUninit(&dynamic);
  std::free(range.pu16_counters);
}

TEST(StatisticsPrint, ShowsDecimalValues) {
  EXPECT_THAT(g_stats_percentile_1000,
              ::testing::ElementsAre(0, 130, 2280, 15870, 50000, 84130, 97720, 99870, 100000));
  const struct {
    std::int64_t total;
    std::uint32_t count;
    std::string average;
  } cases[] = {
      {2, 3, "0.666"},     {10, 3, "3.333"},  {-1, 3, "-0.333"},       {-7, 2, "-3.500"},
      {-1, 3000, "0.000"}, {-6, 3, "-2.000"}, {-2999, 1000, "-2.999"}, {-2147483649, 2, "-1073741824.500"}};
  for (const auto &c : cases) {
    const stats_summary_int32_t narrow = {0, 0, c.total, c.count};
    const stats_summary_int64_t wide = {0, 0, c.total, c.count};
    const std::string line = "Average: " + c.average + "\n";
    EXPECT_THAT(Printed([&] { stats_summary_print_int32(&narrow); }), ::testing::EndsWith(line));
    EXPECT_THAT(Printed([&] { stats_summary_print_int64(&wide); }), ::testing::EndsWith(line));
  }
  // The widest gap.
  const auto lookup = [](void *next, const std::uint32_t *, std::uint32_t, std::int64_t, std::int64_t,
                         std::int64_t *vk, std::int64_t *vk1, std::uint32_t *, std::uint32_t, std::uint32_t *) {
    *vk = INT64_MIN, *vk1 = *static_cast<std::int64_t *>(next);
    return 0u;
  };
  const std::uint32_t points[] = {99900, 130, 50000, 100001};
  stats_fixed_point_int64_t values[] = {{1, 1}, {INT64_MIN, 1}, {-1, 500}, {INT64_MAX, 999}};
  std::int64_t next = INT64_MAX;
  EXPECT_EQ(stats_percentile_get_values_int64(points, values, 1, 0, 0, 2, lookup, &next), 0u);
  EXPECT_EQ(Printed([&] { stats_percentile_print_int64(points, values, 4); }),
            "P[099.900] = 9204925292781066255.385\nP[000.130] = -9223372036854775807.999\nP[050.000] = -0.500\n"
            "P[100.001] = 9223372036854775807.999\n");
  EXPECT_EQ(stats_percentile_get_values_int64(points, values, 0, 0, 0, 0, lookup, &next), 4u);
  EXPECT_EQ(stats_percentile_get_values_int64(points + 2, values, 2, 0, 0, 2, lookup, &next), 3u);
}
