// Poll files: a CSV with a header "time,KEY,NAME[:TYPE],..." and one line per row of a polled table.
#ifndef ZORSTAT_POLL_FILE_H_
#define ZORSTAT_POLL_FILE_H_

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "line_reader.h"
#include "table.h"

namespace zorstat {

class PollFileReader {
 public:
  // Reads the header.
  explicit PollFileReader(const std::string &path);
  // Of a text that is one poll and has no times: "KEY,NAME[:TYPE],..." and its rows.
  PollFileReader(const std::string &name, std::string_view text);

  const Table &table() const { return table_; }
  const LineReader &lines() const { return lines_; }

  // Reads a whole poll; false at the end of the file. Throws Error at a bad line. A header line that repeats the
  // first one, as where files were put together, is passed over. What has no times leaves the poll's alone.
  bool Next(Poll *poll);

 private:
  [[noreturn]] void Fail(std::string_view message) const;
  [[noreturn]] void FailAt(std::uint64_t line, std::string_view message) const;
  [[noreturn]] void FailFieldCount() const;
  void ReadHeader();
  void CheckName(const std::string &name, std::size_t field) const;
  Column ReadColumn(const std::string &field) const;
  bool TakeLine();
  bool ReadRows(Poll *poll);
  int64_t ReadTime() const;
  std::string_view ReadKey(const char **position);
  void ReadRow(Poll *poll);
  void RefuseRepeatedKeys(const Poll &poll);

  LineReader lines_;
  bool has_times_;
  Table table_;
  std::string header_;
  std::string_view line_;  // not yet taken into a poll when pending_
  bool pending_ = false;
  bool any_poll_ = false;
  int64_t last_time_ = 0;
  std::string unquoted_;
  std::vector<std::uint64_t> row_lines_;  // of the poll
  std::string known_keys_;                // of the poll before
};

// The time of a poll file's line, if it is not empty and no header. Throws Error, naming `file`.
std::optional<int64_t> LineTime(std::string_view line, const std::string &file);

std::string PollFileHeader(const Table &table);

// Appends the poll's lines. The keys are names. Throws Error for a time that a poll file cannot hold.
void AppendPollLines(const Table &table, const Poll &poll, std::string *text);

}  // namespace zorstat

#endif  // ZORSTAT_POLL_FILE_H_
