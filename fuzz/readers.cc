// What zorstat reads: poll files with settings, which are then counted, and the kernel's tables. Whatever is in
// them, they are taken or refused with the errors meant for that; what was read can be written, and read again.
//
// An input is a letter, then text: that of kKernelTables and a table of the kernel, of a process its files stat and
// io with a line "===" between them; or "x" and what a command writes; or another and, with such lines between
// them, a settings file, options as on the command line (one a line, "name=value") and a poll file.

#include <sys/mman.h>
#include <unistd.h>

#include <string>

#include "input.h"
#include "tools/config_file.h"
#include "tools/error.h"
#include "tools/poll_file.h"
#include "tools/proc_table.h"
#include "tools/session.h"
#include "tools/settings.h"
#include "tools/source.h"

namespace zor_fuzz {
namespace {

using namespace zorstat;

constexpr std::uint32_t kManyBuckets = 500;  // more cost time and memory and show nothing new

constexpr std::pair<char, std::string_view> kKernelTables[] = {{'n', "net"},  {'d', "disk"}, {'c', "cpu"},
                                                               {'m', "mem"},  {'v', "vm"},   {'r', "pressure"},
                                                               {'e', "proc"}, {'s', "sock"}, {'i', "snmp"}};

constexpr std::string_view kOptions[] = {"statistics", "buckets",    "range",    "clear",      "objects",
                                         "instances",  "cumulative", "interval", "percentile", "dg"};

// Puts a text into a file in memory, which lasts as long as the process.
const std::string &FileWith(std::string_view text) {
  static const int fd = memfd_create("input", 0);
  static const std::string path = "/proc/self/fd/" + std::to_string(fd);
  ZOR_REQUIRE(ftruncate(fd, 0) == 0);
  ZOR_REQUIRE(pwrite(fd, text.data(), text.size(), 0) == static_cast<ssize_t>(text.size()));
  return path;
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
std::string Rewrite(std::string_view lines) {
  std::string text;
  Takes<Error>([&] {
    PollFileReader reader(FileWith(lines));
    text = PollFileHeader(reader.table());
    Poll poll;
    while (reader.Next(&poll)) {
      ZOR_REQUIRE(poll.rows() > 0);
      AppendPollLines(reader.table(), poll, &text);
    }
  });
  return text;
}

void ReadPolls(std::string_view text) {
  const std::string_view config = TakeUntil(&text, "\n===\n");
  std::string_view options = TakeUntil(&text, "\n===\n");
  Settings settings;
  const bool understood = Takes<SettingsError>([&] {
    settings = ReadConfigFile(FileWith(config));
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
  const std::string rewritten = Rewrite(text);
  ZOR_REQUIRE(Rewrite(rewritten) == rewritten);
  if (!understood) return;
  if (settings.buckets) settings.buckets->value = std::min(settings.buckets->value, kManyBuckets);
  for (Settings &object : settings.tables) {
    if (object.buckets) object.buckets->value = std::min(object.buckets->value, kManyBuckets);
  }
  Takes<Error>([&] {
    FileSource source(FileWith(text), false);
    Count(&source, settings, "dg", "-", RecordTime::kOfPoll);
  });
}

void ReadKernelTable(std::string_view source, std::string_view text) {
  ProcTable table(source, "/proc");
  Poll poll;
  const auto parse = [&] {
    if (source != "proc") return table.Parse("/proc/table", text, &poll);
    const std::string_view stat = TakeUntil(&text, "\n===\n");
    table.ParseProcess("/proc/1", stat, text, &poll);
  };
  if (!Takes<Error>(parse)) return;
  std::string lines = PollFileHeader(table.table());
  // A name that no poll file can hold is refused there.
  if (!Takes<Error>([&] { AppendPollLines(table.table(), poll, &lines); })) return;
  ZOR_REQUIRE(Rewrite(lines) == lines);
}

void ReadOutput(std::string_view text) {
  Takes<Error>([&] {
    PollFileReader reader("command", text);
    Poll poll;
    reader.Next(&poll);
    std::string lines = PollFileHeader(reader.table());
    AppendPollLines(reader.table(), poll, &lines);
    ZOR_REQUIRE(Rewrite(lines) == lines);
  });
}

}  // namespace
}  // namespace zor_fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  using namespace zor_fuzz;
  SilenceStandardOutput();
  if (size == 0) return 0;
  const std::string_view text(reinterpret_cast<const char *>(data) + 1, size - 1);
  const char letter = static_cast<char>(data[0]);
  for (const auto &[name, source] : kKernelTables) {
    if (letter == name) return ReadKernelTable(source, text), 0;
  }
  letter == 'x' ? ReadOutput(text) : ReadPolls(text);
  return 0;
}
