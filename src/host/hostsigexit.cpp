// Runs in a signal handler; the exit routines end in UtlExit, whose exit handlers then run there, too.
#include <algorithm>
#include <atomic>
#include <ctime>
#include <ucontext.h>
#include <unistd.h>

#include "host/faulthandler.h"
#include "host/faultstate.h"
#include "host/signalprint.h"
#include "hostdebug.h"
#include "hostfault.h"
#include "hostsignal.h"
#include "utlhost.h"

namespace {
std::atomic<BoolType> exitOnFault;
std::atomic<BoolType> exitOnGuardPageAccess;

std::atomic<HostSigExitHandlerType> delaySigExit;
std::atomic<HostSigExitHandlerType> completeSigExit;

// The postponed exit.
struct {
    int exitcode;
    int actualSig;
    siginfo_t* info;
    void* context;
} exitparams;
std::atomic<ExitRoutine> exitfunc;

// The handler's frame is gone by the time of a postponed exit; what it held is kept here.
siginfo_t keptInfo;
ucontext_t keptContext;

void* keepContext(const void* context) {
    if (context == nullptr)
        return nullptr;
    const auto* original = static_cast<const ucontext_t*>(context);
    // Member by member: the kernel's record is shorter than the C library's. The floating-point state is not kept.
    const auto& registers = original->uc_mcontext.gregs;
    std::copy(std::begin(registers), std::end(registers), std::begin(keptContext.uc_mcontext.gregs));
    keptContext.uc_flags = original->uc_flags;
    keptContext.uc_stack = original->uc_stack;
    return &keptContext;
}

void postpone(ExitRoutine routine, int argument, const SignalArrival& arrival) {
    if (arrival.info != nullptr)
        keptInfo = *arrival.info;
    exitparams = {argument, arrival.sig, arrival.info != nullptr ? &keptInfo : nullptr, keepContext(arrival.context)};
    exitfunc = routine;
}
} // namespace

void HostExitOnFault() {
    exitOnFault = TRUE;
}

void HostExitOnGuardPageAccess() {
    exitOnGuardPageAccess = TRUE;
}

void hostClearExitModes() {
    exitOnFault = FALSE;
    exitOnGuardPageAccess = FALSE;
}

bool hostExitsOnFault() {
    return exitOnFault;
}

bool hostExitsOnGuardPageAccess() {
    return exitOnGuardPageAccess;
}

void hostExitForFault(int sig) {
    hostSafePrintf("\n*** Received signal %d (%s) at %d ***.\n%s\n", sig, getSignalName(sig),
                   static_cast<int>(time(nullptr)), "Goodbye.");
    _exit(1);
}

void hostExitForGuardPageAccess(const void* address) {
    hostSafePrintf("\n*** Kestrune detected a SIGSEGV caused by an attempt to access guard page address %p.  time=%d "
                   "***.\n%s\n",
                   address, static_cast<int>(time(nullptr)), "Goodbye.");
    _exit(1);
}

void HostDelaySigExit(HostSigExitHandlerType postpone, HostSigExitHandlerType complete) {
    completeSigExit = complete;
    delaySigExit = postpone;
}

void HostDoSigExit() {
    const ExitRoutine routine = exitfunc;
    if (routine == nullptr)
        return;
    routine(exitparams.exitcode, exitparams.actualSig, exitparams.info, exitparams.context);
    hostCallIfSet(completeSigExit);
}

bool hostDelayableSignal(int sig) {
    constexpr unsigned synchronous =
        1U << SIGILL | 1U << SIGTRAP | 1U << SIGABRT | 1U << SIGBUS | 1U << SIGFPE | 1U << SIGSEGV;
    constexpr int lastInMask = SIGSEGV;
    return sig < 0 || sig > lastInMask || !(synchronous & 1U << sig);
}

void hostExitNowOrLater(ExitRoutine routine, int argument, const SignalArrival& arrival) {
    const HostSigExitHandlerType delay = delaySigExit;
    if (delay != nullptr && hostDelayableSignal(arrival.sig)) {
        postpone(routine, argument, arrival);
        delay();
    } else {
        routine(argument, arrival.sig, arrival.info, arrival.context);
    }
}

void hostPlainExit(int exitcode, int sig, siginfo_t* info, void* context) {
    delaySigExit = nullptr;
    hostCallIfSet(fileFlusherFct);
    if (sig != SIGTERM)
        hostCallOldHandler(sig, info, context);
    UtlExit(exitcode);
}

void hostCoredumpExit(int explicitlyRequested, int sig, siginfo_t* info, void* context) {
    delaySigExit = nullptr;
    hostCallOldHandler(sig, info, context);
    HostCoredump(explicitlyRequested);
    HostSignalSafePrint("\n");
    UtlExit(3);
}
