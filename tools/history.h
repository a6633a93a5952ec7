// What runs have left: a row per interval and instance, in a database of --sqlite or as JSON Lines.
#ifndef ZORSTAT_HISTORY_H_
#define ZORSTAT_HISTORY_H_

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "zor/process/readings.hpp"

namespace zorstat {

using zor::process::Number;

// Buckets of the same width, but for the rounding. Distributions can be added where these are the same.
struct BucketRange {
  Number start, last;     // both included
  std::size_t count = 0;  // of the buckets

  bool operator==(const BucketRange &) const = default;
};

struct HistoryRow {
  std::int64_t time = 0;  // of the interval's last poll, seconds since 1970
  std::string host, group, object, instance;
  std::uint64_t samples = 0;
  bool has_extremes = false;  // and a sum, which go with a summary
  Number min, max, sum;
  std::optional<BucketRange> range;
  std::uint64_t below = 0, above = 0;  // samples beyond it
  std::vector<std::uint32_t> buckets;  // samples in each
};

// Which rows: those that have all that is set here.
struct HistoryFilter {
  std::optional<std::string> host, group, object, instance;
  std::optional<std::int64_t> from, to;  // times; to is not included

  bool Takes(const HistoryRow &row) const;
};

using VisitRow = std::function<void(const HistoryRow &)>;

// Visits the rows of a database, or of a file or standard input ("-") of JSON Lines. Throws Error, also behind rows
// that were visited. A last line without its end is passed over: it is being written.
void ReadHistory(const std::string &path, const HistoryFilter &filter, const VisitRow &visit);

// Of a database. Throws SettingsError where the program is built without SQLite.
void ReadSqlite(const std::string &path, const HistoryFilter &filter, const VisitRow &visit);

// The numbers of an array as it stands in JSON. False if it is none.
bool ReadCounts(std::string_view text, std::vector<std::uint32_t> *counts);

}  // namespace zorstat

#endif  // ZORSTAT_HISTORY_H_
