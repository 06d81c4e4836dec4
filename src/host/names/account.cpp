#include "host/names/account.h"

#include <grp.h>
#include <unistd.h>

#include "utlheap.h"

Account::Account(const char* name)
    : lookUpError(name != nullptr ? getpwnam_r(name, &entry, text, sizeof text, &found)
                                  : getpwuid_r(getuid(), &entry, text, sizeof text, &found)) {}

Account::~Account() {
    if (groupList != nullptr) {
        UtlFree(groupList);
    }
}

bool Account::fetchGroups() {
    int count = 0;
    getgrouplist(found->pw_name, found->pw_gid, nullptr, &count);
    groupList = static_cast<gid_t*>(UtlMalloc(count * sizeof(gid_t), "HostFork (groups)"));
    // The list may have grown meanwhile: then count is what of it has been written.
    const int room = count;
    if (groupList != nullptr && getgrouplist(found->pw_name, found->pw_gid, groupList, &count) == -1) {
        count = room;
    }
    groupListSize = static_cast<size_t>(count);
    return groupList != nullptr;
}
