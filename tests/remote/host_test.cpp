// Host processes of both word sizes: how they start and end, and what is left of them.
#include "kciremote.h"
#include "kcitable.h"
#include "support/child.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <dlfcn.h>
#include <filesystem>
#include <fstream>
#include <set>
#include <string>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace fs = std::filesystem;
using namespace std::chrono_literals;

namespace {

const std::string CLIENTS[] = {CLIENT_32, CLIENT_64};

std::set<std::string> filesOf(pid_t pid) {
    std::set<std::string> files;
    for (const auto& each : fs::directory_iterator("/proc/" + std::to_string(pid) + "/fd")) {
        std::error_code gone;
        const auto target = fs::read_symlink(each, gone);
        if (!gone)
            files.insert(each.path().filename().string() + " " + target.string());
    }
    return files;
}

pid_t onlyChild() {
    pid_t child = 0;
    for (const auto& task : fs::directory_iterator("/proc/self/task"))
        std::ifstream(task.path() / "children") >> child;
    return child;
}

std::string statusLine(pid_t pid, const std::string& name) {
    std::ifstream status("/proc/" + std::to_string(pid) + "/status");
    for (std::string line; std::getline(status, line);) {
        if (line.starts_with(name + ":\t"))
            return line.substr(name.size() + 2);
    }
    return "";
}

bool ends(pid_t pid) {
    for (int left = 1000; left > 0; --left, usleep(1000)) {
        const std::string state = statusLine(pid, "State");
        if (state.empty() || state.starts_with("Z"))
            return true;
    }
    return false;
}

// One opening of the remote client library.
class Remote {
public:
    explicit Remote(const std::string& library = REMOTE_LIBRARY) {
        handle = dlopen(library.c_str(), RTLD_NOW);
        EXPECT_NE(handle, nullptr) << dlerror();
    }
    ~Remote() { dlclose(handle); }

    std::string serve(const std::string& file) {
        char error[400] = "";
        const auto function = reinterpret_cast<KciRemoteServeFuncPtr>(dlsym(handle, "KciRemoteServe"));
        if (!function(file.c_str(), error, sizeof error))
            return error;
        table = reinterpret_cast<KciGetRtlTableFuncPtr>(dlsym(handle, "KciGetRtlTable"))();
        table->KciInitAppName("test", TRUE);
        return table->KciInit() ? "" : "KciInit";
    }
    // The session's number, or 0.
    int logIn(const char* user = "user", const char* password = "password") const {
        table->KciSetNet("server", nullptr, nullptr, nullptr);
        return table->KciLogin(user, password) ? table->KciGetSessionId() : 0;
    }
    std::string error() const {
        KciErrSType record{};
        return table->KciErr(&record) ? record.message : "";
    }
    std::string errorOf(int session) const {
        table->KciSetSessionId(session);
        return error();
    }
    void* handle;
    const KciRtlJumpSType* table = nullptr;
};

const std::string SIGNALLED = "the client library's host process was ended by signal ";
const std::string SESSION_ENDED = "the session ended with its host process";

TEST(Host, ItsEndIsTheCallsError) {
    const struct Row {
        const char* trouble;
        std::string expected;
    } rows[] = {
        {"crash", SIGNALLED + "11 (Segmentation fault); its last output: about to crash"},
        {"exit", "the client library's host process ended with status 7; its last output: leaving"},
    };
    const auto filesBefore = filesOf(getpid());
    for (const std::string& library : CLIENTS) {
        Remote remote;
        ASSERT_EQ(remote.serve(library), "");
        int session = remote.logIn();
        EXPECT_EQ(session, 7);
        for (const Row& row : rows) {
            for (const bool atLogin : {false, true}) {
                atLogin ? void(remote.logIn(row.trouble)) : remote.table->KciNbExecuteStr(row.trouble, KCI_OOP_NIL);
                EXPECT_EQ(remote.error(), row.expected);
                EXPECT_EQ(remote.errorOf(session), SESSION_ENDED);
                // Another host's session does not take the number of an ended one.
                const int next = remote.logIn();
                EXPECT_EQ(remote.error(), "");
                EXPECT_GT(next, session);
                EXPECT_EQ(remote.errorOf(session), SESSION_ENDED);
                session = next;
                EXPECT_EQ(remote.errorOf(session), "");
            }
        }
        // Between two calls.
        const pid_t host = onlyChild();
        kill(host, SIGTERM);
        EXPECT_TRUE(ends(host));
        EXPECT_EQ(remote.table->KciLongToOop(3), KCI_OOP_ILLEGAL);
        EXPECT_EQ(remote.error(), SIGNALLED + "15 (Terminated)");
        EXPECT_GT(remote.logIn(), session);
        remote.table->KciUnload();
        EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1) << "a process is left";
        EXPECT_EQ(filesOf(getpid()), filesBefore);
    }
}

