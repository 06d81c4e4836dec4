/*
 * What the remote client library (libkcirpc67.so) exports beside KciGetRtlTable. It is a client library like any other;
 * behind its table stands a host process that has opened the real one. The loader knows it by KciRemoteServe; a
 * program that calls neither function gets the linked library of the same folder, in a process of its own.
 *
 * Calls come from one thread at a time, breaks from any. Not signal-safe.
 */
#ifndef TMQKCI_KCIREMOTE_H
#define TMQKCI_KCIREMOTE_H

#include "kcitypes.h"

TMQKCI_C_BEGIN

/*
 * Starts a host process that opens the client library `file`: a path, or a name without a slash for the dynamic
 * linker's own search. NULL stands for the linked library beside the remote one. A file of the other word size gets a
 * host of its word size. To be called before KciGetRtlTable. TRUE when the host serves the library; otherwise err, of
 * errSize bytes, holds the reason and what to do about it, unless it is NULL. Waits 10 seconds at most.
 */
TMQKCI_API BoolType KciRemoteServe(const char* file, char* err, ArraySizeType errSize);
typedef BoolType (*KciRemoteServeFuncPtr)(const char* file, char* err, ArraySizeType errSize);

/* How many requests have gone to host processes since the library was opened; for measurements. */
TMQKCI_API uint64_t KciRemoteExchanges(void);

TMQKCI_C_END

#endif
