// How a signal ends the process. Runs in a signal handler, except for the clearing of the modes.
#pragma once

#include "host/faults/signalarrival.h"

#pragma GCC visibility push(hidden)

// The exit modes (HostExitOnFault, HostExitOnGuardPageAccess).
bool hostExitsOnFault();
bool hostExitsOnGuardPageAccess();
// Switches both off.
void hostClearExitModes();
[[noreturn]] void hostExitForFault(int sig);
[[noreturn]] void hostExitForGuardPageAccess(const void* address);

// How a signal ends the process.
using ExitRoutine = void (*)(int exitcode, int sig, siginfo_t* info, void* context);
// Flushes, calls the earlier handler (not for SIGTERM), exits with exitcode.
[[noreturn]] void hostPlainExit(int exitcode, int sig, siginfo_t* info, void* context);
// Calls the earlier handler, writes a core file, exits with 3.
[[noreturn]] void hostCoredumpExit(int explicitlyRequested, int sig, siginfo_t* info, void* context);

// Every signal but SIGILL, SIGTRAP, SIGABRT, SIGBUS, SIGFPE and SIGSEGV.
bool hostDelayableSignal(int sig);

// Runs the exit routine, or leaves it to HostDoSigExit and returns when the signal and the program allow that.
void hostExitNowOrLater(ExitRoutine routine, int argument, const SignalArrival& arrival);

#pragma GCC visibility pop
