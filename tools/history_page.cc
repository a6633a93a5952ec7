#include "history_page.h"

#include <fmt/format.h>

#include <algorithm>
#include <filesystem>
#include <map>
#include <set>
#include <system_error>
#include <tuple>
#include <utility>
#include <vector>

#include "error.h"
#include "export/page.h"
#include "file.h"
#include "history.h"
#include "text.h"

namespace zorstat {
namespace {

// Time, group, object, host, instance. What comes twice is replaced.
using Key = std::tuple<std::int64_t, std::string, std::string, std::string, std::string>;
using Rows = std::map<Key, PageRow>;

PageRow RowOf(const HistoryRow &row) {
  PageRow made;
  made.samples = row.samples;
  made.points = row.points;
  if (made.points.size() != 9) {
    made.points.clear();
    const auto average = static_cast<double>(row.sum) / static_cast<double>(row.samples);
    if (row.has_extremes) made.points = {static_cast<double>(row.min), average, static_cast<double>(row.max)};
  }
  made.range = row.range;
  if (row.range) made.counts = row.buckets;
  made.below = row.range ? row.below : 0;
  made.above = row.range ? row.above : 0;
  made.outside = row.outside;
  made.resets = row.resets;
  made.low = row.low;
  made.high = row.high;
  return made;
}

Rows Collect(const QueryOptions &options) {
  const HistoryFilter filter = ReadFilter(options);
  Rows rows;
  for (const std::string &file : options.files) {
    ReadHistory(file, filter, [&](const HistoryRow &row) {
      if (row.samples == 0) return;
      rows.insert_or_assign({row.time, row.group, row.object, row.host, row.instance}, RowOf(row));
      if (rows.size() <= Page::kMost) return;
      throw Error(
          fmt::format("more than the {} intervals of instances of a page: choose fewer with --from, --to, "
                      "--object, --group or --host",
                      Page::kMost));
    });
  }
  if (rows.empty())
    throw Error("no intervals with samples, under these conditions, in: " + Joined(options.files, ", "));
  return rows;
}

// How long intervals are is only known by the ones before, of the same host. Those behind a gap are taken to be as
// long as most are.
std::int64_t TypicalLength(const Rows &rows) {
  constexpr std::int64_t kUnknown = 600;  // seconds, of a single one
  std::vector<std::int64_t> lengths;
  std::map<std::string, std::int64_t> last;  // by host
  for (const auto &[key, row] : rows) {
    const std::int64_t end = std::get<0>(key);
    const auto [before, is_first] = last.try_emplace(std::get<3>(key), end);
    if (!is_first && end != before->second) lengths.push_back(end - before->second);
    before->second = end;
  }
  if (lengths.empty()) return kUnknown;
  const auto middle = lengths.begin() + static_cast<std::ptrdiff_t>(lengths.size() / 2);
  std::nth_element(lengths.begin(), middle, lengths.end());
  return *middle;
}

}  // namespace

void WriteHistoryPage(const QueryOptions &options, const std::string &output) {
  for (const std::string &file : options.files) {
    std::error_code error;
    if (output == "-" || file == "-" || !std::filesystem::equivalent(file, output, error)) continue;
    throw SettingsError(Refusal("--output", output, "another file than the input"));
  }
  const PageFrame frame;
  const Rows rows = Collect(options);
  std::set<std::string> groups;
  std::set<std::string> hosts;
  for (const auto &[key, row] : rows) {
    groups.insert(std::get<1>(key));
    hosts.insert(std::get<3>(key));
  }
  // What is the same everywhere stands in the title; the rest in the names.
  const auto &[time, group, object, host, instance] = rows.begin()->first;
  Page page(fmt::format("{} on {}", groups.size() == 1 ? group : "zorstat",
                        hosts.size() == 1 ? host : fmt::format("{} hosts", hosts.size())),
            "instance");
  const std::int64_t typical = TypicalLength(rows);
  std::map<std::string, std::int64_t> last;  // end, by host
  std::int64_t begun = -1;
  for (const auto &[key, row] : rows) {
    const auto &[end, row_group, row_object, row_host, row_instance] = key;
    const auto before = last.find(row_host);
    const std::int64_t length = before == last.end() ? typical : std::min(typical, end - before->second);
    if (std::exchange(begun, end) != end) page.BeginInterval(end, length);
    last[row_host] = end;
    page.Add(groups.size() == 1 ? row_object : fmt::format("{}/{}", row_group, row_object), {}, 1,
             hosts.size() == 1 ? row_instance : fmt::format("{}/{}", row_host, row_instance), row);
  }
  Output file(output);
  frame.Write(page.Data(0), &file);
  file.Close();
}

}  // namespace zorstat
