// What a platform library that takes the place of ours has as its clock, which stands still.

#include <ctime>

#include "zor/platform.h"

void kel_time_get_timespec_realtime(struct timespec *now) { *now = {1234567890, 0}; }
