// May run in a signal handler, as part of the fatal report: standard output is used as the report does.
#include "hostdebug.h"

#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <initializer_list>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "err/messages/errcatalogue.h"
#include "err/system/errnotext.h"
#include "host/base/realids.h"
#include "host/report/debuggerbanner.h"
#include "host/report/hoststack.h"
#include "host/report/reporthooks.h"
#include "host/report/reporttext.h"
#include "host/signals/interrupted.h"
#include "host/signals/kernelsignal.h"
#include "host/signals/signalprint.h"
#include "host/signals/unixiosignal.h"
#include "host/time/wallclock.h"
#include "hostatomic.h"
#include "hostenv.h"
#include "hostfile.h"
#include "hostsignal.h"
#include "hosttime.h"
#include "hostuser.h"
#include "vermsg.h"

namespace {
int coreAttempts;
BoolType madeCoreDir;
HostFnameStrType coreDirName;

int timeOutSeconds() {
    constexpr int defaultSeconds = 36 * 60 * 60;
    constexpr unsigned longestValue = 79;
    char value[longestValue + 1];
    return HostGetEnv("KS_CORE_TIME_OUT", value, longestValue) ? atoi(value) : defaultSeconds;
}

void blockAllExcept(std::initializer_list<int> open) {
    sigset_t mask;
    sigfillset(&mask);
    for (const int sig : open) {
        sigdelset(&mask, sig);
    }
    pthread_sigmask(SIG_SETMASK, &mask, nullptr);
}

class SignalMaskKeeper {
public:
    SignalMaskKeeper() { pthread_sigmask(SIG_SETMASK, nullptr, &saved); }
    ~SignalMaskKeeper() { pthread_sigmask(SIG_SETMASK, &saved, nullptr); }
    SignalMaskKeeper(const SignalMaskKeeper&) = delete;
    SignalMaskKeeper& operator=(const SignalMaskKeeper&) = delete;

private:
    sigset_t saved;
};

// Gives a person time to attach a debugger, on the wall clock.
void waitForDebugger(int timeOut) {
    printDebuggerBanner("HostCoredump");
    printf("\n    Sleeping for %d seconds before dumping core.\n", timeOut);
    printf("    You can now attach a debugger. ");
    printf("    Process Id is %ld\n", static_cast<long>(getpid()));
    fflush(stdout);
    blockAllExcept({SIGTRAP, SIGTERM, SIGUSR1, SIGQUIT, SIGABRT, SIGTSTP, SIGCONT});
    const int64_t start = hostWallSeconds();
    while (hostWallSeconds() - start < timeOut) {
        HostSleep(3);
    }
}

void reportPathFailure(const char* what, int error) {
    HostSignalSafePrint(what);
    HostSignalSafePrint(coreDirName);
    hostSafePrintf("; errno = %d\n", error);
}

// Makes a folder for the core file, so that it meets no other, and goes there.
void enterCoreDir() {
    HostFnameStrType hostName;
    HostFnameStrType name;
    const unsigned long pid = static_cast<unsigned long>(getpid());
    if (HostGetHostname(hostName, sizeof hostName)) {
        snprintf(name, sizeof name, "coredir%lu-%.*s", pid, NAME_MAX, hostName);
    } else {
        snprintf(name, sizeof name, "coredir%lu-%lu", pid, static_cast<unsigned long>(time(nullptr)));
    }
    HostExpandFileName(name, coreDirName, sizeof coreDirName);
    if (mkdir(coreDirName, 0700) != 0) {
        reportPathFailure("coredump:  Unable to create core directory ", errno);
    } else if (chdir(coreDirName) != 0) {
        reportPathFailure("coredump:  unable to chdir to ", errno);
        rmdir(coreDirName);
    } else {
        madeCoreDir = TRUE;
    }
}

void leaveCoreDir() {
    if (!madeCoreDir) {
        return;
    }
    if (chdir("..") == 0) {
        rmdir(coreDirName);
    }
    madeCoreDir = FALSE;
}

void prepareFirstDump() {
    hostCallIfSet(fileFlusherFct);
    hostDropSetIds();
    enterCoreDir();
}

void prepareSecondDump() {
    HostSignalSafePrint("coredump panic: Avoiding user-defined rundown function\n");
    HostSignalSafePrint("coredump panic: disabling errmsg expansion\n");
    // Not through ErrMsgSetPanicked: the failed thread may hold the catalogue's mutex.
    errMsgSetPanicked(true);
}

// The child shares the parent's memory, so the core is the parent's; the parent stands still meanwhile.
[[noreturn]] void dumpInChild() {
    UNIXIO_DO_SIGNAL(SIGINT, unixioPlain(SIG_IGN), nullptr);
    UNIXIO_DO_SIGNAL(SIGABRT, unixioPlain(SIG_DFL), nullptr);
    UNIXIO_DO_SIGNAL(SIGQUIT, unixioPlain(SIG_DFL), nullptr);
    // Where a library stands in front of sigaction, the kernel still has the other handler.
    hostSetInKernel(SIGQUIT, SIG_DFL);
    sigset_t quit;
    sigemptyset(&quit);
    sigaddset(&quit, SIGQUIT);
    sigprocmask(SIG_UNBLOCK, &quit, nullptr);
    // Not raise: the C library still takes the child for the parent's thread.
    kill(getpid(), SIGQUIT);
    puts("gross failure in coredump: shouldn't be here!");
    fflush(stderr);
    fflush(stdout);
    _exit(1);
}

// The child's pid, or -1 with errno.
pid_t startDump() {
    for (;;) {
        const pid_t pid = vfork();
        if (pid == 0) {
            dumpInChild();
        }
        if (pid > 0 || !shouldRetry()) {
            return pid;
        }
    }
}

// Waits for the child that writes the core; other children that end meanwhile are taken, too.
bool waitForDump(pid_t child, int& status) {
    for (;;) {
        const pid_t pid = wait(&status);
        if (pid == child) {
            return true;
        }
        if (pid > 0 || hostWasInterrupted(errno)) {
            continue;
        }
        // A pending SIGTERM asks for another try; without children none can succeed.
        if (errno == ECHILD || HostGetSigTerm(__FILE_NAME__, __LINE__) == 0) {
            return false;
        }
    }
}

void reportErrno(const char* sym, int error) {
    hostReportLine(stderr, sym, "ds", error, ErrnoText(error).text);
}

// Moves the child's core file to where a person looks for this process's.
void moveCore(pid_t child) {
    char core[32];
    char name[32];
    snprintf(core, sizeof core, "core.%u", static_cast<unsigned>(child));
    snprintf(name, sizeof name, madeCoreDir ? "../core%lu" : "core%lu", static_cast<unsigned long>(getpid()));
    HostFnameStrType target;
    HostExpandFileName(name, target, sizeof target);
    if (rename(core, target) != 0) {
        const int error = errno;
        hostReportLine(stderr, "host.core5", "s", target);
        reportErrno("host.core6", error);
    } else {
        leaveCoreDir();
        hostReportLine(stderr, "host.core7", "s", target);
    }
}

bool writeCore() {
    const pid_t child = startDump();
    if (child < 0) {
        reportErrno("host.core2", errno);
        return false;
    }
    int status = 0;
    if (!waitForDump(child, status)) {
        hostReportLine(stderr, "host.core3", nullptr);
        return false;
    }
    if (!WCOREDUMP(status)) {
        hostReportLine(stderr, "host.core4", nullptr);
        return false;
    }
    moveCore(child);
    return true;
}
} // namespace

