/** @file
 * @brief Learners: the usual range of a stream, from a fixed number of its samples. */
#ifndef ZOR_LEARNER_H_
#define ZOR_LEARNER_H_

#include "zor/sorted_array.h"
#include "zor/types.h"

#ifdef __cplusplus
extern "C" {
#endif

#define ZOR_DECLARE_LEARNER(type, value, unsigned_value, total_type)                                              \
  /** A learner: keeps both tails of a cycle, about 0.26 % of its samples. Each array has room for (13 *          \
      expected - 13) / 10000 + 2 values. */                                                                       \
  typedef struct stats_learner_##type {                                                                           \
    uint32_t expected; /**< number of samples of a cycle, at most 330382099; 0 while not initialised */           \
    stats_sorted_array_##type##_t lowest;  /**< the smallest samples of this cycle */                             \
    stats_sorted_array_##type##_t highest; /**< the largest of the samples that lowest does not keep */           \
    uint32_t got; /**< samples taken in this cycle, which is complete when got equals expected */                 \
  } stats_learner_##type##_t;                                                                                     \
  /** Sets a learner up; what it held before is overwritten, not freed. Two allocations.                          \
      @param learner  the record                                                                                  \
      @param samples  number of samples of a cycle, 1 to 330382099                                                \
      @return 0; 1 if samples is 0 (nothing is written); 2 without memory */                                      \
  ZOR_API uint32_t stats_learner_init_##type(stats_learner_##type##_t *learner, uint32_t samples);                \
  /** Frees the arrays and sets expected and got to 0. Safe after an init that found no memory.                   \
      @param learner  the record */                                                                               \
  ZOR_API void stats_learner_uninit_##type(stats_learner_##type##_t *learner);                                    \
  /** Takes a sample; the first one after a complete cycle starts a new cycle in the same storage. At most one    \
      pass over each array; allocates nothing.                                                                    \
      @param learner  the record                                                                                  \
      @param sample   any value of the type                                                                       \
      @return 1 when the cycle is complete, else 0 */                                                             \
  ZOR_API uint32_t stats_learner_learn_##type(stats_learner_##type##_t *learner, value sample);                   \
  /** What a complete cycle learnt: its extremes, and the cut-offs of about 0.13 % at each end, the (idx +        \
      1)-th smallest and largest sample with idx = 13 * got / 10000. Where a cycle was ended early, positions     \
      are clamped to the samples held. Constant time.                                                             \
      @param learner  the record                                                                                  \
      @param min      written: the smallest sample                                                                \
      @param max      written: the largest sample                                                                 \
      @param low      written: the lower cut-off                                                                  \
      @param high     written: the upper cut-off, never below low                                                 \
      @return 1; 0, writing nothing, when the cycle is not complete or holds no sample */                         \
  ZOR_API uint32_t stats_learner_get_value_range_##type(const stats_learner_##type##_t *learner, value *min,      \
                                                        value *max, value *low, value *high);                     \
  /** The rank lookup over the two tails of a complete cycle: see stats_percentile_lookup_int32_t. Stops at a     \
      rank that lies in neither tail. Constant time for each rank.                                                \
      @param learner  the record                                                                                  \
      @param ranks    `count` ranks, not descending                                                               \
      @param total    number of samples over which the ranks were computed                                        \
      @param min      smallest sample                                                                             \
      @param max      largest sample                                                                              \
      @param vk       `count` values, written                                                                     \
      @param vk1      `count` values, written                                                                     \
      @param below    not used                                                                                    \
      @param count    number of ranks                                                                             \
      @param cursor   index of the first rank still to be served, moved on; 0 at the start                        \
      @return 0 when every rank was served, 2 when it stopped at *cursor or the cycle is not complete */          \
  ZOR_API uint32_t stats_learner_find_Vk_Vk1_##type(void *learner, const uint32_t *ranks, uint32_t total,         \
                                                    value min, value max, value *vk, value *vk1, uint32_t *below, \
                                                    uint32_t count, uint32_t *cursor);                            \
  /** Writes the learner to standard output.                                                                      \
      @param learner  the record */                                                                               \
  ZOR_API void stats_learner_print_##type(const stats_learner_##type##_t *learner);
ZOR_PROCESS_FOR_EACH_TYPE(ZOR_DECLARE_LEARNER)
#undef ZOR_DECLARE_LEARNER

#ifdef __cplusplus
}
#endif

#endif /* ZOR_LEARNER_H_ */
