#include "suggest.h"

#include <fmt/chrono.h>
#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <memory>
#include <new>
#include <unordered_map>
#include <vector>

#include "error.h"
#include "stop.h"
#include "text.h"
#include "zor/learner.h"
#include "zor/percentile.h"
#include "zor/range_counters.h"

namespace zorstat {
namespace {

__extension__ using Wide = __int128;  // holds sums and differences of values of every type

constexpr size_t kFewMoves = 10;                 // a gauge rises so often in a row in one of 1024 files
constexpr size_t kLearnt = 100000;               // samples that a learner takes; its time grows with their square
constexpr Wide kTooWide = 10;                    // as often as wide as what the samples need but for the rare ones
constexpr size_t kMemory = size_t{1024} * 1024;  // bytes for the buckets of a column
constexpr double kBound = 5;                     // per cent
constexpr uint16_t kBuckets[] = {20, 50, 100, 200, 500, 1000};
constexpr size_t kMedian = 4, kUpper = 6;  // of the nine points: 50 % and 97.72 %

using Points = std::array<double, 9>;

// The library's records and functions of a value type.
template <typename V>
struct Library;
#define ZORSTAT_LIBRARY(type, value, unsigned_value, total)                    \
  template <>                                                                  \
  struct Library<value> {                                                      \
    using Counters = stats_range_counters_##type##_t;                          \
    using Learner = stats_learner_##type##_t;                                  \
    using FixedPoint = stats_fixed_point_##type##_t;                           \
    static constexpr auto kInitCounters = stats_range_counters_init_##type;    \
    static constexpr auto kInsert = stats_range_counters_insert_##type;        \
    static constexpr auto kFind = stats_range_counters_find_Vk_Vk1_##type;     \
    static constexpr auto kPercentiles = stats_percentile_get_values_##type;   \
    static constexpr auto kInitLearner = stats_learner_init_##type;            \
    static constexpr auto kLearn = stats_learner_learn_##type;                 \
    static constexpr auto kLearntRange = stats_learner_get_value_range_##type; \
    static constexpr auto kUninitLearner = stats_learner_uninit_##type;        \
  };
ZOR_PROCESS_FOR_EACH_TYPE(ZORSTAT_LIBRARY)
#undef ZORSTAT_LIBRARY

struct Reading {
  uint64_t bits;
  uint32_t poll;
};
using Series = std::vector<Reading>;  // of one instance, in the order of time

struct Recording {
  std::vector<std::vector<Series>> columns;  // by column and instance
  size_t instances = 0;
  uint32_t polls = 0;
  uint32_t interval = 0;  // seconds
  int64_t first_time = 0, last_time = 0;
};

Recording ReadAll(Source *source) {
  Recording recording;
  recording.columns.resize(source->table().columns.size());
  std::unordered_map<std::string, size_t> instances;
  Poll poll;
  for (; source->Next(&poll); ++recording.polls) {
    if (recording.polls == 0) {
      recording.first_time = poll.time;
      recording.interval = source->Interval(poll);
    }
    recording.last_time = poll.time;
    for (size_t row = 0; row < poll.rows(); ++row) {
      const size_t instance = instances.try_emplace(poll.key(row), instances.size()).first->second;
      for (size_t i = 0; i < recording.columns.size(); ++i) {
        std::vector<Series> &column = recording.columns[i];
        column.resize(instances.size());
        const Value &value = poll.values(row)[i];
        if (value.present) column[instance].push_back({value.bits, recording.polls});
      }
    }
  }
  recording.instances = instances.size();
  return recording;
}

template <typename V>
V ValueOf(const Reading &reading) {
  V value;
  std::memcpy(&value, &reading.bits, sizeof value);
  return value;
}

template <typename V, typename Visit>
void ForEachStep(const std::vector<Series> &column, Visit visit) {
  for (uint32_t instance = 0; instance < column.size(); ++instance) {
    for (size_t i = 1; i < column[instance].size(); ++i) {
      visit(ValueOf<V>(column[instance][i - 1]), ValueOf<V>(column[instance][i]), instance,
            column[instance][i].poll);
    }
  }
}

enum class Step { kStill, kRise, kWrap, kForeignWrap, kReset, kFall };

// What a step would be if the column were a counter: one that was reset has not counted far since, one that wrapped
// has counted about as far as in another step. The library's differences pass over a wrap at the end of the type,
// but not over one at 2^32 in a wider column.
template <typename V>
Step StepOf(Wide before, Wide after, Wide largest_rise) {
  if (after >= before) return after == before ? Step::kStill : Step::kRise;
  const auto wraps_at = [&](Wide end) { return before < end && after + end - before <= 2 * largest_rise; };
  if (wraps_at(Wide{std::numeric_limits<V>::max()} + 1)) return Step::kWrap;
  if (wraps_at(Wide{1} << 32)) return Step::kForeignWrap;
  return after <= std::max(2 * largest_rise, before / 10) ? Step::kReset : Step::kFall;
}

struct Kind {
  bool is_counter = false;
  Wide largest_rise = 0;
  std::string reason;
};

std::string Share(size_t part, size_t whole) {
  return fmt::format("{:.1f} % of {}", 100.0 * static_cast<double>(part) / static_cast<double>(whole), whole);
}

std::string Counted(size_t count, std::string_view what) {
  return fmt::format("{} {}{}", count, what, count == 1 ? "" : "s");
}

// A counter never falls but for wraps and resets, which are rare: at most a fifth of its moves, and in one poll and
// one in a hundred more.
template <typename V>
Kind KindOf(const std::vector<Series> &column, uint32_t polls) {
  Kind kind;
  std::array<size_t, 6> count{};
  std::vector<bool> reset_polls(polls);
  bool is_negative = false;
  ForEachStep<V>(column, [&](Wide before, Wide after, uint32_t, uint32_t) {
    kind.largest_rise = std::max(kind.largest_rise, after - before);
    is_negative = is_negative || before < 0 || after < 0;
  });
  ForEachStep<V>(column, [&](Wide before, Wide after, uint32_t, uint32_t poll) {
    const Step step = StepOf<V>(before, after, kind.largest_rise);
    ++count[static_cast<size_t>(step)];
    if (step == Step::kReset) reset_polls[poll] = true;
  });
  const auto of = [&](Step step) { return count[static_cast<size_t>(step)]; };
  const size_t rises = of(Step::kRise);
  const size_t falls = of(Step::kWrap) + of(Step::kForeignWrap) + of(Step::kReset) + of(Step::kFall);
  const size_t steps = of(Step::kStill) + rises + falls;
  const auto resets = static_cast<size_t>(std::count(reset_polls.begin(), reset_polls.end(), true));
  if (rises + falls == 0) {
    kind.reason = steps == 0 ? "taken as a gauge: no instance has two values" : "taken as a gauge: constant";
  } else if (is_negative) {
    kind.reason = "gauge: has values below 0";
  } else if (of(Step::kFall) > 0 || falls * 5 > rises + falls || resets > 1 + polls / 100) {
    kind.reason = fmt::format("gauge: falls in {} moves", Share(falls, rises + falls));
  } else {
    kind.is_counter = true;
    kind.reason = fmt::format("counter: rises in {} steps{}", Share(rises, steps),
                              rises < kFewMoves ? " (too few to be sure)" : "");
    const auto add = [&](Step step, const char *what, const char *remark) {
      if (of(step) > 0) kind.reason += ", " + Counted(of(step), what) + remark;
    };
    add(Step::kReset, "reset", "");
    add(Step::kWrap, "wrap", "");
    add(Step::kForeignWrap, "wrap", " at 2^32 (give it the type u32)");
  }
  return kind;
}

template <typename V>
struct Sample {
  V value;
  uint32_t instance;
  uint32_t poll;
};

// What is counted of the column, by instance and then time, without the false differences of resets.
template <typename V>
std::vector<Sample<V>> SamplesOf(const std::vector<Series> &column, const Kind &kind) {
  using Unsigned = std::make_unsigned_t<V>;
  std::vector<Sample<V>> samples;
  if (kind.is_counter) {
    ForEachStep<V>(column, [&](V before, V after, uint32_t instance, uint32_t poll) {
      const Step step = StepOf<V>(before, after, kind.largest_rise);
      if (step == Step::kReset || step == Step::kForeignWrap) return;
      const auto difference = static_cast<Unsigned>(static_cast<Unsigned>(after) - static_cast<Unsigned>(before));
      samples.push_back({static_cast<V>(difference), instance, poll});
    });
    return samples;
  }
  for (uint32_t instance = 0; instance < column.size(); ++instance) {
    for (const Reading &reading : column[instance]) {
      samples.push_back({ValueOf<V>(reading), instance, reading.poll});
    }
  }
  return samples;
}

template <typename V>
struct Bounds {
  V low, high;
  Wide Width() const { return Wide{high} - low + 1; }
  bool Holds(V value) const { return value >= low && value <= high; }
};

// 2, 5 or 10 times a power of ten of values, from 0 on where that does not double them, with a quarter of headroom
// at each end but 0.
template <typename V>
Bounds<V> RoundRange(Wide min, Wide max) {
  if (min == max) (min > 0 ? min : max) = 0;
  const bool from_zero = min >= 0 && min <= max / 2;
  const Wide headroom = (max - (from_zero ? 0 : min)) / 4;
  const Wide lowest = std::max(min - headroom, min < 0 ? std::numeric_limits<Wide>::min() : Wide{0});
  Wide low = 0, width = 0;
  for (Wide power = 10; low + width <= max + headroom; power *= 10) {
    for (const int digit : {2, 5, 10}) {
      width = digit * power;
      const Wide step = width / 10;
      if (!from_zero) low = (lowest - (lowest < 0 ? step - 1 : 0)) / step * step;
      if (low + width > max + headroom) break;
    }
  }
  const Wide first = std::numeric_limits<V>::min(), last = std::numeric_limits<V>::max();
  return {static_cast<V>(std::max(low, first)), static_cast<V>(std::min(low + width - 1, last))};
}

// The range that the samples need but for the given share of them and for what a baseline would cut off.
template <typename V>
Bounds<V> UsualRange(std::vector<V> values, double outside) {
  const size_t stride = (values.size() + kLearnt - 1) / kLearnt;
  const size_t left_out =
      std::min(static_cast<size_t>(static_cast<double>(values.size()) * outside / 200), (values.size() - 1) / 2);
  typename Library<V>::Learner learner;
  const bool ready =
      Library<V>::kInitLearner(&learner, static_cast<uint32_t>((values.size() - 1) / stride + 1)) == 0;
  if (ready) {
    for (size_t i = 0; i < values.size(); i += stride) Library<V>::kLearn(&learner, values[i]);
  }
  V min, max, low, high;
  const bool learnt = ready && Library<V>::kLearntRange(&learner, &min, &max, &low, &high) != 0;
  Library<V>::kUninitLearner(&learner);
  if (!learnt) throw std::bad_alloc();
  const auto at = [&](size_t rank) {
    const auto position = values.begin() + static_cast<std::ptrdiff_t>(rank);
    std::nth_element(values.begin(), position, values.end());
    return *position;
  };
  return RoundRange<V>(std::min(low, at(left_out)), std::max(high, at(values.size() - 1 - left_out)));
}

// Visits the samples of each record at this clear interval, sorted.
template <typename V, typename Visit>
void ForEachRecord(const std::vector<Sample<V>> &samples, uint32_t clear, Visit visit) {
  std::vector<V> values;
  for (size_t i = 0; i < samples.size();) {
    const Sample<V> &first = samples[i];
    values.clear();
    while (i < samples.size() && samples[i].instance == first.instance &&
           samples[i].poll / clear == first.poll / clear) {
      values.push_back(samples[i++].value);
    }
    std::sort(values.begin(), values.end());
    visit(values);
  }
}

template <typename V>
Points ExactPoints(const std::vector<V> &sorted) {
  Points points;
  for (size_t i = 0; i < points.size(); ++i) {
    const double position = g_stats_percentile_1000[i] / 1e5 * static_cast<double>(sorted.size() - 1);
    const auto rank = static_cast<size_t>(position);
    const auto value = static_cast<double>(sorted[rank]);
    const auto next = static_cast<double>(sorted[std::min(rank + 1, sorted.size() - 1)]);
    points[i] = value + (position - static_cast<double>(rank)) * (next - value);
  }
  return points;
}

// False where a record would show nine zeros instead.
template <typename V>
bool EstimatePoints(typename Library<V>::Counters *counters, const std::vector<V> &sorted, Points *points) {
  typename Library<V>::FixedPoint values[9];
  if (Library<V>::kPercentiles(g_stats_percentile_1000, values, g_stats_percentile_size, sorted.front(),
                               sorted.back(), static_cast<uint32_t>(sorted.size()), Library<V>::kFind,
                               counters) != 0) {
    return false;
  }
  for (size_t i = 0; i < points->size(); ++i) {
    (*points)[i] = static_cast<double>(values[i].int_part) + values[i].thousandths / 1000.0;
  }
  return true;
}

// How far a point is off, in per cent of its exact value or, where that is larger, of the average.
struct Errors {
  double median = 0, worst = 0;
};

Errors Summarize(std::vector<double> *errors) {
  if (errors->empty()) return {};
  const auto middle = errors->begin() + static_cast<std::ptrdiff_t>(errors->size() / 2);
  std::nth_element(errors->begin(), middle, errors->end());
  return {*middle, *std::max_element(errors->begin(), errors->end())};
}

// A range in buckets, and what it makes of the records.
template <typename V>
struct Fit {
  Bounds<V> range;
  uint16_t buckets;
  size_t varying = 0;  // records whose samples are not all the same
  size_t failed = 0;   // records of nine zeros
  Errors median{}, upper{};
  double Error() const { return std::max(median.median, upper.median); }
};

template <typename V>
Fit<V> Try(const std::vector<Sample<V>> &samples, Bounds<V> range, uint16_t buckets, uint32_t clear) {
  Fit<V> fit{range, buckets};
  typename Library<V>::Counters counters;
  if (Library<V>::kInitCounters(&counters, range.low, range.high, buckets) != 0) throw std::bad_alloc();
  const std::unique_ptr<uint16_t, decltype(&std::free)> owner(counters.pu16_counters, &std::free);
  std::vector<double> median, upper;
  ForEachRecord(samples, clear, [&](const std::vector<V> &sorted) {
    if (sorted.front() == 0 && sorted.back() == 0) return;  // zeros, failed or not
    std::fill_n(counters.pu16_counters, buckets, uint16_t{0});
    counters.u16_no_of_samples = counters.u16_min_exception_counter = counters.u16_max_exception_counter = 0;
    double average = 0;  // of the values without their signs
    for (const V value : sorted) {
      Library<V>::kInsert(&counters, value);
      average += std::abs(static_cast<double>(value)) / static_cast<double>(sorted.size());
    }
    Points points;
    if (!EstimatePoints<V>(&counters, sorted, &points)) {
      ++fit.failed;
    } else if (sorted.front() != sorted.back()) {
      ++fit.varying;
      const Points exact = ExactPoints(sorted);
      const auto error = [&](size_t i) {
        return std::abs(points[i] - exact[i]) / std::max(std::abs(exact[i]), average) * 100;
      };
      median.push_back(error(kMedian));
      upper.push_back(error(kUpper));
    }
  });
  fit.median = Summarize(&median);
  fit.upper = Summarize(&upper);
  return fit;
}

// The fewest buckets with an error below the bound, or else those with the smallest one.
template <typename V>
Fit<V> FitBuckets(const std::vector<Sample<V>> &samples, Bounds<V> range, size_t instances, uint32_t clear) {
  std::optional<Fit<V>> best;
  for (const uint16_t buckets : kBuckets) {
    const bool is_even = range.Width() % buckets == 0 || range.high == std::numeric_limits<V>::max();
    if (best && (!is_even || buckets > range.Width() || 2 * buckets * instances > kMemory)) continue;
    const Fit<V> fit = Try(samples, range, buckets, clear);
    if (!best || fit.Error() < best->Error()) best = fit;
    if (best->Error() <= kBound) break;
  }
  return *best;
}

// Whether no record fails, those of shorter intervals too.
template <typename V>
bool HoldsForAll(const std::vector<Sample<V>> &samples, const Fit<V> &fit, uint32_t clear) {
  for (const uint32_t shorter : {clear / 5, clear / 10}) {
    if (shorter > 0 && Try(samples, fit.range, fit.buckets, shorter).failed > 0) return false;
  }
  return fit.failed == 0;
}

// An object's settings: values and, behind them, comments.
using Lines = std::vector<std::pair<std::string, std::string>>;

template <typename V>
std::string Bound(V value) {
  const bool is_integer = Wide{value} <= std::numeric_limits<int64_t>::max();  // TOML has no larger ones
  return is_integer ? std::to_string(value) : fmt::format("\"{}\"", value);
}

template <typename V>
void AppendFit(const std::vector<Sample<V>> &samples, size_t instances, const SuggestOptions &options,
               uint32_t clear, Lines *lines) {
  std::vector<V> values;
  values.reserve(samples.size());
  for (const Sample<V> &sample : samples) values.push_back(sample.value);
  const auto [min, max] = std::minmax_element(values.begin(), values.end());
  std::string seen = fmt::format("samples {} to {}", *min, *max);
  const Bounds<V> whole = RoundRange<V>(*min, *max);
  const Bounds<V> usual = UsualRange<V>(values, options.outside);
  std::optional<Fit<V>> fit;
  if (whole.Width() > kTooWide * usual.Width()) {
    const auto is_outside = [&](V value) { return value < usual.low || value > usual.high; };
    const auto outside = static_cast<size_t>(std::count_if(values.begin(), values.end(), is_outside));
    fit = FitBuckets(samples, usual, instances, clear);
    if (HoldsForAll(samples, *fit, clear)) {
      seen += fmt::format(", {} outside", Share(outside, values.size()));
    } else {
      fit.reset();
      seen += fmt::format(", few ({}) outside {} to {}", outside, usual.low, usual.high);
    }
  }
  if (!fit) fit = FitBuckets(samples, whole, instances, clear);
  lines->push_back({fmt::format("range      = [{}, {}]", Bound(fit->range.low), Bound(fit->range.high)), seen});
  std::string error = "no record varies";
  if (fit->varying > 0) {
    error = fmt::format("off by {:.1f} % at 50 % (at worst {:.0f} %), {:.1f} % at 97.72 % (at worst {:.0f} %)",
                        fit->median.median, fit->median.worst, fit->upper.median, fit->upper.worst);
  }
  if (fit->failed > 0) error += fmt::format("; {} of nine zeros", Counted(fit->failed, "record"));
  lines->push_back({fmt::format("buckets    = {}", fit->buckets), error});
}

template <typename V>
Lines LinesOf(const std::vector<Series> &column, const Recording &recording, const SuggestOptions &options,
              uint32_t clear) {
  const Kind kind = KindOf<V>(column, recording.polls);
  Lines lines{{fmt::format("cumulative = {}", kind.is_counter), kind.reason}};
  const std::vector<Sample<V>> samples = SamplesOf<V>(column, kind);
  if (!samples.empty()) AppendFit(samples, recording.instances, options, clear, &lines);
  return lines;
}

Lines LinesOf(zor_process_data_type_t type, const std::vector<Series> &column, const Recording &recording,
              const SuggestOptions &options, uint32_t clear) {
  switch (type) {
    case ZOR_PROCESS_DATA_TYPE_INT32:
      return LinesOf<int32_t>(column, recording, options, clear);
    case ZOR_PROCESS_DATA_TYPE_UINT32:
      return LinesOf<uint32_t>(column, recording, options, clear);
    case ZOR_PROCESS_DATA_TYPE_INT64:
      return LinesOf<int64_t>(column, recording, options, clear);
    case ZOR_PROCESS_DATA_TYPE_UINT64:
      return LinesOf<uint64_t>(column, recording, options, clear);
  }
  return {};
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

std::string Head(const std::string &input, const Recording &recording, uint32_t clear) {
  const auto day = [](int64_t time) { return fmt::format("{:%Y-%m-%d %H:%M:%S}", fmt::gmtime(time)); };
  return fmt::format(
      "# Settings that fit {}: {} of {} seconds, {} to {} UTC, {}.\n"
      "# The kinds are guessed from the values, the ranges hold for what was seen: read before use.\n"
      "# \"off by\": half of the records that vary are off by no more, in per cent of the exact percentile or, if\n"
      "# larger, of the average.\n"
      "clear = {}  # polls\n"
      "statistics = [\"summary\", \"percentile\"]\n",
      Printable(input), Counted(recording.polls, "poll"), recording.interval, day(recording.first_time),
      day(recording.last_time), Counted(recording.instances, "instance"), clear);
}

}  // namespace

double ReadOutside(const std::string &text) {
  const auto percent = ParseNumber<double>(text);
  if (!percent || !(*percent >= 0) || *percent > 50) {
    throw SettingsError(Refusal("--outside", Printable(text), "a number from 0 to 50"));
  }
  return *percent;
}

std::string Suggest(Source *source, const std::string &input, const SuggestOptions &options) {
  Recording recording = ReadAll(source);
  const uint32_t clear = ClearPolls(options.clear, recording.interval);
  std::vector<Lines> objects;
  size_t width = 0;
  for (size_t i = 0; i < recording.columns.size(); ++i) {
    if (!WaitUnlessStopped(-1, 0)) throw Error("interrupted");
    objects.push_back(LinesOf(source->table().columns[i].type, recording.columns[i], recording, options, clear));
    recording.columns[i] = {};
    for (const auto &[setting, comment] : objects.back()) width = std::max(width, setting.size());
  }
  std::string text = Head(input, recording, clear);
  for (size_t i = 0; i < objects.size(); ++i) {
    text += fmt::format("\n[objects.{}]\n", Key(source->table().columns[i].name));
    for (const auto &[setting, comment] : objects[i]) {
      text += fmt::format("{:{}}  # {}\n", setting, width, comment);
    }
  }
  return text;
}

}  // namespace zorstat
