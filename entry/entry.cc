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
  EntryBlock<V> &block = BlockOf<V>(*entry);
  if (block.place_size == 0) std::free(&block);
}

template <class V>
struct EntryDestroyer {
  void operator()(Entry<V> *entry) const { DestroyEntry<V>(entry); }
};

template <class V>
struct Bounds {
  V low = std::numeric_limits<V>::min();
  V high = std::numeric_limits<V>::max();
};

std::uint16_t KeptFlags(std::uint16_t flags) {
  const bool has_percentiles = flags & ZOR_PROCESS_FLAG_PERCENTILE;
  return static_cast<std::uint16_t>(
      flags | (has_percentiles ? ZOR_PROCESS_FLAG_SUMMARY | ZOR_PROCESS_FLAG_DISTRIBUTION : 0));
}

template <class V>
std::size_t SizeOfBlock(std::uint16_t flags, std::uint16_t buckets) {
  using Block = EntryBlock<V>;
  if (flags & ZOR_PROCESS_FLAG_DISTRIBUTION) return sizeof(Block) + buckets * sizeof(std::uint16_t);
  if (flags & ZOR_PROCESS_FLAG_SUMMARY) return offsetof(Block, range_counters);
  return offsetof(Block, summary);
}

template <class V>
bool CreateBaseline(Entry<V> &entry, std::uint32_t learning_count, std::uint16_t buckets) {
  entry.analyzer = Allocate<Analyzer<V>>().release();
  return entry.analyzer && InitAnalyzer<V>(*entry.analyzer, learning_count, buckets, kMaxOutsideBuckets) == 0;
}

// A zeroed block of its own with a copy of the name behind it; null without memory.
template <class V>
EntryBlock<V> *AllocateBlock(std::size_t size, const char *name) {
  const std::size_t name_size = std::strlen(name) + 1;
  auto *block = static_cast<EntryBlock<V> *>(std::calloc(1, size + name_size));
  if (!block) return nullptr;
  block->entry.name = reinterpret_cast<char *>(block) + size;
  std::memcpy(block->entry.name, name, name_size);
  return block;
}

// A zeroed block at a place.
template <class V>
EntryBlock<V> *ClearPlace(const EntryPlace &place) {
  auto *block = static_cast<EntryBlock<V> *>(place.block);
  const std::size_t size = block->place_size;
  std::memset(place.block, 0, size);
  block->place_size = size;
  block->entry.name = place.name;
  return block;
}

template <class V>
bool SetUpStatistics(EntryBlock<V> &block, const EntrySettings &settings, std::uint16_t flags, Bounds<V> bounds) {
  Entry<V> &entry = block.entry;
  if (flags & ZOR_PROCESS_FLAG_SUMMARY) entry.summary = &block.summary;
  if (flags & ZOR_PROCESS_FLAG_DISTRIBUTION) {
    entry.range_counters = &block.range_counters;
    SetUpRangeCounters<V>(*entry.range_counters, bounds.low, bounds.high, settings.buckets, block.counters());
    if (entry.summary) block.scale = ScaleOf<V>(*entry.range_counters);
  }
  return !(flags & ZOR_PROCESS_FLAG_BASELINE) || CreateBaseline<V>(entry, settings.clear_count, settings.buckets);
}

// At a place, or with a block of its own where there is none.
template <class V>
Entry<V> *MakeEntry(const EntrySettings &settings, const char *name, const EntryPlace &place) {
  const std::uint16_t flags = KeptFlags(settings.flags);
  if ((flags & ZOR_PROCESS_FLAG_BASELINE) && flags != ZOR_PROCESS_FLAG_BASELINE) return nullptr;
  Bounds<V> bounds;
  if (settings.range) std::memcpy(&bounds, settings.range, sizeof bounds);
  const bool has_distribution = flags & ZOR_PROCESS_FLAG_DISTRIBUTION;
  if (has_distribution && CheckRange(bounds.low, bounds.high, settings.buckets) != 0) return nullptr;

  EntryBlock<V> *block =
      place.block ? ClearPlace<V>(place) : AllocateBlock<V>(SizeOfBlock<V>(flags, settings.buckets), name);
  if (!block) return nullptr;
  std::unique_ptr<Entry<V>, EntryDestroyer<V>> entry(&block->entry);
  entry->clear_count = static_cast<std::uint16_t>(settings.clear_count);
  entry->oper_entry = settings.oper_entry;
  entry->mode = settings.value_kind == 1 ? kModeCumulative : 0;
  return SetUpStatistics<V>(*block, settings, flags, bounds) ? entry.release() : nullptr;
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

}  // namespace

template <class V>
std::int32_t InsertIntoBaseline(Entry<V> &entry, V value, std::uint32_t *period_ended) {
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

#define ZOR_INSTANTIATE(type, value, unsigned_value, total) \
  template std::int32_t InsertIntoBaseline<value>(Entry<value> &, value, std::uint32_t *);
ZOR_PROCESS_FOR_EACH_TYPE(ZOR_INSTANTIATE)
#undef ZOR_INSTANTIATE

std::size_t BlockSize(const EntrySettings &settings) {
  return WithValueType(settings.data_type, [&](auto v) {
    return SizeOfBlock<decltype(v)>(KeptFlags(settings.flags), settings.buckets);
  });
}

void *CreateEntry(const EntrySettings &settings, const char *name, const EntryPlace &place) {
  return WithValueType(settings.data_type,
                       [&](auto v) -> void * { return MakeEntry<decltype(v)>(settings, name, place); });
}

}  // namespace zor

#define ZOR_DEFINE_ENTRY(type, value, unsigned_value, total)                                                    \
  void *zor_process_object_instance_entry_create_##type(                                                        \
      const char *key, std::uint32_t value_kind, std::uint32_t flags, const void *range, std::uint32_t buckets, \
      std::uint32_t clear_count, zor_process_object_oper_entry_t *oper_entry) {                                 \
    return zor::MakeEntry<value>({0, value_kind, static_cast<std::uint16_t>(flags), range,                      \
                                  static_cast<std::uint16_t>(buckets), clear_count, oper_entry},                \
                                 key, {});                                                                      \
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
