// Threads beside the main one.
#ifndef ZORSTAT_SIGNALS_BLOCKED_H_
#define ZORSTAT_SIGNALS_BLOCKED_H_

#include <pthread.h>

#include <csignal>

namespace zorstat {

// Threads that are started meanwhile leave the signals that ask for something to the main thread.
class SignalsBlocked {
 public:
  SignalsBlocked() {
    sigset_t signals;
    sigemptyset(&signals);
    for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGUSR1}) sigaddset(&signals, signal);
    pthread_sigmask(SIG_BLOCK, &signals, &before_);
  }
  ~SignalsBlocked() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }
  SignalsBlocked(const SignalsBlocked &) = delete;
  SignalsBlocked &operator=(const SignalsBlocked &) = delete;

 private:
  sigset_t before_;
};

}  // namespace zorstat

#endif  // ZORSTAT_SIGNALS_BLOCKED_H_
