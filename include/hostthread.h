/*
 * POSIX threads (IEEE 1003.1). Every function returns what its pthread counterpart returns. Thread-safe;
 * HostThreadSelf, HostThreadEqual and HostThreadKill are also signal-safe.
 */
#ifndef TMQKCI_HOSTTHREAD_H
#define TMQKCI_HOSTTHREAD_H

#include <pthread.h>
#include <stddef.h>

#include "kcitypes.h"

typedef pthread_t HostThreadType;
typedef void* HostThreadFuncType(void*);

TMQKCI_C_BEGIN

/*
 * Starts a joinable thread that runs funcPtr(arg). minStackSize is in bytes: 0, or a size the default already covers,
 * gives the default stack; a larger one is rounded up to whole pages. A stack size that cannot be had is reported in a
 * line on standard error and as a guarantee failure, and the default stack serves. Returns 0 or an errno value.
 */
TMQKCI_API int HostThreadCreate(HostThreadType* threadId, HostThreadFuncType* funcPtr, void* arg, size_t minStackSize);

TMQKCI_API int HostThreadKill(HostThreadType thread, int sig);
TMQKCI_API int HostThreadJoin(HostThreadType thread, void** result);
TMQKCI_API int HostThreadEqual(HostThreadType t1, HostThreadType t2);
TMQKCI_API HostThreadType HostThreadSelf(void);
TMQKCI_API void HostThreadExit(void* result);

TMQKCI_C_END

#endif
