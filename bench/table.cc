#include "table.h"

#include <cstdio>
#include <cstring>

#include "contest.h"

namespace bench {
namespace {

// What a limit bounds.
enum class Judged {
  kNothing,  // shown for information
  kRatio,    // ours / peer, at most
  kFaster,   // peer / ours, at least
  kValue     // ours itself, at most
};

bool IsMedian(const std::string &counter) {
  return counter.find("_p25") == std::string::npos && counter.find("_p75") == std::string::npos;
}

}  // namespace

struct Collected::Goal {
  const char *what;
  const char *scenario;
  const char *unit;
  const char *ours;
  const char *peer;
  Judged judged;
  double limit;
};

void Collected::ReportRuns(const std::vector<Run> &runs) {
  for (const Run &run : runs) {
    const std::string &name = run.run_name.function_name;
    if (run.error_occurred) {
      errors_[name] = run.error_message;
      std::fprintf(stderr, "%s: FAILED, %s\n", name.c_str(), run.error_message.c_str());
      continue;
    }
    std::fprintf(stderr, "%s:", name.c_str());
    for (const auto &[counter, value] : run.counters) {
      counters_[name][counter] = value;
      if (IsMedian(counter)) std::fprintf(stderr, " %s %.5g", counter.c_str(), static_cast<double>(value));
    }
    std::fputc('\n', stderr);
  }
}

const double *Collected::Find(const std::string &scenario, const std::string &counter) const {
  const auto counters = counters_.find(scenario);
  if (counters == counters_.end() || errors_.count(scenario)) return nullptr;
  const auto value = counters->second.find(counter);
  return value == counters->second.end() ? nullptr : &value->second;
}

void Collected::PrintGoal(const Goal &goal) const {
  const double *ours = Find(goal.scenario, goal.ours);
  const double *peer = goal.peer ? Find(goal.scenario, goal.peer) : nullptr;
  if (!ours || (goal.peer && !peer)) {
    const bool broken = errors_.count(goal.scenario) != 0;
    if (goal.judged != Judged::kNothing || broken) {
      std::printf("%-40s %64s\n", goal.what, broken ? "FAILED" : "not run");
    }
    return;
  }
  std::printf("%-40s %9.2f %-14s", goal.what, *ours, goal.unit);
  double judged = *ours;
  if (peer) {
    judged = goal.judged == Judged::kFaster ? *peer / *ours : *ours / *peer;
    char ratio[32];
    std::snprintf(ratio, sizeof ratio, "%.3g x", judged);
    std::printf(" %10.2f %-23s %9s", *peer, goal.peer, ratio);
  } else {
    std::printf(" %10s %-23s %9s", "", "", "");
  }
  if (goal.judged != Judged::kNothing) {
    const bool at_least = goal.judged == Judged::kFaster;
    char limit[32];
    std::snprintf(limit, sizeof limit, "%s %g%s", at_least ? ">=" : "<=", goal.limit, peer ? " x" : "");
    const bool met = at_least ? judged >= goal.limit : judged <= goal.limit;
    std::printf(" %9s  %s", limit, met ? "met" : "NOT MET");
  }
  std::putchar('\n');
}

void Collected::PrintTable() const {
  static constexpr Goal kGoals[] = {
      {"rows in stable order, 100 x 10", "rows_stable/100", "ns/sample", kOurs, nullptr, Judged::kValue, 9},
      {"  against", "rows_stable/100", "ns/sample", kOurs, "floor", Judged::kRatio, 2},
      {"rows in stable order, 100,000 x 10", "rows_stable/100000", "ns/sample", kOurs, "floor", Judged::kRatio, 2},
      {"rows in stable order, 1,000,000 x 10", "rows_stable/1000000", "ns/sample", kOurs, "floor", Judged::kRatio,
       2},
      {"  100,000 x 10 against", "rows_stable/100000", "ns/sample", kOurs, "prometheus_family", Judged::kFaster,
       20},
      {"  100,000 x 10 against", "rows_stable/100000", "ns/sample", kOurs, "boost_density", Judged::kNothing, 0},
      {"rows shuffled, 100 x 10", "rows_shuffled/100", "ns/sample", kOurs, "floor", Judged::kRatio, 2.5},
      {"rows shuffled, 100,000 x 10", "rows_shuffled/100000", "ns/sample", kOurs, "floor", Judged::kRatio, 2.2},
      {"rows shuffled, 1,000,000 x 10", "rows_shuffled/1000000", "ns/sample", kOurs, "floor", Judged::kRatio, 2.2},
      {"an engine in each of 2 threads", "threads/2", "ns/sample", kOurs, "one_thread", Judged::kNothing, 0},
      {"an engine in each of 4 threads", "threads/4", "ns/sample", kOurs, "one_thread", Judged::kNothing, 0},
      {"an engine in each of 8 threads", "threads/8", "ns/sample", kOurs, "one_thread", Judged::kNothing, 0},
      {"one hot instance", "hot_insert", "ns/sample", kOurs, "gsl", Judged::kRatio, 2},
      {"  against", "hot_insert", "ns/sample", kOurs, "boost_density", Judged::kNothing, 0},
      {"  against", "hot_insert", "ns/sample", kOurs, "boost_extended_p_square", Judged::kNothing, 0},
      {"baseline after learning", "baseline_insert", "ns/sample", kOurs, "hot_insert", Judged::kRatio, 3},
      {"allocations, rows in stable order", "allocations/rows_stable", "per sample", kOurs, nullptr, Judged::kValue,
       0},
      {"allocations, rows shuffled", "allocations/rows_shuffled", "per sample", kOurs, nullptr, Judged::kValue, 0},
      {"nine percentiles, range of 2^10", "percentiles/width", "ns", "ours_10", "gsl_10", Judged::kRatio, 1},
      {"nine percentiles, range of 2^20", "percentiles/width", "ns", "ours_20", "gsl_20", Judged::kRatio, 1},
      {"nine percentiles, range of 2^30", "percentiles/width", "ns", "ours_30", "gsl_30", Judged::kRatio, 1},
      {"nine percentiles, range of 2^40", "percentiles/width", "ns", "ours_40", "gsl_40", Judged::kRatio, 1},
      {"nine percentiles, range of 2^50", "percentiles/width", "ns", "ours_50", "gsl_50", Judged::kRatio, 1},
      {"nine percentiles, range of 2^64", "percentiles/width", "ns", "ours_64", "gsl_64", Judged::kRatio, 1},
      // No growth, that is: within the noise of the measurement.
      {"  growth: 2^64 against 2^10", "percentiles/width", "ns", "ours_64", "ours_10", Judged::kRatio, 1.1},
      {"clear of a data group", "clear", "ns/statistic", kOurs, nullptr, Judged::kValue, 500},
      {"  against", "clear", "ns/statistic", kOurs, "floor", Judged::kRatio, 3},
      {"  against", "clear", "ns/statistic", kOurs, "prometheus_text", Judged::kRatio, 0.1},
      {"  collecting the clear buffers", "clear", "ns/statistic", "collect", nullptr, Judged::kNothing, 0},
      {"  walking when nothing is due", "clear", "ns/instance", "idle_walk", nullptr, Judged::kNothing, 0},
      {"scrape, 50 x 10, 20 edges", "scrape/50_20", "ms", kOurs, "prometheus_metrics", Judged::kNothing, 0},
      {"  making it after a poll", "scrape/50_20", "ms", "make", nullptr, Judged::kNothing, 0},
      {"  bytes", "scrape/50_20", "kB", "bytes", "prometheus_metrics_bytes", Judged::kNothing, 0},
      {"scrape, 50 x 10, 100 edges", "scrape/50_100", "ms", kOurs, "prometheus_metrics", Judged::kNothing, 0},
      {"  making it after a poll", "scrape/50_100", "ms", "make", nullptr, Judged::kNothing, 0},
      {"  bytes", "scrape/50_100", "kB", "bytes", "prometheus_metrics_bytes", Judged::kNothing, 0},
      {"scrape, 1,000 x 10, 20 edges", "scrape/1000_20", "ms", kOurs, "prometheus_metrics", Judged::kNothing, 0},
      {"  making it after a poll", "scrape/1000_20", "ms", "make", nullptr, Judged::kNothing, 0},
      {"  bytes", "scrape/1000_20", "kB", "bytes", "prometheus_metrics_bytes", Judged::kNothing, 0},
      {"scrape, 1,000 x 10, 100 edges", "scrape/1000_100", "ms", kOurs, "prometheus_metrics", Judged::kNothing, 0},
      {"  making it after a poll", "scrape/1000_100", "ms", "make", nullptr, Judged::kNothing, 0},
      {"  bytes", "scrape/1000_100", "kB", "bytes", "prometheus_metrics_bytes", Judged::kNothing, 0},
      {"memory per statistic, 100 buckets", "memory", "bytes", kOurs, nullptr, Judged::kValue, 448},
      {"  growth of the resident set", "memory", "bytes", "resident", nullptr, Judged::kNothing, 0},
  };
  std::printf("%-40s %9s %-14s %10s %-23s %9s %9s\n", "scenario", "ours", "", "peer", "", "ratio", "goal");
  for (const Goal &goal : kGoals) PrintGoal(goal);
}

void Json::ReportRuns(const std::vector<Run> &runs) {
  std::vector<Run> renamed = runs;
  for (Run &run : renamed) {
    run.run_name.iterations.clear();
    run.run_name.time_type.clear();
  }
  benchmark::JSONReporter::ReportRuns(renamed);
}

}  // namespace bench
