/*
 * Fatal signals: one handler for the signals that matter to a long-running process, which passes a signal on to the
 * handler that was there before, ends the process in order, or reports a fault and writes a core file (hostdebug.h).
 * Called by an embedding program; nothing in this library installs the handler by itself. Thread-safe and signal-safe
 * as each comment says.
 */
#ifndef TMQKCI_HOSTFAULT_H
#define TMQKCI_HOSTFAULT_H

/* In strict C17, signal.h leaves out the types of POSIX. */
#include <bits/types/siginfo_t.h>
#include <signal.h>
#include <stddef.h>

#include "hostdebug.h"
#include "kcitypes.h"

struct SysErrorSType; /* syserror.h */

typedef void (*HostSigExitHandlerType)(void);
typedef void (*HostShrMemLostFType)(void);
/* Told of an access to a guard page; TRUE when it was expected and the page is to be opened. Runs in the handler. */
typedef BoolType (*HostProtectHandlerFType)(char* pageAddr, char* faultAddr);

TMQKCI_C_BEGIN

/*
 * Installs HostFaultHandler, once per process; later calls do nothing. SIGPIPE and SIGHUP become ignored, SIGFPE and
 * SIGCHLD handled, unless another component handles them already. SIGQUIT, SIGILL, SIGABRT, SIGBUS, SIGSEGV, SIGTERM,
 * SIGUSR1, SIGXFSZ and SIGXCPU are taken over, and their earlier actions remembered. flushFiles runs before the process
 * ends or writes a core file, shutDown after a core file was written; both may be NULL. What the report needs of the C
 * library is taken and allocated here: the local time zone, a buffer for stdout. Not signal-safe; not to be called by
 * two threads at once.
 */
TMQKCI_API void HostInstallFaultHandler(HostFaultFuncType* flushFiles, HostFaultFuncType* shutDown);

/* Puts the remembered actions back. The handler is not installed again afterwards. Signal-safe. */
TMQKCI_API void hostUnInstallFaultHandler(void);

/*
 * The handler. It keeps errno when it returns. info and context may be NULL. It is installed without SA_ONSTACK and
 * needs, the kernel's part included, about 3,100 bytes of stack to pass a fault on and 23,000 for a report.
 */
TMQKCI_API void HostFaultHandler(int sig, siginfo_t* info, void* context);

/*
 * Make a fault, respectively an access to a guard page that was opened for it, end the process at once with status 1,
 * one line and no report. HostInit switches both off. Signal-safe.
 */
TMQKCI_API void HostExitOnFault(void);
TMQKCI_API void HostExitOnGuardPageAccess(void);

/*
 * Postponed exits: for a signal that ends the process but leaves it sound (not a fault), the handler calls postpone and
 * returns; the program calls HostDoSigExit where it can. That ends the process, after complete if the exit returns.
 * A NULL postpone: no postponing. HostDoSigExit does nothing while no exit is postponed. HostDelaySigExit is
 * signal-safe, HostDoSigExit is for ordinary code.
 */
TMQKCI_API void HostDelaySigExit(HostSigExitHandlerType postpone, HostSigExitHandlerType complete);
TMQKCI_API void HostDoSigExit(void);

/*
 * Guard pages: makes the page at pageAddr, which must be its first byte, inaccessible. When it is touched,
 * protectHandler decides: TRUE opens the page and the access succeeds, FALSE makes it a fault. At most 16 pages; naming
 * a page again replaces its handler. FALSE with err (may be NULL) filled on failure. Not signal-safe; not to be called
 * by two threads at once.
 */
TMQKCI_API BoolType HostProtectPage(char* pageAddr, HostProtectHandlerFType protectHandler, struct SysErrorSType* err);

/* Makes a guard page readable and writable and forgets it. FALSE when it is none, or cannot be opened. Signal-safe. */
TMQKCI_API BoolType HostUnProtectPage(char* pageAddr);

/*
 * Make whole pages read-only, respectively readable and writable again (mprotect, IEEE 1003.1). addr and len, in bytes,
 * must be multiples of the page size: a guarantee. FALSE with errno set on failure.
 */
TMQKCI_API BoolType HostBasicProtectPageReadOnly(char* addr, size_t len);
TMQKCI_API BoolType HostBasicUnprotectPage(char* addr, size_t len);

/* Records where shared memory is mapped and whom to tell of its loss. Faults are not checked against it. */
TMQKCI_API void HostCheckShrMemOnFatalSignal(char* addr, HostShrMemLostFType func);

TMQKCI_C_END

#endif
