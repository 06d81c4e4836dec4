#include "host/base/realids.h"

#include <sys/syscall.h>
#include <sys/types.h>
#include <unistd.h>

namespace {
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
