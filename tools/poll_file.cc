#include "poll_file.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <iterator>
#include <limits>
#include <numeric>
#include <set>
#include <variant>

#include "error.h"
#include "text.h"

namespace zorstat {
namespace {

// Reads a number at the position. Returns where it ends, or null.
template <typename Number>
const char *ReadNumber(const char *position, const char *end, Value *value) {
  Number number;
  const auto [rest, error] = std::from_chars(position, end, number);
  if (error != std::errc()) return nullptr;
  *value = number;
  return rest;
}

const char *ReadValue(zor_process_data_type_t type, const char *position, const char *end, Value *value) {
  switch (type) {
    case ZOR_PROCESS_DATA_TYPE_INT32:
      return ReadNumber<int32_t>(position, end, value);
    case ZOR_PROCESS_DATA_TYPE_UINT32:
      return ReadNumber<uint32_t>(position, end, value);
    case ZOR_PROCESS_DATA_TYPE_INT64:
      return ReadNumber<int64_t>(position, end, value);
    case ZOR_PROCESS_DATA_TYPE_UINT64:
      return ReadNumber<uint64_t>(position, end, value);
  }
  return nullptr;
}

void AppendValue(const Value &value, std::string *text) {
  if (value) std::visit([&](auto number) { fmt::format_to(std::back_inserter(*text), "{}", number); }, *value);
}

// Records hold no later time. One in milliseconds is above it.
constexpr int64_t kLatest = std::numeric_limits<uint32_t>::max();
bool IsTime(int64_t time) { return time >= 0 && time <= kLatest; }

std::string TimeRefusal(std::string_view time) {
  return Refusal("time", Printable(time), fmt::format("whole seconds since 1970, at most {}", kLatest));
}

bool IsHeader(std::string_view line) { return line.substr(0, 5) == "time,"; }

}  // namespace

PollFileReader::PollFileReader(const std::string &path) : lines_(path), has_times_(true) { ReadHeader(); }

PollFileReader::PollFileReader(const std::string &name, std::string_view text)
    : lines_(name, text), has_times_(false) {
  ReadHeader();
}

bool PollFileReader::TakeLine() {
  do {
    if (!lines_.Next(&line_)) return false;
    // Spreadsheets write a byte-order mark.
    if (line_.substr(0, 3) == "\xef\xbb\xbf") line_.remove_prefix(3);
  } while (line_ == header_ && !header_.empty());
  return true;
}

void PollFileReader::Fail(std::string_view message) const { FailAt(lines_.line_number(), message); }

void PollFileReader::FailAt(std::uint64_t line, std::string_view message) const {
  throw Error(fmt::format("{}:{}: {}", lines_.name(), line, message));
}

void PollFileReader::ReadHeader() {
  if (!TakeLine()) throw Error(fmt::format("{}: is empty (expected a header line)", lines_.name()));
  header_ = line_;
  const std::vector<std::string> fields = Split(header_, ',');
  const std::size_t key = has_times_ ? 1 : 0;  // its field
  if (has_times_ && fields[0] != "time") Fail(Refusal("header", Printable(fields[0]), "'time' as its first field"));
  if (fields.size() < key + 2) {
    Fail(fmt::format("header: expected {}KEY,NAME[:TYPE],...", has_times_ ? "time," : ""));
  }
  std::set<std::string> names;
  for (size_t i = 0; i < fields.size(); ++i) {
    Column column = i <= key ? Column{fields[i]} : ReadColumn(fields[i]);
    CheckName(column.name, i + 1);
    if (!names.insert(column.name).second) {
      Fail(Refusal("header", Printable(column.name), "each column name only once"));
    }
    if (i == key) table_.key = column.name;
    if (i > key) table_.columns.push_back(std::move(column));
  }
}

// Of a field of the header, counted from 1.
void PollFileReader::CheckName(const std::string &name, std::size_t field) const {
  if (name.empty()) Fail(fmt::format("header: field {} has no name", field));
  if (!IsName(name)) Fail(Refusal("header", Printable(name), kName));
  if (name[0] == '"') Fail(Refusal("header", Printable(name), "a name without quotes"));
}

// NAME or NAME:TYPE.
Column PollFileReader::ReadColumn(const std::string &field) const {
  const size_t colon = field.rfind(':');
  if (colon == std::string::npos) return {field};
  const std::string type_name = field.substr(colon + 1);
  const auto type = TypeOfName(type_name);
  if (!type) Fail(Refusal("header: type", Printable(type_name), "i32, u32, i64 or u64"));
  return {field.substr(0, colon), *type};
}

bool PollFileReader::Next(Poll *poll) {
  poll->Clear();
  row_lines_.clear();
  if (!has_times_) return ReadRows(poll);
  if (!pending_) pending_ = TakeLine();
  if (!pending_) return false;
  if (IsHeader(line_)) Fail(Refusal("header", Printable(line_), "that of the first line, or a row"));
  poll->time = ReadTime();
  poll->first_line = lines_.line_number();
  if (any_poll_ && poll->time < last_time_) {
    Fail(fmt::format("time {} goes back (expected {} or later)", poll->time, last_time_));
  }
  any_poll_ = true;
  last_time_ = poll->time;
  // A line of another time, good or bad, ends this poll and is looked at by the next call.
  do {
    row_lines_.push_back(lines_.line_number());
    ReadRow(poll);
    pending_ = TakeLine();
  } while (pending_ && !IsHeader(line_) && ReadTime() == poll->time);
  RefuseRepeatedKeys(*poll);
  return true;
}

bool PollFileReader::ReadRows(Poll *poll) {
  while (TakeLine()) {
    row_lines_.push_back(lines_.line_number());
    ReadRow(poll);
  }
  RefuseRepeatedKeys(*poll);
  return poll->rows() != 0;
}

void PollFileReader::RefuseRepeatedKeys(const Poll &poll) {
  if (poll.keys() == known_keys_) return;  // so in most polls
  std::vector<std::size_t> rows(poll.rows());
  std::iota(rows.begin(), rows.end(), std::size_t{0});
  const auto key = [&](std::size_t row) { return std::string_view(poll.key(row)); };
  std::stable_sort(rows.begin(), rows.end(), [&](auto a, auto b) { return key(a) < key(b); });
  const auto same = [&](auto a, auto b) { return key(a) == key(b); };
  const auto first = std::adjacent_find(rows.begin(), rows.end(), same);
  if (first != rows.end()) {
    FailAt(row_lines_[first[1]],
           Refusal(table_.key, Printable(key(*first)),
                   fmt::format("each key once in a poll (it is in line {}, too)", row_lines_[first[0]])));
  }
  known_keys_ = poll.keys();
}

int64_t PollFileReader::ReadTime() const {
  const std::string_view field = line_.substr(0, line_.find(','));
  const auto time = ParseNumber<int64_t>(field);
  if (!time || !IsTime(*time)) Fail(TimeRefusal(field));
  return *time;
}

void PollFileReader::FailFieldCount() const {
  size_t fields = 1;
  bool quoted = false;
  for (const char c : line_) {
    if (c == '"') quoted = !quoted;
    if (c == ',' && !quoted) ++fields;
  }
  const size_t values = table_.columns.size();
  Fail(fmt::format("{} field{} (expected {}: {}{} and {} value{})", fields, fields == 1 ? "" : "s",
                   values + (has_times_ ? 2 : 1), has_times_ ? "time, " : "", table_.key, values,
                   values == 1 ? "" : "s"));
}

// Takes the key field at the position and leaves the position behind it. Quotes count only at the field's start.
std::string_view PollFileReader::ReadKey(const char **position) {
  const char *end = line_.data() + line_.size();
  const char *start = *position;
  if (start == end || *start != '"') {
    *position = std::find(start, end, ',');
    return {start, static_cast<size_t>(*position - start)};
  }
  unquoted_.clear();
  for (++start;; ++start) {
    const char *quote = std::find(start, end, '"');
    if (quote == end) Fail(fmt::format("{}: closing quote is missing", table_.key));
    unquoted_.append(start, quote);
    start = quote + 1;
    if (start == end || *start != '"') break;
    unquoted_.push_back('"');
  }
  if (start != end && *start != ',') Fail(fmt::format("{}: text behind the closing quote", table_.key));
  *position = start;
  return unquoted_;
}

void PollFileReader::ReadRow(Poll *poll) {
  const char *end = line_.data() + line_.size();
  const char *position = line_.data();
  if (has_times_) {
    position = std::find(position, end, ',');
    if (position == end) FailFieldCount();
    ++position;
  }
  const std::string_view key = ReadKey(&position);
  if (key.empty()) Fail(fmt::format("{}: is empty", table_.key));
  if (!IsName(key)) Fail(Refusal(table_.key, Printable(key), kName));
  Value *value = poll->AddRow(key, table_.columns.size());
  for (const Column &column : table_.columns) {
    if (position == end) FailFieldCount();
    ++position;
    if (position != end && *position != ',') {
      const char *rest = ReadValue(column.type, position, end, value);
      if (rest == nullptr || (rest != end && *rest != ',')) {
        const std::string_view field(position, static_cast<size_t>(std::find(position, end, ',') - position));
        Fail(Refusal(column.name, Printable(field), TypeValues(column.type)));
      }
      position = rest;
    }
    ++value;
  }
  if (position != end) FailFieldCount();
}

std::optional<int64_t> LineTime(std::string_view line, const std::string &file) {
  if (line.empty() || IsHeader(line)) return std::nullopt;
  const std::string_view field = line.substr(0, line.find(','));
  const auto time = ParseNumber<int64_t>(field);
  if (!time || !IsTime(*time)) throw Error(fmt::format("{}: last line: {}", file, TimeRefusal(field)));
  return time;
}

std::string PollFileHeader(const Table &table) {
  std::string text = "time," + table.key;
  for (const Column &column : table.columns) {
    text += "," + column.name;
    // A name with a colon is read back only with its type behind it.
    const bool plain = column.name.find(':') == std::string::npos;
    if (column.type != ZOR_PROCESS_DATA_TYPE_UINT64 || !plain) text += fmt::format(":{}", TypeName(column.type));
  }
  text += "\n";
  return text;
}

void AppendPollLines(const Table &table, const Poll &poll, std::string *text) {
  if (!IsTime(poll.time)) throw Error(TimeRefusal(std::to_string(poll.time)));
  for (size_t row = 0; row < poll.rows(); ++row) {
    const std::string_view key = poll.key(row);
    fmt::format_to(std::back_inserter(*text), "{},", poll.time);
    AppendCsvField(key, text);
    for (size_t i = 0; i < table.columns.size(); ++i) {
      text->push_back(',');
      AppendValue(poll.values(row)[i], text);
    }
    text->push_back('\n');
  }
}

}  // namespace zorstat
