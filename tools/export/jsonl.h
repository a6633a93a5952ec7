// JSON Lines: an object per interval and instance, as share/zorstat/interval.schema.json has it.
#ifndef ZORSTAT_EXPORT_JSONL_H_
#define ZORSTAT_EXPORT_JSONL_H_

#include <memory>
#include <string>

#include "export/exporter.h"

namespace zorstat {

// Appends to `lines`, which outlives the exporter.
std::unique_ptr<Exporter> MakeJsonLines(const Settings &settings, std::string *lines);

}  // namespace zorstat

#endif  // ZORSTAT_EXPORT_JSONL_H_
