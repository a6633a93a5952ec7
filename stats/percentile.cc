#include "stats/percentile.h"

#include <algorithm>

#include "entry/print.h"
#include "stats/memory.h"
#include "stats/text.h"

const std::uint32_t g_stats_percentile_1000[9] = {0, 130, 2280, 15870, 50000, 84130, 97720, 99870, 100000};
const std::uint32_t g_stats_percentile_size = 9;

namespace zor {
namespace {

__extension__ using Wide = unsigned __int128;

constexpr std::uint32_t kWholePoint = 100000;  // 100 % in thousandths of a percent

// A product of up to 192 bits: the weights of 2^64 values add up to 2^127 + 2^63, and a count takes 33 more bits.
struct Product {
  Wide high;
  std::uint64_t low;
};

bool operator<(const Product &a, const Product &b) { return a.high != b.high ? a.high < b.high : a.low < b.low; }

Product Multiply(Wide a, std::uint64_t b) {
  const Wide low = static_cast<Wide>(static_cast<std::uint64_t>(a)) * b;
  return {(a >> 64) * b + (low >> 64), static_cast<std::uint64_t>(low)};
}

// 1 + 2 + ... + n for n up to 2^64.
Wide Triangle(Wide n) { return n % 2 == 0 ? n / 2 * (n + 1) : (n + 1) / 2 * n; }

// A run of values over which samples spread with the weights 1, 2, ..., size (rising) or size, ..., 2, 1.
struct Run {
  bool rising;
  Wide size;
  std::uint64_t samples;
};

// Whether the first j values of the run hold at least k samples. Their running count is the share of the run's
// samples that the weights of the first j values have, rounded down when rising and up when falling; compared
// here without the division.
bool Holds(const Run &run, Wide j, std::uint64_t k) {
  if (k == 0) return true;
  const Wide all = Triangle(run.size);
  if (run.rising) return !(Multiply(Triangle(j), run.samples) < Multiply(all, k));
  return Multiply(all, k - 1) < Multiply(all - Triangle(run.size - j), run.samples);
}

// The first j whose running count reaches k; the run holds at least k samples.
Wide FirstHolding(const Run &run, std::uint64_t k) {
  Wide low = 1;
  Wide high = run.size;
  while (low < high) {
    const Wide middle = low + (high - low) / 2;
    if (Holds(run, middle, k)) {
      high = middle;
    } else {
      low = middle + 1;
    }
  }
  return low;
}

}  // namespace

template <class V>
Found LocateInBucket(std::uint32_t below, std::uint32_t total, V lowest, V highest, std::uint32_t k,
                     std::uint32_t samples, V *vk, V *vk1) {
  *vk = 0;
  *vk1 = 0;
  if (highest < lowest || k > samples) return Found::kNone;

  const Wide width = static_cast<Wide>(Distance(lowest, highest)) + 1;
  const std::uint32_t median = total / 2;
  const bool rising = below + samples < median;
  const bool peaked = !rising && below <= median;

  Run run = {rising, width, samples};
  Wide run_start = 0;
  std::uint32_t rank = k;
  if (width == 1) {
    run.rising = true;  // the single value takes every sample
  } else if (peaked && k <= samples / 2) {
    run = {true, width / 2, samples / 2};
  } else if (peaked) {
    run_start = width / 2;
    run = {false, width - run_start, samples - samples / 2};
    rank = k - samples / 2;
  }

  const Wide j = FirstHolding(run, rank);
  const V value = Advance(lowest, static_cast<Unsigned<V>>(run_start + j - 1));
  *vk = value;
  if (Holds(run, j, std::uint64_t{rank} + 1)) {
    *vk1 = value;
    return Found::kBoth;
  }
  if (samples > k && !peaked && value != highest) {
    *vk1 = Advance<V>(value, 1);
    return Found::kBoth;
  }
  return Found::kFirstOnly;
}

template <class V>
Estimate EstimatePercentiles(const std::uint32_t *points, FixedPoint<V> *results, std::uint32_t count, V min, V max,
                             std::uint32_t total, Lookup<V> lookup, void *context) {
  if (total == 0) {
    std::fill_n(results, count, FixedPoint<V>{});
    return Estimate::kNotFound;
  }
  const auto ranks = AllocateArray<std::uint32_t>(count);
  if (!ranks) return Estimate::kNoRanks;
  const auto vk = AllocateArray<V>(count);
  const auto vk1 = AllocateArray<V>(count);
  if (!vk || !vk1) return Estimate::kNoValues;

  const auto position = [&](std::uint32_t i) { return std::uint64_t{points[i]} * (total - 1); };
  for (std::uint32_t i = 0; i < count; ++i) {
    ranks[i] = static_cast<std::uint32_t>(position(i) / kWholePoint + 1);
    results[i] = {};
    if (points[i] > kWholePoint) return Estimate::kInvalidPoint;
  }
  std::uint32_t below = 0;
  std::uint32_t cursor = 0;
  const std::uint32_t found =
      lookup(context, ranks.get(), total, min, max, vk.get(), vk1.get(), &below, count, &cursor);
  if (found == static_cast<std::uint32_t>(Found::kNone)) return Estimate::kNotFound;

  for (std::uint32_t i = 0; i < count; ++i) {
    if (points[i] == 0) {
      results[i].int_part = min;
    } else if (ranks[i] == total) {
      results[i].int_part = max;
    } else {
      const Wide fraction = position(i) % kWholePoint / 100;
      const Wide share = fraction * (vk[i] < vk1[i] ? Distance(vk[i], vk1[i]) : 0);
      results[i].int_part = Advance(vk[i], static_cast<Unsigned<V>>(share / 1000));
      results[i].thousandths = static_cast<std::uint16_t>(share % 1000);
    }
  }
  return Estimate::kDone;
}

template <class V>
void PrintPercentiles(const std::uint32_t *points, const FixedPoint<V> *results, std::uint32_t count) {
  for (std::uint32_t i = 0; i < count; ++i) {
    EmitLine("P[%03u.%03u] = %s\n", points[i] / 1000, points[i] % 1000, ToText(results[i]).chars);
  }
}

#define ZOR_INSTANTIATE(type, value, unsigned_value, total)                                                      \
  template Found LocateInBucket<value>(std::uint32_t, std::uint32_t, value, value, std::uint32_t, std::uint32_t, \
                                       value *, value *);                                                        \
  template Estimate EstimatePercentiles<value>(const std::uint32_t *, FixedPoint<value> *, std::uint32_t, value, \
                                               value, std::uint32_t, Lookup<value>, void *);                     \
  template void PrintPercentiles<value>(const std::uint32_t *, const FixedPoint<value> *, std::uint32_t);
ZOR_PROCESS_FOR_EACH_TYPE(ZOR_INSTANTIATE)

}  // namespace zor

