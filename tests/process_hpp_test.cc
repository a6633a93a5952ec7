// The C++ header: what it refuses, and that what it takes comes out as by C calls. zorstat stands on it, so that
// its tests are those of groups of one object.
#include <malloc.h>

#include <functional>
#include <numeric>
#include <random>

#include "engine_fixture.h"
#include "zor/process.hpp"

namespace {

namespace zp = zor::process;
using zp::Interval, zp::Range, zp::Statistics;
constexpr auto kSummary = Statistics::summary, kBaseline = Statistics::baseline,
               kPercentile = Statistics::percentile;

template <class T>
zp::Status StatusOf(const zp::Result<T> &result) {
  return result ? zp::Status(zp::Done{}) : result.error();
}

std::string Records(zp::Group &group) {
  std::string text = group.take_records();
  std::erase(text, '\r');
  return WithoutTime(text);
}

// A step, the code it gives, and a piece of its message.
struct Step {
  std::function<zp::Status()> take;
  std::uint32_t code;
  std::string piece;
};

void Expect(const std::vector<Step> &steps) {
  for (const auto &[take, code, piece] : steps) {
    const zp::Status status = take();
    EXPECT_EQ(status ? 0 : status.error().code, code) << piece;
    EXPECT_NE((status ? "" : status.error().message).find(piece), std::string::npos)
        << piece << " in " << (status ? "" : status.error().message);
  }
}

TEST(ProcessHppTest, RefusesSettingsThatWouldFailLateOrNever) {
  zp::Engine engine;
  zp::Group group = *engine.group("g", {.clear = Interval::polls(3)});
  const auto make = [&](const zp::Name &name, const zp::GroupSettings &settings = {}) {
    return [&engine, name, settings] { return StatusOf(engine.group(name, settings)); };
  };
  const auto add = [&](const zp::ObjectSettings &settings, const zp::Name &name = "o") {
    return [&group, name, settings] { return group.object(name, settings); };
  };
  const auto start = [&](const zp::Name &key, const std::vector<std::string> &columns) {
    zp::Template table(key);
    for (const std::string &column : columns) table.column<std::uint32_t>(column);
    return [&group, table] { return group.start(table); };
  };
  const char *null = nullptr;
  const std::string cut("a\0b", 3);
  Expect({{add({.statistics = kSummary, .id = 77}, "first"), 0, ""},
          {make(null), 1, "group '': a name is empty"},
          {make(cut), 1, "or holds a comma or a control character"},
          {make("a:b"), 1, "a colon in it"},
          {make("g"), 1, "group 'g': exists already"},
          {make("h", {.poll_interval = std::chrono::seconds(9)}), 14, "is below 10 seconds"},
          {make("h", {.clear = std::chrono::seconds(655351)}), 13, "the clear interval is not 1 to 65535 polls"},
          {make("h", {.buckets = 65536}), 1, "the number of buckets is not 1 to 65535"},
          {make("h", {.statistics = kBaseline | kSummary}), 1, "a baseline goes with no other"},
          {add({.statistics = kBaseline | kSummary}), 1, "object 'o': a baseline goes with no other"},
          {add({}), 1, "no statistics are selected"},
          {add({.statistics = kSummary, .buckets = 0}), 1, "the number of buckets"},
          {add({.statistics = kSummary, .instances = {"a", "b,1"}}), 1, "holds a comma"},
          {add({.statistics = kBaseline, .range = Range(0, 9)}), 15, "a baseline learns its own range"},
          {add({.statistics = kSummary, .learning = Interval::polls(9)}), 13, "only a baseline learns"},
          {add({.statistics = kBaseline, .learning = Interval::polls(65536)}), 13, "the learning interval is not"},
          {add({.statistics = kSummary, .id = 77}), 1, "the identifier is another object's"},
          {add({.statistics = kPercentile, .range = Range(9, 3)}), 15, "the range is inverted"},
          {add({.statistics = kPercentile, .range = Range(-1, UINT64_MAX)}), 15, "the range is inverted"},
          {add({}, "first"), 1, "exists already"},
          {[&] { return StatusOf(group.object_id("fir")); }, 5, "object 'fir'"},
          {[&] { return StatusOf(group.poll()); }, 9, "a poll before the template"},
          {[&] { return StatusOf(group.report({.percentile = 101})); }, 1, "a percentile above 100"},
          {add({.statistics = kPercentile, .range = Range(0, 5'000'000'000)}), 0, ""},  // no part of it was left
          {start("", {"first", "o"}), 8, "template: a name is empty"},
          {start("key", {"first", "o", "o"}), 8, "two columns have the same name"},
          {start("key", {"o"}), 8, "object 'first': the template has no column of its name"},
          {start("first", {"o"}), 7, "object 'first': its column is the key"},
          {start("key", {"first", "o"}), 15, "object 'o': the range does not fit the type of its column"}});
}

TEST(ProcessHppTest, RefusesRowsThatWouldGoWrongAndTellsWhatFailed) {
  zp::Engine engine;
  zp::Group group = *engine.group("g", {.statistics = kSummary});
  for (const char *object : {"rx", "tx"}) ASSERT_TRUE(group.object(object));
  zp::Template table("key"), wider("key");
  const auto rx = table.column<std::uint64_t>("rx"), other = wider.column<std::uint64_t>("rx");
  const auto tx = table.column("tx", ZOR_PROCESS_DATA_TYPE_INT32);
  wider.column<std::int32_t>("tx");
  ASSERT_TRUE(group.start(table));
  wider.column<std::int32_t>("none");
  zp::Poll poll = *group.poll();
  const auto row = [&](const zp::Name &key, const std::vector<zp::Cell> &cells) {
    return [&poll, key, cells] { return poll.row(key, cells); };
  };
  Expect(
      {{[&] { return group.object("late"); }, 1, "objects come before the template"},
       {[&] { return group.start(wider); }, 8, "the template has changed: restart() takes it"},
       {[&] { return StatusOf(group.poll()); }, 1, "a poll before the last one has ended"},
       {row("a,b", {rx(1U)}), 1, "group 'g', row 'a,b': a name is empty, or holds a comma"},
       {row("a", {other(1U)}), 1, "a cell is of another template's column"},
       {row("a", {rx(1U), rx(2U)}), 1, "two values are of one column"},
       {row("a", {tx(zp::Value(1U))}), 1, "a value is not of its column's type"},
       {row("a", {rx(UINT64_MAX), tx(zp::Value(-1))}), 0, ""},
       {row("a", {rx(1U)}), 0, ""},  // refused, and no other value with it
       {row("a", {rx(1U), tx(zp::Value(-2))}), 11, "a sum is full, and the columns after it are not counted"},
       {row(std::string_view("bc").substr(0, 1), {rx(7U), tx(std::nullopt)}), 0, ""},
       {[&] { return poll.end(); }, 1, "row 'a,b'"},
       {[&] { return poll.end(); }, 1, "the poll has ended"},
       {row("a", {rx(1U)}), 1, "the poll has ended"},
       {[&] { return group.poll()->row("c", {other(5U)}); }, 1, "another template's"},  // its handle ends the poll
       {[&] { return group.poll()->end(); }, 1, "row 'c': a cell is of another template's column"}});
  EXPECT_EQ(group.refused(), 2u);
  const zp::Walk walk = group.walk();
  auto place = walk.begin();
  Expect({{[&] { return group.restart(wider); }, 0, ""},
          {[&] { return StatusOf(*++place); }, 1, "the walk began before a restart"}});
  EXPECT_EQ(++place, walk.end());
  EXPECT_EQ(Records(group),
            "g-summary, rx, a, 1, 18446744073709551615, 18446744073709551615, 18446744073709551615.000\n"
            "g-summary, rx, b, 1, 7, 7, 7.000\ng-summary, tx, a, 1, -1, -1, -1.000\n");
}

// Outliers and records of a baseline cost its neighbours nothing; it is reported in the library's words.
TEST(ProcessHppTest, BaselinesDoNotStopTheirGroup) {
  zp::Engine engine;
  zp::Group group = *engine.group("g", {.clear = Interval::polls(10)});
  ASSERT_TRUE(group.object("b", {.statistics = kBaseline, .buckets = 16}));
  ASSERT_TRUE(group.object("s", {.statistics = kSummary}));
  zp::Template table("key");
  const auto b = table.column<std::int64_t>("b"), s = table.column<std::int64_t>("s");
  ASSERT_TRUE(group.start(table));
  for (std::int32_t i = 0; i < 101; ++i) {
    EXPECT_EQ(group.still_learning(), i > 0 && i < 10 ? 2u : 0u);
    zp::Poll poll = *group.poll();
    for (const char *key : {"x", "y"}) ASSERT_TRUE(poll.row(key, {b(i < 10 ? 10 + i : -i * 1000), s(i)}));
    ASSERT_TRUE(poll.end());
    if (i % 40 == 5) {
      const std::string report = *group.report({.object = "b", .instance = "y"});
      ::testing::internal::CaptureStdout();
      for (const auto &instance : group.walk(ZOR_PROCESS_OUTPUT_CONSOLE)) EXPECT_TRUE(instance);
      const std::string printed = ::testing::internal::GetCapturedStdout();
      EXPECT_NE(printed.find(report.substr(report.find("Object: b, Instance: y\n"))), std::string::npos) << report;
    }
    const std::string records = group.take_records();
    ASSERT_TRUE(group.snapshot());  // at the end of an interval the record has just been made
    EXPECT_EQ(records.find("g-baseline") != std::string::npos, i > 10 && i % 10 == 9) << i;
    EXPECT_EQ(group.take_records().find("g-baseline") != std::string::npos, i >= 10 && i % 10 != 9) << i;
  }
  EXPECT_EQ(group.refused(), 2u * (91 - 10));  // ten outside buckets were there
  EXPECT_EQ(group.readings()[1].refused, 1u);  // since the last clear
  EXPECT_TRUE(group.has_instance("y") && !group.has_instance("z"));
}

__extension__ using Wide = __int128;

Wide WideOf(zp::Number n) { return n.is_negative() ? -Wide{0 - n.bits()} : Wide{n.bits()}; }
Wide ThousandthsOf(const zp::Decimal &d) { return WideOf(d.whole) * 1000 + d.thousandths; }

// A reading of a range or a baseline against the samples themselves.
void ExpectReads(const zp::Reading &reading, const std::vector<Wide> &samples) {
  ASSERT_EQ(reading.samples, samples.size());
  ASSERT_EQ(reading.points.has_value(), !samples.empty());
  const zp::Distribution &distribution = reading.distribution.value();
  const auto counted = [&](Wide first, Wide last) -> Wide {
    return std::count_if(samples.begin(), samples.end(), [&](Wide s) { return s >= first && s <= last; });
  };
  Wide next = WideOf(distribution.start);
  EXPECT_EQ(Wide{distribution.below}, counted(INT64_MIN, next - 1));
  for (const zp::Bucket &bucket : distribution.buckets) {
    const Wide first = std::exchange(next, WideOf(bucket.last) + 1);
    ASSERT_TRUE(WideOf(bucket.first) == first && first < next && bucket.count == counted(first, next - 1));
  }
  EXPECT_TRUE(WideOf(distribution.last) == next - 1 && distribution.above == counted(next, UINT64_MAX));
  if (samples.empty()) return;
  const auto [min, max] = std::minmax_element(samples.begin(), samples.end());
  const Wide sum = std::accumulate(samples.begin(), samples.end(), Wide{0});
  EXPECT_TRUE(WideOf(reading.min) == *min && WideOf(reading.max) == *max && WideOf(reading.sum) == sum);
  EXPECT_EQ(ThousandthsOf(reading.average), sum * 1000 / static_cast<Wide>(samples.size()));
  const zp::Points &points = *reading.points;
  EXPECT_TRUE(std::is_sorted(points.begin(), points.end()));
  EXPECT_TRUE(ThousandthsOf(points[0]) == *min * 1000 && ThousandthsOf(points[8]) == *max * 1000);
}

// Random samples in random ranges and, once the baseline has learnt, beyond them.
template <class V>
void ReadsWhatWasSampled() {
  std::mt19937_64 random;
  const auto below = [&](std::uint64_t end) { return random() % std::max<std::uint64_t>(end, 1); };
  constexpr auto kMost = std::uint64_t{std::numeric_limits<V>::max() >> (sizeof(V) == 8 ? 8 : 0)};  // sums fit
  for (int round = 0; round < 60 && !::testing::Test::HasFailure(); ++round) {
    SCOPED_TRACE(round);
    const std::uint64_t width = 1 + below(kMost >> below(sizeof(V) * 7)), low = below(kMost - width);
    const auto start = static_cast<V>(std::is_signed_v<V> && round % 2 ? 0 - low - width : low);
    const auto inside = [&](std::uint64_t offset) { return static_cast<V>(static_cast<V>(offset) + start); };
    const auto range = round % 10 == 0 ? std::nullopt : std::optional(Range(start, inside(width - 1)));
    const auto buckets = static_cast<std::uint32_t>(1 + below(round % 4 ? 200 : 2000));
    zp::Engine engine;
    zp::Group group = *engine.group("g", {.clear = Interval::polls(40), .keep_readings = true});
    ASSERT_TRUE(group.object("r", {.statistics = kPercentile, .range = range, .buckets = buckets}));
    ASSERT_TRUE(group.object("b", {.statistics = kBaseline, .buckets = buckets}));
    zp::Template table("key");
    const auto r = table.column<V>("r"), b = table.column<V>("b");
    ASSERT_TRUE(group.readings().empty() && group.start(table));
    std::vector<Wide> interval, learnt;
    for (std::uint64_t i = 0, polls = 41 + below(100); i < polls; ++i) {
      const std::uint64_t spike = round % 5 == 0 ? kMost : below(kMost);
      const bool is_spike = i >= 40 && below(9) == 0, is_low = std::is_signed_v<V> && below(2) == 0;
      const V value = is_spike ? static_cast<V>(is_low ? 0 - spike : spike) : inside(below(width));
      zp::Poll poll = *group.poll();
      ASSERT_TRUE(poll.row("x", {r(value), b(value)}) && poll.end());
      interval.push_back(value);
      if (i >= 40) learnt.push_back(value);
      const std::vector<zp::Reading> ended = group.take_readings(), going = group.readings();
      ASSERT_EQ(ended.size(), i % 40 == 39 ? 2u : 0u);
      if (!ended.empty()) ExpectReads(ended[0], std::exchange(interval, {}));
      if (i % 16 == 7) ExpectReads(going[0], interval);
      if (i % 16 == 7 && i >= 40) ExpectReads(going[1], learnt);
    }
  }
}

TEST(ProcessHppTest, ReadsWhatWasSampled) {
  ReadsWhatWasSampled<std::int32_t>();
  ReadsWhatWasSampled<std::uint32_t>();
  ReadsWhatWasSampled<std::int64_t>();
  ReadsWhatWasSampled<std::uint64_t>();
}

// What is spread evenly is placed where it was; also in the buckets that a baseline has outside its range.
TEST(ProcessHppTest, PlacesEvenSamplesWhereTheyWere) {
  zp::Engine engine;
  zp::Group group = *engine.group("g", {.buckets = 1});
  ASSERT_TRUE(group.object("b", {.statistics = kBaseline, .learning = Interval::polls(2)}));
  ASSERT_TRUE(group.object("r", {.statistics = kPercentile, .range = Range(0, 500)}));
  zp::Template table("key");
  const auto r = table.column<std::uint32_t>("r"), b = table.column<std::uint32_t>("b");
  ASSERT_TRUE(group.start(table));
  zp::Poll poll = *group.poll();
  for (const std::uint32_t learnt : {200U, 300U}) ASSERT_TRUE(poll.row("x", {b(learnt)}));
  for (std::uint32_t i = 0; i <= 500; ++i) ASSERT_TRUE(poll.row("x", {r(i), b(i)}));
  const std::vector<zp::Reading> readings = group.readings();
  for (std::size_t i = 0; i < readings[0].points->size(); ++i) {
    EXPECT_EQ(ThousandthsOf((*readings[0].points)[i]), 5 * Wide{g_stats_percentile_1000[i]});
    EXPECT_NEAR(static_cast<double>((*readings[1].points)[i]), g_stats_percentile_1000[i] / 200.0, 1);
  }
}

// Two counters of an instance that stays, beside instances that stay for five polls each. What the counters have
// grown by is what the readings of all intervals come to, and the heap does not grow.
TEST(ProcessHppTest, CountsOnOverResetsAndWrapsWhileInstancesComeAndGo) {
  for (const bool has_baseline : {false, true}) {
    zp::Engine engine;
    zp::Group group = *engine.group("g", {.clear = Interval::polls(10), .keep_readings = true, .expire = 2});
    zp::ObjectSettings counter = {.statistics = kSummary, .values = zp::Values::counter};
    ASSERT_TRUE(group.object("wide", counter));
    if (has_baseline) counter.range = Range(0, 1 << 30);
    ASSERT_TRUE(group.object("narrow", counter));
    ASSERT_TRUE(!has_baseline || group.object("b", {.statistics = kBaseline, .buckets = 5}));
    zp::Template table("key");
    const auto narrow = table.column<std::uint32_t>("narrow"), b = table.column<std::uint32_t>("b");
    const auto wide = table.column<std::uint64_t>("wide");
    ASSERT_TRUE(group.start(table));
    std::mt19937 random;
    std::uint32_t low = UINT32_MAX - 9, rows = 0, learnt = 0;
    std::uint64_t high = UINT64_MAX / 2, resets = 0, begun = 0, grown = 0, read = 0, used = 0;
    const auto read_on = [&](const zp::Reading &reading) {
      if (reading.name != "stays") return;
      begun += reading.resets;
      (reading.baseline ? learnt = reading.samples : read += reading.sum.bits());
    };
    for (std::uint32_t i = 0; i < 50'005; ++i) {
      zp::Poll poll = *group.poll();
      if (i % 11 != 10) {
        const auto step = static_cast<std::uint32_t>(random() % (1 << 30));
        const bool low_begins = low < INT32_MAX && step < low && i % 3 == 0,
                   high_begins = step < high && i % 7 == 0;
        low = low_begins ? step : low + step;
        high = high_begins ? step : high + step;
        resets += low_begins + (high_begins && rows != 0);
        if (rows++ != 0) grown += 2 * std::uint64_t{step};
        ASSERT_TRUE(poll.row("stays", {narrow(low), wide(high), b(i % 10)}));
      }
      const std::string passing = i == 40'000 ? "0" : std::to_string(i / 5);
      ASSERT_TRUE(poll.row(passing, {narrow(i), wide(i)}) && poll.end());
      // For two whole intervals after that of its last value; then it is new.
      ASSERT_EQ(group.has_instance("0"), i < 29 || (i >= 40'000 && i < 40'029)) << i;
      for (const zp::Reading &reading : group.take_readings()) read_on(reading);
      ASSERT_TRUE(group.take_records().empty() == (i % 10 != 9) || has_baseline);
      if (i == 10'004) used = mallinfo2().uordblks;
      ASSERT_TRUE(i % 10'000 != 4 || i < 10'004 || mallinfo2().uordblks < used + 10'000) << "the heap grows";
    }
    for (const zp::Reading &reading : group.readings()) read_on(reading);
    EXPECT_TRUE(read == grown && learnt == (has_baseline ? rows - 10 : 0));
    EXPECT_TRUE(begun == resets && group.resets("narrow") + group.resets("wide") == resets);
  }
}

}  // namespace
