#include "config_file.h"

#include <fmt/format.h>
#include <toml++/toml.h>

#include <string>
#include <string_view>
#include <utility>

#include "error.h"
#include "file.h"
#include "text.h"

namespace zorstat {
namespace {

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
  const toml::array *array = form.separator == 0 ? nullptr : node.as_array();
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
  if (place == kTopLevel) keys.emplace_back("[objects.NAME]");
  return Alternatives(keys);
}

const toml::table &TableOf(const toml::node &node, const std::string &where, std::string_view expected) {
  if (node.is_table()) return *node.as_table();
  throw SettingsError(fmt::format("{}: is {}: expected {}", where, TypeText(node), expected));
}

// Reads the tables and settings of one file.
class ConfigFile {
 public:
  explicit ConfigFile(const std::string &path) : path_(path) {}

  Settings ReadTopLevel(const toml::table &table) const {
    Settings settings;
    for (const auto &[key, node] : table) {
      if (key.str() == "objects") {
        ReadObjects(TableOf(node, Where("", key), "tables [objects.NAME]"), &settings);
      } else {
        ReadSetting("", key, node, kTopLevel, &settings);
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
    row->read({PartsOf(node, row->form, where), where}, *settings);
  }

  // For messages; the keys of a table begin with `prefix` there.
  std::string Where(std::string_view prefix, const toml::key &key) const {
    return fmt::format("{}:{}: {}{}", path_, key.source().begin.line, prefix, Printable(key.str()));
  }

  std::string path_;
};

}  // namespace

Settings ReadConfigFile(const std::string &path) {
  std::string text;
  ReadFile(path, &text);
  toml::table root;
  try {
    root = toml::parse(text, path);
  } catch (const toml::parse_error &error) {
    throw SettingsError(
        fmt::format("{}:{}: not valid TOML: {}", path, error.source().begin.line, error.description()));
  }
  return ConfigFile(path).ReadTopLevel(root);
}

}  // namespace zorstat
