#include "hostthread.h"

#include <csignal>
#include <cstdio>

#include "host/base/guarantee.h"
#include "utlpagesize.h"

namespace {
constexpr char utlModule[] = "hostthread";

// Prepares attributes with at least the given stack size. FALSE when the default attributes are to be used: they have
// room enough, or the size could not be set.
bool hostSetThreadAttributes(pthread_attr_t* attr, size_t minStackSize) {
    int rc = pthread_attr_init(attr);
    if (rc != 0) {
        fprintf(stderr, "hostSetThreadAttributes: pthread_attr_init() failed, rc=%d\n", rc);
        UTL_GUARANTEE(false);
        return false;
    }
    size_t defaultSize = 0;
    rc = pthread_attr_getstacksize(attr, &defaultSize);
    if (rc != 0) {
        fprintf(stderr, "hostSetThreadAttributes: pthread_attr_getstacksize() failed, rc=%d\n", rc);
        UTL_GUARANTEE(false);
        return false;
    }
    UTL_GUARANTEE(defaultSize != 0);
    if (defaultSize >= minStackSize) {
        return false;
    }
    // A size within a page of the largest wraps to 0, which is refused below.
    const size_t pageSize = UtlGetPageSize();
    const size_t roundedSize = (minStackSize + pageSize - 1) & ~(pageSize - 1);
    rc = pthread_attr_setstacksize(attr, roundedSize);
    if (rc != 0) {
        fprintf(stderr, "hostSetThreadAttributes: pthread_attr_setstacksize(%d) failed, rc=%d\n",
                static_cast<int>(roundedSize), rc);
        UTL_GUARANTEE(false);
        return false;
    }
    return true;
}
} // namespace

int HostThreadCreate(HostThreadType* threadId, HostThreadFuncType* funcPtr, void* arg, size_t minStackSize) {
    pthread_attr_t attr;
    const bool ownAttributes = minStackSize != 0 && hostSetThreadAttributes(&attr, minStackSize);
    return pthread_create(threadId, ownAttributes ? &attr : nullptr, funcPtr, arg);
}

int HostThreadKill(HostThreadType thread, int sig) {
    return pthread_kill(thread, sig);
}

int HostThreadJoin(HostThreadType thread, void** result) {
    return pthread_join(thread, result);
}

int HostThreadEqual(HostThreadType t1, HostThreadType t2) {
    return pthread_equal(t1, t2);
}

HostThreadType HostThreadSelf() {
    return pthread_self();
}

void HostThreadExit(void* result) {
    pthread_exit(result);
}