TEST(Host, BreaksTravelWhileACallRunsAndEndWithTheHost) {
    setenv("CLIENT_LIBRARY_LACKS", "", 1);
    const auto filesBefore = filesOf(getpid());
    {
        Remote remote;
        ASSERT_EQ(remote.serve(CLIENTS[1]), "");
        remote.logIn();
        EXPECT_EQ(remote.table->KciHardBreak, nullptr) << "the client library has none";
        std::atomic<bool> over = false;
        std::thread waiting([&] { remote.table->KciNbExecuteStr("wait", KCI_OOP_NIL), over = true; });
        // A break that comes before the call breaks nothing off.
        while (!over) {
            std::this_thread::sleep_for(20ms);
            remote.table->KciSoftBreak();
        }
        waiting.join();
        EXPECT_EQ(remote.error(), "");

        // A break that is not taken keeps nobody for long.
        std::thread slow([&] { remote.table->KciNbExecuteStr("stick", KCI_OOP_NIL); });
        std::this_thread::sleep_for(20ms);
        remote.table->KciSoftBreak();
        kill(onlyChild(), SIGKILL);
        slow.join();
        EXPECT_EQ(remote.error(), SIGNALLED + "9 (Killed)");
        remote.logIn();

        // Two threads wait: for a call, and for a break.
        std::thread call([&] { remote.table->KciNbExecuteStr("stick", KCI_OOP_NIL); });
        std::this_thread::sleep_for(20ms);
        std::thread breaking([&] { remote.table->KciSoftBreak(); });
        std::this_thread::sleep_for(20ms);
        kill(onlyChild(), SIGKILL);
        call.join();
        breaking.join();
        EXPECT_EQ(remote.error(), SIGNALLED + "9 (Killed)");
        remote.table->KciSoftBreak();
    }
    EXPECT_EQ(filesOf(getpid()), filesBefore);
    EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1) << "a process is left";
}

TEST(Host, InheritsNothingOfTheApplications) {
    const int open = dup(STDOUT_FILENO); // not close-on-exec
    signal(SIGPIPE, SIG_IGN);
    signal(SIGCHLD, SIG_IGN);
    sigset_t blocked, before;
    sigfillset(&blocked);
    pthread_sigmask(SIG_BLOCK, &blocked, &before);
    Remote remote;
    ASSERT_EQ(remote.serve(CLIENTS[0]), "");
    ASSERT_NE(remote.logIn("user", "a secret to wipe"), 0);
    const pid_t host = onlyChild();
    EXPECT_EQ(std::stoull(statusLine(host, "SigBlk"), nullptr, 16), 0u);
    EXPECT_EQ(std::stoull(statusLine(host, "SigIgn"), nullptr, 16) & ~(3ull << 31), 0u) << "but the C library's own";
    EXPECT_EQ(filesOf(host).size(), 5u) << "the standard ones, the socket, the block";
    EXPECT_NE(getpgid(host), getpgid(0)) << "a terminal's interrupt is the application's";

    // The password is nowhere in what the processes share.
    std::ifstream maps("/proc/self/maps");
    size_t shared = 0;
    for (std::string line; std::getline(maps, line);) {
        if (line.find("memfd:tmqkci") != std::string::npos) {
            const auto begin = reinterpret_cast<const char*>(std::stoull(line, nullptr, 16));
            const auto end = std::stoull(line.substr(line.find('-') + 1), nullptr, 16);
            const std::string_view memory(begin, end - reinterpret_cast<uintptr_t>(begin));
            EXPECT_EQ(memory.find("secret"), std::string_view::npos);
            shared++;
        }
    }
    EXPECT_GE(shared, 2u) << "control words and body, others among them";

    // Who ignores its children is told what can be known.
    kill(host, SIGKILL);
    remote.table->KciLongToOop(1);
    EXPECT_EQ(remote.error(), "the client library's host process ended; how is not known, because the application "
                              "collects or ignores its children");
    close(open);
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    signal(SIGCHLD, SIG_DFL);
    signal(SIGPIPE, SIG_DFL);
}

