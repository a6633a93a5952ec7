#include "export/table.h"

#include <fmt/format.h>

#include <algorithm>
#include <ctime>
#include <optional>
#include <string_view>
#include <utility>
#include <vector>

#include "text.h"
#include "units.h"

namespace zorstat {
namespace {

namespace zp = zor::process;

// What a line tells of an instance; none where it is not kept, or not known.
struct Figures {
  std::optional<std::uint64_t> samples;
  std::optional<zp::Decimal> min, median, p97, max, average;  // p97: at 97.72 %
  std::optional<std::uint64_t> beyond;                        // the range of its settings
  std::optional<std::uint64_t> outside;                       // the learnt one
  std::optional<zp::Decimal> low, high;                       // the learnt range
};

void ReadValues(const Reading &values, const ObjectPlan &plan, Figures *figures) {
  constexpr std::size_t kMedian = 4;
  constexpr std::size_t kP97 = 6;
  figures->samples = SamplesOf(values, plan);
  if (plan.range && values.distribution) figures->beyond = values.distribution->below + values.distribution->above;
  if (values.samples == 0) return;
  figures->min = {values.min};
  figures->max = {values.max};
  figures->average = values.average;
  if (!values.points) return;
  figures->median = (*values.points)[kMedian];
  figures->p97 = (*values.points)[kP97];
}

Figures FiguresOf(const InstanceReadings &instance, const ObjectPlan &plan) {
  Figures figures;
  if (instance.values) ReadValues(*instance.values, plan, &figures);
  if (instance.baseline) figures.outside = instance.outside;
  if (instance.baseline && instance.baseline->distribution) {
    figures.low = {instance.baseline->distribution->start};
    figures.high = {instance.baseline->distribution->last};
  }
  return figures;
}

using Cells = std::vector<std::string>;

constexpr std::size_t kNames = 2;   // columns at the left
constexpr std::size_t kBeyond = 8;  // from here on zeros need not be seen
constexpr const char *kNone = "-";

// Appends the rows, the first of which is the heading, without the columns that tell nothing below it.
void Align(const std::vector<Cells> &rows, std::string *text) {
  std::vector<Cells> shown(rows.size());
  std::vector<bool> is_left;
  for (std::size_t i = 0; i < rows[0].size(); ++i) {
    const auto is_nothing = [&](const Cells &row) { return row[i] == kNone || (i >= kBeyond && row[i] == "0"); };
    if (std::all_of(rows.begin() + 1, rows.end(), is_nothing)) continue;
    for (std::size_t row = 0; row < rows.size(); ++row) shown[row].push_back(rows[row][i]);
    is_left.push_back(i < kNames);
  }
  AppendColumns(shown, is_left, text);
}

std::string LocalTime(std::int64_t seconds) {
  const std::time_t time = seconds;
  std::tm parts{};
  char text[64];
  if (localtime_r(&time, &parts) == nullptr) return std::to_string(seconds);
  return {text, std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S %Z", &parts)};
}

// Aligned for people, in units. Instances that had nothing are left out and counted.
class AlignedTable : public Exporter {
 public:
  explicit AlignedTable(std::string *lines) : lines_(*lines) {}

  void Begin(const Run &run) override { run_ = &run; }

  void EndInterval(const IntervalReadings &interval) override {
    std::string text = fmt::format("{}{}  {}  {} poll{}\n", is_first_ ? "" : "\n", Printable(run_->group),
                                   LocalTime(interval.time), interval.polls, interval.polls == 1 ? "" : "s");
    is_first_ = false;
    std::vector<Cells> rows = {{"object", Printable(run_->table.key), "samples", "min", "median", "97.72 %", "max",
                                "average", "beyond", "learnt range", "beyond it"}};
    std::size_t zeros = 0;
    std::size_t empty = 0;
    for (const ObjectReadings &object : interval.objects) {
      for (const InstanceReadings &instance : object.instances) {
        const Figures figures = FiguresOf(instance, *object.plan);
        if (HasSomething(figures)) {
          rows.push_back(CellsOf(object, instance, figures));
        } else {
          ++(figures.samples.value_or(0) == 0 ? empty : zeros);
        }
      }
    }
    if (rows.size() > 1) Align(rows, &text);
    if (zeros != 0) text += fmt::format("{} with nothing but zeros\n", zeros);
    if (empty != 0) text += fmt::format("{} without samples\n", empty);
    lines_ += text;
  }

 private:
  static bool HasSomething(const Figures &figures) {
    const bool is_zero = figures.max && figures.max->whole == zp::Number() && figures.min->whole == zp::Number();
    return (figures.samples.value_or(0) != 0 && !is_zero) || figures.beyond.value_or(0) != 0 ||
           figures.outside.value_or(0) != 0;
  }

  Cells CellsOf(const ObjectReadings &object, const InstanceReadings &instance, const Figures &figures) const {
    const auto amount = [&](const std::optional<zp::Decimal> &value) {
      return value ? InUnit(*value, object.plan->unit, run_->poll_interval) : kNone;
    };
    const auto count = [](const std::optional<std::uint64_t> &value) {
      return value ? std::to_string(*value) : kNone;
    };
    return {Printable(object.name), Printable(instance.name()),
            count(figures.samples), amount(figures.min),
            amount(figures.median), amount(figures.p97),
            amount(figures.max),    amount(figures.average),
            count(figures.beyond),  figures.low ? amount(figures.low) + " to " + amount(figures.high) : kNone,
            count(figures.outside)};
  }

  std::string &lines_;
  const Run *run_ = nullptr;
  bool is_first_ = true;
};

// All lines, and digits as they are, for programs.
class Csv : public Exporter {
 public:
  Csv(const Settings &settings, std::string *lines) : lines_(*lines), host_(Field(HostName(settings))) {}

  void Begin(const Run &run) override {
    group_ = Field(run.group);
    lines_ += "time,host,group,object,instance,samples,min,median,p97_72,max,average,beyond,low,high,outside\n";
  }

  void EndInterval(const IntervalReadings &interval) override {
    std::string text;
    for (const ObjectReadings &object : interval.objects) {
      const std::string head = fmt::format("{},{},{},{}", interval.time, host_, group_, Field(object.name));
      for (const InstanceReadings &instance : object.instances) {
        text += head;
        text += ',' + Field(instance.name());
        AddFigures(FiguresOf(instance, *object.plan), &text);
      }
    }
    lines_ += text;
  }

 private:
  static std::string Field(std::string_view text) {
    std::string field;
    AppendCsvField(text, &field);
    return field;
  }

  static void AddFigures(const Figures &figures, std::string *text) {
    const auto amount = [&](const std::optional<zp::Decimal> &value) {
      *text += ',';
      if (value) *text += Shortest(*value);
    };
    const auto count = [&](const std::optional<std::uint64_t> &value) {
      *text += ',';
      if (value) *text += std::to_string(*value);
    };
    count(figures.samples);
    amount(figures.min);
    amount(figures.median);
    amount(figures.p97);
    amount(figures.max);
    amount(figures.average);
    count(figures.beyond);
    amount(figures.low);
    amount(figures.high);
    count(figures.outside);
    *text += '\n';
  }

  std::string &lines_;
  std::string host_, group_;  // as fields
};

}  // namespace

std::unique_ptr<Exporter> MakeTable(std::string *lines) { return std::make_unique<AlignedTable>(lines); }

std::unique_ptr<Exporter> MakeCsv(const Settings &settings, std::string *lines) {
  return std::make_unique<Csv>(settings, lines);
}

}  // namespace zorstat
