#include "hostprocess.h"

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <fstream>
#include <gtest/gtest.h>
#include <pty.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include "host/processes.h"

namespace {
// A process's dispositions and this thread's mask, as the kernel shows them, and the flags of the borrowed ones.
std::string signalState() {
    std::string state;
    std::ifstream status("/proc/thread-self/status");
    for (std::string line; std::getline(status, line);) {
        if (line.starts_with("SigBlk") || line.starts_with("SigIgn") || line.starts_with("SigCgt"))
            state += line.substr(0, 8) + line.substr(line.size() - 8) + "\n"; // without the C library's own, 32 and 33
    }
    // The C library adds a flag of its own when it sets a disposition on x86-64.
    constexpr int restorerFlag = 0x04000000;
    for (const int sig : {SIGCHLD, SIGVTALRM, SIGINT, SIGQUIT, SIGTTOU, SIGTTIN}) {
        struct sigaction action;
        sigaction(sig, nullptr, &action);
        state += std::to_string(reinterpret_cast<uintptr_t>(action.sa_handler)) + " " +
                 std::to_string(action.sa_flags & ~restorerFlag) + " " +
                 std::to_string(sigismember(&action.sa_mask, SIGHUP)) + "\n";
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
    signal(SIGHUP, SIG_DFL); // whatever this program was started with
    sigset_t blocked;
    sigemptyset(&blocked);
    sigaddset(&blocked, SIGUSR2);
    sigaddset(&blocked, SIGTTIN);
    pthread_sigmask(SIG_BLOCK, &blocked, nullptr);
}

TEST(UnixIoSystem, ResultsAndDispositionsOnEveryPath) {
    const Scratch scratch;
    const std::string script = scratch.script("s", "exit 0");
    const std::string longest = "true " + std::string(10000, 'x');
    const std::pair<std::function<long()>, long> cases[] = {
        {[] { return UnixIoSystem("exit 0", TRUE); }, 0},
        {[] { return UnixIoSystem("exit 255", TRUE); }, -1},
        {[] { return UnixIoSystem("kill -9 $$", FALSE); }, 0},
        {[&] { return UnixIoSystem(longest.c_str(), FALSE); }, 0},
        {[&] { return HostPerform(script.c_str(), scratch.file("o").c_str()); }, TRUE},
        {[] { return HostInteractiveSpawn("exit 0"); }, TRUE},
        {[] { return HostSpawn("exit 3"); }, FALSE},
    };
    expectGoodInChild([&] {
        useOwnSignals();
        const std::string before = signalState();
        const NothingLeft nothingLeft;
        for (const auto& [call, result] : cases) {
            errno = ENOTTY;
            EXPECT_EQ(call(), result);
            EXPECT_EQ(signalState(), before);
            EXPECT_TRUE(errno == ENOTTY || &call > &cases[3].first) << "of no concern to a command that ran";
        }
        EXPECT_EQ(reaped, 0) << "a handler took a command's status";
        const rlimit none{0, 0};
        if (becomeNobody() && setrlimit(RLIMIT_NPROC, &none) == 0) { // root has no limit
            EXPECT_EQ(UnixIoSystem("exit 0", FALSE), -1);
            EXPECT_EQ(errno, EAGAIN);
            EXPECT_EQ(signalState(), before);
        }
    });
    // A stopped command is given up; it is still there.
    EXPECT_EQ(UnixIoSystem(("echo $$ >" + scratch.file("pid") + "; kill -STOP $$").c_str(), FALSE), -1);
    const pid_t pid = atoi(scratch.read("pid").c_str());
    ASSERT_GT(pid, 0);
    kill(pid, SIGKILL);
    EXPECT_EQ(waitFor(pid), -SIGKILL);
}

// SIGVTALRM is ignored in the command, too, and it has a session of its own unless it is interactive.
TEST(UnixIoSystem, WhatTheCommandInherits) {
    const Scratch scratch;
    expectGoodInChild([&] {
        useOwnSignals();
        const std::string look = "grep SigIgn /proc/$$/status >" + scratch.file("signals") +
                                 "; read pid comm state ppid group session rest </proc/$$/stat; test $session = ";
        EXPECT_EQ(UnixIoSystem((look + "$$").c_str(), FALSE), 0);
        EXPECT_EQ(UnixIoSystem((look + std::to_string(getsid(0))).c_str(), TRUE), 0);
    });
    char ignored[32];
    snprintf(ignored, sizeof ignored, "SigIgn:\t%016x\n", 1U << (SIGVTALRM - 1) | 1U << (SIGQUIT - 1));
    EXPECT_EQ(scratch.read("signals"), ignored);
}

TEST(UnixIoSystem, ThreadsAtOnce) {
    expectGoodInChild([] {
        useOwnSignals();
        const std::string before = signalState();
        const auto run = [] {
            for (int i = 0; i < 40; ++i) {
                const char* command = i % 2 == 0 ? "exit 0" : "exit 1";
                EXPECT_EQ(i % 4 < 2 ? UnixIoSystem(command, FALSE) == 0 : HostSpawn(command) != 0, i % 2 == 0);
            }
        };
        std::thread first(run), second(run);
        run();
        first.join();
        second.join();
        EXPECT_EQ(signalState(), before);
        EXPECT_EQ(reaped, 0);
    });
}

// The command runs under the real ids; neither this thread's nor another's change.
TEST(UnixIoSystem, RealIds) {
    if (geteuid() != 0)
        GTEST_SKIP() << "only root has other ids to take";
    expectGoodInChild([] {
        const auto ids = [] { return std::pair(geteuid(), getegid()); };
        const auto others = std::pair(65534U, 65534U), root = std::pair(0U, 0U);
        ASSERT_EQ(setegid(65534) | seteuid(65534), 0);
        std::thread([&] {
            EXPECT_EQ(UnixIoSystem("test $(id -u) = 0 && test $(id -g) = 0", FALSE), 0);
            EXPECT_EQ(ids(), others);
        }).join();
        EXPECT_EQ(ids(), others);
        HostUseRealId();
        EXPECT_EQ(ids(), root);
        HostSetUserId();
        EXPECT_EQ(ids(), others);
    });
}

TEST(HostPerform, RunsTheScript) {
    const Scratch scratch;
    const NothingLeft nothingLeft;
    const std::string script = scratch.script("s", "readlink /proc/self/fd/0; echo to stderr >&2; exit 7");
    // 80 characters together run, 81 do not. A failing script counts as performed.
    for (const size_t length : {80U, 81U}) {
        std::string output = scratch.file("");
        output += std::string(length - script.size() - output.size(), 'o');
        EXPECT_EQ(HostPerform(script.c_str(), output.c_str()), length == 80);
        EXPECT_EQ(scratch.read(output.substr(scratch.path().size())), length == 80 ? "/dev/null\nto stderr\n" : "");
    }
}

TEST(HostInteractiveSpawn, EmptyCommandIsTheUsersShell) {
    const Scratch scratch;
    const std::string shell = scratch.script("zsh", "echo $0 \"$@\" >>" + scratch.file("args"));
    setenv("SHELL", shell.c_str(), 1);
    EXPECT_TRUE(HostInteractiveSpawn("") && HostInteractiveSpawn(nullptr));
    EXPECT_EQ(scratch.read("args"), shell + " -i\n" + shell + " -i\n");
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
    unsetenv("SHELL");
    unsetenv("ENV");
    const auto outcome = [](bool ran) { return !ran ? 1 : tcgetpgrp(0) != getpgrp() ? 2 : 0; };
    const auto shell = [&] { return outcome(HostSpawn("")); };
    EXPECT_EQ(onTerminal(shell, "echo $((6 * 7))\nexit\n", shown), 0) << shown;
    EXPECT_NE(shown.find("42"), std::string::npos) << shown;

    // A shell that is killed leaves the terminal to a process group that is no more. Without HostSpawn, SIGTTOU would
    // stop whoever reaches for the terminal.
    const auto killed = [&] { return outcome(HostInteractiveSpawn("exec /bin/sh -i -c 'kill -9 $$'")); };
    EXPECT_EQ(onTerminal(killed, "", shown), 0) << shown;
}

TEST(UnixIoExecv, ExpandsThePath) {
    const Scratch scratch;
    const std::string program = scratch.script("program", "echo $0 $1");
    setenv("PLACE", scratch.path().c_str(), 1);
    char name[] = "name", one[] = "one";
    char* const words[] = {name, one, nullptr};
    expectGoodInChild([&] { UnixIoExecv("$PLACE/program", words); }, "", "^" + program + " one\n$");
    EXPECT_EQ(UnixIoExecv("sh", words), -1); // the PATH is not searched
    EXPECT_EQ(errno, ENOENT);
}
} // namespace
