#include <cstdlib>
#include <limits>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "typed_api.h"

template <class V>
class RangeCountersTest : public ::testing::Test {
 protected:
  using A = Api<V>;
  using Record = typename A::RangeCounters;

  void Init(V start, V last, std::uint16_t nsc) {
    std::free(record.pu16_counters);
    ASSERT_EQ(A::RangeInit(&record, start, last, nsc), 0u);
  }
  std::vector<std::uint16_t> Counters() const { return {record.pu16_counters, record.pu16_counters + record.Nsc}; }
  void TearDown() override { std::free(record.pu16_counters); }

  Record record = {};
};
TYPED_TEST_SUITE(RangeCountersTest, ValueTypes);

TYPED_TEST(RangeCountersTest, CountsIntoEqualSubRanges) {
  using V = TypeParam;
  using A = Api<V>;
  this->Init(10, 19, 3);
  for (V v = 9; v <= 20; ++v) EXPECT_EQ(A::RangeInsert(&this->record, v), v < 10 ? -1 : v < 20 ? 0 : 1);
  EXPECT_EQ(this->Counters(), (std::vector<std::uint16_t>{4, 3, 3}));
  EXPECT_EQ(Printed([&] { A::RangePrint(&this->record); }),
            "Counters data:\nStart = 10, End = 20, Nsc = 3\nNo. of Samples = 12\nCounter[0] = 4\nCounter[1] = 3\n"
            "Counter[2] = 3\nMin Exception Counter = 1\nMax Exception Counter = 1\n");
  EXPECT_EQ(A::RangeInit(&this->record, 5, 5, 0), 1u);
  EXPECT_EQ(A::RangeInit(&this->record, 5, 4, 1), 2u);
  EXPECT_EQ(this->record.Nsc, 3);
}

TYPED_TEST(RangeCountersTest, CountsAtTheEndsOfTheType) {
  using V = TypeParam;
  using A = Api<V>;
  constexpr V kMin = std::numeric_limits<V>::min();
  constexpr V kMax = std::numeric_limits<V>::max();
  this->Init(kMin, kMax, 100);
  EXPECT_EQ(this->record.End, kMax);
  EXPECT_EQ(A::RangeInsert(&this->record, kMin), 0);
  EXPECT_EQ(A::RangeInsert(&this->record, kMax - 1), 0);
  EXPECT_EQ(A::RangeInsert(&this->record, kMax), 1);  // the largest value itself stays outside
  EXPECT_EQ(this->Counters()[0], 1);
  EXPECT_EQ(this->Counters()[99], 1);

  this->Init(kMax, kMax, 7);
  EXPECT_EQ(A::RangeInsert(&this->record, kMax), 1);
  EXPECT_EQ(A::RangeInsert(&this->record, kMax - 1), -1);
}

namespace {

template <class V>
struct Found {
  std::uint32_t code = 0;
  std::uint32_t below = 0;
  std::uint32_t cursor = 0;
  std::vector<V> vk;
  std::vector<V> vk1;
};

template <class V, class Record>
Found<V> Find(Record &record, std::vector<std::uint32_t> ranks, std::uint32_t total, V min, V max) {
  Found<V> found;
  found.vk.resize(ranks.size());
  found.vk1.resize(ranks.size());
  found.code = Api<V>::RangeFind(&record, ranks.data(), total, min, max, found.vk.data(), found.vk1.data(),
                                 &found.below, static_cast<std::uint32_t>(ranks.size()), &found.cursor);
  return found;
}

}  // namespace

TYPED_TEST(RangeCountersTest, FindsRanks) {
  using V = TypeParam;
  this->Init(0, 99, 10);
  const std::uint16_t counts[] = {0, 2, 3, 5, 5, 3, 2, 0, 0, 0};
  std::copy(std::begin(counts), std::end(counts), this->record.pu16_counters);
  const auto found = Find<V>(this->record, {1, 1, 1, 4, 10, 16, 19, 19, 20}, 20, 12, 65);
  EXPECT_EQ(found.code, 0u);
  EXPECT_EQ(found.vk, (std::vector<V>{12, 12, 12, 28, 37, 50, 60, 60, 65}));
  EXPECT_EQ(found.vk1, (std::vector<V>{12, 12, 12, 29, 43, 51, 61, 61, 65}));
  EXPECT_EQ(found.below, 18u);
  EXPECT_EQ(found.cursor, 9u);

  typename Api<V>::FixedPoint values[9];
  ASSERT_EQ(Api<V>::GetValues(g_stats_percentile_1000, values, g_stats_percentile_size, 12, 65, 20,
                              Api<V>::RangeFind, &this->record),
            0u);
  pvg_prt_handle = nullptr;
  EXPECT_EQ(
      Printed([&] { Api<V>::PercentilePrint(g_stats_percentile_1000, values, 9); }),
      "P[000.000] = 12.000\nP[000.130] = 12.000\nP[002.280] = 12.000\nP[015.870] = 28.015\nP[050.000] = 40.000\n"
      "P[084.130] = 50.984\nP[097.720] = 60.566\nP[099.870] = 60.975\nP[100.000] = 65.000\n");
  EXPECT_EQ(Find<V>(this->record, {}, 20, 12, 65).code, 2u);
}

