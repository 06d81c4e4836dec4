/*
 * Clocks, sleeps, the statistics line, dates and time stamps as text. Thread-safe. HostFtime, HostGetTimeOfDay and the
 * sleeps call only async-signal-safe functions unless poll fails unexpectedly.
 */
#ifndef TMQKCI_HOSTTIME_H
#define TMQKCI_HOSTTIME_H

#include <stdio.h>
#include <time.h>

#include "kcitypes.h"

TMQKCI_C_BEGIN

/*
 * Sleeps. A signal does not cut HostSleep short unless a SIGTERM has been counted (HostIncrementSigTerm) and not
 * cleared; then it ends at once. HostMilliSleep sleeps whole seconds so, and the rest of a second in one wait that any
 * signal ends. HostNanoSleep sleeps whole milliseconds and drops what is below one.
 */
TMQKCI_API void HostSleep(unsigned seconds);
TMQKCI_API void HostMilliSleep(unsigned milliseconds);
TMQKCI_API void HostNanoSleep(long long nanoseconds);

/* Milliseconds of processor time, user and system, since host initialisation; -1 when they cannot be had. */
TMQKCI_API long HostClock(void);

/* Seconds of processor time, user and system, since the process began. */
TMQKCI_API double HostGetCpuTime(void);

/* The wall clock as seconds since the epoch and milliseconds, respectively microseconds, of the current second. */
TMQKCI_API void HostFtime(time_t* sec, unsigned short* millitm);
TMQKCI_API void HostGetTimeOfDay(long* sec, long* usec);

/*
 * Writes one line about the process into buf, of size bytes: elapsed time since host initialisation, processor time,
 * major page faults, blocks read and written. A piece that does not fit ends the text.
 */
TMQKCI_API void HostStatistics(char* buf, unsigned size);

/*
 * The strftime format of dates and times: $KS_CFTIME when it ends in "S", otherwise the locale's. Computed once; the
 * text lives as long as the process.
 */
TMQKCI_API const char* HostDateTimeFormat(void);

/* Seconds west of UTC at the given time, an hour less under daylight saving. */
TMQKCI_API long HostTIMEZONE(time_t* timer);

/*
 * Writes the local time to the millisecond in brackets, a blank and then text to a stream, as one write under the
 * stream's lock. flags is not used. The stream is not flushed.
 */
TMQKCI_API void UtlTimeStampMs_s(FILE* f, const char* text, int flags);

/*
 * The local date and time as text, in the format of HostDateTimeFormat, in buf of size bytes; returns buf. Empty when
 * it does not fit. Thread-safe.
 */
TMQKCI_API const char* UtlCtime(time_t t, char* buf, unsigned size);

TMQKCI_C_END

#endif
