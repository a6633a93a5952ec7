// An embedded history: a table of SQLite with a row per interval and instance, as share/zorstat/sql/sqlite.sql has
// it.
#ifndef ZORSTAT_EXPORT_SQLITE_H_
#define ZORSTAT_EXPORT_SQLITE_H_

#include <memory>

#include "export/exporter.h"

namespace zorstat {

// Null without a file for it. Throws SettingsError where the program is built without SQLite.
std::unique_ptr<Exporter> MakeSqlite(const Settings &settings);

}  // namespace zorstat

#endif  // ZORSTAT_EXPORT_SQLITE_H_
