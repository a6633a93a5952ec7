#include "query.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <ctime>
#include <limits>
#include <map>
#include <nlohmann/json.hpp>
#include <set>
#include <string_view>
#include <tuple>
#include <unordered_set>
#include <utility>

#include "error.h"
#include "file.h"
#include "history.h"
#include "notes.h"
#include "text.h"
#include "when.h"

namespace zorstat {
namespace {

namespace zp = zor::process;
__extension__ using Wide = __int128;

// What the samples are told apart by, beside their group and buckets.
struct By {
  std::string_view name;
  std::string (*key)(const HistoryRow &row);
};
constexpr By kBy[] = {
    {"hour", [](const HistoryRow &row) { return WhenText(row.time, "%Y-%m-%d %H:00"); }},
    {"day", [](const HistoryRow &row) { return WhenText(row.time, "%Y-%m-%d"); }},
    {"instance", [](const HistoryRow &row) { return row.instance; }},
    {"host", [](const HistoryRow &row) { return row.host; }},
};
constexpr By kTogether = {"object", [](const HistoryRow &row) { return row.object; }};

struct Point {
  std::string percent;  // as it was given
  std::uint32_t thousandths;
};

struct Question {
  HistoryFilter filter;
  By by = kTogether;
  std::vector<Point> points;
  std::string format;
};

// Samples that are added: those of rows with the same buckets.
struct Key {
  std::string by, group;
  std::optional<BucketRange> range;

  friend bool operator<(const Key &a, const Key &b) {
    const auto parts = [](const Key &key) {
      const auto &[start, last, count] = key.range.value_or(BucketRange{});
      return std::tuple(std::string_view(key.by), std::string_view(key.group), key.range.has_value(), start, last,
                        count);
    };
    return parts(a) < parts(b);
  }
};

struct Sum {
  std::uint64_t intervals = 0;
  std::uint64_t samples = 0;
  bool has_extremes = true;
  Number min, max;
  Wide sum = 0;
  std::uint64_t below = 0, above = 0;
  std::vector<std::uint64_t> buckets;
};

using Sums = std::map<Key, Sum>;

Wide WideOf(Number number) {
  return number.is_negative() ? Wide{static_cast<std::int64_t>(number.bits())} : Wide{number.bits()};
}
Number NumberOf(Wide value) {
  return value < 0 ? Number(static_cast<std::int64_t>(value)) : Number(static_cast<std::uint64_t>(value));
}

// What no run can have written.
void CheckRow(const HistoryRow &row) {
  const bool is_turned = row.has_extremes && row.max < row.min;
  const Wide width = row.range ? WideOf(row.range->last) - WideOf(row.range->start) + 1 : 0;
  if (!is_turned && width >= 0) return;
  throw Error(
      fmt::format("interval of {} at {}: its numbers contradict each other", Printable(row.instance), row.time));
}

void Add(const HistoryRow &row, Sum *sum) {
  CheckRow(row);
  ++sum->intervals;
  if (row.samples == 0) return;
  const bool is_first = sum->samples == 0;
  sum->samples += row.samples;
  sum->has_extremes = sum->has_extremes && row.has_extremes;
  sum->min = is_first ? row.min : std::min(sum->min, row.min);
  sum->max = is_first ? row.max : std::max(sum->max, row.max);
  sum->sum += WideOf(row.sum);
  if (!row.range) return;
  sum->below += row.below;
  sum->above += row.above;
  sum->buckets.resize(row.buckets.size());
  for (std::size_t i = 0; i < row.buckets.size(); ++i) sum->buckets[i] += row.buckets[i];
}

// As the library estimates them for one interval.
template <class V>
std::vector<zp::Decimal> Estimate(const BucketRange &range, const Sum &sum, const std::vector<Point> &points) {
  const Wide start = WideOf(range.start);
  const Wide width = WideOf(range.last) + 1 - start;
  const auto count = static_cast<Wide>(range.count);
  const auto edge = [&](std::size_t i) { return start + (static_cast<Wide>(i) * width + count - 1) / count; };
  zp::detail::Segments<V> segments(static_cast<V>(sum.min.bits()), static_cast<V>(sum.max.bits()), range.count + 2);
  segments.add(std::numeric_limits<V>::min(), static_cast<V>(start - 1), sum.below);
  for (std::size_t i = 0; i < range.count; ++i) {
    segments.add(static_cast<V>(edge(i)), static_cast<V>(edge(i + 1) - 1), sum.buckets[i]);
  }
  segments.add(static_cast<V>(start + width), std::numeric_limits<V>::max(), sum.above);
  std::vector<zp::Decimal> values;
  values.reserve(points.size());
  for (const Point &point : points) values.push_back(segments.at(point.thousandths));
  return values;
}

// None where nothing is known of how the samples spread.
std::vector<zp::Decimal> Percentiles(const Key &key, const Sum &sum, const std::vector<Point> &points) {
  std::uint64_t samples = sum.below + sum.above;
  for (const std::uint64_t count : sum.buckets) samples += count;
  const bool is_signed = sum.min.is_negative() || (key.range && key.range->start.is_negative());
  const bool fits = !is_signed || sum.max < Number(std::uint64_t{1} << 63);
  if (!key.range || !sum.has_extremes || samples == 0 || !fits) return {};
  return is_signed ? Estimate<std::int64_t>(*key.range, sum, points)
                   : Estimate<std::uint64_t>(*key.range, sum, points);
}

// Cut to thousandths towards zero, as in records.
zp::Decimal Average(const Sum &sum) {
  const Wide thousandths = sum.sum * 1000 / static_cast<Wide>(sum.samples);
  const Wide rest = (thousandths % 1000 + 1000) % 1000;
  return {NumberOf((thousandths - rest) / 1000), static_cast<std::uint16_t>(rest)};
}

std::string RangeText(const std::optional<BucketRange> &range) {
  return range ? fmt::format("{}:{} in {}", range->start.text(), range->last.text(), range->count) : "none";
}

// Tells the rows apart that have come before: another file may hold them, too, and a run may have been repeated.
class Repeats {
 public:
  bool IsNew(const HistoryRow &row) {
    const bool is_new =
        known_.insert(fmt::format("{}\n{}\n{}\n{}\n{}", row.time, row.host, row.group, row.object, row.instance))
            .second;
    if (!is_new) ++count_;
    return is_new;
  }
  void Note() const {
    if (count_ != 0) Complain(fmt::format("intervals that come twice: {}, counted once", count_));
  }

