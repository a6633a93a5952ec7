#include "settings.h"

#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <climits>
#include <cmath>
#include <limits>
#include <map>
#include <set>
#include <type_traits>
#include <utility>

#include "error.h"
#include "notes.h"
#include "text.h"
#include "zor/types.h"

namespace zorstat {
namespace {

constexpr std::uint32_t kDefaultBuckets = 100;
constexpr std::uint32_t kDefaultEdges = 20;
constexpr std::uint16_t kDefaultStatistics = ZOR_PROCESS_FLAG_SUMMARY | ZOR_PROCESS_FLAG_PERCENTILE;
constexpr std::uint16_t kBaseline = ZOR_PROCESS_FLAG_BASELINE;
constexpr std::uint16_t kAllButBaseline = ZOR_PROCESS_FLAGS_ALL & ~ZOR_PROCESS_FLAG_BASELINE;

struct Statistic {
  std::string_view name;
  std::uint16_t flag;
};
constexpr Statistic kStatistics[] = {
    {"summary", ZOR_PROCESS_FLAG_SUMMARY},
    {"distribution", ZOR_PROCESS_FLAG_DISTRIBUTION},
    {"percentile", ZOR_PROCESS_FLAG_PERCENTILE},
    {"baseline", ZOR_PROCESS_FLAG_BASELINE},
};

[[noreturn]] void Refuse(std::string_view where, std::string_view value, std::string_view expected) {
  throw SettingsError(Refusal(where, Printable(value), expected));
}

template <class T>
const OptionalSetting<T> &FirstSet(const OptionalSetting<T> &own, const OptionalSetting<T> &common) {
  return own ? own : common;
}

// The names are in order.
bool Contains(const NameList &names, const std::string &name) {
  return std::binary_search(names.begin(), names.end(), name);
}

std::string RangeText(const Range &range) {
  if (range.type == ZOR_PROCESS_DATA_TYPE_UINT64) return fmt::format("{}:{}", range.bounds[0], range.bounds[1]);
  return fmt::format("{}:{}", static_cast<std::int64_t>(range.bounds[0]),
                     static_cast<std::int64_t>(range.bounds[1]));
}

// Of many columns, each can be named.
class ColumnCheck {
 public:
  explicit ColumnCheck(const Table &table) : table_(table) {
    for (const Column &column : table.columns) known_.insert(column.name);
  }
  void operator()(const std::string &where, const std::string &name) const {
    if (known_.contains(name)) return;
    Items columns(20);
    for (const Column &column : table_.columns) columns.Add(column.name);
    Refuse(where, name, "a column of the input: " + columns.text());
  }
  void operator()(const OptionalSetting<NameList> &names) const {
    if (!names) return;
    for (const std::string &name : names->value) (*this)(names->where, name);
  }

