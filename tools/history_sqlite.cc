#include "history_sqlite.h"

#include <fmt/format.h>

#include "error.h"

namespace zorstat {
namespace {

constexpr std::int64_t kApplication = 2054124147;  // as in share/zorstat/sql/sqlite.sql
constexpr std::int64_t kVersion = 1;

// A condition that is not set is null.
constexpr const char *kSelect =
    "SELECT * FROM zorstat WHERE host = ifnull(?1, host) AND \"group\" = ifnull(?2, \"group\") "
    "AND object = ifnull(?3, object) AND instance = ifnull(?4, instance) "
    "AND time >= ifnull(?5, time) AND (?6 IS NULL OR time < ?6)";

void ReadRow(const Statement &rows, HistoryRow *row) {
  row->time = static_cast<std::int64_t>(rows.Number(kTime).bits());
  row->host = rows.Text(kHost);
  row->group = rows.Text(kGroup);
  row->object = rows.Text(kObjectName);
  row->instance = rows.Text(kInstance);
  row->samples = rows.Number(kSamples).bits();
  row->has_extremes = !rows.IsNull(kMin);
  row->min = rows.Number(kMin);
  row->max = rows.Number(kMax);
  row->sum = rows.Number(kSum);
  row->below = rows.Number(kBelow).bits();
  row->above = rows.Number(kAbove).bits();
  if (!ReadNumbers(rows.Text(kPercentiles), &row->points)) row->points.clear();
  row->low = rows.IsNull(kLow) ? std::nullopt : std::optional(rows.Number(kLow));
  row->high = rows.IsNull(kHigh) ? std::nullopt : std::optional(rows.Number(kHigh));
  row->outside = rows.Number(kOutside).bits();
  row->resets = rows.Number(kResets).bits();
  row->range = std::nullopt;
  if (!rows.IsNull(kStart) && ReadNumbers(rows.Text(kBuckets), &row->buckets)) {
    row->range = {rows.Number(kStart), rows.Number(kLast), row->buckets.size()};
  }
}

}  // namespace

void CheckHistory(Database &database) {
  if (database.Integer("PRAGMA application_id") != kApplication) {
    throw Error(database.name() + ": is a database of another program");
  }
  const std::int64_t version = database.Integer("PRAGMA user_version");
  if (version != kVersion) {
    throw Error(fmt::format("{}: is a history of version {}: expected {}", database.name(), version, kVersion));
  }
}

void ReadSqlite(const std::string &path, const HistoryFilter &filter, const VisitRow &visit) {
  Database database = Database::OpenToRead(path);
  CheckHistory(database);
  Statement rows(database, kSelect);
  int parameter = 0;
  for (const auto &name :
       {std::cref(filter.host), std::cref(filter.group), std::cref(filter.object), std::cref(filter.instance)}) {
    if (name.get()) rows.Bind(parameter, *name.get());
    ++parameter;
  }
  for (const auto &time : {filter.from, filter.to}) {
    if (time) rows.Bind(parameter, *time);
    ++parameter;
  }
  HistoryRow row;
  while (rows.Step()) {
    ReadRow(rows, &row);
    visit(row);
  }
}

}  // namespace zorstat
