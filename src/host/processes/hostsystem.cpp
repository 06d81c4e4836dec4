// Shell commands run to completion.
#include "hostprocess.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <string_view>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include "host/base/errnokeeper.h"
#include "host/base/realids.h"
#include "host/signals/borrowedsignal.h"
#include "host/signals/interrupted.h"
#include "host/signals/kernelsignal.h"
#include "hostenv.h"
#include "hostfile.h"
#include "hostsignal.h"

namespace {
constinit BorrowedSignal childEnded(SIGCHLD);
constinit BorrowedSignal virtualTimer(SIGVTALRM);
constinit BorrowedSignal keyboardInterrupt(SIGINT);
constinit BorrowedSignal keyboardQuit(SIGQUIT);
constinit BorrowedSignal terminalOutput(SIGTTOU);
constinit BorrowedSignal terminalInput(SIGTTIN);

// Puts the terminal of descriptor 0 back to the process group that has it now. To be ended while SIGTTOU is blocked or
// ignored: it would stop a process that is not in the foreground and reaches for the terminal.
class ForegroundKept {
public:
    explicit ForegroundKept(bool keep) : group(keep ? tcgetpgrp(STDIN_FILENO) : -1) {}
    ~ForegroundKept() {
        if (group != -1) {
            tcsetpgrp(STDIN_FILENO, group);
        }
    }
    ForegroundKept(const ForegroundKept&) = delete;
    ForegroundKept& operator=(const ForegroundKept&) = delete;

private:
    const pid_t group;
};

// Everything below up to startShell runs in the child of a vfork, in this process's memory. It makes system calls only,
// and past the C library: its functions for ids tell all threads of this process, and a library in front of sigaction
// may keep books.

[[noreturn, gnu::noinline]] void runShell(const char* cmd, bool interactive, const sigset_t& mask) {
    constexpr size_t kernelSetSize = 8;
    if (!interactive) {
        setsid();
    }
    hostDropHandlersInKernel();
    syscall(SYS_rt_sigprocmask, SIG_SETMASK, &mask, nullptr, kernelSetSize);
    if (hostTakeRealIdsForExec()) {
        const char* const words[] = {"/bin/sh", "-c", cmd, nullptr};
        execv(words[0], const_cast<char* const*>(words));
    }
    char text[64];
    snprintf(text, sizeof text, "execv error, errno = %d\n", errno);
    HostSignalSafePrint(text);
    _exit(4);
}

// As vfork: the child is in the shell when this returns.
[[gnu::noinline]] pid_t startShell(const char* cmd, bool interactive, const sigset_t& mask) {
    const pid_t pid = vfork();
    if (pid == 0) {
        runShell(cmd, interactive, mask);
    }
    return pid;
}
} // namespace

int UnixIoSystem(const char* cmd, BoolType interactive) {
    ErrnoKeeper outcome;
    const BorrowedSignal::AsDefault statusKept(childEnded);
    const BorrowedSignal::Ignored noTicks(virtualTimer);
    const AllSignalsBlocked blocked;
    const ForegroundKept foreground(interactive != 0);

    const pid_t pid = startShell(cmd, interactive != 0, blocked.callers());
    if (pid == -1) {
        outcome.value = errno;
        return -1;
    }
    int status = 0;
    pid_t waited;
    do {
        waited = waitpid(pid, &status, WUNTRACED);
    } while (waited == -1 && shouldRetry());
    if (waited == -1) {
        outcome.value = errno;
        return -1;
    }
    // The exit status alone: it is 0, too, for a command that a signal ended.
    return WEXITSTATUS(status) == 0 ? 0 : -1;
}

BoolType HostPerform(const char* scriptFile, const char* outFile) {
    constexpr size_t longestNames = 80;
    HostFnameStrType script;
    HostFnameStrType output;
    HostExpandFileName(scriptFile, script, sizeof script);
    HostExpandFileName(outFile, output, sizeof output);
    if (strlen(script) + strlen(output) > longestNames) {
        return FALSE;
    }
    char command[2 * longestNames + 64];
    snprintf(command, sizeof command, "/bin/sh %.80s </dev/null >%.80s 2>&1", script, output);

    const BorrowedSignal::Ignored unreaped(childEnded);
    errno = 0;
    const int result = UnixIoSystem(command, FALSE);
    // kept: callers depend on a script that fails counting as performed. UnixIoSystem answers neither of the numbers,
    // so only a lost status counts.
    return static_cast<BoolType>(result != 127 && result != 32512 && errno != ECHILD);
}

BoolType HostInteractiveSpawn(const char* cmd) {
    constexpr std::string_view interactively = " -i";
    constexpr unsigned longestShell = 4095;
    const BorrowedSignal::Ignored unreaped(childEnded);
    char shell[longestShell + interactively.size() + 1];
    if (cmd == nullptr || *cmd == '\0') {
        if (!HostGetEnv("SHELL", shell, longestShell)) {
            strcpy(shell, "/bin/sh");
        }
        strcat(shell, interactively.data());
        cmd = shell;
        for (int descriptor = 0; descriptor <= 2; ++descriptor) {
            fcntl(descriptor, F_SETFD, 0);
        }
    }
    errno = 0;
    if (UnixIoSystem(cmd, TRUE) == 0) {
        return TRUE;
    }
    if (errno != ECHILD) {
        return FALSE;
    }
    errno = 0;
    return TRUE;
}

BoolType HostSpawn(const char* cmd) {
    const BorrowedSignal::Ignored interrupt(keyboardInterrupt);
    const BorrowedSignal::Ignored quit(keyboardQuit);
    const BorrowedSignal::Ignored output(terminalOutput);
    const BorrowedSignal::Ignored input(terminalInput);
    return HostInteractiveSpawn(cmd);
}

int UnixIoExecv(const char* path, char* const argv[]) {
    HostFnameStrType expanded;
    HostExpandFileName(path, expanded, sizeof expanded);
    return execv(expanded, argv);
}
