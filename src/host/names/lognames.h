// The expansion of log-name patterns with values that were obtained beforehand.
#pragma once

#include "kcitypes.h"

#pragma GCC visibility push(hidden)

struct LogNameValues {
    const char* program;
    const char* user;
    const char* home;
    const char* date; // YYYY-MM-DD
    // What is NULL is this process's own, and looked up. Otherwise it is not known, and its letter has no expansion.
    bool looksUp;
};

// As UtlExpandLogName. Without looking up it takes no lock of the C library.
BoolType hostExpandLogName(const char* pattern, const LogNameValues& values, char* dst, unsigned size);

#pragma GCC visibility pop
