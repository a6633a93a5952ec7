// What is to be counted, and how: from options and a settings file to one plan per object.
#ifndef ZORSTAT_SETTINGS_H_
#define ZORSTAT_SETTINGS_H_

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "table.h"
#include "zor/process.hpp"

namespace zorstat {

inline constexpr std::uint32_t kShortestInterval = 10;  // seconds; the library takes no shorter one
inline constexpr std::uint32_t kDefaultInterval = 10;   // of polls of the kernel
inline constexpr std::uint32_t kDefaultExpire = 2;      // of these; a replay forgets nothing
inline constexpr std::uint32_t kLargestCount = zor::process::kLargestCount;  // of buckets, of polls between clears

using zor::process::Interval;
using zor::process::Range;
using zor::process::Values;

// Where a setting was made, for messages: "--buckets" or "FILE:LINE: buckets".
template <class T>
struct Setting {
  T value;
  std::string where;
};
template <class T>
using OptionalSetting = std::optional<Setting<T>>;
using NameList = std::vector<std::string>;

// What the readings of an interval are written as.
enum class Format { kRecords, kTable, kCsv, kJsonLines };

// What options and a settings file say, for all objects or in a table [objects.NAME] for one.
struct Settings {
  OptionalSetting<std::uint16_t> statistics;  // ZOR_PROCESS_FLAG_*
  OptionalSetting<std::uint32_t> buckets;
  OptionalSetting<Range> range;
  OptionalSetting<Interval> clear;  // for a baseline, of samples
  OptionalSetting<NameList> instances;
  OptionalSetting<NameList> cumulative;  // columns, in order; {"all"}: every one
  OptionalSetting<std::uint32_t> edges;  // upper bounds of a histogram
  OptionalSetting<Values> resets;        // how counters are read: whether resets are told from wraps

  OptionalSetting<Unit> unit;  // but for per_second
  OptionalSetting<bool> per_second;

  // Of all objects alone:
  OptionalSetting<std::string> dg;
  OptionalSetting<NameList> objects;          // in order
  OptionalSetting<std::uint32_t> interval;    // seconds
  OptionalSetting<std::uint32_t> percentile;  // whole percent
  OptionalSetting<std::uint32_t> count;       // polls
  NameList command;                           // of exec
  OptionalSetting<std::uint32_t> timeout;     // of its runs, seconds
  OptionalSetting<std::uint32_t> cores;       // default: by the size of the input
  OptionalSetting<std::uint32_t> expire;      // intervals; 0: never
  OptionalSetting<std::string> listen;        // HOST:PORT
  OptionalSetting<std::string> prometheus;    // file
  bool headers = false;
  bool report = false;
  double outside = 0.1;  // per cent of the samples that a suggested range may leave out
  std::string source;
  std::string proc = "/proc";
  std::string config;
  std::string output = "-";
  bool append = false;
  std::string html;
  OptionalSetting<Format> format;
  OptionalSetting<std::string> host;
  std::string sqlite;
  OptionalSetting<double> fail_outside;    // per cent of an instance's samples
  OptionalSetting<NameList> on_departure;  // a program and its arguments
  double departure = 2;                    // widths, from which on it is run
  std::string state;
  std::vector<Settings> tables;  // if there are any, these are the objects

  Setting<std::string> name;  // of the one object
};

// Where a setting can be made: as an option of a command, at the top level of a settings file, in a table of it.
enum Place : unsigned {
  kReplay = 1,
  kLive = 2,
  kRecord = 4,
  kSuggest = 8,
  kAnyCommand = 15 | 64,
  kTopLevel = 16,
  kObject = 32,
  kTop = 64,
  kRun = 128,  // top level, too, but passed over by all commands but live
};

// What a value looks like. In a settings file it, or each part of an array, has one of the types; in one text parts
// are separated.
struct Form {
  enum Types : unsigned { kInteger = 1, kString = 2, kTruth = 4 };
  unsigned types;
  const char *expected;            // in a settings file
  char separator = 0;              // a value without one has one part
  bool is_array = separator != 0;  // may be one there

  NameList Parts(const std::string &text) const;
};

// A value as it was written, in parts.
struct Given {
  NameList parts;
  std::string where;

  const std::string &text() const { return parts.front(); }  // of a value with one part
};

// A setting: all that command line, settings files and messages know of it.
struct SettingRow {
  const char *name;
  const char *type;  // of an option's value, for --help
  const char *help;
  Form form;
  void (*read)(const Given &given, Settings &settings);  // throws SettingsError
  unsigned places;
  char letter = 0;  // of the option

  bool is_flag() const { return form.types == Form::kTruth; }
};

// The settings in the order of --help. An option means the same to all commands that have it.
std::span<const SettingRow> AllSettings();

// The setting that has the name there, or null.
const SettingRow *FindSetting(std::string_view name, Place place);

// Sets what an option of this name, without its dashes, says.
void SetOption(std::string_view name, const std::string &text, Settings *settings);

// An object to count, or the part of it that is a baseline or the others. Clear is that of a baseline; all else is
// cleared at the top-level interval.
struct ObjectPlan {
  std::size_t column = 0;
  std::uint16_t statistics = 0;
  std::uint32_t buckets = 0;
  std::optional<Range> range;
  Values values = Values::sampled;
  std::optional<NameList> instances;
  OptionalSetting<Interval> clear;
  Unit unit = {};  // of samples, for people
  std::uint32_t edges = 0;
};

inline Format FormatOf(const Settings &settings) {
  return settings.format ? settings.format->value : Format::kRecords;
}

// The name of this host, unless the settings have one.
std::string HostName(const Settings &settings);

// Throws SettingsError, naming `where`.
std::string ReadDgName(const std::string &name, const std::string &where);

// The plans in the order of the columns, a baseline behind other statistics of its object. Throws SettingsError
// where settings and columns do not fit together.
std::vector<ObjectPlan> PlanObjects(const Settings &settings, const Table &table);

// The polls of the interval, which is in seconds. Throws SettingsError where they are more than can be counted.
std::uint32_t ClearPolls(const Setting<Interval> &clear, std::uint32_t interval);

}  // namespace zorstat

#endif  // ZORSTAT_SETTINGS_H_
