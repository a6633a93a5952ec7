// Signals that ask the program to stop: SIGINT, SIGTERM and SIGHUP.
#ifndef ZORSTAT_STOP_H_
#define ZORSTAT_STOP_H_

namespace zorstat {

// From now on such a signal only ends the wait below, this one and all later ones.
void CatchStopSignals();

// Waits until fd can be read (none if it is negative), at most so long (for ever if negative). False when a signal
// asked to stop.
bool WaitUnlessStopped(int fd, int milliseconds);

}  // namespace zorstat

#endif  // ZORSTAT_STOP_H_
