/*
 * Lock primitives: word-sized atomic operations and a spin lock, on any aligned 32-bit word, also on one that several
 * processes map. All are sequentially consistent, take no lock and make no system call: they may be called from any
 * thread and from a signal handler, and they cannot fail. Called by every counter and flag of the support layer that
 * signal handlers or other threads share, and by embedding programs on their own shared memory.
 */
#ifndef TMQKCI_HOSTATOMIC_H
#define TMQKCI_HOSTATOMIC_H

#include "kcitypes.h"

TMQKCI_C_BEGIN

/* A full fence: no load or store moves across it. */
TMQKCI_API void HostShrMemoryBarrier(void);

/*
 * Takes a spin lock (0 free, 1 held). 1 when it was taken, 0 when the spin budget ran out. A spinCount of 1 makes
 * exactly one attempt; a spinCount of 0 wraps around and spins up to 2^32 - 1 rounds, which asks for an almost
 * unbounded wait. The lock does not know its owner and is not recursive.
 */
TMQKCI_API int HostAsmTryLock(int* lock, unsigned spinCount);

/* Exchanges the word with 0, whoever holds the lock; returns the word's previous value. */
TMQKCI_API int HostAsmUnlock(int* lock);

/* Exchanges the word with -1, the mark of a cleared locked page; returns the word's previous value. */
TMQKCI_API int HostAsmClearLockedPage(int* lock);

/* Adds delta (0: an atomic read); returns the value before. */
TMQKCI_API int HostAsmSyncCtrAdd(int* counter, int delta);

/* Sets, respectively keeps, the given bits; returns the value before. */
TMQKCI_API int HostAsmSyncOr(int* word, int bits);
TMQKCI_API int HostAsmSyncAnd(int* word, int bits);

TMQKCI_C_END

#endif
