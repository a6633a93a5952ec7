// What the statistics come to in figures, and at the ends of numbers. Against samples at random they are held by
// fuzz/statistics.cc.

#include <algorithm>
#include <limits>

#include "engine_fixture.h"

__extension__ using Wide = unsigned __int128;

template <class V>
class StatisticsTest : public ::testing::Test {
 protected:
  using A = Api<V>;
  static constexpr V kMin = std::numeric_limits<V>::min();
  static constexpr V kMax = std::numeric_limits<V>::max();

  ~StatisticsTest() override {
    A::DynamicUninit(&dynamic);
    std::free(range.pu16_counters);
  }

  // Counts samples, given as distances from the type's minimum, in a range with `cap` buckets outside, or without.
  void Count(std::uint64_t start, std::uint64_t last, std::uint16_t nsc, std::uint16_t cap,
             const std::vector<std::uint64_t> &distances) {
    A::DynamicUninit(&dynamic);
    std::free(range.pu16_counters);
    ASSERT_EQ(A::RangeInit(&range, At(start), At(last), nsc), 0u);
    A::DynamicInit(&dynamic, &range, cap);
    samples.clear();
    for (const std::uint64_t distance : distances) {
      if (cap == kNoBuckets || A::DynamicInsert(&dynamic, At(distance)) == -2) A::RangeInsert(&range, At(distance));
      samples.push_back(At(distance));
    }
    std::sort(samples.begin(), samples.end());
  }
  static V At(std::uint64_t distance) { return static_cast<V>(static_cast<typename A::Unsigned>(kMin) + distance); }

  // The ranks, as pairs of distances; what comes back is the code and the number of ranks that were served.
  std::pair<std::uint32_t, std::uint32_t> Find(bool is_dynamic, std::vector<std::uint32_t> ranks) {
    std::uint32_t cursor = 0;
    below = 0;
    vk.assign(ranks.size(), 0);
    vk1.assign(ranks.size(), 0);
    void *record = is_dynamic ? static_cast<void *>(&dynamic) : &range;
    const std::uint32_t code = (is_dynamic ? A::DynamicFind : A::RangeFind)(
        record, ranks.data(), static_cast<std::uint32_t>(samples.size()), samples.front(), samples.back(),
        vk.data(), vk1.data(), &below, static_cast<std::uint32_t>(ranks.size()), &cursor);
    return {code, cursor};
  }

  static constexpr std::uint16_t kNoBuckets = 65535;
  typename A::RangeCounters range = {};
  typename A::DynamicCounters dynamic = {};
  std::vector<V> samples, vk, vk1;
  std::uint32_t below = 0;
};
TYPED_TEST_SUITE(StatisticsTest, ValueTypes);

using Served = std::pair<std::uint32_t, std::uint32_t>;

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
  EXPECT_EQ(vk, this->At(std::numeric_limits<U>::max() / 2));
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

TYPED_TEST(StatisticsTest, CountsAndFindsWithinTheRange) {
  using V = TypeParam;
  using A = Api<V>;
  auto &range = this->range;
  this->Count(10, 19, 3, this->kNoBuckets, {9, 10, 11, 12, 13, 14, 15, 16, 17, 18, 19, 20});
  EXPECT_EQ(std::vector(range.pu16_counters, range.pu16_counters + 3), (std::vector<std::uint16_t>{4, 3, 3}));
  EXPECT_EQ(std::tuple(A::RangeInit(&range, 5, 5, 0), A::RangeInit(&range, 5, 4, 1)), std::tuple(1u, 2u));

  std::free(range.pu16_counters);
  ASSERT_EQ(A::RangeInit(&range, 0, 99, 10), 0u);
  this->samples = {12, 15, 21, 25, 29, 30, 33, 34, 36, 38, 41, 43, 45, 47, 49, 51, 53, 58, 63, 65};
  for (const V sample : this->samples) A::RangeInsert(&range, sample);
  EXPECT_EQ(this->Find(false, {1, 1, 1, 4, 10, 16, 19, 19, 20}), Served(0, 9));
  EXPECT_EQ(this->vk, (std::vector<V>{12, 12, 12, 28, 37, 50, 60, 60, 65}));
  EXPECT_EQ(this->vk1, (std::vector<V>{12, 12, 12, 29, 43, 51, 61, 61, 65}));
  EXPECT_EQ(this->below, 18u);
  EXPECT_EQ(this->Find(false, {}), Served(2, 0));
  A::RangeInsert(&range, 100);
  EXPECT_EQ(Printed([&] { A::RangePrint(&range); }),
            "Counters data:\nStart = 0, End = 100, Nsc = 10\nNo. of Samples = 21\nCounter[1] = 2\nCounter[2] = 3\n"
            "Counter[3] = 5\nCounter[4] = 5\nCounter[5] = 3\nCounter[6] = 2\nMin Exception Counter = 0\n"
            "Max Exception Counter = 1\n");
}

