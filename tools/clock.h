// The time that the library puts into records.
#ifndef ZORSTAT_CLOCK_H_
#define ZORSTAT_CLOCK_H_

#include <cstdint>

namespace zorstat {

// From now on records carry this time, in seconds since the epoch, instead of that of the real-time clock.
void SetRecordTime(int64_t seconds);

}  // namespace zorstat

#endif  // ZORSTAT_CLOCK_H_
