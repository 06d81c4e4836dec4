#include "host/time/hostclock.h"

#include <cstdint>
#include <pthread.h>
#include <sys/times.h>
#include <unistd.h>

#include "host/time/wallclock.h"
#include "hosttime.h"

namespace {
int64_t beginTp; // microseconds
long initialCpuClockReading;
double sc_clk_tck;

pthread_once_t clocksOnce = PTHREAD_ONCE_INIT;

void recordClocks() {
    beginTp = hostWallMicroseconds();
    rusage usage;
    initialCpuClockReading = getrusage(RUSAGE_SELF, &usage) == 0 ? hostCpuMilliseconds(usage) : 0;
    sc_clk_tck = static_cast<double>(sysconf(_SC_CLK_TCK));
}
} // namespace

void hostStartClocks() {
    pthread_once(&clocksOnce, recordClocks);
    recordClocks();
}

int64_t hostBeginTime() {
    pthread_once(&clocksOnce, recordClocks);
    return beginTp;
}

long hostCpuMilliseconds(const rusage& usage) {
    const int64_t seconds = static_cast<int64_t>(usage.ru_utime.tv_sec) + usage.ru_stime.tv_sec;
    const int64_t microseconds = static_cast<int64_t>(usage.ru_utime.tv_usec) + usage.ru_stime.tv_usec;
    return static_cast<long>(seconds * 1000 + microseconds / 1000);
}

long HostClock() {
    pthread_once(&clocksOnce, recordClocks);
    rusage usage;
    if (getrusage(RUSAGE_SELF, &usage) != 0) {
        return -1;
    }
    return hostCpuMilliseconds(usage) - initialCpuClockReading;
}

double HostGetCpuTime() {
    pthread_once(&clocksOnce, recordClocks);
    tms ticks;
    times(&ticks);
    return static_cast<double>(ticks.tms_utime + ticks.tms_stime) / sc_clk_tck;
}
