/** @file
 * @brief Readings: the statistics of an instance as plain data, for what comes after records: metrics, tables,
 * databases, pages.
 *
 * Records and readings show the same samples. Number, extremes, sum and average are the same in both; percentiles
 * are not. A record's are those of the C interface, which looks for all nine in one walk and gives nine zeros when
 * one of them fails. A reading's come from its buckets: each point for itself, never outside the extremes, always
 * ascending, and there whenever one sample is. */
#ifndef ZOR_PROCESS_READINGS_HPP_
#define ZOR_PROCESS_READINGS_HPP_

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdint>
#include <limits>
#include <optional>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "zor/entry.h"
#include "zor/percentile.h"

namespace zor::process {

/** A whole number of any of the value types, in full. Takes 12 bytes, as readings consist of little else. */
class [[gnu::packed, gnu::aligned(4)]] Number {
 public:
  /** Zero. */
  constexpr Number() = default;
  /** @param value of any integer type */
  template <class V, class = std::enable_if_t<std::is_integral_v<V>>>
  constexpr Number(V value)
      : bits_(static_cast<std::uint64_t>(value)),
        is_negative_(std::is_signed_v<V> && static_cast<std::int64_t>(value) < 0) {}

  /** @return whether it is below zero */
  constexpr bool is_negative() const { return is_negative_; }
  /** @return its bits as a two's complement of 64: the number itself unless it is negative */
  constexpr std::uint64_t bits() const { return bits_; }
  /** @return the nearest double; above 2^53 not always the same number */
  constexpr explicit operator double() const {
    return is_negative_ ? -static_cast<double>(0 - bits_) : static_cast<double>(bits_);
  }
  /** @return its digits */
  std::string text() const {
    char digits[20];
    char *end = std::to_chars(digits, digits + sizeof digits, is_negative_ ? 0 - bits_ : bits_).ptr;
    return (is_negative_ ? "-" : "") + std::string(digits, end);
  }
  /** @param a a number @param b another @return whether they are the same */
  friend constexpr bool operator==(Number a, Number b) {
    return a.bits_ == b.bits_ && a.is_negative_ == b.is_negative_;
  }
  /** @param a a number @param b another @return whether a is below b */
  friend constexpr bool operator<(Number a, Number b) {
    return a.is_negative_ != b.is_negative_ ? a.is_negative_ : a.bits_ < b.bits_;
  }

 private:
  std::uint64_t bits_ = 0;
  bool is_negative_ = false;
};

/** A number with three decimals, whole + thousandths / 1000: so -10.5 is -11 with 500 thousandths. */
struct Decimal {
  Number whole;                  /**< rounded down */
  std::uint16_t thousandths = 0; /**< 0 to 999 */

