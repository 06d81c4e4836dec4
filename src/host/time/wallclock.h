#pragma once

#include "hostmutex.h"

#include <cstdint>

#pragma GCC visibility push(hidden)

// The wall clock: microseconds since the epoch, also where the C library's 32-bit time ends, in January 2038.
// Signal-safe.
int64_t hostWallMicroseconds();
inline int64_t hostWallSeconds() {
    return hostWallMicroseconds() / 1000000;
}

// Takes the mutex if it becomes free within that time; otherwise FALSE. As pthread_mutex_timedlock, beyond 2038, too.
bool hostMutexAcquireWithin(HostMutexSType* mutex, int64_t microseconds);

#pragma GCC visibility pop
