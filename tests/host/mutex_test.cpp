#include "hostmutex.h"

#include <atomic>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

#include "host/base/forklocks.h"
#include "host/expect.h"

namespace {
#ifndef __SANITIZE_THREAD__ // which reports the misuse itself, on the same stream and in the exit status
TEST(HostMutex, FailureTexts) {
    static HostMutexSType mutex;
    const struct {
        void (*misuse)();
        std::string text;
    } cases[] = {
        {[] { HostMutexAcquire(&mutex), HostMutexDestroy(&mutex); }, "mutexDestroy failed\n"},
        {[] { HostMutexAcquire(&mutex), HostMutexAcquire(&mutex); }, "mutexLock failed\n"},
        {[] { HostMutexRelease(&mutex); }, "mutexUnLock failed=n"},
        {[] { HostMutexError(-7); }, "HostMutexError :  caller line -7\n"},
    };
    for (const auto& c : cases) {
        const ChildResult child = runInChild([&] {
            // A type that reports misuse instead of waiting for ever.
            pthread_mutexattr_t attributes;
            pthread_mutexattr_init(&attributes);
            pthread_mutexattr_settype(&attributes, PTHREAD_MUTEX_ERRORCHECK);
            pthread_mutex_init(&mutex, &attributes);
            c.misuse();
        });
        expectGood(child);
        expectHas(child.out, "^" + c.text + "UTL_GUARANTEE failure in file hostmutex at line [1-9][0-9]*\n$");
        EXPECT_EQ(child.err, "");
    }
}
#endif

void expectChildGood(pid_t pid) {
    int status = -1;
    EXPECT_EQ(waitpid(pid, &status, 0), pid);
    EXPECT_EQ(status, 0);
}

// The order of calls, and that each happens once however often a slot is registered.
TEST(HostFork, TakesInSlotOrderAndReleasesInReverse) {
    static std::string calls;
    expectGoodInChild([] {
        const ForkLock heap{[] { calls += "H"; }, [] { calls += "h"; }};
        const ForkLock print{[] { calls += "P"; }, [] { calls += "p"; }};
        hostForkRegister(ForkSlot::heapMutex, heap);
        hostForkRegister(ForkSlot::printMutex, print);
        hostForkRegister(ForkSlot::heapMutex, print);
        const pid_t pid = fork();
        if (pid == 0)
            _exit(calls == "PHhp" ? 0 : 1);
        expectChildGood(pid);
        EXPECT_EQ(calls, "PHhp");
    });
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

void forkOften() {
    for (int i = 0; i < 100; ++i) {
        const pid_t pid = fork();
        if (pid == 0) {
            alarm(10);
            registerAndLock();
            _exit(0);
        }
        expectChildGood(pid);
    }
}

TEST(HostFork, ChildFindsNoLockHeld) {
    std::atomic<bool> stop{false};
    std::thread locker([&] {
        while (!stop)
            registerAndLock();
    });
    std::thread otherForker(forkOften);
    forkOften();
    otherForker.join();
    stop = true;
    locker.join();
}
} // namespace
