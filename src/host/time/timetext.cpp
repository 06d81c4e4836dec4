// Texts about time: the statistics line, dates, time stamps.
#include <atomic>
#include <cstdio>
#include <cstring>
#include <langinfo.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/time.h>

#include "host/base/boundedtext.h"
#include "host/time/hostclock.h"
#include "host/time/wallclock.h"
#include "hostenv.h"
#include "hosttime.h"

namespace {
struct ClockFields {
    int hours, minutes, seconds;
};

ClockFields clockFields(long seconds) {
    return {static_cast<int>(seconds / 3600), static_cast<int>(seconds / 60 % 60), static_cast<int>(seconds % 60)};
}

bool appendElapsed(BoundedText& line) {
    constexpr int64_t hundredth = 10000;
    const int64_t begin = hostBeginTime();
    const int64_t elapsed = hostWallMicroseconds() / hundredth - begin / hundredth;
    const ClockFields clock = clockFields(static_cast<long>(elapsed / 100));
    return line.formatWhole(" ELAPSED: %1d %02d:%02d:%02d.%02d  ", clock.hours / 24, clock.hours % 24, clock.minutes,
                            clock.seconds, static_cast<int>(elapsed % 100));
}

bool appendCpu(BoundedText& line, const rusage& usage) {
    timeval cpu;
    timeradd(&usage.ru_utime, &usage.ru_stime, &cpu);
    const ClockFields clock = clockFields(static_cast<long>(cpu.tv_sec));
    return line.formatWhole("CPU: %1d:%02d:%02d.%02d  ", clock.hours, clock.minutes, clock.seconds,
                            static_cast<int>(cpu.tv_usec / 10000));
}

constexpr size_t formatSize = 256;

void chooseDateTimeFormat(char* format) {
    constexpr unsigned longestValue = 100;
    char value[longestValue + 1];
    if (HostGetEnv("KS_CFTIME", value, longestValue)) {
        const size_t length = strlen(value);
        if (value[length - 1] == 'S') {
            memcpy(format, value, length + 1);
            return;
        }
        printf("\n[WARNING]: Invalid $KS_CFTIME: '%s', using default.\n", value);
    }
    snprintf(format, formatSize, "%s %s", nl_langinfo(D_FMT), nl_langinfo(T_FMT));
}
} // namespace

void HostStatistics(char* buf, unsigned size) {
    if (size == 0) {
        return;
    }
    BoundedText line(buf, size);
    rusage usage;
    (void)(appendElapsed(line) && getrusage(RUSAGE_SELF, &usage) == 0 && appendCpu(line, usage) &&
           line.formatWhole("FAULTS: %ld  ", usage.ru_majflt) && line.formatWhole("FIOIN: %ld  ", usage.ru_inblock) &&
           line.formatWhole("FIOOUT: %ld ", usage.ru_oublock));
}

const char* HostDateTimeFormat() {
    static std::atomic<const char*> known;
    if (const char* format = known; format != nullptr) {
        return format;
    }
    // Memory of its own for every thread that comes first, neither a lock nor the heap: the fatal report may have
    // interrupted whoever has those.
    void* const page = mmap(nullptr, formatSize, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (page == MAP_FAILED) {
        return "%D %T";
    }
    chooseDateTimeFormat(static_cast<char*>(page));
    const char* format = nullptr;
    if (known.compare_exchange_strong(format, static_cast<const char*>(page))) {
        return static_cast<const char*>(page);
    }
    munmap(page, formatSize);
    return format;
}

const char* UtlCtime(time_t t, char* buf, unsigned size) {
    tm local;
    if (size != 0 && (localtime_r(&t, &local) == nullptr || strftime(buf, size, HostDateTimeFormat(), &local) == 0)) {
        buf[0] = '\0';
    }
    return buf;
}

void UtlTimeStampMs_s(FILE* f, const char* text, int) {
    time_t seconds = 0;
    unsigned short milliseconds = 0;
    HostFtime(&seconds, &milliseconds);
    char date[256];
    fprintf(f, "[%s.%03d] %s", UtlCtime(seconds, date, sizeof date), milliseconds, text);
}
