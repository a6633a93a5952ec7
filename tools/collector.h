// Feeds polls to the library and gathers its records.
#ifndef ZORSTAT_COLLECTOR_H_
#define ZORSTAT_COLLECTOR_H_

#include <array>
#include <cstdint>
#include <functional>
#include <map>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <set>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "readings.h"
#include "settings.h"
#include "table.h"
#include "workers.h"
#include "zor/process.hpp"

namespace zorstat {

class Collector {
 public:
  // The run must outlive the collector. Objects are counted on so many cores. Throws Error, here and below, if the
  // library fails.
  Collector(const Run &run, const Settings &settings, bool keep_readings, std::size_t cores = 1);

  // Begins a poll and delivers its rows. `source` names their origin in errors. Where there are several cores, one
  // of them does `meanwhile`.
  void AddRows(const Poll &poll, const std::string &source, const std::function<void()> &meanwhile = {});

  // Ends the poll and appends the records that are due. Here and below: also those there are before an Error is
  // thrown.
  void EndPoll(std::string *records);

  // Ends the interval in progress now, if it has polls, as its last poll would, and appends its records.
  void Clear(std::string *records);

  // Headers are due again, as at the start of a file.
  void RepeatHeaders();

  // Appends the records of what the last clear, or a poll that failed, has left; called once, at the end.
  void Finish(std::string *records);

  // What is known behind a poll, so that a run of the same settings can go on from there.
  nlohmann::json Save() const;

  // Goes on from there, before the first poll; counters may have been reset meanwhile. False, or an exception of
  // json, when this is no such state; the collector is of no use then.
  bool Load(const nlohmann::json &state, zor::process::Counters counters);

  // When the next run goes on: takes note of what is to be said at the end.
  void Pause();

  // Whether the last poll has ended an interval.
  bool is_cleared() const { return polls_since_clear_ == 0; }

  // The time of the last poll, 0 before it.
  std::int64_t last_time() const { return last_time_; }

  // The readings of the interval that has ended since the last call, if they are kept.
  std::optional<IntervalReadings> TakeInterval();

  // Those of the one in progress.
  std::vector<ObjectReadings> InProgress() const;

  // The console report of the interval in progress.
  std::string Report() const;

  // What the user should know of the run that is neither record nor error, a line each.
  std::vector<std::string> Notes() const;

 private:
  // Samples that a learnt range was held against, and those outside it.
  using Judged = std::array<std::uint64_t, 2>;

  // An object is a group of its own, so that a clear or a baseline that fails is its own affair; beside other
  // statistics of a column a baseline is another object. For all groups to have the name that the user chose, each
  // has an engine, which lives with it.
  struct Object {
    std::string name;
    const ObjectPlan *plan;
    zor::process::Statistics statistics;
    zor::process::Group group;
    zor::process::Column<zor::process::Value> column;
    std::optional<zor::process::Poll> poll = std::nullopt;
    std::string records = {};       // to be appended to those of the objects before
    bool has_value = false;         // or all cells of its column were empty
    std::uint64_t refused = 0;      // values, up to its last records
    std::uint64_t percentiles = 0;  // records of them with samples; unknown ones have nine zeros for other values
    std::map<std::string, std::uint64_t> unknown = {};  // by reason
    std::size_t learning = 0;                           // instances, at the end
    std::vector<Reading> ended = {};                    // of a baseline, at the end
    std::map<std::string, Judged> judged = {};          // of baselines, up to the end of the last interval
  };

  Object MakeObject(const ObjectPlan &plan) const;
  template <class Do>
  void Collect(Do do_it, bool is_much, std::string *records);
  static void AddRows(const Poll &poll, const std::string &source, std::span<Object> objects);
  template <class Read>
  std::vector<ObjectReadings> Join(Read read) const;
  void BeginInterval();
  void KeepReadings();
  void FinishObject(Object &object) const;
  void TakeRecords(Object &object) const;
  static Judged JudgedIn(const Reading &baseline);
  static const char *WhyUnknown(const Object &object);
  void NoteCounts(std::vector<std::string> *notes) const;
  void NoteInput(std::vector<std::string> *notes) const;
  void FindMissing();
  bool IsFirstOfColumn(const Object &object) const;
  void InsertHeaders(std::size_t position, std::string *records);

  const Run &run_;
  Workers workers_;
  bool is_shared_ = false;  // the poll in hand is large enough for that
  std::vector<Object> objects_;
  std::optional<std::uint32_t> clear_polls_;
  std::optional<std::uint32_t> percentile_;
  std::uint32_t expire_ = 0;    // intervals without a value; 0: never
  NameList missing_instances_;  // of the wanted ones, those without a value so far
  const bool has_headers_;
  bool headers_wanted_;
  bool keep_readings_;
  std::optional<IntervalReadings> interval_;
  std::int64_t last_time_ = 0;  // of a poll
  std::set<std::string> headers_written_;
  std::uint32_t polls_since_clear_ = 0;
  bool rest_ = false;  // there is something since the last clear
  bool any_row_ = false;
};

}  // namespace zorstat

#endif  // ZORSTAT_COLLECTOR_H_
