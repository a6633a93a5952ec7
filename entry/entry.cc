#include "zor/entry.h"

#include <cstdlib>
#include <cstring>
#include <limits>
#include <memory>
#include <utility>

#include "base/memory.h"
#include "entry/instance_entry.h"
#include "entry/sections.h"
#include "stats/analyzer.h"
#include "stats/range_counters.h"
#include "stats/summary.h"
#include "zor/engine.h"

namespace zor {
namespace {

constexpr std::uint16_t kMaxOutsideBuckets = 10;  // of a baseline

template <class V>
void DestroyEntry(Entry<V> *entry) {
  if (entry->analyzer) UninitAnalyzer<V>(*entry->analyzer);
  std::free(entry->analyzer);
  std::free(entry->clear_buffer);
  std::free(entry);
}

template <class V>
struct EntryDestroyer {
  void operator()(Entry<V> *entry) const { DestroyEntry<V>(entry); }
};

// An entry, its summary, its distribution and its name lie in one block, in the order in which a sample touches
// them. Pieces are carved off its start; the entry's own pointers lead to them.
class Block {
 public:
  explicit Block(std::size_t size) : start_(static_cast<char *>(std::calloc(1, size))), next_(start_) {}

  bool is_allocated() const { return start_ != nullptr; }

  // Room for `count` records, zeroed.
  template <class T>
  T *Carve(std::size_t count = 1) {
    return reinterpret_cast<T *>(std::exchange(next_, next_ + SizeOf<T>(count)));
  }

  // Rounded up, so that every piece is aligned.
  template <class T>
  static constexpr std::size_t SizeOf(std::size_t count = 1) {
    constexpr std::size_t kAlignment = alignof(std::uint64_t);
    static_assert(alignof(T) <= kAlignment);
    return (count * sizeof(T) + kAlignment - 1) / kAlignment * kAlignment;
  }

 private:
  char *start_;
  char *next_;
};

template <class V>
struct Bounds {
  V low = std::numeric_limits<V>::min();
  V high = std::numeric_limits<V>::max();
};

// An entry with its name and the statistics that flags ask for; null without memory.
template <class V>
Entry<V> *AllocateEntry(const char *key, std::uint16_t flags, Bounds<V> range, std::uint16_t buckets) {
  const bool has_summary = flags & ZOR_PROCESS_FLAG_SUMMARY;
  const bool has_distribution = flags & ZOR_PROCESS_FLAG_DISTRIBUTION;
  const std::size_t key_size = std::strlen(key) + 1;
  std::size_t size = Block::SizeOf<Entry<V>>() + key_size;
  if (has_summary) size += Block::SizeOf<Summary<V>>();
  if (has_distribution) size += Block::SizeOf<RangeCounters<V>>() + Block::SizeOf<std::uint16_t>(buckets);

  Block block(size);
  if (!block.is_allocated()) return nullptr;
  auto *entry = block.Carve<Entry<V>>();
  if (has_summary) entry->summary = block.Carve<Summary<V>>();
  if (has_distribution) {
    entry->range_counters = block.Carve<RangeCounters<V>>();
    SetUpRangeCounters<V>(*entry->range_counters, range.low, range.high, buckets,
                          block.Carve<std::uint16_t>(buckets));
  }
  entry->name = block.Carve<char>(key_size);
  std::memcpy(entry->name, key, key_size);
  return entry;
}

template <class V>
bool CreateBaseline(Entry<V> &entry, std::uint32_t learning_count, std::uint16_t buckets) {
  entry.analyzer = Allocate<Analyzer<V>>().release();
  return entry.analyzer && InitAnalyzer<V>(*entry.analyzer, learning_count, buckets, kMaxOutsideBuckets) == 0;
}

template <class V>
Entry<V> *CreateEntry(const char *key, std::uint32_t value_kind, std::uint16_t flags, const void *range,
                      std::uint16_t buckets, std::uint32_t clear_count,
                      zor_process_object_oper_entry_t *oper_entry) {
  if ((flags & ZOR_PROCESS_FLAG_BASELINE) && flags != ZOR_PROCESS_FLAG_BASELINE) return nullptr;
  if (flags & ZOR_PROCESS_FLAG_PERCENTILE) flags |= ZOR_PROCESS_FLAG_SUMMARY | ZOR_PROCESS_FLAG_DISTRIBUTION;
  Bounds<V> bounds;
  if (range) std::memcpy(&bounds, range, sizeof bounds);
  if ((flags & ZOR_PROCESS_FLAG_DISTRIBUTION) && CheckRange(bounds.low, bounds.high, buckets) != 0) return nullptr;

  std::unique_ptr<Entry<V>, EntryDestroyer<V>> entry(AllocateEntry<V>(key, flags, bounds, buckets));
  if (!entry) return nullptr;
  entry->clear_count = static_cast<std::uint16_t>(clear_count);
  entry->oper_entry = oper_entry;
  entry->mode = value_kind == 1 ? kModeCumulative : 0;
  if ((flags & ZOR_PROCESS_FLAG_BASELINE) && !CreateBaseline<V>(*entry, clear_count, buckets)) return nullptr;
  return entry.release();
}

template <class V>
void SetClearBuffer(Entry<V> &entry, char *text) {
  if (entry.analyzer && entry.analyzer->stage == STATS_ANALYZER_LEARNING) {
    std::free(text);
  } else {
    entry.clear_buffer = text;
  }
}

// Renders the baseline record of the period that has ended. False when the one before is not collected yet, or
// without memory.
template <class V>
bool TakeSnapshot(Entry<V> &entry) {
  if (entry.clear_buffer) return false;
  const zor_process_object_oper_entry_t &oper = *entry.oper_entry;
  char *text = RenderEntry<V>({ZOR_PROCESS_OUTPUT_RECORD, oper.dg_name, oper.name, oper.flags, nullptr, entry});
  if (!text) return false;
  SetClearBuffer<V>(entry, text);
  return true;
}

// Out of line, so that the frame it needs costs the other entries nothing.
template <class V>
[[gnu::noinline]] std::int32_t InsertIntoBaseline(Entry<V> &entry, V value, std::uint32_t *period_ended) {
  Analyzer<V> &analyzer = *entry.analyzer;
  const std::int32_t result = Analyze<V>(analyzer, value);
  if (result == kCounterFull) {
    RestartAnalysis<V>(analyzer);
    entry.sample_count = 0;
    return 0;
  }
  if (++entry.sample_count != entry.clear_count) return result;
  entry.sample_count = 0;
  *period_ended = 1;
  const bool counted = analyzer.stage == STATS_ANALYZER_ANALYZING && analyzer.summary.u32_no_of_samples != 0;
  if (counted && !TakeSnapshot<V>(entry)) return 1;
  return result;
}

template <class V>
std::int32_t InsertValue(Entry<V> &entry, V value, std::uint32_t *period_ended) {
  if (entry.mode & kModeCumulative) {
    const V raw = value;
    value = static_cast<V>(Distance(entry.last_value, raw));
    entry.last_value = raw;
    if (!(entry.mode & kModePrimed)) {
      entry.mode |= kModePrimed;
      return 0;
    }
  }
  if (entry.analyzer) return InsertIntoBaseline<V>(entry, value, period_ended);  // it never has company
  std::uint32_t result = 0;
  if (entry.summary) result = CountInSummary<V>(*entry.summary, value);
  if (entry.range_counters) CountInRange<V>(*entry.range_counters, value);
  return static_cast<std::int32_t>(result);
}

}  // namespace
}  // namespace zor

