// Small pieces of text handling shared by the readers.
#ifndef ZORSTAT_TEXT_H_
#define ZORSTAT_TEXT_H_

#include <charconv>
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "zor/types.h"

namespace zorstat {

// The whole text as a number, or nothing.
template <class Number>
std::optional<Number> ParseNumber(std::string_view text) {
  Number number{};
  const char *end = text.data() + text.size();
  const auto [rest, error] = std::from_chars(text.data(), end, number);
  if (error != std::errc() || rest != end) return std::nullopt;
  return number;
}

std::vector<std::string> Split(std::string_view text, char separator);

std::string Joined(const std::vector<std::string> &parts, std::string_view separator);

// "a, b or c".
std::string Alternatives(const std::vector<std::string> &names);

bool IsControl(char c);

// Whether records and poll files can hold the name: they are text, in which a comma ends a field.
bool IsName(std::string_view text);
inline constexpr std::string_view kName = "a name in UTF-8 without commas or control characters";

// "i32", "u32", "i64" or "u64".
std::string_view TypeName(zor_process_data_type_t type);
std::optional<zor_process_data_type_t> TypeOfName(std::string_view name);

// "a number from 0 to 4294967295" and so on.
std::string_view TypeValues(zor_process_data_type_t type);

// For messages: what is no printable UTF-8 replaced, long texts cut.
std::string Printable(std::string_view text);

// The places that a printable text takes on a terminal: two for a wide character, none for one that joins the one
// before it.
std::size_t DisplayWidth(std::string_view text);

// Appends the text as a field of CSV, in quotes where it needs them.
void AppendCsvField(std::string_view field, std::string *text);

// Appends the rows in columns, two places apart; what is not left-aligned is right-aligned.
void AppendColumns(const std::vector<std::vector<std::string>> &rows, const std::vector<bool> &is_left,
                   std::string *text);

std::string ErrnoText(int error);

}  // namespace zorstat

#endif  // ZORSTAT_TEXT_H_
