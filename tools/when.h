// Times as people write them.
#ifndef ZORSTAT_WHEN_H_
#define ZORSTAT_WHEN_H_

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace zorstat {

// Seconds since 1970 of a day or a time of day in the local time zone, of a time before `now`, or as a number.
std::optional<std::int64_t> ParseWhen(std::string_view text, std::int64_t now);
inline constexpr std::string_view kWhen =
    "a time as in 2026-11-22, '2026-11-22 14:00', -2h, -7d or seconds since 1970";

// In the local time zone, by a format of strftime().
std::string WhenText(std::int64_t time, const char *format);

}  // namespace zorstat

#endif  // ZORSTAT_WHEN_H_
