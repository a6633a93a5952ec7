// In the place of what needs SQLite, where that is not to be had.
#include "error.h"
#include "export/sqlite.h"
#include "history.h"

namespace zorstat {
namespace {

[[noreturn]] void Refuse(const std::string &what) {
  throw SettingsError(what + ": this zorstat is built without SQLite (CMake option ZOR_SQLITE)");
}

}  // namespace

std::unique_ptr<Exporter> MakeSqlite(const Settings &settings) {
  if (!settings.sqlite.empty()) Refuse("--sqlite");
  return nullptr;
}

void ReadSqlite(const std::string &path, const HistoryFilter &, const VisitRow &) { Refuse(path); }

}  // namespace zorstat
