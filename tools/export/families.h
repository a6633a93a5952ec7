// What Prometheus is shown of a run: readings as metric families, the same for a scrape and for a file.
#ifndef ZORSTAT_EXPORT_FAMILIES_H_
#define ZORSTAT_EXPORT_FAMILIES_H_

#include <prometheus/metric_family.h>

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "readings.h"

namespace zorstat {

using MetricFamilies = std::vector<prometheus::MetricFamily>;

struct BaselineSeries {
  bool is_learning = false;
  std::optional<zor::process::Number> low, high;  // of the learnt range
  std::uint64_t below = 0, above = 0;             // samples beyond it
  prometheus::ClientMetric::Summary summary = {};
};

// Of one instance, since the start.
struct InstanceSeries {
  std::vector<std::uint64_t> counts = {};          // samples up to each edge and above the one before
  std::uint64_t below = 0, above = 0;              // samples beyond the configured range
  prometheus::ClientMetric::Summary summary = {};  // with the quantiles of the last interval that has ended
  std::uint64_t refused = 0, resets = 0;
  std::optional<BaselineSeries> baseline = std::nullopt;
};

struct ObjectSeries {
  std::string name;
  const ObjectPlan *plan;
  std::vector<zor::process::Number> edges = {};  // ascending; none where there is no histogram
  std::map<std::string, InstanceSeries, std::less<>> series = {};
};

// A clear sets readings back, but the counters of Prometheus must not go back: so the totals of the intervals that
// have ended are kept, of each instance until it expires, 8 bytes for each edge and about 600 beside them.
class FamilyMaker {
 public:
  // The run outlives the maker.
  explicit FamilyMaker(const Run &run) : run_(run) {}

  void EndInterval(const IntervalReadings &interval);
  void EndPoll(std::int64_t time);

  // Learns of new instances, and drops those that are no longer there: they have expired.
  void Follow(const std::vector<ObjectReadings> &in_progress);

  // The totals and the interval in progress, together.
  MetricFamilies Make(const std::vector<ObjectReadings> &in_progress) const;

 private:
  class Builder;

  void Meet(const std::vector<ObjectReadings> &objects);
  void FindEdges(const InstanceReadings &instance, ObjectSeries *object) const;
  static void Add(const InstanceReadings &instance, const ObjectSeries &object, InstanceSeries *series);

  const Run &run_;
  std::vector<ObjectSeries> objects_;
  std::uint64_t polls_ = 0;
  std::int64_t last_poll_ = 0;  // seconds since 1970
  std::optional<std::int64_t> interval_end_;
};

}  // namespace zorstat

#endif  // ZORSTAT_EXPORT_FAMILIES_H_
