// Whatever a signal interrupts or a fork leaves behind half-done, the report and the started process come to an end.
// TMQKCI_HITS is the number of hits of each kind.
#include <csignal>
#include <cstdlib>
#include <ctime>
#include <sys/resource.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include "errmsg.h"
#include "host/faulttools.h"
#include "host/processes.h"
#include "hostprocess.h"
#include "hostunix.h"
#include "utlheap.h"

namespace {
void allocate() {
    for (;;) {
        free(malloc(5000)); // too large for the thread's own cache, so that locks are taken
    }
}
void askForLocalTime() {
    for (time_t t = 0;; t = (t + 10000000) % 2000000000) {
        tm local;
        localtime_r(&t, &local);
    }
}
void changeEnvironment() {
    for (;;) {
        setenv("CHANGING", "value", 1);
        unsetenv("CHANGING");
    }
}
void formatAndFlush() {
    for (FILE* const sink = fopen("/dev/null", "w");;) {
        UtlFree(UtlMalloc(100, "stress"));
        char text[200];
        ErrMsgSymToText("host.syscallfailed", text, sizeof text, "ss", "fork", "stress");
        fprintf(sink, "%s\n", text);
        fflush(nullptr);
    }
}
void (*const loops[])() = {allocate, askForLocalTime, changeEnvironment};

int hits() {
    const char* wanted = getenv("TMQKCI_HITS");
    return wanted != nullptr ? atoi(wanted) : 9;
}

// Takes the environment's locale, and has all of them loop in threads.
void startLoops() {
    setenv("LC_ALL", "C.UTF-8", 1);
    HostInit();
    for (void (*const loop)() : loops) {
        std::thread(loop).detach();
    }
}

TEST(Interrupted, ReportsEnd) {
    const ReportFolder folder(ReportFolder::Printer::none);
    const rlimit noCore{0, 0};
    setrlimit(RLIMIT_CORE, &noCore);
    for (int hit = 0; hit < hits(); ++hit) {
        for (const int sig : {SIGSEGV, SIGABRT, SIGQUIT, SIGUSR1}) {
            const ChildResult child = runToItsEnd([=] {
                // Standard output as if it had not been used yet.
                EXPECT_NE(freopen("/proc/self/fd/1", "w", stdout), nullptr);
                startLoops();
                signal(SIGUSR1, [](int) { _exit(3); }); // called after the stacks were printed
                install();
                std::thread([=, self = pthread_self()] {
                    usleep(1000 + hit * 7919 % 2000);
                    pthread_kill(self, sig);
                }).detach();
                loops[hit % 3]();
            });
            EXPECT_FALSE(child.timedOut) << "signal " << sig << " in loop " << hit % 3 << child.err << child.out;
            EXPECT_EQ(child.exitStatus, 3) << child.signal << child.err;
            EXPECT_NE(child.err.find("\nEnd of C-level stack"), std::string::npos) << child.err;
        }
    }
}

// A started process comes to its end whatever lock a thread of its parent held, and its log header is written once.
TEST(Interrupted, StartedProcessesEnd) {
    const Scratch scratch;
    const int forks = hits() * 30;
    const auto body = [&] {
        useMessages(scratch);
        startLoops();
        for (int i = 0; i < 4; ++i) {
            std::thread(formatAndFlush).detach();
        }
        std::vector<pid_t> running; // a few at once, never more than the machine can take
        for (int i = 0; i < forks; ++i) {
            PidType pid = -1;
            const char* const folder = scratch.path().c_str();
            EXPECT_TRUE(HostFork("/bin/true", nullptr, nullptr, nullptr, 0, nullptr, "log", folder, &pid));
            running.push_back(pid);
            if (running.size() == 10) {
                for (const pid_t started : running) {
                    EXPECT_EQ(waitFor(started), 0);
                }
                running.clear();
            }
        }
    };
    const ChildResult child = runInChild(body, std::chrono::seconds(150));
    expectGood(child);
    EXPECT_EQ(child.err, "");
    const std::string log = scratch.read("log");
    const std::regex header("\nCommand: /bin/true\n");
    EXPECT_EQ(std::distance(std::sregex_iterator(log.begin(), log.end(), header), {}), forks);
}
} // namespace
