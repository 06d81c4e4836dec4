#include "host/signals/exitlimit.h"

#include <atomic>
#include <csignal>
#include <cstdlib>
#include <pthread.h>
#include <unistd.h>

#include "host/signals/handlerscope.h"
#include "hostsignal.h"
#include "utlexit.h"

namespace {
// The exit under way in a signal handler.
std::atomic<pid_t> exitingThread;
int exitingCode;

// Gives the exit handlers, which are about to run in this signal handler, ten seconds: they may wait for what the
// signal interrupted. After that, or when they fault or abort, the process ends with the code all the same.
void limitExit(int code) {
    constexpr unsigned longestExitSeconds = 10;
    exitingCode = code;
    exitingThread = gettid();
    constexpr auto end = [](int) { hostEndExit(); };
    for (const int sig : {SIGALRM, SIGABRT}) {
        UNIXIO_DO_SIGNAL_1ARG(sig, end, nullptr);
    }
    sigset_t open;
    sigemptyset(&open);
    for (const int sig : {SIGALRM, SIGABRT, SIGSEGV, SIGBUS, SIGILL}) {
        sigaddset(&open, sig);
    }
    alarm(longestExitSeconds);
    pthread_sigmask(SIG_UNBLOCK, &open, nullptr);
}
} // namespace

bool hostIsExiting() {
    const pid_t thread = exitingThread;
    return thread != 0 && thread == gettid();
}

void hostEndExit() {
    HostSignalSafePrint("KS Signal Handler: the exit handlers did not come to their end\n");
    _exit(exitingCode);
}

void UtlExit(int code) {
    if (HandlerScope::isActive()) {
        limitExit(code);
    }
    exit(code);
}
