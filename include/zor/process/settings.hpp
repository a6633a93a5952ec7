/** @file
 * @brief Settings of groups and objects, and the names, intervals and ranges that they are made of. */
#ifndef ZOR_PROCESS_SETTINGS_HPP_
#define ZOR_PROCESS_SETTINGS_HPP_

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

#include "zor/types.h"

namespace zor::process {

/** A name, from any kind of string; the library copies it. One that is_name() refuses is refused where it is used.
 */
struct Name {
  Name(std::nullptr_t) = delete; /**< no name */
  /** @param name a C string, or null */
  Name(const char *name) : text(name ? name : "") {}
  /** @param name any string */
  Name(const std::string &name) : text(name) {}
  /** @param name need not end with NUL, and is copied where it has to */
  Name(std::string_view name) : text(name), is_terminated(false) {}
  /** @return the name */
  operator std::string_view() const { return text; }

  std::string_view text;     /**< the name */
  bool is_terminated = true; /**< a NUL is behind it */
};

/** Whether the library and its records can hold a name: one that is not empty and has no control characters and no
 * commas, as NUL would cut it and the others break record lines. @param name any text @return whether it is one */
inline bool is_name(std::string_view name) {
  // Rows test every key: few characters are as low as the comma.
  const auto is_bad = [](unsigned char c) { return c <= ',' ? c < 0x20 || c == ',' : c == 0x7f; };
  return !name.empty() && std::none_of(name.begin(), name.end(), is_bad);
}

/** Buckets and intervals count in 16 bits. */
inline constexpr std::uint64_t kLargestCount = 65535;
/** Whether there can be so many buckets, or polls in an interval.
 * @param count their number
 * @return whether it is 1 to kLargestCount */
constexpr bool is_count(std::uint64_t count) { return count >= 1 && count <= kLargestCount; }

/** The analyses of an object, as a set. A baseline goes with no other. */
enum class Statistics : std::uint16_t {
  none = 0,                                     /**< nothing */
  summary = ZOR_PROCESS_FLAG_SUMMARY,           /**< minimum, maximum, sum, average */
  distribution = ZOR_PROCESS_FLAG_DISTRIBUTION, /**< counts per bucket of a range */
  percentile = ZOR_PROCESS_FLAG_PERCENTILE,     /**< nine percentiles, summary and distribution */
  baseline = ZOR_PROCESS_FLAG_BASELINE          /**< learnt range and its percentiles */
};
/** @param a a set @param b another @return what is in one of them */
constexpr Statistics operator|(Statistics a, Statistics b) {
  return static_cast<Statistics>(static_cast<unsigned>(a) | static_cast<unsigned>(b));
}
/** @param a a set @param b another @return what is in both */
constexpr Statistics operator&(Statistics a, Statistics b) {
  return static_cast<Statistics>(static_cast<unsigned>(a) & static_cast<unsigned>(b));
}
/** @param a grows by b @param b a set @return a */
constexpr Statistics &operator|=(Statistics &a, Statistics b) { return a = a | b; }
/** @param a a set @param b another @return whether they have one in common */
constexpr bool overlap(Statistics a, Statistics b) { return (a & b) != Statistics::none; }

static_assert((Statistics::summary | Statistics::distribution | Statistics::percentile | Statistics::baseline) ==
                  static_cast<Statistics>(ZOR_PROCESS_FLAGS_ALL),
              "each analysis of the library has its name here");

/** How values become samples: as they come, or as the differences of a counter. */
enum class Values : std::uint32_t {
  sampled = 0,    /**< each value is a sample */
  cumulative = 1, /**< of a counter: the first value primes it, differences are computed with wrap-around, so that a
                       counter that begins anew gives one huge sample */
  counter = 2     /**< the one to use for real counters: an unsigned one that goes down was reset, and its sample is
                       its value, what it has counted since; but in a column of 32 bits it has wrapped if the
                       difference then lies in the object's range or, without one, is below 2^31. Signed columns are
                       taken as cumulative. Group::resets() counts the resets */
};

/** What has become of counters while nobody polled them. */
enum class Counters {
  go_on,      /**< nothing: what they have counted since is the next sample */
  begin_anew, /**< they were reset, as by a reboot: the next sample is their value, see Values::counter */
};

/** A number of polls, given as such or as a time, which is rounded up to whole polls. */
class Interval {
 public:
  /** @param count the number of polls @return the interval */
  static constexpr Interval polls(std::uint64_t count) { return {count, std::chrono::seconds(0)}; }
  /** @param time begun polls count as whole ones */
  constexpr Interval(std::chrono::seconds time) : Interval(0, time) {}
  /** @param poll the poll interval @return the number of polls */
  constexpr std::uint64_t in_polls_of(std::chrono::seconds poll) const {
    if (time_.count() <= 0) return polls_;
    return static_cast<std::uint64_t>(time_ / poll) + (time_ % poll != std::chrono::seconds(0) ? 1 : 0);
  }

