#include "hostprocess.h"

#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <map>
#include <pwd.h>
#include <sstream>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include "errmsg.h"
#include "host/debugchild.h"
#include "host/scratch.h"
#include "hostsignal.h"
#include "support/child.h"
#include "utlheap.h"
#include "vermsg.h"

namespace {
constexpr int notPossible = 77;

struct Outcome {
    BoolType started = FALSE;
    std::string message;
    PidType pid = -1;
};

Outcome startWorker(const std::string& cmd, const char* user, const char* logName, const char* workingDir,
                    const char* clientHost = nullptr) {
    Outcome outcome;
    char message[300] = "";
    outcome.started =
        HostFork(cmd.c_str(), user, nullptr, message, sizeof message, clientHost, logName, workingDir, &outcome.pid);
    outcome.message = message;
    return outcome;
}

Outcome startServer(const std::string& cmd) {
    Outcome outcome;
    char message[300] = "";
    outcome.started = HostForkServer(cmd.c_str(), message, sizeof message, &outcome.pid);
    outcome.message = message;
    return outcome;
}

// Runs the body in a process that has messages.
ChildResult inProcess(const Scratch& scratch, const std::function<void()>& body) {
    return runInChild([&] {
        useMessages(scratch);
        body();
    });
}

std::string printed(void (*print)(FILE*)) {
    char text[1000] = "";
    FILE* f = fmemopen(text, sizeof text, "w");
    print(f);
    fclose(f);
    return text;
}

// Lines "name=value" as a map.
std::map<std::string, std::string> values(const std::string& text) {
    std::map<std::string, std::string> found;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);) {
        if (const size_t equals = line.find('='); equals != std::string::npos)
            found[line.substr(0, equals)] = line.substr(equals + 1);
    }
    return found;
}

// Prints what a worker has: its environment, and what /proc knows.
const char* const tellAll =
    "env; echo pwd=$(pwd); echo args=\"$*\"; echo ids=$(id -u) $(id -g) $(id -G)\n"
    "echo kept=$(echo $(ls -l /proc/$$/fd | sed -n 's/.* \\([0-9]*\\) -> .*marker/\\1/p' | sort -n))\n"
    "echo stdin=$(readlink /proc/$$/fd/0)\n"
    "grep SigIgn /proc/$$/status | sed 's/.*\\t/ignored=/'\n"
    "read pid comm state ppid group session rest </proc/$$/stat; echo session=$session me=$$\n"
    "echo me=$$; echo to stderr >&2";

