// The counter tables of the kernel: /proc/net/dev, /proc/diskstats and /proc/stat.
#ifndef ZORSTAT_PROC_TABLE_H_
#define ZORSTAT_PROC_TABLE_H_

#include <cstdint>
#include <functional>
#include <set>
#include <string>
#include <string_view>

#include "table.h"

namespace zorstat {

class ProcTable {
 public:
  // kind: "net", "disk" or "cpu". root: the directory of the proc file system.
  ProcTable(std::string_view kind, const std::string &root);

  const Table &table() const { return table_; }
  const std::string &path() const { return path_; }

  // Reads all rows into an emptied poll and leaves its time alone. A row whose key cannot stand in records, or has
  // come before, is left out; a note tells so, once for each key.
  void Read(Poll *poll);
  // The same from a text.
  void Parse(std::string_view text, Poll *poll);

 private:
  // Finds the key of a line and leaves its values in the line; false for a line that is not a row.
  using TakeKey = bool (*)(std::string_view *line, std::string_view *key);
  struct Kind;
  static const Kind kKinds[];
  void LeaveOut(std::uint64_t line, std::string_view key, std::string_view reason);

  Table table_;
  TakeKey take_key_ = nullptr;
  std::string path_;
  std::string text_;
  std::set<std::string, std::less<>> left_out_;  // keys
};

}  // namespace zorstat

#endif  // ZORSTAT_PROC_TABLE_H_
