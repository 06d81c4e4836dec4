// Atomic operations, threads, mutexes, locks over fork, the environment.
#include <array>
#include <cstdint>
#include <cstdlib>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

#include "host/base/forklocks.h"
#include "host/expect.h"
#include "hostatomic.h"
#include "hostenv.h"
#include "hostmutex.h"
#include "hostthread.h"
#include "utlhost.h"

namespace {
TEST(HostAsm, EachReturnsThePreviousValue) {
    int word = 0;
    EXPECT_EQ(HostAsmTryLock(&word, 1), 1);
    EXPECT_EQ(word, 1);
    EXPECT_EQ(HostAsmTryLock(&word, 1000), 0);
    EXPECT_EQ(HostAsmUnlock(&word), 1);
    EXPECT_EQ(HostAsmUnlock(&word), 0);
    EXPECT_EQ(HostAsmClearLockedPage(&word), 0);
    EXPECT_EQ(word, -1);
    EXPECT_EQ(HostAsmTryLock(&word, 1), 0) << "whatever is not 0 is held";

    word = 5;
    EXPECT_EQ(HostAsmSyncCtrAdd(&word, 0), 5);
    EXPECT_EQ(HostAsmSyncCtrAdd(&word, -7), 5);
    EXPECT_EQ(HostAsmSyncOr(&word, 0x11), -2);
    EXPECT_EQ(HostAsmSyncAnd(&word, 0xF0), -1);
    EXPECT_EQ(HostAsmSyncAnd(&word, 0), 0xF0);
    EXPECT_EQ(word, 0);
}

// A spin count of 0 wraps around: it outlasts a holder that a count of 1 does not wait for.
TEST(HostAsm, SpinCountZeroWaits) {
    int lock = 1;
    std::thread holder([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        HostAsmUnlock(&lock);
    });
    EXPECT_EQ(HostAsmTryLock(&lock, 1), 0);
    EXPECT_EQ(HostAsmTryLock(&lock, 0), 1);
    holder.join();
}

TEST(HostAsm, NothingIsLostBetweenThreads) {
    static int lock, counter, guarded; // the last is changed under the lock
    constexpr int rounds = 100000;
    const auto race = [] {
        for (int i = 0; i < rounds; ++i) {
            while (HostAsmTryLock(&lock, 100) == 0)
                std::this_thread::yield();
            ++guarded;
            HostAsmUnlock(&lock);
            HostAsmSyncCtrAdd(&counter, 3);
        }
    };
    std::thread other(race);
    race();
    other.join();
    EXPECT_EQ(guarded, 2 * rounds);
    EXPECT_EQ(counter, 6 * rounds);
}

void* ownStackSize(void* size) {
    pthread_attr_t attr;
    pthread_getattr_np(pthread_self(), &attr);
    pthread_attr_getstacksize(&attr, static_cast<size_t*>(size));
    pthread_attr_destroy(&attr);
    return size;
}

size_t stackSizeFor(size_t minStackSize) {
    HostThreadType thread;
    size_t size = 0;
    void* result = nullptr;
    EXPECT_EQ(HostThreadCreate(&thread, ownStackSize, &size, minStackSize), 0);
    EXPECT_EQ(HostThreadJoin(thread, &result), 0);
    EXPECT_EQ(result, &size);
    return size;
}

TEST(HostThread, StackSizes) {
    const size_t page = UtlGetPageSize();
    const size_t usual = stackSizeFor(0);
    EXPECT_EQ(stackSizeFor(usual), usual);
    EXPECT_EQ(stackSizeFor(usual + 1), usual + page);
    EXPECT_EQ(stackSizeFor(usual + page), usual + page);
    // An impossible one is reported, and the usual serves.
    const ChildResult child = runInChild([] { stackSizeFor(SIZE_MAX); });
    expectGood(child);
    EXPECT_EQ(child.err, "hostSetThreadAttributes: pthread_attr_setstacksize(0) failed, rc=22\n");
    expectHas(child.out, "^UTL_GUARANTEE failure in file hostthread at line [0-9]+\n$");
}

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

// The order of calls, and that each happens once however often a slot is registered.
TEST(ForkLocks, TakenInSlotOrderAndReleasedInReverse) {
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
        int status = -1;
        EXPECT_EQ(waitpid(pid, &status, 0), pid);
        EXPECT_EQ(status, 0);
        EXPECT_EQ(calls, "PHhp");
    });
}

TEST(HostEnvironment, Limits) {
    std::array<char, 257> value{"untouched"};
    const auto read = [&](unsigned size) { return HostGetEnv("NAME", value.data(), size); };
    EXPECT_TRUE(HostSetEnv("NAME", std::string(256, 'v').c_str()));
    EXPECT_FALSE(read(255));
    EXPECT_STREQ(value.data(), "untouched");
    EXPECT_TRUE(read(256));
    EXPECT_EQ(value.data(), std::string(256, 'v'));
    EXPECT_TRUE(HostEnvExists("NAME"));
    setenv("NAME", std::string(257, 'v').c_str(), 1);
    EXPECT_FALSE(HostEnvExists("NAME"));
    EXPECT_TRUE(HostSetEnv("NAME", ""));
    EXPECT_STREQ(getenv("NAME"), "");
    EXPECT_FALSE(read(256));
    EXPECT_FALSE(HostEnvExists("NAME"));
    EXPECT_TRUE(HostSetEnv("NAME", "a=b"));
    EXPECT_STREQ(getenv("NAME"), "a=b");
}
} // namespace
