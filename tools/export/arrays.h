// Arrays of a reading as JSON.
#ifndef ZORSTAT_EXPORT_ARRAYS_H_
#define ZORSTAT_EXPORT_ARRAYS_H_

#include <string>
#include <vector>

#include "zor/process/readings.hpp"

namespace zorstat {

// Appends the digits that the values have.
void AppendArray(const zor::process::Points &points, std::string *text);
// Appends the counts.
void AppendArray(const std::vector<zor::process::Bucket> &buckets, std::string *text);

}  // namespace zorstat

#endif  // ZORSTAT_EXPORT_ARRAYS_H_
