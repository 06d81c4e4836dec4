// The names of this machine and its users.
#include <climits>
#include <cstdlib>
#include <pwd.h>
#include <unistd.h>

#include "host/base/boundedtext.h"
#include "hostuser.h"

namespace {
// size: at least 1. An empty text counts as unknown.
bool copyWhole(const char* text, char* buf, unsigned size) {
    return *text != '\0' && BoundedText(buf, size).appendWhole(text);
}

// One entry of the user database (getpwnam_r, getpwuid_r; IEEE 1003.1).
class UserEntry {
public:
    // name NULL: the current user.
    explicit UserEntry(const char* name) {
        if (name != nullptr)
            getpwnam_r(name, &entry_, text_, sizeof text_, &found_);
        else
            getpwuid_r(getuid(), &entry_, text_, sizeof text_, &found_);
    }
    const passwd* get() const { return found_; }

private:
    passwd entry_{};
    passwd* found_ = nullptr;
    char text_[8192];
};
} // namespace

BoolType HostGetHostname(char* buf, unsigned size) {
    if (size == 0)
        return FALSE;
    buf[0] = '\0';
    char name[HOST_NAME_MAX + 1];
    return gethostname(name, sizeof name) == 0 && copyWhole(name, buf, size);
}

BoolType HostGetHomeDir(const char* user, char* buf, unsigned size) {
    if (size == 0)
        return FALSE;
    buf[0] = '\0';
    const UserEntry entry(user);
    if (entry.get() != nullptr)
        return copyWhole(entry.get()->pw_dir, buf, size);
    // A user without an entry, as in many containers, still has what the environment says.
    const char* home = user == nullptr ? getenv("HOME") : nullptr;
    return home != nullptr && copyWhole(home, buf, size);
}

BoolType HostGetUserName(char* buf, unsigned size) {
    if (size == 0)
        return FALSE;
    buf[0] = '\0';
    const UserEntry entry(nullptr);
    return entry.get() != nullptr && copyWhole(entry.get()->pw_name, buf, size);
}
