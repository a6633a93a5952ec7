// The C++ header: what it refuses and with which words, and that what it accepts comes out as by C calls.

#include <functional>

#include "engine_fixture.h"
#include "failing_heap.h"
#include "zor/process.hpp"

namespace {

namespace zp = zor::process;
using std::chrono::seconds;
using zp::Interval, zp::Range, zp::Statistics;

std::string MessageOf(const zp::Status &status) { return status ? "" : status.error().message; }

// What a walk or a poll has given, as a status.
template <class T>
zp::Status StatusOf(zp::Result<T> result) {
  if (result) return zp::Done{};
  return result.error();
}

std::string WithoutCr(std::string text) {
  std::erase(text, '\r');
  return text;
}

std::size_t Count(const std::string &text, const std::string &what) {
  std::size_t count = 0;
  for (auto at = text.find(what); at != std::string::npos; at = text.find(what, at + 1)) ++count;
  return count;
}

TEST(ProcessHppTest, RefusesSettingsThatWouldFailLate) {
  zp::Engine engine;
  auto group = engine.group("g", {.clear = Interval::polls(3)});
  ASSERT_TRUE(group->object("first", {.statistics = Statistics::summary, .id = 77}));
  const auto make = [&](zp::Name name, const zp::GroupSettings &settings) {
    return MessageOf(StatusOf(engine.group(name, settings)));
  };
  const auto with_range = [&](Range range) {
    return MessageOf(group->object("o", {.statistics = Statistics::distribution, .range = range}));
  };
  const auto add = [&](const zp::ObjectSettings &settings) { return MessageOf(group->object("o", settings)); };
  const auto mixed = Statistics::baseline | Statistics::summary;
  const char *null = nullptr;
  using namespace std::string_literals;

  EXPECT_EQ(make("", {}), "group '': a name is empty, or holds a comma or a control character");
  EXPECT_EQ(make(null, {}), "group '': a name is empty, or holds a comma or a control character");
  EXPECT_EQ(make("a\0b"s, {}), "group 'a\0b': a name is empty, or holds a comma or a control character"s);
  EXPECT_EQ(make("g", {}), "group 'g': exists already");
  EXPECT_EQ(make("h", {.poll_interval = seconds(9)}), "group 'h': the poll interval is below 10 seconds");
  for (const std::uint64_t polls : {0, 65536}) {
    EXPECT_EQ(make("h", {.clear = Interval::polls(polls)}),
              "group 'h': the clear interval is not 1 to 65535 polls");
    EXPECT_EQ(add({.statistics = Statistics::baseline, .learning = Interval::polls(polls)}),
              "group 'g', object 'o': the learning interval is not 1 to 65535 polls");
  }
  EXPECT_EQ(make("h", {.clear = seconds(655351)}), "group 'h': the clear interval is not 1 to 65535 polls");
  for (const std::uint32_t buckets : {0U, 65536U}) {
    EXPECT_EQ(make("h", {.buckets = buckets}), "group 'h': the number of buckets is not 1 to 65535");
    EXPECT_EQ(add({.statistics = Statistics::summary, .buckets = buckets}),
              "group 'g', object 'o': the number of buckets is not 1 to 65535");
  }
  EXPECT_EQ(make("h", {.statistics = mixed}),
            "group 'h': a baseline goes with no other statistic, of the object or of its group");
  EXPECT_EQ(add({.statistics = mixed}),
            "group 'g', object 'o': a baseline goes with no other statistic, of the object or of its group");
  EXPECT_EQ(add({}), "group 'g', object 'o': no statistics are selected");
  EXPECT_EQ(add({.statistics = Statistics::summary, .instances = {"eth0", "eth,1"}}),
            "group 'g', object 'o': a name is empty, or holds a comma or a control character");
  EXPECT_EQ(add({.statistics = Statistics::baseline, .range = Range(0, 9)}),
            "group 'g', object 'o': a baseline learns its own range");
  EXPECT_EQ(add({.statistics = Statistics::summary, .learning = Interval::polls(9)}),
            "group 'g', object 'o': only a baseline learns");
  EXPECT_EQ(add({.statistics = Statistics::summary, .id = 77}),
            "group 'g', object 'o': the identifier is another object's");
  for (const Range range : {Range(9, 3), Range(0, -1), Range(-1, -2), Range(-1, UINT64_MAX)}) {
    EXPECT_EQ(with_range(range), "group 'g', object 'o': the range is inverted");
  }
  EXPECT_EQ(MessageOf(group->object("first")), "group 'g', object 'first': exists already");
  EXPECT_EQ(MessageOf(StatusOf(group->object_id("fir"))),
            "group 'g', object 'fir': ZOR_PROCESS_ERROR_OBJECT_NOT_FOUND");
  EXPECT_EQ(*group->object_id("first"), 77u);
  EXPECT_TRUE(group->object("o", {.statistics = Statistics::summary}));  // the refused ones have left nothing
  EXPECT_EQ(Interval(seconds(601)).in_polls_of(seconds(10)), 61u);
}

// A range fits a column exactly where the library takes it.
TEST(ProcessHppTest, RangesFitAsInTheLibrary) {
  const Range ranges[] = {{0, 9},
                          {0, INT32_MAX},
                          {0, UINT32_MAX},
                          {0, INT64_MAX},
                          {0u, UINT64_MAX},
                          {-1, 9},
                          {-1, -1},
                          {INT32_MIN, INT32_MAX},
                          {INT32_MIN, -5},
                          {INT64_MIN, -5},
                          {INT64_MIN, INT64_MAX},
                          {-1, std::int64_t{INT32_MAX} + 1},
                          {0, std::int64_t{INT32_MAX} + 1},
                          {std::int64_t{INT32_MIN} - 1, 0}};
  for (const Range &range : ranges) {
    for (std::uint32_t type = 1; type <= 4; ++type) {
      zp::Engine engine;
      auto group = engine.group("g", {.statistics = Statistics::distribution});
      ASSERT_TRUE(group->object("o", {.range = range}));
      zp::Template table("key");
      const auto column = table.column("o", static_cast<zor_process_data_type_t>(type));
      const zp::Value zero[] = {std::int32_t{}, std::uint32_t{}, std::int64_t{}, std::uint64_t{}};
      const zp::Status started = group->start(table);

      zp::Engine plain;
      auto other = plain.group("g", {.statistics = Statistics::distribution});
      ASSERT_TRUE(other->object("o"));
      ASSERT_TRUE(other->start(table));
      const char *name = "o";
      std::uint32_t range_type = range.type;
      std::uint64_t bounds[2] = {range.bounds[0], range.bounds[1]};
      zor_process_object_attr_t attr = {nullptr, nullptr, nullptr, &range_type, bounds};
      zor_process_engine_set_object(plain.get(), ZOR_PROCESS_OPER_SET, "g", &name, &attr);
      auto poll = other->poll();
      const zp::Status counted = poll->row("k", {column(zero[type - 1])});

      EXPECT_EQ(bool(started), bool(counted)) << bounds[0] << " to " << bounds[1] << " in " << type;
      EXPECT_EQ(started ? 0 : started.error().code, counted ? 0 : counted.error().code);
    }
  }
}

TEST(ProcessHppTest, RefusesTemplatesAndRowsThatWouldGoWrong) {
  zp::Engine engine;
  auto group = engine.group("g", {.statistics = Statistics::summary});
  ASSERT_TRUE(group->object("rx", {.range = Range(0, 5'000'000'000)}));
  EXPECT_EQ(MessageOf(StatusOf(group->poll())), "group 'g': a poll before the template");

  const auto started = [&](zp::Template table, const std::vector<std::string> &columns) {
    for (const std::string &column : columns) table.column<std::uint32_t>(column);
    return MessageOf(group->start(table));
  };
  EXPECT_EQ(started(zp::Template(""), {"rx"}),
            "template: a name is empty, or holds a comma or a control character");
  EXPECT_EQ(started(zp::Template("key"), {"rx", "rx"}), "template: two columns have the same name");
  EXPECT_EQ(started(zp::Template("key"), {"tx"}), "group 'g', object 'rx': the template has no column of its name");
  EXPECT_EQ(started(zp::Template("rx"), {"tx"}), "group 'g', object 'rx': its column is the key");
  EXPECT_EQ(started(zp::Template("key"), {"rx"}),
            "group 'g', object 'rx': the range does not fit the type of its column");

  zp::Template table("key"), wider("key");
  const auto rx = table.column<std::uint64_t>("rx");
  const auto any = table.column("any", ZOR_PROCESS_DATA_TYPE_INT32);
  const auto other = wider.column<std::uint64_t>("rx");
  ASSERT_TRUE(group->start(table));
  EXPECT_EQ(MessageOf(group->object("late")), "group 'g', object 'late': objects come before the template");
  EXPECT_EQ(MessageOf(group->start(wider)),
            "group 'g': the template has changed: restart() takes it, and drops what is collected");

  auto poll = group->poll();
  EXPECT_EQ(MessageOf(StatusOf(group->poll())), "group 'g': a poll before the last one has ended");
  EXPECT_EQ(MessageOf(poll->row("", {rx(1U)})),
            "group 'g', row '': a name is empty, or holds a comma or a control character");
  EXPECT_EQ(MessageOf(poll->row("a", {other(1U)})), "group 'g', row 'a': a cell is of another template's column");
  EXPECT_EQ(MessageOf(poll->row("a", {rx(1U), rx(2U)})), "group 'g', row 'a': two values are of one column");
  EXPECT_EQ(MessageOf(poll->row("a", {any(zp::Value(1U))})),
            "group 'g', row 'a': a value is not of its column's type");
  EXPECT_TRUE(poll->row("a", {rx(UINT64_MAX), any(zp::Value(-1))}));
  EXPECT_EQ(MessageOf(poll->row("a", {rx(1U)})),
            "group 'g', row 'a': a sum is full, and the columns after it are not counted");
  EXPECT_TRUE(poll->row("b", {rx(std::nullopt)}));
  EXPECT_TRUE(poll->row("b", std::vector<zp::Cell>{rx(7U)}));
  EXPECT_EQ(MessageOf(poll->end()), "group 'g', row '': a name is empty, or holds a comma or a control character");
  EXPECT_EQ(MessageOf(poll->end()), "the poll has ended");
  EXPECT_EQ(MessageOf(poll->row("b", {rx(1U)})), "the poll has ended");

  auto walk = group->walk();
  wider.column<std::int32_t>("tx");
  ASSERT_TRUE(group->restart(wider));
  EXPECT_EQ(MessageOf(StatusOf(walk.next())), "group 'g': the walk began before a restart");
  EXPECT_EQ(WithoutTime(WithoutCr(group->take_records())),
            "g-summary, rx, a, 1, 18446744073709551615, 18446744073709551615, 18446744073709551615.000\n"
            "g-summary, rx, b, 1, 7, 7, 7.000\n");
  { EXPECT_TRUE(group->poll()->row("c", {other(5U)})); }  // ended with its handle
  EXPECT_TRUE(group->poll());
  ASSERT_TRUE(group->clear());
  EXPECT_EQ(WithoutTime(WithoutCr(group->take_records())), "g-summary, rx, c, 1, 5, 5, 5.000\n");
}

class ProcessHppRoundTrip : public EngineTest {};

TEST_F(ProcessHppRoundTrip, GivesTheRecordsOfPlainCalls) {
  constexpr std::uint16_t kPercentile = ZOR_PROCESS_FLAG_PERCENTILE;
  MakeDg(0, 1, 3);
  MakeObject("i32", kPercentile, 0, 3, static_cast<std::uint64_t>(-50), 50, 7);
  MakeObject("u32", kPercentile, 1);
  MakeObject("i64", ZOR_PROCESS_FLAG_SUMMARY, 1);
  MakeObject("u64", kPercentile, 0, 4, 10, 1000);
  MakeObject("counts", ZOR_PROCESS_FLAG_DISTRIBUTION);
  AddInstance("u32", "b");
  ASSERT_EQ(Template({{"key", 0}, {"i32", 1}, {"u32", 2}, {"none", 4}, {"i64", 3}, {"u64", 4}, {"counts", 4}}), 0u);

  std::optional<zp::Group> group;
  {
    zp::Engine owner;  // the group keeps it
    group = *owner.group("ifstats", {.clear = Interval::polls(3)});
  }
  const auto percentile = Statistics::percentile;
  const auto cumulative = zp::Values::cumulative;
  ASSERT_TRUE(group->object("i32", {.statistics = percentile, .range = Range(-50, 50), .buckets = 7}));
  ASSERT_TRUE(group->object("u32", {.statistics = percentile, .values = cumulative, .instances = {"b"}}));
  ASSERT_TRUE(group->object("i64", {.statistics = Statistics::summary, .values = cumulative}));
  ASSERT_TRUE(group->object("u64", {.statistics = percentile, .range = Range(10, 1000)}));
  ASSERT_TRUE(group->object("counts", {.statistics = Statistics::distribution}));
  zp::Template table("key");
  const auto i32 = table.column<std::int32_t>("i32");
  const auto u32 = table.column<std::uint32_t>("u32");
  table.column<std::uint64_t>("none");
  const auto i64 = table.column<std::int64_t>("i64");
  const auto u64 = table.column("u64", ZOR_PROCESS_DATA_TYPE_UINT64);
  const auto counts = table.column<std::uint64_t>("counts");
  ASSERT_TRUE(group->start(table));

  for (std::int32_t i = 0; i < 10; ++i) {
    auto poll = group->poll();
    for (const char *key : {"a", "b"}) {
      const std::int32_t x = i * 13 - (*key == 'a' ? 60 : 40);
      const std::uint64_t wide = 100u * static_cast<std::uint32_t>(i);
      ASSERT_EQ(Row(key, {x, static_cast<std::uint32_t>(x * x), {}, std::int64_t{-x}, wide, wide}), 0u);
      ASSERT_TRUE(poll->row(
          key, {i32(x), u32(static_cast<std::uint32_t>(x * x)), i64(-x), u64(zp::Value(wide)), counts(wide)}));
    }
    ASSERT_EQ(EndOfPoll(), 0u);
    ASSERT_TRUE(poll->end());
    const std::string records = WithoutTime(WithoutCr(group->take_records()));
    EXPECT_EQ(records, WithoutTime(Collect()));
    EXPECT_EQ(records.empty(), i % 3 != 2);
  }
  std::string report;
  for (const std::string &item : EngineTest::Report(6)) report += item;
  EXPECT_EQ(*group->report({.sections = Statistics::percentile | Statistics::distribution}), report);
  EXPECT_EQ(pvg_prt_handle, nullptr);
  EXPECT_EQ(group->report({.percentile = 101}).error().message, "group 'ifstats': a percentile above 100");
}

TEST(ProcessHppTest, AWalkTellsItsEndFromAnInstanceThatCannotBeRendered) {
  zp::Engine engine;
  auto group = engine.group("g", {.statistics = Statistics::summary});
  ASSERT_TRUE(group->object("rx"));
  ASSERT_TRUE(group->object("tx"));
  zp::Template table("key");
  const auto rx = table.column<std::uint32_t>("rx"), tx = table.column<std::uint32_t>("tx");
  ASSERT_TRUE(group->start(table));
  ASSERT_TRUE(group->poll()->row("a", {rx(1U), tx(2U)}));
  std::uint16_t flags = ZOR_PROCESS_FLAG_PERCENTILE;  // which the instance does not keep
  zor_process_attr_t common = {&flags, nullptr, nullptr, nullptr};
  zor_process_object_attr_t attr = {nullptr, &common, nullptr, nullptr, nullptr};
  const char *object = "rx";
  zor_process_engine_set_object(engine.get(), ZOR_PROCESS_OPER_SET, "g", &object, &attr);

  auto walk = group->walk();
  EXPECT_EQ(MessageOf(StatusOf(walk.next())), "group 'g', object 'rx', instance 'a': cannot be rendered");
  auto second = walk.next();
  ASSERT_TRUE(second && *second);
  EXPECT_EQ((*second)->object, "tx");
  EXPECT_EQ((*second)->name, "a");
  EXPECT_EQ(WithoutTime((*second)->text.get()), "g-summary, tx, a, 1, 2, 2, 2.000\r\n");
  auto end = walk.next();
  EXPECT_TRUE(end && !*end);
}

// Outliers and records cost a baseline's neighbours nothing.
TEST(ProcessHppTest, BaselinesDoNotStopTheirGroup) {
  zp::Engine engine;
  auto group = engine.group("g", {.clear = Interval::polls(50)});
  ASSERT_TRUE(
      group->object("b", {.statistics = Statistics::baseline, .buckets = 4, .learning = Interval::polls(10)}));
  ASSERT_TRUE(group->object("s", {.statistics = Statistics::summary}));
  zp::Template table("key");
  const auto b = table.column<std::uint64_t>("b"), s = table.column<std::uint64_t>("s");
  ASSERT_TRUE(group->start(table));
  for (std::uint32_t i = 0; i < 100; ++i) {
    auto poll = group->poll();
    for (const char *key : {"x", "y"}) ASSERT_TRUE(poll->row(key, {b(i < 10 ? i : i * 1000), s(i)}));
    ASSERT_TRUE(poll->end());
  }
  ASSERT_TRUE(group->snapshot());
  const std::string records = group->take_records();
  EXPECT_EQ(Count(records, "g-baseline: "), 2u * (9 + 1));
  EXPECT_EQ(Count(records, ", 50, 50, 99, "), 2u);
  EXPECT_EQ(group->refused(), 2u * (90 - 10));  // ten outside buckets were there
}

// Whichever allocation of the library fails: it is told, nothing stays latched, nothing is lost.
TEST(ProcessHppTest, CountsEverySampleOnceWithoutMemory) {
  constexpr std::size_t kPolls = 7;
  for (long failing = 1;; ++failing) {
    const long alive = heap.alive;
    heap = {failing, false, false, 0, alive};
    const auto again = [](auto call) {
      if (Armed(call)) return;
      EXPECT_EQ(MessageOf(StatusOf(call())), "");
    };
    {
      zp::Engine engine;
      std::optional<zp::Group> group;
      zp::Template table("key");
      const auto rx = table.column<std::uint32_t>("rx");
      again([&] {
        auto made = engine.group("g", {.clear = Interval::polls(3)});
        if (made) group = *made;
        return made;
      });
      again([&] { return group->object("rx", {.statistics = Statistics::percentile, .instances = {"a", "b"}}); });
      again([&] { return group->start(table); });
      std::size_t told = 0;
      for (std::uint32_t i = 0; i < kPolls; ++i) {
        auto poll = group->poll();
        for (const char *key : {"a", "b"}) again([&] { return poll->row(key, {rx(i)}); });
        told += Armed([&] { return poll->end(); }) ? 0 : 1;
      }
      const long count = heap.count;
      ASSERT_TRUE(group->clear());
      std::size_t samples = 0;
      const std::string records = group->take_records();
      for (auto at = records.find("-summary: "); at != std::string::npos; at = records.find("-summary: ", at + 1)) {
        for (int comma = 0; comma < 3; ++comma) at = records.find(", ", at + 1);
        samples += std::stoul(records.substr(at + 2));
      }
      EXPECT_EQ(samples, 2 * kPolls) << "allocation " << failing;
      EXPECT_LE(told, 1u);
      if (count < failing) failing = -1;
    }
    EXPECT_EQ(heap.alive, alive) << "leaked";
    ASSERT_FALSE(HasFailure()) << "allocation " << failing;
    if (failing < 0) break;
  }
}

}  // namespace
