#include "text.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <system_error>

namespace zorstat {
namespace {

struct TypeText {
  std::string_view name;
  std::string_view values;
};

// Indexed by data-type code - 1.
constexpr std::array<TypeText, ZOR_PROCESS_NO_OF_DATA_TYPES> kTypes{{
    {"i32", "a number from -2147483648 to 2147483647"},
    {"u32", "a number from 0 to 4294967295"},
    {"i64", "a number from -9223372036854775808 to 9223372036854775807"},
    {"u64", "a number from 0 to 18446744073709551615"},
}};

const TypeText &Text(zor_process_data_type_t type) { return kTypes[static_cast<size_t>(type) - 1]; }

bool IsControl(char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7f; }

}  // namespace

std::vector<std::string> Split(std::string_view text, char separator) {
  std::vector<std::string> parts;
  for (;;) {
    const size_t end = text.find(separator);
    parts.emplace_back(text.substr(0, end));
    if (end == std::string_view::npos) return parts;
    text.remove_prefix(end + 1);
  }
}

bool HasControlCharacter(std::string_view text) { return std::any_of(text.begin(), text.end(), IsControl); }

std::string_view TypeName(zor_process_data_type_t type) { return Text(type).name; }

std::optional<zor_process_data_type_t> TypeOfName(std::string_view name) {
  for (size_t i = 0; i < kTypes.size(); ++i) {
    if (kTypes[i].name == name) return static_cast<zor_process_data_type_t>(i + 1);
  }
  return std::nullopt;
}

std::string_view TypeValues(zor_process_data_type_t type) { return Text(type).values; }

std::string Printable(std::string_view text) {
  constexpr size_t kLimit = 60;
  std::string printable(text.substr(0, kLimit));
  std::replace_if(printable.begin(), printable.end(), IsControl, '?');
  if (text.size() > kLimit) printable += "...";
  return printable;
}

std::string ErrnoText(int error) {
  std::string text = std::generic_category().message(error);
  text[0] = static_cast<char>(std::tolower(static_cast<unsigned char>(text[0])));
  return text;
}

}  // namespace zorstat
