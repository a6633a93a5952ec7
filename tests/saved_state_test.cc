// A group that is saved and loaded goes on as one that was not; what is not the state of such a group is refused,
// and the group begins.
#include <random>

#include "engine_fixture.h"
#include "failing_heap.h"
#include "zor/process.hpp"

namespace {

namespace zp = zor::process;
using zp::Interval, zp::Range, zp::Statistics, zp::Values;

// A group of all types and statistics, whose polls are random but the same for a seed.
class Collector {
 public:
  explicit Collector(std::uint32_t buckets = 20) : group_(*engine_.group("g", Settings())) {
    const Range range(0, 1000);
    const zp::ObjectSettings kept = {.statistics = Statistics::percentile, .range = range, .buckets = buckets},
                             learnt = {
                                 .statistics = Statistics::baseline, .buckets = 5, .learning = Interval::polls(30)};
    Add<std::int32_t>("i32", kept);
    Add<std::uint32_t>("u32", {.statistics = Statistics::summary, .values = Values::counter, .range = range});
    Add<std::int64_t>("i64", {.statistics = Statistics::distribution, .values = Values::cumulative});
    Add<std::uint64_t>("u64", {.statistics = Statistics::percentile, .values = Values::counter, .range = range});
    Add<std::int32_t>("b32", learnt);
    Add<std::uint64_t>("b64", learnt);
    EXPECT_TRUE(group_.start(table_));
  }

  zp::Group &group() { return group_; }
  zor_process_engine_t *engine() { return engine_.get(); }

  // What a poll makes: its records, and the readings behind it.
  std::string Poll(std::uint32_t number) {
    std::mt19937 random(number);
    zp::Poll poll = *group_.poll();
    for (const char *key : {"stays", "comes", "and goes"}) {
      if (*key != 's' && number / 40 % 3 == 1) continue;  // long enough to be forgotten
      std::vector<zp::Cell> cells;
      for (const auto &column : columns_) {
        const auto value = static_cast<std::int32_t>(number > 100 ? random() % 5000 : random() % 1000);
        cells.push_back(column(number % 7 == 0 ? 0 : value));
      }
      EXPECT_TRUE(poll.row(key, cells));
    }
    EXPECT_TRUE(poll.end());
    return WithoutTime(group_.take_records()) + Read();
  }

  std::string Read() {
    std::string text;
    for (const zp::Reading &reading : group_.readings()) {
      text += reading.object + ' ' + reading.name + ' ' + std::to_string(reading.samples) + ' ' +
              std::to_string(reading.sum.bits()) + ' ' + std::to_string(reading.resets) + ' ' +
              std::to_string(reading.refused) + '\n';
    }
    return text + std::to_string(group_.refused()) + ' ' + std::to_string(group_.resets("u64")) + '\n';
  }

 private:
  static zp::GroupSettings Settings() { return {.clear = Interval::polls(10), .expire = 2}; }
  template <class V>
  void Add(const char *name, const zp::ObjectSettings &settings) {
    EXPECT_TRUE(group_.object(name, settings));
    columns_.push_back(
        [column = table_.column<V>(name)](std::int32_t value) { return column(static_cast<V>(value)); });
  }

