#include "hostenv.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "host/base/upwardcalls.h"

namespace {
// The variable's value, or NULL when it is unset, empty or longer than the limit. length receives its length.
const char* findValue(const char* name, size_t limit, size_t& length) {
    const char* value = getenv(name);
    if (value == nullptr) {
        return nullptr;
    }
    length = strlen(value);
    return length != 0 && length <= limit ? value : nullptr;
}
} // namespace

BoolType HostGetEnv(const char* name, char* dst, unsigned size) {
    size_t length = 0;
    const char* value = findValue(name, size, length);
    if (value == nullptr) {
        return FALSE;
    }
    memcpy(dst, value, length + 1);
    return TRUE;
}

BoolType HostSetEnv(const char* name, const char* value) {
    const size_t size = strlen(name) + strlen(value) + 2;
    char* text = static_cast<char*>(UtlMalloc(static_cast<unsigned>(size), "HostSetEnv"));
    if (text == nullptr) {
        return FALSE;
    }
    snprintf(text, size, "%s=%s", name, value);
    return static_cast<BoolType>(putenv(text) == 0);
}

BoolType HostEnvExists(const char* name) {
    constexpr size_t limit = 256;
    size_t length = 0;
    return static_cast<BoolType>(findValue(name, limit, length) != nullptr);
}
