#include "stop.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>

#include "error.h"
#include "text.h"

namespace zorstat {
namespace {

// The handler writes to the pipe, from which nobody reads: so a wait sees a signal that came before it, too.
int stop_pipe[2] = {-1, -1};

void OnSignal(int) {
  const int error = errno;
  [[maybe_unused]] const ssize_t written = write(stop_pipe[1], "", 1);
  errno = error;
}

}  // namespace

void CatchStopSignals() {
  if (pipe2(stop_pipe, O_CLOEXEC | O_NONBLOCK) != 0) {
    throw Error(fmt::format("cannot wait for signals: {}", ErrnoText(errno)));
  }
  struct sigaction action {};
  action.sa_handler = OnSignal;
  action.sa_flags = SA_RESTART;
  for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
    struct sigaction before {};
    // A program that is to outlive its terminal was started with SIGHUP ignored.
    if (signal == SIGHUP && sigaction(signal, nullptr, &before) == 0 && before.sa_handler == SIG_IGN) continue;
    sigaction(signal, &action, nullptr);
  }
}

bool WaitUnlessStopped(int fd, int milliseconds) {
  pollfd files[] = {{stop_pipe[0], POLLIN, 0}, {fd, POLLIN, 0}};
  while (poll(files, 2, milliseconds) < 0 && errno == EINTR) {
  }
  return files[0].revents == 0;
}

}  // namespace zorstat
