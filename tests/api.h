// The typed families of the C interface by value type.
#ifndef ZOR_TESTS_API_H_
#define ZOR_TESTS_API_H_

#include "base/value_types.h"
#include "zor/process.h"

template <class V>
struct Api;

#define ZOR_TEST_API(type, value, unsigned_value, total_type)                           \
  template <>                                                                           \
  struct Api<value> : zor::Types<value> {                                               \
    using Entry = zor_process_object_instance_entry_##type##_t;                         \
    static constexpr std::uint32_t kTypeCode =                                          \
        (sizeof(value) == 8 ? 3 : 1) + static_cast<std::uint32_t>(value(-1) > 0);       \
    static constexpr auto LearnerInit = stats_learner_init_##type;                      \
    static constexpr auto LearnerUninit = stats_learner_uninit_##type;                  \
    static constexpr auto LearnerLearn = stats_learner_learn_##type;                    \
    static constexpr auto LearnerRange = stats_learner_get_value_range_##type;          \
    static constexpr auto LearnerFind = stats_learner_find_Vk_Vk1_##type;               \
    static constexpr auto LearnerPrint = stats_learner_print_##type;                    \
    static constexpr auto DynamicInit = stats_dynamic_counters_init_##type;             \
    static constexpr auto DynamicUninit = stats_dynamic_counters_uninit_##type;         \
    static constexpr auto DynamicInsert = stats_dynamic_counters_insert_##type;         \
    static constexpr auto DynamicFind = stats_dynamic_counters_find_Vk_Vk1_##type;      \
    static constexpr auto DynamicPrint = stats_dynamic_counters_print_##type;           \
    static constexpr auto AnalyzerInit = stats_analyzer_init_##type;                    \
    static constexpr auto AnalyzerUninit = stats_analyzer_uninit_##type;                \
    static constexpr auto AnalyzerClear = stats_analyzer_clear_##type;                  \
    static constexpr auto AnalyzerInsert = stats_analyzer_insert_##type;                \
    static constexpr auto AnalyzerValues = stats_analyzer_get_percentile_values_##type; \
    static constexpr auto AnalyzerPrint = stats_analyzer_print_##type;                  \
    static constexpr auto SummaryEval = stats_summary_eval_##type;                      \
    static constexpr auto SummaryPrint = stats_summary_print_##type;                    \
    static constexpr auto GetVkVk1 = stats_percentile_get_Vk_Vk1_##type;                \
    static constexpr auto RangeInit = stats_range_counters_init_##type;                 \
    static constexpr auto RangeInsert = stats_range_counters_insert_##type;             \
    static constexpr auto RangeFind = stats_range_counters_find_Vk_Vk1_##type;          \
    static constexpr auto RangePrint = stats_range_counters_print_##type;               \
  };
ZOR_PROCESS_FOR_EACH_TYPE(ZOR_TEST_API)

#endif  // ZOR_TESTS_API_H_
