#include "hosttime.h"

#include <cerrno>
#include <chrono>
#include <climits>
#include <clocale>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <gtest/gtest.h>
#include <poll.h>
#include <regex>
#include <string>
#include <sys/syscall.h>
#include <sys/time.h>
#include <unistd.h>

#include "host/time/hostlocaltime.h"
#include "hostunix.h"
#include "support/expect.h"
#include "utlhost.h"

namespace {
int (*pollInstead)() = nullptr;
} // namespace

// Stands in for the C library's: poll on no descriptors never fails by itself except with EINTR.
extern "C" int poll(pollfd* descriptors, nfds_t count, int milliseconds) {
    if (pollInstead != nullptr && count == 0)
        return pollInstead();
    return static_cast<int>(syscall(SYS_poll, descriptors, count, milliseconds));
}

#if defined(__i386__)
namespace {
int pollCount = 0;
int64_t secondsInstead = 0; // of the wall clock
} // namespace

// The C library's clock_gettime with seconds of 64 bits.
struct WideTime {
    int64_t seconds;
    int64_t nanoseconds;
};
extern "C" int __clock_gettime64(clockid_t clock, WideTime* now) {
    const long result = syscall(SYS_clock_gettime64, clock, now);
    if (secondsInstead != 0 && clock == CLOCK_REALTIME)
        *now = {secondsInstead, 0};
    return static_cast<int>(result);
}

TEST(HostSleep, GoesOnBeyondJanuary2038) {
    secondsInstead = (int64_t{1} << 31) - 3;
    char line[400];
    HostStatistics(line, sizeof line);
    pollInstead = [] {
        secondsInstead += 5;
        return ++pollCount < 10 ? errno = EINTR, -1 : 0;
    };
    HostSleep(9);
    EXPECT_EQ(pollCount, 2);
    HostStatistics(line, sizeof line);
    EXPECT_TRUE(std::string(line).starts_with(" ELAPSED: 0 00:00:10.00  ")) << line;
}
#endif

