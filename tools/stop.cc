#include "stop.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <poll.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <ctime>

#include "error.h"
#include "text.h"

namespace zorstat {
namespace {

constexpr int kSameSignal = 100;  // ms
constexpr int kPatience = 500;    // ms

// The handler writes to the pipe, from which nobody reads: so a wait sees a signal that came before it, too.
int stop_pipe[2] = {-1, -1};
std::atomic<bool> is_stopped = false;  // which a thread that reads ahead asks, too
static_assert(std::atomic<bool>::is_always_lock_free);
int64_t first_signal = 0;  // ms
int patience = kPatience;

int request_pipe[2] = {-1, -1};
volatile std::sig_atomic_t requested[NSIG] = {};
bool had_terminal = false;

int64_t Milliseconds() {
  timespec now;
  clock_gettime(CLOCK_MONOTONIC, &now);
  return int64_t{now.tv_sec} * 1000 + now.tv_nsec / 1'000'000;
}

void OnSignal(int number) {
  const int error = errno;
  if (!is_stopped) {
    is_stopped = true;
    first_signal = Milliseconds();
    [[maybe_unused]] const ssize_t written = write(stop_pipe[1], "", 1);
  } else if (Milliseconds() - first_signal > kSameSignal) {
    std::signal(number, SIG_DFL);
    std::raise(number);  // comes when this handler returns
  }
  errno = error;
}

void OnRequest(int number) {
  const int error = errno;
  requested[number] = 1;
  [[maybe_unused]] const ssize_t written = write(request_pipe[1], "", 1);
  errno = error;
}

bool HasTerminal() {
  const int fd = open("/dev/tty", O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
  if (fd >= 0) close(fd);
  return fd >= 0;
}

void Catch(int number, void (*handler)(int)) {
  struct sigaction before {};
  // A program that is to outlive its terminal was started with SIGHUP ignored.
  if (number == SIGHUP && sigaction(number, nullptr, &before) == 0 && before.sa_handler == SIG_IGN) return;
  struct sigaction action {};
  action.sa_handler = handler;
  for (const int other : {SIGINT, SIGTERM, SIGHUP, SIGUSR1}) sigaddset(&action.sa_mask, other);
  sigaction(number, &action, nullptr);
}

int Poll(pollfd *files, nfds_t count, int milliseconds) {
  int ready;
  do {
    ready = poll(files, count, milliseconds);
  } while (ready < 0 && errno == EINTR);
  return ready;
}

}  // namespace

void CatchStopSignals() {
  if (pipe2(stop_pipe, O_CLOEXEC | O_NONBLOCK) != 0 || pipe2(request_pipe, O_CLOEXEC | O_NONBLOCK) != 0) {
    throw Error(fmt::format("cannot wait for signals: {}", ErrnoText(errno)));
  }
  for (const int signal : {SIGINT, SIGTERM, SIGHUP}) Catch(signal, OnSignal);
  Catch(SIGUSR1, OnRequest);  // where nobody takes it, it does nothing
}

bool IsStopped() { return is_stopped; }

bool WaitUnlessStopped(int fd, int milliseconds) {
  pollfd files[] = {{stop_pipe[0], POLLIN, 0}, {fd, POLLIN, 0}};
  Poll(files, 2, milliseconds);
  return files[0].revents == 0;
}

bool WaitForInput(int fd) {
  pollfd files[] = {{fd, POLLIN, 0}, {stop_pipe[0], POLLIN, 0}};
  return Poll(files, 2, -1) < 0 || files[0].revents != 0;
}

bool WaitForOutput(int fd) {
  pollfd files[] = {{fd, POLLOUT, 0}, {stop_pipe[0], POLLIN, 0}};
  if (Poll(files, 2, -1) < 0 || files[0].revents != 0) return true;
  if (Poll(files, 1, patience) != 0) return true;
  patience = 0;
  return false;
}

void ReopenAtHangUp() {
  had_terminal = HasTerminal();
  Catch(SIGHUP, OnRequest);
}

void WaitForRequest(int milliseconds) {
  pollfd files[] = {{stop_pipe[0], POLLIN, 0}, {request_pipe[0], POLLIN, 0}};
  Poll(files, 2, milliseconds);
  // Before the flags are read, so that none is missed.
  for (char bytes[64]; read(request_pipe[0], bytes, sizeof bytes) > 0;) {
  }
}

bool TakeRequest(int signal) {
  if (requested[signal] == 0) return false;
  requested[signal] = 0;
  if (signal != SIGHUP || !had_terminal) return true;
  // When the first process of a session ends, the signal comes just before the terminal goes.
  if (WaitUnlessStopped(-1, kSameSignal) && HasTerminal()) return true;
  OnSignal(SIGHUP);
  return false;
}

}  // namespace zorstat
