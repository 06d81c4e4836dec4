// What a fatal report calls and marks: set by ordinary code, read in signal handlers.
#pragma once

#include <atomic>

#include "hostdebug.h"

#pragma GCC visibility push(hidden)

extern std::atomic<rundownFuncType*> fileFlusherFct;
extern std::atomic<rundownFuncType*> shutdownFct;
extern std::atomic<PrintStackFuncType*> SmalltalkPrintStackFunc;
extern std::atomic<BoolType> HostFatalErr;

template <typename Function>
void hostCallIfSet(const std::atomic<Function>& function) {
    if (const Function f = function) {
        f();
    }
}

#pragma GCC visibility pop
