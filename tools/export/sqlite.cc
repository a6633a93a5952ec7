#include "export/sqlite.h"

#include <fmt/format.h>

#include <filesystem>
#include <optional>
#include <string>

#include "database.h"
#include "error.h"
#include "export/arrays.h"
#include "history_sqlite.h"
#include "sqlite_schema.h"

namespace zorstat {
namespace {

// A parameter for each column.
constexpr const char *kInsert = "INSERT OR REPLACE INTO zorstat VALUES(?,?,?,?,?,?,?,?,?,?,?,?,?,?,?,?,?,?,?,?)";

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

// As in JSON Lines.
template <class Values>
std::string ArrayText(const Values &values) {
  std::string text;
  AppendArray(values, &text);
  return text;
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
    for (int column = kSamples; column <= kRefused; ++column) insert_.BindNull(column);
    insert_.Bind(kTime, time);
    insert_.Bind(kHost, host_);
    insert_.Bind(kGroup, group_);
    insert_.Bind(kObjectName, object.name);
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
    if (reading.points) insert_.Bind(kPercentiles, percentiles_ = ArrayText(*reading.points));
    // Without a range the buckets cover all values of the type, which tells nothing.
    if (!plan.range || !reading.distribution) return;
    insert_.Bind(kStart, reading.distribution->start);
    insert_.Bind(kLast, reading.distribution->last);
    insert_.Bind(kBelow, reading.distribution->below);
    insert_.Bind(kAbove, reading.distribution->above);
    insert_.Bind(kBuckets, buckets_ = ArrayText(reading.distribution->buckets));
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
