// Units of samples, and values as people read them: "1.2 MB/s", "38 %".
#ifndef ZORSTAT_UNITS_H_
#define ZORSTAT_UNITS_H_

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "zor/process/readings.hpp"

namespace zorstat {

struct Unit {
  std::string name = {};    // "bytes", "bits", "percent", "ns", "us", "ms", "s" or any other; empty: a mere number
  double factor = 1;        // of these units that a sample of 1 stands for
  bool per_second = false;  // samples are what a poll interval has brought

  bool is_number() const { return name.empty() && factor == 1 && !per_second; }
};

// "bytes", or with a factor "512 bytes". Nothing if it is no text for a table, or the factor is not above 0.
std::optional<Unit> ParseUnit(std::string_view text);

// The value of a sample, or between samples, in the unit: with two significant digits or all before the point, and
// a prefix from 1000 on. A mere number has three, or all before the point, and no prefix. Per cent are of the time,
// so that "per second" is not said.
std::string InUnit(const zor::process::Decimal &value, const Unit &unit, std::uint32_t poll_interval);

// The shortest text that is the number.
std::string Shortest(const zor::process::Decimal &value);

}  // namespace zorstat

#endif  // ZORSTAT_UNITS_H_
