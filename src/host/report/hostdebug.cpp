// May run in a signal handler. The streams and the catalogue are used all the same: the process is lost, and what it
// can still say is worth the risk. Nothing of it waits for a lock that the interrupted code may hold, nor allocates.
#include "hostdebug.h"

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <unistd.h>

#include "host/base/errnokeeper.h"
#include "host/base/upwardcalls.h"
#include "host/report/debuggerbanner.h"
#include "host/report/reporthooks.h"
#include "host/report/reporttext.h"
#include "host/signals/unixiosignal.h"
#include "hostatomic.h"
#include "hostsignal.h"
#include "utlexit.h"
#include "vermsg.h"

volatile BoolType noHalt = FALSE;
volatile long coreDumpEnabled = 1;

namespace {
int hostFatalReportCount;
std::atomic<HostFaultFuncType*> HostFatalReportFunc;
std::atomic<HostOnDebugHandlerType> hostCallDebuggerHook;

// Set before every dump and then tested: a person in a debugger stops in between and clears it.
volatile long doCallBoolean;

void flushStreams() {
    fflush(stderr);
    fflush(stdout);
}

void hostDoCallDebugger(bool firstTime, int error) {
    doCallBoolean = 1;
    if (doCallBoolean == 0) {
        return;
    }
    if (!firstTime) {
        puts("Recursive error caught!");
        fflush(stdout);
        HostCoredump(FALSE);
        abort();
    }
    char report[reportTextSize];
    printHostcallDebugger(error, report, sizeof report);
    HostCoredump(FALSE);
    if (!coreDumpEnabled) {
        return;
    }
    VerMessage(stdout, report);
    VerEndEdge(stdout);
    fflush(stdout);
    UtlExit(3);
}

void runFatalReportFunc(HostFaultFuncType* report) {
    printf("\nHostcalldebugger invoked in process %d, notifying trune of fatal error\n", getpid());
    fflush(stdout);
    report();
    printf("\nHostCallDebugger invoked in process %d\n", getpid());
    fflush(stdout);
}
} // namespace

int HostCallDebugger() {
    const ErrnoKeeper kept;
    if (noHalt) {
        return 0;
    }
    // No profiling ticks during the report.
    UNIXIO_DO_SIGNAL(SIGVTALRM, unixioPlain(SIG_IGN), nullptr);
    hostCallIfSet(hostCallDebuggerHook);
    hostCallIfSet(fileFlusherFct);
    flushStreams();
    HostFatalErr = TRUE;
    const bool firstTime = HostAsmSyncCtrAdd(&hostFatalReportCount, 1) == 0;
    if (HostFaultFuncType* const report = HostFatalReportFunc; report != nullptr && firstTime) {
        runFatalReportFunc(report);
    }
    // The count stays raised: later errors, too, only run the hooks.
    if (coreDumpEnabled) {
        hostDoCallDebugger(firstTime, kept.value);
        HostAsmSyncCtrAdd(&hostFatalReportCount, -1);
    }
    return 0;
}

int HostCallDebuggerMsg(const char* msg) {
    {
        const ErrnoKeeper kept;
        puts(msg);
    }
    return HostCallDebugger();
}

unsigned long HostCallDebuggerMsg_o(const char* msg, unsigned long arg) {
    {
        const ErrnoKeeper kept;
        printf("\n%s arg:%lu\n", msg, arg);
    }
    HostCallDebugger();
    return arg;
}

void HostInstallFatalReportHandler(HostFaultFuncType* func) {
    HostFatalReportFunc = func;
}

void HostOnDebug(HostOnDebugHandlerType func) {
    hostCallDebuggerHook = func;
}
