#include "history.h"

#include <fmt/format.h>

#include <limits>
#include <memory>
#include <nlohmann/json.hpp>

#include "error.h"
#include "line_reader.h"

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

void ReadJsonLines(LineReader *lines, const HistoryFilter &filter, const VisitRow &visit) {
  HistoryRow row;
  for (std::string_view line; lines->Next(&line);) {
    try {
      ReadLine(line, &row);
    } catch (const std::bad_alloc &) {
      throw;
    } catch (const std::exception &) {
      if (lines->last_line_is_open()) return;
      throw Error(
          fmt::format("{}:{}: expected a line as --format jsonl writes it", lines->name(), lines->line_number()));
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
