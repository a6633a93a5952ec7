// A history in SQLite.
#ifndef ZORSTAT_HISTORY_SQLITE_H_
#define ZORSTAT_HISTORY_SQLITE_H_

#include <string>

#include "database.h"
#include "history.h"

namespace zorstat {

// Columns in their order in share/zorstat/sql/sqlite.sql.
enum HistoryColumn {
  kTime,
  kHost,
  kGroup,
  kObjectName,
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

// Throws Error where it is a database of something else, or of a version that is not known here.
void CheckHistory(Database &database);

}  // namespace zorstat

#endif  // ZORSTAT_HISTORY_SQLITE_H_