#define ZOR_DEFINE_ENTRY(type, value, unsigned_value, total)                                                    \
  void *zor_process_object_instance_entry_create_##type(                                                        \
      const char *key, std::uint32_t value_kind, std::uint32_t flags, const void *range, std::uint32_t buckets, \
      std::uint32_t clear_count, zor_process_object_oper_entry_t *oper_entry) {                                 \
    return zor::CreateEntry<value>(key, value_kind, static_cast<std::uint16_t>(flags), range,                   \
                                   static_cast<std::uint16_t>(buckets), clear_count, oper_entry);               \
  }                                                                                                             \
  std::int32_t zor_process_object_instance_entry_insert_##type(void *entry, const void *sample,                 \
                                                               std::uint32_t *period_ended) {                   \
    value v;                                                                                                    \
    std::memcpy(&v, sample, sizeof v);                                                                          \
    return zor::InsertValue<value>(*static_cast<zor::Entry<value> *>(entry), v, period_ended);                  \
  }                                                                                                             \
  void zor_process_object_instance_entry_clear_##type(std::uint32_t selection, void *entry, std::uint32_t) {    \
    zor::ClearStatistics<value>(selection, *static_cast<zor::Entry<value> *>(entry));                           \
  }                                                                                                             \
  void zor_process_object_instance_entry_destroy_##type(void *entry) {                                          \
    zor::DestroyEntry<value>(static_cast<zor::Entry<value> *>(entry));                                          \
  }                                                                                                             \
  char *zor_process_object_instance_entry_get_data_##type(std::uint16_t output_mode, const char *dg_name,       \
                                                          const char *object_name, std::uint16_t flags,         \
                                                          const std::uint32_t *percentile, void *entry) {       \
    return zor::RenderEntry<value>(                                                                             \
        {output_mode, dg_name, object_name, flags, percentile, *static_cast<zor::Entry<value> *>(entry)});      \
  }                                                                                                             \
  char *zor_process_object_instance_entry_get_clear_buffer_##type(void *entry) {                                \
    return static_cast<zor::Entry<value> *>(entry)->clear_buffer;                                               \
  }                                                                                                             \
  void zor_process_object_instance_entry_set_clear_buffer_##type(void *entry, char *text) {                     \
    zor::SetClearBuffer<value>(*static_cast<zor::Entry<value> *>(entry), text);                                 \
  }
ZOR_PROCESS_FOR_EACH_TYPE(ZOR_DEFINE_ENTRY)

#define ZOR_DEFINE_TABLE(operation)                                                                              \
  const zor_process_entry_##operation##_fn g_zor_poi_entry_##operation##_funcs[ZOR_PROCESS_NO_OF_DATA_TYPES] = { \
      zor_process_object_instance_entry_##operation##_int32,                                                     \
      zor_process_object_instance_entry_##operation##_uint32,                                                    \
      zor_process_object_instance_entry_##operation##_int64,                                                     \
      zor_process_object_instance_entry_##operation##_uint64};
ZOR_DEFINE_TABLE(create)
ZOR_DEFINE_TABLE(insert)
ZOR_DEFINE_TABLE(destroy)
ZOR_DEFINE_TABLE(get_data)
ZOR_DEFINE_TABLE(clear)
ZOR_DEFINE_TABLE(get_clear_buffer)
ZOR_DEFINE_TABLE(set_clear_buffer)
