// May run in a signal handler. The streams and the catalogue are used all the same: the process is lost, and what it
// can still say is worth the risk. Nothing of it waits for a lock that the interrupted code may hold, nor allocates.
#include "hostdebug.h"

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <stdio_ext.h>
#include <unistd.h>

#include "err/messages/errcatalogue.h"
#include "host/base/errnokeeper.h"
#include "host/faults/faultstate.h"
#include "host/report/fatalreport.h"
#include "host/signals/unixiosignal.h"
#include "host/time/hostlocaltime.h"
#include "hostatomic.h"
#include "hostenv.h"
#include "hostsignal.h"
#include "hosttime.h"
#include "unixerr.h"
#include "utlhost.h"
#include "vermsg.h"

volatile BoolType noHalt = FALSE;
volatile long coreDumpEnabled = 1;
std::atomic<BoolType> HostFatalErr;

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

// The time as UtlCtime writes it.
const char* currentTime(char* buf, unsigned size) {
    time_t seconds = 0;
    unsigned short milliseconds = 0;
    HostFtime(&seconds, &milliseconds);
    const tm local = hostLocalTime(seconds);
    const char* format = HostDateTimeFormat();
    if (strstr(format, "%s") != nullptr) {
        format = "%D %T"; // the C library would need the time zone's lock for the seconds since the epoch
    }
    if (strftime(buf, size, format, &local) == 0) {
        buf[0] = '\0';
    }
    return buf;
}

// A stream's buffer is allocated on its first use. Gives stdout the one that it would get then.
void allocateOutputBuffer() {
    if (__fbufsize(stdout) != 0) {
        return;
    }
    const bool byLines = __flbf(stdout) != 0 || isatty(STDOUT_FILENO) != 0;
    setvbuf(stdout, nullptr, _IOFBF, 0); // glibc allocates here, and only here
    if (byLines) {
        setvbuf(stdout, nullptr, _IOLBF, 0);
    }
}

void hostDoCallDebugger(bool firstTime, int error) {
    doCallBoolean = 1;
    if (doCallBoolean == 0)
        return;
    if (!firstTime) {
        puts("Recursive error caught!");
        fflush(stdout);
        HostCoredump(FALSE);
        abort();
    }
    char report[4096];
    printHostcallDebugger(error, report, sizeof report);
    HostCoredump(FALSE);
    if (!coreDumpEnabled)
        return;
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

void hostPrepareReport() {
    const ErrnoKeeper kept;
    hostLearnLocalTime();
    printMutex(); // takes part in forks from here on
    HostFnameStrType name;
    HostExpandFileName("", name, sizeof name); // reads the automounter's prefix
    allocateOutputBuffer();
}

void printDebuggerBanner(const char* who) {
    flushStreams();
    fputs("\n\n", stdout);
    VerLeadingEdge(stdout);
    hostReportLine(stdout, "host.debugger1", "s", who);
    char time[256];
    hostReportLine(stdout, "host.debugger2", "s", currentTime(time, sizeof time));
    fflush(stdout);
}

void printHostcallDebugger(int error, char* buf, unsigned size) {
    printDebuggerBanner("HostCallDebugger");
    char reason[256];
    hostReportText("fault.errno", buf, size, "ds", error, HostGetErrMsg(error, reason, sizeof reason));
    HostSignalSafePrint(buf);
}

int HostCallDebugger() {
    const ErrnoKeeper kept;
    if (noHalt)
        return 0;
    // No profiling ticks during the report.
    UNIXIO_DO_SIGNAL(SIGVTALRM, unixioPlain(SIG_IGN), nullptr);
    hostCallIfSet(hostCallDebuggerHook);
    hostCallIfSet(fileFlusherFct);
    flushStreams();
    HostFatalErr = TRUE;
    const bool firstTime = HostAsmSyncCtrAdd(&hostFatalReportCount, 1) == 0;
    if (HostFaultFuncType* const report = HostFatalReportFunc; report != nullptr && firstTime)
        runFatalReportFunc(report);
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

void hostClearFatalReportHandler() {
    HostFatalReportFunc = nullptr;
}

void HostOnDebug(HostOnDebugHandlerType func) {
    hostCallDebuggerHook = func;
}

BoolType HostGetFatalErr() {
    return HostFatalErr;
}

void HostSetFatalErr(BoolType value) {
    HostFatalErr = value;
}

void hostInitCrash(const char* what) {
    const int error = errno;
    fflush(stdout);
    fputs("\n\n", stderr);
    VerLeadingEdge(stderr);
    hostReportLine(stderr, "host.initfail", "s", what);
    char text[256];
    if (error != 0)
        hostReportLine(stderr, "fault.errno", "ds", error, HostGetErrMsg(error, text, sizeof text));
    hostReportLine(stderr, "fault.date", "s", currentTime(text, sizeof text));
    VerEndEdge(stderr);
    fflush(stderr);
    UtlExit(3);
}