  /** @return the nearest double */
  constexpr explicit operator double() const { return static_cast<double>(whole) + thousandths / 1000.0; }
  /** @return as in a record: "-10.500" */
  std::string text() const {
    const bool borrows = whole.is_negative() && thousandths != 0;
    const Number shown = borrows ? Number(static_cast<std::int64_t>(whole.bits()) + 1) : whole;
    const unsigned rest = borrows ? 1000U - thousandths : thousandths;
    const std::string decimals = std::to_string(1000 + rest);
    return (borrows && !shown.is_negative() ? "-" : "") + shown.text() + "." + decimals.substr(1);
  }
  /** @param a a number @param b another @return whether a is below b */
  friend constexpr bool operator<(const Decimal &a, const Decimal &b) {
    return a.whole == b.whole ? a.thousandths < b.thousandths : a.whole < b.whole;
  }
};

/** Samples from first to last, both included. */
struct Bucket {
  Number first;            /**< its smallest value */
  Number last;             /**< its largest value */
  std::uint32_t count = 0; /**< its samples */
};

/** How the samples spread. Those of a baseline are the ones since it has learnt. */
struct Distribution {
  Number start; /**< the first value of the range */
  Number last;  /**< its last one: below start where the range is nothing but the type's largest value, which counts
                     as above */
  std::uint64_t below = 0;     /**< samples below the range */
  std::uint64_t above = 0;     /**< samples above it */
  std::vector<Bucket> buckets; /**< of the range, ascending, without gaps; those that hold no value, where there are
                                    more buckets than values, are left out */
};

/** The stage of a baseline, STATS_ANALYZER_*. */
enum class Stage : std::uint32_t {
  learning = STATS_ANALYZER_LEARNING,   /**< no sample is counted yet */
  analyzing = STATS_ANALYZER_ANALYZING, /**< the range is learnt */
  failed = STATS_ANALYZER_ERROR         /**< what was learnt could not be used; samples are refused */
};

/** Values at the points of g_stats_percentile_1000: 0, 0.13, 2.28, 15.87, 50, 84.13, 97.72, 99.87 and 100 %. */
using Points = std::array<Decimal, 9>;

/** The statistics of an instance, for the samples since the last clear; for a baseline, since it has learnt. */
struct Reading {
  std::string object;           /**< the object */
  std::string name;             /**< of the instance */
  std::uint32_t samples = 0;    /**< of the summary, or of the baseline; without any the next four are 0 */
  Number min;                   /**< smallest sample */
  Number max;                   /**< largest sample */
  Number sum;                   /**< exact */
  Decimal average;              /**< sum / samples, cut to thousandths towards zero */
  std::optional<Points> points; /**< where a sample is in the summary and in the distribution, or in the baseline */
  std::optional<Distribution> distribution; /**< where one is kept; of a baseline, when it has learnt */
  std::optional<Stage> baseline;            /**< of a baseline, whose learnt range is that of the distribution */
  std::uint64_t refused = 0; /**< since the last clear, see Group::refused(); but not those of a row of several
                                values in a group without a baseline, as it is not told which was refused */
  std::uint64_t resets = 0;  /**< of the counter, since the last clear, see Values::counter */
};

namespace detail {

/** high - low, for high >= low. */
template <class V>
std::uint64_t distance(V low, V high) {
  using U = std::make_unsigned_t<V>;
  return static_cast<U>(static_cast<U>(high) - static_cast<U>(low));
}
/** value + distance, in the width of the value. */
template <class V>
V advance(V value, std::uint64_t distance) {
  return static_cast<V>(static_cast<std::uint64_t>(value) + distance);
}

/** Samples of which only the smallest and largest possible value are known. */
template <class V>
struct Segment {
  V first, last;
  std::uint64_t before; /**< samples of the segments below */
  std::uint64_t count;

  bool holds(std::uint64_t sample) const { return sample - before < count; }
};

/** All samples of a distribution, as segments that ascend, and percentiles of them.
 *
 * Sample k of n, counted from 0, is taken to stand at first + (last - first) * (i + 1/2) / count, where i counts it
 * in its segment: in the middle of its part. The samples 0 and n - 1 stand at the extremes. They take half a part
 * of their segments, whose ends the extremes are; it is shared out to the others. A point p lies between the
 * samples on both sides of p * (n - 1), by linear interpolation. */
template <class V>
class Segments {
 public:
  Segments(V min, V max, std::size_t most) : min_(min), max_(max) { list_.reserve(most); }

  /** There are no samples beyond the extremes: the segment is cut to them. */
  void add(V first, V last, std::uint64_t count) {
    if (count == 0) return;
    const V low = std::clamp(first, min_, max_);
    list_.push_back({low, std::clamp(last, low, max_), total_, count});
    total_ += count;
  }

  std::optional<Points> points() const {
    if (total_ == 0) return std::nullopt;
    Points points;
    for (std::size_t i = 0; i < points.size(); ++i) points[i] = at(g_stats_percentile_1000[i]);
    std::sort(points.begin(), points.end());  // of 64 bits, not all values are doubles
    return points;
  }

