// Whatever a signal interrupts or a fork leaves behind half-done, the report and the started process come to an end.
// TMQKCI_HITS is the number of hits of each kind.
#include <csignal>
#include <cstdlib>
#include <ctime>
#include <sys/resource.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

#include "host/faulttools.h"
#include "hostprocess.h"
#include "hosttime.h"
#include "hostunix.h"

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
                setPlain(SIGUSR1, [](int) { _exit(3); }); // called after the stacks were printed
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

TEST(Interrupted, StartedProcessesEnd) {
    const ReportFolder folder;
    expectGood(runInChild(
        [&] {
            startLoops();
            for (int hit = 0; hit < hits() * 3; ++hit) {
                PidType pid = -1;
                EXPECT_TRUE(
                    HostFork("/bin/true", nullptr, nullptr, nullptr, 0, nullptr, "%D", folder.path().c_str(), &pid));
                int status = -1;
                for (int i = 0; i < 500 && waitpid(pid, &status, WNOHANG) == 0; ++i) {
                    HostMilliSleep(10);
                }
                EXPECT_EQ(status, 0) << "hit " << hit;
                kill(pid, SIGKILL);
            }
        },
        std::chrono::seconds(600)));
}
} // namespace
