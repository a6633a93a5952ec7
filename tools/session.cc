#include "session.h"

#include <optional>
#include <string>
#include <vector>

#include "clock.h"
#include "collector.h"
#include "error.h"
#include "file.h"
#include "poll_file.h"

namespace zorstat {
namespace {

constexpr size_t kBatch = size_t{256} * 1024;

void WriteOut(std::string *lines, Output *output) {
  output->Write(*lines);
  lines->clear();
}

}  // namespace

void Count(Source *source, const Settings &settings, const std::string &default_dg, const std::string &output,
           RecordTime record_time) {
  const std::vector<ObjectPlan> plans = PlanObjects(settings, source->table());
  const std::string dg = settings.dg ? settings.dg->value : ReadDgName(default_dg, "default of --dg");
  Poll poll;
  if (!source->Next(&poll)) return;
  const uint32_t interval = settings.interval ? settings.interval->value : source->Interval(poll);
  Collector collector(source->table(), plans, settings, dg, interval);
  Output file(output);
  std::string records;  // not yet written
  std::optional<std::string> report;
  FirstFailure failure;
  failure.Try([&] {
    do {
      if (record_time == RecordTime::kOfPoll) SetRecordTime(poll.time);
      collector.AddRows(poll, source->Place(poll));
      // The last poll may end with a clear, after which there would be nothing to report.
      if (settings.report && source->IsLast()) report = collector.Report();
      collector.EndPoll(&records);
      if (record_time == RecordTime::kNow && !records.empty()) {
        WriteOut(&records, &file);
        file.Publish();
      } else if (records.size() >= kBatch) {
        WriteOut(&records, &file);
      }
    } while (source->Next(&poll));
  });
  failure.Try([&] {
    if (settings.report && !report) report = collector.Report();
  });
  failure.Try([&] { collector.Finish(&records); });
  WriteOut(&records, &file);
  if (output == "-") file.Write(report.value_or(""));
  file.Close();
  if (output != "-" && report) {
    Output console("-");
    console.Write(*report);
    console.Close();
  }
  failure.Try([&] {
    for (const std::string &note : collector.Notes()) Complain(note);
  });
  failure.Rethrow();
}

void Record(Source *source, const std::string &output) {
  Output file(output);
  std::string lines = PollFileHeader(source->table());
  Poll poll;
  while (source->Next(&poll)) {
    AppendPollLines(source->table(), poll, &lines);
    WriteOut(&lines, &file);
    file.Publish();
  }
  file.Close();
}

}  // namespace zorstat
