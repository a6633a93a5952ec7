#ifndef ZOR_STATS_LEARNER_H_
#define ZOR_STATS_LEARNER_H_

#include <cstdint>
#include <optional>

#include "base/value_types.h"

namespace zor {

template <class V>
std::uint32_t InitLearner(Learner<V> &learner, std::uint32_t samples);
template <class V>
void UninitLearner(Learner<V> &learner);

// Takes a sample; true when the cycle is complete with it.
template <class V>
bool Learn(Learner<V> &learner, V value);

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
std::optional<LearntRange<V>> GetLearntRange(const Learner<V> &learner);

template <class V>
void PrintLearner(const Learner<V> &learner);

}  // namespace zor

#endif  // ZOR_STATS_LEARNER_H_
