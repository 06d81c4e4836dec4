#include "hostmutex.h"

#include <cstdio>

#include "host/base/guarantee.h"

namespace {
constexpr char utlModule[] = "hostmutex";
}

void HostMutexInit(HostMutexSType* mutex) {
    const int status = pthread_mutex_init(mutex, nullptr);
    UTL_GUARANTEE(status == 0);
}

void HostMutexDestroy(HostMutexSType* mutex) {
    if (pthread_mutex_destroy(mutex) != 0) {
        puts("mutexDestroy failed");
        UTL_GUARANTEE(false);
    }
}

void HostMutexAcquire(HostMutexSType* mutex) {
    if (pthread_mutex_lock(mutex) != 0) {
        puts("mutexLock failed");
        UTL_GUARANTEE(false);
    }
}

void HostMutexRelease(HostMutexSType* mutex) {
    if (pthread_mutex_unlock(mutex) != 0) {
        // kept: callers look for this very text, with the letter and without a newline.
        fputs("mutexUnLock failed=n", stdout);
        UTL_GUARANTEE(false);
    }
}

void HostMutexError(long callerLine) {
    printf("HostMutexError :  caller line %ld\n", callerLine);
    UTL_GUARANTEE(false);
}
