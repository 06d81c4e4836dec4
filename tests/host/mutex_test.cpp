#include "hostmutex.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <gtest/gtest.h>
#include <regex>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

#include "host/hostfork.h"
#include "support/child.h"

namespace {
#ifndef __SANITIZE_THREAD__ // which reports the misuse itself, on the same stream and in the exit status
// A mutex type that reports misuse instead of waiting for ever.
void initChecked(HostMutexSType& mutex) {
    pthread_mutexattr_t attributes;
    pthread_mutexattr_init(&attributes);
    pthread_mutexattr_settype(&attributes, PTHREAD_MUTEX_ERRORCHECK);
    pthread_mutex_init(&mutex, &attributes);
}

TEST(HostMutex, FailureTexts) {
    struct Case {
        const char* name;
        void (*misuse)();
        const char* firstText;
    };
    static HostMutexSType mutex;
    const std::array<Case, 4> cases{{
        {"destroy while locked", [] { HostMutexAcquire(&mutex), HostMutexDestroy(&mutex); }, "mutexDestroy failed\n"},
        {"lock twice", [] { HostMutexAcquire(&mutex), HostMutexAcquire(&mutex); }, "mutexLock failed\n"},
        {"unlock unlocked", [] { HostMutexRelease(&mutex); }, "mutexUnLock failed=n"},
        {"error", [] { HostMutexError(-7); }, "HostMutexError :  caller line -7\n"},
    }};
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        const ChildResult child = runInChild([&] {
            initChecked(mutex);
            c.misuse();
        });
        const std::string expected =
            std::string(c.firstText) + "UTL_GUARANTEE failure in file hostmutex at line [1-9][0-9]*\n";
        EXPECT_TRUE(std::regex_match(child.out, std::regex(expected))) << child.out;
        EXPECT_EQ(child.exitStatus, 0);
        EXPECT_EQ(child.err, "");
    }
}
#endif

// Fork handlers: the order of calls, and that each happens once however often a slot is registered.
std::string calls;

TEST(HostFork, TakesInSlotOrderAndReleasesInReverse) {
    const ChildResult child = runInChild([] {
        const ForkLock heap{[] { calls += "H"; }, [] { calls += "h"; }};
        const ForkLock print{[] { calls += "P"; }, [] { calls += "p"; }};
        hostForkRegister(ForkSlot::heapMutex, heap);
        hostForkRegister(ForkSlot::printMutex, print);
        hostForkRegister(ForkSlot::heapMutex, print);
        const pid_t pid = fork();
        if (pid == 0)
            _exit(calls == "PHhp" ? 0 : 1);
        int status = -1;
        EXPECT_EQ(waitpid(pid, &status, 0), pid);
        EXPECT_EQ(status, 0);
        EXPECT_EQ(calls, "PHhp");
    });
    EXPECT_EQ(child.exitStatus, 0) << child.out;
}

// Threads lock, fork and register for the first time all at once; every child must find both mutexes free.
pthread_mutex_t printMutex = PTHREAD_MUTEX_INITIALIZER;
pthread_mutex_t heapMutex = PTHREAD_MUTEX_INITIALIZER;

void registerAndLock() {
    hostForkRegister(ForkSlot::printMutex,
                     {[] { pthread_mutex_lock(&printMutex); }, [] { pthread_mutex_unlock(&printMutex); }});
    pthread_mutex_lock(&printMutex);
    hostForkRegister(ForkSlot::heapMutex,
                     {[] { pthread_mutex_lock(&heapMutex); }, [] { pthread_mutex_unlock(&heapMutex); }});
    pthread_mutex_lock(&heapMutex);
    pthread_mutex_unlock(&heapMutex);
    pthread_mutex_unlock(&printMutex);
}

TEST(HostFork, ChildFindsNoLockHeld) {
    std::atomic<bool> stop{false};
    std::thread locker([&] {
        while (!stop)
            registerAndLock();
    });
    const auto forkOften = [] {
        for (int i = 0; i < 100; ++i) {
            const pid_t pid = fork();
            if (pid == 0) {
                alarm(10);
                registerAndLock();
                _exit(0);
            }
            int status = -1;
            EXPECT_EQ(waitpid(pid, &status, 0), pid);
            EXPECT_EQ(status, 0);
        }
    };
    std::thread otherForker(forkOften);
    forkOften();
    otherForker.join();
    stop = true;
    locker.join();
}
} // namespace
