#include "session.h"

#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <limits>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

#include "clock.h"
#include "collector.h"
#include "error.h"
#include "export/exporter.h"
#include "file.h"
#include "poll_file.h"
#include "state.h"

namespace zorstat {
namespace {

constexpr size_t kBatch = size_t{256} * 1024;

void WriteOut(std::string *lines, Output *output) {
  output->Write(*lines);
  lines->clear();
}

// One run: polls go through the collector to the exporters, and to the record lines unless another format takes
// their place.
class Counting {
 public:
  Counting(const Run &run, const Settings &settings, const Exporters &exporters)
      : run_(run),
        settings_(settings),
        exporters_(exporters),
        writes_records_(FormatOf(settings) == Format::kRecords) {
    BeginCollecting();
    for (const auto &exporter : exporters_) exporter->Begin(run);
  }

  const Collector &collector() const { return *collector_; }

  // Goes on from where a run was when its state was saved; false when it cannot.
  bool Resume(const nlohmann::json &state, zor::process::Counters counters) {
    try {
      if (collector_->Load(state, counters)) return true;
    } catch (const nlohmann::json::exception &) {  // it has other parts
    }
    BeginCollecting();
    return false;
  }

  void AddRows(const Poll &poll, const std::string &place) { collector_->AddRows(poll, place); }
  void EndPoll(std::int64_t time, std::string *records) {
    collector_->EndPoll(Wanted(records));
    TellInterval();
    for (const auto &exporter : exporters_) exporter->EndPoll(time, [&] { return collector_->InProgress(); });
  }
  // The interval in progress ends, too, unless the next run goes on with it.
  void Finish(std::string *records, bool goes_on) {
    FirstFailure failure;
    failure.Try([&] { goes_on ? collector_->Pause() : collector_->Finish(Wanted(records)); });
    failure.Try([&] { TellInterval(); });
    for (const auto &exporter : exporters_) failure.Try([&] { exporter->Finish(); });
    failure.Rethrow();
  }

 private:
  // Records are rendered whatever is written, as notes tell of them.
  std::string *Wanted(std::string *records) {
    unwanted_.clear();
    return writes_records_ ? records : &unwanted_;
  }

  void BeginCollecting() { collector_.emplace(run_, settings_, !exporters_.empty()); }

  void TellInterval() {
    const std::optional<IntervalReadings> interval = collector_->TakeInterval();
    if (!interval) return;
    for (const auto &exporter : exporters_) exporter->EndInterval(*interval);
  }

  const Run &run_;
  const Settings &settings_;
  const Exporters &exporters_;
  std::optional<Collector> collector_;
  bool writes_records_;
  std::string unwanted_;
};

// The times of a poll file, which cannot go back. Where the clock was set back they go on as far as time has, so
// that polls stay as far apart as they were taken.
class RisingTime {
 public:
  int64_t Of(int64_t clock) {
    const Clock::time_point now = Clock::now();
    if (last_ && clock <= *last_) {
      const auto passed = std::chrono::round<std::chrono::seconds>(now - taken_).count();
      clock = *last_ + std::max<int64_t>(passed, 1);
      ++went_on_;
    }
    last_ = clock;
    taken_ = now;
    return clock;
  }
  uint64_t went_on() const { return went_on_; }

 private:
  using Clock = std::chrono::steady_clock;

