// zorstat: statistics of periodically polled counters, from poll files or from the running kernel.

#include <fcntl.h>
#include <fmt/format.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cctype>
#include <csignal>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <limits>
#include <map>
#include <new>
#include <optional>
#include <sstream>
#include <string>

#include "config_file.h"
#include "error.h"
#include "file.h"
#include "session.h"
#include "settings.h"
#include "source.h"
#include "stop.h"
#include "suggest.h"
#include "zor/version.h"

namespace zorstat {
namespace {

constexpr int kFailure = 1;
constexpr int kUsage = 2;
constexpr uint32_t kDefaultInterval = 10;

constexpr const char *kRecordsFooter =
    "Records are lines of comma-separated fields: DG-summary, DG-percentile or\n"
    "DG-baseline, the time, the object, the instance, the number of samples and their\n"
    "figures. A distribution has no record; it is shown by --report.\n"
    "\n"
    "Settings made in the [objects.NAME] tables of a settings file hold for that object;\n"
    "options override the settings at its top level.\n";

constexpr const char *kReplayFooter =
    "\nPoll file: a line time,KEY,NAME[:TYPE],... and then a line per row of each poll:\n"
    "seconds since 1970, key, values. TYPE is i32, u32, i64 or u64 (the default). An empty\n"
    "value is none; a new time begins a new poll; times do not go back. A signal (SIGINT,\n"
    "SIGTERM, SIGHUP) ends the run as a failure; what was counted is written first.\n"
    "\n"
    "Example: summaries and percentiles of two counters for every 6 polls, and a report:\n"
    "  zorstat replay polls.csv --cumulative all --objects rx_bytes,tx_bytes \\\n"
    "    --range 0:125000000 --clear 6 --report\n";

constexpr const char *kLiveFooter =
    "\nA signal (SIGINT, SIGTERM, SIGHUP) ends the run; what was collected is written first.\n"
    "All columns are counters, whose samples are the differences from poll to poll, except\n"
    "the gauge in_flight of disk.\n"
    "\n"
    "Example: record an hour's figures of one interface at every full hour of running:\n"
    "  zorstat live net --instances eth0 --objects rx_bytes,tx_bytes --clear 1h -o eth0.txt\n";

constexpr const char *kRecordFooter =
    "\nThe file is read by 'zorstat replay' (give it '--cumulative all', as the columns are\n"
    "counters, except the gauge in_flight of disk). Each poll is written when it is taken.\n"
    "\n"
    "Example: an hour of disk counters, a poll every 30 seconds:\n"
    "  zorstat record disk --interval 30 --count 120 -o disk.csv\n";

constexpr const char *kSuggestFooter =
    "\nRead what comes out before it is used: the kind of a column is guessed from its values,\n"
    "and a range holds for what the file has seen.\n"
    "\n"
    "Example: settings for a recording, then its records:\n"
    "  zorstat suggest polls.csv -o polls.toml\n"
    "  zorstat replay polls.csv --config polls.toml\n";

struct TextOption {
  const char *name;
  const char *type;
  const char *help;
};

constexpr TextOption kStatisticsOptions[] = {
    {"statistics", "LIST", "summary, distribution, percentile, or baseline alone\n(default: summary,percentile)"},
    {"buckets", "N", "buckets of a distribution, 1 to 65535 (default: 100)"},
    {"range", "LOW:HIGH",
     "values that the buckets cover, both included\n(default: all values of the column's type)"},
    {"clear", "N|HOURSh",
     "write records and start anew after this many polls, or\n"
     "hours as in 2h (default: once, at the end, or after the\n"
     "65535 polls that buckets can count); for a baseline: the\n"
     "samples it learns from, and between records (default:\n2000)"},
    {"objects", "LIST", "columns to count (default: all)"},
    {"instances", "LIST", "keys to count (default: all)"},
    {"dg", "NAME",
     "data group, the first word of records (default: the file's\nname without its extension, or the"
     " source)"},
    {"percentile", "P", "report this percentile, 0 to 100, instead of the nine\nstandard ones; implies --report"},
};

// The options of one command, as given.
class Options {
 public:
  explicit Options(CLI::App *app) : app_(app) {}

