#include "host/base/debuggerwait.h"

#include "hostenv.h"

bool hostDebuggerWaitIsWanted() {
    constexpr unsigned longestValue = 79;
    char value[longestValue + 1];
    return HostGetEnv("KESTRUNE_CHILD_DEBUG", value, longestValue) != 0;
}
