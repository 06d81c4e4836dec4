#include "host/time/hostlocaltime.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <limits>
#include <pthread.h>

namespace {
// A time from which on the zone's offset is another one.
struct Span {
    int64_t begin;
    // As localtime_r has them at that time. The C library keeps the names of zones for ever.
    long offset;
    int daylightSaving;
    const char* zone;

    bool sameAs(const Span& other) const {
        return offset == other.offset && daylightSaving == other.daylightSaving && zone == other.zone;
    }
};

// Two a year are usual, four occur.
std::array<Span, 48> spans;
std::atomic<size_t> spanCount;

Span spanAt(int64_t seconds) {
    const time_t t = static_cast<time_t>(seconds);
    tm local{};
    localtime_r(&t, &local);
    return {seconds, local.tm_gmtoff, local.tm_isdst, local.tm_zone};
}

void learn() {
    constexpr int64_t week = 7 * 24 * 60 * 60;
    constexpr int64_t tenYears = 522 * week;
    tzset();
    int64_t known = time(nullptr);
    const int64_t end = std::min<int64_t>(known + tenYears, std::numeric_limits<time_t>::max());
    spans[0] = spanAt(known);
    size_t count = 1;
    while (known < end && count < spans.size()) {
        const Span& last = spans[count - 1];
        int64_t other = std::min(known + week, end);
        if (spanAt(other).sameAs(last)) {
            known = other;
            continue;
        }
        while (other - known > 1) {
            const int64_t middle = known + (other - known) / 2;
            (spanAt(middle).sameAs(last) ? known : other) = middle;
        }
        spans[count++] = spanAt(other);
        known = other;
    }
    spanCount.store(count, std::memory_order_release);
}
} // namespace

void hostLearnLocalTime() {
    static pthread_once_t once = PTHREAD_ONCE_INIT;
    pthread_once(&once, learn);
}

tm hostLocalTime(time_t t) {
    namespace chrono = std::chrono;
    tm local{};
    const size_t count = spanCount.load(std::memory_order_acquire);
    if (count == 0) {
        localtime_r(&t, &local);
        return local;
    }
    size_t index = count - 1;
    while (index > 0 && spans[index].begin > t) {
        --index;
    }
    const Span& span = spans[index];
    const chrono::sys_seconds shown{chrono::seconds(static_cast<int64_t>(t) + span.offset)};
    const auto day = chrono::floor<chrono::days>(shown);
    const chrono::year_month_day date(day);
    const chrono::hh_mm_ss clock(shown - day);
    local.tm_year = static_cast<int>(date.year()) - 1900;
    local.tm_mon = static_cast<int>(static_cast<unsigned>(date.month())) - 1;
    local.tm_mday = static_cast<int>(static_cast<unsigned>(date.day()));
    local.tm_yday = static_cast<int>((day - chrono::sys_days(date.year() / 1 / 1)).count());
    local.tm_wday = static_cast<int>(chrono::weekday(day).c_encoding());
    local.tm_hour = static_cast<int>(clock.hours().count());
    local.tm_min = static_cast<int>(clock.minutes().count());
    local.tm_sec = static_cast<int>(clock.seconds().count());
    local.tm_isdst = span.daylightSaving;
    local.tm_gmtoff = span.offset;
    local.tm_zone = span.zone;
    return local;
}
