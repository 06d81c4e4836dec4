// May run in a signal handler: no lock, no stdio stream, no allocation, unless sigaction fails.
#include "hostsignal.h"

#include <cerrno>
#include <cstdio>

#include "host/guarantee.h"

namespace {
constexpr char utlModule[] = "hostunix";

void changeAction(int sig, struct sigaction& action, struct sigaction* previous) {
    sigfillset(&action.sa_mask);
    if (sigaction(sig, &action, previous) != 0) {
        printf("sigaction failed for sig %d with errno %d\n", sig, errno);
        UTL_GUARANTEE(false);
    }
}

void changeAction3(int sig, UnixIoSignalHandlerFuncType* handler, struct sigaction* previous, int flags) {
    struct sigaction action = {};
    action.sa_sigaction = handler;
    action.sa_flags = SA_SIGINFO | flags;
    changeAction(sig, action, previous);
}
} // namespace

void UNIXIO_DO_SIGNAL_(int sig, UnixIoSignalHandlerFuncType* handler, struct sigaction* previous, int extraFlags) {
    changeAction3(sig, handler, previous, SA_RESTART | extraFlags);
}

void UNIXIO_DO_SIGNAL(int sig, UnixIoSignalHandlerFuncType* handler, struct sigaction* previous) {
    changeAction3(sig, handler, previous, SA_RESTART);
}

void UNIXIO_DO_SIGNAL_noRestart(int sig, UnixIoSignalHandlerFuncType* handler, struct sigaction* previous) {
    changeAction3(sig, handler, previous, 0);
}

void UNIXIO_DO_SIGNAL_1ARG(int sig, void (*handler)(int), struct sigaction* previous) {
    struct sigaction action = {};
    action.sa_handler = handler;
    action.sa_flags = SA_RESTART;
    changeAction(sig, action, previous);
}