  /** The value at a point in thousandths of a per cent, of at least one sample. */
  Decimal at(std::uint32_t point) const {
    const std::uint64_t rest = (total_ - 1) % 100000 * point;
    const std::uint64_t sample = (total_ - 1) / 100000 * point + rest / 100000;
    const auto is_below = [&](const Segment<V> &segment) { return segment.before + segment.count <= sample; };
    const auto segment = std::partition_point(list_.begin(), list_.end(), is_below);
    return between(*segment, sample, static_cast<double>(rest % 100000) / 100000);
  }

 private:
  /** A value that need not be whole: of 64 bits, a double alone would lose digits. */
  struct Place {
    V base;
    double offset;
  };

  Place place(const Segment<V> &segment, std::uint64_t sample) const {
    if (sample == 0) return {min_, 0};
    if (sample == total_ - 1) return {max_, 0};
    const double head = segment.before == 0 ? 0.5 : 0;
    const double tail = segment.before + segment.count == total_ ? 0.5 : 0;
    const double part = static_cast<double>(sample - segment.before) + 0.5 - head;
    const double parts = static_cast<double>(segment.count) - head - tail;
    return {segment.first, static_cast<double>(distance(segment.first, segment.last)) * part / parts};
  }

  /** What lies between a sample of this segment and the next one, at this share of their distance, rounded to
   * thousandths. */
  Decimal between(const Segment<V> &segment, std::uint64_t sample, double share) const {
    const auto [base, low] = place(segment, sample);
    double offset = low + 0.0005;
    if (share > 0) {
      const Place next = place(segment.holds(sample + 1) ? segment : *(&segment + 1), sample + 1);
      offset += share * std::max(0.0, static_cast<double>(distance(base, next.base)) + next.offset - low);
    }
    const std::uint64_t room = distance(base, max_);
    if (offset >= static_cast<double>(room)) return {max_, 0};
    const auto whole = static_cast<std::uint64_t>(offset);
    const double rest = offset - static_cast<double>(whole);
    return {advance(base, whole), static_cast<std::uint16_t>(rest * 1000)};
  }

