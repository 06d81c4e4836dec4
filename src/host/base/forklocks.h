// Locks that a fork must not find half-way. fork copies only the calling thread: a mutex that another thread holds at
// that moment would stay locked in the child for ever, over half-changed data. So all locks of the support layer are
// taken before fork and released after it, in the parent and in the child, through one pthread_atfork registration.
#pragma once

#pragma GCC visibility push(hidden)

// In the order in which they are taken; released in reverse. The same order holds for all other code.
enum class ForkSlot { printMutex, heapMutex };
constexpr int forkSlotCount = 2;

struct ForkLock {
    void (*take)();
    void (*release)();            // in the parent and in the child
    bool (*heldHere)() = nullptr; // whether the calling thread holds it
};

// Makes a lock take part in every fork that begins from now on; a fork under way is waited for. Call it before the lock
// is first taken, and never while holding it. Registering a slot again changes nothing. Thread-safe; not signal-safe.
void hostForkRegister(ForkSlot slot, const ForkLock& lock);

// Whether the calling thread holds one of the locks that can tell.
bool hostForkLockHeldHere();

#pragma GCC visibility pop
