#include "stats/percentile.h"

#include <algorithm>
#include <cmath>

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

Wide Multiply(std::uint64_t a, std::uint64_t b) { return static_cast<Wide>(a) * b; }

// A run of values over which samples spread with the weights 1, 2, ..., size (rising) or size, ..., 2, 1. W holds
// the sum of the weights: 64 bits do up to kNarrowRun values, which is most buckets and several times faster.
template <class W>
struct Run {
  bool rising;
  W size;
  std::uint64_t samples;
};

constexpr std::uint64_t kNarrowRun = std::uint64_t{1} << 32;

// 1 + 2 + ... + n.
template <class W>
W Triangle(W n) {
  return n % 2 == 0 ? n / 2 * (n + 1) : (n + 1) / 2 * n;
}

// The running count of the run's first j values is the share of its samples that their weights have, rounded down
// when rising and up when falling. It reaches k when weights(j) * samples stands to weights * k, or to
// weights * (k - 1) when falling, as compared here without the division.
template <class W>
bool Holds(const Run<W> &run, W j, std::uint64_t k) {
  if (k == 0) return true;
  const W weights = Triangle(run.size);
  if (run.rising) return !(Multiply(Triangle(j), run.samples) < Multiply(weights, k));
  return Multiply(weights, k - 1) < Multiply(static_cast<W>(weights - Triangle<W>(run.size - j)), run.samples);
}

// Where the running count reaches k, as the root of j(j + 1) / (size(size + 1)) = share: exact to a few values.
template <class W>
W EstimateFirstHolding(const Run<W> &run, std::uint64_t k) {
  using Real = std::conditional_t<sizeof(W) == 8, double, long double>;  // as many bits as a size has, or nearly so
  const Real last = static_cast<Real>(static_cast<std::uint64_t>(run.size - 1));  // counted from 0, to fit 64 bits
  const Real samples = static_cast<Real>(run.samples);
  const Real rank = static_cast<Real>(k);
  const Real share = (run.rising ? rank : samples + 1 - rank) / samples;
  const Real root = std::sqrt(share * (last + 1) * (last + 2) + Real{0.25}) - Real{0.5};
  const Real estimate = run.rising ? root - 1 : last - root;
  return static_cast<W>(static_cast<std::uint64_t>(std::clamp(estimate, Real{0}, last))) + 1;
}

// The first j whose running count reaches k; the run holds at least k samples.
template <class W>
W FirstHolding(const Run<W> &run, std::uint64_t k) {
  if (k == 0) return 1;
  W j = EstimateFirstHolding(run, k);
  while (!Holds(run, j, k)) ++j;
  while (j > 1 && Holds<W>(run, j - 1, k)) --j;
  return j;
}

// Where the k-th sample of a run lies, as an offset from its first value, and whether the next one lies there too.
struct Place {
  std::uint64_t offset;
  bool holds_next;
};

template <class W>
Place LocateInRun(const Run<W> &run, std::uint64_t k) {
  const W j = FirstHolding(run, k);
  return {static_cast<std::uint64_t>(j - 1), Holds(run, j, k + 1)};
}

Place LocateInRun(bool rising, Wide size, std::uint64_t samples, std::uint64_t k) {
  if (size > kNarrowRun) return LocateInRun(Run<Wide>{rising, size, samples}, k);
  return LocateInRun(Run<std::uint64_t>{rising, static_cast<std::uint64_t>(size), samples}, k);
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

  Place place;
  if (!peaked || width == 1) {
    place = LocateInRun(rising || width == 1, width, samples, k);  // a single value takes every sample
  } else if (const std::uint32_t rising_samples = samples / 2; k <= rising_samples) {
    place = LocateInRun(true, width / 2, rising_samples, k);
  } else {
    place = LocateInRun(false, width - width / 2, samples - rising_samples, k - rising_samples);
    place.offset += static_cast<std::uint64_t>(width / 2);
  }
  const V value = Advance(lowest, static_cast<Unsigned<V>>(place.offset));
  *vk = value;
  if (place.holds_next) {
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
