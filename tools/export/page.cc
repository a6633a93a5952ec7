#include "export/page.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <iterator>
#include <nlohmann/json.hpp>
#include <numeric>
#include <utility>

#include "error.h"
#include "page_html.h"

namespace zorstat {
namespace {

template <class... Values>
void Append(std::string *text, fmt::format_string<Values...> format, Values &&...values) {
  fmt::format_to(std::back_inserter(*text), format, std::forward<Values>(values)...);
}

// In quotes, and without what could end the element that the text stands in.
std::string Quoted(std::string_view text) {
  std::string quoted = nlohmann::json(text).dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
  for (std::size_t at = 0; (at = quoted.find('<', at)) != std::string::npos;) quoted.replace(at, 1, "\\u003c");
  return quoted;
}

// Six digits, which no chart can show, or all of a whole number.
void AppendNumber(double number, std::string *text) {
  const bool is_whole = std::abs(number) < 1e15 && number == std::floor(number);
  if (is_whole) {
    Append(text, "{:.0f}", number);
  } else {
    Append(text, "{:.6g}", number);
  }
}

// The counts one after another, a number below 0 for as many empty buckets.
void AppendCounts(const std::vector<std::uint32_t> &counts, std::string *text) {
  std::size_t empty = 0;
  char separator = '[';
  for (const std::uint32_t count : counts) {
    if (count == 0) {
      ++empty;
      continue;
    }
    if (empty != 0) Append(text, "{}-{}", std::exchange(separator, ','), std::exchange(empty, 0));
    Append(text, "{}{}", std::exchange(separator, ','), count);
  }
  *text += separator == '[' ? "[]" : "]";
}

// Ranges are numbered; a new one comes behind the others. What is 0 at the end is left out.
std::string RowText(const PageRow &row, std::vector<BucketRange> *ranges) {
  std::string text = fmt::format("{},[", row.samples);
  for (const double point : row.points) {
    AppendNumber(point, &text);
    text += ',';
  }
  if (!row.points.empty()) text.pop_back();
  text += ']';
  const bool has_more = row.below + row.above + row.outside + row.resets != 0;
  if (!row.range && !has_more) return text;
  const auto range = row.range ? std::find(ranges->begin(), ranges->end(), *row.range) : ranges->end();
  Append(&text, ",{},", row.range ? range - ranges->begin() : -1);
  if (row.range && range == ranges->end()) ranges->push_back(*row.range);
  AppendCounts(row.counts, &text);
  if (has_more) Append(&text, ",{},{},{},{}", row.below, row.above, row.outside, row.resets);
  return text;
}

PageRow RowOf(const InstanceReadings &instance, const ObjectPlan &plan) {
  const Reading &reading = instance.values ? *instance.values : *instance.baseline;
  PageRow row;
  row.since_learnt = !instance.values;
  row.samples = instance.values ? SamplesOf(reading, plan) : reading.samples;
  row.resets = reading.resets;
  row.outside = instance.outside;
  row.points = PointsOf(reading);
  if (instance.baseline && instance.baseline->distribution) {
    row.low = instance.baseline->distribution->start;
    row.high = instance.baseline->distribution->last;
  }
  // Without a range the buckets cover all values of the type, which shows nothing; and those of a baseline count
  // from interval to interval.
  if (!instance.values || !plan.range || !reading.distribution) return row;
  const zor::process::Distribution &distribution = *reading.distribution;
  row.range = {distribution.start, distribution.last, distribution.buckets.size()};
  row.below = distribution.below;
  row.above = distribution.above;
  for (const zor::process::Bucket &bucket : distribution.buckets) row.counts.push_back(bucket.count);
  return row;
}

// Live, the page is written at each interval and keeps the latest ones; of a file it is written at the end, with
// all or not at all.
class PageExporter : public Exporter {
 public:
  explicit PageExporter(const std::string &path) : path_(path), output_(path) {}

  void Begin(const Run &run) override {
    run_ = &run;
    page_.emplace(run.group, run.table.key);
  }

  void EndInterval(const IntervalReadings &interval) override {
    const bool is_first = std::exchange(is_first_, false);  // and time passes from its first poll on
    const std::uint32_t passed = is_first && interval.polls > 1 ? interval.polls - 1 : interval.polls;
    const std::int64_t length = std::int64_t{passed} * run_->poll_interval;
    if (is_first) first_polls_ = interval.polls;
    for (const ObjectReadings &object : interval.objects) size_ += object.instances.size();
    if (!run_->is_live && size_ > Page::kMost) return page_.reset();
    page_->BeginInterval(interval.time, length);
    for (const ObjectReadings &object : interval.objects) {
      for (const InstanceReadings &instance : object.instances) {
        page_->Add(object.name, object.plan->unit, run_->poll_interval, instance.name(),
                   RowOf(instance, *object.plan));
      }
    }
    if (!run_->is_live) return;
    while (page_->size() > Page::kMost) page_->DropOldest();
    Write(length);
  }

  void Finish() override {
    if (page_) return Write(0);
    const std::size_t times = (size_ + Page::kMost - 1) / Page::kMost;
    throw Error(fmt::format("--html: {} intervals of instances are more than the {} of a page: --clear {} fits",
                            size_, Page::kMost, first_polls_ * times));
  }

 private:
  void Write(std::int64_t refresh) {
    if (!output_) output_.emplace(path_);
    frame_.Write(page_->Data(refresh), &*output_);
    output_->Close();
    output_.reset();
  }