TEST(HostFork, WorkerHasLogSessionAndCleanDescriptors) {
    const Scratch scratch;
    const std::string command = scratch.script("tell", tellAll) + "  one\ttwo\n";
    const ChildResult child = inProcess(scratch, [&] {
        const NothingLeft nothingLeft;
        // On all numbers around the range that is closed, where nothing is open yet.
        const int marker = open(scratch.file("marker").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
        std::vector<int> marked;
        for (int descriptor = 6; descriptor <= 17; ++descriptor) {
            if (fcntl(descriptor, F_GETFD) == -1 && dup2(marker, descriptor) != -1)
                marked.push_back(descriptor);
        }
        const Outcome outcome = startWorker(command, nullptr, "%N.log", scratch.path().c_str(), "athena");
        close(marker);
        for (const int descriptor : marked) {
            close(descriptor);
            if (descriptor < 8 || descriptor > 15)
                printf(" %d", descriptor);
        }
        EXPECT_TRUE(outcome.started) << outcome.message;
        EXPECT_EQ(waitFor(outcome.pid), 0);
        printf("\n%d", outcome.pid);
    });
    ASSERT_EQ(child.exitStatus, 0) << child.out << child.err;
    EXPECT_EQ(child.err, "") << "everything goes to the log";
    const size_t newline = child.out.find('\n');
    const std::string kept = child.out.substr(0, newline);
    const std::string pid = child.out.substr(newline + 1);

    const std::string log = scratch.read("tell.log");
    const std::string edge = printed(VerLeadingEdge);
    const std::string title = printed([](FILE* f) { VerCenteredMessage(f, "Log of a process"); });
    EXPECT_TRUE(log.starts_with(edge + title + "\nStarted for the client host athena.\n")) << log;
    EXPECT_NE(log.find("\nCommand: " + command + edge), std::string::npos) << log;
    EXPECT_NE(log.find("\nto stderr\n"), std::string::npos) << log;

    auto told = values(log);
    EXPECT_EQ(told["args"], "one two");
    EXPECT_EQ(told["pwd"], scratch.path());
    EXPECT_EQ(told["KESTRUNE_CHILD_LOG"], scratch.file("tell.log"));
    EXPECT_EQ(told["stdin"], "/dev/null");
    EXPECT_EQ(told["session"], pid + " me=" + pid);
    EXPECT_EQ(told["me"], pid);
    EXPECT_EQ(told["ignored"], "0000000000000002") << "SIGINT";
    EXPECT_EQ(" " + told["kept"], kept);
    EXPECT_TRUE(kept.ends_with(" 16 17")) << kept;
    EXPECT_EQ(told.count("KESTRUNE_SERVER_PIPE"), 0U);
}

// Under a user's name: as root, and as the user itself, who cannot change groups.
TEST(HostFork, WorkerOfAUser) {
    const bool isRoot = geteuid() == 0;
    const passwd* user = isRoot ? getpwnam("nobody") : getpwuid(geteuid());
    ASSERT_NE(user, nullptr);
    const std::string ids = std::to_string(user->pw_uid) + " " + std::to_string(user->pw_gid) + " ";
    for (const bool asRoot : {true, false}) {
        if (asRoot && !isRoot)
            continue;
        const Scratch scratch;
        const std::string command = scratch.script("tell", tellAll);
        const ChildResult child = inProcess(scratch, [&] {
            if (isRoot && !asRoot && !becomeNobody())
                _exit(notPossible);
            setenv("KESTRUNE_NRS_ALL", "abc!", 1);
            const NothingLeft nothingLeft;
            const Outcome outcome = startWorker(command, user->pw_name, "%N.log", scratch.path().c_str());
            EXPECT_TRUE(outcome.started) << outcome.message;
            EXPECT_EQ(waitFor(outcome.pid), 0);
        });
        if (child.exitStatus == notPossible)
            GTEST_SKIP() << "root, but cannot become an ordinary user";
        ASSERT_EQ(child.exitStatus, 0) << child.out << child.err;
        const std::string log = scratch.read("tell.log");
        EXPECT_NE(log.find(" Log of a process started for a user\n"), std::string::npos) << log;
        auto told = values(log);
        EXPECT_TRUE(told["ids"].starts_with(ids)) << told["ids"];
        EXPECT_TRUE(!isRoot || told["ids"] == ids + std::to_string(user->pw_gid)) << told["ids"] << ": root's groups";
        EXPECT_EQ(told["HOME"], user->pw_dir);
        EXPECT_EQ(told["USER"], user->pw_name);
        EXPECT_EQ(told["LOGNAME"], user->pw_name);
        EXPECT_EQ(told["PATH"], "/bin:/usr/bin:/usr/ucb");
        EXPECT_EQ(told["KESTRUNE_NRS_ALL"], "abc#dir:" + scratch.path() + "!");
    }
}

TEST(HostFork, NameResolutionString) {
    const Scratch scratch;
    const std::string command = scratch.script("tell", "echo \"nrs=$KESTRUNE_NRS_ALL\"");
    const std::string& dir = scratch.path();
    const passwd* self = getpwuid(geteuid());
    ASSERT_NE(self, nullptr);
    const std::string fits(2047 - 5 - dir.size(), 'x');
    const struct {
        std::string before;
        bool forUser;
        std::string after;
    } cases[] = {
        {"", true, "#dir:" + dir},
        {"abc", true, "abc#dir:" + dir},
        {"abc!", true, "abc#dir:" + dir + "!"},
        {"#dir:" + dir + "!", true, "#dir:" + dir + "!"},
        {"#dir:/elsewhere!", true, "#dir:/elsewhere#dir:" + dir + "!"},
        {dir + "!", true, dir + "#dir:" + dir + "!"},
        {fits, true, fits + "#dir:" + dir},
        {fits + "x", true, fits + "x"},
        {"abc!", false, "abc!"},
    };
    for (const auto& c : cases) {
        const ChildResult child = inProcess(scratch, [&] {
            setenv("KESTRUNE_NRS_ALL", c.before.c_str(), 1);
            EXPECT_EQ(waitFor(startWorker(command, c.forUser ? self->pw_name : nullptr, "log", dir.c_str()).pid), 0);
        });
        EXPECT_EQ(child.exitStatus, 0) << child.out << child.err;
        EXPECT_EQ(values(scratch.read("log"))["nrs"], c.after) << c.before;
        unlink(scratch.file("log").c_str());
    }
}

TEST(HostFork, WhatTheParentRefuses) {
    const Scratch scratch;
    const ChildResult child = inProcess(scratch, [] {
        const NothingLeft nothingLeft;
        Outcome outcome = startWorker("/bin/true", "no such name", nullptr, nullptr);
        EXPECT_FALSE(outcome.started);
        EXPECT_EQ(outcome.message, "The user under whose name the process was to run could not be found: there is no "
                                   "such user");
        // A buffer of one byte, and none.
        char message[] = {'x', 'y'};
        PidType pid = -1;
        EXPECT_FALSE(HostFork("/bin/true", "no such name", nullptr, message, 1, nullptr, nullptr, nullptr, &pid));
        EXPECT_FALSE(HostFork("/bin/true", "no such name", nullptr, nullptr, 0, nullptr, nullptr, nullptr, &pid));
        EXPECT_EQ(message[0], '\0');
        EXPECT_EQ(message[1], 'y');
        if (geteuid() == 0 && !becomeNobody())
            _exit(notPossible);
        outcome = startWorker("/bin/true", "root", nullptr, nullptr);
        EXPECT_FALSE(outcome.started);
        EXPECT_EQ(outcome.message, "The process cannot run as user root: only a process of root can start one for "
                                   "another user.");
        EXPECT_EQ(outcome.pid, -1);
        // No process, no descriptor to be had.
        const rlimit none{0, 0};
        setrlimit(RLIMIT_NPROC, &none);
        outcome = startServer("/bin/true");
        EXPECT_EQ(outcome.message, "The system call fork failed: Resource temporarily unavailable");
        EXPECT_EQ(outcome.pid, 0);
        rlimit many;
        getrlimit(RLIMIT_NOFILE, &many);
        const rlimit few{3, many.rlim_max};
        setrlimit(RLIMIT_NOFILE, &few);
        EXPECT_EQ(startServer("/bin/true").message, "The system call pipe failed: Too many open files");
        setrlimit(RLIMIT_NOFILE, &many);
    });
    if (child.exitStatus == notPossible)
        GTEST_SKIP() << "cannot become an ordinary user";
    EXPECT_EQ(child.exitStatus, 0) << child.out << child.err;
}

// What fails in the new process: status 3, and the reason on standard error until there is a log.
TEST(HostFork, WhatFailsInTheWorker) {
    const Scratch scratch;
    const std::string longCommand = "/nonexistent " + std::string(10000, 'x');
    const std::string noFolder = "The working folder could not be changed to /nonexistent.\n"
                                 "    The reason: No such file or directory\n";
    const std::string noLog = "Process PID could not open its log file /nonexistent/log.\n"
                              "    A process could not be prepared: No such file or directory\n";
    // Without a folder the worker goes home, which for some users is /nonexistent.
    const bool hasHome = access(getpwuid(geteuid())->pw_dir, X_OK) == 0;
    const struct {
        const char* name;
        std::string command;
        const char* logName;
        const char* workingDir;
        std::string errors; // PID stands for the worker's id
        std::string output;
        std::string logEnd;
    } cases[] = {
        {"no program", "/nonexistent", "log", scratch.path().c_str(), "", "",
         "The command could not be run.\n    The reason: No such file or directory\n"},
        {"not a program", scratch.path(), "log", scratch.path().c_str(), "", "",
         "The command could not be run.\n    The reason: Permission denied\n"},
        {"empty command", "", "log", scratch.path().c_str(), "", "",
         "The command could not be run.\n    The reason: No such file or directory\n"},
        {"long command", longCommand, "log", scratch.path().c_str(), "", "",
         "The command could not be run.\n    The reason: No such file or directory\n"},
        {"no working folder", "/bin/true", "log", "/nonexistent",
         "The working folder could not be changed to /nonexistent.\n    The reason: No such file or directory\n", "",
         ""},
        {"no log folder", "/bin/true", "/nonexistent/log", scratch.path().c_str(), noLog, "", ""},
        {"bad log pattern", "/nonexistent", "%q", scratch.path().c_str(), "", "expandLogName(%q) failed!\n", ""},
        {"bad folder pattern", "/nonexistent", "/nonexistent/log", "%q", hasHome ? noLog : noFolder,
         "expandLogName(%q) failed!\n", ""},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        PidType pid = 0;
        int idPipe[2];
        ASSERT_EQ(pipe2(idPipe, O_CLOEXEC), 0);
        const ChildResult child = inProcess(scratch, [&] {
            const NothingLeft nothingLeft;
            const Outcome outcome = startWorker(c.command, nullptr, c.logName, c.workingDir);
            EXPECT_TRUE(outcome.started) << outcome.message;
            EXPECT_EQ(waitFor(outcome.pid), 3);
            EXPECT_EQ(write(idPipe[1], &outcome.pid, sizeof outcome.pid), static_cast<ssize_t>(sizeof outcome.pid));
        });
        EXPECT_EQ(read(idPipe[0], &pid, sizeof pid), static_cast<ssize_t>(sizeof pid));
        close(idPipe[0]);
        close(idPipe[1]);
        std::string errors = c.errors;
        if (const size_t place = errors.find("PID"); place != std::string::npos)
            errors.replace(place, 3, std::to_string(pid));
        EXPECT_EQ(child.exitStatus, 0);
        EXPECT_EQ(child.err, errors);
        EXPECT_EQ(child.out, c.output);
        const std::string log = scratch.read("log");
        EXPECT_TRUE(log.ends_with(c.logEnd)) << log;
        EXPECT_LT(log.size(), 4000U);
        unlink(scratch.file("log").c_str());
        EXPECT_EQ(access(scratch.file("pelgar" + std::to_string(pid) + ".log").c_str(), F_OK) == 0,
                  strcmp(c.name, "bad log pattern") == 0);
    }
}

TEST(HostFork, ADebuggerCanHaveTheNextChildWait) {
    const Scratch scratch;
    const std::string command = scratch.script("tell", "echo \"waits=$KESTRUNE_CHILD_DEBUG\"");
    const ChildResult child = inProcess(scratch, [&] {
        debugchild = TRUE;
        EXPECT_EQ(waitFor(startWorker(command, nullptr, "first", scratch.path().c_str()).pid), 0);
        EXPECT_FALSE(debugchild);
        EXPECT_EQ(waitFor(startWorker(command, nullptr, "second", scratch.path().c_str()).pid), 0);
    });
    EXPECT_EQ(child.exitStatus, 0) << child.out;
    EXPECT_EQ(child.err, "child process will wait for debugger!\n");
    EXPECT_EQ(values(scratch.read("first"))["waits"], "1");
    EXPECT_EQ(values(scratch.read("second"))["waits"], "");
}

const char* const ready = "printf x >/proc/self/fd/$KESTRUNE_SERVER_PIPE; ";

TEST(HostForkServer, ReadyOrNot) {
    const Scratch scratch;
    const std::string neverReady =
        "The server process ended before it was ready. Its error output or its log tells why.";
    const struct {
        std::string name;
        std::string command;
        BoolType started;
        int status;
        std::string errors;
    } cases[] = {
        {"ready", scratch.script("ready", std::string(ready) + "exit 5"), TRUE, 5, ""},
        {"ends before its byte", scratch.script("ends", "echo no memory >&2; exit 6"), FALSE, 6, "no memory\n"},
        {"no program", "/nonexistent", FALSE, 3,
         "The command could not be run.\n    The reason: No such file or directory\n"},
        {"empty command", "", FALSE, 3, "The command could not be run.\n    The reason: No such file or directory\n"},
    };
    for (const bool standardOnesClosed : {false, true}) {
        for (const auto& c : cases) {
            SCOPED_TRACE(c.name);
            const ChildResult child = inProcess(scratch, [&] {
                if (standardOnesClosed) {
                    close(0);
                    close(1);
                }
                const NothingLeft nothingLeft;
                const Outcome outcome = startServer(c.command);
                EXPECT_EQ(outcome.started, c.started);
                EXPECT_EQ(outcome.message, c.started ? "" : neverReady);
                EXPECT_EQ(waitFor(outcome.pid), c.status);
            });
            EXPECT_EQ(child.exitStatus, 0) << child.out << child.err;
            EXPECT_EQ(child.err, c.errors);
        }
    }
}

// A signal does not end the wait for the byte, unless a SIGTERM has arrived.
TEST(HostForkServer, InterruptedWait) {
    const Scratch scratch;
    const std::string server = scratch.script("slow", std::string("sleep 0.4; ") + ready);
    for (const bool terminated : {false, true}) {
        const ChildResult child = inProcess(scratch, [&] {
            const NothingLeft nothingLeft;
            struct sigaction action = {}; // no SA_RESTART
            action.sa_handler = [](int) {};
            if (terminated)
                action.sa_handler = [](int) { HostIncrementSigTerm(); };
            sigaction(SIGALRM, &action, nullptr);
            const itimerval soon{{0, 100000}, {0, 100000}};
            setitimer(ITIMER_REAL, &soon, nullptr);
            const Outcome outcome = startServer(server);
            const itimerval never{};
            setitimer(ITIMER_REAL, &never, nullptr);
            EXPECT_EQ(outcome.started, !terminated);
            EXPECT_EQ(outcome.message, terminated ? "The system call read failed: Interrupted system call" : "");
            EXPECT_EQ(outcome.pid == 0, terminated);
            waitFor(outcome.pid != 0 ? outcome.pid : -1);
        });
        EXPECT_EQ(child.exitStatus, 0) << child.out;
        EXPECT_EQ(child.err.find("got sig term at hostdofork.cpp line ") != std::string::npos, terminated) << child.err;
    }
}

// No child hangs on a lock that a thread of its parent held: the heap's, the catalogue's, a stream's.
TEST(HostFork, WhileThreadsAllocateAndFormat) {
    const Scratch scratch;
    const ChildResult child = runInChild(
        [&] {
            useMessages(scratch);
            std::atomic<bool> stop{false};
            std::vector<std::thread> threads;
            FILE* sink = fopen("/dev/null", "w");
            for (int t = 0; t < 8; ++t) {
                threads.emplace_back([&] {
                    while (!stop) {
                        UtlFree(UtlMalloc(100, "stress"));
                        char text[200];
                        ErrMsgSymToText("host.syscallfailed", text, sizeof text, "ss", "fork", "stress");
                        fprintf(sink, "%s\n", text);
                        fflush(nullptr);
                    }
                });
            }
            // A few at once, and never more than the machine can take.
            std::vector<pid_t> running;
            int failed = 0;
            for (int i = 0; i < 500; ++i) {
                PidType pid = 0;
                char message[100];
                ASSERT_TRUE(HostFork("/bin/true", nullptr, nullptr, message, sizeof message, "stress", "log",
                                     scratch.path().c_str(), &pid));
                running.push_back(pid);
                if (running.size() == 10) {
                    for (const pid_t one : running)
                        failed += waitFor(one) != 0;
                    running.clear();
                }
            }
            stop = true;
            for (std::thread& thread : threads)
                thread.join();
            EXPECT_EQ(failed, 0);
        },
        std::chrono::seconds(150));
    EXPECT_FALSE(child.timedOut);
    EXPECT_EQ(child.exitStatus, 0) << child.out;
    EXPECT_EQ(child.err, "");
    size_t headers = 0;
    const std::string log = scratch.read("log");
    for (size_t place = 0; (place = log.find("\nCommand: /bin/true\n", place)) != std::string::npos; ++place)
        ++headers;
    EXPECT_EQ(headers, 500U);
}
} // namespace
