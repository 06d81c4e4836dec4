#include "syserror.h"

#include <cerrno>
#include <climits>
#include <cstring>
#include <gtest/gtest.h>
#include <map>
#include <netdb.h>
#include <string>
#include <vector>

namespace {
// The names of all codes; those of errno values of the same name are found below by the host's own spelling.
struct Code {
    int value;
    const char* errnoName; // behind "SYSERR_"
};
const std::vector<Code>& allCodes() {
#define CODE(name)                                                                                                     \
    { SYSERR_##name, "E" #name }
    static const std::vector<Code> codes{CODE(NETDOWN),
                                         CODE(NETUNREACH),
                                         CODE(NETRESET),
                                         CODE(CONNABORTED),
                                         CODE(CONNRESET),
                                         CODE(NOBUFS),
                                         CODE(ISCONN),
                                         CODE(NOTCONN),
                                         CODE(SHUTDOWN),
                                         CODE(TIMEDOUT),
                                         CODE(CONNREFUSED),
                                         CODE(NAMETOOLONG),
                                         CODE(INTR),
                                         CODE(INPROGRESS),
                                         CODE(INVAL),
                                         CODE(ALREADY),
                                         CODE(NOTSOCK),
                                         CODE(DESTADDRREQ),
                                         CODE(MSGSIZE),
                                         CODE(PROTOTYPE),
                                         CODE(NOPROTOOPT),
                                         CODE(PROTONOSUPPORT),
                                         CODE(SOCKTNOSUPPORT),
                                         CODE(OPNOTSUPP),
                                         CODE(PFNOSUPPORT),
                                         CODE(AFNOSUPPORT),
                                         CODE(ADDRINUSE),
                                         CODE(ADDRNOTAVAIL),
                                         CODE(BADF),
                                         CODE(AGAIN),
                                         CODE(NOMEM),
                                         CODE(ACCES),
                                         CODE(FAULT),
                                         CODE(PIPE),
                                         CODE(HOSTDOWN),
                                         CODE(HOSTUNREACH),
                                         CODE(NONET),
                                         CODE(NOSR),
                                         CODE(PROTO),
                                         CODE(NXIO),
                                         CODE(MFILE),
                                         CODE(NFILE),
                                         CODE(BUSY),
                                         CODE(NOTBLK),
                                         CODE(SPIPE),
                                         CODE(MULTIHOP),
                                         CODE(TOOMANYREFS),
                                         CODE(PERM),
                                         CODE(NOENT),
                                         CODE(SRCH),
                                         CODE(IO),
                                         CODE(2BIG),
                                         CODE(NOEXEC),
                                         CODE(CHILD),
                                         CODE(EXIST),
                                         CODE(XDEV),
                                         CODE(NODEV),
                                         CODE(NOTDIR),
                                         CODE(ISDIR),
                                         CODE(NOTTY),
                                         CODE(TXTBSY),
                                         CODE(FBIG),
                                         CODE(NOSPC),
                                         CODE(ROFS),
                                         CODE(MLINK),
                                         CODE(DOM),
                                         CODE(RANGE),
                                         CODE(UCLEAN),
                                         CODE(NOTNAM),
                                         CODE(NAVAIL),
                                         CODE(ISNAM),
                                         CODE(REMOTEIO),
                                         CODE(NOMSG),
                                         CODE(IDRM),
                                         CODE(CHRNG),
                                         CODE(L2NSYNC),
                                         CODE(L3HLT),
                                         CODE(L3RST),
                                         CODE(LNRNG),
                                         CODE(UNATCH),
                                         CODE(NOCSI),
                                         CODE(L2HLT),
                                         CODE(NOLCK),
                                         CODE(BADE),
                                         CODE(BADR),
                                         CODE(XFULL),
                                         CODE(NOANO),
                                         CODE(BADRQC),
                                         CODE(BADSLT),
                                         CODE(BFONT),
                                         CODE(LOOP),
                                         CODE(OVERFLOW),
                                         CODE(NOTUNIQ),
                                         CODE(BADFD),
                                         CODE(LIBACC),
                                         CODE(LIBBAD),
                                         CODE(LIBSCN),
                                         CODE(LIBMAX),
                                         CODE(LIBEXEC),
                                         CODE(ILSEQ),
                                         CODE(RESTART),
                                         CODE(STRPIPE),
                                         CODE(NOTEMPTY),
                                         CODE(USERS),
                                         CODE(DQUOT),
                                         CODE(STALE),
                                         CODE(REMOTE),
                                         CODE(NOSTR),
                                         CODE(NODATA),
                                         CODE(TIME),
                                         CODE(BADMSG),
                                         CODE(NOLINK),
                                         CODE(ADV),
                                         CODE(SRMNT),
                                         CODE(COMM),
                                         CODE(DOTDOT),
                                         CODE(REMCHG),
                                         CODE(NOSYS),
                                         CODE(NOPKG)};
#undef CODE
    return codes;
}

// Codes whose number another code stands for, or the resolver.
const std::map<int, int> inverseOnly{{SYSERR_WOULDBLOCK, 11},    {SYSERR_NOTSUP, 95},   {SYSERR_DEADLOCK, 35},
                                     {SYSERR_HOST_NOT_FOUND, 1}, {SYSERR_TRY_AGAIN, 2}, {SYSERR_NO_RECOVERY, 3},
                                     {SYSERR_NO_DATA, 4},        {SYSERR_NO_ADDRESS, 4}};

TEST(SysError, TranslationsByName) {
    std::map<std::string, int> codeOfName;
    for (const Code& code : allCodes())
        codeOfName[code.errnoName] = code.value;
    std::map<int, int> numberOfCode = inverseOnly;
    for (int number = 1; number <= 122; ++number) {
        const char* name = strerrorname_np(number);
        SCOPED_TRACE(number);
        const int code = UnixErrOsErrToSysErr(number, SYSERRCAT_ERRNO);
        if (!name) {
            EXPECT_EQ(code, -number);
        } else if (number == EDEADLK) {
            EXPECT_EQ(code, SYSERR_DEADLOCK);
        } else {
            ASSERT_EQ(code, codeOfName.at(name == std::string("ENOTSUP") ? "EOPNOTSUPP" : name)) << name;
            numberOfCode[code] = number;
        }
    }
    EXPECT_EQ(numberOfCode.size(), allCodes().size() + inverseOnly.size());
    for (int code = -200; code < 400; ++code) {
        const auto found = numberOfCode.find(code);
        EXPECT_EQ(UnixErrSysErrToOsErr(code), found == numberOfCode.end() ? -1 : found->second) << code;
    }
    EXPECT_EQ(SYSERR_REMOTERELEASE, 178);
    EXPECT_EQ(SYSERR_NOENT, 96);
}

TEST(SysError, OtherNumbersAndCategories) {
    struct Case {
        int number;
        int category;
        int code;
    };
    for (const Case& c : {Case{HOST_NOT_FOUND, 1, SYSERR_HOST_NOT_FOUND}, Case{TRY_AGAIN, 1, SYSERR_TRY_AGAIN},
                          Case{NO_RECOVERY, 1, SYSERR_NO_RECOVERY}, Case{NO_DATA, 1, SYSERR_NO_DATA}, Case{5, 1, -5},
                          Case{0, 1, 0}, Case{0, 0, 0}, Case{200, 0, -200}, Case{123, 0, -123}, Case{-3, 0, 3},
                          Case{-3, 1, 3}, Case{2, 2, -2}, Case{INT_MIN, 0, INT_MIN}})
        EXPECT_EQ(UnixErrOsErrToSysErr(c.number, static_cast<SysErrCategoryEType>(c.category)), c.code)
            << c.number << " " << c.category;
}

TEST(SysError, Records) {
    struct Case {
        int number;
        int code;
        std::string text;
    };
    for (const Case& c : {Case{2, SYSERR_NOENT, "open(f,3): No such file or directory"},
                          Case{0, SYSERR_NONE, "open(f,3): failed with no error code"},
                          Case{-1, SYSERR_NONE, "open(f,3)"}, Case{200, -200, "open(f,3): Unknown error 200"}}) {
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
        err.setErr(EINTR);
        EXPECT_EQ(err.errCode, SYSERR_INTR);
        EXPECT_TRUE(SysErrorIsSet(&err));
        err.initialize();
        EXPECT_EQ(err.hostError, 0);
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
    for (const size_t length : {4070U, 4092U, 4093U, 4094U, 4095U, 4096U, 9000U}) {
        const std::string text(length, 'x');
        const std::string whole = text + ": No such file or directory";
        SysErrorSet(&record.err, 2, "%s", text.c_str());
        EXPECT_EQ(record.err.errMsg, whole.substr(0, 4095));
        SysErrorSet(&record.err, 2, text.c_str(), 0);
        EXPECT_EQ(record.err.errMsg, whole.substr(0, 4095));
        EXPECT_STREQ(record.behind, "behind!");
    }
    char buf[5] = "abcd";
    EXPECT_EQ(HostGetErrMsg(2, buf, 0), buf);
    EXPECT_STREQ(buf, "abcd");
    EXPECT_STREQ(HostGetErrMsg(2, buf, 4), "No ");
    EXPECT_EQ(buf[4], '\0');
    EXPECT_STREQ(HostGetErrMsg(1234567, buf, 1), "");
}
} // namespace
