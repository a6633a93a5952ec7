// The entry record of each value type with what lies around it, and how a sample is counted there.
#ifndef ZOR_ENTRY_INSTANCE_ENTRY_H_
#define ZOR_ENTRY_INSTANCE_ENTRY_H_

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "base/value_types.h"
#include "stats/percentile.h"
#include "stats/range_counters.h"
#include "stats/summary.h"
#include "zor/engine.h"
#include "zor/entry.h"

namespace zor {

template <class V>
struct EntryOf;

#define ZOR_DEFINE_ENTRY_OF(type, value, unsigned_value, total)  \
  template <>                                                    \
  struct EntryOf<value> {                                        \
    using Record = zor_process_object_instance_entry_##type##_t; \
  };
ZOR_PROCESS_FOR_EACH_TYPE(ZOR_DEFINE_ENTRY_OF)
#undef ZOR_DEFINE_ENTRY_OF

template <class V>
using Entry = typename EntryOf<V>::Record;

// The percentiles of an entry that keeps a summary and a distribution.
template <class V>
Estimate EstimateDistribution(const Entry<V> &entry, const std::uint32_t *points, FixedPoint<V> *results,
                              std::uint32_t count) {
  const Summary<V> &summary = *entry.summary;
  return EstimatePercentiles<V>(
      points, results, count, summary.Vmin, summary.Vmax, summary.u32_no_of_samples,
      [&](const RankSearch<V> &search) { return FindInRange<V>(*entry.range_counters, search); });
}

// Bits of an entry's mode.
inline constexpr std::uint16_t kModeCumulative = 1;
inline constexpr std::uint16_t kModePrimed = 2;

// An entry with the statistics that it keeps from its creation on: the counters and, where it is the entry's own,
// the name follow. A block ends before what it does not need.
template <class V>
struct EntryBlock {
  std::uint64_t place_size;  // where it is a place in a row; else 0
  Entry<V> entry;
  std::uint64_t scale;  // ScaleOf() the distribution; 0 without a summary or a distribution
  Summary<V> summary;
  RangeCounters<V> range_counters;

  std::uint16_t *counters() { return reinterpret_cast<std::uint16_t *>(this + 1); }
};

// A plain sample, one of InsertPlain(), touches one line of a block that stands as in a row, beside that of its
// counter: it begins with the summary, and ends before the range's pointer to the counters, which are known to
// follow the block.
inline constexpr std::size_t kLine = 64;
inline constexpr std::size_t kEntryAt = 8;
inline constexpr std::size_t kTouchedFrom = 96;
#define ZOR_CHECK_BLOCK(type, value, unsigned_value, total)            \
  static_assert(offsetof(EntryBlock<value>, entry) == kEntryAt);       \
  static_assert(offsetof(EntryBlock<value>, summary) == kTouchedFrom); \
  static_assert(offsetof(EntryBlock<value>, range_counters.pu16_counters) <= kTouchedFrom + kLine);
ZOR_PROCESS_FOR_EACH_TYPE(ZOR_CHECK_BLOCK)
#undef ZOR_CHECK_BLOCK

// The block of an entry that was created, as all are but what a caller may have made of the public record.
template <class V>
EntryBlock<V> &BlockOf(Entry<V> &entry) {
  return *reinterpret_cast<EntryBlock<V> *>(reinterpret_cast<char *>(&entry) - kEntryAt);
}

// Counts a sample of an entry that keeps a baseline, which has no company. Out of line, so that the frame it needs
// costs the others nothing.
template <class V>
[[gnu::noinline]] std::int32_t InsertIntoBaseline(Entry<V> &entry, V value, std::uint32_t *period_ended);

// The difference to the last value of a cumulative counter; the first one only primes it: false.
template <class V>
inline bool TakeDifference(Entry<V> &entry, V &value) {
  const V raw = value;
  value = static_cast<V>(Distance(entry.last_value, raw));
  entry.last_value = raw;
  if (entry.mode & kModePrimed) return true;
  entry.mode |= kModePrimed;
  return false;
}

// Counts a sample: see zor_process_entry_insert_fn in zor/entry.h.
template <class V>
inline std::int32_t InsertValue(Entry<V> &entry, V value, std::uint32_t *period_ended) {
  if ((entry.mode & kModeCumulative) && !TakeDifference<V>(entry, value)) return 0;
  if (entry.analyzer) return InsertIntoBaseline<V>(entry, value, period_ended);
  std::uint32_t result = 0;
  if (entry.summary) result = CountInSummary<V>(*entry.summary, value);
  if (entry.range_counters) CountInRange<V>(*entry.range_counters, value);
  return static_cast<std::int32_t>(result);
}

// Counters of samples, to be added to together: their lines come from memory all at the same time then.
class PendingCounts {
 public:
  PendingCounts() = default;  // cppcheck-suppress uninitMemberVar; as many as size_ tells
  ~PendingCounts() { AddAll(); }
  PendingCounts(const PendingCounts &) = delete;
  PendingCounts &operator=(const PendingCounts &) = delete;

