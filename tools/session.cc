#include "session.h"

#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <functional>
#include <limits>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "clock.h"
#include "collector.h"
#include "error.h"
#include "export/exporter.h"
#include "file.h"
#include "notify.h"
#include "poll_file.h"
#include "state.h"
#include "stop.h"
#include "text.h"
#include "workers.h"

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
  Counting(const Run &run, const Settings &settings, const Exporters &exporters, std::size_t cores)
      : run_(run),
        settings_(settings),
        exporters_(exporters),
        cores_(cores),
        writes_records_(FormatOf(settings) == Format::kRecords) {
    BeginCollecting();
    for (const auto &exporter : exporters_) exporter->Begin(run);
  }

  const Collector &collector() const { return *collector_; }

  // Goes on from where a run was when its state was saved. When that fails, collecting is to begin anew.
  bool Resume(const nlohmann::json &state, zor::process::Counters counters) {
    return collector_->Load(state, counters);
  }
  void BeginCollecting() { collector_.emplace(run_, settings_, !exporters_.empty(), cores_); }

  void AddRows(const Poll &poll, const std::string &place, const std::function<void()> &meanwhile) {
    collector_->AddRows(poll, place, meanwhile);
  }
  void EndPoll(std::int64_t time, std::string *records) {
    collector_->EndPoll(Wanted(records));
    TellInterval();
    for (const auto &exporter : exporters_) exporter->EndPoll(time, [&] { return collector_->InProgress(); });
  }
  void EndInterval(std::string *records) {
    collector_->Clear(Wanted(records));
    TellInterval();
  }
  void RepeatHeaders() { collector_->RepeatHeaders(); }
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

  void TellInterval() {
    const std::optional<IntervalReadings> interval = collector_->TakeInterval();
    if (!interval) return;
    for (const auto &exporter : exporters_) exporter->EndInterval(*interval);
  }

  const Run &run_;
  const Settings &settings_;
  const Exporters &exporters_;
  std::size_t cores_;
  std::optional<Collector> collector_;
  bool writes_records_;
  std::string unwanted_;
};

// The polls of a run that may last for months: between them it does what signals ask for, and tells the program
// that supervises it how it is.
class AttendedPolls {
 public:
  AttendedPolls(Source *source, Output *file) : source_(source), file_(file) {}

  // Behind the first poll. `end_interval` does what SIGUSR1 asks for, `reopened` is told that another file may be
  // written from now on.
  template <class EndInterval, class Reopened>
  bool Next(Poll *poll, EndInterval end_interval, Reopened reopened) {
    Notify(fmt::format("{}WATCHDOG=1\nSTATUS={} polls", polls_ == 0 ? "READY=1\n" : "", polls_ + 1));
    ++polls_;
    for (bool is_due = false; !is_due;) {
      is_due = source_->Wait(watchdog_);
      Notify("WATCHDOG=1");
      if (TakeRequest(SIGUSR1)) end_interval();
      if (TakeRequest(SIGHUP)) {
        Reopen();
        reopened();
      }
    }
    const bool has_next = source_->Next(poll);
    if (!has_next) Notify("STOPPING=1");
    return has_next;
  }

 private:
  // Where that fails a run that nobody watches goes on with what it has.
  void Reopen() {
    const auto now = std::chrono::steady_clock::now().time_since_epoch();
    Notify(fmt::format("RELOADING=1\nMONOTONIC_USEC={}",
                       std::chrono::duration_cast<std::chrono::microseconds>(now).count()));
    try {
      file_->Reopen();
    } catch (const Error &error) {
      Complain(fmt::format("{} (writing to the old file)", error.what()));
    }
    Notify("READY=1");
  }

  Source *source_;
  Output *file_;
  const std::chrono::milliseconds watchdog_ = WatchdogPeriod();
  std::uint64_t polls_ = 0;
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

  // That of the last poll of an earlier run.
  void GoOnFrom(int64_t time) {
    last_ = time;
    taken_ = Clock::now();
  }

 private:
  using Clock = std::chrono::steady_clock;

  std::optional<int64_t> last_;
  Clock::time_point taken_;
  uint64_t went_on_ = 0;
};

// Threads are not worth while for what is done at once.
std::size_t CoresFor(const Source &source, const Settings &settings) {
  constexpr std::uint64_t kLarge = 4'000'000;  // bytes
  if (settings.cores) return settings.cores->value;
  return source.size() > kLarge ? Cores() : 1;
}

nlohmann::json ToJson(const std::optional<FileMark> &mark) {
  if (!mark) return nullptr;
  return {{"device", mark->device}, {"inode", mark->inode}, {"size", mark->size}};
}

// What a run writes: lines and, behind them, the state that tells of them.
class Written {
 public:
  // What stands in `lines` is the header of the file.
  Written(const Settings &settings, const std::string &output, Counting *counting, std::string *lines)
      : counting_(counting),
        lines_(lines),
        has_header_(!lines->empty()),
        file_(output, std::exchange(*lines, {}),
              settings.append || (!settings.state.empty() && IsFileOutput(output))) {}

  Output &file() { return file_; }
  bool has_state() const { return state_.has_value(); }

  // Goes on from the state that the last run has left, if there is one that fits, and keeps it from now on.
  bool GoOn(StateFile state_file) {
    state_.emplace(std::move(state_file));
    const std::optional<nlohmann::json> saved = state_->Read();
    if (!saved) return false;
    try {
      if (counting_->Resume(saved->value("collector", nlohmann::json()), state_->CountersSince(*saved))) {
        CutBack(saved->value("output", nlohmann::json()));
        return true;
      }
    } catch (const nlohmann::json::exception &) {  // it has other parts
    }
    counting_->BeginCollecting();
    state_->Refuse("the data of a run");
    return false;
  }

