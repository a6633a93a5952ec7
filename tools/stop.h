// Signals that ask the program to stop: SIGINT, SIGTERM and SIGHUP. None makes a system call go on by itself: what
// may take long waits here first, and is told of the signal.
#ifndef ZORSTAT_STOP_H_
#define ZORSTAT_STOP_H_

#include <sys/types.h>

#include <cerrno>

namespace zorstat {

// From now on the first such signal only ends the waits below, this one and later ones. Another ends the process,
// unless it comes within a tenth of a second: a terminal that closes, and timeout(1), send two.
void CatchStopSignals();

// Work that takes long asks this every 100 ms at least.
bool IsStopped();

// Waits until fd can be read (none if it is negative), at most so long (for ever if negative). False when a signal
// asked to stop, also if fd can be read.
bool WaitUnlessStopped(int fd, int milliseconds);

// Waits until fd can be read. False when a signal asked to stop and there is nothing to read.
bool WaitForInput(int fd);

// Waits until fd takes output: up to PIPE_BUF bytes are then written at once. False when a signal asked to stop and
// fd has taken nothing for half a second; from then on false at once when it takes nothing.
bool WaitForOutput(int fd);

// Makes a system call on fd after each of these waits, until no signal interrupts it and nobody else takes what was
// there; -1 with EINTR when the wait says to stop.
template <class Call>
ssize_t WhenReady(bool (*wait)(int fd), int fd, Call call) {
  while (wait(fd)) {
    const ssize_t result = call();
    if (result >= 0 || (errno != EINTR && errno != EAGAIN)) return result;
  }
  errno = EINTR;
  return -1;
}

// Signals that ask a run to do something and to go on: SIGUSR1 for what it likes, and, once this was called, SIGHUP
// to open its output again. SIGHUP still asks to stop where it was the terminal of the start that went away, and
// nothing where it was ignored at the start.
void ReopenAtHangUp();

// Waits until such a signal comes, or has come since it was last taken, or one asks to stop; at most so long.
void WaitForRequest(int milliseconds);

// Whether the signal has come since the last call.
bool TakeRequest(int signal);

}  // namespace zorstat

#endif  // ZORSTAT_STOP_H_
