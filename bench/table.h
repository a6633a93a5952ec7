// The table of ratios, with goals and verdicts.
#ifndef ZOR_BENCH_TABLE_H_
#define ZOR_BENCH_TABLE_H_

#include <benchmark/benchmark.h>

#include <map>
#include <string>
#include <vector>

namespace bench {

// Collects what the scenarios measured; a line on the standard error stream tells of each.
class Collected : public benchmark::BenchmarkReporter {
 public:
  bool ReportContext(const Context &) override { return true; }
  void ReportRuns(const std::vector<Run> &runs) override;

  void PrintTable() const;
  bool failed() const { return !errors_.empty(); }

 private:
  struct Goal;

  const double *Find(const std::string &scenario, const std::string &counter) const;
  void PrintGoal(const Goal &goal) const;

  std::map<std::string, std::map<std::string, double>> counters_;
  std::map<std::string, std::string> errors_;
};

// Writes JSON, in which names are those of the scenarios alone.
class Json : public benchmark::JSONReporter {
 public:
  void ReportRuns(const std::vector<Run> &runs) override;
};

}  // namespace bench

#endif  // ZOR_BENCH_TABLE_H_