// What the search does where samples lie outside the range or the counts do not add up.
TYPED_TEST(RangeCountersTest, FindsRanksOutsideTheRange) {
  using V = TypeParam;
  using A = Api<V>;
  this->Init(50, 59, 10);
  for (V v : {10, 20, 30, 40, 55, 56, 70, 80, 90}) A::RangeInsert(&this->record, v);
  // Ranks 2 and 3 lie below Start, 5 in the range, 6 is the range's last sample, 7 and 8 lie above it.
  const auto found = Find<V>(this->record, {2, 3, 5, 6, 7, 8}, 9, 10, 90);
  EXPECT_EQ(found.code, 0u);
  EXPECT_EQ(found.cursor, 6u);
  EXPECT_EQ(found.vk[2], 55);
  EXPECT_EQ(found.vk1[2], 56);
  EXPECT_EQ(found.vk[3], 56);
  EXPECT_EQ(found.vk1[3], found.vk[4]);  // the first of the samples above
  for (std::size_t i = 0; i < 2; ++i) {
    EXPECT_GE(found.vk[i], 10);
    EXPECT_LE(found.vk1[i], 50);
  }
  EXPECT_GE(found.vk[4], 60);
  EXPECT_LE(found.vk1[5], 90);

  // The range's last sample followed by the one sample above it.
  this->Init(50, 59, 10);
  for (V v : {51, 55, 70}) A::RangeInsert(&this->record, v);
  const auto last = Find<V>(this->record, {2}, 3, 51, 70);
  EXPECT_EQ(last.code, 0u);
  EXPECT_EQ(last.vk1[0], 70);

  // A rank beyond what was counted stops the search there.
  const auto beyond = Find<V>(this->record, {2, 5, 9}, 10, 51, 70);
  EXPECT_EQ(beyond.code, 2u);
  EXPECT_EQ(beyond.cursor, 1u);
  // So do extremes that contradict the counts by more than rounding can.
  EXPECT_EQ(Find<V>(this->record, {2}, 3, 57, 70).vk, std::vector<V>{55});
  const auto contradicted = Find<V>(this->record, {2}, 3, 58, 70);
  EXPECT_EQ(contradicted.code, 2u);
  EXPECT_EQ(contradicted.cursor, 0u);
}

// Random ranges of every width: each counted sample lies within the bounds that the search assumes for its
// sub-range, seen through the values of ranks that single out one sample.
TYPED_TEST(RangeCountersTest, SearchesWhereItCounted) {
  using V = TypeParam;
  using A = Api<V>;
  using U = typename A::Unsigned;
  std::mt19937_64 random(4);
  for (int i = 0; i < 3000; ++i) {
    const U width = static_cast<U>(random()) >> (random() % (sizeof(V) * 8));
    V start = static_cast<V>(random());
    if (start > static_cast<V>(std::numeric_limits<V>::max() - static_cast<V>(width / 2 + 1))) start = 0;
    const V last = static_cast<V>(static_cast<U>(start) + width / 2);
    this->Init(start, last, static_cast<std::uint16_t>(1 + random() % (i % 2 ? 65535 : 120)));
    const V end = this->record.End;
    if (end == start) continue;
    const auto value = [&] {
      return static_cast<V>(static_cast<U>(start) +
                            static_cast<U>(random()) % static_cast<U>(static_cast<U>(end) - static_cast<U>(start)));
    };
    V sample[3] = {start, value(), value()};
    std::sort(sample, sample + 3);
    for (V v : sample) ASSERT_EQ(A::RangeInsert(&this->record, v), 0);
    const auto found = Find<V>(this->record, {2}, 3, sample[0], sample[2]);
    ASSERT_EQ(found.code, 0u) << start << " " << last << " " << this->record.Nsc;
    // The value found falls into the same sub-range as the sample, or one beside it where rounding meets.
    const auto counters = this->Counters();
    const auto index = [&](V v) {
      A::RangeInsert(&this->record, v);
      const auto now = this->Counters();
      std::size_t at = 0;
      while (now[at] == counters[at]) ++at;
      --this->record.pu16_counters[at];
      return static_cast<std::ptrdiff_t>(at);
    };
    if (found.vk[0] < end) {
      EXPECT_LE(std::abs(index(found.vk[0]) - index(sample[1])), 1) << start << " " << last;
    }
  }
}
