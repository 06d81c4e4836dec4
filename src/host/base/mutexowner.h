#pragma once

#include <unistd.h>

#include "hostmutex.h"

#pragma GCC visibility push(hidden)

// Whether the calling thread holds the mutex. glibc keeps the holder's thread id in every mutex; as it is only compared
// with the caller's own, no other thread's change of it matters.
inline bool hostHoldsMutex(const HostMutexSType& mutex) {
    return __atomic_load_n(&mutex.__data.__owner, __ATOMIC_RELAXED) == gettid();
}

#pragma GCC visibility pop
