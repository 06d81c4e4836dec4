// What a process that HostFork or HostForkServer starts does between fork and exec.
#pragma once

#include <csignal>
#include <sys/types.h>

#include "kcitypes.h"

#pragma GCC visibility push(hidden)

class ForkEnvironment;

// All that the child has to know. What the system's databases, the time zone and the environment tell is looked up
// before the fork: the look-up takes locks of the C library, and a thread that is not there in the child might hold
// them.
struct ForkChildPlan {
    const char* command;
    const char* workingDir; // pattern or null
    const char* logName;    // pattern or null; workers only
    const char* clientHost; // or null; workers only
    int readinessPipe;      // the end that a server writes to, -1 for a worker
    bool waitsForDebugger;

    // Whose process it is.
    bool forUser;         // a user was named: ids, environment and log are the user's
    const char* userName; // of the user, or of this process's; null when that is not known
    const char* home;     // likewise
    uid_t uid;
    gid_t gid;
    bool setsGroups;
    const gid_t* groups;
    size_t groupCount;

    sigset_t callersMask; // signals are blocked in the child until it has dropped the handlers
    ForkEnvironment* environment;
    char date[16]; // YYYY-MM-DD, empty when not known
};

// Becomes the process that was planned, or says what failed and ends with status 3.
[[noreturn]] void runForkChild(const ForkChildPlan& plan);

#pragma GCC visibility pop
