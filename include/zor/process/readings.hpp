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

/** A whole number of any of the value types, in full. Numbers of one reading compare by value. */
class Number {
 public:
  /** Zero. */
  constexpr Number() = default;
  /** @param value of any integer type */
  template <class V, class = std::enable_if_t<std::is_integral_v<V>>>
  constexpr Number(V value) : bits_(static_cast<std::uint64_t>(value)), is_negative_(value < V{}) {}

  /** Whether it is below zero. */
  constexpr bool is_negative() const { return is_negative_; }
  /** Its bits as a two's complement of 64: the number itself unless it is negative. */
  constexpr std::uint64_t bits() const { return bits_; }
  /** The nearest double; above 2^53 not the same number. */
  constexpr explicit operator double() const {
    return is_negative_ ? -static_cast<double>(0 - bits_) : static_cast<double>(bits_);
  }
  /** @return its digits */
  std::string text() const {
    char digits[20];
    const char *end = std::to_chars(digits, digits + sizeof digits, is_negative_ ? 0 - bits_ : bits_).ptr;
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

  /** The nearest double. */
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
  Number start;                /**< the first value of the range */
  Number last;                 /**< its last one */
  std::uint32_t below = 0;     /**< samples below the range */
  std::uint32_t above = 0;     /**< samples above it */
  std::vector<Bucket> buckets; /**< of the range, ascending, empty ones too */
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
  std::string name;                         /**< the instance's */
  std::uint32_t samples = 0;                /**< the fields up to average mean something when it is not 0 */
  Number min;                               /**< smallest sample */
  Number max;                               /**< largest sample */
  Number sum;                               /**< exact */
  Decimal average;                          /**< sum / samples, cut to thousandths towards zero */
  std::optional<Points> points;             /**< of the samples counted in the distribution; none without one */
  std::optional<Distribution> distribution; /**< none unless one is kept (or, for a baseline, before it has learnt) */
  std::optional<Stage> baseline;            /**< of a baseline, whose learnt range is that of the distribution */
  std::uint64_t refused = 0;                /**< values that were not counted, since the last clear */
  std::uint64_t resets = 0;                 /**< times the counter began anew, since the last clear */
};

namespace detail {

// high - low, for high >= low.
template <class V>
std::uint64_t distance(V low, V high) {
  return static_cast<std::make_unsigned_t<V>>(static_cast<std::make_unsigned_t<V>>(high) -
                                              static_cast<std::make_unsigned_t<V>>(low));
}
template <class V>
V advance(V value, std::uint64_t distance) {
  return static_cast<V>(static_cast<std::uint64_t>(value) + distance);
}

// Samples whose values are known by their ends alone, and how many there are before them.
template <class V>
struct Segment {
  V first, last;
  std::uint64_t before, count;
};

// All samples of a distribution as segments that ascend.
template <class V>
class Segments {
 public:
  Segments(V min, V max) : min_(min), max_(max) {}

  // Values beyond the extremes hold no sample, so a segment is cut to them.
  void add(V first, V last, std::uint64_t count) {
    if (count == 0) return;
    const V low = std::clamp(first, min_, max_);
    list_.push_back({low, std::clamp(last, low, max_), total_, count});
    total_ += count;
  }

  // The value at each point by linear interpolation between the samples on both sides of its position,
  // point * (total - 1). The samples of a segment are taken to stand in the middle of equal parts of it; but the
  // first and the last of all, which stand at the extremes.
  Points points() const {
    Points points{};
    for (std::size_t i = 0; i < points.size(); ++i) {
      const std::uint64_t position = g_stats_percentile_1000[i] * (total_ - 1);
      points[i] = between(position / 100000, static_cast<double>(position % 100000) / 100000);
    }
    std::sort(points.begin(), points.end());
    return points;
  }
  bool empty() const { return total_ == 0; }

 private:
  struct Place {
    V base;
    double offset;
  };

  Place place(std::uint64_t index) const {
    if (index == 0) return {min_, 0};
    if (index >= total_ - 1) return {max_, 0};
    const auto is_before = [](std::uint64_t i, const Segment<V> &segment) { return i < segment.before; };
    const Segment<V> &segment = *std::prev(std::upper_bound(list_.begin(), list_.end(), index, is_before));
    const double head = segment.before == 0 ? 0.5 : 0;  // the half part that the smallest sample does not need
    const double tail = segment.before + segment.count == total_ ? 0.5 : 0;
    const double part = static_cast<double>(index - segment.before) + 0.5 - head;
    const double parts = static_cast<double>(segment.count) - head - tail;
    return {segment.first, static_cast<double>(distance(segment.first, segment.last)) * part / parts};
  }

  // The value between samples index and index + 1, counted from 0, at this share of their distance.
  Decimal between(std::uint64_t index, double share) const {
    const Place low = place(index), high = place(index + 1);
    double offset = low.offset;
    if (share > 0) {
      offset += share * std::max(0.0, static_cast<double>(distance(low.base, high.base)) + high.offset - low.offset);
    }
    const std::uint64_t room = distance(low.base, max_);
    if (!(offset < static_cast<double>(room))) return {max_, 0};
    const auto whole = std::min(static_cast<std::uint64_t>(offset), room);
    const auto thousandths = static_cast<std::uint16_t>((offset - static_cast<double>(whole)) * 1000);
    return {advance(low.base, whole), whole == room ? std::uint16_t{0} : thousandths};
  }

  V min_, max_;
  std::uint64_t total_ = 0;
  std::vector<Segment<V>> list_;
};

// The C records and functions of a value type.
template <class V>
struct Entry;
#define ZOR_PROCESS_READ(type, value, unsigned_value, total)                                                  \
  template <>                                                                                                 \
  struct Entry<value> {                                                                                       \
    using Record = zor_process_object_instance_entry_##type##_t;                                              \
    using RangeCounters = stats_range_counters_##type##_t;                                                    \
    static Bucket bucket(const RangeCounters &record, std::uint16_t index) {                                  \
      value first, last;                                                                                      \
      stats_range_counters_get_bounds_##type(&record, index, &first, &last);                                  \
      return {first, last, record.pu16_counters[index]};                                                      \
    }                                                                                                         \
  };
ZOR_PROCESS_FOR_EACH_TYPE(ZOR_PROCESS_READ)
#undef ZOR_PROCESS_READ

}  // namespace detail
}  // namespace zor::process

#endif  // ZOR_PROCESS_READINGS_HPP_