BoolType HostCoredump(BoolType explicitlyRequested) {
    const int timeOut = timeOutSeconds();
    if (noHalt) {
        return TRUE;
    }
    const SignalMaskKeeper maskKeeper;
    const int attempt = HostAsmSyncCtrAdd(&coreAttempts, 1) + 1;
    if (attempt == 1) {
        hostCallIfSet(fileFlusherFct);
        printStacks();
    }
    if (!explicitlyRequested) {
        waitForDebugger(timeOut);
    }
    if (!coreDumpEnabled) {
        return FALSE;
    }
    if (attempt > 2) {
        HostSignalSafePrint("coredump panic:  giving up!\n");
        _exit(1);
    }
    HostFatalErr = TRUE;
    if (attempt == 2) {
        prepareSecondDump();
    } else {
        prepareFirstDump();
    }

    UNIXIO_DO_SIGNAL(SIGABRT, unixioPlain(SIG_DFL), nullptr);
    struct sigaction childAction = {};
    UNIXIO_DO_SIGNAL(SIGCHLD, unixioPlain(SIG_DFL), &childAction);
    blockAllExcept({SIGCHLD});
    const bool dumped = writeCore();
    unixioSetAction(SIGCHLD, childAction);
    hostCallIfSet(shutdownFct);
    return static_cast<BoolType>(dumped);
}
