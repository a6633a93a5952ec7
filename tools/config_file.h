// Settings files in TOML.
#ifndef ZORSTAT_CONFIG_FILE_H_
#define ZORSTAT_CONFIG_FILE_H_

#include <string>

#include "settings.h"

namespace zorstat {

// Throws SettingsError with the file's line for anything that it does not understand.
Settings ReadConfigFile(const std::string &path);

}  // namespace zorstat

#endif  // ZORSTAT_CONFIG_FILE_H_
