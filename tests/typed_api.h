// What tests that run in all four value types share.
#ifndef ZOR_TESTS_TYPED_API_H_
#define ZOR_TESTS_TYPED_API_H_

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "api.h"

using ValueTypes = ::testing::Types<std::int32_t, std::uint32_t, std::int64_t, std::uint64_t>;

// What a function writes to standard output.
template <class Function>
std::string Printed(Function function) {
  ::testing::internal::CaptureStdout();
  function();
  return ::testing::internal::GetCapturedStdout();
}

#endif  // ZOR_TESTS_TYPED_API_H_
