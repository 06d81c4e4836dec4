// System calls that a signal interrupts. Signal-safe.
#pragma once

#include <cerrno>

#include "hostsignal.h"

// A signal ended a system call. ERESTART is kernel-internal on Linux, yet some foreign layers let it through.
inline bool hostWasInterrupted(int error) {
    return error == EINTR || error == ERESTART;
}

// Whether a system call that has just failed is to be made again: a signal interrupted it, and no SIGTERM waits for
// this process to stop. errno is kept.
inline bool shouldRetry(const char* file = __builtin_FILE(), int line = __builtin_LINE()) {
    return hostWasInterrupted(errno) && HostGetSigTerm(file, line) == 0;
}
