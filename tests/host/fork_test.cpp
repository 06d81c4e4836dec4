#include "hostprocess.h"

#include <atomic>
#include <csignal>
#include <fcntl.h>
#include <pwd.h>
#include <regex>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include "err/messages/errcatalogue.h"
#include "host/processes.h"
#include "host/processes/hostdofork.h"
#include "hostfault.h"
#include "hostsignal.h"

namespace {
struct Outcome {
    BoolType started = FALSE;
    PidType pid = -1;
    char message[300] = "";
};

Outcome startWorker(const std::string& cmd, const char* user, const char* logName, const std::string& workingDir,
                    const char* clientHost = nullptr) {
    Outcome o;
    o.started = HostFork(cmd.c_str(), user, nullptr, o.message, sizeof o.message, clientHost, logName,
                         workingDir.c_str(), &o.pid);
    return o;
}

Outcome startServer(const std::string& cmd) {
    Outcome o;
    o.started = HostForkServer(cmd.c_str(), o.message, sizeof o.message, &o.pid);
    return o;
}

// Lets a started process end with the status; its id.
pid_t expectStatus(int status, const Outcome& outcome) {
    EXPECT_TRUE(outcome.started) << outcome.message;
    EXPECT_EQ(waitFor(outcome.pid), status);
    return outcome.pid;
}

// Runs the body in a process that has messages, and leaves nothing behind.
ChildResult inProcess(const Scratch& scratch, const std::function<void()>& body, Where where = Where::current()) {
    const ChildResult child = runInChild([&] {
        signal(SIGHUP, SIG_DFL); // whatever this program was started with
        useMessages(scratch);
        const NothingLeft nothingLeft;
        body();
    });
    if (child.exitStatus != notPossible)
        expectGood(child, where);
    return child;
}

// The value of a line "name=value".
std::string value(const std::string& text, const std::string& name) {
    std::smatch found;
    return std::regex_search(text, found, std::regex("(?:^|\n)" + name + "=(.*)")) ? found.str(1) : "none";
}

// Prints what a worker has: its environment, and what /proc knows.
const char* const tellAll =
    "env; echo pwd=$(pwd); echo args=\"$*\"; echo ids=$(id -u) $(id -g) $(id -G)\n"
    "echo kept=$(echo $(ls -l /proc/$$/fd | sed -n 's/.* \\([0-9]*\\) -> .*marker/\\1/p' | sort -n))\n"
    "echo stdin=$(readlink /proc/$$/fd/0)\n"
    "grep SigIgn /proc/$$/status | sed 's/.*\\t/ignored=/'\n"
    "read pid comm state ppid group session rest </proc/$$/stat; echo session=$session me=$$\n"
    "echo to stderr >&2";

TEST(HostFork, WorkerHasLogSessionAndCleanDescriptors) {
    const Scratch scratch;
    const std::string command = scratch.script("tell", tellAll) + "  one\ttwo\n";
    const ChildResult child = inProcess(scratch, [&] {
        // On all numbers around the range that is closed, where nothing is open yet.
        const int marker = open(scratch.file("marker").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
        std::string kept;
        std::vector<int> marked = {marker};
        for (int descriptor = 6; descriptor <= 17; ++descriptor) {
            if (fcntl(descriptor, F_GETFD) == -1 && dup2(marker, descriptor) != -1) {
                marked.push_back(descriptor);
                kept += descriptor < 8 || descriptor > 15 ? " " + std::to_string(descriptor) : "";
            }
        }
        const Outcome worker = startWorker(command, nullptr, "%N.log", scratch.path(), "athena");
        printf("pid=%d\nkept=%s\n", expectStatus(0, worker), kept.substr(1).c_str());
        for (const int descriptor : marked)
            close(descriptor);
    });
    EXPECT_EQ(child.err, "") << "everything goes to the log";
    const std::string log = scratch.read("tell.log");
    expectHas(log, "^_{78}\n +Log of a process\n\nStarted for the client host athena.\n[^]*\nCommand: " + command +
                       "_{78}\n[^]*\nto stderr\n");
    const std::string pid = value(child.out, "pid");
    const std::pair<const char*, std::string> told[] = {
        {"args", "one two"},
        {"pwd", scratch.path()},
        {"KESTRUNE_CHILD_LOG", scratch.file("tell.log")},
        {"stdin", "/dev/null"},
        {"session", pid + " me=" + pid},
        {"ignored", "0000000000000002"}, // SIGINT
        {"kept", value(child.out, "kept")},
        {"KESTRUNE_SERVER_PIPE", "none"},
    };
    for (const auto& [name, expected] : told)
        EXPECT_EQ(value(log, name), expected) << name;
    EXPECT_TRUE(value(child.out, "kept").ends_with("16 17")) << child.out;
}

// Under a user's name: as root, and as the user itself, who cannot change groups.
TEST(HostFork, WorkerOfAUser) {
    const bool isRoot = geteuid() == 0;
    const passwd* user = isRoot ? getpwnam("nobody") : getpwuid(geteuid());
    ASSERT_NE(user, nullptr);
    const std::string group = std::to_string(user->pw_gid);
    const std::string ids = std::to_string(user->pw_uid) + " " + group + " ";
    for (const bool asRoot : {isRoot, false}) {
        const Scratch scratch;
        const std::string command = scratch.script("tell", tellAll);
        const ChildResult child = inProcess(scratch, [&] {
            if (isRoot && !asRoot && !becomeNobody())
                _exit(notPossible);
            expectStatus(0, startWorker(command, user->pw_name, "log", scratch.path()));
        });
        SKIP_IF_NOT_POSSIBLE(child);
        const std::string log = scratch.read("log");
        expectHas(log, " Log of a process started for a user\n");
        EXPECT_TRUE(value(log, "ids").starts_with(ids)) << log;
        EXPECT_TRUE(!isRoot || value(log, "ids") == ids + group) << log << ": root's groups";
        EXPECT_EQ(value(log, "HOME"), user->pw_dir);
        EXPECT_EQ(value(log, "USER") + value(log, "LOGNAME"), std::string(user->pw_name) + user->pw_name);
        EXPECT_EQ(value(log, "PATH"), "/bin:/usr/bin:/usr/ucb");
    }
}

// And, for the first, a debugger that has the next child wait.
TEST(HostFork, NameResolutionString) {
    const Scratch scratch;
    const std::string command =
        scratch.script("tell", "echo \"nrs=$KESTRUNE_NRS_ALL\"; echo \"waits=$KESTRUNE_CHILD_DEBUG\"");
    const std::string& dir = scratch.path();
    const passwd* self = getpwuid(geteuid());
    ASSERT_NE(self, nullptr);
    const std::string tooLong(2048 - 5 - dir.size(), 'x');
    const struct {
        std::string before, after;
        bool forUser = true;
    } cases[] = {
        {"", "#dir:" + dir},
        {"abc", "abc#dir:" + dir},
        {"#dir:" + dir + "!", "#dir:" + dir + "!"},
        {"#dir:/elsewhere!", "#dir:/elsewhere#dir:" + dir + "!"},
        {tooLong, tooLong},
        {"abc!", "abc!", false},
    };
    for (const auto& c : cases) {
        const bool waits = &c == cases;
        const ChildResult child = inProcess(scratch, [&] {
            setenv("KESTRUNE_NRS_ALL", c.before.c_str(), 1);
            debugchild = waits;
            expectStatus(0, startWorker(command, c.forUser ? self->pw_name : nullptr, "log", dir));
            EXPECT_FALSE(debugchild);
        });
        EXPECT_EQ(child.err, waits ? "child process will wait for debugger!\n" : "");
        EXPECT_EQ(value(scratch.read("log"), "nrs"), c.after) << c.before;
        EXPECT_EQ(value(scratch.read("log"), "waits"), waits ? "1" : "");
        unlink(scratch.file("log").c_str());
    }
}

TEST(HostFork, WhatTheParentRefuses) {
    const Scratch scratch;
    const ChildResult child = inProcess(scratch, [] {
        EXPECT_STREQ(startWorker("/bin/true", "no such name", nullptr, "").message,
                     "The user under whose name the process was to run could not be found: there is no such user");
        if (geteuid() == 0 && !becomeNobody())
            _exit(notPossible);
        const Outcome asRoot = startWorker("/bin/true", "root", nullptr, "");
        EXPECT_STREQ(asRoot.message, "The process cannot run as user root: only a process of root can start one for "
                                     "another user.");
        EXPECT_EQ(asRoot.pid, -1);
        const rlimit none{0, 0};
        setrlimit(RLIMIT_NPROC, &none);
        const Outcome noProcess = startServer("/bin/true");
        EXPECT_STREQ(noProcess.message, "The system call fork failed: Resource temporarily unavailable");
        EXPECT_EQ(noProcess.pid, 0);
    });
    SKIP_IF_NOT_POSSIBLE(child);
}

std::string notRun(const std::string& reason) {
    return "The command could not be run.\n    The reason: " + reason + "\n";
}

// What fails in the new process: status 3, and the reason on standard error until there is a log.
TEST(HostFork, WhatFailsInTheWorker) {
    const Scratch scratch;
    const std::string& here = scratch.path();
    const std::string noFile = "No such file or directory\n", notFound = notRun("No such file or directory");
    const struct {
        std::string command, logName, workingDir;
        std::string errors; // PID stands for the worker's id
        std::string output = "", logEnd = "";
    } cases[] = {
        {"/nonexistent " + std::string(10000, 'x'), "log", here, "", "", notFound},
        {"/bin/true", "log", "/nonexistent",
         "The working folder could not be changed to /nonexistent.\n    The reason: " + noFile},
        {"/bin/true", "/nonexistent/log", here,
         "Process PID could not open its log file /nonexistent/log.\n    A process could not be prepared: " + noFile},
        {"/nonexistent", "%q", here, "", "expandLogName(%q) failed!\n"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.command.substr(0, 20) + " " + c.logName + " " + c.workingDir);
        const ChildResult child = inProcess(scratch, [&] {
            printf("%d", expectStatus(3, startWorker(c.command, nullptr, c.logName.c_str(), c.workingDir)));
        });
        EXPECT_TRUE(child.out.starts_with(c.output)) << child.out;
        const std::string pid = child.out.substr(std::min(c.output.size(), child.out.size()));
        EXPECT_EQ(child.err, std::regex_replace(c.errors, std::regex("PID"), pid));
        const std::string log = scratch.read("log");
        EXPECT_TRUE(log.ends_with(c.logEnd)) << log;
        EXPECT_LT(log.size(), 4000U);
        unlink(scratch.file("log").c_str());
    }
}

const std::string ready = "printf x >/proc/self/fd/$KESTRUNE_SERVER_PIPE; ";

TEST(HostForkServer, ReadyOrNot) {
    const Scratch scratch;
    const struct {
        std::string command;
        BoolType started;
        int status;
        std::string errors;
    } cases[] = {
        {scratch.script("ready", ready + "exit 5"), TRUE, 5, ""},
        {scratch.script("ends", "echo no memory >&2; exit 6"), FALSE, 6, "no memory\n"},
        {"/nonexistent", FALSE, 3, notRun("No such file or directory")},
    };
    for (int closed = 0; closed < 8; ++closed) { // bit i: descriptor i
        for (const auto& c : cases) {
            SCOPED_TRACE(c.command);
            const ChildResult child = runInChild([&] {
                useMessages(scratch);
                for (int descriptor = 0; descriptor < 3; ++descriptor) {
                    if (closed & 1 << descriptor) {
                        close(descriptor);
                    }
                }
                expectStatus(0, startWorker("/bin/true", nullptr, "log", scratch.path()));
                const NothingLeft nothingLeft;
                const Outcome outcome = startServer(c.command);
                EXPECT_EQ(outcome.started, c.started);
                EXPECT_STREQ(outcome.message, c.started ? ""
                                                        : "The server process ended before it was ready. Its error "
                                                          "output or its log tells why.");
                EXPECT_EQ(waitFor(outcome.pid), c.status);
            });
            expectGood(child);
            EXPECT_EQ(child.err, closed & 4 ? "" : c.errors);
        }
    }
}

// A signal that comes to the worker before its program runs is not its parent's: here while it opens a log that nobody
// reads.
TEST(HostFork, SignalBeforeTheProgramRuns) {
    const Scratch scratch;
    mkfifo(scratch.file("log").c_str(), 0600);
    const ChildResult child = inProcess(scratch, [&] {
        HostInstallFaultHandler([] { HostSignalSafePrint("the parent's files flushed\n"); }, nullptr);
        signal(SIGCHLD, SIG_DFL); // or its handler may take the status first
        const Outcome outcome = startWorker("/bin/true", nullptr, "log", scratch.path());
        kill(outcome.pid, SIGTERM);
        EXPECT_EQ(waitFor(outcome.pid), -SIGTERM);
        hostUnInstallFaultHandler();
    });
    EXPECT_EQ(child.err, "");
}

// A SIGTERM ends the wait for the byte.
TEST(HostForkServer, InterruptedWait) {
    const Scratch scratch;
    const std::string server = scratch.script("slow", "sleep 0.4; " + ready);
    const ChildResult child = inProcess(scratch, [&] {
        struct sigaction action = {}; // no SA_RESTART
        action.sa_handler = [](int) { HostIncrementSigTerm(); };
        sigaction(SIGALRM, &action, nullptr);
        const itimerval soon{{0, 100000}, {0, 100000}};
        setitimer(ITIMER_REAL, &soon, nullptr);
        const Outcome outcome = startServer(server);
        const itimerval never{};
        setitimer(ITIMER_REAL, &never, nullptr);
        EXPECT_STREQ(outcome.message, "The system call read failed: Interrupted system call");
        EXPECT_EQ(outcome.pid, 0);
        waitFor(-1);
    });
    expectHas(child.err, "got sig term at hostdofork.cpp line ");
}

// A process that another thread starts meanwhile would keep the pipe open, and its parent waiting; what a thread of the
// parent has locked is not locked in the started process.
TEST(HostForkServer, OtherThreads) {
    const Scratch scratch;
    const auto countPipes = [&] {
        EXPECT_EQ(
            UnixIoSystem(("ls -l /proc/self/fd | grep -c pipe: >" + scratch.file("fds") + "; true").c_str(), FALSE), 0);
        return scratch.read("fds");
    };
    inProcess(scratch, [&] {
        const std::string before = countPipes();
        std::atomic<bool> locked{false};
        std::thread other([&] {
            HostMutexAcquire(printMutex());
            locked = true;
            usleep(100000);
            HostMutexRelease(printMutex());
            usleep(200000);
            EXPECT_EQ(countPipes(), before);
        });
        while (!locked)
            usleep(1000);
        expectStatus(0, startServer(scratch.script("slow", "sleep 0.8; " + ready)));
        other.join();
    });
}
} // namespace
