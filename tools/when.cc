#include "when.h"

#include <ctime>
#include <utility>

#include "text.h"

namespace zorstat {
namespace {

constexpr std::pair<char, std::int64_t> kUnits[] = {{'s', 1}, {'m', 60}, {'h', 3600}, {'d', 86400}, {'w', 604800}};

// "-2h".
std::optional<std::int64_t> ParseAgo(std::string_view text) {
  constexpr std::uint32_t kLongest = 1000000;
  if (text.size() < 3 || text[0] != '-') return std::nullopt;
  const auto count = ParseNumber<std::uint32_t>(text.substr(1, text.size() - 2));
  for (const auto &[letter, seconds] : kUnits) {
    if (count && *count <= kLongest && letter == text.back()) return *count * seconds;
  }
  return std::nullopt;
}

std::optional<std::int64_t> ParseDate(const std::string &text) {
  for (const char *format :
       {"%Y-%m-%d", "%Y-%m-%d %H:%M", "%Y-%m-%dT%H:%M", "%Y-%m-%d %H:%M:%S", "%Y-%m-%dT%H:%M:%S"}) {
    std::tm parts = {};
    const char *end = strptime(text.c_str(), format, &parts);
    if (end == nullptr || *end != '\0') continue;
    const std::tm given = parts;
    parts.tm_isdst = -1;
    const std::time_t time = mktime(&parts);
    if (parts.tm_mday != given.tm_mday) return std::nullopt;  // there is no such day
    return time;
  }
  return std::nullopt;
}

}  // namespace

std::optional<std::int64_t> ParseWhen(std::string_view text, std::int64_t now) {
  if (const auto ago = ParseAgo(text)) return now - *ago;
  if (const auto seconds = ParseNumber<std::uint32_t>(text)) return *seconds;
  return ParseDate(std::string(text));
}

std::string WhenText(std::int64_t time, const char *format) {
  const std::time_t seconds = time;
  std::tm parts;
  char text[64];
  if (localtime_r(&seconds, &parts) == nullptr) return std::to_string(time);
  return {text, std::strftime(text, sizeof text, format, &parts)};
}

}  // namespace zorstat
