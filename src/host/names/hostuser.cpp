// The names of this machine and its users.
#include <climits>
#include <cstdlib>
#include <unistd.h>

#include "host/base/boundedtext.h"
#include "host/names/account.h"
#include "hostuser.h"

namespace {
// size: at least 1. An empty text counts as unknown.
bool copyWhole(const char* text, char* buf, unsigned size) {
    return *text != '\0' && BoundedText(buf, size).appendWhole(text);
}
} // namespace

BoolType HostGetHostname(char* buf, unsigned size) {
    if (size == 0) {
        return FALSE;
    }
    buf[0] = '\0';
    char name[HOST_NAME_MAX + 1];
    return static_cast<BoolType>(gethostname(name, sizeof name) == 0 && copyWhole(name, buf, size));
}

BoolType HostGetHomeDir(const char* user, char* buf, unsigned size) {
    if (size == 0) {
        return FALSE;
    }
    buf[0] = '\0';
    const Account account(user);
    if (account.get() != nullptr) {
        return static_cast<BoolType>(copyWhole(account.get()->pw_dir, buf, size));
    }
    // A user without an entry, as in many containers, still has what the environment says.
    const char* home = user == nullptr ? getenv("HOME") : nullptr;
    return static_cast<BoolType>(home != nullptr && copyWhole(home, buf, size));
}

BoolType HostGetUserName(char* buf, unsigned size) {
    if (size == 0) {
        return FALSE;
    }
    buf[0] = '\0';
    const Account account(nullptr);
    return static_cast<BoolType>(account.get() != nullptr && copyWhole(account.get()->pw_name, buf, size));
}
