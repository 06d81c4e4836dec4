// What the fault handler and the fatal report share: set by ordinary code, read in signal handlers.
#pragma once

#include <array>
#include <atomic>
#include <csignal>

#include "hostdebug.h"
#include "hostfault.h"

// Signal numbers whose earlier actions can be remembered: 0 to one below.
constexpr int MAX_OLD_HANDLERS = 50;

struct OldHandlers {
    std::array<struct sigaction, MAX_OLD_HANDLERS> action;
    // 1 where an action is recorded. Written after the action, read before it.
    std::array<std::atomic<int>, MAX_OLD_HANDLERS> valid;
};
extern OldHandlers oldHandlers;

// Installs HostFaultHandler and records the earlier action. Restart: whether the signal lets system calls go on.
enum class Restart { yes, no };
void hostInstallHandlerFor(int sig, Restart restart);

// The recorded action of a signal, or NULL.
struct sigaction* hostOldHandler(int sig);

// Calls a signal's recorded action when it is a function, with the arguments that its flags ask for.
void hostCallOldHandler(int sig, siginfo_t* info, void* context);

extern std::atomic<rundownFuncType*> fileFlusherFct;
extern std::atomic<rundownFuncType*> shutdownFct;
extern std::atomic<PrintStackFuncType*> SmalltalkPrintStackFunc;
extern std::atomic<BoolType> HostFatalErr;

template <typename Function>
void hostCallIfSet(const std::atomic<Function>& function) {
    if (const Function f = function)
        f();
}

// Host initialisation: the exit modes are off, no fatal-report hook is set.
void hostClearExitModes();
void hostClearFatalReportHandler();
