// The environment of a process that is about to be started.
#pragma once

#include <cstddef>

#include "host/processes/forkchild.h"

#pragma GCC visibility push(hidden)

// A copy of this process's environment, with changes. Made before the fork: in the child, the C library's functions
// would wait for ever for a lock that a thread of the parent held.
class ForkEnvironment {
public:
    ForkEnvironment() = default;
    ~ForkEnvironment();
    ForkEnvironment(const ForkEnvironment&) = delete;
    ForkEnvironment& operator=(const ForkEnvironment&) = delete;

    // Copies the environment and makes the changes that the plan asks for. FALSE without memory.
    bool prepare(const ForkChildPlan& plan);

    // Sets one variable. FALSE without memory. Takes no lock but the heap's, which a fork leaves usable.
    bool set(const char* name, const char* value);

    // As environ has them.
    char** variables() { return entries; }

private:
    bool copy();
    bool extendNameResolution(const char* workingDir);

    static constexpr size_t mostChanges = 8;
    char** entries = nullptr;
    size_t count = 0;
    char* changes[mostChanges];
    size_t changeCount = 0;
};

#pragma GCC visibility pop