#define ZOR_DEFINE_PERCENTILE(type, value, unsigned_value, total_type)                                         \
  std::uint32_t stats_percentile_get_values_##type(                                                            \
      const std::uint32_t *points, stats_fixed_point_##type##_t *results, std::uint32_t count, value min,      \
      value max, std::uint32_t total, stats_percentile_lookup_##type##_t lookup, void *context) {              \
    return static_cast<std::uint32_t>(                                                                         \
        zor::EstimatePercentiles<value>(points, results, count, min, max, total, lookup, context));            \
  }                                                                                                            \
  std::uint32_t stats_percentile_get_Vk_Vk1_##type(std::uint32_t below, std::uint32_t total, value lowest,     \
                                                   value highest, std::uint32_t k, std::uint32_t samples,      \
                                                   value *vk, value *vk1) {                                    \
    return static_cast<std::uint32_t>(                                                                         \
        zor::LocateInBucket<value>(below, total, lowest, highest, k, samples, vk, vk1));                       \
  }                                                                                                            \
  void stats_percentile_print_##type(const std::uint32_t *points, const stats_fixed_point_##type##_t *results, \
                                     std::uint32_t count) {                                                    \
    zor::PrintPercentiles<value>(points, results, count);                                                      \
  }
ZOR_PROCESS_FOR_EACH_TYPE(ZOR_DEFINE_PERCENTILE)
