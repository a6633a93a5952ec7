// The typed families of the C interface by value type, for tests that run in all four types.
#ifndef ZOR_TESTS_TYPED_API_H_
#define ZOR_TESTS_TYPED_API_H_

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "zor/process.h"

template <class V>
struct Api;

#define ZOR_TEST_API(type, value, unsigned_value, total_type)                          \
  template <>                                                                          \
  struct Api<value> {                                                                  \
    using Unsigned = unsigned_value;                                                   \
    using Total = total_type;                                                          \
    using Summary = stats_summary_##type##_t;                                          \
    using RangeCounters = stats_range_counters_##type##_t;                             \
    using FixedPoint = stats_fixed_point_##type##_t;                                   \
    using Entry = zor_process_object_instance_entry_##type##_t;                        \
    static constexpr std::uint32_t kTypeCode =                                         \
        #type[0] == 'u' ? (sizeof(value) == 8 ? 4 : 2) : (sizeof(value) == 8 ? 3 : 1); \
    static constexpr auto SummaryEval = stats_summary_eval_##type;                     \
    static constexpr auto SummaryPrint = stats_summary_print_##type;                   \
    static constexpr auto GetValues = stats_percentile_get_values_##type;              \
    static constexpr auto GetVkVk1 = stats_percentile_get_Vk_Vk1_##type;               \
    static constexpr auto PercentilePrint = stats_percentile_print_##type;             \
    static constexpr auto RangeInit = stats_range_counters_init_##type;                \
    static constexpr auto RangeInsert = stats_range_counters_insert_##type;            \
    static constexpr auto RangeFind = stats_range_counters_find_Vk_Vk1_##type;         \
    static constexpr auto RangePrint = stats_range_counters_print_##type;              \
  };
ZOR_PROCESS_FOR_EACH_TYPE(ZOR_TEST_API)

using ValueTypes = ::testing::Types<std::int32_t, std::uint32_t, std::int64_t, std::uint64_t>;

// What a function writes to standard output.
template <class Function>
std::string Printed(Function function) {
  ::testing::internal::CaptureStdout();
  function();
  return ::testing::internal::GetCapturedStdout();
}

#endif  // ZOR_TESTS_TYPED_API_H_
