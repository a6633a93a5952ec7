// A run of the program: from a source of polls to records, a report, or a poll file.
#ifndef ZORSTAT_SESSION_H_
#define ZORSTAT_SESSION_H_

#include <string>

#include "settings.h"
#include "source.h"

namespace zorstat {

// Which time records carry.
enum class RecordTime { kOfPoll, kNow };

// Counts the source's polls, and writes records to `output` ("-": standard output) and the report, if there is to
// be one, to standard output. When the source fails, what it delivered before is still written, and then the error
// thrown.
void Count(Source *source, const Settings &settings, const std::string &default_dg, const std::string &output,
           RecordTime record_time);

// Writes the source's polls to a poll file.
void Record(Source *source, const std::string &output, bool append);

}  // namespace zorstat

#endif  // ZORSTAT_SESSION_H_
