// Feeds polls to the library and gathers its records.
#ifndef ZORSTAT_COLLECTOR_H_
#define ZORSTAT_COLLECTOR_H_

#include <cstdint>
#include <deque>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "group.h"
#include "settings.h"
#include "table.h"
#include "zor/engine.h"

namespace zorstat {

class Collector {
 public:
  // poll_interval in seconds. Delivers the template. The table must outlive the collector.
  Collector(const Table &table, const std::vector<ObjectPlan> &plans, const Settings &settings,
            const std::string &dg, uint32_t poll_interval);

  // Delivers the rows of a poll. `source` names their origin in errors.
  void AddRows(const Poll &poll, const std::string &source);

  // Ends the poll and appends the records that are due. Here and below: also those there are before an Error is
  // thrown.
  void EndPoll(std::string *records);

  // Appends the records of what the last clear, or a poll that failed, has left; called once, at the end.
  void Finish(std::string *records);

  // The console report of the interval in progress.
  std::string Report();

  // What the user should know of the run that is neither record nor error, a line each.
  std::vector<std::string> Notes();

 private:
  void Deliver(uint32_t kind, int32_t count, void **columns, const std::string &where);
  void InsertHeaders(size_t position, std::string *records);

  const Table &table_;
  std::deque<Group> groups_;
  std::optional<uint32_t> clear_polls_;
  std::optional<uint32_t> percentile_;
  NameList expected_instances_;
  bool headers_wanted_;
  std::set<std::string> headers_written_;
  uint32_t polls_since_clear_ = 0;
  bool rest_ = false;               // there is something since the last clear
  std::vector<uint64_t> learning_;  // instances, by group

  std::vector<zor_process_cell_t> cells_;  // of a row; the first is the key
  std::vector<void *> cell_pointers_;
};

}  // namespace zorstat

#endif  // ZORSTAT_COLLECTOR_H_
