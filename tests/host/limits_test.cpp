#include "hostlimits.h"

#include <cstdlib>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include "support/child.h"
#include "syserror.h"

namespace {
constexpr rlim_t softLimit = 50;
constexpr rlim_t hardLimit = 200;

TEST(HostSetMaxFiles, Rules) {
    const struct {
        int max;
        const char* variable; // $KESTRUNE_MAX_FD
        BoolType result;
        rlim_t limit;
        std::string error;
    } cases[] = {
        {100, nullptr, TRUE, 100, ""},
        {100, "70", TRUE, 100, ""},
        {-1, nullptr, TRUE, hardLimit, ""},
        {-1, "", TRUE, hardLimit, ""},
        {-1, "70", TRUE, 70, ""},
        {-1, " 70 files", TRUE, 70, ""},
        {-1, "0", TRUE, softLimit, ""},
        {-1, "none", TRUE, softLimit, ""},
        {-1, "-5", TRUE, hardLimit, ""},
        {-1, "9999", FALSE, softLimit,
         "Could not raise fd limit to the KESTRUNE_MAX_FD value of 9999 because:\n setrlimit(RLIMIT_NOFILE): Invalid "
         "argument"},
        {-1, "0000000000000000000000000000000000000000000000000000000000000070", TRUE, hardLimit, ""},
        {201, "70", FALSE, softLimit, "setrlimit(RLIMIT_NOFILE): Invalid argument"},
        {-2, nullptr, FALSE, softLimit, "setrlimit(RLIMIT_NOFILE): Invalid argument"},
    };
    for (const auto& c : cases) {
        const ChildResult child = runInChild([&] {
            const rlimit start{softLimit, hardLimit};
            ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &start), 0);
            EXPECT_EQ(HostGetMaxFiles(), static_cast<int>(softLimit));
            if (c.variable != nullptr)
                setenv("KESTRUNE_MAX_FD", c.variable, 1);
            SysErrorSType err;
            EXPECT_EQ(HostSetMaxFiles(c.max, &err), c.result);
            EXPECT_STREQ(err.errMsg, c.error.c_str());
            rlimit end;
            getrlimit(RLIMIT_NOFILE, &end);
            EXPECT_EQ(end.rlim_cur, c.limit);
            EXPECT_EQ(end.rlim_max, hardLimit);
            EXPECT_EQ(HostGetMaxFiles(), static_cast<int>(c.limit));
            EXPECT_EQ(HostSetMaxFiles(c.max, nullptr), c.result);
        });
        EXPECT_EQ(child.exitStatus, 0) << c.max << ' ' << (c.variable != nullptr ? c.variable : "unset") << child.out;
    }
}

TEST(HostGetMaxFiles, IsKept) {
    const ChildResult child = runInChild([] {
        const int before = HostGetMaxFiles();
        const rlimit limit{softLimit, hardLimit};
        setrlimit(RLIMIT_NOFILE, &limit);
        EXPECT_EQ(HostGetMaxFiles(), before);
    });
    EXPECT_EQ(child.exitStatus, 0) << child.out;
}
} // namespace