 private:
  std::unordered_set<std::string> known_;
  std::uint64_t count_ = 0;
};

Sums Collect(const std::vector<std::string> &files, const Question &question) {
  Sums sums;
  Repeats repeats;
  for (const std::string &file : files) {
    ReadHistory(file, question.filter, [&](const HistoryRow &row) {
      if (repeats.IsNew(row)) Add(row, &sums[{question.by.key(row), row.group, row.range}]);
    });
  }
  repeats.Note();
  std::erase_if(sums, [](const auto &sum) { return sum.second.samples == 0; });
  return sums;
}

// Names the first condition that nothing meets together with those before it, and what does.
[[noreturn]] void RefuseNothing(const QueryOptions &options, const HistoryFilter &filter) {
  struct Condition {
    const char *option;
    std::optional<std::string> HistoryFilter::*member;
    std::string HistoryRow::*field;
  };
  constexpr Condition kConditions[] = {
      {"--object", &HistoryFilter::object, &HistoryRow::object},
      {"--group", &HistoryFilter::group, &HistoryRow::group},
      {"--host", &HistoryFilter::host, &HistoryRow::host},
      {"--instance", &HistoryFilter::instance, &HistoryRow::instance},
  };
  constexpr std::size_t kShown = 20;
  const bool is_read_again = std::find(options.files.begin(), options.files.end(), "-") == options.files.end();
  HistoryFilter wider;
  for (const Condition &condition : kConditions) {
    const auto &[option, member, field] = condition;
    std::set<std::string> known;
    if (!(filter.*member) || !is_read_again) continue;
    for (const std::string &file : options.files) {
      ReadHistory(file, wider, [&](const HistoryRow &row) { known.insert(row.*condition.field); });
    }
    wider.*member = filter.*member;
    if (known.empty() || known.contains(*(filter.*member))) continue;
    std::vector<std::string> names;
    names.reserve(known.size());
    for (const std::string &name : known) names.push_back(names.size() == kShown ? "..." : Printable(name));
    names.resize(std::min(names.size(), kShown + 1));
    throw SettingsError(Refusal(option, Printable(*(filter.*member)), Alternatives(names)));
  }
  throw Error(fmt::format("{}: no samples of {}{}", Joined(options.files, ", "), Printable(*options.object),
                          filter.from || filter.to ? " in this time" : ""));
}

// What the reader should know of sums that are not one.
void NoteRanges(const Sums &sums) {
  std::set<std::string> ranges;
  for (const auto &[key, sum] : sums) {
    if (key.range) ranges.insert(RangeText(key.range));
  }
  if (ranges.size() > 1) {
    const std::vector<std::string> texts(ranges.begin(), ranges.end());
    Complain("different ranges and buckets cannot be added, and stand apart: " + Joined(texts, "; "));
  }
  const auto has_none = [](const auto &sum) { return !sum.first.range; };
  if (std::any_of(sums.begin(), sums.end(), has_none)) {
    Complain("intervals without a range (--range) have no buckets to add, and so no percentiles");
  }
}

// The answer as lines of fields. What is not known is empty.
struct Answer {
  std::vector<std::string> names;
  std::vector<bool> is_text;
  std::vector<std::vector<std::string>> lines;

