#include "config_file.h"

#include <fmt/format.h>
#include <toml++/toml.h>

#include <algorithm>
#include <string>
#include <string_view>
#include <utility>

#include "error.h"
#include "file.h"
#include "text.h"

namespace zorstat {
namespace {

constexpr size_t kLargestFile = size_t{2} * 1024 * 1024;  // 8,000 objects as suggest writes them
constexpr int kMostParts = 8;

// The position behind the string that begins at the position with a quote. One on a single line ends with that, for
// its missing quote is an error which the parser tells.
size_t EndOfString(std::string_view text, size_t position) {
  const char quote = text[position];
  const std::string_view three = quote == '"' ? "\"\"\"" : "'''";
  const bool is_long = text.substr(position, 3) == three;
  const std::string_view end = is_long ? three : three.substr(0, 1);
  for (position += end.size(); position < text.size(); ++position) {
    if (text[position] == '\n' && !is_long) return position;
    if (text[position] == '\\' && quote == '"') {
      ++position;
    } else if (text.substr(position, end.size()) == end) {
      position += end.size();
      // Up to two quotes more belong to a long string.
      for (int more = 0; is_long && more < 2 && position < text.size() && text[position] == quote; ++more)
        ++position;
      return position;
    }
  }
  return text.size();
}

// Each part of a dotted key is a table in a table, and the parser recurses into them: too many would end the stack.
// Of brackets it refuses too many itself.
void CheckKeyLengths(const std::string &path, std::string_view text) {
  int line = 1;
  int parts = 1;
  for (size_t position = 0; position < text.size(); ++position) {
    const char c = text[position];
    if (c == '"' || c == '\'') {
      const size_t end = EndOfString(text, position);
      line += static_cast<int>(std::count(text.begin() + position, text.begin() + end, '\n'));
      position = end - 1;
    } else if (c == '#') {
      position = std::min(text.find('\n', position), text.size()) - 1;
    } else if (c == '.' && ++parts > kMostParts) {
      throw SettingsError(fmt::format("{}:{}: a key of more than {} parts: expected NAME or [objects.NAME]", path,
                                      line, kMostParts));
    } else if (std::string_view("=,[]{}\n").find(c) != std::string_view::npos) {
      parts = 1;
      line += c == '\n' ? 1 : 0;
    }
  }
}

std::string_view TypeText(const toml::node &node) {
  switch (node.type()) {
    case toml::node_type::table:
      return "a table";
    case toml::node_type::array:
      return "an array";
    case toml::node_type::string:
      return "a string";
    case toml::node_type::integer:
      return "an integer";
    case toml::node_type::floating_point:
      return "a number with a fraction";
    case toml::node_type::boolean:
      return "a truth value";
    default:
      return "a date or time";
  }
}

std::string TextOf(const toml::node &node, const Form &form, const std::string &where) {
  const auto takes = [&](unsigned type) { return (form.types & type) != 0; };
  if (node.is_integer() && takes(Form::kInteger)) return std::to_string(**node.as_integer());
  if (node.is_string() && takes(Form::kString)) return **node.as_string();
  if (node.is_boolean() && takes(Form::kTruth)) return **node.as_boolean() ? "true" : "false";
  throw SettingsError(fmt::format("{}: is {}: expected {}", where, TypeText(node), form.expected));
}

NameList PartsOf(const toml::node &node, const Form &form, const std::string &where) {
  const toml::array *array = form.is_array ? node.as_array() : nullptr;
  if (array == nullptr) return form.Parts(TextOf(node, form, where));
  NameList parts;
  for (const toml::node &element : *array) parts.push_back(TextOf(element, form, where));
  return parts;
}

std::string KeysOf(Place place) {
  NameList keys;
  for (const SettingRow &row : AllSettings()) {
    if ((row.places & place) != 0) keys.emplace_back(row.name);
  }
  if ((place & kTopLevel) != 0) keys.emplace_back("[objects.NAME]");
  return Alternatives(keys);
}

const toml::table &TableOf(const toml::node &node, const std::string &where, std::string_view expected) {
  if (node.is_table()) return *node.as_table();
  throw SettingsError(fmt::format("{}: is {}: expected {}", where, TypeText(node), expected));
}

// Reads the tables and settings of one file.
class ConfigFile {
 public:
  ConfigFile(const std::string &path, bool is_live) : path_(path), is_live_(is_live) {}

  Settings ReadTopLevel(const toml::table &table) const {
    Settings settings;
    for (const auto &[key, node] : table) {
      if (key.str() == "objects") {
        ReadObjects(TableOf(node, Where("", key), "tables [objects.NAME]"), &settings);
      } else {
        ReadSetting("", key, node, static_cast<Place>(kTopLevel | kRun), &settings);
      }
    }
    return settings;
  }

 private:
  void ReadObjects(const toml::table &tables, Settings *settings) const {
    for (const auto &[name, table] : tables) {
      Settings object;
      object.name = {std::string(name.str()), Where("objects.", name)};
      const std::string prefix = fmt::format("objects.{}.", Printable(name.str()));
      for (const auto &[key, node] : TableOf(table, object.name.where, "a table")) {
        ReadSetting(prefix, key, node, kObject, &object);
      }
      settings->tables.push_back(std::move(object));
    }
  }

  void ReadSetting(std::string_view prefix, const toml::key &key, const toml::node &node, Place place,
                   Settings *settings) const {
    std::string where = Where(prefix, key);
    const SettingRow *row = FindSetting(key.str(), place);
    if (row == nullptr) throw SettingsError(fmt::format("{}: unknown key: expected {}", where, KeysOf(place)));
    Settings passed_over;
    const bool counts = is_live_ || (row->places & kRun) == 0;
    row->read({PartsOf(node, row->form, where), where}, counts ? *settings : passed_over);
  }

  // For messages; the keys of a table begin with `prefix` there.
  std::string Where(std::string_view prefix, const toml::key &key) const {
    return fmt::format("{}:{}: {}{}", path_, key.source().begin.line, prefix, Printable(key.str()));
  }

  std::string path_;
  bool is_live_;
};

}  // namespace

Settings ReadConfigFile(const std::string &path, bool is_live) {
  std::string text;
  ReadFile(path, kLargestFile, &text);
  CheckKeyLengths(path, text);
  toml::table root;
  try {
    root = toml::parse(text, path);
  } catch (const toml::parse_error &error) {
    throw SettingsError(
        fmt::format("{}:{}: not valid TOML: {}", path, error.source().begin.line, error.description()));
  }
  return ConfigFile(path, is_live).ReadTopLevel(root);
}

}  // namespace zorstat