// Where samples lie outside the range or the counts do not add up.
TYPED_TEST(StatisticsTest, FindsOutsideTheRange) {
  const auto at = TestFixture::At;
  this->Count(50, 59, 10, this->kNoBuckets, {10, 20, 30, 40, 55, 56, 70, 80, 90});
  // Ranks 2 and 3 lie below Start, 5 in the range, 6 is the range's last sample, 7 and 8 lie above it.
  EXPECT_EQ(this->Find(false, {2, 3, 5, 6, 7, 8}), Served(0, 6));
  EXPECT_EQ(std::tuple(this->vk[2], this->vk1[2], this->vk[3]), std::tuple(at(55), at(56), at(56)));
  EXPECT_EQ(this->vk1[3], this->vk[4]);  // the first of the samples above
  EXPECT_TRUE(std::is_sorted(this->vk.begin(), this->vk.end()));
  EXPECT_THAT(this->vk1, ::testing::Each(::testing::Le(at(90))));

  this->Count(50, 59, 10, this->kNoBuckets, {51, 55, 70});
  EXPECT_EQ(this->Find(false, {2}), Served(0, 1));
  EXPECT_EQ(this->vk1[0], at(70));  // the one sample above
  this->samples.resize(10, at(70));
  EXPECT_EQ(this->Find(false, {2, 5, 9}), Served(2, 1));  // ranks beyond what was counted
  // Extremes may contradict the counts by what rounding can do, and not by more.
  this->samples = {at(57), at(58), at(70)};
  EXPECT_EQ(this->Find(false, {2}), Served(0, 1));
  EXPECT_EQ(this->vk[0], at(55));
  this->samples[0] = at(58);
  EXPECT_EQ(this->Find(false, {2}), Served(2, 0));
}

