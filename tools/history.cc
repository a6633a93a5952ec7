#include "history.h"

#include <fmt/format.h>
#include <unistd.h>

#include <limits>
#include <memory>
#include <nlohmann/json.hpp>

#include "error.h"
#include "file.h"

namespace zorstat {
namespace {

using Json = nlohmann::json;

constexpr std::string_view kDatabaseHead = "SQLite format 3";

std::string TextOf(const Json &line, const char *field) { return line.at(field).get<std::string>(); }

Number NumberOf(const Json &value) {
  if (value.is_number_unsigned()) return value.get<std::uint64_t>();
  if (value.is_number_integer()) return value.get<std::int64_t>();
  throw Error("a whole number is missing");
}

std::uint64_t NaturalOf(const Json &value) {
  if (!value.is_number_unsigned()) throw Error("a whole number that is not negative is missing");
  return value.get<std::uint64_t>();
}

bool Has(const Json &line, const char *field) { return line.contains(field) && !line[field].is_null(); }

void ReadLine(std::string_view text, HistoryRow *row) {
  const Json line = Json::parse(text);
  row->time = static_cast<std::int64_t>(NumberOf(line.at("time")).bits());
  row->host = TextOf(line, "host");
  row->group = TextOf(line, "group");
  row->object = TextOf(line, "object");
  row->instance = TextOf(line, "instance");
  row->samples = Has(line, "samples") ? NaturalOf(line["samples"]) : 0;
  row->has_extremes = Has(line, "min");
  if (row->has_extremes) {
    row->min = NumberOf(line["min"]);
    row->max = NumberOf(line.at("max"));
    row->sum = NumberOf(line.at("sum"));
  }
  row->points = Has(line, "percentiles") ? line["percentiles"].get<std::vector<double>>() : std::vector<double>();
  row->low = Has(line, "low") ? std::optional(NumberOf(line["low"])) : std::nullopt;
  row->high = Has(line, "high") ? std::optional(NumberOf(line["high"])) : std::nullopt;
  row->outside = Has(line, "outside") ? NaturalOf(line["outside"]) : 0;
  row->resets = Has(line, "resets") ? NaturalOf(line["resets"]) : 0;
  row->range = std::nullopt;
  if (!Has(line, "buckets")) return;
  row->below = NaturalOf(line.at("below"));
  row->above = NaturalOf(line.at("above"));
  row->buckets.clear();
  for (const Json &count : line["buckets"]) row->buckets.push_back(static_cast<std::uint32_t>(NaturalOf(count)));
  row->range = {NumberOf(line.at("start")), NumberOf(line.at("last")), row->buckets.size()};
}

// Lines of a file or standard input.
class LineReader {
 public:
  explicit LineReader(const std::string &path)
      : name_(path == "-" ? "standard input" : path), fd_(path == "-" ? STDIN_FILENO : OpenForReading(path)) {}
  ~LineReader() {
    if (fd_ != STDIN_FILENO) close(fd_);
  }
  LineReader(const LineReader &) = delete;
  LineReader &operator=(const LineReader &) = delete;

  // The first bytes, which are read again as lines.
  std::string_view Head(std::size_t size) {
    while (buffer_.size() < size && Fill()) {
    }
    return std::string_view(buffer_).substr(0, size);
  }

  // The next line with its end; the last one may have none.
  std::optional<std::string_view> Next() {
    std::size_t end;
    std::size_t searched = start_;
    while ((end = buffer_.find('\n', searched)) == std::string::npos) {
      searched = buffer_.size() - start_;
      buffer_.erase(0, start_);
      start_ = 0;
      if (!Fill()) {
        if (buffer_.empty()) return std::nullopt;
        end = buffer_.size() - 1;
        break;
      }
    }
    ++line_;
    const std::string_view line = std::string_view(buffer_).substr(start_, end + 1 - start_);
    start_ = end + 1;
    return line;
  }

  std::string Place() const { return fmt::format("{}:{}", name_, line_); }

 private:
  bool Fill() {
    constexpr std::size_t kPiece = std::size_t{1} << 20;
    const std::size_t size = buffer_.size();
    buffer_.resize(size + kPiece);
    const std::size_t got = ReadSome(fd_, name_, buffer_.data() + size, kPiece);
    buffer_.resize(size + got);
    return got != 0;
  }

  std::string name_;
  int fd_;
  std::string buffer_;
  std::size_t start_ = 0;  // of what was not yet returned
  std::uint64_t line_ = 0;
};

void ReadJsonLines(LineReader *lines, const HistoryFilter &filter, const VisitRow &visit) {
  HistoryRow row;
  while (const auto line = lines->Next()) {
    try {
      ReadLine(*line, &row);
    } catch (const std::bad_alloc &) {
      throw;
    } catch (const std::exception &) {
      if (!line->ends_with('\n')) return;
      throw Error(lines->Place() + ": expected a line as --format jsonl writes it");
    }
    if (filter.Takes(row)) visit(row);
  }
}

}  // namespace

bool HistoryFilter::Takes(const HistoryRow &row) const {
  return (!host || row.host == *host) && (!group || row.group == *group) && (!object || row.object == *object) &&
         (!instance || row.instance == *instance) && (!from || row.time >= *from) && (!to || row.time < *to);
}

void ReadHistory(const std::string &path, const HistoryFilter &filter, const VisitRow &visit) {
  LineReader lines(path);
  if (lines.Head(kDatabaseHead.size()) == kDatabaseHead) {
    ReadSqlite(path, filter, visit);
  } else {
    ReadJsonLines(&lines, filter, visit);
  }
}

}  // namespace zorstat
