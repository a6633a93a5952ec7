// Ways out beside the record lines. Each is one file of this folder that reads readings, and one row of kExporters.
#ifndef ZORSTAT_EXPORT_EXPORTER_H_
#define ZORSTAT_EXPORT_EXPORTER_H_

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "readings.h"
#include "settings.h"

namespace zorstat {

class Exporter {
 public:
  virtual ~Exporter() = default;

  // Once, before the first poll is counted. The run outlives the exporter.
  virtual void Begin(const Run &run) = 0;

  // An interval has ended.
  virtual void EndInterval(const IntervalReadings &) {}

  // A poll has been counted, and the interval that it may have ended was told. `in_progress` reads the statistics
  // when it is called.
  virtual void EndPoll(std::int64_t /* time */, const ReadInProgress & /* in_progress */) {}

  // Once, behind the last interval.
  virtual void Finish() {}
};

using Exporters = std::vector<std::unique_ptr<Exporter>>;

// Those that the settings ask for. A port or file that cannot be had is thrown here, before anything is counted.
// The one of a format other than records appends whole lines to `lines`.
Exporters MakeExporters(const Settings &settings, std::string *lines);

}  // namespace zorstat

#endif  // ZORSTAT_EXPORT_EXPORTER_H_
