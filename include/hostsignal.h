/*
 * Signals: the count of SIGTERM arrivals, which interrupted waits consult before they go on, printing from signal
 * handlers, and the installation of handlers. Called by the host services and by embedding programs. Every function
 * here is thread-safe and async-signal-safe, unless its comment says otherwise; dispositions belong to the process, the
 * set of blocked signals to the calling thread (IEEE 1003.1).
 */
#ifndef TMQKCI_HOSTSIGNAL_H
#define TMQKCI_HOSTSIGNAL_H

/* In strict C17, signal.h leaves out the types of POSIX. */
#include <bits/types/siginfo_t.h>
#include <signal.h>

#include "kcitypes.h"

struct sigaction;

/* A handler with three arguments, as SA_SIGINFO asks for. */
typedef void UnixIoSignalHandlerFuncType(int sig, siginfo_t* info, void* context);
/* A handler with one. */
typedef void (*HostKbIntFuncType)(int sig);

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

/*
 * Install a handler that runs with every signal blocked. previous, unless NULL, receives the earlier action. The plain
 * dispositions SIG_DFL and SIG_IGN, cast to the handler's type, are accepted. A sigaction that fails is reported on
 * standard output and as a guarantee failure, which is not signal-safe, and previous is left alone.
 *
 *   UNIXIO_DO_SIGNAL_           SA_SIGINFO, SA_RESTART and extraFlags
 *   UNIXIO_DO_SIGNAL            SA_SIGINFO and SA_RESTART
 *   UNIXIO_DO_SIGNAL_noRestart  SA_SIGINFO: the signal interrupts system calls
 *   UNIXIO_DO_SIGNAL_1ARG       SA_RESTART, a handler of one argument
 */
TMQKCI_API void UNIXIO_DO_SIGNAL_(int sig, UnixIoSignalHandlerFuncType* handler, struct sigaction* previous,
                                  int extraFlags);
TMQKCI_API void UNIXIO_DO_SIGNAL(int sig, UnixIoSignalHandlerFuncType* handler, struct sigaction* previous);
TMQKCI_API void UNIXIO_DO_SIGNAL_noRestart(int sig, UnixIoSignalHandlerFuncType* handler, struct sigaction* previous);
TMQKCI_API void UNIXIO_DO_SIGNAL_1ARG(int sig, void (*handler)(int sig), struct sigaction* previous);

/* Make the process ignore SIGTERM, respectively SIGIO. */
TMQKCI_API void HostIgnoreSigTerm(void);
TMQKCI_API void HostIgnoreSigIo(void);

/*
 * Installs a handler for the keyboard interrupt, SIGINT. A process that was started with SIGINT ignored, as a shell
 * starts one in the background, keeps ignoring it.
 */
TMQKCI_API void HostEnableKbInt(HostKbIntFuncType func);

/*
 * Block all signals in the calling thread; unblock all again. They do not nest: one flag for the process remembers
 * whether they are disabled, and a call that finds it as wanted does nothing. errno is kept.
 */
TMQKCI_API void HostDisableInterrupts(void);
TMQKCI_API void HostEnableInterrupts(void);

TMQKCI_C_END

#endif
