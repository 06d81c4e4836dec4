// The effective user and group ids of the process, switched to the real ones and back.
#include <unistd.h>

#include "host/guarantee.h"
#include "hostprocess.h"

namespace {
constexpr char utlModule[] = "hostunix";

bool usingRealId;
// What HostSetUserId puts back.
uid_t effectiveUid;
gid_t effectiveGid;
} // namespace

void HostUseRealId() {
    if (usingRealId)
        return;
    usingRealId = true;
    effectiveUid = geteuid();
    effectiveGid = getegid();
    // The group first: it takes the rights of the user that is given up.
    if (effectiveGid != getgid())
        UTL_GUARANTEE(setegid(getgid()) == 0);
    if (effectiveUid != getuid())
        UTL_GUARANTEE(seteuid(getuid()) == 0);
}

void HostSetUserId() {
    if (!usingRealId)
        return;
    usingRealId = false;
    if (effectiveUid != geteuid())
        UTL_GUARANTEE(seteuid(effectiveUid) == 0);
    if (effectiveGid != getegid())
        UTL_GUARANTEE(setegid(effectiveGid) == 0);
}
