#include "hostlimits.h"

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <sys/resource.h>
#include <unistd.h>

#include "host/base/guarantee.h"
#include "hostenv.h"
#include "syserror.h"

namespace {
constexpr char utlModule[] = "hostunix";

// sysconf's answer, -1 while it is unknown.
std::atomic<int> cachedMaxFiles{-1};

// What $KESTRUNE_MAX_FD asks for.
struct WantedMaxFiles {
    bool given = false;
    int count = 0;

    WantedMaxFiles() {
        char value[64];
        given = HostGetEnv("KESTRUNE_MAX_FD", value, sizeof value - 1) != 0;
        if (given) {
            count = atoi(value);
        }
    }
};

rlim64_t asManyAsAllowed(rlim64_t hardLimit) {
    if (hardLimit != RLIM64_INFINITY) {
        return hardLimit;
    }
    const int most = HostGetMaxFiles();
    UTL_GUARANTEE(most >= 1);
    return static_cast<rlim64_t>(most);
}
} // namespace

BoolType HostSetMaxFiles(int max, SysErrorSType* err) {
    rlimit64 limit;
    if (getrlimit64(RLIMIT_NOFILE, &limit) != 0) {
        SysErrorSet(err, errno, "getrlimit(RLIMIT_NOFILE)");
        return FALSE;
    }

    bool fromEnvironment = false;
    if (max == -1) {
        const WantedMaxFiles wanted;
        if (wanted.given && wanted.count == 0) {
            return TRUE;
        }
        fromEnvironment = wanted.count > 0;
        if (fromEnvironment) {
            max = wanted.count;
        } else {
            limit.rlim_cur = wanted.given ? limit.rlim_max : asManyAsAllowed(limit.rlim_max);
        }
    }
    if (max != -1) {
        limit.rlim_cur = static_cast<rlim64_t>(max);
    }

    if (setrlimit64(RLIMIT_NOFILE, &limit) == 0) {
        cachedMaxFiles = -1;
        return TRUE;
    }
    if (fromEnvironment) {
        SysErrorSet(err, errno,
                    "Could not raise fd limit to the KESTRUNE_MAX_FD value of %d because:\n setrlimit(RLIMIT_NOFILE)",
                    max);
    } else {
        SysErrorSet(err, errno, "setrlimit(RLIMIT_NOFILE)");
    }
    return FALSE;
}

int HostGetMaxFiles() {
    int count = cachedMaxFiles;
    if (count == -1) {
        cachedMaxFiles = count = static_cast<int>(sysconf(_SC_OPEN_MAX));
    }
    return count;
}