  std::optional<int64_t> last_;
  Clock::time_point taken_;
  uint64_t went_on_ = 0;
};

nlohmann::json ToJson(const std::optional<FileMark> &mark) {
  if (!mark) return nullptr;
  return {{"device", mark->device}, {"inode", mark->inode}, {"size", mark->size}};
}

// What the last run wrote behind its state is counted once more.
void CutBack(const nlohmann::json &mark, Output *file) {
  if (mark.is_null()) return;
  const std::uint64_t cut = file->CutBack({mark.at("device"), mark.at("inode"), mark.at("size")});
  if (cut != 0) Complain(fmt::format("{}: {} bytes cut: they were written behind the state", file->name(), cut));
}

// False where there is nothing to go on from.
bool GoOn(const StateFile &state, Counting *counting, Output *file) {
  const std::optional<nlohmann::json> saved = state.Read();
  if (!saved) return false;
  if (!counting->Resume(saved->value("collector", nlohmann::json()), state.CountersSince(*saved))) {
    state.Refuse("the data of a run");
    return false;
  }
  CutBack(saved->value("output", nlohmann::json()), file);
  return true;
}

}  // namespace

void Count(Source *source, const Settings &settings, const std::string &default_dg, const std::string &output,
           RecordTime record_time) {
  const std::vector<ObjectPlan> plans = PlanObjects(settings, source->table());
  const std::string dg = settings.dg ? settings.dg->value : ReadDgName(default_dg, "default of --dg");
  std::string lines;  // not yet written
  const Exporters exporters = MakeExporters(settings, &lines);
  Poll poll;
  if (!source->Next(&poll)) return;
  const Run run = {dg, settings.interval ? settings.interval->value : source->Interval(poll), source->table(),
                   plans, record_time == RecordTime::kNow};
  Counting counting(run, settings, exporters);
  Output file(output, settings.state.empty() ? Output::Begin::kAnew : Output::Begin::kAtTheEnd);
  std::optional<StateFile> state;
  std::int64_t counted_to = std::numeric_limits<std::int64_t>::min();  // the time of a poll
  if (!settings.state.empty()) {
    state.emplace(settings.state, run, settings, source->Boot());
    const bool goes_on = GoOn(*state, &counting, &file);
    if (goes_on && record_time == RecordTime::kOfPoll) counted_to = counting.collector().last_time();
  }
  // What is told of is written before it is told, and taken back where it was not.
  const auto keep = [&] {
    WriteOut(&lines, &file);
    file.Publish();
    if (state) state->Write({{"collector", counting.collector().Save()}, {"output", ToJson(file.Mark())}});
  };
  std::uint64_t passed_over = 0;
  std::optional<std::string> report;
  FirstFailure failure;
  failure.Try([&] {
    if (state) keep();  // that it can be is to be known now
    do {
      if (poll.time <= counted_to) {
        ++passed_over;
        continue;
      }
      if (record_time == RecordTime::kOfPoll) SetRecordTime(poll.time);
      counting.AddRows(poll, source->Place(poll));
      // The last poll may end with a clear, after which there would be nothing to report.
      if (settings.report && source->IsLast()) report = counting.collector().Report();
      counting.EndPoll(poll.time, &lines);
      if (record_time == RecordTime::kNow && (!lines.empty() || (state && counting.collector().is_cleared()))) {
        keep();
      } else if (lines.size() >= kBatch) {
        WriteOut(&lines, &file);
      }
    } while (source->Next(&poll));
  });
  failure.Try([&] {
    if (settings.report && !report) report = counting.collector().Report();
  });
  failure.Try([&] { counting.Finish(&lines, state.has_value()); });
  if (state) failure.Try(keep);
  WriteOut(&lines, &file);
  if (output == "-") file.Write(report.value_or(""));
  file.Close();
  if (output != "-" && report) {
    Output console("-");
    console.Write(*report);
    console.Close();
  }
  failure.Try([&] {
    if (passed_over != 0)
      Complain(fmt::format("polls passed over, as the state has counted them: {}", passed_over));
    for (const std::string &note : counting.collector().Notes()) Complain(note);
  });
  failure.Rethrow();
}

void Record(Source *source, const std::string &output) {
  Output file(output);
  std::string lines = PollFileHeader(source->table());
  Poll poll;
  RisingTime time;
  while (source->Next(&poll)) {
    poll.time = time.Of(poll.time);
    AppendPollLines(source->table(), poll, &lines);
    WriteOut(&lines, &file);
    file.Publish();
  }
  file.Close();
  if (time.went_on() != 0) {
    Complain(fmt::format("the clock was set back: times went on without it in {} polls", time.went_on()));
  }
}

}  // namespace zorstat
