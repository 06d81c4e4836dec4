// May run in a signal handler, as part of the fatal report.
#include "hostdebug.h"

#include <cstdio>
#include <unistd.h>

#include "host/report/fatalreport.h"
#include "hostenv.h"
#include "hosttime.h"

namespace {
bool isWaitWanted() {
    char value[80];
    return HostGetEnv("KESTRUNE_CHILD_DEBUG", value, sizeof value - 1);
}

[[noreturn]] void waitForEver() {
    for (;;)
        HostSleep(2);
}
} // namespace

void HostWaitForDebugger() {
    if (isWaitWanted())
        HostExplicitWaitForDebugger();
}

void HostExplicitWaitForDebugger() {
    fflush(stdout);
    fprintf(stderr, "HostCallDebugger: Waiting for Debugger to attach,\n    processId = %d = 0x%X\n", getpid(),
            static_cast<unsigned>(getpid()));
    fflush(stderr);
    waitForEver();
}

void hostWaitAfterGuarantee(const char* reason) {
    if (!isWaitWanted())
        return;
    fflush(stdout);
    fflush(stderr);
    fprintf(stderr,
            "\n __________________________________ \n"
            "| %s \n"
            "|  HostCallDebugger: Waiting for a C Debugger to attach,\n"
            "|  process %d (0x%x) \n"
            "|__________________________________ \n",
            reason, getpid(), static_cast<unsigned>(getpid()));
    fflush(stderr);
    waitForEver();
}
