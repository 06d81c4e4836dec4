// The pieces of the fault handler. All of them run in a signal handler.
#pragma once

#include <csignal>

// One call of the handler.
struct SignalArrival {
    int sig;
    siginfo_t* info; // may be NULL; whether it belongs to this signal tells infoIsValid
    void* context;   // the interrupted frame, a ucontext_t; may be NULL
    bool infoIsValid;

    // Sent by a process, not raised by the hardware or the kernel.
    bool wasSent() const { return infoIsValid && info->si_code < 1; }
};

const char* getSignalName(int sig);
const char* getSignalSourceName(const SignalArrival& arrival);

// The address of the interrupted instruction; NULL without a context.
const void* hostInstructionAddress(const void* context);

// What the signal and the interrupted frame carry, line by line.
void translateFaultCode(const SignalArrival& arrival);

// Learns where this library's instructions lie; the handler then tells them from others without the loader's lock.
void hostLearnInstructionRange();

// Whether an address lies in this library.
bool hostIsInThisLibrary(const void* address);

// Opens the guard page that holds the address, all of them for NULL, when its handler allows it. Whether the last one
// allowed was opened.
bool hostProtectCheck(char* faultAddr);

// Whether the page that holds the address was a guard page that has been opened since the access: the access is to be
// made again.
[[gnu::noinline]] bool hostWasOpenedMeanwhile(const char* faultAddr);

// Takes the status of all children that ended or stopped.
void hostReapChildren();

// The exit modes (HostExitOnFault, HostExitOnGuardPageAccess).
bool hostExitsOnFault();
bool hostExitsOnGuardPageAccess();
[[noreturn]] void hostExitForFault(int sig);
[[noreturn]] void hostExitForGuardPageAccess(const void* address);

// Gives the exit handlers, which are about to run in this signal handler, ten seconds: they may wait for what the
// signal interrupted. After that, or when they fault or abort, the process ends with the code all the same.
void hostLimitExit(int code);
// Whether the calling thread has come so far.
bool hostIsExiting();
[[noreturn]] void hostEndExit();

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
