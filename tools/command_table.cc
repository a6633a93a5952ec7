#include "command_table.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <ctime>
#include <limits>
#include <thread>
#include <utility>

#include "child.h"
#include "error.h"
#include "poll_file.h"
#include "stop.h"
#include "text.h"

namespace zorstat {
namespace {

using std::chrono::milliseconds;
using Clock = std::chrono::steady_clock;
using Failure = CommandTable::Failure;

constexpr size_t kLargestOutput = size_t{16} * 1024 * 1024;
constexpr milliseconds kGrace{500};  // from SIGTERM to SIGKILL
constexpr milliseconds kExitWait{5};

// A run of a command in a process group of its own, which ends with this.
class CommandRun {
 public:
  CommandRun() = default;
  ~CommandRun() { End(true); }
  CommandRun(const CommandRun &) = delete;
  CommandRun &operator=(const CommandRun &) = delete;

  // errno, or 0.
  int Start(const std::vector<std::string> &command);

  // Reads the output until the command has ended.
  Failure Read(Clock::time_point limit, std::string *output);

  // The status, for which it waits; nothing is left of the group if it is to end now.
  int End(bool is_now);

 private:
  bool HasEnded() const;

  pid_t id_ = -1;
  int output_ = -1;
};

int CommandRun::Start(const std::vector<std::string> &command) {
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) return errno;
  output_ = ends[0];
  fcntl(output_, F_SETFL, O_NONBLOCK);
  const int nothing = open("/dev/null", O_RDONLY | O_CLOEXEC);
  const int error = nothing < 0 ? errno : Spawn(command[0], command, nothing, ends[1], &id_);
  if (nothing >= 0) close(nothing);
  close(ends[1]);
  if (error != 0) id_ = -1;
  return error;
}

// Leaves it there, so that its id stays that of its group.
bool CommandRun::HasEnded() const {
  siginfo_t info{};
  return waitid(P_PID, static_cast<id_t>(id_), &info, WEXITED | WNOHANG | WNOWAIT) != 0 || info.si_pid != 0;
}

Failure CommandRun::Read(Clock::time_point limit, std::string *output) {
  constexpr milliseconds kLongestWait{std::numeric_limits<int>::max()};
  bool is_open = true;
  char piece[65536];
  while (is_open || !HasEnded()) {
    const auto left = std::chrono::ceil<milliseconds>(limit - Clock::now());
    if (left <= milliseconds(0)) return Failure::kTime;
    const milliseconds wait = std::min(left, is_open ? kLongestWait : kExitWait);
    if (!WaitUnlessStopped(is_open ? output_ : -1, static_cast<int>(wait.count()))) return Failure::kStopped;
    if (!is_open) continue;
    const ssize_t got = read(output_, piece, sizeof piece);
    is_open = got > 0 || (got < 0 && (errno == EAGAIN || errno == EINTR));
    if (got > 0) output->append(piece, static_cast<size_t>(got));
    if (output->size() > kLargestOutput) return Failure::kSize;
  }
  return Failure::kNone;
}

int CommandRun::End(bool is_now) {
  int status = 0;
  if (id_ > 0) {
    if (is_now) {
      kill(-id_, SIGTERM);
      const Clock::time_point end = Clock::now() + kGrace;
      while (!HasEnded() && Clock::now() < end) std::this_thread::sleep_for(kExitWait);
      kill(-id_, SIGKILL);
    }
    while (waitpid(id_, &status, 0) < 0 && errno == EINTR) {
    }
  }
  if (output_ >= 0) close(output_);
  id_ = output_ = -1;
  return status;
}

std::string HeaderOf(const Table &table) {
  const std::string line = PollFileHeader(table);
  const size_t start = line.find(',') + 1;  // behind the time
  return line.substr(start, line.size() - start - 1);
}

}  // namespace

CommandTable::CommandTable(std::vector<std::string> command, std::chrono::seconds limit)
    : command_(std::move(command)), limit_(limit) {
  std::signal(SIGCHLD, SIG_DFL);  // if it were ignored, no status could be asked for
  Poll poll;
  poll.time = time(nullptr);
  has_first_ = Read(&poll);
  first_ = std::move(poll);
}

bool CommandTable::Read(Poll *poll) {
  if (has_first_) {
    *poll = std::exchange(first_, {});
    return *std::exchange(has_first_, std::nullopt);
  }
  std::string message;
  const Failure failure = Run(poll, &message);
  if (header_.empty()) throw Error(message);
  if (failure == Failure::kNone) {
    told_.clear();
  } else if (failure != Failure::kStopped && told_.insert(failure).second) {
    Complain(message + "; poll left out");
  }
  return failure == Failure::kNone;
}

Failure CommandTable::Run(Poll *poll, std::string *message) {
  CommandRun run;
  if (const int error = run.Start(command_)) {
    *message = fmt::format("{}: cannot be started: {}", name(), ErrnoText(error));
    return Failure::kStart;
  }
  std::string output;
  Failure failure = run.Read(Clock::now() + limit_, &output);
  const int status = run.End(failure != Failure::kNone);
  if (failure == Failure::kStopped) {
    *message = fmt::format("{}: interrupted", name());
  } else if (failure == Failure::kTime) {
    *message = fmt::format("{}: was ended: expected its end within {} s", name(), limit_.count());
  } else if (failure == Failure::kSize) {
    *message = fmt::format("{}: was ended: expected at most {} bytes", name(), kLargestOutput);
  } else if (WIFSIGNALED(status)) {
    failure = Failure::kSignal;
    *message = fmt::format("{}: signal {} has ended it: expected exit status 0", name(), WTERMSIG(status));
  } else if (status != 0) {
    failure = Failure::kStatus;
    *message = Refusal(fmt::format("{}: exit status", name()), std::to_string(WEXITSTATUS(status)), "0");
  }
  if (failure != Failure::kNone) output.resize(output.rfind('\n') + 1);  // whole lines
  try {
    PollFileReader reader(name(), output);
    const std::string header = HeaderOf(reader.table());
    if (header_.empty()) {
      table_ = reader.table();
      header_ = header;
    }
    if (failure != Failure::kNone) return failure;
    if (header != header_) {
      *message = Refusal(fmt::format("{}:1: header", name()), Printable(header), Printable(header_));
      return Failure::kHeader;
    }
    reader.Next(poll);
    return Failure::kNone;
  } catch (const Error &error) {
    if (failure != Failure::kNone) return failure;
    *message = error.what();
    return Failure::kRows;
  }
}

}  // namespace zorstat
