#ifndef ZOR_STATS_DYNAMIC_COUNTERS_H_
#define ZOR_STATS_DYNAMIC_COUNTERS_H_

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <limits>

#include "base/memory.h"
#include "base/text.h"
#include "base/value_types.h"
#include "stats/percentile.h"
#include "stats/range_counters.h"

namespace zor {

// value + distance, stopping at the type's maximum.
template <class V>
constexpr V AdvanceWithin(V value, Unsigned<V> distance) {
  return Advance(value, std::min(distance, Distance(value, std::numeric_limits<V>::max())));
}

// The bucket of a value outside the range: its list and where it starts.
template <class V>
struct Bucket {
  DynamicList<V> &list;
  V start;
};

template <class V>
Bucket<V> BucketOf(DynamicCounters<V> &counters, V value) {
  using U = Unsigned<V>;
  const RangeCounters<V> &range = *counters.range_counters;
  if (value >= range.Start) {
    const U offset = Distance(range.End, value);
    return {counters.max_list, Advance(range.End, static_cast<U>(offset - offset % counters.Range))};
  }
  const U position = DivideUp(Distance(value, range.Start), counters.Range);
  const V start = position == counters.NdnMin
                      ? std::numeric_limits<V>::min()
                      : Advance(range.Start, static_cast<U>(U{0} - static_cast<U>(position * counters.Range)));
  return {counters.min_list, start};
}

template <class V>
void FreeNodes(DynamicList<V> &list) {
  while (DynamicNode<V> *node = list.head) {
    list.head = node->next;
    std::free(node);
  }
}

// The first value after a node.
template <class V>
V AfterNode(const DynamicCounters<V> &counters, const DynamicNode<V> &node) {
  return AdvanceWithin(node.Vstart, counters.Range);
}

// Looks for the rank at the cursor in one node, passing the node when the rank lies above it.
template <class V>
Found LocateInNode(const DynamicCounters<V> &counters, const RankSearch<V> &search, const DynamicNode<V> &node) {
  if (search.below + node.Count < search.Rank()) {
    search.below += node.Count;
    return Found::kNone;
  }
  const Unsigned<V> range = counters.Range;
  if (static_cast<V>(range) <= 0) return Found::kNone;
  const V highest = AdvanceWithin(node.Vstart, static_cast<Unsigned<V>>(range - 1));
  const Found found = search.Locate(node.Vstart, highest, search.Rank() - search.below, node.Count);
  if (found == Found::kFirstOnly && node.next) {
    search.Vk1() = node.next->Vstart;
    return Found::kBoth;
  }
  return found;
}

// Samples below the range that found no bucket are assumed to lie below the first one.
template <class V>
bool ServeMinException(const DynamicCounters<V> &counters, const RankSearch<V> &search) {
  const DynamicList<V> &list = counters.min_list;
  const V first = list.head ? list.head->Vstart : counters.range_counters->Start;
  if (first == std::numeric_limits<V>::min()) return false;
  const V last = Advance(first, static_cast<Unsigned<V>>(-1));
  const Found found = search.Locate(search.min, last, search.Rank(), list.exceptions);
  if (found == Found::kFirstOnly) search.Vk1() = first;
  return found != Found::kNone;
}

// Serves ranks below the range until one lies above all of them; then `below` counts every sample of the list.
template <class V>
void WalkMinList(const DynamicCounters<V> &counters, const RankSearch<V> &search) {
  const DynamicList<V> &list = counters.min_list;
  const DynamicNode<V> *node = list.head;
  bool at_nodes = false;
  for (; !search.Done(); ++search.cursor) {
    if (search.ServeExtremes()) continue;
    if (search.Rank() <= list.exceptions) {
      if (!ServeMinException(counters, search)) break;
      continue;
    }
    if (!at_nodes) search.below = list.exceptions;
    at_nodes = true;
    Found found = Found::kNone;
    while (node && (found = LocateInNode(counters, search, *node)) == Found::kNone) node = node->next;
    if (found == Found::kNone) break;
    if (found == Found::kFirstOnly) search.Vk1() = counters.range_counters->Start;
  }
  if (search.Done()) return;
  search.below = list.exceptions;
  for (node = list.head; node; node = node->next) search.below += node->Count;
}

// Serves ranks from the range itself. The range does not know what lies above it: the value after its last sample
// is given here.
template <class V>
void WalkRange(const DynamicCounters<V> &counters, const RankSearch<V> &search) {
  const RangeCounters<V> &range = *counters.range_counters;
  std::uint32_t last_rank = search.below;
  for (std::uint32_t b = 0; b < range.Nsc; ++b) last_rank += range.pu16_counters[b];
  const std::uint32_t first = search.cursor;
  FindInRange<V>(range, search);
  const DynamicNode<V> *above = counters.max_list.head;
  for (std::uint32_t i = first; i < search.cursor; ++i) {
    if (search.ranks[i] != last_rank || last_rank <= 1 || last_rank == search.total) continue;
    search.vk1[i] = above ? above->Vstart : AdvanceWithin<V>(search.vk[i], 1);
  }
}

// Serves ranks above the range: from the nodes, then from the exceptions, assumed to lie above the last one. Of a
// rank that a lower walk should have served and did not, the difference to `below` is negative: as an unsigned
// number it is larger than every count, and ends the lookup.
template <class V>
void WalkMaxList(const DynamicCounters<V> &counters, const RankSearch<V> &search) {
  const DynamicList<V> &list = counters.max_list;
  const DynamicNode<V> *node = list.head;
  V exceptions_start = counters.range_counters->End;
  for (; !search.Done(); ++search.cursor) {
    if (search.ServeExtremes()) continue;
    Found found = Found::kNone;
    while (node && (found = LocateInNode(counters, search, *node)) == Found::kNone) {
      exceptions_start = AfterNode<V>(counters, *node);
      node = node->next;
    }
    if (found == Found::kFirstOnly) search.Vk1() = AfterNode<V>(counters, *node);
    if (found != Found::kNone) continue;
    found = search.Locate(exceptions_start, search.max, search.Rank() - search.below, list.exceptions);
    if (found == Found::kNone) break;
    if (found == Found::kFirstOnly) search.Vk1() = search.max;
  }
}

template <class V>
void PrintNode(const DynamicNode<V> &node) {
  std::printf("Vstart = %s, Count = %u\n", ToText(node.Vstart).chars, node.Count);
}

template <class V>
void PrintList(const DynamicList<V> &list, const char *name) {
  std::printf("%s List length = %u\n", name, list.length);
  for (const DynamicNode<V> *node = list.head; node; node = node->next) PrintNode<V>(*node);
  std::printf("List Exceptions count = %u\n", list.exceptions);
}

template <class V>
void InitDynamicCounters(DynamicCounters<V> &counters, RangeCounters<V> &range_counters, std::uint16_t max_nodes) {
  using U = Unsigned<V>;
  const U span = Distance(range_counters.Start, range_counters.End);
  counters.range_counters = &range_counters;
  counters.MaxNdc = max_nodes;
  counters.Range = std::max(DivideUp(span, U{range_counters.Nsc}), U{1});
  counters.NdnMin = DivideUp(Distance(std::numeric_limits<V>::min(), range_counters.Start), counters.Range);
  counters.min_list = {};
  counters.max_list = {};
}

template <class V>
void UninitDynamicCounters(DynamicCounters<V> &counters) {
  FreeNodes<V>(counters.min_list);
  FreeNodes<V>(counters.max_list);
  counters = {};
}

// Results of counting a sample in dynamic counters.
inline constexpr std::int32_t kCountedInNode = 0;
inline constexpr std::int32_t kCountedAsException = 2;
inline constexpr std::int32_t kNodeFull = 3;
inline constexpr std::int32_t kInsideRange = -2;
inline constexpr std::int32_t kNoMemoryForNode = -3;

template <class V>
std::int32_t CountOutsideRange(DynamicCounters<V> &counters, V value) {
  const RangeCounters<V> &range = *counters.range_counters;
  if (value >= range.Start && value < range.End) return kInsideRange;
  const Bucket<V> bucket = BucketOf<V>(counters, value);
  DynamicNode<V> **link = &bucket.list.head;
  while (*link && (*link)->Vstart < bucket.start) link = &(*link)->next;
  if (DynamicNode<V> *node = *link; node && node->Vstart == bucket.start) {
    if (node->Count == kFullCounter) return kNodeFull;
    ++node->Count;
    return kCountedInNode;
  }
  if (counters.min_list.length + counters.max_list.length < counters.MaxNdc) {
    DynamicNode<V> *node = Allocate<DynamicNode<V>>().release();
    if (!node) return kNoMemoryForNode;
    node->Vstart = bucket.start;
    node->Count = 1;
    node->next = *link;
    *link = node;
    ++bucket.list.length;
    return kCountedInNode;
  }
  if (bucket.list.exceptions == kFullCounter) return kNodeFull;
  ++bucket.list.exceptions;
  return kCountedAsException;
}

// The rank lookup over the buckets below the range, the range and the buckets above.
template <class V>
Found FindInWholeDistribution(const DynamicCounters<V> &counters, const RankSearch<V> &search) {
  if (search.Done()) return Found::kNone;
  WalkMinList(counters, search);
  if (!search.Done()) WalkRange(counters, search);
  if (!search.Done()) WalkMaxList(counters, search);
  return search.Done() ? Found::kBoth : Found::kNone;
}

template <class V>
void PrintDynamicCounters(const DynamicCounters<V> &counters) {
  std::printf("Dynamic Counters data:\n");
  // Widths are printed as numbers of the value's type, signed where it is.
  std::printf("MaxNdc = %u, Range = %s, NdnMin = %s\n", counters.MaxNdc,
              ToText(static_cast<V>(counters.Range)).chars, ToText(static_cast<V>(counters.NdnMin)).chars);
  PrintList<V>(counters.min_list, "Min");
  PrintList<V>(counters.max_list, "Max");
}

}  // namespace zor

#endif  // ZOR_STATS_DYNAMIC_COUNTERS_H_
