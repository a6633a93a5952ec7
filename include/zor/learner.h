/* Learners: the usual range of a stream, from a fixed number of its samples. */
#ifndef ZOR_LEARNER_H_
#define ZOR_LEARNER_H_

#include "zor/sorted_array.h"
#include "zor/types.h"

#ifdef __cplusplus
extern "C" {
#endif

/* stats_learner_<type>_t: keeps both tails of a cycle, about 0.26 % of its samples.
 *   expected  number of samples of a cycle, at most 330382099; 0 while not initialised
 *   lowest    the smallest samples of this cycle
 *   highest   the largest of the samples that lowest does not keep
 *   got       samples taken in this cycle; the cycle is complete when got equals expected
 * Both arrays have room for (13 * expected - 13) / 10000 + 2 values.
 *
 * stats_learner_init_<type>(learner, samples)
 *   Starts cycles of `samples` samples. Returns 0; 1 if samples is 0 (nothing is written); 2 without memory.
 *
 * stats_learner_uninit_<type>(learner)
 *   Frees the arrays and sets expected and got to 0. Safe after a failed init.
 *
 * stats_learner_learn_<type>(learner, value)
 *   Takes a sample; the first one after a complete cycle starts a new cycle in the same storage. Returns 1 when the
 *   cycle is complete, else 0. Allocates nothing.
 *
 * stats_learner_get_value_range_<type>(learner, min, max, low, high)
 *   Once the cycle is complete: its smallest and largest sample, and the cut-offs of about 0.13 % at each end, the
 *   (idx + 1)-th smallest and largest with idx = 13 * got / 10000. Where a cycle was ended early, positions are
 *   clamped to the samples held; low is never above high.
 *   Returns 1; 0, writing nothing, when the cycle is not complete or holds no sample.
 *
 * stats_learner_find_Vk_Vk1_<type>(learner, ranks, total, min, max, vk, vk1, below, count, cursor)
 *   The rank lookup (stats_percentile_lookup_<type>_t) over the two tails of a complete cycle. `below` is not used.
 *   Stops at a rank that lies in neither tail.
 *
 * stats_learner_print_<type>(learner)
 *   Writes the learner to standard output. */
#define ZOR_DECLARE_LEARNER(type, value, unsigned_value, total_type)                                              \
  typedef struct stats_learner_##type {                                                                           \
    uint32_t expected;                                                                                            \
    stats_sorted_array_##type##_t lowest;                                                                         \
    stats_sorted_array_##type##_t highest;                                                                        \
    uint32_t got;                                                                                                 \
  } stats_learner_##type##_t;                                                                                     \
  ZOR_API uint32_t stats_learner_init_##type(stats_learner_##type##_t *learner, uint32_t samples);                \
  ZOR_API void stats_learner_uninit_##type(stats_learner_##type##_t *learner);                                    \
  ZOR_API uint32_t stats_learner_learn_##type(stats_learner_##type##_t *learner, value sample);                   \
  ZOR_API uint32_t stats_learner_get_value_range_##type(const stats_learner_##type##_t *learner, value *min,      \
                                                        value *max, value *low, value *high);                     \
  ZOR_API uint32_t stats_learner_find_Vk_Vk1_##type(void *learner, const uint32_t *ranks, uint32_t total,         \
                                                    value min, value max, value *vk, value *vk1, uint32_t *below, \
                                                    uint32_t count, uint32_t *cursor);                            \
  ZOR_API void stats_learner_print_##type(const stats_learner_##type##_t *learner);
ZOR_PROCESS_FOR_EACH_TYPE(ZOR_DECLARE_LEARNER)
#undef ZOR_DECLARE_LEARNER

#ifdef __cplusplus
}
#endif

#endif /* ZOR_LEARNER_H_ */
