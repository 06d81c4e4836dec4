#include "host/base/forklocks.h"

#include <array>
#include <atomic>
#include <pthread.h>

#include "host/base/guarantee.h"

namespace {
constexpr char utlModule[] = "hostunix";

std::array<ForkLock, forkSlotCount> locks;

// Bit i: slot i is registered. Changed only under the gate.
std::atomic<unsigned> registered{0};

// Held from the moment a fork has taken all registered locks until it has released them. A registration that waits for
// it therefore waits only for a fork that waits for nobody.
pthread_mutex_t gate = PTHREAD_MUTEX_INITIALIZER;
// The slots taken by the fork under way; guarded by the gate.
unsigned taken;

void takeLocks(unsigned slots) {
    for (int slot = 0; slot < forkSlotCount; ++slot) {
        if (slots & 1U << slot) {
            locks[slot].take();
        }
    }
}

void releaseLocks(unsigned slots) {
    for (int slot = forkSlotCount - 1; slot >= 0; --slot) {
        if (slots & 1U << slot) {
            locks[slot].release();
        }
    }
}

void prepareFork() {
    for (;;) {
        const unsigned slots = registered.load(std::memory_order_acquire);
        takeLocks(slots);
        pthread_mutex_lock(&gate);
        if (slots == registered.load(std::memory_order_relaxed)) {
            taken = slots;
            return;
        }
        // A slot was registered meanwhile; it may stand before one already taken.
        pthread_mutex_unlock(&gate);
        releaseLocks(slots);
    }
}

void finishFork() {
    const unsigned slots = taken;
    pthread_mutex_unlock(&gate);
    releaseLocks(slots);
}
} // namespace

void hostForkRegister(ForkSlot slot, const ForkLock& lock) {
    const int index = static_cast<int>(slot);
    if (registered.load(std::memory_order_acquire) & 1U << index) {
        return;
    }
    static pthread_once_t once = PTHREAD_ONCE_INIT;
    pthread_once(&once, [] { UTL_GUARANTEE(pthread_atfork(prepareFork, finishFork, finishFork) == 0); });

    pthread_mutex_lock(&gate);
    if (!(registered.load(std::memory_order_relaxed) & 1U << index)) {
        locks[index] = lock;
        registered.fetch_or(1U << index, std::memory_order_release);
    }
    pthread_mutex_unlock(&gate);
}

bool hostForkLockHeldHere() {
    const unsigned slots = registered.load(std::memory_order_acquire);
    for (int slot = 0; slot < forkSlotCount; ++slot) {
        if ((slots & 1U << slot) && locks[slot].heldHere != nullptr && locks[slot].heldHere()) {
            return true;
        }
    }
    return false;
}
