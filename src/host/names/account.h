// A user's account, from the system's databases (getpwnam_r and getpwuid_r, IEEE 1003.1; getgrouplist). The look-ups
// take locks of the C library: not signal-safe, nor for the child of a process with threads.
#pragma once

#include <cstddef>
#include <pwd.h>

#pragma GCC visibility push(hidden)

class Account {
public:
    // The account of the named user, of the real user for NULL.
    explicit Account(const char* name);
    ~Account();
    Account(const Account&) = delete;
    Account& operator=(const Account&) = delete;

    // NULL when there is none; error tells why, 0: nobody has that name. Valid as long as this.
    const passwd* get() const { return found; }
    int error() const { return lookUpError; }

    // Looks up the groups of an account that was found. False without memory.
    bool fetchGroups();
    const gid_t* groups() const { return groupList; }
    size_t groupCount() const { return groupListSize; }

private:
    passwd entry{};
    passwd* found = nullptr;
    int lookUpError;
    gid_t* groupList = nullptr;
    size_t groupListSize = 0;
    char text[8192]; // what the entry points to
};

#pragma GCC visibility pop
