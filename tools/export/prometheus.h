// Out to Prometheus: metrics over HTTP, or in a file for the textfile collector of node_exporter.
#ifndef ZORSTAT_EXPORT_PROMETHEUS_H_
#define ZORSTAT_EXPORT_PROMETHEUS_H_

#include <memory>

#include "export/exporter.h"

namespace zorstat {

// Null where the settings ask for neither.
std::unique_ptr<Exporter> MakePrometheus(const Settings &settings);

}  // namespace zorstat

#endif  // ZORSTAT_EXPORT_PROMETHEUS_H_
