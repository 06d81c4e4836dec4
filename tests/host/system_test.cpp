#include "hostprocess.h"

#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <fstream>
#include <gtest/gtest.h>
#include <poll.h>
#include <pty.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include "host/scratch.h"
#include "support/child.h"

namespace {
// A process's dispositions and this thread's mask, as the kernel shows them, and the flags of the borrowed ones.
std::string signalState() {
    std::string state;
    std::ifstream status("/proc/thread-self/status");
    for (std::string line; std::getline(status, line);) {
        if (line.starts_with("SigBlk") || line.starts_with("SigIgn") || line.starts_with("SigCgt"))
            state += line.substr(0, 8) + line.substr(line.size() - 8) + "\n"; // without the C library's own, 32 and 33
    }
    for (const int sig : {SIGCHLD, SIGVTALRM, SIGINT, SIGQUIT, SIGTTOU, SIGTTIN}) {
        struct sigaction action;
        sigaction(sig, nullptr, &action);
        state += std::to_string(reinterpret_cast<uintptr_t>(action.sa_handler)) + " " +
                 std::to_string(action.sa_flags) + " " + std::to_string(sigismember(&action.sa_mask, SIGHUP)) + "\n";
    }
    return state;
}

std::atomic<int> reaped{0};
void reap(int) {
    while (waitpid(-1, nullptr, WNOHANG) > 0)
        ++reaped;
}

// Dispositions and a mask as no default has them.
void useOwnSignals() {
    struct sigaction action = {};
    action.sa_handler = reap;
    action.sa_flags = SA_RESTART | SA_NOCLDSTOP;
    sigaddset(&action.sa_mask, SIGHUP);
    for (const int sig : {SIGCHLD, SIGVTALRM, SIGINT, SIGTTOU})
        sigaction(sig, &action, nullptr);
    signal(SIGQUIT, SIG_IGN);
    sigset_t blocked;
    sigemptyset(&blocked);
    sigaddset(&blocked, SIGUSR2);
    sigaddset(&blocked, SIGTTIN);
    pthread_sigmask(SIG_BLOCK, &blocked, nullptr);
}

TEST(UnixIoSystem, Results) {
    const struct {
        std::string command;
        int result;
    } cases[] = {{"exit 0", 0},   {"exit 1", -1}, {"exit 255", -1},       {"kill -9 $$", 0},
                 {"", 0},         {"false", -1},  {"/nonexistent/x", -1}, {"true " + std::string(10000, 'x'), 0},
                 {"sleep 0.1", 0}};
    const NothingLeft nothingLeft;
    for (const auto& c : cases) {
        for (const BoolType interactive : {FALSE, TRUE}) {
            SCOPED_TRACE(c.command);
            errno = ENOTTY;
            EXPECT_EQ(UnixIoSystem((c.command + " 2>/dev/null").c_str(), interactive), c.result);
            EXPECT_EQ(errno, ENOTTY) << "of no concern to a command that ran";
        }
    }
}

// A stopped command is given up; it is still there.
TEST(UnixIoSystem, StoppedCommandFails) {
    const Scratch scratch;
    EXPECT_EQ(UnixIoSystem(("echo $$ >" + scratch.file("pid") + "; kill -STOP $$").c_str(), FALSE), -1);
    const pid_t pid = atoi(scratch.read("pid").c_str());
    ASSERT_GT(pid, 0);
    kill(pid, SIGKILL);
    EXPECT_EQ(waitFor(pid), -SIGKILL);
}

// SIGVTALRM is ignored in the command, too, and it has a session of its own unless it is interactive.
TEST(UnixIoSystem, WhatTheCommandInherits) {
    const Scratch scratch;
    const ChildResult child = runInChild([&] {
        useOwnSignals();
        const std::string look = "grep SigIgn /proc/$$/status >" + scratch.file("signals") +
                                 "; read pid comm state ppid group session rest </proc/$$/stat; test $session = ";
        EXPECT_EQ(UnixIoSystem((look + "$$").c_str(), FALSE), 0);
        const std::string own = std::to_string(getsid(0));
        EXPECT_EQ(UnixIoSystem((look + own).c_str(), TRUE), 0);
    });
    EXPECT_EQ(child.exitStatus, 0) << child.out;
    char ignored[32];
    snprintf(ignored, sizeof ignored, "SigIgn:\t%016x\n", 1U << (SIGVTALRM - 1) | 1U << (SIGQUIT - 1));
    EXPECT_EQ(scratch.read("signals"), ignored);
}

TEST(UnixIoSystem, DispositionsComeBackOnEveryPath) {
    const Scratch scratch;
    const std::string script = scratch.script("s", "exit 0");
    const std::string output = scratch.file("o");
    const struct {
        const char* name;
        std::function<long()> call;
        long result;
        long withoutProcess; // the result when no process can be created
    } cases[] = {
        {"success", [] { return UnixIoSystem("exit 0", FALSE); }, 0, -1},
        {"failure", [] { return UnixIoSystem("exit 1", TRUE); }, -1, -1},
        // Looks at nothing but a lost status.
        {"HostPerform", [&] { return HostPerform(script.c_str(), output.c_str()); }, TRUE, TRUE},
        {"names too long", [] { return HostPerform(std::string(80, 'x').c_str(), "/y"); }, FALSE, FALSE},
        {"HostInteractiveSpawn", [] { return HostInteractiveSpawn("exit 0"); }, TRUE, FALSE},
        {"HostSpawn", [] { return HostSpawn("exit 3"); }, FALSE, FALSE},
    };
    for (const bool canFork : {true, false}) {
        const ChildResult child = runInChild([&] {
            useOwnSignals();
            if (!canFork) {
                if (geteuid() == 0 && !becomeNobody()) // root has no limit
                    _exit(77);
                const rlimit none{0, 0};
                setrlimit(RLIMIT_NPROC, &none);
            }
            for (const auto& c : cases) {
                SCOPED_TRACE(c.name);
                const std::string before = signalState();
                const NothingLeft nothingLeft;
                EXPECT_EQ(c.call(), canFork ? c.result : c.withoutProcess);
                EXPECT_EQ(signalState(), before);
            }
            if (!canFork) {
                EXPECT_EQ(UnixIoSystem("exit 0", FALSE), -1);
                EXPECT_EQ(errno, EAGAIN);
            }
            EXPECT_EQ(reaped, 0) << "a handler took a command's status";
        });
        if (child.exitStatus == 77)
            GTEST_SKIP() << "root, but cannot become a user whose processes are limited";
        EXPECT_EQ(child.exitStatus, 0) << child.out << child.err;
    }
}

TEST(UnixIoSystem, ThreadsAtOnce) {
    const ChildResult child = runInChild([] {
        useOwnSignals();
        const std::string before = signalState();
        std::vector<std::thread> threads;
        for (int t = 0; t < 8; ++t) {
            threads.emplace_back([t] {
                for (int i = 0; i < 15; ++i) {
                    if (t % 2 == 0)
                        EXPECT_EQ(UnixIoSystem(i % 2 == 0 ? "exit 0" : "exit 1", FALSE), i % 2 == 0 ? 0 : -1);
                    else
                        EXPECT_EQ(HostSpawn(i % 2 == 0 ? "exit 0" : "exit 1"), i % 2 == 0);
                }
            });
        }
        for (std::thread& thread : threads)
            thread.join();
        EXPECT_EQ(signalState(), before);
        EXPECT_EQ(reaped, 0);
    });
    EXPECT_EQ(child.exitStatus, 0) << child.out;
}

// The command runs under the real ids; neither this thread's nor another's change.
TEST(UnixIoSystem, RealIds) {
    const ChildResult child = runInChild([] {
        if (geteuid() != 0)
            _exit(77);
        ASSERT_EQ(setegid(65534), 0);
        ASSERT_EQ(seteuid(65534), 0);
        std::thread([] {
            EXPECT_EQ(UnixIoSystem("test $(id -u) = 0 && test $(id -g) = 0", FALSE), 0);
            EXPECT_EQ(geteuid(), 65534U);
        }).join();
        EXPECT_EQ(geteuid(), 65534U);
        EXPECT_EQ(getegid(), 65534U);

        HostUseRealId();
        HostUseRealId();
        EXPECT_EQ(geteuid(), 0U);
        EXPECT_EQ(getegid(), 0U);
        HostSetUserId();
        HostSetUserId();
        EXPECT_EQ(geteuid(), 65534U);
        EXPECT_EQ(getegid(), 65534U);
    });
    if (child.exitStatus == 77)
        GTEST_SKIP() << "only root has other ids to take";
    EXPECT_EQ(child.exitStatus, 0) << child.out;
}

TEST(HostPerform, RunsTheScript) {
    const Scratch scratch;
    const NothingLeft nothingLeft;
    const std::string script = scratch.script("s", "readlink /proc/self/fd/0; echo to stderr >&2; exit 7");
    EXPECT_TRUE(HostPerform(script.c_str(), scratch.file("o").c_str())) << "a failing script counts as performed";
    EXPECT_EQ(scratch.read("o"), "/dev/null\nto stderr\n");

    // 80 characters together run, 81 do not.
    for (const size_t length : {80U, 81U}) {
        std::string output = scratch.file("");
        output += std::string(length - script.size() - output.size(), 'o');
        EXPECT_EQ(HostPerform(script.c_str(), output.c_str()), length == 80);
        EXPECT_EQ(access(output.c_str(), F_OK) == 0, length == 80);
    }
}

TEST(HostInteractiveSpawn, EmptyCommandIsTheUsersShell) {
    const Scratch scratch;
    const std::string shell = scratch.script("zsh", "echo $0 \"$@\" >" + scratch.file("args"));
    const struct {
        const char* command;
        const char* shell;
        std::string expected;
    } cases[] = {{"", shell.c_str(), shell + " -i\n"}, {nullptr, shell.c_str(), shell + " -i\n"}};
    for (const auto& c : cases) {
        setenv("SHELL", c.shell, 1);
        EXPECT_TRUE(HostInteractiveSpawn(c.command));
        EXPECT_EQ(scratch.read("args"), c.expected);
    }
}

// What is typed into a terminal whose foreground is a child; the child's exit status.
int onTerminal(const std::function<int()>& body, const std::string& typed, std::string& shown) {
    int terminal = -1;
    const pid_t pid = forkpty(&terminal, nullptr, nullptr, nullptr);
    if (pid == 0) {
        alarm(20);
        _exit(body());
    }
    EXPECT_EQ(write(terminal, typed.data(), typed.size()), static_cast<ssize_t>(typed.size()));
    char buffer[4096];
    for (ssize_t count; (count = read(terminal, buffer, sizeof buffer)) > 0;)
        shown.append(buffer, static_cast<size_t>(count));
    close(terminal);
    return waitFor(pid);
}

TEST(HostSpawn, HandsTheTerminalBack) {
    std::string shown;
    const auto shell = [] {
        unsetenv("SHELL");
        unsetenv("ENV");
        const bool ran = HostSpawn("");
        return !ran ? 1 : tcgetpgrp(0) != getpgrp() ? 2 : 0;
    };
    EXPECT_EQ(onTerminal(shell, "echo $((6 * 7))\nexit\n", shown), 0) << shown;
    EXPECT_NE(shown.find("42"), std::string::npos) << shown;

    // A shell that is killed leaves the terminal to a process group that is no more. Without HostSpawn, SIGTTOU would
    // stop whoever reaches for the terminal.
    const auto killed = [] {
        const bool ran = HostInteractiveSpawn("exec /bin/sh -i -c 'kill -9 $$'");
        return !ran ? 1 : tcgetpgrp(0) != getpgrp() ? 2 : 0;
    };
    EXPECT_EQ(onTerminal(killed, "", shown), 0) << shown;
}

TEST(UnixIoExecv, ExpandsAVariableAtThePathsHead) {
    const Scratch scratch;
    scratch.script("program", "echo $0 $1");
    symlink("program", scratch.file("alias").c_str());
    setenv("PLACE", scratch.path().c_str(), 1);
    const struct {
        std::string path;
        std::string expected;
    } cases[] = {
        {"$PLACE/program", scratch.file("program") + " one\n"},
        {scratch.file("alias"), scratch.file("alias") + " one\n"},
        {"$UNSET/program", "No such file or directory"},
        {"", "No such file or directory"},
    };
    for (const auto& c : cases) {
        const ChildResult child = runInChild([&] {
            char name[] = "name";
            char one[] = "one";
            char* const words[] = {name, one, nullptr};
            EXPECT_EQ(UnixIoExecv(c.path.c_str(), words), -1);
            printf("%s", strerror(errno));
        });
        EXPECT_EQ(child.out, c.expected) << c.path;
    }
}
} // namespace
