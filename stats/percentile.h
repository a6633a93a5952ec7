#ifndef ZOR_STATS_PERCENTILE_H_
#define ZOR_STATS_PERCENTILE_H_

#include <algorithm>
#include <cstdint>
#include <limits>

#include "base/memory.h"
#include "base/print.h"
#include "base/text.h"
#include "base/value_types.h"
#include "stats/bucket_model.h"

namespace zor {

// What a search for the samples of ranks k and k + 1 came to.
enum class Found : std::uint32_t { kBoth = 0, kFirstOnly = 1, kNone = 2 };

// The bucket model: see stats_percentile_get_Vk_Vk1_<type> in zor/percentile.h.
template <class V>
Found LocateInBucket(std::uint32_t below, std::uint32_t total, V lowest, V highest, std::uint32_t k,
                     std::uint32_t samples, V &vk, V &vk1) {
  vk = 0;
  vk1 = 0;
  if (highest < lowest || k > samples) return Found::kNone;

  const Unsigned<V> last = Distance(lowest, highest);
  const std::uint32_t median = total / 2;
  const bool rising = below + samples < median;
  const bool peaked = !rising && below <= median;
  const Shape shape = rising || last == 0 ? Shape::kRising  // a single value takes every sample
                      : peaked            ? Shape::kPeaked
                                          : Shape::kFalling;
  const Place place = LocateInRun(shape, last, samples, k);
  const V value = Advance(lowest, static_cast<Unsigned<V>>(place.offset));
  vk = value;
  if (place.holds_next) {
    vk1 = value;
    return Found::kBoth;
  }
  if (samples > k && !peaked && value != highest) {
    vk1 = Advance<V>(value, 1);
    return Found::kBoth;
  }
  return Found::kFirstOnly;
}

// A search for the samples of ranks, in the words of stats_percentile_lookup_<type>_t in zor/percentile.h.
template <class V>
struct RankSearch {
  const std::uint32_t *ranks;
  std::uint32_t total;
  V min;
  V max;
  V *vk;
  V *vk1;
  std::uint32_t &below;
  std::uint32_t count;
  std::uint32_t &cursor;

  // At the cursor.
  bool Done() const { return cursor >= count; }
  std::uint32_t Rank() const { return ranks[cursor]; }
  V &Vk() const { return vk[cursor]; }
  V &Vk1() const { return vk1[cursor]; }

  // Takes the k-th sample of a bucket and the one after it.
  Found Locate(V lowest, V highest, std::uint32_t k, std::uint32_t samples) const {
    return LocateInBucket<V>(below, total, lowest, highest, k, samples, Vk(), Vk1());
  }

  // The ends of the distribution, which are served before any data is looked at.
  bool ServeExtremes() const {
    if (Rank() <= 1) {
      Vk() = Vk1() = min;
    } else if (Rank() == total) {
      Vk() = Vk1() = max;
    } else {
      return false;
    }
    return true;
  }
};

enum class Estimate : std::uint32_t { kDone = 0, kNoRanks = 1, kNoValues = 2, kInvalidPoint = 3, kNotFound = 4 };

inline bool IsOutOfMemory(Estimate result) { return result == Estimate::kNoRanks || result == Estimate::kNoValues; }

// The value at so many thousandths of the way.
template <class V>
FixedPoint<V> Between(V low, V high, std::uint64_t thousandths) {
  constexpr std::uint64_t kThousand = 1000;
  const auto split = [low](auto share) -> FixedPoint<V> {
    return {Advance(low, static_cast<Unsigned<V>>(share / kThousand)),
            static_cast<std::uint16_t>(share % kThousand)};
  };
  const std::uint64_t distance = Distance(low, high);
  if (distance <= std::numeric_limits<std::uint64_t>::max() / kThousand) return split(distance * thousandths);
  return split(Wide{distance} * thousandths);
}

// See stats_percentile_get_values_<type> in zor/percentile.h. find(search) serves the ranks.
template <class V, class Find>
Estimate EstimatePercentiles(const std::uint32_t *points, FixedPoint<V> *results, std::uint32_t count, V min, V max,
                             std::uint32_t total, Find find) {
  constexpr std::uint32_t kWholePoint = 100000;  // 100 % in thousandths of a percent
  if (total == 0) {
    std::fill_n(results, count, FixedPoint<V>{});
    return Estimate::kNotFound;
  }
  Scratch<std::uint32_t> ranks(count);
  if (!ranks.get()) return Estimate::kNoRanks;
  Scratch<V> vk(count);
  Scratch<V> vk1(count);
  if (!vk.get() || !vk1.get()) return Estimate::kNoValues;

  const auto position = [&](std::uint32_t i) { return std::uint64_t{points[i]} * (total - 1); };
  for (std::uint32_t i = 0; i < count; ++i) {
    ranks[i] = static_cast<std::uint32_t>(position(i) / kWholePoint + 1);
    vk[i] = vk1[i] = 0;
    results[i] = {};
    if (points[i] > kWholePoint) return Estimate::kInvalidPoint;
  }
  std::uint32_t below = 0;
  std::uint32_t cursor = 0;
  const RankSearch<V> search = {ranks.get(), total, min, max, vk.get(), vk1.get(), below, count, cursor};
  if (find(search) == Found::kNone) return Estimate::kNotFound;

  for (std::uint32_t i = 0; i < count; ++i) {
    if (points[i] == 0) {
      results[i].int_part = min;
    } else if (ranks[i] == total) {
      results[i].int_part = max;
    } else {
      const std::uint64_t beyond = position(i) - std::uint64_t{ranks[i] - 1} * kWholePoint;
      results[i] = Between<V>(vk[i], std::max(vk[i], vk1[i]), beyond / (kWholePoint / 1000));
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

}  // namespace zor

#endif  // ZOR_STATS_PERCENTILE_H_
