#include "hostfault.h"

#include <atomic>
#include <cstdio>

#include "host/faults/earlieractions.h"
#include "host/faults/hostfaultinstall.h"
#include "host/faults/instructionrange.h"
#include "host/report/reporthooks.h"
#include "host/report/reportneeds.h"
#include "host/signals/unixiosignal.h"
#include "hostsignal.h"

namespace {
std::atomic<BoolType> signalHandlersInstalled;
std::atomic<char*> shrMemAddr;
std::atomic<HostShrMemLostFType> shrMemFunc;

void ignoreUnlessHandled(int sig) {
    struct sigaction previous = {};
    UNIXIO_DO_SIGNAL(sig, unixioPlain(SIG_IGN), &previous);
    if (unixioIsFunction(previous)) {
        unixioSetAction(sig, previous);
    }
}

void installUnlessHandled(int sig) {
    hostRecordAction(sig);
    struct sigaction previous = {};
    UNIXIO_DO_SIGNAL(sig, HostFaultHandler, &previous);
    if (unixioIsFunction(previous)) {
        unixioSetAction(sig, previous);
        hostForgetAction(sig);
    }
}
} // namespace

void hostInstallHandlerFor(int sig, Restart restart) {
    if (sig >= MAX_OLD_HANDLERS) {
        fprintf(stderr, "port error increase hostunix:MAX_OLD_HANDLERS to %d\n", sig + 1);
        HostCallDebugger();
    } else {
        hostRecordAction(sig);
    }
    (restart == Restart::yes ? UNIXIO_DO_SIGNAL : UNIXIO_DO_SIGNAL_noRestart)(sig, HostFaultHandler, nullptr);
}

void HostInstallFaultHandler(HostFaultFuncType* flushFiles, HostFaultFuncType* shutDown) {
    if (signalHandlersInstalled.exchange(TRUE)) {
        return;
    }
    hostForgetActions();
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
            hostForgetAction(sig);
        }
    }
}

void HostCheckShrMemOnFatalSignal(char* addr, HostShrMemLostFType func) {
    shrMemAddr = addr;
    shrMemFunc = func;
}
