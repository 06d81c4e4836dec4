// Starting servers and workers: the part of the process that starts them.
#include "hostprocess.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <optional>
#include <unistd.h>

#include "err/system/errnotext.h"
#include "errmsg.h"
#include "host/names/account.h"
#include "host/processes/forkchild.h"
#include "host/processes/forkenvironment.h"
#include "host/processes/hostdofork.h"
#include "host/signals/interrupted.h"
#include "host/signals/kernelsignal.h"
#include "host/time/hostlocaltime.h"
#include "hostfile.h"
#include "hostuser.h"
#include "utlhost.h"

volatile BoolType debugchild = FALSE;

namespace {
// The caller's buffer for the reason of a failure.
struct MessageBuffer {
    char* text;
    ArraySizeType size;

    BoolType systemCallFailed(const char* call, int error) const {
        ErrMsgSymToText("host.syscallfailed", text, size, "ss", call, ErrnoText(error).text);
        return FALSE;
    }
};

// The pipe on which a server reports that it is ready. Both ends lie above the standard descriptors, which the child
// replaces, and are closed on exec: a process that another thread starts meanwhile must not keep the pipe open.
class ReadinessPipe {
public:
    ~ReadinessPipe() {
        closeEnd(readDescriptor);
        closeEnd(writeDescriptor);
    }
    ReadinessPipe() = default;
    ReadinessPipe(const ReadinessPipe&) = delete;
    ReadinessPipe& operator=(const ReadinessPipe&) = delete;

    // False with errno set.
    bool open() {
        int ends[2];
        if (pipe2(ends, O_CLOEXEC) != 0) {
            return false;
        }
        readDescriptor = aboveStandard(ends[0]);
        writeDescriptor = aboveStandard(ends[1]);
        return readDescriptor != -1 && writeDescriptor != -1;
    }

    int writeEnd() const { return writeDescriptor; }
    void closeReadEnd() { closeEnd(readDescriptor); }
    void closeWriteEnd() { closeEnd(writeDescriptor); }

    // 1 when the byte has come, 0 when it never will, -1 with errno set.
    ssize_t awaitByte() const {
        char byte;
        ssize_t count;
        do {
            count = read(readDescriptor, &byte, 1);
        } while (count == -1 && shouldRetry());
        return count;
    }

private:
    static int aboveStandard(int descriptor) {
        if (descriptor > STDERR_FILENO) {
            return descriptor;
        }
        const int higher = fcntl(descriptor, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
        const int error = errno;
        close(descriptor);
        errno = error;
        return higher;
    }
    static void closeEnd(int& end) {
        if (end != -1) {
            close(end);
        }
        end = -1;
    }

    int readDescriptor = -1;
    int writeDescriptor = -1;
};

// Lets the named user own the process that is planned. False with the reason in msg.
bool planUser(Account& account, const char* name, ForkChildPlan& plan, const MessageBuffer& msg) {
    const passwd* user = account.get();
    if (user == nullptr) {
        ErrMsgSymToText("host.fork1", msg.text, msg.size, "s",
                        account.error() != 0 ? ErrnoText(account.error()).text : "there is no such user");
        return false;
    }
    const uid_t self = geteuid();
    if (self != 0 && user->pw_uid != self) {
        ErrMsgSymToText("host.fork1a", msg.text, msg.size, "s", name);
        return false;
    }
    plan.forUser = true;
    plan.userName = user->pw_name;
    plan.home = user->pw_dir;
    plan.uid = user->pw_uid;
    plan.gid = user->pw_gid;
    plan.setsGroups = self == 0 && user->pw_uid != 0;
    if (plan.setsGroups && !account.fetchGroups()) {
        return msg.systemCallFailed("malloc", ENOMEM) != 0;
    }
    plan.groups = account.groups();
    plan.groupCount = account.groupCount();
    return true;
}

// Waits until the server is ready.
BoolType awaitServer(ReadinessPipe& pipe, PidType pid, PidType* thePid, const MessageBuffer& msg) {
    pipe.closeWriteEnd();
    const ssize_t count = pipe.awaitByte();
    if (count == -1) {
        return msg.systemCallFailed("read", errno);
    }
    *thePid = pid;
    if (count == 1) {
        return TRUE;
    }
    ErrMsgSymToText("host.serverfailed", msg.text, msg.size, "");
    return FALSE;
}

// As fork; the child does what is planned.
pid_t forkChild(ReadinessPipe& pipe, ForkChildPlan& plan) {
    const AllSignalsBlocked blocked;
    plan.callersMask = blocked.callers();
    // One operation: of two forks at once one takes it. A debugger wants a plain variable.
    plan.waitsForDebugger = __atomic_exchange_n(&debugchild, FALSE, __ATOMIC_RELAXED) != 0;
    pid_t pid;
    do {
        pid = fork();
    } while (pid == -1 && shouldRetry());
    if (pid == -1 && plan.waitsForDebugger) {
        debugchild = TRUE;
    }
    if (pid == 0) {
        pipe.closeReadEnd();
        runForkChild(plan);
    }
    return pid;
}

// What is planned holds no more than the caller gave; the rest is added here.
BoolType doFork(bool isServer, const char* user, ForkChildPlan plan, const MessageBuffer& msg, PidType* thePid) {
    std::optional<Account> account;
    char ownName[256];
    HostFnameStrType ownHome;
    if (user != nullptr) {
        if (!planUser(account.emplace(user), user, plan, msg)) {
            return FALSE;
        }
    } else {
        plan.userName = HostGetUserName(ownName, sizeof ownName) ? ownName : nullptr;
        plan.home = HostGetHomeDir(nullptr, ownHome, sizeof ownHome) ? ownHome : nullptr;
    }
    hostLearnLocalTime(); // for what the child may have to report
    UtlExpandLogName("%D", nullptr, nullptr, nullptr, plan.date, sizeof plan.date);
    fflush(stderr);
    fflush(stdout);

    ReadinessPipe pipe;
    if (isServer && !pipe.open()) {
        return msg.systemCallFailed("pipe", errno);
    }
    plan.readinessPipe = pipe.writeEnd();
    ForkEnvironment environment;
    plan.environment = &environment;
    if (!environment.prepare(plan)) {
        return msg.systemCallFailed("malloc", ENOMEM);
    }
    const pid_t pid = forkChild(pipe, plan);
    if (pid == -1) {
        return msg.systemCallFailed("fork", errno);
    }

    ErrMsgReset();
    if (isServer) {
        return awaitServer(pipe, pid, thePid, msg);
    }
    *thePid = pid;
    return TRUE;
}
} // namespace

BoolType HostFork(const char* cmd, const char* user, void*, char* msg, ArraySizeType msgLength, const char* clientHost,
                  const char* logName, const char* workingDir, PidType* thePid) {
    ForkChildPlan plan{};
    plan.command = cmd != nullptr ? cmd : "";
    plan.clientHost = clientHost;
    plan.logName = logName;
    plan.workingDir = workingDir;
    return doFork(false, user, plan, {msg, msgLength}, thePid);
}

BoolType HostForkServer(const char* cmd, char* msg, ArraySizeType msgLength, PidType* thePid) {
    *thePid = 0;
    ForkChildPlan plan{};
    plan.command = cmd != nullptr ? cmd : "";
    plan.workingDir = ".";
    return doFork(true, nullptr, plan, {msg, msgLength}, thePid);
}
