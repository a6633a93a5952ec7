// Inserting into one instance, whose records stay in the cache.

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <random>

#include "contest.h"
#include "peers.h"
#include "scenarios.h"
#include "zor/process.h"

namespace bench {
namespace {

constexpr std::uint32_t kType = ZOR_PROCESS_DATA_TYPE_UINT64 - 1;
constexpr std::uint64_t kRange[2] = {0, 999999};
constexpr std::uint32_t kBuckets = 100;

std::vector<std::uint64_t> UniformValues(std::size_t count, std::uint64_t low, std::uint64_t high) {
  std::mt19937_64 random;
  std::uniform_int_distribution<std::uint64_t> uniform(low, high);
  std::vector<std::uint64_t> values(count);
  std::generate(values.begin(), values.end(), [&] { return uniform(random); });
  return values;
}

// The 1,024 values of a batch stay in the first-level cache; and they leave a margin to the ends of the range,
// which a baseline cuts off. Batches stop well before a counter of 16 bits is full.
const std::vector<std::uint64_t> &Values() {
  static const std::vector<std::uint64_t> values = UniformValues(1024, 10000, 989999);
  return values;
}
constexpr std::uint32_t kBatches = 500;

// An entry as the engine would make it, and an oper entry to go with it.
class Entry {
 public:
  Entry(std::uint16_t flags, const void *range, std::uint32_t clear_count) {
    oper_.name = name_;
    oper_.dg_name = dg_name_;
    oper_.flags = flags;
    oper_.data_type = ZOR_PROCESS_DATA_TYPE_UINT64;
    record_ = static_cast<zor_process_object_instance_entry_uint64_t *>(g_zor_poi_entry_create_funcs[kType](
        "GigabitEthernet000/00001", 0, flags, range, kBuckets, clear_count, &oper_));
    if (!record_) std::abort();
  }
  ~Entry() { g_zor_poi_entry_destroy_funcs[kType](record_); }
  Entry(const Entry &) = delete;
  Entry &operator=(const Entry &) = delete;

  // Whether all values were taken and no period ended.
  bool InsertAll(const std::vector<std::uint64_t> &values) {
    const auto insert = g_zor_poi_entry_insert_funcs[kType];
    std::uint32_t period_ended = 0;
    std::int32_t failures = 0;
    for (const std::uint64_t &value : values) failures |= insert(record_, &value, &period_ended);
    return failures == 0 && period_ended == 0;
  }
  double Time(std::uint32_t batches) {
    bool good = true;
    const double time = Nanoseconds([&] {
      for (std::uint32_t i = 0; i < batches; ++i) good &= InsertAll(Values());
    });
    if (!good) failed_ = true;
    return time / (static_cast<double>(batches) * static_cast<double>(Values().size()));
  }
  void Clear() { g_zor_poi_entry_clear_funcs[kType](ZOR_PROCESS_FLAGS_CLEARED, record_, 0); }
  bool failed() const { return failed_; }
  zor_process_object_instance_entry_uint64_t &record() { return *record_; }

 private:
  char name_[10] = "counter_0", dg_name_[8] = "ifstats";
  zor_process_object_oper_entry_t oper_ = {};
  zor_process_object_instance_entry_uint64_t *record_;
  bool failed_ = false;
};

// Summary and distribution of one instance; it is emptied after each round.
class HotInsert {
 public:
  double Time() {
    const double time = entry_.Time(kBatches);
    const std::uint64_t inserted = kBatches * Values().size();
    good_ &= !entry_.failed() && entry_.record().summary->u32_no_of_samples == inserted &&
             entry_.record().range_counters->u16_no_of_samples == inserted % 65536;
    entry_.Clear();
    return time;
  }
  bool good() const { return good_; }

 private:
  Entry entry_{ZOR_PROCESS_FLAG_SUMMARY | ZOR_PROCESS_FLAG_DISTRIBUTION, kRange, 0};
  bool good_ = true;
};

// A baseline that has learnt its range. A period is 65,536 samples, of which the last one, which renders a record,
// is not timed.
class BaselineInsert {
 public:
  double Time() {
    constexpr std::uint32_t kPeriod = 65536;
    constexpr std::uint32_t kPeriods = 8;
    const auto batches = static_cast<std::uint32_t>(kPeriod / Values().size() - 1);
    Entry entry(ZOR_PROCESS_FLAG_BASELINE, nullptr, kPeriod);
    // The last sample of learning ends a period too.
    entry.InsertAll(UniformValues(kPeriod, kRange[0], kRange[1]));
    const stats_analyzer_uint64_t &analyzer = *entry.record().analyzer;
    good_ &= analyzer.stage == STATS_ANALYZER_ANALYZING && analyzer.summary.u32_no_of_samples == 0;
    double time = 0;
    for (std::uint32_t i = 0; i < kPeriods; ++i) {
      time += entry.Time(batches);
      good_ &= !entry.failed() && !entry.record().clear_buffer;
      entry.InsertAll(Values());
      good_ &= TakeRecord(entry);
    }
    good_ &= analyzer.summary.u32_no_of_samples == kPeriods * kPeriod &&
             analyzer.range_counters.u16_no_of_samples == kPeriods * kPeriod % 65536 &&
             analyzer.dynamic_counters.min_list.length + analyzer.dynamic_counters.max_list.length == 0;
    return time / kPeriods;
  }
  bool good() const { return good_; }

 private:
  static bool TakeRecord(Entry &entry) {
    char *text = g_zor_poi_entry_get_clear_buffer_funcs[kType](&entry.record());
    g_zor_poi_entry_set_clear_buffer_funcs[kType](&entry.record(), nullptr);
    const bool taken = text != nullptr;
    std::free(text);
    return taken;
  }

  bool good_ = true;
};

double TimeGsl(GslStatistics &statistics, const std::vector<double> &values, bool &good) {
  const double time = Nanoseconds([&] {
    for (std::uint32_t i = 0; i < kBatches; ++i) {
      for (const double value : values) statistics.Insert(value);
    }
  });
  const std::size_t inserted = kBatches * values.size();
  good &= statistics.count() == inserted && statistics.HistogramSum() == static_cast<double>(inserted);
  statistics.Clear();
  return time / static_cast<double>(inserted);
}

void RunHotInsert(benchmark::State &state) {
  const std::vector<double> values(Values().begin(), Values().end());
  HotInsert ours;
  GslStatistics gsl(kBuckets, kRange[1] + 1.0);
  bool gsl_good = true;
  Contest contest;
  contest.Add(kOurs, [&] { return ours.Time(); });
  contest.Add("gsl", [&] { return TimeGsl(gsl, values, gsl_good); });
  contest.Add("boost_density", [&] { return TimeBoostDensity(values, kBatches); });
  contest.Add("boost_extended_p_square", [&] { return TimeBoostExtendedPSquare(values, kBatches); });
  contest.Run(state);
  if (!ours.good()) state.SkipWithError("samples were not counted");
  if (!gsl_good) state.SkipWithError("GSL missed samples");
}

void RunBaselineInsert(benchmark::State &state) {
  BaselineInsert ours;
  HotInsert hot;
  Contest contest;
  contest.Add(kOurs, [&] { return ours.Time(); });
  contest.Add("hot_insert", [&] { return hot.Time(); });
  contest.Run(state);
  if (!ours.good() || !hot.good()) state.SkipWithError("samples were not counted");
}

}  // namespace

void RegisterInserts(const Options &options) {
  Register("hot_insert", options.Rounds(31), RunHotInsert);
  Register("baseline_insert", options.Rounds(31), RunBaselineInsert);
}

}  // namespace bench
