#include "stats/dynamic_counters.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <limits>

#include "base/memory.h"
#include "base/text.h"
#include "stats/percentile.h"
#include "stats/range_counters.h"

namespace zor {
namespace {

template <class U>
constexpr U DivideUp(U dividend, U divisor) {
  return static_cast<U>(dividend / divisor + (dividend % divisor != 0 ? 1 : 0));
}

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

// One lookup over the whole distribution: what the rank-lookup contract hands in, and the model of one bucket.
template <class V>
struct Search {
  const DynamicCounters<V> &counters;
  const std::uint32_t *ranks;
  std::uint32_t total;
  V min;
  V max;
  V *vk;
  V *vk1;
  std::uint32_t *below;
  std::uint32_t count;
  std::uint32_t *cursor;

  bool Done() const { return *cursor == count; }
  std::uint32_t Rank() const { return ranks[*cursor]; }
  V &Vk() const { return vk[*cursor]; }
  V &Vk1() const { return vk1[*cursor]; }

  Found Locate(V lowest, V highest, std::uint32_t k, std::uint32_t samples) const {
    return LocateInBucket<V>(*below, total, lowest, highest, k, samples, &Vk(), &Vk1());
  }

  // The ends of the distribution, which every walk serves before it looks at its data.
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

// The first value after a node.
template <class V>
V AfterNode(const DynamicCounters<V> &counters, const DynamicNode<V> &node) {
  return AdvanceWithin(node.Vstart, counters.Range);
}

// Looks for the rank at the cursor in one node, passing the node when the rank lies above it.
template <class V>
Found LocateInNode(const Search<V> &search, const DynamicNode<V> &node) {
  if (*search.below + node.Count < search.Rank()) {
    *search.below += node.Count;
    return Found::kNone;
  }
  const Unsigned<V> range = search.counters.Range;
  if (static_cast<V>(range) <= 0) return Found::kNone;
  const V highest = AdvanceWithin(node.Vstart, static_cast<Unsigned<V>>(range - 1));
  const Found found = search.Locate(node.Vstart, highest, search.Rank() - *search.below, node.Count);
  if (found == Found::kFirstOnly && node.next) {
    search.Vk1() = node.next->Vstart;
    return Found::kBoth;
  }
  return found;
}

// Samples below the range that found no bucket are assumed to lie below the first one.
template <class V>
bool ServeMinException(const Search<V> &search) {
  const DynamicList<V> &list = search.counters.min_list;
  const V first = list.head ? list.head->Vstart : search.counters.range_counters->Start;
  if (first == std::numeric_limits<V>::min()) return false;
  const V last = Advance(first, static_cast<Unsigned<V>>(-1));
  const Found found = search.Locate(search.min, last, search.Rank(), list.exceptions);
  if (found == Found::kFirstOnly) search.Vk1() = first;
  return found != Found::kNone;
}

// Serves ranks below the range until one lies above all of them; then `below` counts every sample of the list.
template <class V>
void WalkMinList(const Search<V> &search) {
  const DynamicList<V> &list = search.counters.min_list;
  const DynamicNode<V> *node = list.head;
  bool at_nodes = false;
  for (; !search.Done(); ++*search.cursor) {
    if (search.ServeExtremes()) continue;
    if (search.Rank() <= list.exceptions) {
      if (!ServeMinException(search)) break;
      continue;
    }
    if (!at_nodes) *search.below = list.exceptions;
    at_nodes = true;
    Found found = Found::kNone;
    while (node && (found = LocateInNode(search, *node)) == Found::kNone) node = node->next;
    if (found == Found::kNone) break;
    if (found == Found::kFirstOnly) search.Vk1() = search.counters.range_counters->Start;
  }
  if (search.Done()) return;
  *search.below = list.exceptions;
  for (node = list.head; node; node = node->next) *search.below += node->Count;
}

// Serves ranks from the range itself. The range does not know what lies above it: the value after its last sample
// is given here.
template <class V>
void WalkRange(const Search<V> &search) {
  RangeCounters<V> &range = *search.counters.range_counters;
  std::uint32_t last_rank = *search.below;
  for (std::uint32_t b = 0; b < range.Nsc; ++b) last_rank += range.pu16_counters[b];
  const std::uint32_t first = *search.cursor;
  FindInRange<V>(&range, search.ranks, search.total, search.min, search.max, search.vk, search.vk1, search.below,
                 search.count, search.cursor);
  const DynamicNode<V> *above = search.counters.max_list.head;
  for (std::uint32_t i = first; i < *search.cursor; ++i) {
    if (search.ranks[i] != last_rank || last_rank <= 1 || last_rank == search.total) continue;
    search.vk1[i] = above ? above->Vstart : AdvanceWithin<V>(search.vk[i], 1);
  }
}

// Serves ranks above the range: from the nodes, then from the exceptions, assumed to lie above the last one. A rank
// that a lower walk passed by without serving it wraps below `below`, beyond every count, and ends the lookup.
template <class V>
void WalkMaxList(const Search<V> &search) {
  const DynamicList<V> &list = search.counters.max_list;
  const DynamicNode<V> *node = list.head;
  V exceptions_start = search.counters.range_counters->End;
  for (; !search.Done(); ++*search.cursor) {
    if (search.ServeExtremes()) continue;
    Found found = Found::kNone;
    while (node && (found = LocateInNode(search, *node)) == Found::kNone) {
      exceptions_start = AfterNode<V>(search.counters, *node);
      node = node->next;
    }
    if (found == Found::kFirstOnly) search.Vk1() = AfterNode<V>(search.counters, *node);
    if (found != Found::kNone) continue;
    found = search.Locate(exceptions_start, search.max, search.Rank() - *search.below, list.exceptions);
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

}  // namespace

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

template <class V>
std::uint32_t FindInWholeDistribution(void *context, const std::uint32_t *ranks, std::uint32_t total, V min, V max,
                                      V *vk, V *vk1, std::uint32_t *below, std::uint32_t count,
                                      std::uint32_t *cursor) {
  std::uint32_t local_below = 0;
  const Search<V> search = {*static_cast<const DynamicCounters<V> *>(context),
                            ranks,
                            total,
                            min,
                            max,
                            vk,
                            vk1,
                            below ? below : &local_below,
                            count,
                            cursor};
  if (*cursor >= count) return static_cast<std::uint32_t>(Found::kNone);
  WalkMinList(search);
  if (!search.Done()) WalkRange(search);
  if (!search.Done()) WalkMaxList(search);
  return static_cast<std::uint32_t>(search.Done() ? Found::kBoth : Found::kNone);
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

#define ZOR_INSTANTIATE(type, value, unsigned_value, total)                                                      \
  template void InitDynamicCounters<value>(DynamicCounters<value> &, RangeCounters<value> &, std::uint16_t);     \
  template void UninitDynamicCounters<value>(DynamicCounters<value> &);                                          \
  template std::int32_t CountOutsideRange<value>(DynamicCounters<value> &, value);                               \
  template std::uint32_t FindInWholeDistribution<value>(void *, const std::uint32_t *, std::uint32_t, value,     \
                                                        value, value *, value *, std::uint32_t *, std::uint32_t, \
                                                        std::uint32_t *);                                        \
  template void PrintDynamicCounters<value>(const DynamicCounters<value> &);
ZOR_PROCESS_FOR_EACH_TYPE(ZOR_INSTANTIATE)

}  // namespace zor

#define ZOR_DEFINE_DYNAMIC_COUNTERS(type, value, unsigned_value, total_type)                                     \
  void stats_dynamic_counters_init_##type(stats_dynamic_counters_##type##_t *counters,                           \
                                          stats_range_counters_##type##_t *range_counters,                       \
                                          std::uint16_t max_nodes) {                                             \
    zor::InitDynamicCounters<value>(*counters, *range_counters, max_nodes);                                      \
  }                                                                                                              \
  void stats_dynamic_counters_uninit_##type(stats_dynamic_counters_##type##_t *counters) {                       \
    zor::UninitDynamicCounters<value>(*counters);                                                                \
  }                                                                                                              \
  std::int32_t stats_dynamic_counters_insert_##type(stats_dynamic_counters_##type##_t *counters, value sample) { \
    return zor::CountOutsideRange<value>(*counters, sample);                                                     \
  }                                                                                                              \
  std::uint32_t stats_dynamic_counters_find_Vk_Vk1_##type(                                                       \
      void *counters, const std::uint32_t *ranks, std::uint32_t total, value min, value max, value *vk,          \
      value *vk1, std::uint32_t *below, std::uint32_t count, std::uint32_t *cursor) {                            \
    return zor::FindInWholeDistribution<value>(counters, ranks, total, min, max, vk, vk1, below, count, cursor); \
  }                                                                                                              \
  void stats_dynamic_counters_print_##type(const stats_dynamic_counters_##type##_t *counters) {                  \
    zor::PrintDynamicCounters<value>(*counters);                                                                 \
  }                                                                                                              \
  void stats_dynamic_counters_list_print_##type(const stats_dynamic_counters_list_##type##_t *list,              \
                                                const char *name) {                                              \
    zor::PrintList<value>(*list, name);                                                                          \
  }                                                                                                              \
  void stats_dynamic_counter_node_print_##type(const stats_dynamic_counter_node_##type##_t *node) {              \
    zor::PrintNode<value>(*node);                                                                                \
  }
ZOR_PROCESS_FOR_EACH_TYPE(ZOR_DEFINE_DYNAMIC_COUNTERS)