namespace {
using std::chrono::milliseconds;

milliseconds timeOf(void (*call)()) {
    const auto start = std::chrono::steady_clock::now();
    call();
    return std::chrono::duration_cast<milliseconds>(std::chrono::steady_clock::now() - start);
}

// A signal comes 200 ms from now.
void interruptWith(sighandler_t handler) {
    signal(SIGALRM, handler);
    const itimerval in200ms{{0, 0}, {0, 200000}};
    setitimer(ITIMER_REAL, &in200ms, nullptr);
}
void countSigTerm(int) {
    HostIncrementSigTerm();
}
void doNothing(int) {}

TEST(HostSleep, Lengths) {
    const struct {
        void (*sleep)();
        int shortest, longest; // milliseconds
    } cases[] = {
        {[] { HostMilliSleep(1150); }, 1150, 1899},
        {[] { HostNanoSleep(30000000); }, 30, 779},
        // Any signal ends what is left of a second. Whole seconds go on, unless it is a SIGTERM; the deadline counts in
        // seconds of the clock, so up to one may be missing.
        {[] { interruptWith(doNothing), HostMilliSleep(999); }, 150, 899},
        {[] { interruptWith(doNothing), HostSleep(2); }, 1000, 2749},
        {[] { interruptWith(countSigTerm), HostSleep(60); }, 150, 10000},
    };
    testing::internal::CaptureStderr();
    for (const auto& c : cases) {
        const auto took = timeOf(c.sleep).count();
        EXPECT_GE(took, c.shortest);
        EXPECT_LT(took, c.longest);
    }
    const std::string text = testing::internal::GetCapturedStderr();
    expectHas(text, "^HostGetSigTerm: got sig term at hosttime\\.cpp line [0-9]+ by tid [0-9]+\n$");
    EXPECT_EQ(HostClearSigTerm(), 1);
    EXPECT_EQ(HostGetSigTerm("x", 1), 0);
}

TEST(HostSleep, UnexpectedAnswersOfPoll) {
    const struct {
        void (*sleep)(unsigned);
        int (*answer)();
        const char* text;
    } cases[] = {
        {HostSleep, [] { return 3; }, "HostSleep: unexpected result 3!\n"},
        {HostMilliSleep, [] { return errno = EINVAL, -1; }, "HostMilliSleep: unexpected error 22!\n"},
        {HostMilliSleep, [] { return errno = ERESTART, -1; }, ""},
    };
    for (const auto& c : cases) {
        testing::internal::CaptureStderr();
        pollInstead = c.answer;
        c.sleep(9);
        pollInstead = nullptr;
        EXPECT_EQ(testing::internal::GetCapturedStderr(), c.text);
    }
}

TEST(HostClocks, StartAtHostInitialisation) {
    const double before = HostGetCpuTime();
    while (HostGetCpuTime() < before + 0.2) {
    }
    EXPECT_GE(HostClock(), 180); // what is waited for counts in ticks of ten milliseconds
    EXPECT_LT(HostClock(), 2000);
    HostInit();
    EXPECT_LT(HostClock(), 100);
}

TEST(HostInit, ChangesWhatItSays) {
    setenv("LC_ALL", "C.UTF-8", 1);
    sigset_t mask;
    sigfillset(&mask);
    sigprocmask(SIG_SETMASK, &mask, nullptr);
    for (const char* locale : {"C.UTF-8", "C"}) { // the second time nothing but noHalt changes
        setlocale(LC_ALL, "C");
        noHalt = TRUE;
        HostInit();
        EXPECT_EQ(noHalt, FALSE);
        EXPECT_STREQ(setlocale(LC_ALL, nullptr), locale);
    }
    sigprocmask(SIG_SETMASK, nullptr, &mask);
    EXPECT_TRUE(sigisemptyset(&mask));
}

TEST(HostStatistics, WholePiecesOnly) {
    const std::regex whole("( ELAPSED: 0 00:00:0[0-9]\\.[0-9]{2}  )(CPU: 0:00:[0-9]{2}\\.[0-9]{2}  )(FAULTS: [0-9]+  )"
                           "(FIOIN: [0-9]+  )(FIOOUT: [0-9]+ )");
    char line[400];
    HostStatistics(line, sizeof line);
    std::cmatch pieces;
    ASSERT_TRUE(std::regex_match(line, pieces, whole)) << line;
    size_t fitting = 0, next = 1;
    for (unsigned size = 1; size <= strlen(line) + 1; ++size) {
        if (next < pieces.size() && fitting + pieces.length(next) < size)
            fitting += pieces.length(next++);
        char shorter[401];
        shorter[size] = 'Z';
        HostStatistics(shorter, size);
        EXPECT_EQ(strlen(shorter), fitting) << size;
        EXPECT_EQ(shorter[size], 'Z');
    }
    HostStatistics(nullptr, 0);
}

TEST(HostDateTimeFormat, FromTheEnvironmentWhenItEndsInSeconds) {
    const std::string longest = std::string(98, 'x') + "%S";
    const struct {
        std::string value, format, out;
    } cases[] = {
        {"%H:%M", "%m/%d/%y %H:%M:%S", "^\n\\[WARNING\\]: Invalid \\$KS_CFTIME: '%H:%M', using default.\n$"},
        {longest, longest, "^$"},
    };
    for (const auto& c : cases) {
        const auto body = [&] {
            setenv("KS_CFTIME", c.value.c_str(), 1);
            EXPECT_STREQ(HostDateTimeFormat(), c.format.c_str());
        };
        expectGoodInChild(body, "", c.out);
    }
}

TEST(HostTimeZone, SecondsWestOfUtc) {
    constexpr time_t january = 1768471445; // 2026-01-15 10:04:05 UTC
    constexpr time_t july = 1784109845;    // 2026-07-15 10:04:05 UTC
    const struct {
        const char* zone;
        time_t time;
        long west;
        const char* text;
    } cases[] = {
        {"UTC0", july, 0, "2026-07-15 10:04:05"},
        {"EST5EDT,M3.2.0,M11.1.0", january, 18000, "2026-01-15 05:04:05"},
        {"EST5EDT,M3.2.0,M11.1.0", july, 14400, "2026-07-15 06:04:05"},
        {"Lord-10:30Howe-11,M10.1.0,M4.1.0", july, -37800, "2026-07-15 20:34:05"},
    };
    setenv("KS_CFTIME", "%Y-%m-%d %H:%M:%S", 1);
    for (const auto& c : cases) {
        setenv("TZ", c.zone, 1);
        // What the fatal report goes by, nine years on.
        expectGoodInChild([] {
            hostLearnLocalTime();
            const time_t now = time(nullptr);
            for (time_t t = now; t - now < 9 * 365 * 86400; t += 1799) {
                tm expected{};
                localtime_r(&t, &expected);
                const tm local = hostLocalTime(t);
                ASSERT_EQ(memcmp(&local, &expected, sizeof local), 0) << t << ": " << asctime(&local);
            }
        });
        time_t time = c.time;
        EXPECT_EQ(HostTIMEZONE(&time), c.west) << c.zone;
        char text[64];
        EXPECT_STREQ(UtlCtime(time, text, sizeof text), c.text) << c.zone;
    }
    expectGoodInChild([] { UtlTimeStampMs_s(stdout, "100%s of it\n", 0); }, "",
                      R"(^\[\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{3}\] 100%s of it\n$)");
}
} // namespace
