// Clock readings that the statistics line shares with the clock functions.
#pragma once

#include <sys/resource.h>
#include <sys/time.h>

// Wall-clock time at host initialisation.
timeval hostBeginTime();

// User and system time together, in milliseconds.
long hostCpuMilliseconds(const rusage& usage);
