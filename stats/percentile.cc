#include "stats/percentile.h"

#include <algorithm>
#include <cmath>

#include "base/memory.h"
#include "base/print.h"
#include "base/text.h"

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

// Runs of up to 2^47 values, which is nearly all of them, have sizes of 64 bits, and do with products of 128.
// Others have sizes of 128 bits.
constexpr Wide kLongestNarrowRun = Wide{1} << 47;

template <class Size>
constexpr bool kNarrow = sizeof(Size) == 8;

// 1 + 2 + ... + n. The wide one halves the even one of n and n + 1, without a branch that no one could predict.
Wide Triangle(std::uint64_t n) { return static_cast<Wide>(n) * (n + 1) / 2; }
Wide Triangle(Wide n) { return (n | 1) * ((n + 1) / 2); }

template <class Size>
std::conditional_t<kNarrow<Size>, Wide, Product> Multiply(Wide weights, std::uint64_t count) {
  if constexpr (kNarrow<Size>) {
    return weights * count;
  } else {
    const Wide low = static_cast<Wide>(static_cast<std::uint64_t>(weights)) * count;
    return {(weights >> 64) * count + (low >> 64), static_cast<std::uint64_t>(low)};
  }
}

// A run of values over which samples spread with the weights 1, 2, ..., size (rising) or size, ..., 2, 1.
template <class Size>
struct Run {
  bool rising;
  Size size;
  std::uint64_t samples;
  Wide weights = Triangle(size);
};

// The running count of the run's first j values is the share of its samples that their weights have, rounded down
// when rising and up when falling. It reaches k when weights(j) * samples stands to weights * k, or to
// weights * (k - 1) when falling, as compared here without the division.
template <class Size>
auto Threshold(const Run<Size> &run, std::uint64_t k) {
  return Multiply<Size>(run.weights, run.rising ? k : k - 1);
}

template <class Size, class Threshold>
bool Reaches(const Run<Size> &run, Size j, const Threshold &threshold) {
  if (run.rising) return !(Multiply<Size>(Triangle(j), run.samples) < threshold);
  return threshold < Multiply<Size>(run.weights - Triangle(static_cast<Size>(run.size - j)), run.samples);
}

// Where the running count reaches k, as the root of j(j + 1) / (size(size + 1)) = share, rounded up: exact, or next
// to it.
template <class Size>
Size EstimateFirstHolding(const Run<Size> &run, std::uint64_t k) {
  using Real = std::conditional_t<kNarrow<Size>, double, long double>;            // 53 or 64 bits of precision
  const Real last = static_cast<Real>(static_cast<std::uint64_t>(run.size - 1));  // counted from 0, to fit 64 bits
  const Real samples = static_cast<Real>(run.samples);
  const Real rank = static_cast<Real>(k);
  const Real share = (run.rising ? rank : samples + 1 - rank) / samples;
  const Real root =
      std::sqrt(share * (last + 1) * (last + 2) + Real{0.25}) + Real{0.5};  // up, when it is cut below
  const Real estimate = run.rising ? root - 1 : last + 2 - root;
  if (!(estimate < last)) return run.size;
  return static_cast<Size>(static_cast<std::uint64_t>(std::max(estimate, Real{0}))) + 1;
}

// The first j whose running count reaches k; the run holds at least k samples, and k is not 0. Searched for in
// steps that double, from the estimate on: two comparisons when it is exact, and few whatever precision the
// processor works with.
template <class Size>
Size FirstHolding(const Run<Size> &run, std::uint64_t k) {
  const auto threshold = Threshold(run, k);
  const Size estimate = EstimateFirstHolding(run, k);
  Size low = 0;  // does not reach k
  Size high = run.size;
  if (Reaches(run, estimate, threshold)) {
    high = estimate;
    for (Size step = 1; step < high; step *= 2) {
      if (!Reaches(run, static_cast<Size>(high - step), threshold)) {
        low = high - step;
        break;
      }
      high -= step;
    }
  } else {
    low = estimate;
    for (Size step = 1; step < high - low; step *= 2) {
      if (Reaches(run, static_cast<Size>(low + step), threshold)) {
        high = low + step;
        break;
      }
      low += step;
    }
  }
  while (high - low > 1) {
    const Size middle = low + (high - low) / 2;
    (Reaches(run, middle, threshold) ? high : low) = middle;
  }
  return high;
}

// Where the k-th sample of a run lies, as an offset from its first value, and whether the next one lies there too.
struct Place {
  std::uint64_t offset;
  bool holds_next;
};

template <class Size>
Place LocateInRun(const Run<Size> &run, std::uint64_t k) {
  const Size j = k == 0 ? 1 : FirstHolding(run, k);
  return {static_cast<std::uint64_t>(j - 1), Reaches(run, j, Threshold(run, k + 1))};
}

Place LocateInRun(bool rising, Wide size, std::uint64_t samples, std::uint64_t k) {
  if (size > kLongestNarrowRun) return LocateInRun(Run<Wide>{rising, size, samples}, k);
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
