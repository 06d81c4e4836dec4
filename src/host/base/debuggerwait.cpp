#include "host/base/debuggerwait.h"

#include "hostenv.h"

bool hostDebuggerWaitIsWanted() {
    char value[80];
    return HostGetEnv("KESTRUNE_CHILD_DEBUG", value, sizeof value - 1);
}
