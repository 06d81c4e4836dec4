/*
 * POSIX mutexes (pthread_mutex_lock and its family, IEEE 1003.1) whose every failure is fatal: the call prints one line
 * on standard output and reports a guarantee failure to HostCallDebuggerMsg. None returns a status. Called by the heap,
 * the message catalogue and embedding programs. Thread-safe; not signal-safe.
 */
#ifndef TMQKCI_HOSTMUTEX_H
#define TMQKCI_HOSTMUTEX_H

#include <pthread.h>

#include "kcitypes.h"

typedef pthread_mutex_t HostMutexSType;

TMQKCI_C_BEGIN

/* Initializes a mutex with default attributes: not recursive, private to the process. */
TMQKCI_API void HostMutexInit(HostMutexSType* mutex);

/* Destroys an unlocked mutex. */
TMQKCI_API void HostMutexDestroy(HostMutexSType* mutex);

TMQKCI_API void HostMutexAcquire(HostMutexSType* mutex);
TMQKCI_API void HostMutexRelease(HostMutexSType* mutex);

/* Reports that a mutex operation failed at the given source line of a caller that uses pthread calls of its own. */
TMQKCI_API void HostMutexError(long callerLine);

TMQKCI_C_END

#endif
