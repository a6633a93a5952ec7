// Nine percentiles of a distribution, for ranges of different widths.

#include <algorithm>
#include <deque>
#include <random>

#include "contest.h"
#include "peers.h"
#include "scenarios.h"
#include "zor/process.h"

namespace bench {
namespace {

constexpr std::uint16_t kBuckets = 100;
constexpr std::uint32_t kSamples = 2000;
constexpr std::uint32_t kEstimates = 1000;  // per round

// The same uniform samples over 2^bits values for the library and for GSL.
class Distribution {
 public:
  explicit Distribution(unsigned bits)
      : last_(~std::uint64_t{0} >> (64 - bits)),
        gsl_(kBuckets, static_cast<double>(last_) + 1),
        quantiles_(*gsl_.histogram()) {
    if (stats_range_counters_init_uint64(&record_, 0, last_, kBuckets) != 0) std::abort();
    std::mt19937_64 random;
    std::uniform_int_distribution<std::uint64_t> uniform(0, last_);
    for (std::uint32_t i = 0; i < kSamples; ++i) {
      const std::uint64_t value = uniform(random);
      min_ = std::min(min_, value);
      max_ = std::max(max_, value);
      good_ &= stats_range_counters_insert_uint64(&record_, value) == 0;
      gsl_.Insert(static_cast<double>(value));
    }
    good_ &= gsl_.HistogramSum() == kSamples;
  }
  ~Distribution() { std::free(record_.pu16_counters); }
  Distribution(const Distribution &) = delete;
  Distribution &operator=(const Distribution &) = delete;

  double Time() {
    stats_fixed_point_uint64_t results[9] = {};
    std::uint32_t failures = 0;
    const double time = Nanoseconds([&] {
      for (std::uint32_t i = 0; i < kEstimates; ++i) {
        failures |= stats_percentile_get_values_uint64(g_stats_percentile_1000, results, 9, min_, max_, kSamples,
                                                       stats_range_counters_find_Vk_Vk1_uint64, &record_);
        benchmark::DoNotOptimize(results);
      }
    });
    good_ &= failures == 0 && results[0].int_part == min_ && results[8].int_part == max_ &&
             IsMedian(results[4].int_part);
    return time / kEstimates;
  }
  double TimeGsl() {
    std::array<double, 9> results = {};
    const double time = Nanoseconds([&] {
      for (std::uint32_t i = 0; i < kEstimates; ++i) {
        quantiles_.Estimate(results);
        benchmark::DoNotOptimize(results);
      }
    });
    good_ &= IsMedian(static_cast<std::uint64_t>(results[4]));
    return time / kEstimates;
  }
  bool good() const { return good_; }

 private:
  // Within a tenth of the range, as the median of so many uniform samples is.
  bool IsMedian(std::uint64_t value) const { return value > last_ / 10 * 4 && value < last_ / 10 * 6; }

  std::uint64_t last_;
  std::uint64_t min_ = ~std::uint64_t{0}, max_ = 0;
  stats_range_counters_uint64_t record_ = {};
  GslStatistics gsl_;
  GslQuantiles quantiles_;
  bool good_ = true;
};

// All widths take turns, so that they can be held against each other.
void RunPercentiles(benchmark::State &state) {
  std::deque<Distribution> distributions;
  Contest contest;
  for (const unsigned bits : {10u, 20u, 30u, 40u, 50u, 64u}) {
    Distribution &distribution = distributions.emplace_back(bits);
    const std::string width = "_" + std::to_string(bits);
    contest.Add(kOurs + width, [&distribution] { return distribution.Time(); });
    contest.Add("gsl" + width, [&distribution] { return distribution.TimeGsl(); });
  }
  contest.Run(state);
  for (const Distribution &distribution : distributions) {
    if (!distribution.good()) state.SkipWithError("percentiles failed");
  }
}

}  // namespace

void RegisterPercentiles(const Options &options) {
  Register("percentiles/width", options.Rounds(31), RunPercentiles);
}

}  // namespace bench
