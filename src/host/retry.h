#pragma once

#include <cerrno>

#include "hostsignal.h"

// Whether a system call that has just failed is to be made again: a signal interrupted it, and no SIGTERM waits for
// this process to stop. errno is kept. ERESTART is the kernel's own, yet some foreign layers let it through.
inline bool shouldRetry(const char* file = __builtin_FILE(), int line = __builtin_LINE()) {
    return (errno == EINTR || errno == ERESTART) && HostGetSigTerm(file, line) == 0;
}
