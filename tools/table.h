// Polled tables: their columns, the rows of a poll, and where rows are taken when a poll is due.
#ifndef ZORSTAT_TABLE_H_
#define ZORSTAT_TABLE_H_

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "units.h"
#include "zor/process/table.hpp"

namespace zorstat {

struct Column {
  std::string name;
  zor_process_data_type_t type = ZOR_PROCESS_DATA_TYPE_UINT64;
  bool cumulative = false;
  Unit unit = {};  // of its samples
};

struct Table {
  std::string key;
  std::vector<Column> columns;
};

// A value in the type of its column, or none.
using Value = std::optional<zor::process::Value>;

// Reused from poll to poll, so that reading allocates only while tables grow.
class Poll {
 public:
  void Clear() {
    keys_.clear();
    key_starts_.clear();
    values_.clear();
  }

  // Returns the row's `columns` values, all absent; valid until the next row is added.
  Value *AddRow(std::string_view key, std::size_t columns) {
    columns_ = columns;
    key_starts_.push_back(keys_.size());
    keys_.append(key);
    keys_.push_back('\0');
    values_.resize(values_.size() + columns);
    return values_.data() + values_.size() - columns;
  }

  std::size_t rows() const { return key_starts_.size(); }
  std::string_view keys() const { return keys_; }  // of all rows, each ended by NUL
  const char *key(std::size_t row) const { return keys_.data() + key_starts_[row]; }
  const Value *values(std::size_t row) const { return values_.data() + row * columns_; }

  std::int64_t time = 0;         // seconds since the epoch
  std::uint64_t first_line = 0;  // of the file it was read from; each row is one line

 private:
  std::size_t columns_ = 0;
  std::string keys_;
  std::vector<std::size_t> key_starts_;
  std::vector<Value> values_;
};

// A table that is there to be polled.
class PolledTable {
 public:
  virtual ~PolledTable() = default;
  virtual const Table &table() const = 0;
  virtual const std::string &name() const = 0;  // for messages

  // Reads all rows into an emptied poll, whose time is changed if they were there before. False if this poll is to
  // be left out, which was told.
  virtual bool Read(Poll *poll) = 0;

  // Changes whenever the counters begin anew all together; empty where that cannot be known.
  virtual std::string Boot() const { return ""; }
};

}  // namespace zorstat

#endif  // ZORSTAT_TABLE_H_
