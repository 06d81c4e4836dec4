/*
 * The count of SIGTERM arrivals, which interrupted waits consult before they go on, and printing from signal handlers.
 * Every function here is thread-safe and async-signal-safe.
 */
#ifndef TMQKCI_HOSTSIGNAL_H
#define TMQKCI_HOSTSIGNAL_H

#include "kcitypes.h"

TMQKCI_C_BEGIN

/* Counts one SIGTERM; for a SIGTERM handler. */
TMQKCI_API void HostIncrementSigTerm(void);

/* The count. */
TMQKCI_API int HostGetSigTerm_(void);

/* Sets the count to 0; returns what it was. */
TMQKCI_API int HostClearSigTerm(void);

/*
 * The count; when it is not 0, a line on standard error names the caller's file (without folders) and line, and the
 * thread.
 */
TMQKCI_API int HostGetSigTerm(const char* file, int line);

/* Writes a text to standard error with write(2) alone. It may change errno. */
TMQKCI_API void HostSignalSafePrint(const char* text);

TMQKCI_C_END

#endif
