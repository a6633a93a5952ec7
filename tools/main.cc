// zorstat: statistics of periodically polled counters, from poll files or from the running kernel.

#include <fcntl.h>
#include <fmt/format.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cctype>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <map>
#include <memory>
#include <new>
#include <optional>
#include <sstream>
#include <string>
#include <string_view>

#include "command_table.h"
#include "config_file.h"
#include "error.h"
#include "file.h"
#include "history_page.h"
#include "proc_table.h"
#include "query.h"
#include "session.h"
#include "settings.h"
#include "source.h"
#include "stop.h"
#include "suggest.h"
#include "text.h"
#include "top/top.h"
#include "zor/version.h"

namespace zorstat {
namespace {

constexpr int kFailure = 1;
constexpr int kUsage = 2;
constexpr int kOutside = 3;

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
    "SIGTERM, SIGHUP) ends the run as a failure; what was counted is written first. A second\n"
    "one ends it at once.\n"
    "\n"
    "Example: summaries and percentiles of two counters for every 6 polls, and a report:\n"
    "  zorstat replay polls.csv --cumulative all --objects rx_bytes,tx_bytes \\\n"
    "    --range 0:125000000 --clear 6 --report\n";

constexpr const char *kLiveFooter =
    "\nA signal (SIGINT, SIGTERM) ends the run; what was collected is written first. A second\n"
    "one ends it at once. SIGHUP opens the output file again, and ends a run that has none or\n"
    "whose terminal went away. SIGUSR1 ends the interval in progress now.\n"
    "Samples of counters are the differences from poll to poll. Columns are counters, except\n"
    "those of mem, sock and exec, in_flight of disk, threads and rss_bytes of proc,\n"
    "CurrEstab of snmp, and nr_dirty, nr_writeback and nr_dirty_* of vm.\n"
    "\n"
    "exec runs COMMAND at each poll, without a shell. It writes KEY,NAME[:TYPE],... and then\n"
    "KEY and values of a row a line. Its columns are gauges but for --cumulative. A poll whose\n"
    "command fails, or writes something else, is left out with a note.\n"
    "\n"
    "Example: record an hour's figures of one interface at every full hour of running:\n"
    "  zorstat live net --instances eth0 --objects rx_bytes,tx_bytes --clear 1h -o eth0.txt\n";

constexpr const char *kRecordFooter =
    "\nThe file is read by 'zorstat replay': give it '--cumulative LIST' with the counters\n"
    "('zorstat live --help' tells which they are). Each poll is written when it is taken.\n"
    "SIGHUP opens the file again, as in 'zorstat live'.\n"
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

constexpr const char *kQueryFooter =
    "FILE is a database that --sqlite keeps, or JSON Lines that --format jsonl writes; an\n"
    "interval that is in several of them counts once. Percentiles are those of all samples\n"
    "together: buckets are added, where ranges and buckets are the same; others stand apart.\n"
    "Times are local ones; TIME is a day or a time of day as in 2026-11-22 or\n"
    "'2026-11-22 14:00', a time ago as in -90m, -2h or -7d, or seconds since 1970. An\n"
    "interval has the time of its last poll.\n"
    "\n"
    "Example: CPU time since yesterday, by the hour:\n"
    "  zorstat query cpu.db --object user --instance cpu --from -1d --by hour\n";

constexpr const char *kPageFooter =
    "FILE and TIME are as in 'zorstat query'; an interval that is in several files counts\n"
    "once. The page is one file, and loads nothing from anywhere.\n"
    "\n"
    "Example: a page of what disks did since yesterday:\n"
    "  zorstat page disk.db --from -1d -o disk.html\n";

constexpr const char *kTopFooter =
    "Needs a terminal. Percentiles of an object without a range are those of its last 1000\n"
    "samples at most. Colours are left out where NO_COLOR is set. A signal (SIGINT, SIGTERM,\n"
    "SIGHUP) ends the view; ? tells its keys.\n"
    "\n"
    "Example: what each disk writes, in intervals of an hour:\n"
    "  zorstat top disk --objects writes,sectors_written --clear 1h\n";

// A command with its options.
class Command {
 public:
  Command(CLI::App *app, Place place, const char *input_name, const char *input_help)
      : app_(app), is_live_(place == kLive) {
    // That of live may be in its settings file.
    app->add_option(input_name, input, input_help)->required(!is_live_)->type_name("");
    for (const SettingRow &row : AllSettings()) {
      if ((row.places & place) == 0) continue;
      const std::string letter = row.letter == 0 ? "" : fmt::format("-{},", row.letter);
      const std::string name = fmt::format("{}--{}", letter, row.name);
      if (row.is_flag()) {
        app->add_flag(name, texts_[row.name], row.help);
      } else {
        app->add_option(name, texts_[row.name], row.help)->type_name(row.type);
      }
    }
  }

