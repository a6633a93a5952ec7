#include "clock.h"

#include <ctime>
#include <optional>

#include "zor/platform.h"

namespace {

std::optional<int64_t> record_time;

}  // namespace

namespace zorstat {

void SetRecordTime(int64_t seconds) { record_time = seconds; }

}  // namespace zorstat

// Defined by the program, so it is this clock that the library reads and not its platform's.
void kel_time_get_timespec_realtime(struct timespec *now) {
  if (record_time) {
    *now = {static_cast<time_t>(*record_time), 0};
  } else {
    clock_gettime(CLOCK_REALTIME, now);
  }
}
