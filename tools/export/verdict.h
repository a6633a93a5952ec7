// Whether a replay had too many samples outside the ranges.
#ifndef ZORSTAT_EXPORT_VERDICT_H_
#define ZORSTAT_EXPORT_VERDICT_H_

#include <memory>

#include "export/exporter.h"

namespace zorstat {

// Throws Verdict at the end. Null unless it is asked for.
std::unique_ptr<Exporter> MakeVerdict(const Settings &settings);

}  // namespace zorstat

#endif  // ZORSTAT_EXPORT_VERDICT_H_
