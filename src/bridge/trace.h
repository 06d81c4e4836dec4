// Trace lines on standard output. A flag that is off costs one branch: arguments are not even evaluated.
#pragma once

#include "kcitypes.h"

#include <jni.h>

#include <cstdint>

#pragma GCC visibility push(hidden)

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

// An identifier as the client's signed long, the way traces show it.
inline long shown(OopType oop) {
    return static_cast<KciLong>(oop);
}
// A Java reference as traces show it.
inline long long referenceValue(jobject reference) {
    return static_cast<long long>(reinterpret_cast<intptr_t>(reference));
}

#pragma GCC visibility pop
