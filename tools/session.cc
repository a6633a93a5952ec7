#include "session.h"

#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdint>
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
#include "stop.h"
#include "text.h"

namespace zorstat {
namespace {

constexpr size_t kBatch = size_t{256} * 1024;

// One run: polls go through the collector to the exporters, and to the record lines unless another format takes
// their place, and lines to the output: those of a live run at once.
class Counting {
 public:
  // Exporters append to the lines, too.
  Counting(const Run &run, const Settings &settings, const Exporters &exporters, std::string *lines,
           const std::string &output)
      : run_(run),
        collector_(run, settings, !exporters.empty()),
        exporters_(exporters),
        writes_records_(FormatOf(settings) == Format::kRecords),
        lines_(*lines),
        header_(Begin()),
        file_(output, header_, settings.append) {
    if (run.is_live && !header_.empty()) WriteOut();
  }

  const Collector &collector() const { return collector_; }
  Output &file() { return file_; }

  void AddRows(const Poll &poll, const std::string &place) { collector_.AddRows(poll, place); }
  void EndPoll(std::int64_t time) {
    collector_.EndPoll(Records());
    TellInterval();
    for (const auto &exporter : exporters_) exporter->EndPoll(time, [&] { return collector_.InProgress(); });
    if (lines_.size() >= (run_.is_live ? 1 : kBatch)) WriteOut();
  }
  void EndInterval() {
    collector_.Clear(Records());
    TellInterval();
    if (!lines_.empty()) WriteOut();
  }
  void Finish() {
    FirstFailure failure;
    failure.Try([&] { collector_.Finish(Records()); });
    failure.Try([&] { TellInterval(); });
    for (const auto &exporter : exporters_) failure.Try([&] { exporter->Finish(); });
    failure.Rethrow();
  }
  void WriteOut() {
    file_.Write(lines_);
    lines_.clear();
    if (run_.is_live) file_.Publish();
  }

 private:
  // With its lines, if there are any, each file begins.
  std::string Begin() {
    for (const auto &exporter : exporters_) exporter->Begin(run_);
    return std::exchange(lines_, {});
  }

  // Records are rendered whatever is written, as notes tell of them. Their headers come at the start, and again
  // where the file is another one or somebody has emptied it.
  std::string *Records() {
    if (lines_.empty() && file_.IsEmpty()) collector_.RepeatHeaders();
    unwanted_.clear();
    return writes_records_ ? &lines_ : &unwanted_;
  }

  void TellInterval() {
    const std::optional<IntervalReadings> interval = collector_.TakeInterval();
    if (!interval) return;
    for (const auto &exporter : exporters_) exporter->EndInterval(*interval);
  }

  const Run &run_;
  Collector collector_;
  const Exporters &exporters_;
  bool writes_records_;
  std::string &lines_;
  std::string header_;
  Output file_;
  std::string unwanted_;
};

// The polls of a run that may last for months: between them it does what signals ask for, and tells the program
// that supervises it how it is.
class AttendedPolls {
 public:
  AttendedPolls(Source *source, Output *file) : source_(source), file_(file) {}

  // Behind the first poll. `end_interval` does what SIGUSR1 asks for.
  template <class EndInterval>
  bool Next(Poll *poll, EndInterval end_interval) {
    Notify(fmt::format("{}WATCHDOG=1\nSTATUS={} polls", polls_ == 0 ? "READY=1\n" : "", polls_ + 1));
    ++polls_;
    while (!source_->Wait(watchdog_)) {
      Notify("WATCHDOG=1");
      if (TakeRequest(SIGUSR1)) end_interval();
      if (TakeRequest(SIGHUP)) Reopen();
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
  Counting counting(run, settings, exporters, &lines, output);
  Output &file = counting.file();
  AttendedPolls polls(source, &file);
  std::optional<std::string> report;
  FirstFailure failure;
  failure.Try([&] {
    do {
      if (!run.is_live) SetRecordTime(poll.time);
      counting.AddRows(poll, source->Place(poll));
      // The last poll may end with a clear, after which there would be nothing to report.
      if (settings.report && source->IsLast()) report = counting.collector().Report();
      counting.EndPoll(poll.time);
    } while (run.is_live ? polls.Next(&poll, [&] { counting.EndInterval(); }) : source->Next(&poll));
  });
  failure.Try([&] {
    if (settings.report && !report) report = counting.collector().Report();
  });
  failure.Try([&] { counting.Finish(); });
  counting.WriteOut();
  if (output == "-") file.Write(report.value_or(""));
  file.Close();
  if (output != "-" && report) {
    Output console("-");
    console.Write(*report);
    console.Close();
  }
  failure.Try([&] {
    for (const std::string &note : counting.collector().Notes()) Complain(note);
  });
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
    file.Write(lines);
    lines.clear();
    file.Publish();
  } while (polls.Next(&poll, [] {}));
  file.Close();
  if (time.went_on() != 0) {
    Complain(fmt::format("the clock was set back: times went on without it in {} polls", time.went_on()));
  }
}

}  // namespace zorstat
