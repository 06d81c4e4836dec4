// The effective user and group ids of the process, switched to the real ones and back.
#include <unistd.h>

#include "host/base/guarantee.h"
#include "hostprocess.h"

namespace {
constexpr char utlModule[] = "hostunix";

bool usingRealId;
// What HostSetUserId puts back.
uid_t effectiveUid;
gid_t effectiveGid;

// Root's rights serve to change the group, before they are given up or after they are gained.
void takeIds(uid_t uid, gid_t gid) {
    const bool groupFirst = geteuid() == 0;
    if (groupFirst && gid != getegid()) {
        UTL_GUARANTEE(setegid(gid) == 0);
    }
    if (uid != geteuid()) {
        UTL_GUARANTEE(seteuid(uid) == 0);
    }
    if (!groupFirst && gid != getegid()) {
        UTL_GUARANTEE(setegid(gid) == 0);
    }
}
} // namespace

void HostUseRealId() {
    if (usingRealId) {
        return;
    }
    usingRealId = true;
    effectiveUid = geteuid();
    effectiveGid = getegid();
    takeIds(getuid(), getgid());
}

void HostSetUserId() {
    if (!usingRealId) {
        return;
    }
    usingRealId = false;
    takeIds(effectiveUid, effectiveGid);
}
