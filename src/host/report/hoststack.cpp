// Runs in a signal handler: no lock, no stdio stream, no allocation, except where a missing stack printer is announced.
#include "hostdebug.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include "host/base/guarantee.h"
#include "host/base/realids.h"
#include "host/report/hoststack.h"
#include "host/report/reporthooks.h"
#include "host/signals/kernelsignal.h"
#include "host/signals/signalprint.h"
#include "hostatomic.h"
#include "hostenv.h"
#include "hostfile.h"
#include "hostsignal.h"
#include "hosttime.h"

namespace {
constexpr char utlModule[] = "hostunix";

int printingStacks;

// Not fork of the C library: that takes the heap's locks and those of the fork handlers, which the failed thread may
// hold. The child has nothing to do with either, it only executes a program.
pid_t forkForExec() {
    return static_cast<pid_t>(syscall(SYS_clone, SIGCHLD, 0, 0, 0, 0));
}

[[noreturn]] void execInChild(const char* path, char* const argv[]) {
    hostDropHandlersInKernel();
    // The handler's mask would pass to the program.
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
    // $KESTRUNE, which names the stack printer, is the user's: a set-id process does not lend it its rights.
    if (hostTakeRealIdsForExec()) {
        execv(path, argv);
    }
    const int error = errno;
    HostSignalSafePrint("\n    Problem with exev()\n  cmd=");
    HostSignalSafePrint(path);
    HostSignalSafePrint("\n  args=");
    for (char* const* argument = argv + 1; *argument != nullptr; ++argument) {
        if (argument != argv + 1) {
            HostSignalSafePrint(" ");
        }
        HostSignalSafePrint(*argument);
    }
    hostSafePrintf("\n  errno=%d.\n", error);
    _exit(0);
}

enum class Tracing { no, allowed };

// Runs a program and waits for its end. Where the system lets only chosen processes trace another (the Yama security
// module), Tracing::allowed chooses the program.
bool forkAndWait(const char* path, char* const argv[], Tracing tracing) {
    const pid_t pid = forkForExec();
    if (pid < 0) {
        hostSafePrintf("  Problem calling fork, errno=%d\n", errno);
        return false;
    }
    if (pid == 0) {
        execInChild(path, argv);
    }
    if (tracing == Tracing::allowed) {
        prctl(PR_SET_PTRACER, pid, 0, 0, 0);
    }
    for (;;) {
        const pid_t result = waitpid(pid, nullptr, 0);
        if (result == pid) {
            HostNanoSleep(50000000);
        } else if (result != -1) {
            hostSafePrintf("Problem calling waitpid(), result = %d, errno = %d\n", result, errno);
            return false;
        } else if (errno == ECHILD) {
            return true;
        }
    }
}

void printDate() {
    char shell[] = "sh", option[] = "-c", command[] = "date";
    char* const argv[] = {shell, option, command, nullptr};
    forkAndWait("/bin/sh", argv, Tracing::no);
}

void runStackPrinter(char* path, PidType forPid) {
    char pidText[16];
    snprintf(pidText, sizeof pidText, "%d", forPid);
    char* const argv[] = {path, pidText, nullptr};
    forkAndWait(path, argv, forPid == getpid() ? Tracing::allowed : Tracing::no);
    if (forPid == getpid()) {
        prctl(PR_SET_PTRACER, 0, 0, 0, 0);
    }
}

// A broken guarantee, reported as far as the report returns. Where it would end the process, only its line is printed:
// the report prints stacks itself, and SIGUSR1 asks a healthy process for them. For the same reason nothing waits for a
// debugger. A hook of the report that asks for the stacks again gets the line alone, too.
void reportMissingPrinter() {
    static int reporting;
    constexpr int line = __LINE__;
    if ((noHalt || !coreDumpEnabled) && HostAsmSyncOr(&reporting, 1) == 0) {
        hostReportGuarantee(utlModule, line);
        HostAsmSyncAnd(&reporting, 0);
    } else {
        hostPrintGuarantee(utlModule, line);
    }
}
} // namespace

void HostPrintCStack(PidType forPid) {
    if (forPid == -1) {
        return;
    }
    hostSafePrintf("\nBegin attempt to print C-level stack for PID %d at: ", forPid);
    printDate();
    HostSignalSafePrint("\n");
    HostFnameStrType printer;
    HostExpandFileName("$KESTRUNE/bin/gstack", printer, sizeof printer);
    if (HostFileExist(printer)) {
        runStackPrinter(printer, forPid);
    } else {
        reportMissingPrinter();
        hostSafePrintf("  Warning: Unable to print C call stack.  '%s' file not found\n", "gstack");
        HostSignalSafePrint("\nC-level stack not available\n");
    }
    hostSafePrintf("\nEnd of C-level stack for PID %d\n\n", forPid);
}

void HostPrintMyCStack() {
    HostPrintCStack(getpid());
}

void printStacks() {
    if (HostAsmSyncOr(&printingStacks, 1) != 0) {
        return;
    }
    HostPrintMyCStack();
    hostCallIfSet(SmalltalkPrintStackFunc);
    HostAsmSyncAnd(&printingStacks, 0);
}
