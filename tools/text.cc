#include "text.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <clocale>
#include <cwchar>
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

const TypeText &Text(zor_process_data_type_t type) { return kTypes[static_cast<std::size_t>(type) - 1]; }

// The length of the printable UTF-8 character that the text starts with, or 0.
std::size_t CharacterLength(std::string_view text) {
  const auto byte = [&](std::size_t i) -> unsigned {
    return i < text.size() ? static_cast<unsigned char>(text[i]) : 0;
  };
  const unsigned first = byte(0);
  if (first < 0x80) return IsControl(text[0]) ? 0 : 1;
  if (first < 0xc2 || first > 0xf4) return 0;
  // The second byte's bounds keep out control characters, longer forms than needed, surrogates and what is above
  // U+10FFFF.
  const unsigned lowest = first == 0xc2 || first == 0xe0 ? 0xa0 : first == 0xf0 ? 0x90 : 0x80;
  const unsigned highest = first == 0xed ? 0x9f : first == 0xf4 ? 0x8f : 0xbf;
  if (byte(1) < lowest || byte(1) > highest) return 0;
  const std::size_t length = first < 0xe0 ? 2 : first < 0xf0 ? 3 : 4;
  for (std::size_t i = 2; i < length; ++i) {
    if ((byte(i) & 0xc0) != 0x80) return 0;
  }
  return length;
}

}  // namespace

bool IsControl(char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7f; }

std::vector<std::string> Split(std::string_view text, char separator) {
  std::vector<std::string> parts;
  for (;;) {
    const std::size_t end = text.find(separator);
    parts.emplace_back(text.substr(0, end));
    if (end == std::string_view::npos) return parts;
    text.remove_prefix(end + 1);
  }
}

std::string Joined(const std::vector<std::string> &parts, std::string_view separator) {
  return fmt::format("{}", fmt::join(parts, separator));
}

std::string Alternatives(const std::vector<std::string> &names) {
  if (names.size() < 2) return Joined(names, "");
  return Joined({names.begin(), names.end() - 1}, ", ") + " or " + names.back();
}

bool IsName(std::string_view text) {
  if (text.empty()) return false;
  while (!text.empty()) {
    const std::size_t length = CharacterLength(text);
    if (length == 0 || text[0] == ',') return false;
    text.remove_prefix(length);
  }
  return true;
}

std::string_view TypeName(zor_process_data_type_t type) { return Text(type).name; }

std::optional<zor_process_data_type_t> TypeOfName(std::string_view name) {
  for (std::size_t i = 0; i < kTypes.size(); ++i) {
    if (kTypes[i].name == name) return static_cast<zor_process_data_type_t>(i + 1);
  }
  return std::nullopt;
}

std::string_view TypeValues(zor_process_data_type_t type) { return Text(type).values; }

std::string Printable(std::string_view text) {
  constexpr std::size_t kLimit = 60;
  std::string printable;
  while (!text.empty() && printable.size() < kLimit) {
    const std::size_t length = CharacterLength(text);
    printable += length == 0 ? "?" : text.substr(0, length);
    text.remove_prefix(std::max<std::size_t>(length, 1));
  }
  if (!text.empty()) printable += "...";
  return printable;
}

std::size_t DisplayWidth(std::string_view text) {
  static const locale_t utf8 = newlocale(LC_CTYPE_MASK, "C.UTF-8", nullptr);
  const locale_t before = uselocale(utf8);  // stays as it is where there is no such one
  std::size_t width = 0;
  while (!text.empty()) {
    const std::size_t length = std::max<std::size_t>(CharacterLength(text), 1);
    wchar_t character = 0;
    std::mbstate_t state{};
    const bool is_known = std::mbrtowc(&character, text.data(), length, &state) == length;
    const int places = is_known ? wcwidth(character) : 1;
    width += places < 0 ? 1 : static_cast<std::size_t>(places);
    text.remove_prefix(length);
  }
  uselocale(before);
  return width;
}

void AppendCsvField(std::string_view field, std::string *text) {
  if (field.find_first_of(",\"\r\n") == std::string_view::npos) {
    text->append(field);
    return;
  }
  text->push_back('"');
  for (const char c : field) text->append(c == '"' ? 2 : 1, c);
  text->push_back('"');
}

void AppendColumns(const std::vector<std::vector<std::string>> &rows, const std::vector<bool> &is_left,
                   std::string *text) {
  std::vector<std::size_t> widths(is_left.size());
  for (const auto &row : rows) {
    for (std::size_t i = 0; i < widths.size(); ++i) widths[i] = std::max(widths[i], DisplayWidth(row[i]));
  }
  for (const auto &row : rows) {
    for (std::size_t i = 0; i < widths.size(); ++i) {
      const std::string space(widths[i] - DisplayWidth(row[i]), ' ');
      text->append(i == 0 ? "" : "  ").append(is_left[i] ? row[i] + space : space + row[i]);
    }
    text->resize(text->find_last_not_of(' ') + 1);
    *text += '\n';
  }
}

std::string ErrnoText(int error) {
  std::string text = std::generic_category().message(error);
  text[0] = static_cast<char>(std::tolower(static_cast<unsigned char>(text[0])));
  return text;
}

}  // namespace zorstat
