// What a run has measured, as plain data for exporters.
#ifndef ZORSTAT_READINGS_H_
#define ZORSTAT_READINGS_H_

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "settings.h"
#include "table.h"
#include "zor/process.hpp"

namespace zorstat {

using zor::process::Reading;

// What does not change while a run lasts.
struct Run {
  std::string group;            // the data group's name
  std::uint32_t poll_interval;  // seconds
  const Table &table;
  const std::vector<ObjectPlan> &plans;
  bool is_live;  // polls are taken now, not read from a file
};

// One instance. At least one of the two is there.
struct InstanceReadings {
  std::optional<Reading> values;    // of the interval; none where the object is a baseline alone
  std::optional<Reading> baseline;  // since it has learnt
  std::uint64_t outside = 0;        // of the interval's samples, those beyond the learnt range
  std::uint64_t judged = 0;         // all of them since it was learnt

  const std::string &name() const { return values ? values->name : baseline->name; }
};

// In the order in which instances came.
struct ObjectReadings {
  std::string_view name;
  const ObjectPlan *plan;  // of the values, or of the baseline alone
  std::vector<InstanceReadings> instances;
};

struct IntervalReadings {
  std::int64_t time = 0;    // of its last poll, seconds since 1970
  std::uint32_t polls = 0;  // that it took
  std::vector<ObjectReadings> objects;
};

inline bool HasSummary(const ObjectPlan &plan) {
  return (plan.statistics & (ZOR_PROCESS_FLAG_SUMMARY | ZOR_PROCESS_FLAG_PERCENTILE)) != 0;
}

inline std::uint64_t SamplesOutside(const zor::process::Distribution &distribution) {
  return distribution.below + distribution.above;
}
inline std::uint64_t SamplesOf(const zor::process::Distribution &distribution) {
  std::uint64_t samples = SamplesOutside(distribution);
  for (const zor::process::Bucket &bucket : distribution.buckets) samples += bucket.count;
  return samples;
}

// The samples of an interval, also where a distribution alone has counted them.
inline std::uint64_t SamplesOf(const Reading &values, const ObjectPlan &plan) {
  if (HasSummary(plan) || !values.distribution) return values.samples;
  return SamplesOf(*values.distribution);
}

// The nine; or smallest, average and largest; or none.
inline std::vector<double> PointsOf(const Reading &reading) {
  if (reading.points) {
    std::vector<double> points;
    for (const zor::process::Decimal &point : *reading.points) points.push_back(static_cast<double>(point));
    return points;
  }
  if (reading.samples == 0) return {};
  return {static_cast<double>(reading.min), static_cast<double>(reading.average), static_cast<double>(reading.max)};
}

using ReadInProgress = std::function<std::vector<ObjectReadings>()>;

}  // namespace zorstat

#endif  // ZORSTAT_READINGS_H_
