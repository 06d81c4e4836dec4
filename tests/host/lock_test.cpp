#include "hostatomic.h"

#include <cstdint>
#include <sys/mman.h>
#include <thread>

#include "host/expect.h"
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

// What racing parties do to one page, each `rounds` times.
struct Page {
    int lock, counter, flag;
    long guarded;  // changed under the lock, without atomic operations
    long flagsWon; // changed by who found the flag clear with the OR; only its finder clears it
};
constexpr int rounds = 50000;

void race(Page& page) {
    for (int i = 0; i < rounds; ++i) {
        while (HostAsmTryLock(&page.lock, 100) == 0)
            std::this_thread::yield();
        ++page.guarded;
        HostShrMemoryBarrier();
        HostAsmUnlock(&page.lock);
        HostAsmSyncCtrAdd(&page.counter, 3);
        if (HostAsmSyncOr(&page.flag, 1) == 0) {
            ++page.flagsWon;
            HostAsmSyncAnd(&page.flag, 0);
        }
    }
}

TEST(HostAsm, NothingIsLostBetweenTwoThreadsAndAnotherProcess) {
    void* shared = mmap(nullptr, sizeof(Page), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    ASSERT_NE(shared, MAP_FAILED);
    Page& page = *static_cast<Page*>(shared);
    const auto raceInTwoThreads = [&](pid_t) {
        std::thread other([&] { race(page); });
        race(page);
        other.join();
    };
    expectGood(runInChild([&] { race(page); }, raceInTwoThreads));
    EXPECT_EQ(page.guarded, 3 * rounds);
    EXPECT_EQ(page.counter, 9 * rounds);
    EXPECT_GE(page.flagsWon, rounds);
    EXPECT_EQ(page.flag, 0);
    EXPECT_EQ(page.lock, 0);
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
} // namespace
