#include <limits>
#include <random>
#include <vector>

#include "bucket_walk.h"
#include "typed_api.h"

namespace {

__extension__ using Wide = unsigned __int128;

}  // namespace

template <class V>
class BucketModelTest : public ::testing::Test {
 protected:
  struct Located {
    std::uint32_t code;
    V vk;
    V vk1;
  };

  static Located Locate(std::uint32_t below, std::uint32_t total, V lowest, V highest, std::uint32_t k,
                        std::uint32_t samples) {
    Located located = {0, 77, 77};
    located.code = Api<V>::GetVkVk1(below, total, lowest, highest, k, samples, &located.vk, &located.vk1);
    return located;
  }
};
TYPED_TEST_SUITE(BucketModelTest, ValueTypes);

TYPED_TEST(BucketModelTest, SameAsWalk) {
  using V = TypeParam;
  using U = typename Api<V>::Unsigned;
  std::mt19937 random(20240229);
  const auto pick = [&](std::uint32_t low, std::uint32_t high) {
    return std::uniform_int_distribution<std::uint32_t>(low, high)(random);
  };
  for (int i = 0; i < 40000; ++i) {
    const std::uint32_t width = pick(1, i % 4 == 0 ? 3000 : 24);
    const std::uint32_t samples = pick(0, i % 3 == 0 ? 70000 : 12);
    const std::uint32_t below = pick(0, 30);
    const std::uint32_t total = i % 5 == 0 ? pick(0, 60) : below + samples + pick(0, 4 * samples + 20);
    const std::uint32_t k = pick(0, 9) == 0 ? pick(0, samples + 2) : samples == 0 ? 0 : pick(1, samples);
    // At either end of the type and in its middle.
    const V lowest[] = {std::numeric_limits<V>::min(), static_cast<V>(std::numeric_limits<V>::max() - (width - 1)),
                        static_cast<V>(U{0} - U{width / 2})};
    const V first = lowest[i % (std::is_signed_v<V> ? 3 : 2)];
    const V last = static_cast<V>(static_cast<U>(first) + (width - 1));
    const WalkResult walk = Walk(below, total, width, k, samples);
    const auto located = this->Locate(below, total, first, last, k, samples);
    ASSERT_EQ(located.code, walk.code) << width << " " << samples << " " << below << " " << total << " " << k;
    if (walk.code == 2) {
      EXPECT_EQ(located.vk, V{0});
      EXPECT_EQ(located.vk1, V{0});
      continue;
    }
    EXPECT_EQ(located.vk, static_cast<V>(static_cast<U>(first) + walk.vk));
    EXPECT_EQ(located.vk1, walk.code == 1 ? V{0} : static_cast<V>(static_cast<U>(first) + walk.vk1));
  }
}

// Where no walk can follow: the defining inequality of the running count, held in exact arithmetic. With weights
// 1..r the first j with u*j*(j+1) >= k*r*(r+1) is sought; u = 1 and k = 1 make it the last value, u = 2 the one at
// r / sqrt(2).
TYPED_TEST(BucketModelTest, ServesTheWidestBuckets) {
  using V = TypeParam;
  using U = typename Api<V>::Unsigned;
  constexpr V kMin = std::numeric_limits<V>::min();
  constexpr V kMax = std::numeric_limits<V>::max();
  auto located = this->Locate(0, 1000, kMin, kMax, 1, 1);
  EXPECT_EQ(located.code, 1u);
  EXPECT_EQ(located.vk, kMax);

  located = this->Locate(900, 1000, kMin, kMax, 1, 1);  // falling: the first weight already rounds up to it
  EXPECT_EQ(located.code, 1u);
  EXPECT_EQ(located.vk, kMin);

  // The first of two samples ends where j (j + 1) / 2 reaches half of n (n + 1) / 2, and not before.
  for (U less = 0; less < 40; ++less) {
    const auto n = Wide{static_cast<U>(std::numeric_limits<U>::max() - less)} + 1;
    located = this->Locate(0, 1000, kMin, static_cast<V>(kMax - static_cast<V>(less)), 1, 2);
    EXPECT_EQ(located.code, 0u);
    const U before = static_cast<U>(static_cast<U>(located.vk) - static_cast<U>(kMin));  // j - 1
    const Wide half = n % 2 == 0 ? n / 2 * (n + 1) : n * ((n + 1) / 2);
    EXPECT_LT(Wide{before} * (Wide{before} + 1), half);
    EXPECT_GE((Wide{before} + 1) * (Wide{before} + 2), half);
  }

  located = this->Locate(500, 1000, kMin, kMax, 250, 500);  // peaked at the middle of the range
  EXPECT_EQ(located.code, 1u);
  EXPECT_EQ(located.vk, static_cast<V>(static_cast<U>(kMin) + std::numeric_limits<U>::max() / 2));
  EXPECT_EQ(this->Locate(0, 1, kMax, kMin, 1, 1).code, 2u);
}