  void Drop(std::size_t column) {
    const auto at = static_cast<std::ptrdiff_t>(column);
    names.erase(names.begin() + at);
    is_text.erase(is_text.begin() + at);
    for (auto &line : lines) line.erase(line.begin() + at);
  }
};

constexpr std::size_t kGroupColumn = 0, kRangeColumns = 2, kRangeColumnCount = 3;

Answer AnswerOf(const Sums &sums, const Question &question) {
  Answer answer;
  answer.names = {
      "group", std::string(question.by.name), "start", "last", "buckets", "intervals", "samples", "min", "average",
      "max"};
  answer.is_text = {true, true};
  for (const Point &point : question.points) answer.names.push_back(point.percent);
  answer.is_text.resize(answer.names.size());
  for (const auto &[key, sum] : sums) {
    std::vector<std::string> line = {key.group, key.by};
    for (const Number &bound : key.range ? std::vector{key.range->start, key.range->last} : std::vector<Number>{}) {
      line.push_back(bound.text());
    }
    if (key.range) line.push_back(std::to_string(key.range->count));
    line.resize(kRangeColumns + kRangeColumnCount);
    line.push_back(std::to_string(sum.intervals));
    line.push_back(std::to_string(sum.samples));
    line.push_back(sum.has_extremes ? sum.min.text() : "");
    line.push_back(sum.has_extremes ? Average(sum).text() : "");
    line.push_back(sum.has_extremes ? sum.max.text() : "");
    for (const zp::Decimal &value : Percentiles(key, sum, question.points)) line.push_back(value.text());
    line.resize(answer.names.size());
    answer.lines.push_back(std::move(line));
  }
  return answer;
}

// For people: columns that are the same in all lines are left out, if they tell only what is apart.
std::string TableText(Answer answer, std::size_t points) {
  const auto is_same = [&](std::size_t column) {
    return std::all_of(answer.lines.begin(), answer.lines.end(),
                       [&](const auto &line) { return line[column] == answer.lines[0][column]; });
  };
  for (std::size_t i = answer.names.size() - points; i < answer.names.size(); ++i) answer.names[i] += " %";
  bool is_one_range = true;
  for (std::size_t i = 0; i < kRangeColumnCount; ++i) is_one_range = is_one_range && is_same(kRangeColumns + i);
  for (std::size_t i = 0; is_one_range && i < kRangeColumnCount; ++i) answer.Drop(kRangeColumns);
  if (is_same(kGroupColumn)) answer.Drop(kGroupColumn);
  answer.lines.insert(answer.lines.begin(), answer.names);
  for (auto &line : answer.lines) {
    for (std::string &field : line) field = field.empty() ? "-" : Printable(field);
  }
  std::string text;
  AppendColumns(answer.lines, answer.is_text, &text);
  return text;
}

std::string CsvText(const Answer &answer) {
  std::string text;
  const auto add = [&](const std::vector<std::string> &line) {
    for (const std::string &field : line) {
      AppendCsvField(field, &text);
      text += ',';
    }
    text.back() = '\n';
  };
  add(answer.names);
  for (const auto &line : answer.lines) add(line);
  return text;
}

std::string JsonText(const Answer &answer) {
  std::string text;
  for (const auto &line : answer.lines) {
    char separator = '{';
    for (std::size_t i = 0; i < line.size(); ++i) {
      const std::string value = answer.is_text[i] ? nlohmann::json(line[i]).dump()
                                : line[i].empty() ? "null"
                                                  : line[i];
      text += fmt::format("{}\"{}\":{}", separator, answer.names[i], value);
      separator = ',';
    }
    text += "}\n";
  }
  return text;
}

std::optional<std::int64_t> ReadTime(const char *option, const std::optional<std::string> &text, std::int64_t now) {
  if (!text) return std::nullopt;
  const auto time = ParseWhen(*text, now);
  if (!time) throw SettingsError(Refusal(option, Printable(*text), kWhen));
  return time;
}

std::vector<Point> ReadPoints(const std::string &text) {
  std::vector<Point> points;
  for (const std::string &percent : Split(text, ',')) {
    const auto value = ParseNumber<double>(percent);
    const double thousandths = value && *value >= 0 && *value <= 100 ? std::round(*value * 1000) : -1;
    if (thousandths < 0 || std::abs(*value * 1000 - thousandths) > 1e-6) {
      throw SettingsError(Refusal("--points", Printable(percent), "per cent from 0 to 100, up to three decimals"));
    }
    points.push_back({percent, static_cast<std::uint32_t>(thousandths)});
  }
  return points;
}

template <std::size_t size>
void CheckName(const char *option, const std::string &name, const std::array<std::string, size> &known) {
  if (std::find(known.begin(), known.end(), name) != known.end()) return;
  throw SettingsError(Refusal(option, Printable(name), Alternatives({known.begin(), known.end()})));
}

Question ReadQuestion(const QueryOptions &options) {
  Question question;
  question.filter = ReadFilter(options);
  if (options.by) {
    CheckName<std::size(kBy)>("--by", *options.by, {"hour", "day", "instance", "host"});
    question.by =
        *std::find_if(std::begin(kBy), std::end(kBy), [&](const By &by) { return by.name == *options.by; });
  }
  CheckName<3>("--format", options.format, {"table", "csv", "jsonl"});
  question.points = ReadPoints(options.points);
  question.format = options.format;
  return question;
}

}  // namespace

HistoryFilter ReadFilter(const QueryOptions &options) {
  const std::int64_t now = std::time(nullptr);
  return {options.host,
          options.group,
          options.object,
          options.instance,
          ReadTime("--from", options.from, now),
          ReadTime("--to", options.to, now)};
}

void Query(const QueryOptions &options) {
  const Question question = ReadQuestion(options);
  const Sums sums = Collect(options.files, question);
  if (sums.empty()) RefuseNothing(options, question.filter);
  const Answer answer = AnswerOf(sums, question);
  Output out("-");
  out.Write(question.format == "csv"     ? CsvText(answer)
            : question.format == "jsonl" ? JsonText(answer)
                                         : TableText(answer, question.points.size()));
  out.Close();
  NoteRanges(sums);
}

}  // namespace zorstat
