#ifndef ZOR_STATS_RANGE_COUNTERS_H_
#define ZOR_STATS_RANGE_COUNTERS_H_

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <limits>

#include "base/memory.h"
#include "base/text.h"
#include "base/value_types.h"
#include "stats/percentile.h"

namespace zor {

inline constexpr std::uint16_t kFullCounter = 65535;

// Results of counting a sample in range counters.
inline constexpr std::int32_t kCountedBelow = -1;
inline constexpr std::int32_t kCountedInside = 0;
inline constexpr std::int32_t kCountedAbove = 1;
inline constexpr std::int32_t kCounterFull = 3;

// 0, or why there can be no such range: 1 without sub-ranges, 2 when it is inverted.
template <class V>
constexpr std::uint32_t CheckRange(V start, V last, std::uint16_t nsc) {
  return nsc == 0 ? 1 : last < start ? 2 : 0;
}

// Sets a record up for a range that was checked, with `nsc` zeroed counters; without them the result is 3.
template <class V>
std::uint32_t SetUpRangeCounters(RangeCounters<V> &record, V start, V last, std::uint16_t nsc,
                                 std::uint16_t *counters) {
  using U = Unsigned<V>;
  record.Start = start;
  record.End = last == std::numeric_limits<V>::max() ? last : static_cast<V>(last + 1);
  record.Nsc = nsc;
  record.u16_no_of_samples = 0;
  record.u16_min_exception_counter = 0;
  record.u16_max_exception_counter = 0;
  record.pu16_counters = counters;
  if (!counters) return 3;
  const U exact = std::numeric_limits<U>::max() / nsc;
  const U room = Distance(start, std::numeric_limits<V>::max());
  record.Vexact_end = Advance(start, std::min(exact, room));
  return 0;
}

// Checks the range, and allocates the counters.
template <class V>
std::uint32_t InitRangeCounters(RangeCounters<V> &record, V start, V last, std::uint16_t nsc) {
  const std::uint32_t result = CheckRange(start, last, nsc);
  if (result != 0) return result;
  return SetUpRangeCounters<V>(record, start, last, nsc, AllocateArray<std::uint16_t>(nsc).release());
}

// The sub-range of a value between Start and End. The last one also takes what the rounding of the step leaves
// over.
template <class V>
inline std::uint32_t SubRangeOf(const RangeCounters<V> &record, V value) {
  using U = Unsigned<V>;
  const U width = Distance(record.Start, record.End);
  if (width == 0) return 0;
  const U offset = Distance(record.Start, value);
  U index = 0;
  if (value < record.Vexact_end) {
    index = offset * U{record.Nsc} / width;
  } else if (const U step = width / U{record.Nsc}; step != 0) {
    index = offset / step;
  }
  return static_cast<std::uint32_t>(std::min<U>(index, U{record.Nsc} - U{1}));
}

// 2^64 * Nsc / width, rounded up, where the upper half of its product with an offset is the offset's sub-range: one
// multiplication stands for the division then. Rounding up adds less than offset / 2^64 to offset * Nsc / width,
// whose distance to the next whole number is 1 / width or more; so it is exact for widths of up to 2^32. 0
// elsewhere, and where there are not more values than sub-ranges, which leaves it no 64 bits.
template <class V>
std::uint64_t ScaleOf(const RangeCounters<V> &record) {
  const std::uint64_t width = Distance(record.Start, record.End);
  const std::uint64_t nsc = record.Nsc;
  if (width <= nsc || width > std::uint64_t{1} << 32 || record.Vexact_end < record.End) return 0;
  return static_cast<std::uint64_t>(((Wide{nsc} << 64) + width - 1) / width);
}

// Sets all counts to zero; the range stays.
template <class V>
inline void ClearRangeCounters(RangeCounters<V> &record) {
  record.u16_no_of_samples = 0;
  record.u16_min_exception_counter = 0;
  record.u16_max_exception_counter = 0;
  std::fill_n(record.pu16_counters, record.Nsc, std::uint16_t{0});
}

inline std::uint64_t ScaledSubRange(std::uint64_t offset, std::uint64_t scale) {
  const Wide product = static_cast<Wide>(offset) * scale;
  return static_cast<std::uint64_t>(product >> 64);
}

// A sample's counter and what counting it comes to.
struct Counter {
  std::uint16_t *count;
  std::uint16_t *total;  // of all counters of the record
  std::int32_t result;
};

// With the record's scale if that is not 0, and its counters wherever the record says they are.
template <class V>
inline Counter CounterOf(RangeCounters<V> &record, V value, std::uint16_t *counters, std::uint64_t scale) {
  std::uint16_t *total = &record.u16_no_of_samples;
  if (value < record.Start) return {&record.u16_min_exception_counter, total, kCountedBelow};
  if (value >= record.End) return {&record.u16_max_exception_counter, total, kCountedAbove};
  const std::uint64_t sub_range =
      scale != 0 ? ScaledSubRange(Distance(record.Start, value), scale) : SubRangeOf(record, value);
  return {counters + sub_range, total, kCountedInside};
}

// A full counter refuses the sample, and then nothing changes.
inline std::int32_t AddOne(const Counter &counter) {
  if (*counter.count == kFullCounter) return kCounterFull;
  ++*counter.count;
  ++*counter.total;
  return counter.result;
}

// Counts a sample.
template <class V>
inline std::int32_t CountInRange(RangeCounters<V> &record, V value) {
  return AddOne(CounterOf<V>(record, value, record.pu16_counters, 0));
}

// First and last value of a sub-range, inclusive.
template <class V>
struct SubRange {
  V first;
  V last;
};

template <class U>
constexpr U DivideUp(U dividend, U divisor) {
  return static_cast<U>(dividend / divisor + (dividend % divisor != 0 ? 1 : 0));
}

// The first offset from Start that SubRangeOf() puts into sub-range b or one above: b * width / Nsc, rounded up,
// where that formula counts.
template <class V>
Unsigned<V> EdgeOf(const RangeCounters<V> &record, std::uint32_t b) {
  using U = Unsigned<V>;
  const U width = Distance(record.Start, record.End);
  const std::uint32_t nsc = record.Nsc;
  if (b >= nsc) return width;
  const U step = width / nsc;
  const U edge = static_cast<U>(b * step + DivideUp(b * static_cast<std::uint32_t>(width % nsc), nsc));
  const U exact_end = Distance(record.Start, record.Vexact_end);
  return edge < exact_end ? edge : std::max(exact_end, static_cast<U>(b * step));
}

// The values that percentiles take to lie in sub-range b: from b * width / Nsc to (b + 1) * width / Nsc, both
// rounded up, as long as the product after the second fits the type, too.
template <class V>
SubRange<V> ValuesOf(const RangeCounters<V> &record, std::uint32_t b) {
  using U = Unsigned<V>;
  const U width = Distance(record.Start, record.End);
  const U nsc = record.Nsc;
  if (width == 0) return {record.Start, record.Start};
  if (static_cast<Wide>(b + 2) * width <= std::numeric_limits<U>::max()) {
    const auto edge = [&](U index) {
      const U product = index * width;
      return static_cast<U>(product / nsc + (product % nsc != 0 ? 1 : 0));
    };
    return {Advance(record.Start, edge(b)), Advance(record.Start, static_cast<U>(edge(b + U{1}) - 1))};
  }
  const U step = width / nsc;
  const V first = Advance(record.Start, static_cast<U>(b * step));
  return {first, Advance(first, static_cast<U>(step - 1))};
}

// Cuts a sub-range to the smallest and largest sample. Sub-ranges are rounded: one that then ends one or two values
// before it begins is taken for its last value. One that ends earlier holds none of these samples: false.
template <class V>
bool NarrowToExtremes(SubRange<V> &range, V min, V max) {
  range.first = std::max(range.first, min);
  range.last = std::min(range.last, max);
  if (range.last < range.first) {
    if (Distance(range.last, range.first) >= 3) return false;
    range.first = range.last;
  }
  return true;
}

// A forward walk over the sub-ranges of one record, for ranks that do not descend.
template <class V>
struct RangeWalk {
  const RangeCounters<V> &record;
  const RankSearch<V> &search;
  std::uint32_t position = 0;  // sub-range; search.below counts the samples before it
};

template <std::ptrdiff_t kCount>
inline std::uint32_t SumOf(const std::uint16_t *counters) {
  std::uint32_t sum = 0;
  for (std::ptrdiff_t i = 0; i < kCount; ++i) sum += counters[i];
  return sum;
}

// Passes the first half of 2 * kHalf counters if the rank lies behind it, then half of the others, and so on:
// without a branch, as where a rank lies cannot be foreseen.
template <std::ptrdiff_t kHalf>
inline void Bisect(const std::uint16_t *&counter, std::uint32_t rank, std::uint32_t &below) {
  const std::uint32_t sum = SumOf<kHalf>(counter);
  const bool is_behind = rank > below + sum;
  counter += is_behind ? kHalf : 0;
  below += is_behind ? sum : 0;
  if constexpr (kHalf > 1) Bisect<kHalf / 2>(counter, rank, below);
}

// The first of the counters with which the samples come to the rank, moving `below` past those before it; the end
// when there is none.
inline const std::uint16_t *FindRank(const std::uint16_t *counter, const std::uint16_t *end, std::uint32_t rank,
                                     std::uint32_t &below) {
  constexpr std::ptrdiff_t kStride = 16;
  if (counter != end && rank <= below + *counter) return counter;
  std::uint32_t passed = below;
  for (; end - counter >= kStride; counter += kStride) {
    const std::uint32_t sum = SumOf<kStride>(counter);
    if (rank <= passed + sum) {
      Bisect<kStride / 2>(counter, rank, passed);
      below = passed;
      return counter;
    }
    passed += sum;
  }
  for (; counter != end && rank > passed + *counter; ++counter) passed += *counter;
  below = passed;
  return counter;
}

// Finds the sub-range that holds a rank and, in it, the values of this rank and the next.
template <class V>
inline Found LocateInSubRanges(RangeWalk<V> &walk, std::uint32_t rank, V &vk, V &vk1) {
  const RangeCounters<V> &record = walk.record;
  const RankSearch<V> &search = walk.search;
  const std::uint16_t *counters = record.pu16_counters;
  const auto *found = FindRank(counters + walk.position, counters + record.Nsc, rank, search.below);
  const auto position = static_cast<std::uint32_t>(found - counters);
  if (position == record.Nsc) {
    walk.position = position;
    return Found::kNone;
  }
  SubRange<V> range = ValuesOf<V>(record, position);
  if (!NarrowToExtremes(range, search.min, search.max)) return Found::kNone;
  walk.position = position;
  return LocateInBucket(search.below, search.total, range.first, range.last, rank - search.below, *found, vk, vk1);
}

// Serves the k-th of the samples on one side of the range, which lie between lowest and highest; the last of them
// is followed by `next`.
template <class V>
Found LocateOutside(const RankSearch<V> &search, V lowest, V highest, std::uint32_t k, std::uint32_t samples,
                    V next, V &vk, V &vk1) {
  const Found found = LocateInBucket(search.below, search.total, lowest, highest, k, samples, vk, vk1);
  if (found != Found::kFirstOnly) return found;
  vk1 = next;
  return Found::kBoth;
}

template <class V>
Found LocateBelow(const RangeWalk<V> &walk, std::uint32_t rank, V &vk, V &vk1) {
  const RankSearch<V> &search = walk.search;
  const V start = walk.record.Start;
  const V last = std::min(Advance(start, static_cast<Unsigned<V>>(-1)), search.max);
  return LocateOutside(search, search.min, last, rank, walk.record.u16_min_exception_counter, start, vk, vk1);
}

template <class V>
Found LocateAbove(const RangeWalk<V> &walk, std::uint32_t k, V &vk, V &vk1) {
  const RankSearch<V> &search = walk.search;
  const V first = std::max(walk.record.End, search.min);
  return LocateOutside(search, first, search.max, k, walk.record.u16_max_exception_counter, search.max, vk, vk1);
}

// Gives the sample after the last one in the sub-ranges, when it lies at or above End.
template <class V>
Found LocateNextAbove(const RangeWalk<V> &walk, std::uint32_t next_rank, V &vk1) {
  if (next_rank == walk.search.total) {
    vk1 = walk.search.max;
    return Found::kBoth;
  }
  V discarded;
  return LocateAbove(walk, 1, vk1, discarded) == Found::kBoth ? Found::kBoth : Found::kFirstOnly;
}

// Serves a rank at or beyond the number of samples below Start.
template <class V>
inline Found ServeFromSubRanges(RangeWalk<V> &walk, std::uint32_t rank, V &vk, V &vk1) {
  const std::uint32_t not_above = walk.search.total - walk.record.u16_max_exception_counter;
  if (walk.search.below == 0) walk.search.below = walk.record.u16_min_exception_counter;
  const Found found = LocateInSubRanges(walk, rank, vk, vk1);
  if (found == Found::kBoth) return found;
  if (found == Found::kNone) return rank <= not_above ? found : LocateAbove(walk, rank - not_above, vk, vk1);
  V discarded;
  if (LocateInSubRanges(walk, rank + 1, vk1, discarded) != Found::kNone) return Found::kBoth;
  return rank + 1 <= not_above ? Found::kFirstOnly : LocateNextAbove(walk, rank + 1, vk1);
}

// Serves the rank at the cursor; kNone leaves it and all later ones to another lookup.
template <class V>
inline Found Serve(RangeWalk<V> &walk) {
  const RankSearch<V> &search = walk.search;
  if (search.ServeExtremes()) return Found::kBoth;
  const std::uint32_t rank = search.Rank();
  if (rank < walk.record.u16_min_exception_counter) return LocateBelow(walk, rank, search.Vk(), search.Vk1());
  return ServeFromSubRanges(walk, rank, search.Vk(), search.Vk1());
}

// The rank lookup of a record. A rank whose next sample is nowhere to be found is passed; as the last one, it
// fails.
template <class V>
Found FindInRange(const RangeCounters<V> &record, const RankSearch<V> &search) {
  RangeWalk<V> walk = {record, search};
  Found last = Found::kNone;
  for (; !search.Done(); ++search.cursor) {
    last = Serve(walk);
    if (last == Found::kNone) break;
  }
  return last == Found::kBoth ? Found::kBoth : Found::kNone;
}

template <class V>
void PrintRangeCounters(const RangeCounters<V> &record) {
  std::printf("Counters data:\n");
  std::printf("Start = %s, End = %s, Nsc = %u\n", ToText(record.Start).chars, ToText(record.End).chars, record.Nsc);
  std::printf("No. of Samples = %u\n", record.u16_no_of_samples);
  for (unsigned i = 0; i < record.Nsc; ++i) {
    if (record.pu16_counters[i] != 0) std::printf("Counter[%u] = %u\n", i, record.pu16_counters[i]);
  }
  std::printf("Min Exception Counter = %u\n", record.u16_min_exception_counter);
  std::printf("Max Exception Counter = %u\n", record.u16_max_exception_counter);
}

}  // namespace zor

#endif  // ZOR_STATS_RANGE_COUNTERS_H_
