#include "host/processes/forkenvironment.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <string_view>
#include <unistd.h>

#include "hostenv.h"
#include "utlheap.h"

namespace {
using std::string_view;
} // namespace

ForkEnvironment::~ForkEnvironment() {
    for (size_t i = 0; i < changeCount; ++i) {
        UtlFree(changes[i]);
    }
    if (entries != nullptr) {
        UtlFree(entries);
    }
}

bool ForkEnvironment::copy() {
    size_t size = 0;
    while (environ != nullptr && environ[size] != nullptr) {
        ++size;
    }
    const size_t room = size + mostChanges + 1;
    entries = static_cast<char**>(UtlMalloc(static_cast<unsigned>(room * sizeof *entries), "HostFork (environment)"));
    if (entries == nullptr) {
        return false;
    }
    // Another thread may have taken a variable out meanwhile.
    while (count < size && environ[count] != nullptr) {
        entries[count] = environ[count];
        ++count;
    }
    entries[count] = nullptr;
    return true;
}

bool ForkEnvironment::set(const char* name, const char* value) {
    const size_t nameLength = strlen(name);
    const size_t size = nameLength + strlen(value) + 2;
    char* const text = static_cast<char*>(UtlMalloc(static_cast<unsigned>(size), "HostFork (variable)"));
    if (text == nullptr) {
        return false;
    }
    snprintf(text, size, "%s=%s", name, value);
    changes[changeCount++] = text;
    size_t place = 0;
    while (place < count && strncmp(entries[place], text, nameLength + 1) != 0) {
        ++place;
    }
    entries[place] = text;
    if (place == count) {
        entries[++count] = nullptr;
    }
    return true;
}

// Appends the working folder to the name-resolution string, before a "!" at its end, unless it is there already or
// would make the string too long.
bool ForkEnvironment::extendNameResolution(const char* workingDir) {
    constexpr string_view key = "#dir";
    constexpr string_view separator = "#dir:";
    char before[2048];
    if (!HostGetEnv("KESTRUNE_NRS_ALL", before, sizeof before - 1)) {
        before[0] = '\0';
    }
    string_view value = before;
    const string_view dir = workingDir;
    const bool isThere = value.find(key) != string_view::npos && value.find(dir) != string_view::npos;
    if (isThere || value.size() + separator.size() + dir.size() >= sizeof before) {
        return true;
    }
    const bool ends = value.ends_with('!');
    if (ends) {
        value.remove_suffix(1);
    }
    char extended[sizeof before];
    char* end = extended;
    for (const string_view part : {value, separator, dir, string_view(ends ? "!" : "")}) {
        end = std::copy(part.begin(), part.end(), end);
    }
    *end = '\0';
    return set("KESTRUNE_NRS_ALL", extended);
}

bool ForkEnvironment::prepare(const ForkChildPlan& plan) {
    bool good = copy();
    if (plan.readinessPipe != -1) {
        char number[16];
        snprintf(number, sizeof number, "%d", plan.readinessPipe);
        good = good && set("KESTRUNE_SERVER_PIPE", number);
    }
    if (plan.forUser) {
        good = good && set("HOME", plan.home) && set("USER", plan.userName) && set("LOGNAME", plan.userName) &&
               set("PATH", "/bin:/usr/bin:/usr/ucb");
        if (plan.workingDir != nullptr) {
            good = good && extendNameResolution(plan.workingDir);
        }
    }
    return good;
}
