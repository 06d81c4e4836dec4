#pragma once

#include <cstdint>

// The wall clock: microseconds since the epoch, also where the C library's 32-bit time ends, in January 2038.
// Signal-safe.
int64_t hostWallMicroseconds();
inline int64_t hostWallSeconds() {
    return hostWallMicroseconds() / 1000000;
}
