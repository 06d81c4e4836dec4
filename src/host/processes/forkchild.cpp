#include "host/processes/forkchild.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <grp.h>
#include <string_view>
#include <unistd.h>

#include "err/system/errnotext.h"
#include "errmsg.h"
#include "errutl.h"
#include "host/names/lognames.h"
#include "host/processes/forkenvironment.h"
#include "host/report/reporthooks.h"
#include "host/signals/kernelsignal.h"
#include "hostdebug.h"
#include "hostfile.h"
#include "hostprocess.h"
#include "hostsignal.h"
#include "utlheap.h"
#include "utlhost.h"
#include "vermsg.h"

// The streams of the C library may hold what other threads had written and not flushed when the process was forked;
// flushed here, it would appear twice. So nothing below writes to stdout or stderr: texts go out through streams of
// their own.

namespace {
using std::string_view;

// This process's shutdown callback, which belongs to the process that was forked: set aside until the program changes.
rundownFuncType* shutdownSetAside;

[[noreturn]] void fail() {
    shutdownFct = shutdownSetAside;
    _exit(3);
}

// "<call> failed, errno = ..." and the reason below it, on standard error.
[[noreturn]] void failCall(const char* call, int error) {
    dprintf(STDERR_FILENO, "%s failed, errno = %ld, at time = %ld\n     %s\n", call, static_cast<long>(error),
            static_cast<long>(time(nullptr)), ErrnoText(error).text);
    fail();
}

void printMessage(FILE* f, const char* symbol, const char* kinds, ...) {
    ErrMsgStrType text;
    va_list args;
    va_start(args, kinds);
    ErrMsgBuildString(symbol, text, sizeof text, kinds, args);
    va_end(args);
    VerMessage(f, text);
}

// Standard error, as a stream of its own.
FILE* openErrorStream() {
    FILE* f = fdopen(STDERR_FILENO, "w");
    if (f == nullptr) {
        fail();
    }
    return f;
}

[[noreturn]] void flushAndFail(FILE* f) {
    fflush(f);
    fail();
}

// A step towards the user's identity that failed.
[[noreturn]] void failIdentity(const char* symbol, int error) {
    FILE* f = openErrorStream();
    VerLeadingEdge(f);
    printMessage(f, symbol, "d", static_cast<long>(getpid()));
    printMessage(f, "host.fork4", "s", ErrnoText(error).text);
    VerEndEdge(f);
    flushAndFail(f);
}

// The lower ones are the standard ones and the caller's own; nothing above the range is expected.
void closeDescriptors(int readinessPipe) {
    for (int descriptor = 8; descriptor <= 15; ++descriptor) {
        if (descriptor != readinessPipe) {
            close(descriptor);
        }
    }
}

// Those of 0, 1 and 2 that are closed, or were until the message file took their numbers, lead to /dev/null.
void openStandardDescriptors() {
    for (const int descriptor : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        const bool isMessageFile = ErrUtlErrFile != nullptr && fileno(ErrUtlErrFile) == descriptor;
        if (!isMessageFile && fcntl(descriptor, F_GETFD) != -1) {
            continue;
        }
        const int null = open("/dev/null", O_RDWR | O_CLOEXEC);
        if (null != descriptor && null != -1) {
            dup2(null, descriptor); // the file's content is in memory
            close(null);
        }
    }
}

// The words of a command line, as execv takes them.
char** splitWords(string_view command) {
    constexpr string_view blanks = " \t\n";
    // Words and blanks take turns.
    const size_t most = command.size() / 2 + 2;
    char** words = static_cast<char**>(UtlMalloc(static_cast<unsigned>(most * sizeof(char*)), "HostFork (argv)"));
    if (words == nullptr) {
        fail();
    }
    size_t count = 0;
    for (size_t end = 0, start; (start = command.find_first_not_of(blanks, end)) != string_view::npos;) {
        end = std::min(command.find_first_of(blanks, start), command.size());
        const size_t length = end - start;
        char* word = static_cast<char*>(UtlMalloc(static_cast<unsigned>(length + 1), "HostFork (creating an argv)"));
        if (word == nullptr) {
            fail();
        }
        memcpy(word, command.data() + start, length);
        word[length] = '\0';
        words[count++] = word;
    }
    words[count] = nullptr;
    return words;
}

void startSession() {
    if (setsid() != -1) {
        return;
    }
    const int error = errno;
    dprintf(STDERR_FILENO, "setsid() failure, errno = %ld,  at time = %ld\n     %s\n", static_cast<long>(error),
            static_cast<long>(time(nullptr)), ErrnoText(error).text);
    fail();
}

void becomeUser(const ForkChildPlan& plan) {
    if (plan.setsGroups && setgroups(plan.groupCount, plan.groups) != 0) {
        failIdentity("host.fork13", errno);
    }
    if (setgid(plan.gid) != 0) {
        failIdentity("host.fork5", errno);
    }
    if (setuid(plan.uid) != 0) {
        failIdentity("host.fork6", errno);
    }
}

// False, and said on standard output, when a pattern has no expansion.
bool expandPattern(const char* pattern, const char* program, const ForkChildPlan& plan, HostFnameStrType& name) {
    if (hostExpandLogName(pattern, {program, plan.userName, plan.home, plan.date, false}, name, sizeof name) != 0) {
        return true;
    }
    dprintf(STDOUT_FILENO, "expandLogName(%s) failed!\n", pattern);
    return false;
}

void enterWorkingFolder(const ForkChildPlan& plan, const char* program) {
    HostFnameStrType name;
    HostFnameStrType folder;
    if (plan.workingDir != nullptr && expandPattern(plan.workingDir, program, plan, name)) {
        HostExpandFileName(name, folder, sizeof folder);
    } else {
        if (plan.workingDir != nullptr) {
            HostCallDebugger();
        }
        snprintf(folder, sizeof folder, "%s", plan.home != nullptr ? plan.home : "");
    }
    if (chdir(folder) == 0) {
        return;
    }
    const int error = errno;
    FILE* f = openErrorStream();
    printMessage(f, "host.fork11", "s", folder);
    printMessage(f, "host.fork4", "s", ErrnoText(error).text);
    flushAndFail(f);
}

// Opens the worker's log on standard output and standard error.
void openLog(const ForkChildPlan& plan, const char* program) {
    HostFnameStrType name;
    if (!expandPattern(plan.logName != nullptr ? plan.logName : "%N%P%M.log", program, plan, name)) {
        snprintf(name, sizeof name, "pelgar%lu.log", static_cast<unsigned long>(getpid()));
    }
    HostFnameStrType path;
    HostExpandFileName(name, path, sizeof path);

    // A set-user-id program must not open what its user could not.
    if (!plan.forUser) {
        HostUseRealId();
    }
    const int log = open(path, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC | O_LARGEFILE, 0644);
    const int error = errno;
    if (!plan.forUser) {
        HostSetUserId();
    }
    if (log == -1) {
        FILE* f = openErrorStream();
        printMessage(f, "host.fork7", "ds", static_cast<long>(getpid()), path);
        printMessage(f, "host.fork13", "s", ErrnoText(error).text);
        flushAndFail(f);
    }
    if (!plan.environment->set("KESTRUNE_CHILD_LOG", path)) {
        fail();
    }
    for (const int descriptor : {STDOUT_FILENO, STDERR_FILENO}) {
        if (dup2(log, descriptor) == -1) {
            const int dupError = errno;
            char call[32];
            snprintf(call, sizeof call, "dup2(%d,%d)", log, descriptor);
            failCall(call, dupError);
        }
    }
}

void keepOverExec(int descriptor) {
    const int flags = fcntl(descriptor, F_GETFD);
    if (flags != -1) {
        fcntl(descriptor, F_SETFD, flags & ~FD_CLOEXEC);
    }
}

void prepareStandardDescriptors() {
    keepOverExec(STDOUT_FILENO);
    keepOverExec(STDERR_FILENO);
    close(STDIN_FILENO);
    open("/dev/null", O_RDONLY); // takes the lowest free number, 0
    keepOverExec(STDIN_FILENO);
}

FILE* openLogStream() {
    FILE* f = fdopen(STDOUT_FILENO, "a");
    if (f == nullptr) {
        failCall("fdopen(1, \"a\")", errno);
    }
    return f;
}

void writeLogHeader(FILE* f, const ForkChildPlan& plan) {
    ErrMsgStrType text;
    VerLeadingEdge(f);
    ErrMsgSymToText(plan.forUser ? "host.fork9a" : "host.fork9b", text, sizeof text, "");
    VerCenteredMessage(f, text);
    VerMessage(f, "");
    if (plan.clientHost != nullptr) {
        printMessage(f, "host.forkClient", "s", plan.clientHost);
    }
    VerInfo(f);
    // The catalogue shows as much of an argument, but prints a longer one to stdout as a whole.
    snprintf(text, sizeof text, "%s", plan.command);
    printMessage(f, "host.fork10", "s", text);
    VerEndEdge(f);
    fflush(f);
}
} // namespace

