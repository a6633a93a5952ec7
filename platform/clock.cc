#include <ctime>

#include "zor/platform.h"

void kel_time_get_timespec_realtime(struct timespec *now) { clock_gettime(CLOCK_REALTIME, now); }
