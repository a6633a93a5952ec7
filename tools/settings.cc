#include "settings.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <set>

#include "error.h"
#include "text.h"
#include "zor/types.h"

namespace zorstat {
namespace {

constexpr uint32_t kDefaultBuckets = 100;
constexpr uint16_t kDefaultStatistics = ZOR_PROCESS_FLAG_SUMMARY | ZOR_PROCESS_FLAG_PERCENTILE;
constexpr uint32_t kSignedRange = ZOR_PROCESS_DATA_TYPE_INT64;
constexpr uint32_t kUnsignedRange = ZOR_PROCESS_DATA_TYPE_UINT64;

struct StatisticName {
  std::string_view name;
  uint16_t flag;  // cppcheck-suppress unusedStructMember  // used through a pointer whose type it does not see
};
constexpr StatisticName kStatistics[] = {
    {"summary", ZOR_PROCESS_FLAG_SUMMARY},
    {"distribution", ZOR_PROCESS_FLAG_DISTRIBUTION},
    {"percentile", ZOR_PROCESS_FLAG_PERCENTILE},
    {"baseline", ZOR_PROCESS_FLAG_BASELINE},
};

[[noreturn]] void Refuse(std::string_view where, std::string_view value, std::string_view expected) {
  throw SettingsError(Refusal(where, Printable(value), expected));
}

template <typename T>
const OptionalSetting<T> &FirstSet(const OptionalSetting<T> &own, const OptionalSetting<T> &common) {
  return own ? own : common;
}

bool Contains(const NameList &names, const std::string &name) {
  return std::find(names.begin(), names.end(), name) != names.end();
}

// Bounds of signed type reach below zero, so unsigned columns take only bounds of unsigned type.
bool Fits(const Range &range, zor_process_data_type_t type) {
  if (range.type == kSignedRange) {
    if (type == ZOR_PROCESS_DATA_TYPE_INT64) return true;
    return type == ZOR_PROCESS_DATA_TYPE_INT32 &&
           static_cast<int64_t>(range.bounds[0]) >= std::numeric_limits<int32_t>::min() &&
           static_cast<int64_t>(range.bounds[1]) <= std::numeric_limits<int32_t>::max();
  }
  switch (type) {
    case ZOR_PROCESS_DATA_TYPE_INT32:
      return range.bounds[1] <= std::numeric_limits<int32_t>::max();
    case ZOR_PROCESS_DATA_TYPE_UINT32:
      return range.bounds[1] <= std::numeric_limits<uint32_t>::max();
    case ZOR_PROCESS_DATA_TYPE_INT64:
      return range.bounds[1] <= std::numeric_limits<int64_t>::max();
    case ZOR_PROCESS_DATA_TYPE_UINT64:
      return true;
  }
  return false;
}

std::string RangeText(const Range &range) {
  if (range.type == kUnsignedRange) return fmt::format("{}:{}", range.bounds[0], range.bounds[1]);
  return fmt::format("{}:{}", static_cast<int64_t>(range.bounds[0]), static_cast<int64_t>(range.bounds[1]));
}

void CheckColumns(const OptionalSetting<NameList> &names, const Table &table) {
  if (!names) return;
  for (const std::string &name : names->value) {
    const auto same = [&](const Column &column) { return column.name == name; };
    if (std::any_of(table.columns.begin(), table.columns.end(), same)) continue;
    std::string columns;
    for (const Column &column : table.columns) columns += (columns.empty() ? "" : ", ") + column.name;
    Refuse(names->where, name, "a column of the input: " + columns);
  }
}

bool IsCumulative(const Settings &settings, const ObjectSettings &object, const Column &column) {
  if (object.cumulative) return object.cumulative->value;
  if (!settings.cumulative) return column.cumulative;
  return Contains(settings.cumulative->value, "all") || Contains(settings.cumulative->value, column.name);
}

ObjectPlan PlanObject(const Settings &settings, const ObjectSettings &object, const Column &column) {
  ObjectPlan plan;
  const auto &statistics = FirstSet(object.statistics, settings.statistics);
  plan.statistics = statistics ? statistics->value : kDefaultStatistics;
  const auto &buckets = FirstSet(object.buckets, settings.buckets);
  plan.buckets = buckets ? buckets->value : kDefaultBuckets;
  plan.cumulative = IsCumulative(settings, object, column);
  if (const auto &instances = FirstSet(object.instances, settings.instances)) plan.instances = instances->value;
  if (plan.statistics == ZOR_PROCESS_FLAG_BASELINE) {
    if (object.range) {
      Refuse(object.range->where, RangeText(object.range->value), "no range: a baseline learns its own");
    }
    plan.clear = FirstSet(object.clear, settings.clear);
    return plan;
  }
  if (object.clear) {
    throw SettingsError(
        fmt::format("{}: only a baseline object has a clear of its own (the others share the "
                    "top-level one)",
                    object.clear->where));
  }
  if (const auto &range = FirstSet(object.range, settings.range)) {
    if (!Fits(range->value, column.type)) {
      Refuse(range->where, RangeText(range->value),
             fmt::format("bounds that fit column {}, {}", column.name, TypeValues(column.type)));
    }
    plan.range = range->value;
  }
  return plan;
}

}  // namespace

uint32_t ReadCount(const std::string &text, const std::string &where, uint32_t lowest, uint32_t highest) {
  const auto number = ParseNumber<uint32_t>(text);
  if (!number || *number < lowest || *number > highest) {
    Refuse(where, text, fmt::format("a whole number from {} to {}", lowest, highest));
  }
  return *number;
}

uint16_t ReadStatistics(const NameList &names, const std::string &where) {
  unsigned flags = 0;
  for (const std::string &name : names) {
    const auto *known = std::find_if(std::begin(kStatistics), std::end(kStatistics),
                                     [&](const StatisticName &statistic) { return statistic.name == name; });
    if (known == std::end(kStatistics)) Refuse(where, name, "summary, distribution, percentile or baseline");
    flags |= known->flag;
  }
  if ((flags & ZOR_PROCESS_FLAG_BASELINE) != 0 && flags != ZOR_PROCESS_FLAG_BASELINE) {
    Refuse(where, fmt::format("{}", fmt::join(names, ",")), "baseline alone, without other statistics");
  }
  if (flags == 0) Refuse(where, "", "at least one of summary, distribution, percentile, baseline");
  return static_cast<uint16_t>(flags);
}

Range ReadRange(const std::string &low, const std::string &high, const std::string &where) {
  const auto read_unsigned = [&](const std::string &text) {
    const auto number = ParseNumber<uint64_t>(text);
    if (!number) Refuse(where, text, TypeValues(ZOR_PROCESS_DATA_TYPE_UINT64));
    return *number;
  };
  const auto read_signed = [&](const std::string &text) {
    const auto number = ParseNumber<int64_t>(text);
    if (!number) Refuse(where, text, TypeValues(ZOR_PROCESS_DATA_TYPE_INT64));
    return *number;
  };
  bool inverted;
  Range range;
  if (low.substr(0, 1) == "-") {
    const int64_t bounds[] = {read_signed(low), read_signed(high)};
    inverted = bounds[1] < bounds[0];
    range = {kSignedRange, {static_cast<uint64_t>(bounds[0]), static_cast<uint64_t>(bounds[1])}};
  } else {
    const uint64_t lowest = read_unsigned(low);
    inverted = high.substr(0, 1) == "-" && ParseNumber<int64_t>(high);
    range = {kUnsignedRange, {lowest, inverted ? 0 : read_unsigned(high)}};
    inverted = inverted || range.bounds[1] < lowest;
  }
  if (inverted) Refuse(where, low + ":" + high, "a low bound that is not above the high one");
  return range;
}

ClearInterval ReadClear(const std::string &text, const std::string &where) {
  constexpr double kLongest = 1e7;  // hours; far above what any poll interval allows
  if (!text.empty() && text.back() == 'h') {
    const auto hours = ParseNumber<double>(std::string_view(text).substr(0, text.size() - 1));
    const double seconds = hours && *hours > 0 && *hours < kLongest ? std::round(*hours * 3600) : 0;
    if (seconds < 1) Refuse(where, text, "hours above 0, as in 2h");
    return {0, static_cast<uint64_t>(seconds)};
  }
  const auto polls = ParseNumber<uint32_t>(text);
  if (!polls || *polls < 1 || *polls > kLargestCount) {
    Refuse(where, text, fmt::format("polls from 1 to {}, or hours as in 2h", kLargestCount));
  }
  return {*polls, 0};
}

NameList ReadNames(NameList names, const std::string &where) {
  std::set<std::string> known;
  for (const std::string &name : names) {
    if (!IsName(name)) Refuse(where, name, kName);
    if (!known.insert(name).second) Refuse(where, name, "each name only once");
  }
  return names;
}

std::string ReadDgName(const std::string &name, const std::string &where) {
  if (!IsName(name) || name.find(':') != std::string::npos) {
    Refuse(where, name, "a name in UTF-8 without colons, commas or control characters");
  }
  return name;
}

void SetOption(std::string_view option, const std::string &text, Settings *settings) {
  std::string where = fmt::format("--{}", option);
  const auto names = [&] { return ReadNames(Split(text, ','), where); };
  if (option == "dg") {
    settings->dg = {ReadDgName(text, where), where};
  } else if (option == "statistics") {
    settings->statistics = {ReadStatistics(Split(text, ','), where), where};
  } else if (option == "buckets") {
    settings->buckets = {ReadCount(text, where, 1, kLargestCount), where};
  } else if (option == "range") {
    const size_t colon = text.find(':');
    if (colon == std::string::npos) Refuse(where, text, "LOW:HIGH");
    settings->range = {ReadRange(text.substr(0, colon), text.substr(colon + 1), where), where};
  } else if (option == "clear") {
    settings->clear = {ReadClear(text, where), where};
  } else if (option == "objects") {
    settings->objects = {names(), where};
  } else if (option == "instances") {
    settings->instances = {names(), where};
  } else if (option == "cumulative") {
    settings->cumulative = {names(), where};
  } else if (option == "interval") {
    settings->interval = {ReadCount(text, where, kShortestInterval, std::numeric_limits<uint32_t>::max()), where};
  } else if (option == "percentile") {
    settings->percentile = {ReadCount(text, where, 0, 100), where};
  } else {
    throw SettingsError(fmt::format("{}: unknown option", where));
  }
}

std::vector<ObjectPlan> PlanObjects(const Settings &settings, const Table &table) {
  CheckColumns(settings.objects, table);
  if (settings.cumulative && settings.cumulative->value != NameList{"all"})
    CheckColumns(settings.cumulative, table);
  for (const ObjectSettings &object : settings.tables) {
    CheckColumns(Setting<NameList>{{object.name.value}, object.name.where}, table);
  }
  if (settings.range && settings.statistics && settings.statistics->value == ZOR_PROCESS_FLAG_BASELINE) {
    Refuse(settings.range->where, RangeText(settings.range->value), "no range: a baseline learns its own");
  }
  std::vector<ObjectPlan> plans;
  for (size_t i = 0; i < table.columns.size(); ++i) {
    const Column &column = table.columns[i];
    if (settings.objects && !Contains(settings.objects->value, column.name)) continue;
    const auto own = std::find_if(settings.tables.begin(), settings.tables.end(),
                                  [&](const ObjectSettings &object) { return object.name.value == column.name; });
    if (own == settings.tables.end() && !settings.tables.empty()) continue;
    plans.push_back(PlanObject(settings, own == settings.tables.end() ? ObjectSettings{} : *own, column));
    plans.back().column = i;
  }
  if (plans.empty()) {
    throw SettingsError(fmt::format("{}: no object is left (expected columns that have a table [objects.NAME])",
                                    settings.objects->where));
  }
  return plans;
}

uint32_t ClearPolls(const Setting<ClearInterval> &clear, uint32_t interval) {
  const uint64_t seconds = clear.value.seconds;
  const uint64_t polls = seconds == 0 ? clear.value.polls : (seconds + interval - 1) / interval;
  if (polls > kLargestCount) {
    throw SettingsError(fmt::format("{}: {} seconds are {} polls of {} seconds: expected at most {} polls",
                                    clear.where, seconds, polls, interval, kLargestCount));
  }
  return static_cast<uint32_t>(polls);
}

}  // namespace zorstat