  PageFrame frame_;
  std::string path_;
  std::optional<Output> output_;  // of the next page
  const Run *run_ = nullptr;
  std::optional<Page> page_;       // until it is too large
  bool is_first_ = true;           // interval
  std::size_t size_ = 0;           // of all intervals
  std::uint64_t first_polls_ = 0;  // of the first interval
};

}  // namespace

void Page::BeginInterval(std::int64_t end, std::int64_t length) { intervals_.push_back({end, length}); }

void Page::Add(std::string_view object_name, const Unit &unit, std::uint32_t per, const std::string &instance_name,
               const PageRow &row) {
  const auto [at, is_new_object] = known_.try_emplace(std::string(object_name), objects_.size());
  if (is_new_object) objects_.push_back({at->first, unit, per, row.since_learnt});
  Object &object = objects_[at->second];
  const auto [known, is_new] = object.known.try_emplace(instance_name, object.instances.size());
  if (is_new) object.instances.push_back({instance_name});
  Instance &instance = object.instances[known->second];
  if (row.low && row.high) instance.learnt = fmt::format("[{},{}]", row.low->text(), row.high->text());
  if (row.samples == 0) return;
  const auto band = row.since_learnt ? std::nullopt : BandOf(row.points, row.samples);
  instance.cells.push_back({dropped_ + intervals_.size() - 1, band, RowText(row, &object.ranges)});
  ++size_;
}

void Page::DropOldest() {
  intervals_.pop_front();
  ++dropped_;
  for (Object &object : objects_) {
    for (Instance &instance : object.instances) {
      if (instance.cells.empty() || instance.cells.front().interval >= dropped_) continue;
      instance.cells.pop_front();
      --size_;
    }
  }
}

std::string Page::Data(std::int64_t refresh) const {
  std::string text;
  Append(&text, "{{\"title\":{},\"key\":{},\"refresh\":{},\"intervals\":[", Quoted(title_), Quoted(key_), refresh);
  for (const Interval &interval : intervals_) Append(&text, "[{},{}],", interval.end, interval.length);
  if (!intervals_.empty()) text.pop_back();
  text += "],\"objects\":[";
  for (const Object &object : objects_) AppendObject(object, &text);
  if (!objects_.empty()) text.pop_back();
  text += "]}";
  return text;
}

// Those that depart most come first.
void Page::AppendObject(const Object &object, std::string *text) const {
  const double factor = object.unit.factor / (object.unit.per_second ? object.per : 1);
  Append(text, "\n{{\"name\":{},\"unit\":{},\"rate\":{},\"factor\":{},\"since\":{},\"ranges\":[",
         Quoted(object.name), Quoted(object.unit.name), object.unit.per_second, factor, object.since_learnt);
  for (const BucketRange &range : object.ranges) {
    Append(text, "[{},{},{}],", range.start.text(), range.last.text(), range.count);
  }
  if (!object.ranges.empty()) text->pop_back();
  *text += "],\"instances\":[";
  std::vector<Departure> departures;
  for (const Instance &instance : object.instances) {
    std::vector<Band> bands;
    std::vector<std::size_t> intervals;
    for (const Cell &cell : instance.cells) {
      if (!cell.band) continue;
      bands.push_back(*cell.band);
      intervals.push_back(cell.interval);
    }
    departures.push_back(LargestDeparture(bands));
    if (departures.back().widths > 0) departures.back().interval = intervals[departures.back().interval];
  }
  std::vector<std::size_t> order(object.instances.size());
  std::iota(order.begin(), order.end(), 0);
  std::stable_sort(order.begin(), order.end(),
                   [&](std::size_t a, std::size_t b) { return departures[a].widths > departures[b].widths; });
  for (const std::size_t i : order) AppendInstance(object.instances[i], departures[i], text);
  if (!order.empty()) text->pop_back();
  *text += "]},";
}

void Page::AppendInstance(const Instance &instance, const Departure &departure, std::string *text) const {
  Append(text, "\n{{\"name\":{},\"departure\":{:.3g},\"departed\":{},\"learnt\":{},\"rows\":[",
         Quoted(instance.name), departure.widths, departure.widths > 0 ? departure.interval - dropped_ : 0,
         instance.learnt);
  for (const Cell &cell : instance.cells) Append(text, "[{},{}],", cell.interval - dropped_, cell.text);
  if (!instance.cells.empty()) text->pop_back();
  *text += "]},";
}

PageFrame::PageFrame() {
  try {
    constexpr std::size_t kLargest = std::size_t{16} << 20;
    ReadFile(ZOR_CHART_JS, kLargest, &charts_);
  } catch (const Error &error) {
    throw Error(fmt::format("{} (Debian package libjs-chart.js)", error.what()));
  }
  for (std::size_t at = 0; (at = charts_.find("</script", at)) != std::string::npos; ++at)
    charts_.insert(at + 1, "\\");
}

void PageFrame::Write(const std::string &data, Output *output) const {
  constexpr std::string_view kMark = "<!-- charts and data -->";
  const std::string_view page = kPageHtml;
  const std::size_t mark = page.find(kMark);
  output->Write(page.substr(0, mark));
  output->Write("<script>\n");
  output->Write(charts_);
  output->Write("</script>\n<script id=\"data\" type=\"application/json\">\n");
  output->Write(data);
  output->Write("\n</script>");
  output->Write(page.substr(mark + kMark.size()));
}

std::unique_ptr<Exporter> MakePage(const Settings &settings) {
  return settings.html.empty() ? nullptr : std::make_unique<PageExporter>(settings.html);
}

}  // namespace zorstat
