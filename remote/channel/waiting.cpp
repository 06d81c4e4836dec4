#include "channel/waiting.h"

#include <cerrno>
#include <climits>
#include <ctime>
#include <linux/futex.h>
#include <poll.h>
#include <sched.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace remote {

namespace {

constexpr uint32_t longestSpin = 20'000;
constexpr uint32_t shortestSpin = 1'000;
// A wait asleep that took no longer, most of it for falling asleep and waking, would have been short without.
constexpr uint64_t shortSleep = 50'000;
constexpr uint32_t mostSleeps = 256;
constexpr int looksPerClock = 8;

uint64_t nanoseconds() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<uint64_t>(now.tv_sec) * 1'000'000'000 + static_cast<uint64_t>(now.tv_nsec);
}

// As the plain futex call takes it, whatever the C library's timespec is.
struct KernelTime {
    long seconds;
    long nanoseconds;
};

// FALSE when the time is over. Shared between processes: never the private kind. In a sandbox that refuses it, a look
// each millisecond has to do.
bool sleepOn(const Word& word, uint32_t old, int milliseconds) {
    const KernelTime limit = {milliseconds / 1000, milliseconds % 1000 * 1'000'000L};
    if (syscall(SYS_futex, &word, FUTEX_WAIT, old, &limit, nullptr, 0) == 0 || errno == EAGAIN || errno == EINTR) {
        return true;
    }
    if (errno != ETIMEDOUT) {
        while (milliseconds-- > 0 && word.load(std::memory_order_acquire) == old) {
            poll(nullptr, 0, 1);
        }
    }
    return false;
}

void wake(const Word& word) {
    syscall(SYS_futex, &word, FUTEX_WAKE, INT_MAX, nullptr, nullptr, 0);
}

bool maySpin() {
    cpu_set_t usable;
    return sched_getaffinity(0, sizeof usable, &usable) == 0 && CPU_COUNT(&usable) > 1;
}

} // namespace

Spinning::Spinning() : longest(maySpin() ? longestSpin : 0), budget(longest) {}

void Spinning::paid() {
    budget = longest;
    onTrial = false;
    sleepsNext = 1;
}

void Spinning::wasInVain() {
    budget /= 2;
    if (budget < shortestSpin || onTrial) {
        budget = 0;
        onTrial = false;
        sleepsLeft = sleepsNext;
        sleepsNext = sleepsNext < mostSleeps ? sleepsNext * 2 : mostSleeps;
    }
}

void Spinning::slept(uint64_t nanoseconds) {
    if (sleepsLeft > 1) {
        --sleepsLeft;
    } else if (nanoseconds <= shortSleep && longest > 0) {
        // The whole time: the other side may have to be woken first.
        budget = longest;
        onTrial = true;
    }
}

namespace {

// What the word is after at most so many nanoseconds of looking at it.
uint32_t spin(const Word& word, uint32_t old, uint32_t limit) {
    const uint64_t until = nanoseconds() + limit;
    do {
        for (int look = 0; look < looksPerClock; ++look) {
            __builtin_ia32_pause();
            if (const uint32_t now = word.load(std::memory_order_acquire); now != old) {
                return now;
            }
        }
    } while (nanoseconds() < until);
    return old;
}

} // namespace

uint32_t awaitChange(const Word& word, uint32_t old, Word& asleep, Spinning& spinning, int limitMilliseconds) {
    uint32_t now = word.load(std::memory_order_acquire);
    if (now != old) {
        return now;
    }
    if (spinning.nanoseconds() > 0) {
        now = spin(word, old, spinning.nanoseconds());
        if (now != old) {
            spinning.paid();
            return now;
        }
        spinning.wasInVain();
    }
    const bool curious = spinning.curious();
    const uint64_t start = curious ? nanoseconds() : 0;
    // Either this side sees the change here, or the other side sees the sleeper.
    asleep.store(1, std::memory_order_seq_cst);
    bool again = true;
    while ((now = word.load(std::memory_order_seq_cst)) == old && again) {
        again = sleepOn(word, old, limitMilliseconds);
    }
    asleep.store(0, std::memory_order_relaxed);
    spinning.slept(curious ? nanoseconds() - start : 0);
    return now;
}

void publish(Word& word, uint32_t value, const Word& asleep) {
    word.store(value, std::memory_order_seq_cst);
    if (asleep.load(std::memory_order_seq_cst) != 0) {
        wake(word);
    }
}

void publishGone(Word& word) {
    word.store(goneMark, std::memory_order_seq_cst);
    wake(word);
}

} // namespace remote
