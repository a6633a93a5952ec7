// What a service tells the program that supervises it: datagrams to the socket that $NOTIFY_SOCKET names, as
// sd_notify(3) describes them.
#ifndef ZORSTAT_NOTIFY_H_
#define ZORSTAT_NOTIFY_H_

#include <chrono>
#include <string>

namespace zorstat {

// Lines as in "READY=1". Does not wait: they are lost where nobody asked for them, or reads them.
void Notify(const std::string &state);

// How often Notify("WATCHDOG=1") is due: twice in the time of $WATCHDOG_USEC; never, a very long time.
std::chrono::milliseconds WatchdogPeriod();

}  // namespace zorstat

#endif  // ZORSTAT_NOTIFY_H_
