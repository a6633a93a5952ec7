#include "export/arrays.h"

#include <fmt/format.h>

#include "units.h"

namespace zorstat {

void AppendArray(const zor::process::Points &points, std::string *text) {
  *text += '[';
  for (const zor::process::Decimal &point : points) (*text += Shortest(point)) += ',';
  text->back() = ']';
}

void AppendArray(const std::vector<zor::process::Bucket> &buckets, std::string *text) {
  *text += '[';
  for (const zor::process::Bucket &bucket : buckets) {
    const fmt::format_int digits(bucket.count);
    text->append(digits.data(), digits.size()) += ',';
  }
  if (!buckets.empty()) text->pop_back();
  *text += ']';
}

}  // namespace zorstat