  void Add(const Counter &counter) {
    if (size_ == kMost) AddAll();
    __builtin_prefetch(counter.count, 1);
    counters_[size_++] = counter;
  }

 private:
  static constexpr std::uint32_t kMost = 16;

  void AddAll() {
    for (std::uint32_t i = 0; i < size_; ++i) AddOne(counters_[i]);
    size_ = 0;
  }

  Counter counters_[kMost];
  std::uint32_t size_ = 0;
};

// Counts a sample of an entry with a summary and a distribution, whose scale is known and not 0.
template <class V>
inline std::int32_t InsertPlain(EntryBlock<V> &block, V value, std::uint64_t scale, PendingCounts &pending) {
  const std::uint32_t result = CountInSummary<V>(block.summary, value);
  pending.Add(CounterOf<V>(block.range_counters, value, block.counters(), scale));
  return static_cast<std::int32_t>(result);
}

// The same for any created entry.
template <class V>
inline std::int32_t InsertIntoBlock(EntryBlock<V> &block, V value, std::uint64_t &periods_ended,
                                    PendingCounts &pending) {
  Entry<V> &entry = block.entry;
  if (block.scale == 0) {
    std::uint32_t period_ended = 0;
    const std::int32_t result = InsertValue<V>(entry, value, &period_ended);
    periods_ended += period_ended;
    return result;
  }
  if ((entry.mode & kModeCumulative) && !TakeDifference<V>(entry, value)) return 0;
  return InsertPlain<V>(block, value, block.scale, pending);
}

// The scale of an entry whose samples are all plain ones; else 0.
inline std::uint64_t PlainScaleOf(void *entry, std::uint32_t data_type) {
  return WithValueType(data_type, [entry](auto v) {
    using V = decltype(v);
    auto &created = *static_cast<Entry<V> *>(entry);
    return (created.mode & kModeCumulative) != 0 ? 0 : BlockOf<V>(created).scale;
  });
}

// What an object wants of the entries of its instances; see zor_process_entry_create_fn in zor/entry.h.
struct EntrySettings {
  std::uint32_t data_type;
  std::uint32_t value_kind;
  std::uint16_t flags;
  const void *range;
  std::uint16_t buckets;
  std::uint32_t clear_count;
  zor_process_object_oper_entry_t *oper_entry;
};

// A place for the block of an entry, of so many bytes. It outlives the entry.
inline void BeginPlace(void *place, std::uint64_t size) { std::memcpy(place, &size, sizeof size); }

inline std::uint64_t PlaceSize(const void *place) {
  std::uint64_t size;
  std::memcpy(&size, place, sizeof size);
  return size;
}

inline void *EntryAt(void *place) { return static_cast<char *>(place) + kEntryAt; }

// Bytes of an entry's block, without a name of its own.
std::size_t BlockSize(const EntrySettings &settings);

// What an entry can be given to lie at, and to be named by: both outlive it.
struct EntryPlace {
  void *block = nullptr;  // its first word tells its size
  char *name = nullptr;
};

// Creates an entry at the place; without one it has memory of its own, and a copy of the name. Null without memory,
// or when there can be no such entry.
void *CreateEntry(const EntrySettings &settings, const char *name, const EntryPlace &place);

}  // namespace zor

#endif  // ZOR_ENTRY_INSTANCE_ENTRY_H_
