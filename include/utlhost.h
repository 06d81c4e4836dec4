/*
 * Utilities that stand on the host services: process exit, page size, installed files, log names, time stamps.
 */
#ifndef TMQKCI_UTLHOST_H
#define TMQKCI_UTLHOST_H

#include <stdio.h>
#include <time.h>

#include "kcitypes.h"

TMQKCI_C_BEGIN

/*
 * Ends the process as exit (ISO C) does. The library ends it in no other orderly way. In HostFaultHandler the exit
 * handlers have ten seconds: they may wait for what the signal interrupted.
 */
TMQKCI_API void UtlExit(int code) __attribute__((noreturn));

/* The size of a page of memory, in bytes. Thread- and signal-safe. */
TMQKCI_API unsigned UtlGetPageSize(void);

/*
 * Looks for an installed file: the last component of name, with ext (such as ".err") added when it has no extension, in
 * the folder of the running program, then in that folder's ../bin/ and ../sys/. TRUE with the path in dst, of size
 * bytes; FALSE, with dst untouched, when no such file exists or its path does not fit. A folder of that name and a link
 * that does not lead to a regular file are passed over. Thread-safe.
 */
TMQKCI_API BoolType UtlFindExeFile(const char* name, const char* ext, char* dst, unsigned size);

/*
 * Expands a log-name pattern into dst, of size bytes: %N the program's name without folders, %P the process id, %M the
 * machine's name, %U the user, %H the home directory, %D the date as YYYY-MM-DD, %% a percent sign. A NULL program,
 * user or home stands for this process's own. FALSE, with dst empty, for any other %, for a value that is not known and
 * for a result that does not fit. Thread-safe.
 */
TMQKCI_API BoolType UtlExpandLogName(const char* pattern, const char* program, const char* user, const char* home,
                                     char* dst, unsigned size);

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
