// Threads with an engine each do not wait for one another, nor do they meet.
#include <thread>

#include "engine_fixture.h"
#include "zor/process.hpp"

namespace {

namespace zp = zor::process;

// All that a collector calls but reports.
std::string RecordsOfACollector() {
  zp::Engine engine;
  zp::Group group = *engine.group("g", {.clear = zp::Interval::polls(5), .keep_readings = true, .expire = 1});
  const bool is_made =
      group.object("p", {.statistics = zp::Statistics::percentile, .range = zp::Range(0, 99)}) &&
      group.object("b", {.statistics = zp::Statistics::baseline, .learning = zp::Interval::polls(9)});
  zp::Template table("key");
  const auto p = table.column<std::uint64_t>("p");
  const auto b = table.column<std::int32_t>("b");
  EXPECT_TRUE(is_made && group.start(table));
  std::string records;
  for (std::int32_t i = 0; i < 60; ++i) {
    zp::Poll poll = *group.poll();
    for (std::int32_t k = i / 9; k < i / 9 + 20; ++k) {
      EXPECT_TRUE(poll.row(std::to_string(k), {p(static_cast<std::uint32_t>(k * i % 120)), b(k * i % 70)}));
    }
    EXPECT_TRUE(poll.end());
    records += group.take_records() + std::to_string(group.take_readings().size());
  }
  const std::uint32_t id = *group.object_id("p");
  EXPECT_TRUE(id != 0 && id != *group.object_id("b"));
  return WithoutTime(records) + std::to_string(group.save()->size());
}

TEST(Threads, AnEngineEach) {
  std::vector<std::string> records(4);
  std::vector<std::thread> threads;
  for (std::string &text : records) threads.emplace_back([&] { text = RecordsOfACollector(); });
  for (std::thread &thread : threads) thread.join();
  for (const std::string &text : records) EXPECT_EQ(text, RecordsOfACollector());
}

}  // namespace
