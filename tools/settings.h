// What is to be counted, and how: from options and a settings file to one plan per object.
#ifndef ZORSTAT_SETTINGS_H_
#define ZORSTAT_SETTINGS_H_

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "table.h"

namespace zorstat {

inline constexpr uint32_t kShortestInterval = 10;  // seconds; the library takes no shorter one
inline constexpr uint32_t kLargestCount = 65535;   // of buckets and of polls between clears

// Where a setting was made, for messages: "--buckets" or "FILE:LINE: buckets".
template <typename T>
struct Setting {
  T value;
  std::string where;
};
template <typename T>
using OptionalSetting = std::optional<Setting<T>>;
using NameList = std::vector<std::string>;

// Bounds, both included, in 64 bits: signed when type is 3, else unsigned.
struct Range {
  uint32_t type = 0;
  uint64_t bounds[2] = {0, 0};
};

// A number of polls (or of samples, for a baseline), or a duration that becomes one.
struct ClearInterval {
  uint64_t polls = 0;
  uint64_t seconds = 0;
};

// Settings that can stand for all objects or for one.
struct CommonSettings {
  OptionalSetting<uint16_t> statistics;  // ZOR_PROCESS_FLAG_*
  OptionalSetting<uint32_t> buckets;
  OptionalSetting<Range> range;
  OptionalSetting<ClearInterval> clear;
  OptionalSetting<NameList> instances;
};

struct ObjectSettings : CommonSettings {
  Setting<std::string> name;
  OptionalSetting<bool> cumulative;
};

struct Settings : CommonSettings {
  OptionalSetting<std::string> dg;
  OptionalSetting<NameList> objects;
  OptionalSetting<NameList> cumulative;  // {"all"}: every column
  OptionalSetting<uint32_t> interval;    // seconds
  OptionalSetting<uint32_t> percentile;  // whole percent
  bool headers = false;
  bool report = false;
  std::vector<ObjectSettings> tables;  // if there are any, these are the objects
};

// An object to count. Clear is that of a baseline; all else is cleared at the top-level interval.
struct ObjectPlan {
  size_t column = 0;
  uint16_t statistics = 0;
  uint32_t buckets = 0;
  std::optional<Range> range;
  bool cumulative = false;
  std::optional<NameList> instances;
  OptionalSetting<ClearInterval> clear;
};

// Whether the statistics count values in buckets over a range.
inline bool HasBuckets(uint16_t statistics) {
  return (statistics & (ZOR_PROCESS_FLAG_DISTRIBUTION | ZOR_PROCESS_FLAG_PERCENTILE)) != 0;
}

// Each reads a setting from text and throws SettingsError, naming `where`.
uint32_t ReadCount(const std::string &text, const std::string &where, uint32_t lowest, uint32_t highest);
uint16_t ReadStatistics(const NameList &names, const std::string &where);
Range ReadRange(const std::string &low, const std::string &high, const std::string &where);
ClearInterval ReadClear(const std::string &text, const std::string &where);
NameList ReadNames(NameList names, const std::string &where);
std::string ReadDgName(const std::string &name, const std::string &where);

// Sets what an option of this name, without its dashes, says.
void SetOption(std::string_view option, const std::string &text, Settings *settings);

// The plans in the order of the columns. Throws SettingsError where settings and columns do not fit together.
std::vector<ObjectPlan> PlanObjects(const Settings &settings, const Table &table);

// Throws SettingsError when a duration is more polls than can be counted.
uint32_t ClearPolls(const Setting<ClearInterval> &clear, uint32_t interval);

}  // namespace zorstat

#endif  // ZORSTAT_SETTINGS_H_
