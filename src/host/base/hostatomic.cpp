#include "hostatomic.h"

static_assert(sizeof(int) == 4, "a lock word has 32 bits");

namespace {
// The contended half of HostAsmTryLock, apart so that the other half stays short.
[[gnu::noinline]] int spin(int* lock, unsigned spinCount) {
    do {
        // Reading before writing leaves the cache line with the holder while the lock is held.
        do {
            __builtin_ia32_pause();
            if (--spinCount == 0) {
                return 0;
            }
        } while (__atomic_load_n(lock, __ATOMIC_RELAXED) != 0);
    } while (__atomic_exchange_n(lock, 1, __ATOMIC_SEQ_CST) != 0);
    return 1;
}
} // namespace

void HostShrMemoryBarrier() {
    // The same instruction as __atomic_thread_fence, which the compiler refuses together with ThreadSanitizer.
    __sync_synchronize();
}

int HostAsmTryLock(int* lock, unsigned spinCount) {
    return __atomic_exchange_n(lock, 1, __ATOMIC_SEQ_CST) == 0 ? 1 : spin(lock, spinCount);
}

int HostAsmUnlock(int* lock) {
    return __atomic_exchange_n(lock, 0, __ATOMIC_SEQ_CST);
}

int HostAsmClearLockedPage(int* lock) {
    return __atomic_exchange_n(lock, -1, __ATOMIC_SEQ_CST);
}

int HostAsmSyncCtrAdd(int* counter, int delta) {
    return __atomic_fetch_add(counter, delta, __ATOMIC_SEQ_CST);
}

// Since the previous value is wanted, these two compile to a compare-and-swap loop.
int HostAsmSyncOr(int* word, int bits) {
    return __atomic_fetch_or(word, bits, __ATOMIC_SEQ_CST);
}

int HostAsmSyncAnd(int* word, int bits) {
    return __atomic_fetch_and(word, bits, __ATOMIC_SEQ_CST);
}