  bool has_name(std::string_view name) const { return app_->get_name() == name; }

  // Options go before the settings file that one of them may name.
  Settings ReadSettings() const {
    Settings settings = WithOptions({});
    if (!settings.config.empty()) settings = WithOptions(ReadConfigFile(settings.config, is_live_));
    settings.report = settings.report || settings.percentile;
    if (settings.append && FormatOf(settings) == Format::kTable) {
      throw SettingsError(fmt::format("{}: with --append: expected records, csv or jsonl", settings.format->where));
    }
    const bool on_screen = settings.output == "-" && isatty(STDOUT_FILENO) == 1;
    if (!settings.format && !settings.headers && on_screen)
      settings.format = {Format::kTable, "default of --format"};
    return settings;
  }

  std::string input;
  NameList words;  // of the command of exec

 private:
  Settings WithOptions(Settings settings) const {
    for (const auto &[name, text] : texts_) {
      if (app_->count("--" + name) != 0) SetOption(name, text, &settings);
    }
    return settings;
  }

  CLI::App *app_;
  bool is_live_;
  std::map<std::string, std::string> texts_;  // of the options, by name
};

void RefuseInputAsOutput(const FileSource &source, const Settings &settings) {
  const auto refuse = [&](const char *option, const std::string &file) {
    if (file.empty() || file == "-" || !IsSameFile(file, source.fd())) return;
    throw SettingsError(Refusal(option, file, "another file than the input"));
  };
  refuse("--output", settings.output);
  refuse("--html", settings.html);
}

void Replay(const Command &command) {
  const Settings settings = command.ReadSettings();
  const bool lines_on_screen = settings.output == "-" && isatty(STDOUT_FILENO) == 1;
  FileSource source(command.input, !lines_on_screen);
  RefuseInputAsOutput(source, settings);
  const std::string stem = command.input == "-" ? "stdin" : std::filesystem::path(command.input).stem().string();
  Count(&source, settings, stem, settings.output, RecordTime::kOfPoll);
}

std::unique_ptr<PolledTable> TableToPoll(const std::string &source, const NameList &words, const Settings &settings,
                                         std::uint32_t interval) {
  constexpr const char *kExec = "exec";
  if (source != kExec) {
    if (!words.empty()) throw SettingsError(Refusal(source, Printable(words[0]), "a command with exec alone"));
    return std::make_unique<ProcTable>(source, settings.proc, kExec);
  }
  const NameList &command = words.empty() ? settings.command : words;
  if (command.empty()) throw SettingsError("exec: has no command: expected exec -- COMMAND [ARG...]");
  const std::uint32_t timeout = settings.timeout ? std::min(settings.timeout->value, interval) : interval;
  return std::make_unique<CommandTable>(command, std::chrono::seconds(timeout));
}

LiveSource PolledSource(const std::string &source, const NameList &words, const Settings &settings) {
  const std::uint32_t interval = settings.interval ? settings.interval->value : kDefaultInterval;
  std::optional<std::uint32_t> count;
  if (settings.count) count = settings.count->value;
  return {TableToPoll(source, words, settings, interval), interval, count};
}

void Live(const Command &command) {
  Settings settings = command.ReadSettings();
  if (!command.input.empty()) settings.source = command.input;
  if (settings.source.empty()) throw SettingsError("SOURCE is required, here or in the settings file (see --help)");
  if (!settings.expire) settings.expire = {kDefaultExpire, "default of --expire"};
  if (IsFileOutput(settings.output)) ReopenAtHangUp();
  LiveSource source = PolledSource(settings.source, command.words, settings);
  Count(&source, settings, settings.source, settings.output, RecordTime::kNow);
}

void RecordPolls(const Command &command) {
  const Settings settings = command.ReadSettings();
  if (IsFileOutput(settings.output)) ReopenAtHangUp();
  LiveSource source = PolledSource(command.input, command.words, settings);
  Record(&source, settings.output, settings.append);
}

void Top(const Command &command) { Top(command.input, command.ReadSettings()); }

void Suggest(const Command &command) {
  const Settings settings = command.ReadSettings();
  FileSource source(command.input, true);
  RefuseInputAsOutput(source, settings);
  const std::string suggested = Suggest(&source, command.input, settings);
  Output output(settings.output);
  output.Write(suggested);
  output.Close();
}

void AddHistoryOptions(CLI::App *app, QueryOptions *options) {
  app->add_option("FILE", options->files, "histories, or - for standard input")->required()->type_name("");
  app->add_option("--object", options->object, "whose samples")->type_name("NAME");
  app->add_option("--instance", options->instance, "of this one (default: all)")->type_name("NAME");
  app->add_option("--group", options->group, "of this data group (default: each)")->type_name("NAME");
  app->add_option("--host", options->host, "of this host (default: all)")->type_name("NAME");
  app->add_option("--from", options->from, "of intervals that end at this time or later")->type_name("TIME");
  app->add_option("--to", options->to, "of intervals that end before this time")->type_name("TIME");
}

void AddQueryOptions(CLI::App *app, QueryOptions *options) {
  AddHistoryOptions(app, options);
  app->get_option("--object")->required();
  app->add_option("--by", options->by, "a line for each hour, day, instance or host")->type_name("WHAT");
  app->add_option("--points", options->points, "percentiles (default: 50,97.72,99.87)")->type_name("LIST");
  app->add_option("--format", options->format, "table, csv or jsonl (default: table)")->type_name("FORMAT");
  app->footer(kQueryFooter);
}

int Run(int argc, char **argv) {
  CLI::App app("Statistics of periodically polled counters.");
  app.name("zorstat");
  app.require_subcommand(1);
  app.set_version_flag("--version", "zorstat " ZOR_PROCESS_VERSION);
  app.footer(
      "\nzorstat COMMAND --help tells more.\n"
      "Exit status: 0; 1 for a failure, what came before it being written (without a\n"
      "message when nobody reads the output any more); 2 for wrong options or settings;\n"
      "3 for samples outside the ranges, see replay --fail-outside.\n"
      "\n"
      "An output file is written beside the one that has its name and takes its place with\n"
      "its first lines (live, record) or when it is complete (replay). With --append lines are\n"
      "written in place, behind those that it has.\n");

  constexpr const char *kSourceHelp = "net, disk, cpu, mem, vm, pressure, proc, sock or snmp";
  constexpr const char *kRecordSourceHelp =
      "net, disk, cpu, mem, vm, pressure, proc, sock or snmp; or\nexec -- COMMAND [ARG...]";
  constexpr const char *kLiveSourceHelp =
      "net, disk, cpu, mem, vm, pressure, proc, sock or snmp; or\nexec -- COMMAND [ARG...];\n"
      "as in the settings file if it is left out";
  CLI::App *replay = app.add_subcommand("replay", "count the polls of a file");
  const Command replay_command(replay, kReplay, "FILE", "poll file, or - for standard input");
  replay->footer(std::string("\n") + kRecordsFooter + kReplayFooter);

  CLI::App *live = app.add_subcommand("live", "count the kernel's counters");
  Command live_command(live, kLive, "SOURCE", kLiveSourceHelp);
  live->footer(std::string("\n") + kRecordsFooter + kLiveFooter);

  CLI::App *record = app.add_subcommand("record", "write the kernel's counters to a poll file");
  Command record_command(record, kRecord, "SOURCE", kRecordSourceHelp);
  record->footer(kRecordFooter);

  CLI::App *suggest = app.add_subcommand("suggest", "write settings that fit a poll file");
  const Command suggest_command(suggest, kSuggest, "FILE", "poll file, or - for standard input");
  suggest->footer(kSuggestFooter);

  CLI::App *query = app.add_subcommand("query", "percentiles of what runs have kept, together");
  QueryOptions query_options;
  AddQueryOptions(query, &query_options);

  CLI::App *page = app.add_subcommand("page", "write what runs have kept as a page for a browser");
  QueryOptions page_options;
  std::string page_output = "-";
  AddHistoryOptions(page, &page_options);
  page->add_option("-o,--output", page_output, "page (default: standard output)")->type_name("FILE");
  page->footer(kPageFooter);

  CLI::App *top = app.add_subcommand("top", "show the kernel's counters on the terminal");
  const Command top_command(top, kTop, "SOURCE", kSourceHelp);
  top->footer(kTopFooter);

  // Behind -- the words are another program's, whatever they look like.
  char **words = argv + argc;
  for (Command *command : {&live_command, &record_command}) {
    if (argc < 2 || !command->has_name(argv[1])) continue;
    words = std::find(argv, argv + argc, std::string_view("--"));
    if (words != argv + argc) command->words = {words + 1, argv + argc};
  }
  try {
    app.parse(static_cast<int>(words - argv), argv);
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
  if (replay->parsed()) Replay(replay_command);
  if (live->parsed()) Live(live_command);
  if (record->parsed()) RecordPolls(record_command);
  if (suggest->parsed()) Suggest(suggest_command);
  if (query->parsed()) Query(query_options);
  if (page->parsed()) WriteHistoryPage(page_options, page_output);
  if (top->parsed()) Top(top_command);
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
  } catch (const zorstat::Verdict &verdict) {
    for (const std::string &line : verdict.lines()) zorstat::Complain(line);
    return zorstat::kOutside;
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