  V min_, max_;
  std::uint64_t total_ = 0;
  std::vector<Segment<V>> list_;
};

/** The first value of a bucket, by the type of its range. */
#define ZOR_PROCESS_START(type, value, unsigned_value, total)                                  \
  inline value get_start(const stats_range_counters_##type##_t &range, std::uint32_t bucket) { \
    return stats_range_counters_get_start_##type(&range, bucket);                              \
  }
ZOR_PROCESS_FOR_EACH_TYPE(ZOR_PROCESS_START)
#undef ZOR_PROCESS_START

template <class Summary>
void read_summary(const Summary &summary, Reading &reading) {
  using Total = decltype(summary.Vtotal);
  if (summary.u32_no_of_samples == 0) return;
  const auto count = static_cast<Total>(summary.u32_no_of_samples);
  reading.samples = summary.u32_no_of_samples;
  reading.min = summary.Vmin;
  reading.max = summary.Vmax;
  reading.sum = summary.Vtotal;
  const Total rest = summary.Vtotal % count * 1000 / count;
  const Total borrowed = rest < Total{0} ? 1 : 0;
  reading.average = {summary.Vtotal / count - borrowed, static_cast<std::uint16_t>(rest + borrowed * 1000)};
}

/** Adds the buckets of a range to both. */
template <class Range, class V>
void read_buckets(const Range &range, Distribution &distribution, Segments<V> &segments) {
  distribution.start = range.Start;
  distribution.last = advance(range.End, UINT64_MAX);
  distribution.buckets.resize(range.Nsc);
  Bucket *bucket = distribution.buckets.data();
  V next = range.Start;
  for (std::uint32_t i = 0; i < range.Nsc; ++i) {
    const V first = std::exchange(next, get_start(range, i + 1));
    if (first == next) continue;  // no value
    const V last = advance(next, UINT64_MAX);
    const std::uint32_t count = range.pu16_counters[i];
    *bucket++ = {first, last, count};
    if (count != 0) segments.add(first, last, count);
  }
  distribution.buckets.resize(static_cast<std::size_t>(bucket - distribution.buckets.data()));
}

/** The distribution of an object: of what is outside the range, only the number is known. */
template <class Range, class V>
Distribution read_distribution(const Range &range, Segments<V> &segments) {
  using Limits = std::numeric_limits<V>;
  Distribution distribution;
  distribution.below = range.u16_min_exception_counter;
  distribution.above = range.u16_max_exception_counter;
  segments.add(Limits::min(), advance(range.Start, UINT64_MAX), distribution.below);
  read_buckets(range, distribution, segments);
  segments.add(range.End, Limits::max(), distribution.above);
  return distribution;
}

/** The distribution of a baseline, which has a few buckets outside the range, too. What found none is taken to lie
 * beyond the outermost of its side. */
template <class V, class Analyzer>
Distribution read_learnt(const Analyzer &analyzer, Segments<V> &segments) {
  using Limits = std::numeric_limits<V>;
  const auto &range = analyzer.range_counters;
  const auto &min_list = analyzer.dynamic_counters.min_list;
  const auto &max_list = analyzer.dynamic_counters.max_list;
  const std::uint64_t width = analyzer.dynamic_counters.Range;
  Distribution distribution;

  const V lowest = min_list.head ? min_list.head->Vstart : range.Start;
  segments.add(Limits::min(), advance(lowest, UINT64_MAX), min_list.exceptions);
  distribution.below = min_list.exceptions;
  for (const auto *node = min_list.head; node; node = node->next) {
    // Counted from the range on, so that the one at the type's smallest value can be narrower.
    const std::uint64_t nearer = (distance(node->Vstart, range.Start) - 1) / width * width;
    segments.add(node->Vstart, advance(range.Start, 0 - nearer - 1), node->Count);
    distribution.below += node->Count;
  }
  read_buckets(range, distribution, segments);
  V beyond = range.End;
  for (const auto *node = max_list.head; node; node = node->next) {
    const V last = advance(node->Vstart, std::min(width - 1, distance(node->Vstart, Limits::max())));
    segments.add(node->Vstart, last, node->Count);
    distribution.above += node->Count;
    beyond = last == Limits::max() ? last : advance(last, 1);
  }
  segments.add(beyond, Limits::max(), max_list.exceptions);
  distribution.above += max_list.exceptions;
  return distribution;
}

/** All that an entry holds but its refused values and resets. */
template <class Entry>
Reading read(const Entry &entry) {
  using V = decltype(entry.last_value);
  Reading reading;
  reading.name = entry.name;
  const auto *analyzer = entry.analyzer;
  const auto *summary = analyzer ? &analyzer->summary : entry.summary;
  const bool has_learnt = analyzer && analyzer->stage == STATS_ANALYZER_ANALYZING;
  if (summary) read_summary(*summary, reading);
  if (analyzer) reading.baseline = static_cast<Stage>(analyzer->stage);
  if (!has_learnt && !entry.range_counters) return reading;
  constexpr std::size_t kOutside = 12;  // the ten buckets that a baseline may make, and what found none
  const std::size_t most = kOutside + (has_learnt ? analyzer->range_counters.Nsc : entry.range_counters->Nsc);
  Segments<V> segments(summary ? summary->Vmin : V{}, summary ? summary->Vmax : V{}, most);
  reading.distribution =
      has_learnt ? read_learnt(*analyzer, segments) : read_distribution(*entry.range_counters, segments);
  if (reading.samples != 0) reading.points = segments.points();
  return reading;
}

}  // namespace detail
}  // namespace zor::process

#endif  // ZOR_PROCESS_READINGS_HPP_
