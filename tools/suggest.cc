#include "suggest.h"

#include <fmt/chrono.h>
#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <new>
#include <optional>
#include <unordered_map>
#include <utility>
#include <variant>
#include <vector>

#include "error.h"
#include "stop.h"
#include "text.h"
#include "zor/learner.h"
#include "zor/percentile.h"
#include "zor/range_counters.h"

namespace zorstat {
namespace {

__extension__ using Wide = __int128;  // holds the values of all types, their sums and differences

constexpr std::uint32_t kDefaultClear = 60;  // polls
constexpr std::size_t kFewMoves = 10;        // by chance a gauge rises so often in a row in one of 1024 files
constexpr std::size_t kLearnt = 100'000;  // samples that are learnt from; a learner's time grows with their square
constexpr Wide kTooWide = 10;  // a range is, when so many times wider than what all but a few samples need
constexpr std::size_t kMemory = 1 << 20;  // bytes that the buckets of a column may take
constexpr double kClose = 5;              // per cent
constexpr double kEnough = 0.75;          // of the estimates are to be so close
constexpr std::uint16_t kBuckets[] = {20, 50, 100, 200, 500, 1000};
constexpr std::size_t kPoints[] = {4, 6};  // of the nine, 50 % and 97.72 %: where errors are told

struct Values {
  Wide low, high;  // both included
  Wide Width() const { return high - low + 1; }
};

Values AllValues(zor_process_data_type_t type) {
  const bool is_narrow = type == ZOR_PROCESS_DATA_TYPE_INT32 || type == ZOR_PROCESS_DATA_TYPE_UINT32;
  const bool is_signed = type == ZOR_PROCESS_DATA_TYPE_INT32 || type == ZOR_PROCESS_DATA_TYPE_INT64;
  const Wide count = Wide{1} << (is_narrow ? 32 : 64);
  return {is_signed ? -count / 2 : 0, (is_signed ? count / 2 : count) - 1};
}

Wide ValueOf(const Values &all, std::uint64_t bits) {
  std::uint32_t narrow;
  std::memcpy(&narrow, &bits, sizeof narrow);
  const Wide value = all.Width() >> 32 == 1 ? narrow : bits;
  return value > all.high ? value - all.Width() : value;
}

struct Reading {
  std::uint64_t bits;
  std::uint32_t poll;
};

struct History {
  Values all;                                   // of the column's type
  std::vector<std::vector<Reading>> instances;  // each in the order of time
};

struct Recording {
  std::vector<History> columns;
  std::size_t instances = 0;
  std::uint32_t polls = 0;
  std::uint32_t interval = 0;  // seconds
  std::int64_t first_time = 0, last_time = 0;
};

Recording ReadAll(Source *source) {
  Recording recording;
  for (const Column &column : source->table().columns) recording.columns.push_back({AllValues(column.type), {}});
  std::unordered_map<std::string, std::size_t> instances;
  Poll poll;
  for (; source->Next(&poll); ++recording.polls) {
    if (recording.polls == 0) {
      recording.first_time = poll.time;
      recording.interval = source->Interval(poll);
    }
    recording.last_time = poll.time;
    for (std::size_t row = 0; row < poll.rows(); ++row) {
      const std::size_t instance = instances.try_emplace(poll.key(row), instances.size()).first->second;
      for (std::size_t i = 0; i < recording.columns.size(); ++i) {
        recording.columns[i].instances.resize(instances.size());
        const Value &value = poll.values(row)[i];
        if (!value) continue;
        const auto bits = std::visit([](auto number) { return static_cast<std::uint64_t>(number); }, *value);
        recording.columns[i].instances[instance].push_back({bits, recording.polls});
      }
    }
  }
  recording.instances = instances.size();
  return recording;
}

template <class Visit>
void ForEachStep(const History &history, Visit visit) {
  for (std::uint32_t instance = 0; instance < history.instances.size(); ++instance) {
    const std::vector<Reading> &readings = history.instances[instance];
    for (std::size_t i = 1; i < readings.size(); ++i) {
      visit(ValueOf(history.all, readings[i - 1].bits), ValueOf(history.all, readings[i].bits), instance,
            readings[i].poll);
    }
  }
}

enum Step { kStill, kRise, kWrap, kForeignWrap, kReset, kFall, kSteps };

// What a step would be if the column were a counter: one that has wrapped has counted about as far as in another
// step, one that was reset has not come far since. Differences go right over a wrap at the end of an unsigned type,
// but not over one at 2^32 in a wider one.
Step StepOf(Wide before, Wide after, Wide largest_rise, const Values &all) {
  if (after >= before) return after == before ? kStill : kRise;
  const auto wraps_behind = [&](Wide last) {
    return before <= last && after + last + 1 - before <= 2 * largest_rise;
  };
  constexpr Wide kLastNarrow = std::numeric_limits<std::uint32_t>::max();
  if (all.low == 0 && wraps_behind(all.high)) return kWrap;
  if (all.high > kLastNarrow && wraps_behind(kLastNarrow)) return kForeignWrap;
  return after <= std::max(2 * largest_rise, before / 10) ? kReset : kFall;
}

std::string Counted(std::size_t count, std::string_view what) {
  return fmt::format("{} {}{}", count, what, count == 1 ? "" : "s");
}

std::string Percent(std::size_t part, std::size_t whole, std::string_view what) {
  return fmt::format("{:.1f} % of {}", 100.0 * static_cast<double>(part) / static_cast<double>(whole),
                     Counted(whole, what));
}

// A sample of one instance.
struct Sample {
  Wide value;
  std::uint32_t instance;
  std::uint32_t poll;
};

// A column as it is to be counted.
struct Object {
  Values all;
  std::size_t instances;
  bool is_counter = false;
  std::string reason{};
  std::vector<Sample> samples{};  // by instance and then time
};

// A counter falls only where it wraps or is reset, which is rare: in a fifth of its moves at most, and reset in one
// poll and one more of each hundred. The false difference of a reset is no sample.
Object ObjectOf(const History &history, std::uint32_t polls) {
  Object object{history.all, history.instances.size()};
  Wide largest_rise = 0;
  bool is_negative = false;
  ForEachStep(history, [&](Wide before, Wide after, std::uint32_t, std::uint32_t) {
    largest_rise = std::max(largest_rise, after - before);
    is_negative = is_negative || before < 0 || after < 0;
  });
  std::size_t count[kSteps] = {};
  std::vector<bool> reset_polls(polls);
  ForEachStep(history, [&](Wide before, Wide after, std::uint32_t instance, std::uint32_t poll) {
    const Step step = StepOf(before, after, largest_rise, history.all);
    ++count[step];
    if (step == kReset) reset_polls[poll] = true;
    if (step == kWrap) before -= history.all.Width();
    if (step <= kWrap) object.samples.push_back({after - before, instance, poll});
  });
  const std::size_t falls = count[kWrap] + count[kForeignWrap] + count[kReset] + count[kFall];
  const std::size_t moves = count[kRise] + falls;
  const auto resets = static_cast<std::size_t>(std::count(reset_polls.begin(), reset_polls.end(), true));
  object.is_counter =
      moves > 0 && !is_negative && count[kFall] == 0 && falls * 5 <= moves && resets <= 1 + polls / 100;
  if (object.is_counter) {
    object.reason = fmt::format("counter: rises in {}", Percent(count[kRise], moves + count[kStill], "step"));
    if (count[kReset] > 0) object.reason += ", " + Counted(count[kReset], "reset");
    if (count[kWrap] > 0) object.reason += ", " + Counted(count[kWrap], "wrap");
    if (count[kForeignWrap] > 0) object.reason += ", wraps at 2^32: give it the type u32";
    if (moves < kFewMoves) object.reason += ", too few to be sure";
    return object;
  }
  object.reason = moves == 0    ? "constant: nothing tells a counter from a gauge"
                  : is_negative ? "gauge: has values below 0"
                                : fmt::format("gauge: falls in {}", Percent(falls, moves, "move"));
  object.samples.clear();
  for (std::uint32_t instance = 0; instance < history.instances.size(); ++instance) {
    for (const Reading &reading : history.instances[instance]) {
      object.samples.push_back({ValueOf(history.all, reading.bits), instance, reading.poll});
    }
  }
  return object;
}

// 2, 5 or 10 times a power of ten of values, from 0 on where that does not double them, with a quarter of headroom
// at each end but 0.
Values RoundRange(Wide min, Wide max, const Values &all) {
  if (min == max) (min > 0 ? min : max) = 0;
  const bool from_zero = min >= 0 && (min <= max / 2 || max < 20);
  const Wide headroom = (max - (from_zero ? 0 : min)) / 4;
  const Wide lowest = min < 0 ? min - headroom : std::max(min - headroom, Wide{0});
  Wide low = 0;
  Wide width = 0;
  for (Wide power = 10; low + width <= max + headroom; power *= 10) {
    for (const int digit : {2, 5, 10}) {
      width = digit * power;
      const Wide step = width / 10;
      if (!from_zero) low = (lowest - (lowest < 0 ? step - 1 : 0)) / step * step;
      if (low + width > max + headroom) break;
    }
  }
  return {std::max(low, all.low), std::min(low + width - 1, all.high)};
}

// The same for the samples that are left without the share that may lie outside, and without those that a baseline
// would cut off. Changes the order of the values.
Values UsualRange(std::vector<Wide> &values, double outside, const Values &all) {
  const std::size_t left_out = static_cast<std::size_t>(static_cast<double>(values.size() - 1) * outside / 200);
  const std::size_t stride = (values.size() - 1) / kLearnt + 1;
  stats_learner_uint64_t learner;
  if (stats_learner_init_uint64(&learner, static_cast<std::uint32_t>((values.size() - 1) / stride + 1)) != 0) {
    stats_learner_uninit_uint64(&learner);
    throw std::bad_alloc();
  }
  const auto from_lowest = [&](Wide value) { return static_cast<std::uint64_t>(value - all.low); };
  for (std::size_t i = 0; i < values.size(); i += stride)
    stats_learner_learn_uint64(&learner, from_lowest(values[i]));
  std::uint64_t min;
  std::uint64_t max;
  std::uint64_t low;
  std::uint64_t high;
  stats_learner_get_value_range_uint64(&learner, &min, &max, &low, &high);
  stats_learner_uninit_uint64(&learner);
  const auto at = [&](std::size_t rank) {
    const auto position = values.begin() + static_cast<std::ptrdiff_t>(rank);
    std::nth_element(values.begin(), position, values.end());
    return *position;
  };
  return RoundRange(std::min(low + all.low, at(left_out)),
                    std::max(high + all.low, at(values.size() - 1 - left_out)), all);
}

// Estimates the percentiles of samples, which ascend, as a record would; false where that shows nine zeros. Values
// of all types are counted as those at the upper end of the widest one: the last value of a type is unlike the
// others.
bool Estimate(const std::vector<Wide> &samples, const Values &range, std::uint16_t buckets, const Values &all,
              double (&estimates)[9]) {
  const Wide base = all.high - std::numeric_limits<std::uint64_t>::max();
  const auto offset = [&](Wide value) { return static_cast<std::uint64_t>(value - base); };
  stats_range_counters_uint64_t counters;
  if (stats_range_counters_init_uint64(&counters, offset(range.low), offset(range.high), buckets) != 0) {
    throw std::bad_alloc();
  }
  for (const Wide sample : samples) stats_range_counters_insert_uint64(&counters, offset(sample));
  stats_fixed_point_uint64_t values[9];
  const std::uint32_t result = stats_percentile_get_values_uint64(
      g_stats_percentile_1000, values, 9, offset(samples.front()), offset(samples.back()),
      static_cast<std::uint32_t>(samples.size()), stats_range_counters_find_Vk_Vk1_uint64, &counters);
  std::free(counters.pu16_counters);
  for (std::size_t i = 0; i < 9 && result == 0; ++i) {
    estimates[i] = static_cast<double>(values[i].int_part + base) + values[i].thousandths / 1000.0;
  }
  return result == 0;
}

double ExactPercentile(const std::vector<Wide> &sorted, std::uint32_t point) {
  const double position = point / 1e5 * static_cast<double>(sorted.size() - 1);
  const auto rank = static_cast<std::size_t>(position);
  const Wide next = sorted[std::min(rank + 1, sorted.size() - 1)];
  return static_cast<double>(sorted[rank]) +
         (position - std::floor(position)) * static_cast<double>(next - sorted[rank]);
}

// A range in buckets, and what it makes of the records.
struct Fit {
  Values range;
  std::uint16_t buckets;
  std::size_t failed = 0;  // records of nine zeros
  std::array<std::vector<double>, 2> errors =
      {};  // per cent, at 50 % and 97.72 %, of each record whose samples differ

