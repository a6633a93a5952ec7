#include "stats/learner.h"

#include <algorithm>
#include <cstdio>

#include "stats/percentile.h"
#include "stats/sorted_array.h"

namespace zor {
namespace {

// A rank is served from the tails only: positions are those of full arrays, read only where they hold a sample.
template <class V>
bool ServeFromTails(const Learner<V> &learner, std::uint32_t rank, std::uint32_t total, V *vk, V *vk1) {
  const SortedArray<V> &lowest = learner.lowest;
  const SortedArray<V> &highest = learner.highest;
  const std::uint32_t last = lowest.Size - 1;
  if (rank <= last && rank < lowest.Valid_Length) {
    *vk = lowest.p_values[rank - 1];
    *vk1 = lowest.p_values[rank];
    return true;
  }
  const std::uint32_t from_top = total - rank;
  if (from_top >= 1 && from_top <= last && last + 1 - from_top < highest.Valid_Length) {
    *vk = highest.p_values[last - from_top];
    *vk1 = highest.p_values[last + 1 - from_top];
    return true;
  }
  return false;
}

template <class V>
std::uint32_t FindInTails(const Learner<V> &learner, const std::uint32_t *ranks, std::uint32_t total, V min, V max,
                          V *vk, V *vk1, std::uint32_t count, std::uint32_t *cursor) {
  constexpr auto kStopped = static_cast<std::uint32_t>(Found::kNone);
  if (*cursor >= count || learner.got != learner.expected) return kStopped;
  for (; *cursor < count; ++*cursor) {
    const std::uint32_t i = *cursor;
    if (ranks[i] <= 1) {
      vk[i] = vk1[i] = min;
    } else if (ranks[i] == total) {
      vk[i] = vk1[i] = max;
    } else if (!ServeFromTails<V>(learner, ranks[i], total, &vk[i], &vk1[i])) {
      return kStopped;
    }
  }
  return static_cast<std::uint32_t>(Found::kBoth);
}

}  // namespace

template <class V>
std::uint32_t InitLearner(Learner<V> &learner, std::uint32_t samples) {
  if (samples == 0) return 1;
  const std::uint32_t size = (13 * samples - 13) / 10000 + 2;
  learner.lowest.p_values = nullptr;  // a failed init can be followed by uninit
  learner.highest.p_values = nullptr;
  std::uint32_t result = InitSortedArray<V>(learner.lowest, size);
  if (result == 0) result = InitSortedArray<V>(learner.highest, size);
  if (result != 0) return result;
  learner.expected = samples;
  learner.got = 0;
  return 0;
}

template <class V>
void UninitLearner(Learner<V> &learner) {
  learner.expected = 0;
  UninitSortedArray<V>(learner.lowest);
  UninitSortedArray<V>(learner.highest);
  learner.got = 0;
}

template <class V>
bool Learn(Learner<V> &learner, V value) {
  if (learner.got == learner.expected) {
    learner.lowest.Valid_Length = 0;
    learner.highest.Valid_Length = 0;
    learner.got = 0;
  }
  std::uint32_t was_full = 0;
  V passed_on = 0;
  InsertSorted<V>(learner.lowest, value, STATS_SORTED_ARRAY_KEEP_SMALLEST, &was_full, &passed_on);
  if (was_full) InsertSorted<V>(learner.highest, passed_on, STATS_SORTED_ARRAY_KEEP_LARGEST, nullptr, nullptr);
  return ++learner.got >= learner.expected;
}

template <class V>
std::optional<LearntRange<V>> GetLearntRange(const Learner<V> &learner) {
  const SortedArray<V> &lowest = learner.lowest;
  if (learner.got != learner.expected || lowest.Valid_Length == 0) return std::nullopt;
  const SortedArray<V> &highest = learner.highest;
  const std::uint32_t cut_off = 13 * learner.got / 10000;
  const auto clamped = [](const SortedArray<V> &array, std::uint32_t position) {
    return array.p_values[std::min(position, array.Valid_Length - 1)];
  };
  LearntRange<V> range;
  range.min = lowest.p_values[0];
  range.low = clamped(lowest, cut_off);
  if (highest.Valid_Length == 0) {  // few samples: `lowest` holds them all
    range.max = range.high = lowest.p_values[lowest.Valid_Length - 1];
  } else {
    range.max = highest.p_values[highest.Valid_Length - 1];
    range.high = clamped(highest, highest.Size - 1 - cut_off);
  }
  return range;
}

template <class V>
void PrintLearner(const Learner<V> &learner) {
  std::printf("Learner data:\n");
  std::printf("Samples: Expected = %u, Got = %u\n", learner.expected, learner.got);
  PrintSortedArray<V>(learner.lowest);
  PrintSortedArray<V>(learner.highest);
}

#define ZOR_INSTANTIATE(type, value, unsigned_value, total)                                 \
  template std::uint32_t InitLearner<value>(Learner<value> &, std::uint32_t);               \
  template void UninitLearner<value>(Learner<value> &);                                     \
  template bool Learn<value>(Learner<value> &, value);                                      \
  template std::optional<LearntRange<value>> GetLearntRange<value>(const Learner<value> &); \
  template void PrintLearner<value>(const Learner<value> &);
ZOR_PROCESS_FOR_EACH_TYPE(ZOR_INSTANTIATE)

}  // namespace zor

#define ZOR_DEFINE_LEARNER(type, value, unsigned_value, total_type)                                              \
  std::uint32_t stats_learner_init_##type(stats_learner_##type##_t *learner, std::uint32_t samples) {            \
    return zor::InitLearner<value>(*learner, samples);                                                           \
  }                                                                                                              \
  void stats_learner_uninit_##type(stats_learner_##type##_t *learner) { zor::UninitLearner<value>(*learner); }   \
  std::uint32_t stats_learner_learn_##type(stats_learner_##type##_t *learner, value sample) {                    \
    return zor::Learn<value>(*learner, sample) ? 1 : 0;                                                          \
  }                                                                                                              \
  std::uint32_t stats_learner_get_value_range_##type(const stats_learner_##type##_t *learner, value *min,        \
                                                     value *max, value *low, value *high) {                      \
    const auto range = zor::GetLearntRange<value>(*learner);                                                     \
    if (!range) return 0;                                                                                        \
    *min = range->min;                                                                                           \
    *max = range->max;                                                                                           \
    *low = range->low;                                                                                           \
    *high = range->high;                                                                                         \
    return 1;                                                                                                    \
  }                                                                                                              \
  std::uint32_t stats_learner_find_Vk_Vk1_##type(void *learner, const std::uint32_t *ranks, std::uint32_t total, \
                                                 value min, value max, value *vk, value *vk1, std::uint32_t *,   \
                                                 std::uint32_t count, std::uint32_t *cursor) {                   \
    return zor::FindInTails<value>(*static_cast<const stats_learner_##type##_t *>(learner), ranks, total, min,   \
                                   max, vk, vk1, count, cursor);                                                 \
  }                                                                                                              \
  void stats_learner_print_##type(const stats_learner_##type##_t *learner) { zor::PrintLearner<value>(*learner); }
ZOR_PROCESS_FOR_EACH_TYPE(ZOR_DEFINE_LEARNER)
