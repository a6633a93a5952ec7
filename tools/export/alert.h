// A command that is run when instances depart.
#ifndef ZORSTAT_EXPORT_ALERT_H_
#define ZORSTAT_EXPORT_ALERT_H_

#include <chrono>
#include <memory>

#include "export/exporter.h"

namespace zorstat {

struct AlertTimes {
  std::chrono::milliseconds apart = std::chrono::minutes(1);     // from start to start at least
  std::chrono::milliseconds longest = std::chrono::seconds(30);  // until a command is killed
  std::chrono::milliseconds at_end = std::chrono::seconds(5);    // until the run ends without it
};

// Null without a command.
std::unique_ptr<Exporter> MakeAlert(const Settings &settings, const AlertTimes &times);
inline std::unique_ptr<Exporter> MakeAlert(const Settings &settings) { return MakeAlert(settings, AlertTimes()); }

}  // namespace zorstat

#endif  // ZORSTAT_EXPORT_ALERT_H_
