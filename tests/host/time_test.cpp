#include "hosttime.h"

#include <array>
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

#include "hostunix.h"
#include "support/child.h"
#include "utlhost.h"

namespace {
int (*pollInstead)() = nullptr;
}

// Stands in for the C library's: poll on no descriptors never fails by itself except with EINTR.
extern "C" int poll(pollfd* descriptors, nfds_t count, int milliseconds) {
    if (pollInstead != nullptr && count == 0)
        return pollInstead();
    return static_cast<int>(syscall(SYS_poll, descriptors, count, milliseconds));
}

namespace {
using std::chrono::milliseconds;

// How long a call takes when a signal comes 200 ms after its start.
milliseconds timeInterrupted(void (*call)(), void (*handler)(int)) {
    struct sigaction action {};
    action.sa_handler = handler;
    sigaction(SIGALRM, &action, nullptr);
    const itimerval in200ms{{0, 0}, {0, 200000}};
    const auto start = std::chrono::steady_clock::now();
    setitimer(ITIMER_REAL, &in200ms, nullptr);
    call();
    return std::chrono::duration_cast<milliseconds>(std::chrono::steady_clock::now() - start);
}

void countSigTerm(int) {
    HostIncrementSigTerm();
}
void doNothing(int) {}

TEST(HostSleep, OnlySigTermEndsIt) {
    // The deadline counts in whole seconds of the clock, so up to one may be missing.
    EXPECT_GE(timeInterrupted([] { HostSleep(2); }, doNothing).count(), 1000);
    testing::internal::CaptureStderr();
    EXPECT_LT(timeInterrupted([] { HostSleep(60); }, countSigTerm).count(), 10000);
    const std::string text = testing::internal::GetCapturedStderr();
    EXPECT_TRUE(std::regex_match(
        text, std::regex("HostGetSigTerm: got sig term at hosttime\\.cpp line [0-9]+ by tid [0-9]+\n")))
        << text;
    EXPECT_EQ(HostGetSigTerm_(), 1);
    EXPECT_EQ(HostClearSigTerm(), 1);
    EXPECT_EQ(HostGetSigTerm("x", 1), 0);
}

TEST(HostSleep, LengthsOfSleeps) {
    struct Case {
        void (*sleep)();
        int shortest, longest; // milliseconds
    };
    constexpr int late = 900;
    for (const Case& c : std::array<Case, 9>{{
             {[] { HostSleep(0); }, 0, late},
             {[] { HostMilliSleep(0); }, 0, late},
             {[] { HostMilliSleep(120); }, 120, 120 + late},
             {[] { HostMilliSleep(1150); }, 1150, 1150 + late},
             {[] { HostNanoSleep(999999); }, 0, late},
             {[] { HostNanoSleep(30000000); }, 30, 30 + late},
             {[] { HostNanoSleep(-1); }, 0, late},
             {[] { HostNanoSleep(LLONG_MIN); }, 0, late},
             // Any signal ends what is left of a second.
             {[] { timeInterrupted([] { HostMilliSleep(999); }, doNothing); }, 150, 900},
         }}) {
        const auto start = std::chrono::steady_clock::now();
        c.sleep();
        const auto took = std::chrono::duration_cast<milliseconds>(std::chrono::steady_clock::now() - start).count();
        EXPECT_GE(took, c.shortest);
        EXPECT_LT(took, c.longest);
    }
}

TEST(HostSleep, UnexpectedAnswersOfPoll) {
    struct Case {
        void (*sleep)();
        int (*answer)();
        const char* text;
    };
    const auto failing = [] {
        errno = EINVAL;
        return -1;
    };
    for (const Case& c : std::array<Case, 5>{{
             {[] { HostSleep(9); }, [] { return 3; }, "HostSleep: unexpected result 3!\n"},
             {[] { HostSleep(9); }, failing, "HostSleep: unexpected error 22!\n"},
             {[] { HostMilliSleep(9); }, [] { return 3; }, "HostMilliSleep: unexpected result 3!\n"},
             {[] { HostMilliSleep(9); }, failing, "HostMilliSleep: unexpected error 22!\n"},
             {[] { HostMilliSleep(9); }, [] { return errno = ERESTART, -1; }, ""},
         }}) {
        testing::internal::CaptureStderr();
        pollInstead = c.answer;
        c.sleep();
        pollInstead = nullptr;
        EXPECT_EQ(testing::internal::GetCapturedStderr(), c.text);
    }
}

TEST(HostClocks, StartAtHostInitialisation) {
    const ChildResult child = runInChild([] {
        const auto burn = [](clock_t ticks) {
            for (const clock_t start = clock(); clock() - start < ticks;) {
            }
        };
        burn(CLOCKS_PER_SEC / 5);
        const double before = HostGetCpuTime();
        EXPECT_GE(before, 0.15);
        EXPECT_LT(HostClock(), 100);
        burn(CLOCKS_PER_SEC / 5);
        EXPECT_GE(HostClock(), 190);
        EXPECT_GE(HostGetCpuTime(), before + 0.15);
        HostInit();
        EXPECT_LT(HostClock(), 100);
    });
    EXPECT_EQ(child.exitStatus, 0) << child.out;
}

void (*currentHandler(int sig))(int) {
    struct sigaction action;
    sigaction(sig, nullptr, &action);
    return action.sa_handler;
}

TEST(HostInit, ChangesWhatItSaysAndNoHandler) {
    setenv("LC_ALL", "C.UTF-8", 1);
    sigset_t mask;
    sigfillset(&mask);
    sigprocmask(SIG_SETMASK, &mask, nullptr);
    std::array<char, 400> line;
    HostStatistics(line.data(), line.size());
    EXPECT_STREQ(setlocale(LC_ALL, nullptr), "C") << "a value obtained on first use has no side effect";

    std::array<void (*)(int), 32> handlers;
    for (int sig = 1; sig < 32; ++sig)
        handlers[sig] = currentHandler(sig);
    noHalt = TRUE;
    HostInit();
    EXPECT_EQ(noHalt, FALSE);
    EXPECT_STREQ(setlocale(LC_ALL, nullptr), "C.UTF-8");
    sigprocmask(SIG_SETMASK, nullptr, &mask);
    for (int sig = 1; sig < 32; ++sig) {
        EXPECT_FALSE(sigismember(&mask, sig)) << sig;
        EXPECT_EQ(currentHandler(sig), handlers[sig]) << sig;
    }
    setlocale(LC_ALL, "C");
    noHalt = TRUE;
    HostInit();
    EXPECT_EQ(noHalt, FALSE);
    EXPECT_STREQ(setlocale(LC_ALL, nullptr), "C");
}

TEST(HostStatistics, WholePiecesOnly) {
    const std::regex whole("( ELAPSED: 0 00:00:0[0-9]\\.[0-9]{2}  )(CPU: 0:00:[0-9]{2}\\.[0-9]{2}  )(FAULTS: [0-9]+  )"
                           "(FIOIN: [0-9]+  )(FIOOUT: [0-9]+ )");
    std::array<char, 400> line;
    HostStatistics(line.data(), line.size());
    std::cmatch pieces;
    ASSERT_TRUE(std::regex_match(line.data(), pieces, whole)) << line.data();
    std::string expected;
    size_t next = 1;
    for (unsigned size = 1; size <= strlen(line.data()) + 1; ++size) {
        if (next < pieces.size() && expected.size() + pieces.length(next) < size)
            expected += pieces.str(next++);
        std::array<char, 401> shorter;
        shorter[size] = '\x5A';
        HostStatistics(shorter.data(), size);
        EXPECT_EQ(strlen(shorter.data()), expected.size()) << size;
        EXPECT_EQ(shorter[size], '\x5A');
    }
    HostStatistics(nullptr, 0);
}

TEST(HostDateTimeFormat, FromTheEnvironmentWhenItEndsInSeconds) {
    struct Case {
        const char* value;
        const char* format;
    };
    constexpr char usual[] = "%m/%d/%y %H:%M:%S";
    const std::string longest = std::string(98, 'x') + "%S";
    const std::string tooLong = "x" + longest;
    for (const Case& c : std::array<Case, 5>{{{"%d/%m/%Y %H:%M:%S", "%d/%m/%Y %H:%M:%S"},
                                              {"%H:%M", usual},
                                              {"", usual},
                                              {longest.c_str(), longest.c_str()},
                                              {tooLong.c_str(), usual}}}) {
        const ChildResult child = runInChild([&] {
            setenv("KS_CFTIME", c.value, 1);
            EXPECT_STREQ(HostDateTimeFormat(), c.format);
            EXPECT_EQ(HostDateTimeFormat(), HostDateTimeFormat());
        });
        EXPECT_EQ(child.exitStatus, 0) << child.out;
        const bool rejected = strcmp(c.value, "%H:%M") == 0;
        EXPECT_EQ(child.out, rejected ? "\n[WARNING]: Invalid $KS_CFTIME: '%H:%M', using default.\n" : "");
    }
}

TEST(HostTimeZone, SecondsWestOfUtc) {
    struct Case {
        const char* zone;
        time_t time;
        long west;
        const char* text;
    };
    constexpr time_t january = 1768471445; // 2026-01-15 10:04:05 UTC
    constexpr time_t july = 1784109845;    // 2026-07-15 10:04:05 UTC
    setenv("KS_CFTIME", "%Y-%m-%d %H:%M:%S", 1);
    for (const Case& c : std::array<Case, 4>{{{"UTC0", july, 0, "2026-07-15 10:04:05"},
                                              {"EST5EDT,M3.2.0,M11.1.0", january, 18000, "2026-01-15 05:04:05"},
                                              {"EST5EDT,M3.2.0,M11.1.0", july, 14400, "2026-07-15 06:04:05"},
                                              {"IST-5:30", july, -19800, "2026-07-15 15:34:05"}}}) {
        setenv("TZ", c.zone, 1);
        time_t time = c.time;
        EXPECT_EQ(HostTIMEZONE(&time), c.west) << c.zone;
        std::array<char, 64> text;
        EXPECT_STREQ(UtlCtime(time, text.data(), text.size()), c.text) << c.zone;
        EXPECT_STREQ(UtlCtime(time, text.data(), 5), "");
    }
    const ChildResult child = runInChild([] { UtlTimeStampMs_s(stdout, "100%s of it\n", 0); });
    const std::regex stamped("\\[[0-9]{4}-[0-9]{2}-[0-9]{2} [0-9]{2}:[0-9]{2}:[0-9]{2}\\.[0-9]{3}\\] 100%s of it\n");
    EXPECT_TRUE(std::regex_match(child.out, stamped)) << child.out;
}
} // namespace
