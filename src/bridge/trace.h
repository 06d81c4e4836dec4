// Trace lines on standard output. A flag that is off costs one branch: arguments are not even evaluated.
#ifndef TMQKCI_BRIDGE_TRACE_H
#define TMQKCI_BRIDGE_TRACE_H

#include "kcitypes.h"

// Raised by _initialize, never cleared.
extern BoolType Debug;
extern BoolType Info;

#define TRACE_DEBUG(...)                                                                                               \
    do {                                                                                                               \
        if (Debug) [[unlikely]] {                                                                                      \
            traceLine("[DEBUGC] ", __VA_ARGS__);                                                                       \
        }                                                                                                              \
    } while (0)

#define TRACE_INFO(...)                                                                                                \
    do {                                                                                                               \
        if (Info) [[unlikely]] {                                                                                       \
            traceLine("[ INFO ] ", __VA_ARGS__);                                                                       \
        }                                                                                                              \
    } while (0)

// Writes the prefix and the formatted message, then flushes standard output.
[[gnu::cold, gnu::format(printf, 2, 3)]] void traceLine(const char* prefix, const char* format, ...);

#endif
