/*
 * The report of fatal errors and broken guarantees: hooks, C stacks, time to attach a debugger, a core file. Called by
 * every part of the support layer and by embedding programs. A report runs in the thread that met the error, also in a
 * signal handler, while other threads go on; nothing on its way fails, what cannot be done is printed and left out.
 */
#ifndef TMQKCI_HOSTDEBUG_H
#define TMQKCI_HOSTDEBUG_H

#include <sys/types.h>

#include "kcitypes.h"

typedef pid_t PidType;
typedef void (*HostOnDebugHandlerType)(void);
/* Callbacks that write back and release what a process must not lose; they may run in a signal handler. */
typedef void HostFaultFuncType(void);
typedef HostFaultFuncType rundownFuncType;
/* Prints the stack of a language above C; runs in a signal handler. */
typedef void PrintStackFuncType(void);

TMQKCI_C_BEGIN

/*
 * Set by an embedding program: fatal errors are announced, not reported, and the process goes on; only an unhandled
 * fault signal still ends it, with status 3 and without a core file. HostInit clears it.
 */
extern TMQKCI_DATA volatile BoolType noHalt;
/* Cleared by an embedding program that wants no core files: a fatal error runs the hooks and the process goes on. */
extern TMQKCI_DATA volatile long coreDumpEnabled;

/*
 * Reports a fatal error. Returns 0 at once when noHalt is set, after the hooks when coreDumpEnabled is not; otherwise
 * prints the C stacks, waits $KS_CORE_TIME_OUT seconds (36 hours when unset) for a debugger, writes a core file and
 * ends the process with status 3. A fatal error within the report writes a core file and aborts. errno is kept.
 */
TMQKCI_API int HostCallDebugger(void);

/* Prints msg as a line on standard output, then reports a fatal error. Returns 0. */
TMQKCI_API int HostCallDebuggerMsg(const char* msg);

/* Prints msg and arg on standard output, then reports a fatal error. Returns arg. */
TMQKCI_API unsigned long HostCallDebuggerMsg_o(const char* msg, unsigned long arg);

/*
 * Writes a core file of this process, from a child, and moves it to core<pid> in the working folder. Unless explicitly
 * requested, it first waits $KS_CORE_TIME_OUT seconds. The first call runs the flush callback and prints the C stacks;
 * the third ends the process with status 1. Gives set-id privileges up for good. TRUE when a core file was written or
 * noHalt is set. When coreDumpEnabled is 0, FALSE without a core file, after the C stacks and the wait.
 */
TMQKCI_API BoolType HostCoredump(BoolType explicitlyRequested);

/*
 * Print the C stacks of a process, respectively of this one, with $KESTRUNE/bin/gstack, and wait for it. What surrounds
 * them goes to standard error; the printer writes to standard output. Nothing for process -1.
 */
TMQKCI_API void HostPrintCStack(PidType forPid);
TMQKCI_API void HostPrintMyCStack(void);

/* Sets the printer that runs after the C stacks were printed; NULL for none. */
TMQKCI_API void HostSetSmalltalkPrintStackFunc(PrintStackFuncType* func);

/* Wait for ever, for a debugger to attach; the first only when $KESTRUNE_CHILD_DEBUG is set. */
TMQKCI_API void HostWaitForDebugger(void);
TMQKCI_API void HostExplicitWaitForDebugger(void);

/* Sets what runs once, on the first fatal error, before the process is dumped; NULL for none. HostInit clears it. */
TMQKCI_API void HostInstallFatalReportHandler(HostFaultFuncType* func);

/* Sets what runs first on every HostCallDebugger; NULL for none. */
TMQKCI_API void HostOnDebug(HostOnDebugHandlerType func);

/* Whether a fatal signal or error is being handled. Signal-safe. */
TMQKCI_API BoolType HostGetFatalErr(void);
TMQKCI_API void HostSetFatalErr(BoolType value);

TMQKCI_C_END

#endif
