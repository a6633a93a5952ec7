// Measuring things side by side: their rounds take turns, so that whatever slows the machine down for a while slows
// all of them down, and each is judged by the median of its rounds.
#ifndef ZOR_BENCH_CONTEST_H_
#define ZOR_BENCH_CONTEST_H_

#include <benchmark/benchmark.h>

#include <chrono>
#include <functional>
#include <limits>
#include <string>
#include <vector>

namespace bench {

inline constexpr const char *kOurs = "ours";

// What reading the clock adds to a time.
double ClockCost();

template <class F>
double Nanoseconds(const F &work) {
  const double clock = ClockCost();
  const auto start = std::chrono::steady_clock::now();
  work();
  return std::chrono::duration<double, std::nano>(std::chrono::steady_clock::now() - start).count() - clock;
}

class Contest {
 public:
  // `round` does a round and returns its nanoseconds per unit of work. A slow contestant can sit out all rounds but
  // the first few. The contestants of a round start in the order in which they were added.
  void Add(std::string name, std::function<double()> round,
           std::size_t max_rounds = std::numeric_limits<std::size_t>::max());

  // Runs as many rounds as the benchmark has iterations, after one that does not count, and gives the benchmark
  // counters: <name> is a contestant's median, <name>_p25 and <name>_p75 are the quartiles. The time that the
  // benchmark itself shows is that of the first contestant.
  void Run(benchmark::State &state);

 private:
  struct Contestant {
    std::string name;
    std::function<double()> round;
    std::size_t max_rounds;
    std::vector<double> results;
  };

  void Round(std::size_t number);

  std::vector<Contestant> contestants_;
};

// Registers a benchmark of so many rounds, whose function calls Contest::Run().
void Register(const std::string &name, int rounds, std::function<void(benchmark::State &)> function);

}  // namespace bench

#endif  // ZOR_BENCH_CONTEST_H_
