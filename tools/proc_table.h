// Tables of the kernel: files of the proc file system, and its processes.
#ifndef ZORSTAT_PROC_TABLE_H_
#define ZORSTAT_PROC_TABLE_H_

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "table.h"

namespace zorstat {

class ProcTable : public PolledTable {
 public:
  struct Kind;
  struct Quantity;
  struct Line;

  // source: a name, or the message for others has those that there are, and perhaps one more. root: the directory
  // of the proc file system.
  ProcTable(std::string_view source, const std::string &root, const char *one_more = nullptr);

  const Table &table() const override { return table_; }
  const std::string &name() const override { return paths_.empty() ? root_ : paths_.front(); }

  // A row whose key cannot stand in records, or has come before, is left out; a note tells so, once for each key.
  bool Read(Poll *poll) override;
  std::string Boot() const override;

  // Adds the rows of a file with this text.
  void Parse(const std::string &path, std::string_view text, Poll *poll);
  // Adds the row of a process: of the texts of its files stat and, if it may be read, io.
  void ParseProcess(const std::string &directory, std::string_view stat, std::string_view io, Poll *poll);

 private:
  void ReadProcesses(Poll *poll);
  void TakeInOrder(std::string_view names, Line *line);
  void TakePairs(Line *line);
  void TakePairLines(const std::string &path, std::string_view text);
  std::optional<std::size_t> Find(std::string_view name);
  void AddValue(std::size_t column, std::string_view word, Line *line);
  void AddRow(std::string_view key, Poll *poll);
  void LeaveOut(const Line &line, std::string_view key, std::string_view reason);

  const Kind *kind_ = nullptr;
  Table table_;
  std::vector<const Quantity *> quantities_;  // of the columns
  std::size_t found_ = 0;                     // that was looked for last
  std::vector<Value> row_;                    // being read
  std::string root_;
  std::vector<std::string> paths_;
  std::string text_, io_;
  std::set<std::string, std::less<>> left_out_;  // keys
};

}  // namespace zorstat

#endif  // ZORSTAT_PROC_TABLE_H_
