// What zorstat reads: poll files with settings, which are then counted, and the kernel's tables. Whatever is in
// them, they are taken or refused with the errors meant for that.
//
// An input is a letter, then text: "n", "d" or "c" and a table of the kernel; or "p" and, with lines "===" between
// them, a settings file, options as on the command line (one a line, "name=value") and a poll file.

#include <sys/mman.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "input.h"
#include "tools/clock.h"
#include "tools/collector.h"
#include "tools/config_file.h"
#include "tools/error.h"
#include "tools/poll_file.h"
#include "tools/proc_table.h"
#include "tools/settings.h"
#include "tools/source.h"
#include "tools/text.h"

namespace zor_fuzz {
namespace {

using namespace zorstat;

constexpr std::uint32_t kManyBuckets = 500;  // more cost time and memory and show nothing new

constexpr std::string_view kOptions[] = {"statistics", "buckets",    "range",    "clear",      "objects",
                                         "instances",  "cumulative", "interval", "percentile", "dg"};

// A file in memory, which lasts as long as the process.
class MemoryFile {
 public:
  MemoryFile() : fd_(memfd_create("input", 0)), path_("/proc/self/fd/" + std::to_string(fd_)) {}

  const std::string &With(std::string_view text) const {
    ZOR_REQUIRE(ftruncate(fd_, 0) == 0);
    ZOR_REQUIRE(pwrite(fd_, text.data(), text.size(), 0) == static_cast<ssize_t>(text.size()));
    return path_;
  }

 private:
  int fd_;
  std::string path_;
};

const MemoryFile &TheFile() {
  static const MemoryFile file;
  return file;
}

// Takes a step that may be refused. Any other exception ends the run.
template <class Refusal, class Step>
bool Takes(Step step) {
  try {
    step();
    return true;
  } catch (const Refusal &refusal) {
    ZOR_REQUIRE(*refusal.what() != '\0');
    return false;
  }
}

std::string_view TakeUntil(std::string_view *text, std::string_view separator) {
  const std::string_view part = text->substr(0, text->find(separator));
  text->remove_prefix(std::min(part.size() + separator.size(), text->size()));
  return part;
}

// What the reader made of a poll file, as a poll file.
std::string Rewrite(const std::string &path) {
  std::string text;
  Takes<Error>([&] {
    PollFileReader reader(path);
    text = PollFileHeader(reader.table());
    Poll poll;
    while (reader.Next(&poll)) {
      ZOR_REQUIRE(poll.rows() > 0);
      AppendPollLines(reader.table(), poll, &text);
    }
  });
  return text;
}

void CheckRecords(std::string_view records) {
  while (!records.empty()) {
    const std::size_t end = records.find("\r\n");
    ZOR_REQUIRE(end != std::string_view::npos && end > 0);
    ZOR_REQUIRE(std::find_if(records.begin(), records.begin() + end, IsControl) == records.begin() + end);
    records.remove_prefix(end + 2);
  }
}

// Counts a poll file as a replay does.
void Count(const Settings &settings, const std::string &path) {
  FileSource source(path, false);
  std::vector<ObjectPlan> plans = PlanObjects(settings, source.table());
  for (ObjectPlan &plan : plans) plan.buckets = std::min(plan.buckets, kManyBuckets);
  Poll poll;
  if (!source.Next(&poll)) return;
  const std::uint32_t interval = settings.interval ? settings.interval->value : source.Interval(poll);
  Collector collector(source.table(), plans, settings, settings.dg ? settings.dg->value : "dg", interval);
  std::string records;
  FirstFailure failure;
  failure.Try([&] {
    do {
      SetRecordTime(poll.time);
      collector.AddRows(poll, source.Place(poll));
      if (settings.report && source.IsLast()) collector.Report();
      collector.EndPoll(&records);
    } while (source.Next(&poll));
  });
  failure.Try([&] { collector.Report(); });
  failure.Try([&] { collector.Finish(&records); });
  CheckRecords(records);
  collector.Notes();
  failure.Rethrow();
}

void ReadPolls(std::string_view text) {
  const std::string_view config = TakeUntil(&text, "\n===\n");
  std::string_view options = TakeUntil(&text, "\n===\n");
  Settings settings;
  const bool understood = Takes<SettingsError>([&] {
    settings = ReadConfigFile(TheFile().With(config));
    while (!options.empty()) {
      std::string_view value = TakeUntil(&options, "\n");
      const std::string_view name = TakeUntil(&value, "=");
      settings.headers = settings.headers || name == "headers";
      settings.report = settings.report || name == "report";
      if (std::count(std::begin(kOptions), std::end(kOptions), name) != 0) {
        SetOption(name, std::string(value), &settings);
      }
    }
  });
  // What was taken is taken again, unchanged.
  const std::string rewritten = Rewrite(TheFile().With(text));
  ZOR_REQUIRE(Rewrite(TheFile().With(rewritten)) == rewritten);
  if (understood) Takes<Error>([&] { Count(settings, TheFile().With(text)); });
}

void ReadKernelTable(std::string_view kind, std::string_view text) {
  ProcTable table(kind, "/proc");
  Poll poll;
  if (!Takes<Error>([&] { table.Parse(text, &poll); })) return;
  std::string lines = PollFileHeader(table.table());
  // A name that no poll file can hold is refused there.
  if (!Takes<Error>([&] { AppendPollLines(table.table(), poll, &lines); })) return;
  ZOR_REQUIRE(Rewrite(TheFile().With(lines)) == lines);
}

}  // namespace
}  // namespace zor_fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  using namespace zor_fuzz;
  SilenceStandardOutput();
  if (size == 0) return 0;
  const std::string_view text(reinterpret_cast<const char *>(data) + 1, size - 1);
  switch (data[0]) {
    case 'n':
      ReadKernelTable("net", text);
      break;
    case 'd':
      ReadKernelTable("disk", text);
      break;
    case 'c':
      ReadKernelTable("cpu", text);
      break;
    default:
      ReadPolls(text);
  }
  return 0;
}
