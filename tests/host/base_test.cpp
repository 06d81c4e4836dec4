// Locks, threads, mutexes, locks over fork, the environment, the limit of open files.
#include <array>
#include <cstdint>
#include <cstdlib>
#include <sys/resource.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

#include "host/base/forklocks.h"
#include "hostatomic.h"
#include "hostenv.h"
#include "hostlimits.h"
#include "hostmutex.h"
#include "hostthread.h"
#include "support/expect.h"
#include "syserror.h"
#include "utlhost.h"

namespace {
TEST(HostAsm, EachReturnsThePreviousValue) {
    int word = 0;
    EXPECT_EQ(HostAsmTryLock(&word, 1), 1);
    EXPECT_EQ(HostAsmTryLock(&word, 1000), 0);
    // A spin count of 0 wraps around: it outlasts the holder.
    std::thread holder([&] { usleep(50000), HostAsmUnlock(&word); });
    EXPECT_EQ(HostAsmTryLock(&word, 0), 1);
    holder.join();
    EXPECT_EQ(HostAsmUnlock(&word), 1);
    EXPECT_EQ(HostAsmClearLockedPage(&word), 0);
    EXPECT_EQ(HostAsmTryLock(&word, 1), 0) << "whatever is not 0 is held";
    EXPECT_EQ(HostAsmSyncCtrAdd(&word, -7), 1);
    EXPECT_EQ(HostAsmSyncOr(&word, 0x11), -6);
    EXPECT_EQ(HostAsmSyncAnd(&word, 0xF0), -5);
    EXPECT_EQ(word, 0xF0);
}

size_t stackSizeFor(size_t minStackSize) {
    HostThreadType thread;
    size_t size = 0;
    HostThreadFuncType* const measure = [](void* ownSize) {
        pthread_attr_t attr;
        pthread_getattr_np(pthread_self(), &attr);
        pthread_attr_getstacksize(&attr, static_cast<size_t*>(ownSize));
        pthread_attr_destroy(&attr);
        return ownSize;
    };
    EXPECT_EQ(HostThreadCreate(&thread, measure, &size, minStackSize), 0);
    EXPECT_EQ(HostThreadJoin(thread, nullptr), 0);
    return size;
}

TEST(HostThread, StackSizes) {
    const size_t usual = stackSizeFor(0);
    EXPECT_EQ(stackSizeFor(usual), usual);
    EXPECT_EQ(stackSizeFor(usual + 1), usual + UtlGetPageSize());
    EXPECT_EQ(stackSizeFor(usual + UtlGetPageSize()), usual + UtlGetPageSize());
    // An impossible one is reported, and the usual serves.
    expectGoodInChild([] { stackSizeFor(SIZE_MAX); },
                      "^hostSetThreadAttributes: pthread_attr_setstacksize\\(0\\) failed, rc=22\n$",
                      "^UTL_GUARANTEE failure in file hostthread at line [0-9]+\n$");
}

#ifndef __SANITIZE_THREAD__ // which reports the misuse itself, on the same stream and in the exit status
TEST(HostMutex, FailureTexts) {
    static HostMutexSType mutex;
    const std::pair<void (*)(), std::string> cases[] = {
        {[] { HostMutexAcquire(&mutex), HostMutexDestroy(&mutex); }, "mutexDestroy failed\n"},
        {[] { HostMutexAcquire(&mutex), HostMutexAcquire(&mutex); }, "mutexLock failed\n"},
        {[] { HostMutexRelease(&mutex); }, "mutexUnLock failed=n"},
        {[] { HostMutexError(-7); }, "HostMutexError :  caller line -7\n"},
    };
    for (const auto& [misuse, text] : cases) {
        const auto body = [misuse = misuse] {
            // A type that reports misuse instead of waiting for ever.
            pthread_mutexattr_t attributes;
            pthread_mutexattr_init(&attributes);
            pthread_mutexattr_settype(&attributes, PTHREAD_MUTEX_ERRORCHECK);
            pthread_mutex_init(&mutex, &attributes);
            misuse();
        };
        expectGoodInChild(body, "^$", "^" + text + "UTL_GUARANTEE failure in file hostmutex at line [1-9][0-9]*\n$");
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
    EXPECT_TRUE(HostSetEnv("NAME", std::string(257, 'v').c_str()));
    EXPECT_FALSE(HostEnvExists("NAME"));
    EXPECT_TRUE(HostSetEnv("NAME", ""));
    EXPECT_FALSE(read(256));
    EXPECT_FALSE(HostEnvExists("NAME"));
}

TEST(HostSetMaxFiles, Rules) {
    constexpr rlim_t soft = 50;
    constexpr rlim_t hard = 200;
    const std::string refused = "setrlimit(RLIMIT_NOFILE): Invalid argument";
    const struct {
        int max;
        const char* variable; // $KESTRUNE_MAX_FD
        BoolType result;
        rlim_t limit;
        std::string error;
    } cases[] = {
        {100, "70", TRUE, 100, ""},
        {-1, nullptr, TRUE, hard, ""},
        {-1, " 70 files", TRUE, 70, ""},
        {-1, "0", TRUE, soft, ""},
        {-1, "9999", FALSE, soft,
         "Could not raise fd limit to the KESTRUNE_MAX_FD value of 9999 because:\n " + refused},
        {-2, nullptr, FALSE, soft, refused},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(std::to_string(c.max) + (c.variable != nullptr ? c.variable : " unset"));
        expectGoodInChild([&] {
            const int before = HostGetMaxFiles();
            rlimit limit{soft, hard};
            ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0);
            EXPECT_EQ(HostGetMaxFiles(), before) << "is kept";
            EXPECT_TRUE(HostSetMaxFiles(soft, nullptr));
            if (c.variable != nullptr)
                setenv("KESTRUNE_MAX_FD", c.variable, 1);
            SysErrorSType err;
            EXPECT_EQ(HostSetMaxFiles(c.max, &err), c.result);
            EXPECT_STREQ(err.errMsg, c.error.c_str());
            getrlimit(RLIMIT_NOFILE, &limit);
            EXPECT_EQ(limit.rlim_cur, c.limit);
            EXPECT_EQ(limit.rlim_max, hard);
            EXPECT_EQ(HostGetMaxFiles(), static_cast<int>(c.limit));
        });
    }
}
} // namespace