  void AddText(const TextOption &option) {
    app_->add_option(fmt::format("--{}", option.name), texts_[option.name], option.help)->type_name(option.type);
  }
  void AddStatistics() {
    for (const TextOption &option : kStatisticsOptions) AddText(option);
    app_->add_flag("--headers", headers_, "write each record kind's Schema-def header first");
    app_->add_flag("--report", report_, "at the end, print the interval in progress");
    app_->add_option("--config", config_, "settings in TOML")->type_name("FILE");
    app_->add_option("-o,--output", output, "write records to this file (default: standard output)")
        ->type_name("FILE");
  }
  void AddKernelSource() {
    app_->add_option("SOURCE", source, "net (interfaces), disk (devices) or cpu (processors)")
        ->required()
        ->type_name("");
    AddText({"interval", "SECONDS", "between polls, at least 10 (default: 10)"});
    app_->add_option("--count", count_, "end after this many polls (default: at a signal)")->type_name("N");
    app_->add_option("--proc", proc, "directory of the proc file system (default: /proc)")->type_name("DIR");
  }

  Settings ReadSettings() const {
    Settings settings;
    if (!config_.empty()) settings = ReadConfigFile(config_);
    for (const auto &[name, text] : texts_) {
      if (app_->count("--" + name) != 0) SetOption(name, text, &settings);
    }
    settings.headers = settings.headers || headers_;
    settings.report = settings.report || report_ || settings.percentile;
    return settings;
  }

  std::optional<uint32_t> Count() const {
    if (count_.empty()) return std::nullopt;
    return ReadCount(count_, "--count", 1, std::numeric_limits<uint32_t>::max());
  }

  SuggestOptions ReadSuggestOptions() const {
    SuggestOptions options;
    if (const Settings settings = ReadSettings(); settings.clear) options.clear = *settings.clear;
    if (app_->count("--outside") != 0) options.outside = ReadOutside(outside);
    return options;
  }

  void RefuseInputAsOutput(const FileSource &input) const {
    if (output == "-" || !IsSameFile(output, input.fd())) return;
    throw SettingsError(fmt::format("--output: '{}': expected another file than the input", output));
  }

  std::string file;
  std::string outside;
  std::string source;
  std::string output = "-";
  std::string proc = "/proc";

