// Settings files in TOML.
#ifndef ZORSTAT_CONFIG_FILE_H_
#define ZORSTAT_CONFIG_FILE_H_

#include <string>

#include "settings.h"

namespace zorstat {

// Throws SettingsError with the file's line for anything that it does not understand. What is said of a live run
// alone counts only in one.
Settings ReadConfigFile(const std::string &path, bool is_live = false);

}  // namespace zorstat

#endif  // ZORSTAT_CONFIG_FILE_H_
