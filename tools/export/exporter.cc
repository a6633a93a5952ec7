#include "export/exporter.h"

#include <initializer_list>
#include <utility>

#include "export/prometheus.h"

namespace zorstat {
namespace {

// Makes its exporter, or null where the settings do not ask for it.
using MakeExporter = std::unique_ptr<Exporter> (*)(const Settings &settings);

constexpr std::initializer_list<MakeExporter> kExporters = {MakePrometheus};

}  // namespace

Exporters MakeExporters(const Settings &settings) {
  Exporters exporters;
  for (const MakeExporter make : kExporters) {
    std::unique_ptr<Exporter> exporter = make(settings);
    if (exporter) exporters.push_back(std::move(exporter));
  }
  return exporters;
}

}  // namespace zorstat
