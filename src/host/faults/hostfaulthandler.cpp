// Runs in a signal handler: no lock, no allocation, no stdio stream except in the fatal report. A fault that is only
// passed on runs on the stack of a Java thread: the frame is small, and everything with a buffer is called out of line.
#include "hostfault.h"

#include <array>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <ctime>
#include <pthread.h>
#include <unistd.h>

#include "host/base/errnokeeper.h"
#include "host/base/guarantee.h"
#include "host/faults/earlieractions.h"
#include "host/faults/faulttext.h"
#include "host/faults/hostguardpage.h"
#include "host/faults/hostreap.h"
#include "host/faults/hostsigexit.h"
#include "host/faults/instructionrange.h"
#include "host/report/debuggerbanner.h"
#include "host/report/hoststack.h"
#include "host/report/reporttext.h"
#include "host/signals/exitlimit.h"
#include "host/signals/handlerscope.h"
#include "host/signals/signalprint.h"
#include "host/signals/unixiosignal.h"
#include "hostatomic.h"
#include "hostsignal.h"

namespace {
constexpr char utlModule[] = "hostunix";

// Activations for SIGSEGV now running in the process.
int segvInProgressCount;

constexpr int deepestSegv = 5;

// The activations for SIGSEGV that are nested on one thread, by the addresses of their frames. An activation that was
// left by a jump out of a chained handler is recognised by its address: a nested frame lies below the ones around it.
struct SegvNesting {
    int depth;
    std::array<uintptr_t, deepestSegv> frames;

    int enter(uintptr_t frame) {
        while (depth > 0 && frames[depth - 1] <= frame) {
            --depth;
        }
        if (depth < deepestSegv) {
            frames[depth++] = frame;
        }
        return depth;
    }
};

// This model of thread-local data needs no allocation on first use.
__thread SegvNesting segvNesting [[gnu::tls_model("initial-exec")]];

// Signals of the synchronous faults, whose chaining and reports differ from the others'.
bool isSynchronousFault(int sig) {
    return sig == SIGBUS || sig == SIGSEGV || sig == SIGILL || sig == SIGABRT;
}

bool isValidInfo(int sig, const siginfo_t* info) {
    return info != nullptr && reinterpret_cast<uintptr_t>(info) % 4 == 0 && info->si_signo == sig;
}

// Tells of a fault signal that says nothing about a fault.
[[gnu::cold, gnu::noinline]] void reportSender(const SignalArrival& arrival) {
    if (!arrival.infoIsValid) {
        hostSafePrintf("KS signal handler: signal %d (%s), received with incomplete or invalid args.  Additional info "
                       "not available.\n",
                       arrival.sig, getSignalName(arrival.sig));
    } else {
        const siginfo_t& info = *arrival.info;
        hostSafePrintf("KS signal handler: signal %d (%s), received from process %d userId %d\n  si_code: %d, %s\n",
                       arrival.sig, getSignalName(arrival.sig), static_cast<int>(info.si_pid),
                       static_cast<int>(info.si_uid), info.si_code, getSignalSourceName(arrival));
        if (hostExitsOnFault()) {
            hostExitForFault(arrival.sig);
        }
    }
    UTL_GUARANTEE(false);
}

[[gnu::cold, gnu::noinline]] void reportGuardPageAccess(const void* address) {
    if (hostExitsOnGuardPageAccess()) {
        hostExitForGuardPageAccess(address);
    }
    hostSafePrintf("\n[Debug]: Kestrune ignored signal SIGSEGV caused by attempted guard page access at address %p.  "
                   "time=%d\n",
                   address, static_cast<int>(time(nullptr)));
}

// Ends a process whose handler faults again and again.
[[gnu::cold, gnu::noinline]] void endRecursion(int numSegvInProgress) {
    if (numSegvInProgress > 4) {
        _exit(2);
    }
    if (numSegvInProgress > 3) {
        abort();
    }
    UNIXIO_DO_SIGNAL(SIGABRT, unixioPlain(SIG_DFL), nullptr);
    HostSignalSafePrint("KS signal handler: Recursive SEGV detected, attempting to dump core\n");
    abort();
}

int enterSegv() {
    HostAsmSyncCtrAdd(&segvInProgressCount, 1);
    // For a person in a debugger only: an activation that a chained handler leaves by a jump stays counted. The limits
    // are per thread, where such activations are told apart: many threads at once are no recursion.
    const int depth = segvNesting.enter(reinterpret_cast<uintptr_t>(__builtin_frame_address(0)));
    if (depth > 2) {
        endRecursion(depth);
    }
    return depth;
}

[[gnu::cold, gnu::noinline]] void announceTermination(const SignalArrival& arrival) {
    const bool isSigTerm = arrival.sig == SIGTERM;
    // A process that signals itself is quiet.
    if (isSigTerm && arrival.infoIsValid && arrival.info->si_pid == getpid()) {
        return;
    }
    hostSafePrintf("\nKS Signal Handler: Signal %d, %s Received at %d in thread %lu\n", arrival.sig,
                   isSigTerm ? "SIGTERM, Software Termination Signal" : "SIGXCPU, CPU time limit exceeded",
                   static_cast<int>(time(nullptr)), static_cast<unsigned long>(pthread_self()));
}

// Passes the signal on to the earlier handler, under the signal mask which that asked for. FALSE when there is none.
bool chainToOldHandler(struct sigaction& old, const SignalArrival& arrival) {
    const struct sigaction action = old;
    if (action.sa_handler == SIG_DFL) {
        return false;
    }
    if (!(action.sa_flags & SA_NODEFER) && !sigismember(&old.sa_mask, arrival.sig)) {
        sigaddset(&old.sa_mask, arrival.sig);
    }
    if (action.sa_flags & SA_RESETHAND) {
        old.sa_handler = SIG_DFL;
    }
    sigset_t mask;
    pthread_sigmask(SIG_SETMASK, &old.sa_mask, &mask);
    // "Ignore" has no function; the default was ruled out. A recorded HostFaultHandler is called as any other.
    if (action.sa_handler != SIG_IGN) {
        const HandlerScope::Lifted lifted;
        if (action.sa_flags & SA_SIGINFO) {
            action.sa_sigaction(arrival.sig, arrival.info, arrival.context);
        } else {
            action.sa_handler(arrival.sig);
        }
    }
    pthread_sigmask(SIG_SETMASK, &mask, nullptr);
    return true;
}

[[gnu::cold, gnu::noinline]] void abortForLackOfMemory() {
    UNIXIO_DO_SIGNAL(SIGABRT, unixioPlain(SIG_DFL), nullptr);
    char text[reportTextSize];
    printHostcallDebugger(ENOMEM, text, sizeof text);
    HostSignalSafePrint("KS signal handler: cannot safely fork() to print the C stack due to ENOMEM error.\n"
                        "   This is really a Linux bug.  See: https://sourceware.org/bugzilla/show_bug.cgi?id=4737\n");
    abort();
}

[[gnu::cold, gnu::noinline]] void endForUnhandledFault(const SignalArrival& arrival) {
    hostSafePrintf("\n\nKS Signal Handler: Unhandled signal %d, %s Received at %ld \n", arrival.sig,
                   getSignalName(arrival.sig), static_cast<long>(time(nullptr)));
    translateFaultCode(arrival);
    if (arrival.info != nullptr && arrival.info->si_errno == ENOMEM) {
        abortForLackOfMemory();
    }
    hostExitNowOrLater(hostCoredumpExit, static_cast<int>(arrival.sig == SIGQUIT), arrival);
}
} // namespace

