// A platform library that takes the place of ours: its clock stands still, and its data list prints what it is
// given.

#include <cstdio>
#include <ctime>

#include "zor/platform.h"

void kel_time_get_timespec_realtime(struct timespec *now) { *now = {1234567890, 0}; }

int vamra_edm_datalist_add(uint64_t datalist, const char *name, int32_t, int32_t, const void *text, int32_t) {
  std::printf("[%llu %s] %s", static_cast<unsigned long long>(datalist), name, static_cast<const char *>(text));
  return 0;
}
