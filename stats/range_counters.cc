#include "stats/range_counters.h"

#include <cstdio>

#include "base/memory.h"
#include "base/text.h"
#include "stats/percentile.h"

namespace zor {
namespace {

// First and last value of a sub-range, inclusive.
template <class V>
struct Bounds {
  V first;
  V last;
};

// The values that SubRangeOf() puts into sub-range b.
template <class V>
Bounds<V> BoundsOf(const RangeCounters<V> &record, std::uint32_t b) {
  using U = Unsigned<V>;
  const U width = Distance(record.Start, record.End);
  const U nsc = record.Nsc;
  if (width == 0) return {record.Start, record.Start};
  if (b < std::numeric_limits<U>::max() / width - 1) {
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

// Cuts a sub-range to the extremes of the stream. Rounding may leave it inverted by one or two values, and then it
// stands for its last value; more than that means counts and extremes that do not belong together: false.
template <class V>
bool NarrowToExtremes(Bounds<V> &bounds, V min, V max) {
  bounds.first = std::max(bounds.first, min);
  bounds.last = std::min(bounds.last, max);
  if (bounds.last < bounds.first) {
    if (Distance(bounds.last, bounds.first) >= 3) return false;
    bounds.first = bounds.last;
  }
  return true;
}

// A forward walk over the sub-ranges of one record, for ranks that do not descend.
template <class V>
struct Search {
  const RangeCounters<V> &record;
  std::uint32_t total;
  V min;
  V max;
  std::uint32_t *below;    // samples before the position
  std::uint32_t position;  // sub-range
};

// Finds the sub-range that holds a rank and, in it, the values of this rank and the next.
template <class V>
Found LocateInSubRanges(Search<V> &search, std::uint32_t rank, V *vk, V *vk1) {
  const RangeCounters<V> &record = search.record;
  std::uint32_t position = search.position;
  if (position >= record.Nsc) return Found::kNone;
  while (rank > *search.below + record.pu16_counters[position]) {
    *search.below += record.pu16_counters[position];
    if (++position == record.Nsc) {
      search.position = position;
      return Found::kNone;
    }
  }
  Bounds<V> bounds = BoundsOf<V>(record, position);
  if (!NarrowToExtremes(bounds, search.min, search.max)) return Found::kNone;
  search.position = position;
  return LocateInBucket(*search.below, search.total, bounds.first, bounds.last, rank - *search.below,
                        record.pu16_counters[position], vk, vk1);
}

// What serving one rank came to: kStop leaves this rank and all later ones to another lookup.
enum class Served { kYes, kWithoutNext, kStop };

// Serves the k-th of the samples on one side of the range, which lie between lowest and highest; the last of them
// is followed by `next`.
template <class V>
Served ServeOutside(const Search<V> &search, V lowest, V highest, std::uint32_t k, std::uint32_t samples, V next,
                    V *vk, V *vk1) {
  const Found found = LocateInBucket(*search.below, search.total, lowest, highest, k, samples, vk, vk1);
  if (found == Found::kFirstOnly) *vk1 = next;
  return found == Found::kNone ? Served::kStop : Served::kYes;
}

template <class V>
Served ServeFromBelow(const Search<V> &search, std::uint32_t rank, V *vk, V *vk1) {
  const V start = search.record.Start;
  const V last = std::min(Advance(start, static_cast<Unsigned<V>>(-1)), search.max);
  return ServeOutside(search, search.min, last, rank, search.record.u16_min_exception_counter, start, vk, vk1);
}

template <class V>
Served ServeFromAbove(const Search<V> &search, std::uint32_t k, V *vk, V *vk1) {
  const V first = std::max(search.record.End, search.min);
  return ServeOutside(search, first, search.max, k, search.record.u16_max_exception_counter, search.max, vk, vk1);
}

// Gives the sample after the last one in the sub-ranges, when it lies at or above End.
template <class V>
Served ServeNextFromAbove(const Search<V> &search, std::uint32_t next_rank, V *vk1) {
  if (next_rank == search.total) {
    *vk1 = search.max;
    return Served::kYes;
  }
  V discarded;
  return ServeFromAbove(search, 1, vk1, &discarded) == Served::kYes ? Served::kYes : Served::kWithoutNext;
}

// Serves a rank at or beyond the number of samples below Start.
template <class V>
Served ServeFromSubRanges(Search<V> &search, std::uint32_t rank, V *vk, V *vk1) {
  const std::uint32_t not_above = search.total - search.record.u16_max_exception_counter;
  if (*search.below == 0) *search.below = search.record.u16_min_exception_counter;
  const Found found = LocateInSubRanges(search, rank, vk, vk1);
  if (found == Found::kBoth) return Served::kYes;
  if (found == Found::kNone) {
    return rank <= not_above ? Served::kStop : ServeFromAbove(search, rank - not_above, vk, vk1);
  }
  V discarded;
  if (LocateInSubRanges(search, rank + 1, vk1, &discarded) != Found::kNone) return Served::kYes;
  return rank + 1 <= not_above ? Served::kWithoutNext : ServeNextFromAbove(search, rank + 1, vk1);
}

template <class V>
Served Serve(Search<V> &search, std::uint32_t rank, V *vk, V *vk1) {
  if (rank <= 1) {
    *vk = *vk1 = search.min;
    return Served::kYes;
  }
  if (rank == search.total) {
    *vk = *vk1 = search.max;
    return Served::kYes;
  }
  if (rank < search.record.u16_min_exception_counter) return ServeFromBelow(search, rank, vk, vk1);
  return ServeFromSubRanges(search, rank, vk, vk1);
}

}  // namespace

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

template <class V>
std::uint32_t InitRangeCounters(RangeCounters<V> &record, V start, V last, std::uint16_t nsc) {
  const std::uint32_t result = CheckRange(start, last, nsc);
  if (result != 0) return result;
  return SetUpRangeCounters<V>(record, start, last, nsc, AllocateArray<std::uint16_t>(nsc).release());
}

template <class V>
std::uint32_t FindInRange(void *context, const std::uint32_t *ranks, std::uint32_t total, V min, V max, V *vk,
                          V *vk1, std::uint32_t *below, std::uint32_t count, std::uint32_t *cursor) {
  Search<V> search = {*static_cast<const RangeCounters<V> *>(context), total, min, max, below, 0};
  Served served = Served::kStop;
  for (; *cursor < count; ++*cursor) {
    const std::uint32_t i = *cursor;
    served = Serve(search, ranks[i], &vk[i], &vk1[i]);
    if (served == Served::kStop) break;
  }
  return static_cast<std::uint32_t>(served == Served::kYes ? Found::kBoth : Found::kNone);
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

#define ZOR_INSTANTIATE(type, value, unsigned_value, total)                                                      \
  template std::uint32_t SetUpRangeCounters<value>(RangeCounters<value> &, value, value, std::uint16_t,          \
                                                   std::uint16_t *);                                             \
  template std::uint32_t InitRangeCounters<value>(RangeCounters<value> &, value, value, std::uint16_t);          \
  template std::uint32_t FindInRange<value>(void *, const std::uint32_t *, std::uint32_t, value, value, value *, \
                                            value *, std::uint32_t *, std::uint32_t, std::uint32_t *);           \
  template void PrintRangeCounters<value>(const RangeCounters<value> &);
ZOR_PROCESS_FOR_EACH_TYPE(ZOR_INSTANTIATE)

}  // namespace zor

#define ZOR_DEFINE_RANGE_COUNTERS(type, value, unsigned_value, total_type)                                         \
  std::uint32_t stats_range_counters_init_##type(stats_range_counters_##type##_t *record, value start, value last, \
                                                 std::uint16_t nsc) {                                              \
    return zor::InitRangeCounters<value>(*record, start, last, nsc);                                               \
  }                                                                                                                \
  std::int32_t stats_range_counters_insert_##type(stats_range_counters_##type##_t *record, value sample) {         \
    return zor::CountInRange<value>(*record, sample);                                                              \
  }                                                                                                                \
  std::uint32_t stats_range_counters_find_Vk_Vk1_##type(                                                           \
      void *record, const std::uint32_t *ranks, std::uint32_t total, value min, value max, value *vk, value *vk1,  \
      std::uint32_t *below, std::uint32_t count, std::uint32_t *cursor) {                                          \
    return zor::FindInRange<value>(record, ranks, total, min, max, vk, vk1, below, count, cursor);                 \
  }                                                                                                                \
  void stats_range_counters_print_##type(const stats_range_counters_##type##_t *record) {                          \
    zor::PrintRangeCounters<value>(*record);                                                                       \
  }
ZOR_PROCESS_FOR_EACH_TYPE(ZOR_DEFINE_RANGE_COUNTERS)
