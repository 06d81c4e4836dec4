// The effective user and group ids of the process, switched to the real ones and back.
#include <sys/syscall.h>
#include <unistd.h>

#include "host/base/guarantee.h"
#include "host/processes/realids.h"
#include "hostprocess.h"

namespace {
constexpr char utlModule[] = "hostunix";

#ifdef SYS_setresuid32
constexpr long setresuidNumber = SYS_setresuid32;
constexpr long setresgidNumber = SYS_setresgid32;
constexpr long setuidNumber = SYS_setuid32;
constexpr long setgidNumber = SYS_setgid32;
#else
constexpr long setresuidNumber = SYS_setresuid;
constexpr long setresgidNumber = SYS_setresgid;
constexpr long setuidNumber = SYS_setuid;
constexpr long setgidNumber = SYS_setgid;
#endif

bool usingRealId;
// What HostSetUserId puts back.
uid_t effectiveUid;
gid_t effectiveGid;

// Root's rights serve to change the group, before they are given up or after they are gained.
void takeIds(uid_t uid, gid_t gid) {
    const bool groupFirst = geteuid() == 0;
    if (groupFirst && gid != getegid())
        UTL_GUARANTEE(setegid(gid) == 0);
    if (uid != geteuid())
        UTL_GUARANTEE(seteuid(uid) == 0);
    if (!groupFirst && gid != getegid())
        UTL_GUARANTEE(setegid(gid) == 0);
}
} // namespace

bool hostTakeRealIdsForExec() {
    constexpr id_t unchanged = -1;
    return syscall(setresgidNumber, unchanged, getgid(), unchanged) == 0 &&
           syscall(setresuidNumber, unchanged, getuid(), unchanged) == 0;
}

void hostDropSetIds() {
    syscall(setgidNumber, getgid());
    syscall(setuidNumber, getuid());
}

void HostUseRealId() {
    if (usingRealId)
        return;
    usingRealId = true;
    effectiveUid = geteuid();
    effectiveGid = getegid();
    takeIds(getuid(), getgid());
}

void HostSetUserId() {
    if (!usingRealId)
        return;
    usingRealId = false;
    takeIds(effectiveUid, effectiveGid);
}