void runForkChild(const ForkChildPlan& plan) {
    const bool isServer = plan.readinessPipe != -1;
    // Before a signal is taken: the handlers, with what they flush and how they end, are the parent's.
    hostDropHandlersInKernel();
    pthread_sigmask(SIG_SETMASK, &plan.callersMask, nullptr);
    shutdownSetAside = shutdownFct.exchange(nullptr);
    environ = plan.environment->variables();
    if (plan.waitsForDebugger) {
        dprintf(STDERR_FILENO, "child process will wait for debugger!\n");
        if (!plan.environment->set("KESTRUNE_CHILD_DEBUG", "1")) {
            fail();
        }
    }
    closeDescriptors(plan.readinessPipe);
    ErrMsgReset();
    openStandardDescriptors();
    char** const words = splitWords(plan.command);
    const char* const program = words[0] != nullptr ? words[0] : "";
    startSession();
    if (plan.forUser) {
        becomeUser(plan);
    }
    enterWorkingFolder(plan, program);
    if (!isServer) {
        openLog(plan, program);
    }
    prepareStandardDescriptors();
    FILE* const report = isServer ? openErrorStream() : openLogStream();
    if (isServer) {
        keepOverExec(plan.readinessPipe);
    } else {
        writeLogHeader(report, plan);
    }

    hostSetInKernel(SIGINT, SIG_IGN);
    shutdownFct = shutdownSetAside;
    UnixIoExecv(program, words);
    const int error = errno;
    printMessage(report, "host.fork12", "");
    printMessage(report, "host.fork4", "s", ErrnoText(error).text);
    fflush(report);
    fclose(report);
    _exit(3);
}
