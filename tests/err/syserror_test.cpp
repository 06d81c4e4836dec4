#include "syserror.h"

#include <cerrno>
#include <climits>
#include <cstring>
#include <gtest/gtest.h>
#include <string>

#include "hash.h"

namespace {
TEST(SysError, Translations) {
    std::string rows;
    for (int number = -3; number <= 200; ++number) {
        for (const auto category : {SYSERRCAT_ERRNO, SYSERRCAT_HERRNO})
            rows += std::to_string(UnixErrOsErrToSysErr(number, category)) + " ";
    }
    for (int code = -200; code < 400; ++code)
        rows += std::to_string(UnixErrSysErrToOsErr(code)) + " ";
    EXPECT_EQ(HashCStrHash(rows.c_str()), 0x65A044) << "a number's code has changed:\n" << rows;
    EXPECT_EQ(UnixErrOsErrToSysErr(INT_MIN, SYSERRCAT_ERRNO), INT_MIN);
    EXPECT_EQ(UnixErrOsErrToSysErr(ENOTEMPTY, SYSERRCAT_ERRNO), SYSERR_NOTEMPTY);
}

TEST(SysError, Records) {
    const struct {
        int number, code;
        std::string text;
    } cases[] = {
        {2, SYSERR_NOENT, "open(f,3): No such file or directory"},
        {0, SYSERR_NONE, "open(f,3): failed with no error code"},
        {-1, SYSERR_NONE, "open(f,3)"},
        {200, -200, "open(f,3): Unknown error 200"},
    };
    for (const auto& c : cases) {
        SysErrorSType err;
        EXPECT_FALSE(SysErrorIsSet(&err));
        errno = 7;
        SysErrorSet(&err, c.number, "open(%s,%d)", "f", 3);
        EXPECT_EQ(errno, 7);
        EXPECT_EQ(err.hostError, c.number);
        EXPECT_EQ(err.errCode, c.code);
        EXPECT_EQ(SysErrorGetMessage(&err), c.text);
        EXPECT_TRUE(SysErrorIsSet(&err));
        SysErrorClear(&err);
        EXPECT_EQ(err.hostError, c.number);
        EXPECT_FALSE(SysErrorIsSet(&err));
    }
    SysErrorSet(nullptr, 2, "x");
    SysErrorClear(nullptr);
    EXPECT_EQ(SysErrorGetMessage(nullptr), nullptr);
    EXPECT_FALSE(SysErrorIsSet(nullptr));
}

TEST(SysError, NothingLeavesTheBuffers) {
    struct {
        SysErrorSType err;
        char behind[8] = "behind!";
    } record;
    for (const size_t length : {4070U, 4096U}) {
        const std::string text(length, 'x');
        SysErrorSet(&record.err, 2, "%s", text.c_str());
        EXPECT_EQ(record.err.errMsg, (text + ": No such file or directory").substr(0, 4095));
        EXPECT_STREQ(record.behind, "behind!");
    }
    char buf[5] = "abcd";
    EXPECT_STREQ(HostGetErrMsg(2, buf, 4), "No ");
    EXPECT_STREQ(HostGetErrMsg(1234567, buf, 1), "");
}
} // namespace
