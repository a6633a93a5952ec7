// One object of the library: its engine, its data group, and what comes out of them.
#ifndef ZORSTAT_GROUP_H_
#define ZORSTAT_GROUP_H_

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "settings.h"
#include "zor/engine.h"

namespace zorstat {

// A refused value latches its whole data group and ends the row that it came in. So each object has a data group
// to itself, and, for all of them to have the name that the user chose, an engine to itself.
class Group {
 public:
  Group(const std::string &dg, const std::string &object, const ObjectPlan &plan, uint32_t poll_interval,
        std::optional<uint32_t> clear_polls);
  ~Group();
  Group(const Group &) = delete;
  Group &operator=(const Group &) = delete;

  const std::string &object() const { return object_; }
  bool is_baseline() const { return statistics_ == ZOR_PROCESS_FLAG_BASELINE; }
  bool has_buckets() const { return HasBuckets(statistics_); }
  uint64_t refused() const { return refused_; }

  // Takes a template, row or end of poll. Throws Error, of which `where` is to tell the place, if the library
  // fails; a value that an instance refuses is only counted.
  void Process(const zor_process_msg_t &message, const std::string &where);

  // Appends the records that stand in clear buffers. Here and below: also those there are before an Error is
  // thrown.
  void TakeRecords(std::string *records);

  // Appends the records of what was counted since the last clear or, for a baseline, since its last record. Returns
  // the number of instances whose baseline is still learning.
  uint64_t TakeRest(std::string *records);

  // The Schema-def headers, two lines per record kind; empty while there is no instance.
  std::string Headers();

  std::string Report(const std::optional<uint32_t> &percentile);

  // Whether an instance of this name has been counted.
  bool HasInstance(const std::string &name);

 private:
  std::string ReportOnce(const std::optional<uint32_t> &percentile);
  void Configure(const ObjectPlan &plan, uint32_t poll_interval, std::optional<uint32_t> clear_polls);
  zor_process_data_cursor_t Start() const;
  template <typename Visit>
  void ForEachInstance(uint32_t output_mode, Visit visit);
  void Clear(uint16_t mask, const std::string &where);

  zor_process_engine_t engine_{};
  std::string dg_;
  std::string object_;
  uint16_t statistics_;
  uint64_t refused_ = 0;
};

}  // namespace zorstat

#endif  // ZORSTAT_GROUP_H_
