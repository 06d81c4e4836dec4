// Clock readings that the statistics line shares with the clock functions.
#pragma once

#include <cstdint>
#include <sys/resource.h>

// The wall clock at host initialisation, in microseconds since the epoch.
int64_t hostBeginTime();

// User and system time together, in milliseconds.
long hostCpuMilliseconds(const rusage& usage);
