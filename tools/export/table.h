// Tables for people and for spreadsheets: a line per object and instance of each interval.
#ifndef ZORSTAT_EXPORT_TABLE_H_
#define ZORSTAT_EXPORT_TABLE_H_

#include <memory>
#include <string>

#include "export/exporter.h"

namespace zorstat {

// Both append to `lines`, which outlives the exporter.
std::unique_ptr<Exporter> MakeTable(std::string *lines);
std::unique_ptr<Exporter> MakeCsv(const Settings &settings, std::string *lines);

}  // namespace zorstat

#endif  // ZORSTAT_EXPORT_TABLE_H_
