// May run in a signal handler: no lock, no stdio stream, no allocation.
#include "hostsignal.h"

#include <atomic>

#include "host/base/errnokeeper.h"
#include "host/signals/unixiosignal.h"

namespace {
std::atomic<BoolType> interruptsAreDisabled;
} // namespace

void HostIgnoreSigTerm() {
    UNIXIO_DO_SIGNAL(SIGTERM, unixioPlain(SIG_IGN), nullptr);
}

void HostIgnoreSigIo() {
    UNIXIO_DO_SIGNAL(SIGIO, unixioPlain(SIG_IGN), nullptr);
}

void HostEnableKbInt(HostKbIntFuncType func) {
    struct sigaction previous = {};
    UNIXIO_DO_SIGNAL(SIGINT, unixioPlain(SIG_IGN), &previous);
    if (previous.sa_handler != SIG_IGN) {
        UNIXIO_DO_SIGNAL_1ARG(SIGINT, func, nullptr);
    }
}

void HostDisableInterrupts() {
    if (interruptsAreDisabled) {
        return;
    }
    const ErrnoKeeper errnoKeeper;
    sigset_t all;
    sigfillset(&all);
    sigprocmask(SIG_BLOCK, &all, nullptr);
    interruptsAreDisabled = TRUE;
}

void HostEnableInterrupts() {
    if (!interruptsAreDisabled) {
        return;
    }
    const ErrnoKeeper errnoKeeper;
    // First: a signal that is delivered by the next call finds them enabled.
    interruptsAreDisabled = FALSE;
    sigset_t noInterrupts;
    sigemptyset(&noInterrupts);
    sigprocmask(SIG_SETMASK, &noInterrupts, nullptr);
}
