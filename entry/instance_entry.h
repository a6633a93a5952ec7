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

// An entry with the statistics that it keeps from its creation on, in the order in which a sample touches them: the
// counters and, where it is the entry's own, the name follow. A block ends before what it does not need.
//
// Where `mode` begins a cache line, as it does in the places of a row, all that a sample needs but its counter is
// in two lines; before it stand only what is read in walks and the last value of a cumulative counter of 64 bits.
template <class V>
struct EntryBlock {
  // The first word: bytes of the block, where it is a place in a row; else 0.
  std::uint64_t head[sizeof(V) == 4 ? 2 : 1];
  Entry<V> entry;
  std::uint64_t scale;  // ScaleOf() the distribution; 0 without a summary or a distribution
  Summary<V> summary;
  RangeCounters<V> range_counters;
};

// Where a sample begins to touch a block, the last value of wide cumulative counters excepted.
inline constexpr std::size_t kTouchedFrom = 40;
inline constexpr std::size_t kTouchedSize = 128;
#define ZOR_CHECK_BLOCK(type, value, unsigned_value, total)                              \
  static_assert(offsetof(EntryBlock<value>, entry.mode) >= kTouchedFrom);                \
  static_assert(offsetof(EntryBlock<value>, range_counters.u16_min_exception_counter) <= \
                kTouchedFrom + kTouchedSize);
ZOR_PROCESS_FOR_EACH_TYPE(ZOR_CHECK_BLOCK)
#undef ZOR_CHECK_BLOCK

inline std::size_t HeadSize(std::uint32_t data_type) {
  return WithValueType(data_type, [](auto v) { return offsetof(EntryBlock<decltype(v)>, entry); });
}

// The block of an entry that was created, as all are but what a caller may have made of the public record.
template <class V>
EntryBlock<V> &BlockOf(Entry<V> &entry) {
  return *reinterpret_cast<EntryBlock<V> *>(reinterpret_cast<char *>(&entry) - offsetof(EntryBlock<V>, entry));
}

// Counts a sample of an entry that keeps a baseline, which has no company. Out of line, so that the frame it needs
// costs the others nothing.
template <class V>
std::int32_t InsertIntoBaseline(Entry<V> &entry, V value, std::uint32_t *period_ended);

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
  PendingCounts() = default;
  ~PendingCounts() { AddAll(); }
  PendingCounts(const PendingCounts &) = delete;
  PendingCounts &operator=(const PendingCounts &) = delete;

  void Add(const Counter &counter) {
    if (size_ == kMost) AddAll();
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

// The same for a created entry; what it counts in buckets may be left pending.
template <class V>
inline std::int32_t InsertIntoBlock(Entry<V> &entry, V value, std::uint64_t &periods_ended,
                                    PendingCounts &pending) {
  EntryBlock<V> &block = BlockOf<V>(entry);
  if (block.scale == 0) {
    std::uint32_t period_ended = 0;
    const std::int32_t result = InsertValue<V>(entry, value, &period_ended);
    periods_ended += period_ended;
    return result;
  }
  if ((entry.mode & kModeCumulative) && !TakeDifference<V>(entry, value)) return 0;
  const std::uint32_t result = CountInSummary<V>(block.summary, value);
  pending.Add(CounterOf<V>(block.range_counters, value, block.scale));
  return static_cast<std::int32_t>(result);
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

// Where the entry is at a place.
inline void *EntryAt(void *place, std::uint32_t data_type) {
  return static_cast<char *>(place) + HeadSize(data_type);
}

// Fetches what a sample touches of an entry at a place.
inline void PrefetchEntry(const void *entry, std::uint32_t data_type) {
  const char *touched = static_cast<const char *>(entry) + (kTouchedFrom - HeadSize(data_type));
  __builtin_prefetch(touched, 1);
  __builtin_prefetch(touched + kTouchedSize / 2, 1);
}

// Bytes of an entry's block, without a name of its own.
std::size_t BlockSize(const EntrySettings &settings);

// Creates an entry. Its block lies at the place, whose first word tells its size and which outlives the entry as
// the name does; without a place it has memory of its own, and a copy of the name. Null without memory, or when
// there can be no such entry.
void *CreateEntry(const EntrySettings &settings, char *name, void *place);

}  // namespace zor

#endif  // ZOR_ENTRY_INSTANCE_ENTRY_H_
