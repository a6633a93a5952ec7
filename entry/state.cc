#include "entry/state.h"

#include <algorithm>
#include <cstring>

#include "base/memory.h"
#include "entry/instance_entry.h"
#include "stats/analyzer.h"

namespace zor {
namespace {

template <class V, class Archive>
void Transfer(Archive &archive, Summary<V> &summary) {
  archive.Fields(summary.Vmin, summary.Vmax, summary.Vtotal, summary.u32_no_of_samples);
  archive.Expect(summary.Vmin <= summary.Vmax);
}

template <class V, class Archive>
void Transfer(Archive &archive, RangeCounters<V> &range) {
  archive.Same(range.Start, range.End, range.Nsc);
  archive.Fields(range.u16_no_of_samples, range.u16_min_exception_counter, range.u16_max_exception_counter);
  archive.Bytes(range.pu16_counters, range.Nsc * sizeof *range.pu16_counters);
}

template <class V, class Archive>
void Transfer(Archive &archive, SortedArray<V> &array) {
  archive.Fields(array.Valid_Length);
  array.Valid_Length = std::min(array.Valid_Length, array.Size);
  archive.Bytes(array.p_values, array.Valid_Length * sizeof *array.p_values);
  archive.Expect(std::is_sorted(array.p_values, array.p_values + array.Valid_Length));
}

template <class V, class Archive>
void Transfer(Archive &archive, Learner<V> &learner) {
  archive.Same(learner.expected);
  archive.Fields(learner.got);
  archive.Expect(learner.got <= learner.expected);
  Transfer<V>(archive, learner.lowest);
  Transfer<V>(archive, learner.highest);
}

// Makes the next bucket of a list, at `link`. False when there can be no more, or without memory.
template <class V>
bool AddNode(StateReader &archive, const DynamicCounters<V> &counters, DynamicList<V> &list,
             DynamicNode<V> **link) {
  const std::uint32_t nodes = counters.min_list.length + counters.max_list.length;
  archive.Expect(nodes < counters.MaxNdc);
  if (archive.result() != ZOR_PROCESS_SUCCESS) return false;
  *link = Allocate<DynamicNode<V>>().release();
  *link ? void(++list.length) : archive.Fail(ZOR_PROCESS_ERROR_NO_MEMORY);
  return *link != nullptr;
}

template <class V, class Archive>
void Transfer(Archive &archive, DynamicCounters<V> &counters, DynamicList<V> &list) {
  std::uint16_t length = list.length;
  archive.Fields(list.exceptions, length);
  DynamicNode<V> *before = nullptr;
  for (DynamicNode<V> **link = &list.head; length != 0; --length, link = &before->next) {
    if constexpr (Archive::kReads) {
      if (!AddNode<V>(archive, counters, list, link)) return;
    }
    DynamicNode<V> &node = **link;
    archive.Fields(node.Vstart, node.Count);
    const RangeCounters<V> &range = *counters.range_counters;
    archive.Expect(node.Vstart < range.Start || node.Vstart >= range.End);
    const Bucket<V> bucket = BucketOf<V>(counters, node.Vstart);
    archive.Expect(&bucket.list == &list && bucket.start == node.Vstart);
    archive.Expect(!before || before->Vstart < node.Vstart);
    before = &node;
  }
}

// Of the stages, the first is the one that an analyzer is made in.
template <class V, class Archive>
void Transfer(Archive &archive, Analyzer<V> &analyzer) {
  std::uint32_t stage = analyzer.stage;
  archive.Fields(stage);
  archive.Expect(stage <= STATS_ANALYZER_ERROR);
  Transfer<V>(archive, analyzer.learner);
  Transfer<V>(archive, analyzer.summary);
  if (stage == STATS_ANALYZER_ERROR) analyzer.stage = stage;
  if (stage != STATS_ANALYZER_ANALYZING) return;
  if constexpr (Archive::kReads) {
    const std::uint32_t built = BuildCounters<V>(analyzer);  // over what was learnt
    if (built != 0) return archive.Fail(built == 3 ? ZOR_PROCESS_ERROR_NO_MEMORY : ZOR_PROCESS_ERROR_IN_DATA);
  }
  Transfer<V>(archive, analyzer.range_counters);
  Transfer<V>(archive, analyzer.dynamic_counters, analyzer.dynamic_counters.min_list);
  Transfer<V>(archive, analyzer.dynamic_counters, analyzer.dynamic_counters.max_list);
}

// Records that wait to be collected, or null.
void TransferText(StateWriter &archive, char *&text) {
  const std::uint64_t size = text ? std::strlen(text) + 1 : 0;
  archive.Fields(size);
  archive.Bytes(text, size);
}
void TransferText(StateReader &archive, char *&text) {
  std::uint64_t size = 0;
  archive.Fields(size);
  const char *taken = archive.Take(size);
  if (!taken || size == 0) return;
  archive.Expect(std::memchr(taken, '\0', size) == taken + size - 1);
  if (archive.result() != ZOR_PROCESS_SUCCESS) return;
  text = strdup(taken);
  if (!text) archive.Fail(ZOR_PROCESS_ERROR_NO_MEMORY);
}

template <class V, class Archive>
void Transfer(Archive &archive, Entry<V> &entry) {
  const std::uint16_t kind = entry.mode & kModeCumulative;
  std::uint16_t mode = entry.mode;
  archive.Same(kind, entry.clear_count);
  archive.Fields(entry.last_value, mode, entry.sample_count);
  if (mode & kModePrimed) entry.mode |= kModePrimed;
  TransferText(archive, entry.clear_buffer);
  if (entry.summary) Transfer<V>(archive, *entry.summary);
  if (entry.range_counters) Transfer<V>(archive, *entry.range_counters);
  if (entry.analyzer) Transfer<V>(archive, *entry.analyzer);
}

}  // namespace

template <class Archive>
void TransferEntry(Archive &archive, std::uint32_t data_type, void *entry) {
  WithValueType(data_type, [&](auto value) {
    using V = decltype(value);
    Transfer<V>(archive, *static_cast<Entry<V> *>(entry));
  });
}

template void TransferEntry(StateWriter &, std::uint32_t, void *);
template void TransferEntry(StateReader &, std::uint32_t, void *);

}  // namespace zor
