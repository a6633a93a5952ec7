#include "config_file.h"

#include <fmt/format.h>
#include <toml++/toml.h>

#include <limits>
#include <string_view>

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

// One key of the file with its value.
class Entry {
 public:
  Entry(const std::string &path, std::string_view table, const toml::key &key, const toml::node &node)
      : node_(node),
        where_(fmt::format("{}:{}: {}{}", path, key.source().begin.line, table, Printable(key.str()))) {}

  const std::string &where() const { return where_; }
  const toml::node &node() const { return node_; }

  [[noreturn]] void RefuseType(const toml::node &node, std::string_view expected) const {
    throw SettingsError(fmt::format("{}: is {}: expected {}", where_, TypeText(node), expected));
  }

  std::string Integer() const {
    if (!node_.is_integer()) RefuseType(node_, "an integer");
    return std::to_string(**node_.as_integer());
  }
  std::string String() const {
    if (!node_.is_string()) RefuseType(node_, "a string");
    return **node_.as_string();
  }
  bool Truth() const {
    if (!node_.is_boolean()) RefuseType(node_, "true or false");
    return **node_.as_boolean();
  }
  std::string IntegerOrString(const toml::node &node) const {
    if (node.is_integer()) return std::to_string(**node.as_integer());
    if (!node.is_string()) RefuseType(node, "an integer or a string");
    return **node.as_string();
  }

  // An array of strings, or a string with commas.
  NameList Names() const {
    if (node_.is_string()) return Split(**node_.as_string(), ',');
    const toml::array *array = node_.as_array();
    if (array == nullptr) RefuseType(node_, "an array of strings");
    NameList names;
    for (const toml::node &element : *array) {
      if (!element.is_string()) RefuseType(element, "an array of strings");
      names.push_back(**element.as_string());
    }
    return names;
  }

  Range Bounds() const {
    const toml::array *array = node_.as_array();
    if (array == nullptr) RefuseType(node_, "an array of two bounds, [LOW, HIGH]");
    if (array->size() != 2) {
      throw SettingsError(
          fmt::format("{}: has {} elements: expected two bounds, [LOW, HIGH]", where_, array->size()));
    }
    return ReadRange(IntegerOrString(*array->get(0)), IntegerOrString(*array->get(1)), where_);
  }

 private:
  const toml::node &node_;
  std::string where_;
};

// False for a key that is not one of the common ones.
bool ReadCommon(const Entry &entry, std::string_view key, CommonSettings *settings) {
  const std::string &where = entry.where();
  if (key == "statistics") {
    settings->statistics = {ReadStatistics(entry.Names(), where), where};
  } else if (key == "buckets") {
    settings->buckets = {ReadCount(entry.Integer(), where, 1, kLargestCount), where};
  } else if (key == "range") {
    settings->range = {entry.Bounds(), where};
  } else if (key == "clear") {
    settings->clear = {ReadClear(entry.IntegerOrString(entry.node()), where), where};
  } else if (key == "instances") {
    settings->instances = {ReadNames(entry.Names(), where), where};
  } else {
    return false;
  }
  return true;
}

ObjectSettings ReadObject(const std::string &path, const Entry &object, std::string_view name) {
  ObjectSettings settings;
  settings.name = {std::string(name), object.where()};
  const toml::table *table = object.node().as_table();
  if (table == nullptr) object.RefuseType(object.node(), "a table");
  for (const auto &[key, node] : *table) {
    const Entry entry(path, fmt::format("objects.{}.", name), key, node);
    if (ReadCommon(entry, key.str(), &settings)) continue;
    if (key.str() != "cumulative") {
      throw SettingsError(fmt::format(
          "{}: unknown key: expected statistics, buckets, range, clear, instances or cumulative", entry.where()));
    }
    settings.cumulative = {entry.Truth(), entry.where()};
  }
  return settings;
}

void ReadTopLevel(const std::string &path, const Entry &entry, std::string_view key, Settings *settings) {
  const std::string &where = entry.where();
  if (ReadCommon(entry, key, settings)) return;
  if (key == "dg") {
    settings->dg = {ReadDgName(entry.String(), where), where};
  } else if (key == "interval") {
    constexpr uint32_t kLongest = std::numeric_limits<uint32_t>::max();
    settings->interval = {ReadCount(entry.Integer(), where, kShortestInterval, kLongest), where};
  } else if (key == "percentile") {
    settings->percentile = {ReadCount(entry.Integer(), where, 0, 100), where};
  } else if (key == "headers") {
    settings->headers = entry.Truth();
  } else if (key == "report") {
    settings->report = entry.Truth();
  } else if (key == "cumulative") {
    settings->cumulative = {ReadNames(entry.Names(), where), where};
  } else if (key == "objects") {
    const toml::table *objects = entry.node().as_table();
    if (objects == nullptr) entry.RefuseType(entry.node(), "tables [objects.NAME]");
    for (const auto &[name, node] : *objects) {
      settings->tables.push_back(ReadObject(path, Entry(path, "objects.", name, node), name.str()));
    }
  } else {
    throw SettingsError(
        fmt::format("{}: unknown key: expected dg, statistics, buckets, range, clear, instances, cumulative, "
                    "interval, headers, report, percentile or [objects.NAME]",
                    where));
  }
}

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
  Settings settings;
  for (const auto &[key, node] : root) {
    ReadTopLevel(path, Entry(path, "", key, node), key.str(), &settings);
  }
  return settings;
}

}  // namespace zorstat
