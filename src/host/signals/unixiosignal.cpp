// May run in a signal handler: no lock, no stdio stream, no allocation, unless sigaction fails.
#include "host/signals/unixiosignal.h"

#include <cerrno>
#include <cstdio>

#include "host/base/guarantee.h"
#include "hostsignal.h"

namespace {
constexpr char utlModule[] = "hostunix";

void install(int sig, UnixIoSignalHandlerFuncType* handler, struct sigaction* previous, int flags) {
    struct sigaction action = {};
    action.sa_sigaction = handler;
    action.sa_flags = SA_SIGINFO | flags;
    sigfillset(&action.sa_mask);
    unixioSetAction(sig, action, previous);
}
} // namespace

void unixioSetAction(int sig, const struct sigaction& action, struct sigaction* previous) {
    if (sigaction(sig, &action, previous) != 0) {
        printf("sigaction failed for sig %d with errno %d\n", sig, errno);
        UTL_GUARANTEE(false);
    }
}

void UNIXIO_DO_SIGNAL_(int sig, UnixIoSignalHandlerFuncType* handler, struct sigaction* previous, int extraFlags) {
    install(sig, handler, previous, SA_RESTART | extraFlags);
}

void UNIXIO_DO_SIGNAL(int sig, UnixIoSignalHandlerFuncType* handler, struct sigaction* previous) {
    install(sig, handler, previous, SA_RESTART);
}

void UNIXIO_DO_SIGNAL_noRestart(int sig, UnixIoSignalHandlerFuncType* handler, struct sigaction* previous) {
    install(sig, handler, previous, 0);
}

void UNIXIO_DO_SIGNAL_1ARG(int sig, void (*handler)(int), struct sigaction* previous) {
    struct sigaction action = {};
    action.sa_handler = handler;
    action.sa_flags = SA_RESTART;
    sigfillset(&action.sa_mask);
    unixioSetAction(sig, action, previous);
}
