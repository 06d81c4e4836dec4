#include "hostlimits.h"

#include <cstdlib>
#include <sys/resource.h>

#include "host/expect.h"
#include "syserror.h"

namespace {
TEST(HostSetMaxFiles, Rules) {
    constexpr rlim_t soft = 50;
    constexpr rlim_t hard = 200;
    const std::string refused = "setrlimit(RLIMIT_NOFILE): Invalid argument";
    const struct {
        int max;
        const char* variable; // $KESTRUNE_MAX_FD
        BoolType result;
        rlim_t limit;
        std::string error;
    } cases[] = {
        {100, "70", TRUE, 100, ""},
        {-1, nullptr, TRUE, hard, ""},
        {-1, " 70 files", TRUE, 70, ""},
        {-1, "0", TRUE, soft, ""},
        {-1, "9999", FALSE, soft,
         "Could not raise fd limit to the KESTRUNE_MAX_FD value of 9999 because:\n " + refused},
        {-2, nullptr, FALSE, soft, refused},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(std::to_string(c.max) + (c.variable != nullptr ? c.variable : " unset"));
        expectGoodInChild([&] {
            const int before = HostGetMaxFiles();
            rlimit limit{soft, hard};
            ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0);
            EXPECT_EQ(HostGetMaxFiles(), before) << "is kept";
            EXPECT_TRUE(HostSetMaxFiles(soft, nullptr));
            if (c.variable != nullptr)
                setenv("KESTRUNE_MAX_FD", c.variable, 1);
            SysErrorSType err;
            EXPECT_EQ(HostSetMaxFiles(c.max, &err), c.result);
            EXPECT_STREQ(err.errMsg, c.error.c_str());
            getrlimit(RLIMIT_NOFILE, &limit);
            EXPECT_EQ(limit.rlim_cur, c.limit);
            EXPECT_EQ(limit.rlim_max, hard);
            EXPECT_EQ(HostGetMaxFiles(), static_cast<int>(c.limit));
        });
    }
}
} // namespace
