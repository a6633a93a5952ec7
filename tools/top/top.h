// `zorstat top`: the interval in progress, on a terminal.
#ifndef ZORSTAT_TOP_TOP_H_
#define ZORSTAT_TOP_TOP_H_

#include <string>

#include "settings.h"

namespace zorstat {

// Shows the source's counters until a key or a signal ends it. Throws SettingsError where there is no terminal, or
// this program was built without the view.
void Top(const std::string &source, const Settings &given);

}  // namespace zorstat

#endif  // ZORSTAT_TOP_TOP_H_