namespace {

// Serves ranks from plain sorted samples.
template <class V>
struct Samples {
  std::vector<V> sorted;
  std::uint32_t code = 0;
  int calls = 0;
};

template <class V>
std::uint32_t LookUp(void *context, const std::uint32_t *ranks, std::uint32_t total, V, V, V *vk, V *vk1,
                     std::uint32_t *below, std::uint32_t count, std::uint32_t *cursor) {
  auto &samples = *static_cast<Samples<V> *>(context);
  ++samples.calls;
  EXPECT_EQ(*below, 0u);
  EXPECT_EQ(*cursor, 0u);
  for (std::uint32_t i = 0; i < count; ++i) {
    vk[i] = samples.sorted[ranks[i] - 1];
    if (ranks[i] < total) vk1[i] = samples.sorted[ranks[i]];
  }
  return samples.code;
}

template <class V>
std::vector<std::string> Values(Samples<V> samples, const std::vector<std::uint32_t> &points,
                                std::uint32_t code = 0) {
  using A = Api<V>;
  std::vector<typename A::FixedPoint> results(points.size());
  EXPECT_EQ(
      A::GetValues(points.data(), results.data(), static_cast<std::uint32_t>(points.size()), samples.sorted.front(),
                   samples.sorted.back(), static_cast<std::uint32_t>(samples.sorted.size()), LookUp<V>, &samples),
      code);
  std::vector<std::string> texts;
  pvg_prt_handle = nullptr;
  for (std::size_t i = 0; i < points.size(); ++i) {
    texts.push_back(Printed([&] { A::PercentilePrint(&points[i], &results[i], 1); }));
  }
  return texts;
}

}  // namespace

TEST(PercentileValues, InterpolatesBetweenRanks) {
  using Lines = std::vector<std::string>;
  const Samples<std::uint32_t> tens = {{0, 10, 20, 30, 40, 50, 60, 70, 80, 90, 100}};
  EXPECT_EQ(Values(tens, {0, 2280, 15870, 50000, 100000}),
            (Lines{"P[000.000] = 0.000\n", "P[002.280] = 2.280\n", "P[015.870] = 15.870\n", "P[050.000] = 50.000\n",
                   "P[100.000] = 100.000\n"}));
  EXPECT_EQ(Values(Samples<std::int32_t>{{-11, -10}}, {0, 50000, 99999}),
            (Lines{"P[000.000] = -11.000\n", "P[050.000] = -10.500\n", "P[099.999] = -10.001\n"}));
  // The widest gaps, and a next value below its own, which counts as equal.
  EXPECT_EQ(Values(Samples<std::uint32_t>{{7, 4000000007}}, {50000}), Lines{"P[050.000] = 2000000007.000\n"});
  EXPECT_EQ(Values(Samples<std::int64_t>{{INT64_MIN, INT64_MAX}}, {50000, 99900}),
            (Lines{"P[050.000] = -0.500\n", "P[099.900] = 9204925292781066255.385\n"}));
  EXPECT_EQ(Values(Samples<std::uint64_t>{{0, UINT64_MAX}}, {99900}),
            Lines{"P[099.900] = 18428297329635842063.385\n"});
  EXPECT_EQ(Values(Samples<std::int32_t>{{9, 3, 9}}, {25000}), Lines{"P[025.000] = 9.000\n"});
  EXPECT_EQ(Values(Samples<std::int32_t>{{5}}, {0, 1, 100000}),
            (Lines{"P[000.000] = 5.000\n", "P[000.001] = 5.000\n", "P[100.000] = 5.000\n"}));
}

TEST(PercentileValues, ReportsWhatItCannotServe) {
  Samples<std::int32_t> samples = {{1, 2, 3}};
  stats_fixed_point_int32_t results[3] = {{7, 7}, {7, 7}, {7, 7}};
  const std::uint32_t points[3] = {0, 100001, 100000};
  EXPECT_EQ(stats_percentile_get_values_int32(points, results, 3, 1, 3, 3, LookUp<std::int32_t>, &samples), 3u);
  EXPECT_EQ(samples.calls, 0);
  EXPECT_EQ(results[1].int_part, 0);
  EXPECT_EQ(results[2].int_part, 7);

  EXPECT_EQ(stats_percentile_get_values_int32(points, results, 1, 1, 3, 0, LookUp<std::int32_t>, &samples), 4u);
  EXPECT_EQ(samples.calls, 0);
  EXPECT_EQ(results[0].int_part, 0);

  samples.code = 2;
  EXPECT_EQ(Values(samples, {0, 100000}, 4),
            (std::vector<std::string>{"P[000.000] = 0.000\n", "P[100.000] = 0.000\n"}));
}

// 100,000 samples: the product of point and position needs more than 32 bits.
TEST(PercentileValues, FindsTheLastRankOfManySamples) {
  Samples<std::uint32_t> samples;
  for (std::uint32_t i = 1; i <= 100000; ++i) samples.sorted.push_back(i);
  EXPECT_EQ(Values(samples, {99870, 100000}),
            (std::vector<std::string>{"P[099.870] = 99870.001\n", "P[100.000] = 100000.000\n"}));
}