  double CloseShare() const {
    double close = 0;
    for (const std::vector<double> &point : errors) {
      for (const double error : point) close += error <= kClose ? 0.5 : 0;
    }
    const std::size_t records = errors[0].size() + failed;
    return records == 0 ? 1 : close / static_cast<double>(records);
  }
};

Fit Try(const Object &object, const Values &range, std::uint16_t buckets, std::uint32_t clear) {
  Fit fit{range, buckets};
  std::vector<Wide> record;
  for (auto sample = object.samples.begin(); sample != object.samples.end();) {
    const auto ends = [&, first = *sample](const Sample &next) {
      return next.instance != first.instance || next.poll / clear != first.poll / clear;
    };
    if (IsStopped()) throw Error("interrupted");
    record.clear();
    double sum = 0;  // without signs
    for (const auto end = std::find_if(sample, object.samples.end(), ends); sample != end; ++sample) {
      record.push_back(sample->value);
      sum += std::abs(static_cast<double>(sample->value));
    }
    std::sort(record.begin(), record.end());
    double estimates[9];
    if (!Estimate(record, range, buckets, object.all, estimates)) {
      ++fit.failed;
    } else if (record.front() != record.back()) {
      for (std::size_t i = 0; i < 2; ++i) {
        const double exact = ExactPercentile(record, g_stats_percentile_1000[kPoints[i]]);
        const double scale = std::max(std::abs(exact), sum / static_cast<double>(record.size()));
        fit.errors[i].push_back(100 * std::abs(estimates[kPoints[i]] - exact) / scale);
      }
    }
  }
  return fit;
}

// The fewest buckets that bring enough estimates close, or else those that bring most. Buckets of the same width
// are counted without rounding.
Fit FitBuckets(const Object &object, const Values &range, std::uint32_t clear) {
  std::optional<Fit> best;
  for (const std::uint16_t buckets : kBuckets) {
    const bool is_even = range.Width() % buckets == 0 || range.high == object.all.high;
    const bool is_small = buckets <= range.Width() && object.instances * 2 * buckets <= kMemory;
    if (best && !(is_even && is_small)) continue;
    Fit fit = Try(object, range, buckets, clear);
    if (!best || fit.CloseShare() > best->CloseShare()) best = std::move(fit);
    if (best->CloseShare() >= kEnough) break;
  }
  return *best;
}

// All samples in the range where that costs little, else the usual ones if no record fails, those of shorter
// intervals too.
Fit FitRange(const Object &object, double outside, std::uint32_t clear, std::string *seen) {
  std::vector<Wide> values;
  values.reserve(object.samples.size());
  for (const Sample &sample : object.samples) values.push_back(sample.value);
  const auto [min, max] = std::ranges::minmax(values);
  *seen = fmt::format("samples {} to {}", min, max);
  const Values whole = RoundRange(min, max, object.all);
  const Values usual = UsualRange(values, outside, object.all);
  if (whole.Width() > kTooWide * usual.Width()) {
    const auto is_outside = [&](Wide value) { return value < usual.low || value > usual.high; };
    const auto left_out = std::count_if(values.begin(), values.end(), is_outside);
    Fit fit = FitBuckets(object, usual, clear);
    const auto holds_for = [&](std::uint32_t polls) {
      return polls == 0 || Try(object, usual, fit.buckets, polls).failed == 0;
    };
    const bool holds = fit.failed == 0 && holds_for(clear / 5) && holds_for(clear / 10);
    const std::string rare = fmt::format("{} of {}", left_out, values.size());
    *seen += holds ? ", " + rare + " outside" : ", wide because records would fail with " + rare + " outside";
    if (holds) return fit;
  }
  return FitBuckets(object, whole, clear);
}

std::string ErrorText(std::vector<double> *errors) {
  const auto middle = errors->begin() + static_cast<std::ptrdiff_t>((errors->size() - 1) / 2);
  std::nth_element(errors->begin(), middle, errors->end());
  return fmt::format("{:.1f} % ({:.1f} %)", *middle, *std::max_element(errors->begin(), errors->end()));
}

std::string Bound(Wide value) {
  const bool is_integer = value <= std::numeric_limits<std::int64_t>::max();  // of TOML
  return is_integer ? fmt::format("{}", value) : fmt::format("\"{}\"", value);
}

// A TOML key. Names hold no control characters.
std::string Key(const std::string &name) {
  const auto is_bare = [](char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_' || c == '-';
  };
  if (std::all_of(name.begin(), name.end(), is_bare)) return name;
  std::string key = "\"";
  for (const char c : name) {
    if (c == '"' || c == '\\') key += '\\';
    key += c;
  }
  return key + '"';
}

// An object's settings, each with a comment.
using Lines = std::vector<std::pair<std::string, std::string>>;

Lines Advise(const History &history, std::uint32_t polls, double outside, std::uint32_t clear) {
  const Object object = ObjectOf(history, polls);
  Lines lines{{fmt::format("cumulative = {}", object.is_counter), object.reason}};
  if (object.samples.empty()) return lines;
  std::string seen;
  Fit fit = FitRange(object, outside, clear, &seen);
  lines.push_back({fmt::format("range      = [{}, {}]", Bound(fit.range.low), Bound(fit.range.high)), seen});
  std::string errors = "exact: no record has different samples";
  if (!fit.errors[0].empty()) {
    errors = fmt::format("off by {} at 50 %, {} at 97.72 %", ErrorText(&fit.errors.front()),
                         ErrorText(&fit.errors.back()));
  }
  if (fit.failed > 0) errors += fmt::format(", {} without percentiles", Counted(fit.failed, "record"));
  lines.push_back({fmt::format("buckets    = {}", fit.buckets), errors});
  return lines;
}

std::string Head(const std::string &input, const Recording &recording, std::uint32_t clear) {
  return fmt::format(
      "# Settings for {}: {} of {} seconds from {:%F %T} to {:%F %T} UTC, {}.\n"
      "# Kinds are guessed from the values, and ranges know no others: read before use.\n"
      "# \"off by 1 % (9 %)\": half of the records are off by at most 1 %, all by at most 9 % of the exact "
      "percentile or,\n"
      "# where that is larger, of the average.\n"
      "clear = {}  # polls\n"
      "statistics = [\"summary\", \"percentile\"]\n",
      input == "-" ? "standard input" : Printable(input), Counted(recording.polls, "poll"), recording.interval,
      fmt::gmtime(recording.first_time), fmt::gmtime(recording.last_time), Counted(recording.instances, "instance"),
      clear);
}

}  // namespace

std::string Suggest(Source *source, const std::string &input, const Settings &settings) {
  Recording recording = ReadAll(source);
  const std::uint32_t clear = settings.clear ? ClearPolls(*settings.clear, recording.interval) : kDefaultClear;
  std::vector<Lines> objects;
  for (History &history : recording.columns) {
    objects.push_back(Advise(history, recording.polls, settings.outside, clear));
    history.instances = {};
  }
  std::string text = Head(input, recording, clear);
  for (std::size_t i = 0; i < objects.size(); ++i) {
    text += fmt::format("\n[objects.{}]\n", Key(source->table().columns[i].name));
    for (const auto &[setting, comment] : objects[i]) text += fmt::format("{:27}  # {}\n", setting, comment);
  }
  return text;
}

}  // namespace zorstat
