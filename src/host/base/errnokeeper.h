#pragma once

#include <cerrno>

// At the end of its scope, errno is what it was at the beginning, or what `value` was set to meanwhile. Signal-safe.
class ErrnoKeeper {
public:
    ErrnoKeeper() = default;
    ~ErrnoKeeper() { errno = value; }
    ErrnoKeeper(const ErrnoKeeper&) = delete;
    ErrnoKeeper& operator=(const ErrnoKeeper&) = delete;

    int value = errno;
};
