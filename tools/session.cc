#include "session.h"

#include <fmt/format.h>

#include <exception>
#include <optional>
#include <vector>

#include "clock.h"
#include "collector.h"
#include "error.h"
#include "file.h"
#include "poll_file.h"

namespace zorstat {
namespace {

// Keeps the first failure for later, so that the steps after it are still taken. What cannot be written ends the
// run at once.
class FirstFailure {
 public:
  template <typename Step>
  void Try(Step step) {
    try {
      step();
    } catch (const OutputError &) {
      throw;
    } catch (const Error &) {
      if (!failure_) failure_ = std::current_exception();
    }
  }
  void Rethrow() const {
    if (failure_) std::rethrow_exception(failure_);
  }

 private:
  std::exception_ptr failure_;
};

}  // namespace

void Count(Source *source, const Settings &settings, const std::string &default_dg, const std::string &output,
           RecordTime record_time) {
  const std::vector<ObjectPlan> plans = PlanObjects(settings, source->table());
  const std::string dg = settings.dg ? settings.dg->value : ReadDgName(default_dg, "default of --dg");
  Poll poll;
  if (!source->Next(&poll)) return;
  const uint32_t interval = settings.interval ? settings.interval->value : source->Interval(poll);
  Collector collector(source->table(), plans, settings, dg, interval);
  Output records(output);
  std::optional<std::string> report;
  FirstFailure failure;
  failure.Try([&] {
    do {
      if (record_time == RecordTime::kOfPoll) SetRecordTime(poll.time);
      collector.AddRows(poll, source->Place(poll));
      // The last poll may end with a clear, after which there would be nothing to report.
      if (settings.report && source->IsLast()) report = collector.Report();
      records.Write(collector.EndPoll());
      if (record_time == RecordTime::kNow) records.Flush();
    } while (source->Next(&poll));
  });
  failure.Try([&] {
    if (settings.report && !report) report = collector.Report();
  });
  failure.Try([&] { records.Write(collector.Finish()); });
  if (output == "-") records.Write(report.value_or(""));
  records.Close();
  if (output != "-" && report) {
    Output console("-");
    console.Write(*report);
    console.Close();
  }
  for (const std::string &note : collector.Notes()) fmt::print(stderr, "zorstat: {}\n", note);
  failure.Rethrow();
}

void Record(Source *source, const std::string &output) {
  Output file(output);
  std::string lines = PollFileHeader(source->table());
  Poll poll;
  while (source->Next(&poll)) {
    AppendPollLines(source->table(), poll, &lines);
    file.Write(lines);
    file.Flush();
    lines.clear();
  }
  file.Close();
}

}  // namespace zorstat