  // That it can be written is to be known at the start.
  void Begin(bool is_live) {
    if (state_ || (is_live && has_header_)) Publish();
  }
  // Before lines are added: the first ones of a file have headers.
  void BeginLines() {
    if (lines_->empty() && file_.IsEmpty()) counting_->RepeatHeaders();
  }
  void EndPoll(bool is_live) {
    if (is_live && (!lines_->empty() || (state_ && counting_->collector().is_cleared()))) {
      Publish();
    } else if (lines_->size() >= kBatch) {
      WriteOut(lines_, &file_);
    }
  }
  // Ends the interval in progress.
  void EndInterval() {
    BeginLines();
    counting_->EndInterval(lines_);
    if (!lines_->empty() || state_) Publish();
  }
  void KeepState() {
    if (state_) Publish();
  }

 private:
  void Publish() {
    WriteOut(lines_, &file_);
    file_.Publish();
    if (state_) state_->Write({{"collector", counting_->collector().Save()}, {"output", ToJson(file_.Mark())}});
  }

  // What the last run wrote behind its state is counted once more.
  void CutBack(const nlohmann::json &mark) {
    if (mark.is_null()) return;
    const std::uint64_t cut = file_.CutBack({mark.at("device"), mark.at("inode"), mark.at("size")});
    if (cut != 0) Complain(fmt::format("{}: {} bytes cut: they were written behind the state", file_.name(), cut));
  }

  Counting *counting_;
  std::string *lines_;  // not yet written
  bool has_header_;
  Output file_;
  std::optional<StateFile> state_;
};

// A report goes to standard output, behind the lines if they do.
void CloseWithReport(const std::string &output, const std::optional<std::string> &report, Output *file) {
  if (output == "-") file->Write(report.value_or(""));
  file->Close();
  if (output == "-" || !report) return;
  Output console("-");
  console.Write(*report);
  console.Close();
}

void TellNotes(const Collector &collector, std::uint64_t passed_over) {
  if (passed_over != 0) Complain(fmt::format("polls passed over, as the state has counted them: {}", passed_over));
  for (const std::string &note : collector.Notes()) Complain(note);
}

}  // namespace

void Count(Source *source, const Settings &settings, const std::string &default_dg, const std::string &output,
           RecordTime record_time) {
  const std::vector<ObjectPlan> plans = PlanObjects(settings, source->table());
  const std::string dg = settings.dg ? settings.dg->value : ReadDgName(default_dg, "default of --dg");
  std::string lines;
  const Exporters exporters = MakeExporters(settings, &lines);
  Poll poll;
  if (!source->Next(&poll)) return;
  const bool is_live = record_time == RecordTime::kNow;
  const Run run = {dg, settings.interval ? settings.interval->value : source->Interval(poll), source->table(),
                   plans, is_live};
  Counting counting(run, settings, exporters, CoresFor(*source, settings));
  Written written(settings, output, &counting, &lines);
  AttendedPolls polls(source, &written.file());
  std::int64_t counted_to = std::numeric_limits<std::int64_t>::min();  // the time of a poll
  if (!settings.state.empty() && written.GoOn({settings.state, run, settings, source->Boot()}) && !is_live) {
    counted_to = counting.collector().last_time();
  }
  const auto next = [&] {
    if (!is_live) return source->Next(&poll);
    return polls.Next(
        &poll, [&] { written.EndInterval(); }, [&] { written.KeepState(); });
  };
  std::uint64_t passed_over = 0;
  std::optional<std::string> report;
  FirstFailure failure;
  failure.Try([&] {
    written.Begin(is_live);
    do {
      if (poll.time <= counted_to) {
        ++passed_over;
        continue;
      }
      if (!is_live) SetRecordTime(poll.time);
      counting.AddRows(poll, source->Place(poll), [&] { source->ReadAhead(); });
      // The last poll may end with a clear, after which there would be nothing to report.
      if (settings.report && source->IsLast()) report = counting.collector().Report();
      written.BeginLines();
      counting.EndPoll(poll.time, &lines);
      written.EndPoll(is_live);
    } while (next());
  });
  failure.Try([&] {
    if (settings.report && !report) report = counting.collector().Report();
  });
  written.BeginLines();
  failure.Try([&] { counting.Finish(&lines, written.has_state()); });
  failure.Try([&] { written.KeepState(); });
  WriteOut(&lines, &written.file());
  CloseWithReport(output, report, &written.file());
  failure.Try([&] { TellNotes(counting.collector(), passed_over); });
  failure.Rethrow();
}

void Record(Source *source, const std::string &output, bool append) {
  Output file(output, PollFileHeader(source->table()), append);
  AttendedPolls polls(source, &file);
  RisingTime time;
  if (append) {
    if (const auto last = LineTime(file.LastLine(), output)) time.GoOnFrom(*last);
  }
  std::string lines;
  Poll poll;
  if (!source->Next(&poll)) return;
  do {
    poll.time = time.Of(poll.time);
    AppendPollLines(source->table(), poll, &lines);
    WriteOut(&lines, &file);
    file.Publish();
  } while (polls.Next(
      &poll, [] {}, [] {}));
  file.Close();
  if (time.went_on() != 0) {
    Complain(fmt::format("the clock was set back: times went on without it in {} polls", time.went_on()));
  }
}

}  // namespace zorstat
