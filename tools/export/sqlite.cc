#include "export/sqlite.h"

#include <fmt/format.h>

#include <filesystem>
#include <optional>
#include <string>

#include "database.h"
#include "error.h"
#include "history_sqlite.h"
#include "sqlite_schema.h"
#include "units.h"

namespace zorstat {
namespace {

namespace zp = zor::process;

// Parameters by the order of columns.
constexpr const char *kInsert = "INSERT OR REPLACE INTO zorstat VALUES(?,?,?,?,?,?,?,?,?,?,?,?,?,?,?,?,?,?,?,?)";
enum Parameter {
  kTime = 1,
  kHost,
  kGroup,
  kObject,
  kInstance,
  kSamples,
  kMin,
  kMax,
  kSum,
  kPercentiles,
  kStart,
  kLast,
  kBelow,
  kAbove,
  kBuckets,
  kLow,
  kHigh,
  kOutside,
  kResets,
  kRefused
};

// A database that holds nothing is made a history; any other has to be one.
Database OpenHistory(const std::string &path) {
  Database database = Database::OpenToWrite(path);
  const bool is_new = database.Integer("SELECT count(*) FROM sqlite_schema") == 0;
  if (!is_new) CheckHistory(database);
  if (!database.is_open_to_write()) throw Error(path + ": cannot write: it is read-only");
  database.UseLog();
  // The end of the program at any moment leaves whole transactions; that of the machine may take the last ones.
  database.Run("PRAGMA synchronous = NORMAL; BEGIN IMMEDIATE");
  database.Run(is_new ? kSqliteSchema : "");
  database.Run("COMMIT");
  return database;
}

// The arrays are text as in JSON Lines.
std::string PercentileArray(const zp::Points &points) {
  std::string text = "[";
  for (const zp::Decimal &point : points) text += Shortest(point) + ",";
  text.back() = ']';
  return text;
}

std::string CountArray(const std::vector<zp::Bucket> &buckets) {
  std::string text = "[";
  for (const zp::Bucket &bucket : buckets) {
    const fmt::format_int digits(bucket.count);
    text.append(digits.data(), digits.size()) += ',';
  }
  if (!buckets.empty()) text.pop_back();
  return text += ']';
}

class Sqlite : public Exporter {
 public:
  explicit Sqlite(const Settings &settings)
      : host_(HostName(settings)), database_(OpenHistory(settings.sqlite)), insert_(database_, kInsert) {}

  void Begin(const Run &run) override { group_ = run.group; }

  // All rows or none.
  void EndInterval(const IntervalReadings &interval) override {
    database_.Run("BEGIN IMMEDIATE");
    try {
      for (const ObjectReadings &object : interval.objects) {
        for (const InstanceReadings &instance : object.instances) Insert(interval.time, object, instance);
      }
      database_.Run("COMMIT");
    } catch (...) {
      database_.RollBack();
      throw;
    }
  }

 private:
  void Insert(std::int64_t time, const ObjectReadings &object, const InstanceReadings &instance) {
    for (int parameter = kSamples; parameter <= kRefused; ++parameter) insert_.BindNull(parameter);
    insert_.Bind(kTime, time);
    insert_.Bind(kHost, host_);
    insert_.Bind(kGroup, group_);
    insert_.Bind(kObject, object.name);
    insert_.Bind(kInstance, instance.name());
    if (instance.values) BindValues(*instance.values, *object.plan);
    if (instance.baseline) BindBaseline(instance);
    const Reading &reading = instance.values ? *instance.values : *instance.baseline;
    insert_.Bind(kResets, reading.resets);
    insert_.Bind(kRefused, reading.refused);
    insert_.Finish();
  }

  void BindValues(const Reading &reading, const ObjectPlan &plan) {
    const std::uint64_t samples = SamplesOf(reading, plan);
    insert_.Bind(kSamples, samples);
    if (samples == 0) return;
    if (HasSummary(plan)) {
      insert_.Bind(kMin, reading.min);
      insert_.Bind(kMax, reading.max);
      insert_.Bind(kSum, reading.sum);
    }
    if (reading.points) insert_.Bind(kPercentiles, percentiles_ = PercentileArray(*reading.points));
    // Without a range the buckets cover all values of the type, which tells nothing.
    if (!plan.range || !reading.distribution) return;
    insert_.Bind(kStart, reading.distribution->start);
    insert_.Bind(kLast, reading.distribution->last);
    insert_.Bind(kBelow, reading.distribution->below);
    insert_.Bind(kAbove, reading.distribution->above);
    insert_.Bind(kBuckets, buckets_ = CountArray(reading.distribution->buckets));
  }

  void BindBaseline(const InstanceReadings &instance) {
    if (instance.baseline->distribution) {
      insert_.Bind(kLow, instance.baseline->distribution->start);
      insert_.Bind(kHigh, instance.baseline->distribution->last);
    }
    insert_.Bind(kOutside, instance.outside);
  }

  std::string host_, group_;
  Database database_;
  Statement insert_;
  std::string percentiles_, buckets_;  // of the row, as long as it is bound
};

}  // namespace

std::unique_ptr<Exporter> MakeSqlite(const Settings &settings) {
  if (settings.sqlite.empty()) return nullptr;
  std::error_code none;
  if (std::filesystem::equivalent(settings.sqlite, settings.output, none)) {
    throw SettingsError(Refusal("--sqlite", settings.sqlite, "another file than the output"));
  }
  return std::make_unique<Sqlite>(settings);
}

}  // namespace zorstat