TEST(Host, EndsWithItsParent) {
    const ChildResult child = runInChild([&] {
        Remote remote;
        ASSERT_EQ(remote.serve(CLIENTS[1]), "");
        remote.logIn();
        printf("%d", onlyChild());
        fflush(stdout);
        std::thread call([&] { remote.table->KciNbExecuteStr("stick", KCI_OOP_NIL); });
        std::this_thread::sleep_for(20ms);
        raise(SIGKILL);
    });
    ASSERT_EQ(child.signal, SIGKILL) << child.err;
    EXPECT_TRUE(ends(std::stoi(child.out)));
}

TEST(Host, IsNotPassedOnByFork) {
    const auto filesBefore = filesOf(getpid());
    Remote remote;
    ASSERT_EQ(remote.serve(CLIENTS[1]), "");
    remote.logIn();
    const ChildResult child = runInChild([&] {
        for (const std::string& file : filesOf(getpid())) {
            EXPECT_TRUE(file.find("memfd:tmqkci") == std::string::npos && file.find("socket") == std::string::npos &&
                        file.find("pidfd") == std::string::npos)
                << file;
        }
        EXPECT_EQ(remote.table->KciLongToOop(3), KCI_OOP_ILLEGAL);
        EXPECT_EQ(remote.error(), "the client library's sessions belong to the process that this one was forked from");
    });
    EXPECT_EQ(child.exitStatus, 0) << child.out << child.err;
    EXPECT_EQ(remote.table->KciLongToOop(3), 15u);
}

TEST(Host, WhatKeepsItFromStartingIsNamed) {
    char pattern[] = "/tmp/host-test-XXXXXX";
    const fs::path folder = mkdtemp(pattern);
    fs::copy_file(REMOTE_LIBRARY, folder / "libkcirpc67.so");
    const fs::path program = folder / HOST_NAME;
    const auto install = [&](const std::string& text) {
        std::ofstream(program) << text;
        fs::permissions(program, fs::perms::owner_all);
    };
    const std::string own = CLIENTS[sizeof(void*) == 8];
    const auto filesBefore = filesOf(getpid());
    {
        Remote remote(folder / "libkcirpc67.so");
        EXPECT_TRUE(
            remote.serve(own).ends_with(std::string("../bin/") + HOST_NAME + " is missing; install tmqkci again"));
        install("#!/nowhere/ld.so\n");
        EXPECT_TRUE(remote.serve(own).find("-bit C library here for ") != std::string::npos);
        install("#!/bin/sh\necho no such thing >&2; exit 3\n");
        EXPECT_EQ(remote.serve(own),
                  "the client library's host process ended with status 3; its last output: no such thing");
    }
    {
        Remote remote;
        EXPECT_EQ(remote.serve("/nowhere/libx.so"),
                  "dlopen(/nowhere/libx.so) failed because /nowhere/libx.so: cannot open shared object file: "
                  "No such file or directory");
        EXPECT_EQ(remote.serve(REMOTE_HOST_OF_OTHER_SIZE).substr(0, 7), "dlopen(");
        setenv("CLIENT_LIBRARY_TROUBLE", "exit", 1);
        EXPECT_EQ(remote.serve(own), "the client library's host process ended with status 7; its last output: leaving");
        unsetenv("CLIENT_LIBRARY_TROUBLE");
        EXPECT_EQ(remote.serve(own), "");
    }
    EXPECT_EQ(filesOf(getpid()), filesBefore);
    EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1) << "a process is left";
    fs::remove_all(folder);
}

} // namespace