 private:
  CLI::App *app_;
  std::map<std::string, std::string> texts_;
  std::string count_;
  std::string config_;
  bool headers_ = false;
  bool report_ = false;
};

void Replay(const Options &options) {
  const Settings settings = options.ReadSettings();
  const bool lines_on_screen = options.output == "-" && isatty(STDOUT_FILENO) == 1;
  FileSource source(options.file, !lines_on_screen);
  options.RefuseInputAsOutput(source);
  const std::string stem = options.file == "-" ? "stdin" : std::filesystem::path(options.file).stem().string();
  Count(&source, settings, stem, options.output, RecordTime::kOfPoll);
}

void Suggest(const Options &options) {
  const SuggestOptions suggest_options = options.ReadSuggestOptions();
  FileSource source(options.file, true);
  options.RefuseInputAsOutput(source);
  const std::string settings = Suggest(&source, options.file, suggest_options);
  Output output(options.output);
  output.Write(settings);
  output.Close();
}

LiveSource KernelSource(const Options &options, const Settings &settings) {
  const uint32_t interval = settings.interval ? settings.interval->value : kDefaultInterval;
  return {options.source, options.proc, interval, options.Count()};
}

void Live(const Options &options) {
  const Settings settings = options.ReadSettings();
  LiveSource source = KernelSource(options, settings);
  Count(&source, settings, options.source, options.output, RecordTime::kNow);
}

void RecordPolls(const Options &options) {
  LiveSource source = KernelSource(options, options.ReadSettings());
  Record(&source, options.output);
}

int Run(int argc, char **argv) {
  CLI::App app("Statistics of periodically polled counters.");
  app.name("zorstat");
  app.require_subcommand(1);
  app.set_version_flag("--version", "zorstat " ZOR_PROCESS_VERSION);
  app.footer(
      "\nzorstat COMMAND --help tells more.\n"
      "Exit status: 0; 1 for a failure, what came before it being written (without a\n"
      "message when nobody reads the output any more); 2 for wrong options or settings.\n"
      "\n"
      "An output file is written beside the one that has its name and takes its place with\n"
      "its first lines (live, record) or when it is complete (replay).\n");

  CLI::App *replay = app.add_subcommand("replay", "count the polls of a file");
  Options replay_options(replay);
  replay->add_option("FILE", replay_options.file, "poll file, or - for standard input")->required()->type_name("");
  replay_options.AddText({"cumulative", "LIST",
                          "columns that are counters, whose samples are the differences\n"
                          "from poll to poll; or all (default: none)"});
  replay_options.AddText({"interval", "SECONDS", "between polls, at least 10 (default: that of the first two)"});
  replay_options.AddStatistics();
  replay->footer(std::string("\n") + kRecordsFooter + kReplayFooter);

  CLI::App *live = app.add_subcommand("live", "count the kernel's counters");
  Options live_options(live);
  live_options.AddKernelSource();
  live_options.AddStatistics();
  live->footer(std::string("\n") + kRecordsFooter + kLiveFooter);

  CLI::App *record = app.add_subcommand("record", "write the kernel's counters to a poll file");
  Options record_options(record);
  record_options.AddKernelSource();
  record->add_option("-o,--output", record_options.output, "poll file (default: standard output)")
      ->type_name("FILE");
  record->footer(kRecordFooter);

  CLI::App *suggest = app.add_subcommand("suggest", "write settings that fit a poll file");
  Options suggest_options(suggest);
  suggest->add_option("FILE", suggest_options.file, "poll file, or - for standard input")
      ->required()
      ->type_name("");
  suggest_options.AddText({"clear", "N|HOURSh", "polls, or hours as in 2h, between records (default: 60)"});
  suggest
      ->add_option(
          "--outside", suggest_options.outside,
          "per cent of the samples that a range may leave out where\nthe rare ones cost much (default: 0.1)")
      ->type_name("PERCENT");
  suggest->add_option("-o,--output", suggest_options.output, "settings file (default: standard output)")
      ->type_name("FILE");
  suggest->footer(kSuggestFooter);

  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError &error) {
    if (error.get_exit_code() == 0) {  // help
      std::ostringstream text;
      app.exit(error, text);
      Output out("-");
      out.Write(text.str());
      out.Close();
      return 0;
    }
    std::string message = error.what();
    if (message.size() > 1 && std::isupper(static_cast<unsigned char>(message[1])) == 0) {  // not a name as FILE is
      message[0] = static_cast<char>(std::tolower(static_cast<unsigned char>(message[0])));
    }
    Complain(message + " (see --help)");
    return kUsage;
  }
  CatchStopSignals();
  if (replay->parsed()) Replay(replay_options);
  if (live->parsed()) Live(live_options);
  if (record->parsed()) RecordPolls(record_options);
  if (suggest->parsed()) Suggest(suggest_options);
  return 0;
}

}  // namespace
}  // namespace zorstat

namespace {

constexpr char kOutOfMemory[] = "out of memory";

// Where there is no memory even for an exception, in the initialisation of static objects too: hence this early.
[[gnu::constructor(101)]] void EndCleanlyWithoutMemory() {
  std::set_terminate([] {
    try {
      if (const std::exception_ptr pending = std::current_exception()) std::rethrow_exception(pending);
    } catch (const std::bad_alloc &) {
    } catch (...) {
      std::abort();
    }
    zorstat::Complain(kOutOfMemory);
    _exit(zorstat::kFailure);
  });
}

// A file opened in the place of a standard one that was closed would get what is meant for that. What takes the
// place here can only fail.
void FillStandardDescriptors() {
  for (const int fd : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
    if (fcntl(fd, F_GETFD) < 0) open("/dev/null", fd == STDIN_FILENO ? O_WRONLY : O_RDONLY);
  }
}

}  // namespace

int main(int argc, char **argv) {
  FillStandardDescriptors();
  // Told by the write that fails.
  std::signal(SIGPIPE, SIG_IGN);
  std::signal(SIGXFSZ, SIG_IGN);
  try {
    return zorstat::Run(argc, argv);
  } catch (const zorstat::OutputError &error) {
    // A reader that went away knows it.
    if (!error.broken_pipe()) zorstat::Complain(error.what());
    return zorstat::kFailure;
  } catch (const zorstat::SettingsError &error) {
    zorstat::Complain(error.what());
    return zorstat::kUsage;
  } catch (const std::bad_alloc &) {
    zorstat::Complain(kOutOfMemory);
    return zorstat::kFailure;
  } catch (const std::exception &error) {
    zorstat::Complain(error.what());
    return zorstat::kFailure;
  }
}
