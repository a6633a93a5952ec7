// A command that writes a table to its standard output, run for each poll.
#ifndef ZORSTAT_COMMAND_TABLE_H_
#define ZORSTAT_COMMAND_TABLE_H_

#include <chrono>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "table.h"

namespace zorstat {

// Its output is a line "KEY,NAME[:TYPE],..." and then one per row. A poll whose run fails is left out with a note,
// of each kind of failure one until a run has gone well.
class CommandTable final : public PolledTable {
 public:
  // Runs the command, without a shell, for the columns and the first poll; throws Error without the columns. Each
  // run is ended after the limit.
  CommandTable(std::vector<std::string> command, std::chrono::seconds limit);

  const Table &table() const override { return table_; }
  const std::string &name() const override { return command_.front(); }
  bool Read(Poll *poll) override;

  enum class Failure { kNone, kStopped, kStart, kTime, kSize, kSignal, kStatus, kHeader, kRows };

 private:
  Failure Run(Poll *poll, std::string *message);

  std::vector<std::string> command_;
  std::chrono::seconds limit_;
  Table table_;
  std::string header_;
  Poll first_;
  std::optional<bool> has_first_;  // until it was read
  std::set<Failure> told_;
};

}  // namespace zorstat

#endif  // ZORSTAT_COMMAND_TABLE_H_
