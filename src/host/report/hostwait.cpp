// May run in a signal handler, as part of the fatal report.
#include "hostdebug.h"

#include <cstdio>
#include <unistd.h>

#include "host/base/debuggerwait.h"
#include "hosttime.h"

namespace {

[[noreturn]] void waitForEver() {
    for (;;) {
        HostSleep(2);
    }
}
} // namespace

void HostWaitForDebugger() {
    if (hostDebuggerWaitIsWanted()) {
        HostExplicitWaitForDebugger();
    }
}

void HostExplicitWaitForDebugger() {
    fflush(stdout);
    fprintf(stderr, "HostCallDebugger: Waiting for Debugger to attach,\n    processId = %d = 0x%X\n", getpid(),
            static_cast<unsigned>(getpid()));
    fflush(stderr);
    waitForEver();
}
