// The calls that lead up from the floors below to floors above: whoever finds a fatal error reports it, and
// environment variables live in the checking heap. There are no others.
#pragma once

#include "kcitypes.h"

#pragma GCC visibility push(hidden)

TMQKCI_C_BEGIN

// The fatal report (hostdebug.h).
TMQKCI_API int HostCallDebugger(void);               // NOLINT(readability-redundant-declaration)
TMQKCI_API int HostCallDebuggerMsg(const char* msg); // NOLINT(readability-redundant-declaration)

// The heap (utlheap.h), for HostSetEnv.
TMQKCI_API void* UtlMalloc(unsigned length, const char* reason); // NOLINT(readability-redundant-declaration)

TMQKCI_C_END

#pragma GCC visibility pop
