#include "stop.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <poll.h>
#include <unistd.h>

#include <csignal>
#include <ctime>

#include "error.h"
#include "text.h"

namespace zorstat {
namespace {

constexpr int64_t kSameSignal = 100;  // ms
constexpr int kPatience = 500;        // ms

// The handler writes to the pipe, from which nobody reads: so a wait sees a signal that came before it, too.
int stop_pipe[2] = {-1, -1};
volatile std::sig_atomic_t is_stopped = 0;
int64_t first_signal = 0;  // ms
int patience = kPatience;

int64_t Milliseconds() {
  timespec now;
  clock_gettime(CLOCK_MONOTONIC, &now);
  return int64_t{now.tv_sec} * 1000 + now.tv_nsec / 1'000'000;
}

void OnSignal(int number) {
  const int error = errno;
  if (is_stopped == 0) {
    is_stopped = 1;
    first_signal = Milliseconds();
    [[maybe_unused]] const ssize_t written = write(stop_pipe[1], "", 1);
  } else if (Milliseconds() - first_signal > kSameSignal) {
    std::signal(number, SIG_DFL);
    std::raise(number);  // comes when this handler returns
  }
  errno = error;
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
  if (pipe2(stop_pipe, O_CLOEXEC | O_NONBLOCK) != 0) {
    throw Error(fmt::format("cannot wait for signals: {}", ErrnoText(errno)));
  }
  struct sigaction action {};
  action.sa_handler = OnSignal;
  for (const int signal : {SIGINT, SIGTERM, SIGHUP}) sigaddset(&action.sa_mask, signal);
  for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
    struct sigaction before {};
    // A program that is to outlive its terminal was started with SIGHUP ignored.
    if (signal == SIGHUP && sigaction(signal, nullptr, &before) == 0 && before.sa_handler == SIG_IGN) continue;
    sigaction(signal, &action, nullptr);
  }
}

bool IsStopped() { return is_stopped != 0; }

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

}  // namespace zorstat
