// Runs in a signal handler; the exit routines end in UtlExit, whose exit handlers then run there, too.
#include <algorithm>
#include <atomic>
#include <ctime>
#include <sched.h>
#include <ucontext.h>
#include <unistd.h>

#include "host/faults/earlieractions.h"
#include "host/faults/faulttext.h"
#include "host/faults/hostsigexit.h"
#include "host/report/reporthooks.h"
#include "host/signals/kernelsignal.h"
#include "host/signals/signalprint.h"
#include "hostdebug.h"
#include "hostfault.h"
#include "hostsignal.h"
#include "utlhost.h"

namespace {
std::atomic<BoolType> exitOnFault;
std::atomic<BoolType> exitOnGuardPageAccess;

std::atomic<HostSigExitHandlerType> delaySigExit;
std::atomic<HostSigExitHandlerType> completeSigExit;

// A postponed exit, with what the handler's frame held, which is gone by then.
struct PostponedExit {
    ExitRoutine exitfunc;
    int exitcode;
    int actualSig;
    bool hasInfo;
    bool hasContext;
    siginfo_t info;
    ucontext_t context;
};
PostponedExit exitparams;

// Held while the record is written or read, also in handlers: with every signal blocked nothing can interrupt the
// holder and then wait for it.
class ExitparamsAccess {
public:
    ExitparamsAccess() {
        while (inUse.test_and_set(std::memory_order_acquire)) {
            sched_yield();
        }
    }
    ~ExitparamsAccess() { inUse.clear(std::memory_order_release); }
    ExitparamsAccess(const ExitparamsAccess&) = delete;
    ExitparamsAccess& operator=(const ExitparamsAccess&) = delete;

private:
    static std::atomic_flag inUse;
    const AllSignalsBlocked blocked;
};
std::atomic_flag ExitparamsAccess::inUse;

void keepContext(const ucontext_t& original, ucontext_t& kept) {
    // Member by member: the kernel's record is shorter than the C library's. The floating-point state is not kept.
    const auto& registers = original.uc_mcontext.gregs;
    std::copy(std::begin(registers), std::end(registers), std::begin(kept.uc_mcontext.gregs));
    kept.uc_flags = original.uc_flags;
    kept.uc_stack = original.uc_stack;
}

PostponedExit readExitparams() {
    const ExitparamsAccess access;
    return exitparams;
}

void postpone(ExitRoutine routine, int argument, const SignalArrival& arrival) {
    const ExitparamsAccess access;
    exitparams.exitfunc = routine;
    exitparams.exitcode = argument;
    exitparams.actualSig = arrival.sig;
    exitparams.hasInfo = arrival.info != nullptr;
    if (exitparams.hasInfo) {
        exitparams.info = *arrival.info;
    }
    exitparams.hasContext = arrival.context != nullptr;
    if (exitparams.hasContext) {
        keepContext(*static_cast<const ucontext_t*>(arrival.context), exitparams.context);
    }
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
    return exitOnFault != 0;
}

bool hostExitsOnGuardPageAccess() {
    return exitOnGuardPageAccess != 0;
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
    PostponedExit postponed = readExitparams();
    if (postponed.exitfunc == nullptr) {
        return;
    }
    postponed.exitfunc(postponed.exitcode, postponed.actualSig, postponed.hasInfo ? &postponed.info : nullptr,
                       postponed.hasContext ? &postponed.context : nullptr);
    hostCallIfSet(completeSigExit);
}

bool hostDelayableSignal(int sig) {
    constexpr unsigned synchronous =
        1U << SIGILL | 1U << SIGTRAP | 1U << SIGABRT | 1U << SIGBUS | 1U << SIGFPE | 1U << SIGSEGV;
    constexpr int lastInMask = SIGSEGV;
    return sig < 0 || sig > lastInMask || (synchronous & 1U << sig) == 0;
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
    if (sig != SIGTERM) {
        hostCallOldHandler(sig, info, context);
    }
    UtlExit(exitcode);
}

void hostCoredumpExit(int explicitlyRequested, int sig, siginfo_t* info, void* context) {
    delaySigExit = nullptr;
    hostCallOldHandler(sig, info, context);
    HostCoredump(explicitlyRequested);
    HostSignalSafePrint("\n");
    UtlExit(3);
}
