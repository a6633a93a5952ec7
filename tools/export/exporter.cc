#include "export/exporter.h"

#include <initializer_list>
#include <utility>

#include "export/alert.h"
#include "export/jsonl.h"
#include "export/page.h"
#include "export/prometheus.h"
#include "export/sqlite.h"
#include "export/table.h"
#include "export/verdict.h"

namespace zorstat {
namespace {

// Makes its exporter, or null where the settings do not ask for it.
using MakeExporter = std::unique_ptr<Exporter> (*)(const Settings &settings);

constexpr std::initializer_list<MakeExporter> kExporters = {MakePrometheus, MakeSqlite, MakePage, MakeAlert,
                                                            MakeVerdict};  // behind what can fail

// Writes the lines of the format; null where the collector does.
std::unique_ptr<Exporter> MakeFormat(const Settings &settings, std::string *lines) {
  switch (FormatOf(settings)) {
    case Format::kJsonLines:
      return MakeJsonLines(settings, lines);
    case Format::kTable:
      return MakeTable(lines);
    case Format::kCsv:
      return MakeCsv(settings, lines);
    case Format::kRecords:
      break;
  }
  return nullptr;
}

}  // namespace

Exporters MakeExporters(const Settings &settings, std::string *lines) {
  Exporters exporters;
  if (auto format = MakeFormat(settings, lines)) exporters.push_back(std::move(format));
  for (const MakeExporter make : kExporters) {
    std::unique_ptr<Exporter> exporter = make(settings);
    if (exporter) exporters.push_back(std::move(exporter));
  }
  return exporters;
}

}  // namespace zorstat