void HostFaultHandler(int sig, siginfo_t* info, void* context) {
    const ErrnoKeeper errnoKeeper;
    const HandlerScope running;
    if (sig == SIGTERM) {
        HostIncrementSigTerm();
    }
    const SignalArrival arrival{sig, info, context, isValidInfo(sig, info)};

    bool inKcilnk = false;
    int numSegvInProgress = 0;
    struct sigaction* savedHandler = nullptr;
    if (isSynchronousFault(sig)) {
        if (hostIsExiting()) {
            hostEndExit();
        }
        if (!arrival.infoIsValid || arrival.wasSent()) {
            reportSender(arrival);
        }
        if (sig == SIGSEGV && info != nullptr && hostProtectCheck(static_cast<char*>(info->si_addr))) {
            reportGuardPageAccess(info->si_addr);
            return;
        }
        if (sig == SIGSEGV && arrival.infoIsValid && !arrival.wasSent() &&
            hostWasOpenedMeanwhile(static_cast<const char*>(info->si_addr))) {
            return;
        }
        if (hostExitsOnFault()) {
            hostExitForFault(sig);
        }
        inKcilnk = hostIsInThisLibrary(hostInstructionAddress(context));
        if (sig != SIGABRT) { // never passed on
            savedHandler = hostOldHandler(sig);
        }
        if (sig == SIGSEGV) {
            numSegvInProgress = enterSegv();
        }
    } else {
        savedHandler = hostOldHandler(sig);
    }

    bool foundSignal = true;
    switch (sig) {
    case SIGHUP:
        break;
    case SIGUSR1:
        HostSignalSafePrint("\n\nSignal SIGUSR1 received printingStack ...");
        printStacks();
        HostSignalSafePrint("\n");
        break;
    case SIGTERM:
    case SIGXCPU:
        announceTermination(arrival);
        HostSetFatalErr(TRUE);
        hostExitNowOrLater(hostPlainExit, 0, arrival);
        return;
    case SIGCHLD:
        hostReapChildren();
        return;
    default:
        foundSignal = false;
    }

    if (!inKcilnk && savedHandler != nullptr && chainToOldHandler(*savedHandler, arrival)) {
        if (numSegvInProgress >= 1) {
            HostAsmSyncCtrAdd(&segvInProgressCount, -1);
            segvNesting.depth = numSegvInProgress - 1;
        }
        return;
    }
    if (!foundSignal) {
        endForUnhandledFault(arrival);
    }
}
