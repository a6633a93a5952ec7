// Delivering rows: their cost per sample, and what they allocate.

#include <algorithm>
#include <cstdio>
#include <deque>
#include <fstream>
#include <latch>
#include <memory>
#include <numeric>
#include <optional>
#include <thread>
#include <vector>

#include "allocations.h"
#include "collector.h"
#include "contest.h"
#include "peers.h"
#include "scenarios.h"

namespace bench {
namespace {

// Peers beside the floor.
enum class Peers { kNone, kAll };

// The statistics, the floor's blocks and the messages of a poll come to about this much per sample.
constexpr double kBytesPerSample = 1150;

bool Fits(double bytes) {
  std::ifstream file("/proc/meminfo");
  std::string name, unit;
  double kilobytes = 0;
  while (file >> name >> kilobytes) {
    if (name == "MemAvailable:") return kilobytes * 1024 > bytes;
    std::getline(file, unit);
  }
  return true;
}

void Fail(benchmark::State &state, const char *fault) {
  if (fault) state.SkipWithError(fault);
}

// Polls per round, so that a round takes long enough for the clock.
std::uint32_t PollsOf(const Shape &shape) {
  return std::max(1u, static_cast<std::uint32_t>(1e6 / shape.Samples()));
}

void RunRows(benchmark::State &state, const Shape &shape, Order order, Peers peers) {
  constexpr std::size_t kSlowRounds = 3;  // of peers
  const std::uint32_t polls = PollsOf(shape);
  Collector collector(shape, order);
  Floor floor(shape, order);
  std::optional<PrometheusFamilies> prometheus;
  std::unique_ptr<BoostRows> boost;

  Contest contest;
  contest.Add(kOurs, [&] { return collector.Time(polls); });
  contest.Add("floor", [&] { return floor.Time(polls); });
  if (peers == Peers::kAll) {
    prometheus.emplace(shape);
    contest.Add(
        "prometheus_family", [&] { return prometheus->Time(1); }, kSlowRounds);
    boost = std::make_unique<BoostRows>(shape);
    contest.Add(
        "boost_density", [&] { return boost->Time(1); }, kSlowRounds);
  }
  contest.Run(state);
  state.counters["instances"] = shape.instances;
  state.counters["columns"] = shape.columns;
  state.counters["buckets"] = shape.buckets;
  Fail(state, collector.Fault());
  Fail(state, floor.Fault());
  if (prometheus) Fail(state, prometheus->Fault());
  if (boost) Fail(state, boost->Fault());
}

// Nanoseconds per sample in each of so many threads at once, each with a collector of its own.
double TimeInThreads(std::deque<Collector> &collectors, std::uint32_t count, std::uint32_t polls) {
  std::vector<double> times(count);
  {
    std::latch start(count);
    std::vector<std::jthread> threads;
    for (std::uint32_t i = 0; i < count; ++i) {
      threads.emplace_back([&, i] {
        start.arrive_and_wait();
        times[i] = collectors[i].Time(polls);
      });
    }
  }
  return std::accumulate(times.begin(), times.end(), 0.0) / count;
}

void RunThreads(benchmark::State &state, std::uint32_t count) {
  const Shape shape = {.instances = 1000};
  const std::uint32_t polls = PollsOf(shape);
  std::deque<Collector> collectors;
  for (std::uint32_t i = 0; i < count; ++i) collectors.emplace_back(shape);
  Contest contest;
  contest.Add(kOurs, [&] { return TimeInThreads(collectors, count, polls); });
  contest.Add("one_thread", [&] { return TimeInThreads(collectors, 1, polls); });
  contest.Run(state);
  for (Collector &collector : collectors) Fail(state, collector.Fault());
}

void RegisterRowsOf(const std::string &name, const Shape &shape, Order order, Peers peers, int rounds) {
  Register(name, rounds, [=](benchmark::State &state) { RunRows(state, shape, order, peers); });
}

}  // namespace

void RegisterRows(const Options &options) {
  for (const std::uint32_t instances : {100u, 1000u, 10000u, 100000u, 1000000u}) {
    const Shape shape = {.instances = instances};
    const std::string size = std::to_string(instances);
    if (options.quick && instances > 100000) continue;
    if (!Fits(kBytesPerSample * shape.Samples())) {
      std::fprintf(stderr, "Not enough memory for %u instances: left out.\n", instances);
      continue;
    }
    const Peers peers = instances == 100000 && !options.quick ? Peers::kAll : Peers::kNone;
    const int rounds = instances == 1000000 ? 11 : options.Rounds(31);
    RegisterRowsOf("rows_stable/" + size, shape, Order::kStable, peers, rounds);
    RegisterRowsOf("rows_shuffled/" + size, shape, Order::kShuffled, Peers::kNone, rounds);
  }
}

void RegisterAllocations(const Options &) {
  for (const Order order : {Order::kStable, Order::kShuffled}) {
    const char *name = order == Order::kStable ? "allocations/rows_stable" : "allocations/rows_shuffled";
    Register(name, 10, [order](benchmark::State &state) {
      const Shape shape = {.instances = 1000};
      Collector collector(shape, order);
      const std::uint64_t at_first = Allocations();
      collector.Time(2);  // creates the instances
      if (Allocations() == at_first) return Fail(state, "allocations are not counted");
      Contest contest;
      contest.Add(kOurs, [&] {
        collector.Prepare();
        const std::uint64_t before = Allocations();
        collector.Deliver();
        return static_cast<double>(Allocations() - before) / shape.Samples();
      });
      contest.Run(state);
      Fail(state, collector.Fault());
    });
  }
}

void RegisterThreads(const Options &options) {
  for (const std::uint32_t count : {2u, 4u, 8u}) {
    if (count > std::thread::hardware_concurrency()) break;
    Register("threads/" + std::to_string(count), options.Rounds(31),
             [count](benchmark::State &state) { RunThreads(state, count); });
  }
}

void RegisterScaling(const Options &options) {
  const int rounds = options.Rounds(11);
  const auto add = [&](const std::string &name, const Shape &shape) {
    RegisterRowsOf("scaling/" + name, shape, Order::kStable, Peers::kNone, rounds);
  };
  // As many statistics in all for any number of columns.
  for (const std::uint32_t columns : {1u, 2u, 5u, 10u, 20u, 50u}) {
    add("columns/" + std::to_string(columns), {.instances = 10000 / columns, .columns = columns});
  }
  for (const std::uint32_t buckets : {2u, 10u, 100u, 1000u, 10000u}) {
    add("buckets/" + std::to_string(buckets), {.instances = 1000, .buckets = buckets});
  }
  // The distribution alone: sums of samples of the wider ranges do not fit their 64 bits.
  for (const std::uint32_t bits : {8u, 16u, 24u, 32u, 40u, 48u, 56u, 64u}) {
    add("width/" + std::to_string(bits),
        {.instances = 1000, .last = ~std::uint64_t{0} >> (64 - bits), .flags = ZOR_PROCESS_FLAG_DISTRIBUTION});
  }
}

void RegisterMemory(const Options &) {
  Register("memory", 1, [](benchmark::State &state) {
    const Shape shape = {.instances = 100000};
    Collector collector(shape);
    collector.Prepare();
    const std::uint64_t before = AllocatedBytes();
    const std::uint64_t resident = ResidentBytes();
    collector.Deliver();
    for (auto _ : state) state.SetIterationTime(0);
    state.counters[kOurs] = static_cast<double>(AllocatedBytes() - before) / shape.Samples();
    state.counters["resident"] = static_cast<double>(ResidentBytes() - resident) / shape.Samples();
    Fail(state, collector.Fault());
  });
}

}  // namespace bench