 private:
  constexpr Interval(std::uint64_t polls, std::chrono::seconds time) : polls_(polls), time_(time) {}
  std::uint64_t polls_;
  std::chrono::seconds time_;
};

/** The values from low to high, both included, in any integer types. */
struct Range {
  /** @param low the lowest value @param high the highest; a range that is inverted is refused where it is used */
  template <class Low, class High>
  constexpr Range(Low low, High high) : bounds{static_cast<std::uint64_t>(low), static_cast<std::uint64_t>(high)} {
    static_assert(std::is_integral_v<Low> && std::is_integral_v<High>, "bounds are whole numbers");
    const bool low_is_negative = std::is_signed_v<Low> && static_cast<std::int64_t>(low) < 0;
    const bool high_is_negative = std::is_signed_v<High> && static_cast<std::int64_t>(high) < 0;
    if (low_is_negative && (high_is_negative ? bounds[0] <= bounds[1] : bounds[1] <= INT64_MAX)) {
      type = ZOR_PROCESS_DATA_TYPE_INT64;
    } else if (!low_is_negative && !high_is_negative && bounds[0] <= bounds[1]) {
      type = ZOR_PROCESS_DATA_TYPE_UINT64;
    }
  }
  /** @param column a data type @return whether columns of it hold both bounds */
  constexpr bool fits(std::uint32_t column) const {
    const bool is_signed = column == ZOR_PROCESS_DATA_TYPE_INT32 || column == ZOR_PROCESS_DATA_TYPE_INT64;
    const std::uint64_t highest = UINT64_MAX >> ((column < ZOR_PROCESS_DATA_TYPE_INT64 ? 32 : 0) + is_signed);
    if (type == ZOR_PROCESS_DATA_TYPE_UINT64) return bounds[1] <= highest;
    // Such a column reaches down to -highest - 1, the complement of highest; bounds below zero are large ones here.
    return is_signed && ~bounds[0] <= highest && (bounds[1] <= highest || bounds[1] >= bounds[0]);
  }
  std::uint64_t bounds[2]; /**< low, high */
  std::uint32_t type = 0;  /**< the range_type of an object; 0: low is above high, or they share no type */
};

/** Settings of a group. */
struct GroupSettings {
  std::chrono::seconds poll_interval{10}; /**< 10 at least */
  std::optional<Interval> clear =
      std::nullopt; /**< 1 to 65535 polls; else 65535, when a bucket can be full, and never without buckets */
  Statistics statistics = Statistics::none; /**< of every object */
  std::uint32_t buckets = 100;              /**< of objects that set none: 1 to 65535 */
  bool keep_readings = false; /**< those of each interval wait for Group::take_readings(), as records do */
  std::uint32_t expire =
      0; /**< after so many intervals without a value an instance is removed, with what a
            baseline   has learnt; 0: never. What is not cleared does not expire: an interval
            ends   with   a clear that succeeds, the one at the end of a poll or Group::clear() */
};

/** Settings of an object. */
struct ObjectSettings {
  Statistics statistics = Statistics::none;  /**< one at least, with those of the group */
  Values values = Values::sampled;           /**< what a value is */
  std::optional<Range> range = std::nullopt; /**< of a distribution; without one, all values of the column's type */
  std::optional<std::uint32_t> buckets = std::nullopt; /**< 1 to 65535; else those of the group */
  std::optional<Interval> learning =
      std::nullopt;                        /**< of a baseline, 1 to 65535 polls; else those of clear, or 2000 */
  std::vector<std::string> instances = {}; /**< the ones to be processed; without any, all */
  std::uint32_t id = 0;                    /**< 0: one is given */
};

namespace detail {

constexpr const char *kBadName = "a name is empty, or holds a comma or a control character";
constexpr const char *kBadBuckets = "the number of buckets is not 1 to 65535";
constexpr const char *kMixed = "a baseline goes with no other statistic, of the object or of its group";

/** What an interval clears; percentiles need all of it cleared together. */
constexpr auto kCleared = static_cast<Statistics>(ZOR_PROCESS_FLAGS_CLEARED);

constexpr bool is_mixed(Statistics s) { return overlap(s, Statistics::baseline) && s != Statistics::baseline; }

/** With what comes along: percentiles bring summary and distribution, and say so in headers and walks, too. */
constexpr Statistics in_full(Statistics s) { return overlap(s, Statistics::percentile) ? s | kCleared : s; }

}  // namespace detail
}  // namespace zor::process

#endif /* ZOR_PROCESS_SETTINGS_HPP_ */