  zp::Engine engine_;
  zp::Group group_;
  zp::Template table_{"key"};
  std::vector<std::function<zp::Cell(std::int32_t)>> columns_;
};

std::string SavedAfter(std::uint32_t polls) {
  Collector collector;
  for (std::uint32_t i = 0; i < polls; ++i) collector.Poll(i);
  return *collector.group().save();
}

TEST(SavedStateTest, GoesOnAsIfNothingHadBeen) {
  Collector straight;
  auto restarted = std::make_unique<Collector>();
  std::mt19937 random;
  for (std::uint32_t i = 0; i < 500; ++i) {
    ASSERT_EQ(restarted->Poll(i), straight.Poll(i)) << i;
    if (random() % 5 != 0) continue;
    const std::string saved = *restarted->group().save();
    restarted = std::make_unique<Collector>();
    ASSERT_TRUE(restarted->group().load(saved));
    ASSERT_EQ(*restarted->group().save(), saved) << i;
  }
}

TEST(SavedStateTest, CountersThatHaveBegunAnew) {
  const std::string saved = SavedAfter(25);
  Collector collector;
  ASSERT_TRUE(collector.group().load(saved, zp::Counters::begin_anew));
  const auto sum_of = [&](std::size_t reading) { return collector.group().readings()[reading].sum.bits(); };
  const auto object = [&](const char *name) {
    std::size_t i = 0;
    while (collector.group().readings()[i].object != name) ++i;
    return i;
  };
  const std::size_t u32 = object("u32"), i32 = object("i32");
  const std::uint64_t before = sum_of(u32), sampled = sum_of(i32), resets = collector.group().resets("u32");
  EXPECT_GE(resets, 3u);
  std::mt19937 same(26);
  collector.Poll(26);
  const std::uint64_t first = same() % 1000, second = same() % 1000;  // of i32 and u32, in the row of "stays"
  EXPECT_EQ(sum_of(i32) - sampled, first);
  EXPECT_EQ(sum_of(u32) - before, second);
  EXPECT_EQ(collector.group().resets("u32"), resets);
}

TEST(SavedStateTest, RefusesWhatItIsNot) {
  const std::string saved = SavedAfter(130), fresh = Collector().Poll(0);
  const auto expect_refused = [&](const std::string &bytes, Collector &collector, std::uint32_t code = 11) {
    const zp::Status loaded = collector.group().load(bytes);
    EXPECT_TRUE(!loaded && loaded.error().code == code);
    EXPECT_EQ(collector.Poll(0), fresh);
  };
  for (std::size_t size = 0; size < saved.size(); size += 1 + size / 50) {
    Collector collector;
    expect_refused(saved.substr(0, size), collector);
  }
  Collector longer, other(19), polled;
  expect_refused(saved + '\0', longer);
  EXPECT_FALSE(other.group().load(saved));
  polled.Poll(0);
  EXPECT_FALSE(polled.group().load(saved));

  // A changed byte is refused or a state that calls could have made: it goes on, and can be saved.
  std::mt19937 random;
  std::size_t refused = 0;
  for (int i = 0; i < 2000; ++i) {
    std::string changed = saved;
    changed[random() % changed.size()] ^= static_cast<char>(1 << random() % 8);
    Collector collector;
    refused += !collector.group().load(changed);
    for (std::uint32_t poll = 0; poll < 12; ++poll) {
      auto open = collector.group().poll();
      ASSERT_TRUE(open);
      static_cast<void>(open->end());  // a sum may have become a full one
    }
    ASSERT_TRUE(collector.group().save());
  }
  EXPECT_GT(refused, 100u);
}

TEST(SavedStateTest, CodesOfTheCInterface) {
  Collector collector;
  zor_process_engine_t *engine = collector.engine();
  std::size_t size = 0;
  const auto save = [&](const char *dg, std::size_t *room) {
    return zor_process_engine_save_dg_data(engine, dg, nullptr, room);
  };
  const auto load = [&](const char *dg, const void *data) {
    return zor_process_engine_load_dg_data(engine, dg, data, size);
  };
  EXPECT_EQ(save("other", &size), 4u);
  EXPECT_EQ(save("g", nullptr), 1u);
  EXPECT_EQ(save("g", &size), 0u);
  std::vector<char> data(size, 'x');
  std::size_t room = size - 1;
  EXPECT_EQ(zor_process_engine_save_dg_data(engine, "g", data.data(), &room), 0u);
  EXPECT_TRUE(room == size && data.back() == 'x') << "written without room";
  EXPECT_EQ(load("other", data.data()), 4u);
  EXPECT_EQ(load("g", nullptr), 1u);
  EXPECT_EQ(load("g", data.data()), 11u);
  EXPECT_EQ(load("g", data.data()), 8u) << "its template has gone";
  EXPECT_EQ(save("g", &size), 8u);
}

TEST(SavedStateTest, WithoutMemory) {
  Collector saved;
  for (std::uint32_t i = 0; i < 130; ++i) saved.Poll(i);
  zor_process_engine_t *engine = saved.engine();
  std::size_t size = 0;
  ASSERT_EQ(zor_process_engine_save_dg_data(engine, "g", nullptr, &size), 0u);
  std::vector<char> data(size);
  ASSERT_EQ(zor_process_engine_save_dg_data(engine, "g", data.data(), &size), 0u);
  for (long failing = 1, needed = failing; needed >= failing; ++failing) {
    Collector collector;
    const long alive = heap.alive;
    heap = {failing, failing % 2 == 0, false, 0, alive};
    const std::uint32_t code =
        Armed([&] { return zor_process_engine_load_dg_data(collector.engine(), "g", data.data(), data.size()); });
    needed = heap.count;
    ASSERT_EQ(code, needed >= failing ? 2u : 0u) << failing;
    EXPECT_EQ(collector.group().readings().size(), code == 0 ? saved.group().readings().size() : 0);
  }
}

}  // namespace
