#include <limits>
#include <string>
#include <vector>

#include "typed_api.h"

template <class V>
class SummaryTest : public ::testing::Test {};
TYPED_TEST_SUITE(SummaryTest, ValueTypes);

TYPED_TEST(SummaryTest, CountsSamples) {
  using A = Api<TypeParam>;
  typename A::Summary summary = {};
  EXPECT_EQ(Printed([&] { A::SummaryPrint(&summary); }), "Vmin = 0, Vmax = 0\nVtotal = 0, u32_no_of_samples = 0\n");
  for (TypeParam sample : {4, 9, 5, 4, 9}) EXPECT_EQ(A::SummaryEval(&summary, sample), 0u);
  EXPECT_EQ(Printed([&] { A::SummaryPrint(&summary); }),
            "Vmin = 4, Vmax = 9\nVtotal = 31, u32_no_of_samples = 5\nAverage: 6.200\n");
}

TYPED_TEST(SummaryTest, KeepsTheWholeTotalOfExtremes) {
  using A = Api<TypeParam>;
  using Limits = std::numeric_limits<TypeParam>;
  const bool wide = sizeof(TypeParam) == 8;
  for (TypeParam extreme : {Limits::max(), Limits::min()}) {
    typename A::Summary summary = {};
    EXPECT_EQ(A::SummaryEval(&summary, extreme), 0u);
    const bool overflows = wide && extreme != 0;
    const auto before = summary;
    EXPECT_EQ(A::SummaryEval(&summary, extreme), overflows ? 1u : 0u);
    if (overflows) {
      EXPECT_EQ(summary.Vtotal, before.Vtotal);
      EXPECT_EQ(summary.u32_no_of_samples, 1u);
    }
    EXPECT_EQ(A::SummaryEval(&summary, 0), 0u);
    if (!overflows) {
      EXPECT_EQ(summary.Vtotal, static_cast<typename A::Total>(extreme) * 2);
    }
  }
}

TEST(SummaryPrint, ShowsTheDecimalValueOfAverages) {
  const struct {
    std::int64_t total;
    std::uint32_t count;
    std::string average;
  } cases[] = {{2, 3, "0.666"},        {10, 3, "3.333"},    {7, 2, "3.500"},   {-1, 3, "-0.333"},
               {-7, 2, "-3.500"},      {-1, 3000, "0.000"}, {-6, 3, "-2.000"}, {-2147483649, 2, "-1073741824.500"},
               {-2999, 1000, "-2.999"}};
  for (const auto &c : cases) {
    const stats_summary_int32_t narrow = {0, 0, c.total, c.count};
    const stats_summary_int64_t wide = {0, 0, c.total, c.count};
    const std::string line = "Average: " + c.average + "\n";
    EXPECT_THAT(Printed([&] { stats_summary_print_int32(&narrow); }), ::testing::EndsWith(line));
    EXPECT_THAT(Printed([&] { stats_summary_print_int64(&wide); }), ::testing::EndsWith(line));
  }
}
