// Settings that fit a poll file: which columns are counters, and the range and the buckets of each.
#ifndef ZORSTAT_SUGGEST_H_
#define ZORSTAT_SUGGEST_H_

#include <string>

#include "settings.h"
#include "source.h"

namespace zorstat {

// Reads all polls of the source and returns a settings file. Keeps 16 to 32 bytes for each value of the file and,
// one column at a time, 48 to 80 for each of its samples. `input` names the file in the head.
std::string Suggest(Source *source, const std::string &input, const Settings &settings);

}  // namespace zorstat

#endif  // ZORSTAT_SUGGEST_H_
