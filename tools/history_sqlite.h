// A history in SQLite.
#ifndef ZORSTAT_HISTORY_SQLITE_H_
#define ZORSTAT_HISTORY_SQLITE_H_

#include <string>

#include "database.h"
#include "history.h"

namespace zorstat {

// Throws Error where it is a database of something else, or of a version that is not known here.
void CheckHistory(Database &database);

}  // namespace zorstat

#endif  // ZORSTAT_HISTORY_SQLITE_H_