 private:
  const Table &table_;
  std::set<std::string_view> known_;
};

bool MeansAll(const NameList &columns) { return columns.size() == 1 && columns[0] == "all"; }

Values ValuesOf(const Settings &settings, const Settings &object, const Column &column) {
  const auto &columns = FirstSet(object.cumulative, settings.cumulative);
  const bool is_cumulative =
      columns ? MeansAll(columns->value) || Contains(columns->value, column.name) : column.cumulative;
  if (!is_cumulative) return Values::sampled;
  const auto &resets = FirstSet(object.resets, settings.resets);
  return resets ? resets->value : Values::counter;
}

// A gauge has no samples of an interval to be divided by it.
Unit UnitOf(const Settings &settings, const Settings &object, const Column &column, Values values) {
  Unit unit = column.unit;
  if (const auto &own = FirstSet(object.unit, settings.unit)) {
    unit.name = own->value.name;
    unit.factor = own->value.factor;
  }
  if (const auto &own = FirstSet(object.per_second, settings.per_second)) unit.per_second = own->value;
  if (values == Values::sampled) unit.per_second = false;
  return unit;
}

void CheckRange(const OptionalSetting<Range> &range, std::uint16_t statistics) {
  if (!range || statistics != kBaseline) return;
  Refuse(range->where, RangeText(range->value), "no range: a baseline learns its own");
}

void CheckClear(const OptionalSetting<Interval> &clear, std::uint16_t statistics) {
  if (!clear || (statistics & kBaseline) != 0) return;
  throw SettingsError(fmt::format(
      "{}: only a baseline object has a clear of its own (the others share the top-level one)", clear->where));
}

ObjectPlan PlanObject(const Settings &settings, const Settings &object, const Column &column,
                      std::uint16_t statistics) {
  ObjectPlan plan;
  plan.statistics = statistics;
  const auto &buckets = FirstSet(object.buckets, settings.buckets);
  plan.buckets = buckets ? buckets->value : kDefaultBuckets;
  const auto &edges = FirstSet(object.edges, settings.edges);
  plan.edges = edges ? edges->value : kDefaultEdges;
  plan.values = ValuesOf(settings, object, column);
  plan.unit = UnitOf(settings, object, column, plan.values);
  if (const auto &instances = FirstSet(object.instances, settings.instances)) plan.instances = instances->value;
  if (plan.statistics == kBaseline) {
    plan.clear = FirstSet(object.clear, settings.clear);
    return plan;
  }
  if (const auto &range = FirstSet(object.range, settings.range)) {
    if (!range->value.fits(column.type)) {
      Refuse(range->where, RangeText(range->value),
             fmt::format("bounds that fit column {}, {}", column.name, TypeValues(column.type)));
    }
    plan.range = range->value;
  }
  return plan;
}

// A baseline goes with no other statistic in the library: with others it is a plan of its own.
void AppendPlans(const Settings &settings, const Settings &object, const Table &table, std::size_t column,
                 std::vector<ObjectPlan> *plans) {
  const auto &set = FirstSet(object.statistics, settings.statistics);
  const std::uint16_t statistics = set ? set->value : kDefaultStatistics;
  CheckRange(object.range, statistics);
  CheckClear(object.clear, statistics);
  for (const std::uint16_t kind : {kAllButBaseline, kBaseline}) {
    const auto part = static_cast<std::uint16_t>(statistics & kind);
    if (part == 0) continue;
    plans->push_back(PlanObject(settings, object, table.columns[column], part));
    plans->back().column = column;
  }
}

template <std::uint32_t lowest, std::uint32_t highest>
std::uint32_t ReadCount(const Given &given) {
  const auto number = ParseNumber<std::uint32_t>(given.text());
  if (!number || *number < lowest || *number > highest) {
    Refuse(given.where, given.text(), fmt::format("a whole number from {} to {}", lowest, highest));
  }
  return *number;
}

std::uint16_t ReadStatistics(const Given &given) {
  NameList known;
  for (const Statistic &statistic : kStatistics) known.emplace_back(statistic.name);
  unsigned flags = 0;
  for (const std::string &name : given.parts) {
    const auto at = std::find(known.begin(), known.end(), name);
    if (at == known.end()) Refuse(given.where, name, Alternatives(known));
    flags |= kStatistics[at - known.begin()].flag;
  }
  if (flags == 0) Refuse(given.where, "", "at least one of " + Alternatives(known));
  return static_cast<std::uint16_t>(flags);
}

template <class Number>
Number ReadBound(const std::string &text, const std::string &where) {
  constexpr auto kType = std::is_signed_v<Number> ? ZOR_PROCESS_DATA_TYPE_INT64 : ZOR_PROCESS_DATA_TYPE_UINT64;
  const auto number = ParseNumber<Number>(text);
  if (!number) Refuse(where, text, TypeValues(kType));
  return *number;
}

// Bounds share a type, which is a signed one if the low bound is below zero.
Range ReadRange(const Given &given) {
  const std::string text = Joined(given.parts, ":");
  if (given.parts.size() != 2) Refuse(given.where, text, "two bounds, LOW:HIGH");
  const auto natural = [&](std::size_t i) { return ReadBound<std::uint64_t>(given.parts[i], given.where); };
  const auto whole = [&](std::size_t i) { return ReadBound<std::int64_t>(given.parts[i], given.where); };
  const auto is_negative = [&](std::size_t i) { return given.parts[i].starts_with('-'); };
  const Range range = is_negative(0)   ? Range(whole(0), whole(1))
                      : is_negative(1) ? Range(natural(0), whole(1))
                                       : Range(natural(0), natural(1));
  if (range.type == 0) Refuse(given.where, text, "a low bound that is not above the high one");
  return range;
}

Interval ReadClear(const Given &given) {
  constexpr double kLongest = 1e7;  // hours; far above what any poll interval allows
  const std::string &text = given.text();
  if (text.ends_with('h')) {
    const auto hours = ParseNumber<double>(std::string_view(text).substr(0, text.size() - 1));
    const double seconds = hours && *hours > 0 && *hours < kLongest ? std::round(*hours * 3600) : 0;
    if (seconds < 1) Refuse(given.where, text, "hours above 0, as in 2h");
    return std::chrono::seconds(static_cast<std::int64_t>(seconds));
  }
  const auto polls = ParseNumber<std::uint32_t>(text);
  if (!polls || *polls < 1 || *polls > kLargestCount) {
    Refuse(given.where, text, fmt::format("polls from 1 to {}, or hours as in 2h", kLargestCount));
  }
  return Interval::polls(*polls);
}

NameList ReadNames(const Given &given) {
  std::set<std::string> known;
  for (const std::string &name : given.parts) {
    if (!IsName(name)) Refuse(given.where, name, kName);
    if (!known.insert(name).second) Refuse(given.where, name, "each name only once");
  }
  return given.parts;
}

NameList ReadColumns(const Given &given) {
  NameList names = ReadNames(given);
  std::sort(names.begin(), names.end());
  return names;
}

template <int highest>
double ReadAmount(const Given &given) {
  const auto amount = ParseNumber<double>(given.text());
  if (!amount || !(*amount >= 0 && *amount <= highest)) {
    Refuse(given.where, given.text(), fmt::format("a number from 0 to {}", highest));
  }
  return *amount;
}

NameList ReadCommand(const Given &given) {
  if (given.parts.empty() || given.parts[0].empty()) Refuse(given.where, "", "a program");
  return given.parts;
}

Values ReadResets(const Given &given) {
  if (given.text() == "detect") return Values::counter;
  if (given.text() == "ignore") return Values::cumulative;
  Refuse(given.where, given.text(), "detect or ignore");
}

std::string ReadAddress(const Given &given) {
  const std::string &text = given.text();
  const std::size_t colon = std::min(text.rfind(':'), text.size());
  const std::string_view host = std::string_view(text).substr(0, colon);
  const auto port = ParseNumber<std::uint16_t>(std::string_view(text).substr(std::min(colon + 1, text.size())));
  const bool is_bracketed = host.size() > 2 && host.front() == '[' && host.back() == ']';
  const bool is_host = is_bracketed || (!host.empty() && host.find_first_of("[:],") == std::string_view::npos);
  if (!is_host || !port || *port == 0) {
    Refuse(given.where, text, "HOST:PORT, as in 127.0.0.1:9777 or [::1]:9777");
  }
  return text;
}

std::string ReadPromFile(const Given &given) {
  if (!given.text().ends_with(".prom")) Refuse(given.where, given.text(), "a name that ends in .prom");
  return given.text();
}

bool ReadTruth(const Given &given) { return given.text() == "true"; }
NameList ReadAllOrNone(const Given &given) { return ReadTruth(given) ? NameList{"all"} : NameList{}; }
std::string ReadText(const Given &given) { return given.text(); }
std::string ReadDg(const Given &given) { return ReadDgName(given.text(), given.where); }

constexpr std::pair<std::string_view, Format> kFormats[] = {
    {"records", Format::kRecords}, {"table", Format::kTable}, {"csv", Format::kCsv}, {"jsonl", Format::kJsonLines}};

Format ReadFormat(const Given &given) {
  NameList known;
  for (const auto &[name, format] : kFormats) {
    if (given.text() == name) return format;
    known.emplace_back(name);
  }
  Refuse(given.where, given.text(), Alternatives(known));
}

std::string ReadName(const Given &given) {
  if (!IsName(given.text())) Refuse(given.where, given.text(), kName);
  return given.text();
}

Unit ReadUnit(const Given &given) {
  const auto unit = ParseUnit(given.text());
  if (!unit) Refuse(given.where, given.text(), "a short name, or a factor and a name as in 512 bytes");
  return *unit;
}

bool ReadPer(const Given &given) {
  if (given.text() != "second" && given.text() != "sample") Refuse(given.where, given.text(), "second or sample");
  return given.text() == "second";
}

// Keeps what `parse` makes of a value as the member, with its place or without.
template <auto member, auto parse>
void Set(const Given &given, Settings &settings) {
  settings.*member = {parse(given), given.where};
}
template <auto member, auto parse>
void SetPlain(const Given &given, Settings &settings) {
  settings.*member = parse(given);
}

constexpr unsigned kCounting = kReplay | kLive;
constexpr unsigned kForAll = kCounting | kTopLevel;

constexpr Form kInteger{Form::kInteger, "an integer"};
constexpr Form kIntegerOrText{Form::kInteger | Form::kString, "an integer or a string"};
constexpr Form kText{Form::kString, "a string"};
constexpr Form kTruth{Form::kTruth, "true or false"};
constexpr Form kList{Form::kString, "an array of strings", ','};
constexpr Form kWords{Form::kString, "a string or an array of strings", '\0', true};
constexpr Form kBounds{Form::kInteger | Form::kString, "an array of two bounds, [LOW, HIGH]", ':'};

constexpr auto kReadInterval =
    Set<&Settings::interval, ReadCount<kShortestInterval, std::numeric_limits<std::uint32_t>::max()>>;

constexpr SettingRow kSettings[] = {
    {"cumulative", "LIST",
     "columns that are counters, whose samples are the differences\n"
     "from poll to poll; or all (default: none)",
     kList, Set<&Settings::cumulative, ReadColumns>, kReplay | kTopLevel},
    {"cumulative", "LIST", "columns that are counters; or all (default: those of the\nsource; of exec none)", kList,
     Set<&Settings::cumulative, ReadColumns>, kLive},
    {"cumulative", "", "", kTruth, Set<&Settings::cumulative, ReadAllOrNone>, kObject},
    {"interval", "SECONDS", "between polls, at least 10 (default: that of the first two)", kInteger, kReadInterval,
     kReplay | kTopLevel},
    {"interval", "SECONDS", "between polls, at least 10 (default: 10)", kInteger, kReadInterval,
     kLive | kRecord | kTop},
    {"cores", "N", "count on so many cores, with the same output\n(default: all for a file above 4 MB, else 1)",
     kInteger, Set<&Settings::cores, ReadCount<1, 1024>>, kReplay},
    {"count", "N", "end after this many polls (default: at a signal)", kInteger,
     Set<&Settings::count, ReadCount<1, std::numeric_limits<std::uint32_t>::max()>>, kLive | kRecord | kRun},
    {"proc", "DIR", "directory of the proc file system (default: /proc)", kText,
     SetPlain<&Settings::proc, ReadText>, kLive | kRecord | kTop | kRun},
    {"command", "", "", kWords, SetPlain<&Settings::command, ReadCommand>, kRun},
    {"timeout", "SECONDS", "of a run of the command of exec (default: the interval,\nwhich is also the longest)",
     kInteger, Set<&Settings::timeout, ReadCount<1, std::numeric_limits<std::uint32_t>::max()>>,
     kLive | kRecord | kRun},
    {"statistics", "LIST", "summary, distribution, percentile, baseline\n(default: summary,percentile)", kList,
     Set<&Settings::statistics, ReadStatistics>, kForAll | kObject},
    {"buckets", "N", "buckets of a distribution, 1 to 65535 (default: 100)", kInteger,
     Set<&Settings::buckets, ReadCount<1, kLargestCount>>, kForAll | kObject | kTop},
    {"range", "LOW:HIGH",
     "values that the buckets cover, both included\n(default: all values of the column's type)", kBounds,
     Set<&Settings::range, ReadRange>, kForAll | kObject | kTop},
    {"clear", "N|HOURSh",
     "write records and start anew after this many polls, or\n"
     "hours as in 2h (default: once, at the end, or after the\n"
     "65535 polls that buckets can count); for a baseline: the\n"
     "samples it learns from, and between records (default:\n2000)",
     kIntegerOrText, Set<&Settings::clear, ReadClear>, kForAll | kObject},
    {"resets", "HOW",
     "a counter that goes down: detect, it began anew, and its\nvalue is the sample; or ignore, it "
     "wrapped\n(default: detect)",
     kText, Set<&Settings::resets, ReadResets>, kForAll | kObject},
    {"expire", "N",
     "forget an instance after this many intervals without a\nvalue; 0: never (default: 2 in live, 0 in replay)",
     kInteger, Set<&Settings::expire, ReadCount<0, std::numeric_limits<std::uint32_t>::max()>>, kForAll},
    {"clear", "N|HOURSh", "polls, or hours as in 2h, between records (default: 60)", kIntegerOrText,
     Set<&Settings::clear, ReadClear>, kSuggest},
    {"clear", "N|HOURSh", "polls, or hours as in 2h, of an interval (default: 60)", kIntegerOrText,
     Set<&Settings::clear, ReadClear>, kTop},
    {"outside", "PERCENT",
     "per cent of the samples that a range may leave out where\nthe rare ones cost much (default: 0.1)", kText,
     SetPlain<&Settings::outside, ReadAmount<50>>, kSuggest},
    {"objects", "LIST", "columns to count (default: all)", kList, Set<&Settings::objects, ReadColumns>,
     kCounting | kTop},
    {"instances", "LIST", "keys to count (default: all)", kList, Set<&Settings::instances, ReadNames>,
     kForAll | kObject | kTop},
    {"dg", "NAME",
     "data group, the first word of records (default: the file's\nname without its extension, or the source)",
     kText, Set<&Settings::dg, ReadDg>, kForAll},
    {"percentile", "P", "report this percentile, 0 to 100, instead of the nine\nstandard ones; implies --report",
     kInteger, Set<&Settings::percentile, ReadCount<0, 100>>, kForAll},
    {"headers", "", "write each record kind's Schema-def header first", kTruth,
     SetPlain<&Settings::headers, ReadTruth>, kForAll},
    {"report", "", "at the end, print the interval in progress", kTruth, SetPlain<&Settings::report, ReadTruth>,
     kForAll},
    {"config", "FILE", "settings in TOML", kText, SetPlain<&Settings::config, ReadText>, kCounting | kTop},
    {"source", "", "", kText, SetPlain<&Settings::source, ReadText>, kRun},
    {"unit", "", "", kText, Set<&Settings::unit, ReadUnit>, kTopLevel | kObject},
    {"per", "", "", kText, Set<&Settings::per_second, ReadPer>, kTopLevel | kObject},
    {"output", "FILE", "write to this file (default: standard output)", kText,
     SetPlain<&Settings::output, ReadText>, kCounting | kRun, 'o'},
    {"append", "", "continue the file of --output in place", kTruth, SetPlain<&Settings::append, ReadTruth>,
     kCounting | kRecord | kRun},
    {"format", "FORMAT",
     "what to write: records, table, csv or jsonl (default:\ntable on a terminal, else records)", kText,
     Set<&Settings::format, ReadFormat>, kForAll},
    {"host", "NAME", "host in csv, jsonl and histories (default: the name of\nthis one)", kText,
     Set<&Settings::host, ReadName>, kForAll},
    {"sqlite", "FILE", "keep the intervals in this database, for 'zorstat query'", kText,
     SetPlain<&Settings::sqlite, ReadText>, kCounting | kRun},
    {"fail-outside", "PERCENT",
     "end with status 3 if an instance has more than so many per\n"
     "cent of its samples outside its range",
     kText, Set<&Settings::fail_outside, ReadAmount<100>>, kReplay},
    {"on-departure", "PROGRAM",
     "run this program when instances depart at the end of an\n"
     "interval, with their lines of jsonl as its input",
     kWords, Set<&Settings::on_departure, ReadCommand>, kLive | kRun},
    {"departure", "WIDTHS",
     "how far a median is to be from those before, in widths of\n"
     "their band (default: 2)",
     kIntegerOrText, SetPlain<&Settings::departure, ReadAmount<1000>>, kLive | kRun},
    {"listen", "HOST:PORT",
     "serve metrics to Prometheus at http://HOST:PORT/metrics;\n"
     "quantiles are those of an interval: give --clear, too",
     kText, Set<&Settings::listen, ReadAddress>, kLive | kRun},
    {"prometheus", "FILE",
     "write these metrics to a file, NAME.prom, for the textfile\n"
     "collector of node_exporter, after each poll",
     kText, Set<&Settings::prometheus, ReadPromFile>, kLive | kRun},
    {"prometheus", "FILE",
     "write metrics for Prometheus to a file, NAME.prom, at the\n"
     "end",
     kText, Set<&Settings::prometheus, ReadPromFile>, kReplay},
    {"edges", "N", "upper bounds of a histogram of these metrics, at most its\nbuckets (default: 20)", kInteger,
     Set<&Settings::edges, ReadCount<1, kLargestCount>>, kForAll | kObject},
    {"output", "FILE", "poll file (default: standard output)", kText, SetPlain<&Settings::output, ReadText>,
     kRecord, 'o'},
    {"output", "FILE", "settings file (default: standard output)", kText, SetPlain<&Settings::output, ReadText>,
     kSuggest, 'o'},
    {"state", "FILE",
     "keep there what is known at the end, live at each clear,\n"
     "too, and go on from it; --output is then appended to",
     kText, SetPlain<&Settings::state, ReadText>, kCounting | kRun},
    {"html", "FILE", "write a page for a browser: at the end of a replay, live\nat the end of each interval", kText,
     SetPlain<&Settings::html, ReadText>, kCounting | kRun},
};

}  // namespace

NameList Form::Parts(const std::string &text) const {
  return separator == 0 ? NameList{text} : Split(text, separator);
}

std::span<const SettingRow> AllSettings() { return kSettings; }

const SettingRow *FindSetting(std::string_view name, Place place) {
  const auto is_it = [&](const SettingRow &row) { return (row.places & place) != 0 && row.name == name; };
  const auto *const found = std::find_if(std::begin(kSettings), std::end(kSettings), is_it);
  return found == std::end(kSettings) ? nullptr : found;
}

void SetOption(std::string_view name, const std::string &text, Settings *settings) {
  std::string where = fmt::format("--{}", name);
  const SettingRow *row = FindSetting(name, kAnyCommand);
  if (row == nullptr) throw SettingsError(fmt::format("{}: unknown option", where));
  row->read({row->form.Parts(text), std::move(where)}, *settings);
}

std::string HostName(const Settings &settings) {
  if (settings.host) return settings.host->value;
  char name[HOST_NAME_MAX + 1] = {};
  if (gethostname(name, HOST_NAME_MAX) != 0 || !IsName(name)) return "localhost";
  return name;
}

std::string ReadDgName(const std::string &name, const std::string &where) {
  if (!IsName(name) || name.find(':') != std::string::npos) {
    Refuse(where, name, "a name in UTF-8 without colons, commas or control characters");
  }
  return name;
}

std::vector<ObjectPlan> PlanObjects(const Settings &settings, const Table &table) {
  const ColumnCheck check(table);
  check(settings.objects);
  if (settings.cumulative && !MeansAll(settings.cumulative->value)) check(settings.cumulative);
  std::map<std::string_view, const Settings *> tables;
  for (const Settings &object : settings.tables) {
    check(object.name.where, object.name.value);
    tables.emplace(object.name.value, &object);
  }
  if (settings.statistics) CheckRange(settings.range, settings.statistics->value);
  std::vector<ObjectPlan> plans;
  for (std::size_t i = 0; i < table.columns.size(); ++i) {
    const Column &column = table.columns[i];
    if (settings.objects && !Contains(settings.objects->value, column.name)) continue;
    const auto own = tables.find(column.name);
    if (own == tables.end() && !tables.empty()) continue;
    AppendPlans(settings, own == tables.end() ? Settings{} : *own->second, table, i, &plans);
  }
  if (plans.empty()) {
    throw SettingsError(fmt::format("{}: no object is left (expected columns that have a table [objects.NAME])",
                                    settings.objects->where));
  }
  return plans;
}

std::uint32_t ClearPolls(const Setting<Interval> &clear, std::uint32_t interval) {
  const std::uint64_t polls = clear.value.in_polls_of(std::chrono::seconds(interval));
  if (polls > kLargestCount) {
    throw SettingsError(fmt::format("{}: is {} polls of {} seconds: expected at most {} polls", clear.where, polls,
                                    interval, kLargestCount));
  }
  return static_cast<std::uint32_t>(polls);
}

}  // namespace zorstat
