#ifndef ZOR_STATS_LEARNER_H_
#define ZOR_STATS_LEARNER_H_

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <optional>

#include "base/value_types.h"
#include "stats/percentile.h"
#include "stats/sorted_array.h"

namespace zor {

// A rank is served from the tails only: positions are those of full arrays, read only where they hold a sample.
template <class V>
bool ServeFromTails(const Learner<V> &learner, const RankSearch<V> &search) {
  const SortedArray<V> &lowest = learner.lowest;
  const SortedArray<V> &highest = learner.highest;
  const std::uint32_t last = lowest.Size - 1;
  const std::uint32_t rank = search.Rank();
  if (rank <= last && rank < lowest.Valid_Length) {
    search.Vk() = lowest.p_values[rank - 1];
    search.Vk1() = lowest.p_values[rank];
    return true;
  }
  const std::uint32_t from_top = search.total - rank;
  if (from_top >= 1 && from_top <= last && last + 1 - from_top < highest.Valid_Length) {
    search.Vk() = highest.p_values[last - from_top];
    search.Vk1() = highest.p_values[last + 1 - from_top];
    return true;
  }
  return false;
}

// The rank lookup of a complete cycle, which holds the tails of its samples alone.
template <class V>
Found FindInTails(const Learner<V> &learner, const RankSearch<V> &search) {
  if (search.Done() || learner.got != learner.expected) return Found::kNone;
  for (; !search.Done(); ++search.cursor) {
    if (!search.ServeExtremes() && !ServeFromTails<V>(learner, search)) return Found::kNone;
  }
  return Found::kBoth;
}

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

// Takes a sample; true when the cycle is complete with it.
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

// What a complete cycle says about its samples.
template <class V>
struct LearntRange {
  V min;
  V max;
  V low;
  V high;
};

// Nothing while the cycle is not complete, or when it was ended without a sample.
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

}  // namespace zor

#endif  // ZOR_STATS_LEARNER_H_
