#include "contest.h"

#include <algorithm>
#include <utility>

namespace bench {
namespace {

double Quantile(const std::vector<double> &sorted, double share) {
  const double position = share * static_cast<double>(sorted.size() - 1);
  const auto index = static_cast<std::size_t>(position);
  const double next = sorted[std::min(index + 1, sorted.size() - 1)];
  return sorted[index] + (position - static_cast<double>(index)) * (next - sorted[index]);
}

double MeasureClockCost() {
  using Clock = std::chrono::steady_clock;
  std::vector<double> costs;
  for (int i = 0; i < 1001; ++i) {
    const auto start = Clock::now();
    costs.push_back(std::chrono::duration<double, std::nano>(Clock::now() - start).count());
  }
  std::sort(costs.begin(), costs.end());
  return Quantile(costs, 0.5);
}

}  // namespace

double ClockCost() {
  static const double cost = MeasureClockCost();
  return cost;
}

void Contest::Add(std::string name, std::function<double()> round, std::size_t max_rounds) {
  contestants_.push_back({std::move(name), std::move(round), max_rounds, {}});
}

void Contest::Round(std::size_t number) {
  for (Contestant &contestant : contestants_) {
    if (number < contestant.max_rounds) contestant.results.push_back(contestant.round());
  }
}

void Contest::Run(benchmark::State &state) {
  Round(0);
  for (Contestant &contestant : contestants_) contestant.results.clear();
  std::size_t number = 0;
  for (auto _ : state) {
    Round(number++);
    state.SetIterationTime(contestants_.front().results.back() * 1e-9);
  }
  for (Contestant &contestant : contestants_) {
    std::sort(contestant.results.begin(), contestant.results.end());
    state.counters[contestant.name] = Quantile(contestant.results, 0.5);
    state.counters[contestant.name + "_p25"] = Quantile(contestant.results, 0.25);
    state.counters[contestant.name + "_p75"] = Quantile(contestant.results, 0.75);
  }
}

void Register(const std::string &name, int rounds, std::function<void(benchmark::State &)> function) {
  benchmark::RegisterBenchmark(name.c_str(), std::move(function))->Iterations(rounds)->UseManualTime();
}

}  // namespace bench
