// The C library's 64-bit time. Not for files whose functions hand out its types: the 32-bit ones are the interface.
#define _FILE_OFFSET_BITS 64
#define _TIME_BITS 64
#include "host/time/wallclock.h"

#include <ctime>

int64_t hostWallMicroseconds() {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    return int64_t{now.tv_sec} * 1000000 + now.tv_nsec / 1000;
}

bool hostMutexAcquireWithin(HostMutexSType* mutex, int64_t microseconds) {
    const int64_t end = hostWallMicroseconds() + microseconds;
    timespec deadline{};
    deadline.tv_sec = end / 1000000;
    deadline.tv_nsec = static_cast<long>(end % 1000000 * 1000);
    return pthread_mutex_timedlock(mutex, &deadline) == 0;
}
