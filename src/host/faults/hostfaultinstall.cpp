#include "hostfault.h"

#include <atomic>
#include <cstdio>

#include "host/faults/faulthandler.h"
#include "host/faults/faultstate.h"
#include "host/report/fatalreport.h"
#include "host/signals/handlerscope.h"
#include "host/signals/unixiosignal.h"
#include "hostsignal.h"

OldHandlers oldHandlers;
std::atomic<rundownFuncType*> fileFlusherFct;
std::atomic<rundownFuncType*> shutdownFct;
std::atomic<PrintStackFuncType*> SmalltalkPrintStackFunc;

namespace {
std::atomic<BoolType> signalHandlersInstalled;
std::atomic<char*> shrMemAddr;
std::atomic<HostShrMemLostFType> shrMemFunc;

void ignoreUnlessHandled(int sig) {
    struct sigaction previous = {};
    UNIXIO_DO_SIGNAL(sig, unixioPlain(SIG_IGN), &previous);
    if (unixioIsFunction(previous))
        unixioSetAction(sig, previous);
}

// Records a signal's present action. Before the handler is installed, not by that call itself: another thread's fault,
// harmless in the hands of the earlier handler, may come at any moment.
void record(int sig) {
    if (sigaction(sig, nullptr, &oldHandlers.action[sig]) == 0)
        oldHandlers.valid[sig].store(1, std::memory_order_release);
}

void installUnlessHandled(int sig) {
    record(sig);
    struct sigaction previous = {};
    UNIXIO_DO_SIGNAL(sig, HostFaultHandler, &previous);
    if (unixioIsFunction(previous)) {
        unixioSetAction(sig, previous);
        oldHandlers.valid[sig] = 0;
    }
}
} // namespace

void hostInstallHandlerFor(int sig, Restart restart) {
    if (sig >= MAX_OLD_HANDLERS) {
        fprintf(stderr, "port error increase hostunix:MAX_OLD_HANDLERS to %d\n", sig + 1);
        HostCallDebugger();
    } else {
        record(sig);
    }
    (restart == Restart::yes ? UNIXIO_DO_SIGNAL : UNIXIO_DO_SIGNAL_noRestart)(sig, HostFaultHandler, nullptr);
}

void HostInstallFaultHandler(HostFaultFuncType* flushFiles, HostFaultFuncType* shutDown) {
    if (signalHandlersInstalled.exchange(TRUE))
        return;
    for (std::atomic<int>& valid : oldHandlers.valid)
        valid = 0;
    fileFlusherFct = flushFiles;
    shutdownFct = shutDown;
    hostLearnInstructionRange();
    hostPrepareReport();

    ignoreUnlessHandled(SIGPIPE);
    ignoreUnlessHandled(SIGHUP);
    hostInstallHandlerFor(SIGQUIT, Restart::yes);
    hostInstallHandlerFor(SIGILL, Restart::yes);
    installUnlessHandled(SIGFPE);
    hostInstallHandlerFor(SIGABRT, Restart::yes);
    hostInstallHandlerFor(SIGBUS, Restart::yes);
    hostInstallHandlerFor(SIGSEGV, Restart::yes);
    hostInstallHandlerFor(SIGTERM, Restart::no);
    hostInstallHandlerFor(SIGUSR1, Restart::yes);
    installUnlessHandled(SIGCHLD);
    hostInstallHandlerFor(SIGXFSZ, Restart::yes);
    hostInstallHandlerFor(SIGXCPU, Restart::yes);
}

void hostUnInstallFaultHandler() {
    for (int sig = 0; sig < MAX_OLD_HANDLERS; ++sig) {
        if (const struct sigaction* old = hostOldHandler(sig)) {
            unixioSetAction(sig, *old);
            oldHandlers.valid[sig] = 0;
        }
    }
}

struct sigaction* hostOldHandler(int sig) {
    if (sig < 0 || sig >= MAX_OLD_HANDLERS || !oldHandlers.valid[sig].load(std::memory_order_acquire))
        return nullptr;
    return &oldHandlers.action[sig];
}

void hostCallOldHandler(int sig, siginfo_t* info, void* context) {
    const struct sigaction* old = hostOldHandler(sig);
    if (old == nullptr || !unixioIsFunction(*old))
        return;
    const HandlerScope::Lifted lifted;
    if (old->sa_flags & SA_SIGINFO)
        old->sa_sigaction(sig, info, context);
    else
        old->sa_handler(sig);
}

void HostCheckShrMemOnFatalSignal(char* addr, HostShrMemLostFType func) {
    shrMemAddr = addr;
    shrMemFunc = func;
}

void HostSetSmalltalkPrintStackFunc(PrintStackFuncType* func) {
    SmalltalkPrintStackFunc = func;
}
