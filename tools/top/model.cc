#include "top/model.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <optional>
#include <utility>

#include "departure.h"
#include "units.h"

namespace zorstat::top {
namespace {

using zor::process::Decimal;

constexpr std::size_t kKept = 1000;                        // samples of an instance
constexpr std::size_t kBands = 6;                          // intervals that a median is held against
constexpr std::size_t k16 = 3, k50 = 4, k84 = 5, k98 = 6;  // indices of points

using Points = std::array<double, 9>;

template <class T>
void Keep(T value, std::size_t most, std::deque<T> *values) {
  values->push_back(value);
  if (values->size() > most) values->pop_front();
}

// Of numbers in order, by linear interpolation.
double PointOf(const std::vector<double> &sorted, double share) {
  const double position = share * static_cast<double>(sorted.size() - 1);
  const auto below = static_cast<std::size_t>(position);
  const std::size_t above = std::min(below + 1, sorted.size() - 1);
  return sorted[below] + (position - std::floor(position)) * (sorted[above] - sorted[below]);
}

// Without a range all samples share a bucket, in which an estimate is a guess: then the samples themselves, as far
// as they are kept, tell.
std::optional<Points> PointsOf(const Reading &reading, const ObjectPlan &plan, const std::deque<double> &samples) {
  Points points;
  if (plan.range) {
    if (!reading.points) return std::nullopt;
    std::transform(reading.points->begin(), reading.points->end(), points.begin(),
                   [](const Decimal &point) { return static_cast<double>(point); });
    return points;
  }
  std::vector<double> sorted;
  for (auto sample = samples.rbegin(); sample != samples.rend() && sorted.size() < reading.samples; ++sample) {
    if (!std::isnan(*sample)) sorted.push_back(*sample);
  }
  if (sorted.empty()) return std::nullopt;
  std::sort(sorted.begin(), sorted.end());
  for (std::size_t i = 0; i < points.size(); ++i) points[i] = PointOf(sorted, g_stats_percentile_1000[i] / 1e5);
  return points;
}

Decimal DecimalOf(double value) {
  if (value >= 0x1p64) return {std::numeric_limits<std::uint64_t>::max()};
  const double whole = std::floor(value);
  return {static_cast<std::uint64_t>(whole), static_cast<std::uint16_t>((value - whole) * 1000)};
}

Figure ShareOf(std::uint64_t part, std::uint64_t all) {
  if (all == 0) return {};
  const double percent = 100 * static_cast<double>(part) / static_cast<double>(all);
  return {percent, part == 0 || part == all ? fmt::format("{:.0f} %", percent) : fmt::format("{:.1f} %", percent)};
}

}  // namespace

// The columns of the kernel are unsigned, and a key comes once in a poll: the sample is what the sum has grown by.
void Tracker::TakeSample(const Reading &reading, bool is_end, History *history) {
  const bool has_sample = reading.samples > history->counted;
  Keep(has_sample ? static_cast<double>(reading.sum.bits() - history->sum)
                  : std::numeric_limits<double>::quiet_NaN(),
       kKept, &history->samples);
  history->sum = is_end ? 0 : reading.sum.bits();
  history->counted = is_end ? 0 : reading.samples;
}

Row Tracker::MakeRow(const InstanceReadings &instance, const ObjectPlan &plan, bool is_end,
                     History *history) const {
  const Reading &reading = *instance.values;
  TakeSample(reading, is_end, history);
  Row row;
  row.name = reading.name;
  row.samples.assign(history->samples.begin(), history->samples.end());
  const auto set = [&](Field field, double value, const Decimal &decimal) {
    row.figures[field] = {value, InUnit(decimal, plan.unit, run_.poll_interval)};
  };
  if (const double last = history->samples.back(); !std::isnan(last)) set(kLast, last, DecimalOf(last));
  if (reading.samples == 0) return row;
  set(kMin, static_cast<double>(reading.min), {reading.min});
  set(kMax, static_cast<double>(reading.max), {reading.max});
  const auto &learnt = instance.baseline ? instance.baseline->distribution : std::nullopt;
  if (learnt) {
    row.figures[kBeyond] = ShareOf(instance.outside, reading.samples);
  } else if (plan.range && reading.distribution) {
    row.figures[kBeyond] = ShareOf(reading.distribution->below + reading.distribution->above, reading.samples);
  }
  const std::optional<Points> points = PointsOf(reading, plan, history->samples);
  if (!points) return row;
  const double median = (*points)[k50];
  set(kMedian, median, DecimalOf(median));
  set(kHigh, (*points)[k98], DecimalOf((*points)[k98]));
  std::vector<Band> bands(history->bands.begin(), history->bands.end());
  bands.push_back({median, (*points)[k84] - (*points)[k16], static_cast<double>(reading.samples)});
  if (const auto jump = LastJump(bands)) history->jump = jump;
  if (const auto &jump = history->jump) {
    row.figures[kDeparture] = {*jump, fmt::format("{:+.1f}", *jump)};
    row.departed = *jump >= 1 ? 1 : *jump <= -1 ? -1 : 0;
  }
  if (learnt && median < static_cast<double>(learnt->start)) row.departed = -1;
  if (learnt && median > static_cast<double>(learnt->last)) row.departed = 1;
  if (is_end) Keep(bands.back(), kBands, &history->bands);
  return row;
}

std::vector<Object> Tracker::Update(const std::vector<ObjectReadings> &objects, bool is_end) {
  std::vector<Object> made;
  std::map<std::string, Histories> kept;  // of what is still there
  for (const ObjectReadings &object : objects) {
    const std::string name(object.name);
    Histories &before = histories_[name];
    Histories &histories = kept[name];
    made.push_back({name, {}});
    for (const InstanceReadings &instance : object.instances) {
      if (!instance.values) continue;
      History &history = histories[instance.name()];
      if (const auto known = before.find(instance.name()); known != before.end())
        history = std::move(known->second);
      made.back().rows.push_back(MakeRow(instance, *object.plan, is_end, &history));
    }
  }
  histories_ = std::move(kept);
  return made;
}

}  // namespace zorstat::top