TYPED_TEST(StatisticsTest, FindsAcrossTheWholeDistribution) {
  using V = TypeParam;
  const auto at = TestFixture::At;
  this->Count(100, 200, 10, 10, {80, 90, 99, 100, 150, 199, 205, 230});
  ASSERT_EQ(this->Find(true, {1, 2, 3, 4, 5, 6, 7, 8}), Served(0, 8));
  // The last below the range is followed by Start, the last inside by the first bucket above.
  EXPECT_EQ(std::tuple(this->vk1[2], this->vk1[5]), std::tuple(at(100), at(201)));
  std::uint32_t rank = 5, cursor = 0;
  V vk, vk1;
  const auto find = [&] {
    return Api<V>::DynamicFind(&this->dynamic, &rank, 8, at(80), at(230), &vk, &vk1, nullptr, 1, &cursor);
  };
  EXPECT_EQ(find(), 0u);
  EXPECT_EQ(vk, this->vk[4]);
  EXPECT_EQ(find(), 2u);

  this->Count(100, 109, 10, 10, {101, 103, 103, 105});
  this->samples.push_back(at(109));  // counted nowhere: rank 4 is the last one found
  ASSERT_EQ(this->Find(true, {1, 2, 4}), Served(0, 3));
  EXPECT_EQ(std::tuple(this->vk[2], this->vk1[2]), std::tuple(at(105), at(106)));

  // Exceptions on both sides, beyond the outermost buckets.
  this->Count(100, 199, 10, 2, {95, 205, 10, 20, 30, 500, 600, 700});
  EXPECT_EQ(this->dynamic.min_list.exceptions + this->dynamic.max_list.exceptions, 6);
  ASSERT_EQ(this->Find(true, {2, 3, 4, 5, 6, 7}), Served(0, 6));
  EXPECT_EQ(this->vk1[1], at(90));  // the first bucket follows the last exception
  EXPECT_LT(this->vk[0], at(90));
  EXPECT_EQ(this->vk1[2], at(100));  // the range, empty, follows the buckets below it
  EXPECT_GE(this->vk[4], at(210));
  EXPECT_LE(this->vk1[5], at(700));
  this->Count(100, 199, 10, 0, {10, 20, 30, 150, 500, 600});  // without any bucket
  ASSERT_EQ(this->Find(true, {2, 3, 4, 5}), Served(0, 4));
  EXPECT_LT(this->vk[1], at(100));
  EXPECT_EQ(this->vk1[1], at(100));
  EXPECT_GE(this->vk[3], at(200));
  // An extreme in the outermost bucket leaves no room for exceptions beyond it: such a rank cannot be served.
  this->Count(100, 199, 10, 1, {0, 50, 60});
  EXPECT_EQ(this->Find(true, {1, 2, 3}), Served(2, 1));
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

  for (int samples : {2, 1, 0}) {  // learning ended early
    analyzer = {};
    ASSERT_EQ(A::AnalyzerInit(&analyzer, 10000, 10, 10), 0u);
    typename A::FixedPoint untouched = {7, 7};
    EXPECT_EQ(A::AnalyzerValues(&analyzer, g_stats_percentile_1000, &untouched, 1), 1u);
    EXPECT_EQ(untouched.int_part, 7);
    for (int i = 0; i < samples; ++i) A::AnalyzerInsert(&analyzer, static_cast<V>(10 + i));
    EXPECT_THAT(Printed([&] { A::AnalyzerPrint(&analyzer); }),
                ::testing::StartsWith("Analyzer: Stage = Learning\nVmin = 0, Vmax = 0\nVtotal = 0, "
                                      "u32_no_of_samples = 0\nLearner data:\nSamples: Expected = 10000, Got = " +
                                      std::to_string(samples) + "\nSorted-Array => Size = 14, Valid-Length = "));
    A::AnalyzerClear(&analyzer);
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

// A count of 16 or 32 bits, set to its last value, and one more sample.
TYPED_TEST(StatisticsTest, CountersStopOrWrap) {
  using V = TypeParam;
  using A = Api<V>;
  typename A::Summary summary = {5, 5, 5, UINT32_MAX};
  EXPECT_EQ(A::SummaryEval(&summary, 7), 0u);
  EXPECT_EQ(std::tuple(summary.Vmax, summary.Vtotal, summary.u32_no_of_samples), std::tuple(7, 12, 0u));  // wraps

  auto &range = this->range;
  ASSERT_EQ(A::RangeInit(&range, 10, 19, 1), 0u);
  A::DynamicInit(&this->dynamic, &range, 0);
  const struct {
    std::uint16_t *counter;
    V sample;
    std::int32_t code;
    std::uint16_t *exceptions;
  } cases[] = {{&range.u16_min_exception_counter, 9, -1, &this->dynamic.min_list.exceptions},
               {range.pu16_counters, 15, 0, nullptr},
               {&range.u16_max_exception_counter, 20, 1, &this->dynamic.max_list.exceptions}};
  for (const auto &c : cases) {
    *c.counter = 65534;
    range.u16_no_of_samples = 65535;
    EXPECT_EQ(A::RangeInsert(&range, c.sample), c.code);
    EXPECT_EQ(A::RangeInsert(&range, c.sample), 3);
    EXPECT_EQ(std::tuple(*c.counter, range.u16_no_of_samples), std::tuple(65535, 0));
    if (!c.exceptions) continue;
    *c.exceptions = 65534;
    EXPECT_EQ(A::DynamicInsert(&this->dynamic, c.sample), 2);
    EXPECT_EQ(A::DynamicInsert(&this->dynamic, c.sample), 3);
    EXPECT_EQ(*c.exceptions, 65535);
  }
  this->dynamic.MaxNdc = 1;
  EXPECT_EQ(A::DynamicInsert(&this->dynamic, 20), 0);
  this->dynamic.max_list.head->Count = 65535;
  EXPECT_EQ(A::DynamicInsert(&this->dynamic, 20), 3);
}

// Samples at both ends of the type and in its middle, over ranges at its ends, given or learnt, in one bucket and
// in the most that there can be: the extremes are exact, and between them values rise.
TYPED_TEST(StatisticsTest, RangesReachBothEndsOfTheType) {
  using V = TypeParam;
  using A = Api<V>;
  constexpr V kMin = TestFixture::kMin, kMax = TestFixture::kMax, kMiddle = V(kMin / 2 + kMax / 2);
  const V ranges[][2] = {{kMin, kMax},    {kMin, kMin},     {kMax, kMax},    {kMin, kMiddle},
                         {kMiddle, kMax}, {kMax - 1, kMax}, {kMin, kMin + 1}};
  for (const auto &[low, high] : ranges) {
    for (const std::uint16_t buckets : {1, 65535}) {
      typename A::RangeCounters range = {};
      typename A::Analyzer analyzer = {};
      ASSERT_EQ(A::RangeInit(&range, low, high, buckets), 0u);
      ASSERT_EQ(A::AnalyzerInit(&analyzer, 2, buckets, 10), 0u);
      for (const V v : {low, high}) EXPECT_EQ(A::AnalyzerInsert(&analyzer, v), 0);
      ASSERT_EQ(analyzer.stage, STATS_ANALYZER_ANALYZING);
      for (const V v : {kMin, kMax, kMiddle, kMax, kMin}) {
        A::RangeInsert(&range, v);
        analyzer.summary.Vtotal = 0;  // the sum is another matter
        EXPECT_THAT(A::AnalyzerInsert(&analyzer, v), ::testing::AnyOf(0, 1));
      }
      typename A::FixedPoint values[9], learnt[9];
      EXPECT_EQ(A::GetValues(g_stats_percentile_1000, values, 9, kMin, kMax, 5, A::RangeFind, &range), 0u);
      EXPECT_EQ(A::AnalyzerValues(&analyzer, g_stats_percentile_1000, learnt, 9), 0u);
      EXPECT_EQ(std::tuple(values[0].int_part, values[8].int_part), std::tuple(kMin, kMax));
      // A bucket as wide as the type has no width as a number of a signed one: samples above it are not found.
      const bool found = static_cast<V>(analyzer.dynamic_counters.Range) > 0;
      EXPECT_EQ(std::tuple(learnt[0].int_part, learnt[8].int_part),
                found ? std::tuple(kMin, kMax) : std::tuple(V{0}, V{0}));
      for (int i = 1; i < 9; ++i) {
        EXPECT_GE(values[i].int_part, values[i - 1].int_part) << i;
        EXPECT_GE(learnt[i].int_part, learnt[i - 1].int_part) << i;
      }
      A::AnalyzerUninit(&analyzer);
      std::free(range.pu16_counters);
    }
  }
}

TEST(StatisticsPrint, ShowsDecimalValues) {
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
  const std::uint32_t points[] = {0, 130, 50000, 99999};
  const stats_fixed_point_int64_t values[] = {{-1, 500}, {INT64_MIN, 1}, {7, 0}, {INT64_MAX, 999}};
  EXPECT_EQ(Printed([&] { stats_percentile_print_int64(points, values, 4); }),
            "P[000.000] = -0.500\nP[000.130] = -9223372036854775807.999\nP[050.000] = 7.000\n"
            "P[099.999] = 9223372036854775807.999\n");
  stats_sorted_array_int32_t array = {};
  ASSERT_EQ(stats_sorted_array_init_int32(&array, 3), 0u);
  for (const int v : {5, -1}) stats_sorted_array_adv_insert_int32(&array, v, 0, nullptr, nullptr);
  EXPECT_EQ(Printed([&] { stats_sorted_array_print_int32(&array); }),
            "Sorted-Array => Size = 3, Valid-Length = 2\nSorted-Array-Content => [-1][5]\n");
  stats_sorted_array_uninit_int32(&array);
}
