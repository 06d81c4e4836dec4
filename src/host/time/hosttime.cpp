#include "hosttime.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdint>
#include <cstdio>
#include <poll.h>
#include <sys/time.h>

#include "host/base/upwardcalls.h"
#include "host/signals/interrupted.h"
#include "host/time/wallclock.h"
#include "hostsignal.h"

namespace {
// Waits without descriptors. TRUE when the time is over, FALSE when a signal came; whatever else poll answers is fatal,
// and counts as over.
bool waitMilliseconds(const char* caller, int milliseconds) {
    const int result = poll(nullptr, 0, milliseconds);
    if (result == 0) {
        return true;
    }
    if (result > 0) {
        fprintf(stderr, "%s: unexpected result %d!\n", caller, result);
        HostCallDebugger();
        return true;
    }
    if (hostWasInterrupted(errno)) {
        return false;
    }
    fprintf(stderr, "%s: unexpected error %d!\n", caller, errno);
    HostCallDebugger();
    return true;
}
} // namespace

void HostSleep(unsigned seconds) {
    // One poll waits for at most this long.
    constexpr int64_t longestWait = INT_MAX / 1000;
    const int64_t deadline = hostWallSeconds() + seconds;
    for (int64_t remaining = seconds; remaining > 0;) {
        const int64_t wait = std::min(remaining, longestWait);
        const bool over = waitMilliseconds("HostSleep", static_cast<int>(wait * 1000));
        if (over && wait == remaining) {
            return;
        }
        if (!over && HostGetSigTerm(__FILE_NAME__, __LINE__) != 0) {
            return;
        }
        remaining = deadline - hostWallSeconds();
    }
}

void HostMilliSleep(unsigned milliseconds) {
    if (milliseconds >= 1000) {
        HostSleep(milliseconds / 1000);
    }
    waitMilliseconds("HostMilliSleep", static_cast<int>(milliseconds % 1000));
}

void HostNanoSleep(long long nanoseconds) {
    if (nanoseconds < 1000000) {
        return;
    }
    HostMilliSleep(static_cast<unsigned>(std::min<long long>(nanoseconds / 1000000, UINT_MAX)));
}

void HostFtime(time_t* sec, unsigned short* millitm) {
    timeval now;
    if (gettimeofday(&now, nullptr) != 0) {
        now = {};
    }
    *sec = now.tv_sec;
    *millitm = static_cast<unsigned short>(now.tv_usec / 1000);
}

void HostGetTimeOfDay(long* sec, long* usec) {
    timeval now;
    if (gettimeofday(&now, nullptr) != 0) {
        now = {};
    }
    *sec = static_cast<long>(now.tv_sec);
    *usec = static_cast<long>(now.tv_usec);
}

long HostTIMEZONE(time_t* timer) {
    tzset();
    tm local;
    const bool daylightSaving = localtime_r(timer, &local) != nullptr && local.tm_isdst > 0;
    return timezone - (daylightSaving ? 3600 : 0);
}
