/*
 * The report of fatal errors and broken guarantees. Called by every part of the support layer. Thread-safe; errno is
 * kept.
 */
#ifndef TMQKCI_HOSTDEBUG_H
#define TMQKCI_HOSTDEBUG_H

#include "kcitypes.h"

TMQKCI_C_BEGIN

/* Set by an embedding program: fatal errors are reported and the process goes on. HostInit clears it. */
extern TMQKCI_DATA volatile BoolType noHalt;
/* Cleared by an embedding program that wants no core files. */
extern TMQKCI_DATA volatile long coreDumpEnabled;

/* Reports a fatal error. Returns 0. */
TMQKCI_API int HostCallDebugger(void);

/* Prints msg as a line on standard output, then reports a fatal error. Returns 0. */
TMQKCI_API int HostCallDebuggerMsg(const char* msg);

/* Prints msg and arg on standard output, then reports a fatal error. Returns arg. */
TMQKCI_API unsigned long HostCallDebuggerMsg_o(const char* msg, unsigned long arg);

TMQKCI_C_END

#endif
