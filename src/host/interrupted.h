#pragma once

#include <cerrno>

// A signal ended a system call. ERESTART is kernel-internal on Linux, yet some foreign layers let it through.
inline bool hostWasInterrupted(int error) {
    return error == EINTR || error == ERESTART;
}
