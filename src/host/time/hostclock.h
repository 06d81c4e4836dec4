// Clock readings that host initialisation and the statistics line share with the clock functions.
#pragma once

#include <cstdint>
#include <sys/resource.h>

#pragma GCC visibility push(hidden)

// Records the clocks anew. Without it they are recorded on first use, thread-safely.
void hostStartClocks();

// The wall clock at host initialisation, in microseconds since the epoch.
int64_t hostBeginTime();

// User and system time together, in milliseconds.
long hostCpuMilliseconds(const rusage& usage);

#pragma GCC visibility pop
