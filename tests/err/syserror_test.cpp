#include "syserror.h"

#include <array>
#include <cerrno>
#include <climits>
#include <cstring>
#include <gtest/gtest.h>
#include <map>
#include <netdb.h>
#include <sstream>
#include <string>

namespace {
// The portable codes in their order, from 0 on, behind "SYSERR_".
const char* const codeNames =
    "NONE UNKNOWN HOST_NOT_FOUND TRY_AGAIN NO_RECOVERY NO_DATA NO_ADDRESS NETDOWN NETUNREACH NETRESET CONNABORTED "
    "CONNRESET NOBUFS ISCONN NOTCONN SHUTDOWN TIMEDOUT CONNREFUSED NAMETOOLONG INTR INPROGRESS INVAL ALREADY "
    "NOTSOCK DESTADDRREQ MSGSIZE PROTOTYPE NOPROTOOPT PROTONOSUPPORT SOCKTNOSUPPORT OPNOTSUPP NOTSUP PFNOSUPPORT "
    "AFNOSUPPORT ADDRINUSE ADDRNOTAVAIL WOULDBLOCK BADF AGAIN NOMEM ACCES FAULT PIPE HOSTDOWN HOSTUNREACH NONET "
    "WSANOTINITIALISED NOSR PROTO NXIO WSAEINTR MFILE NFILE KSSOCKETERR_NOHOSTNAME BUSY NOTBLK SPIPE MULTIHOP "
    "NOCONNECT BADCONNECT DIST ZERO BADMODE BADNAME ISTEMPMEM BADSHARE BUFMODE ERRSET ISOPEN NOTEXIST NOTINIT "
    "NULLFCB SMALLBF NOGEN NOSEEK BADPOS BADSEEK NOCMD GETANDPUT PASTEOF NOTREAD TOOMANYUNGETC TOOMANYREFS UNGETEOF "
    "PUTUNGET BADTYPE NOTWRITE PUTANDGET LARGEBF MATH MODNAME MAXATTR READERROR BADATTR OS2ERR PERM NOENT SRCH IO "
    "2BIG NOEXEC CHILD EXIST XDEV NODEV NOTDIR ISDIR NOTTY TXTBSY FBIG NOSPC ROFS MLINK SOCEOS2ERR DOM RANGE UCLEAN "
    "NOTNAM NAVAIL ISNAM REMOTEIO INIT REMDEV NOMSG IDRM CHRNG L2NSYNC L3HLT L3RST LNRNG UNATCH NOCSI L2HLT "
    "NOTREADY WRPROTECT FORMAT NOLCK BADE BADR XFULL NOANO BADRQC BADSLT BFONT LOOP OVERFLOW NOTUNIQ BADFD LIBACC "
    "LIBBAD LIBSCN LIBMAX LIBEXEC ILSEQ RESTART STRPIPE IORESID NOTEMPTY PROCLIM USERS DQUOT STALE REMOTE DEADLOCK "
    "NOSTR NODATA TIME BADMSG RREMOTE NOLINK ADV SRMNT COMM DOTDOT REMCHG NOSYS NOPKG NOSYM REMOTERELEASE";

TEST(SysError, TranslationsByName) {
    std::map<std::string, int> codeOfName;
    std::istringstream names(codeNames);
    for (std::string name; names >> name;)
        codeOfName.emplace("E" + name, static_cast<int>(codeOfName.size()));
    EXPECT_EQ(codeOfName.size(), 179U);
    EXPECT_EQ(codeOfName["EREMOTERELEASE"], SYSERR_REMOTERELEASE);
    // Codes whose number another code stands for, or the resolver.
    std::map<int, int> numberOfCode{{SYSERR_WOULDBLOCK, 11},    {SYSERR_NOTSUP, 95},   {SYSERR_DEADLOCK, 35},
                                    {SYSERR_HOST_NOT_FOUND, 1}, {SYSERR_TRY_AGAIN, 2}, {SYSERR_NO_RECOVERY, 3},
                                    {SYSERR_NO_DATA, 4},        {SYSERR_NO_ADDRESS, 4}};
    for (int number = 1; number <= 122; ++number) {
        const char* const host = strerrorname_np(number);
        const std::string name = number == EDEADLK ? "EDEADLOCK" : number == ENOTSUP ? "EOPNOTSUPP" : host ? host : "";
        const int code = UnixErrOsErrToSysErr(number, SYSERRCAT_ERRNO);
        EXPECT_EQ(code, codeOfName.contains(name) ? codeOfName[name] : -number) << number << name;
        if (code > 0)
            numberOfCode[code] = number;
    }
    EXPECT_EQ(numberOfCode.size(), 127U);
    for (int code = -200; code < 400; ++code)
        EXPECT_EQ(UnixErrSysErrToOsErr(code), numberOfCode.contains(code) ? numberOfCode[code] : -1) << code;
}

TEST(SysError, OtherNumbersAndCategories) {
    using Case = std::array<int, 3>;
    for (const auto& [number, category, code] :
         {Case{HOST_NOT_FOUND, 1, SYSERR_HOST_NOT_FOUND}, Case{TRY_AGAIN, 1, SYSERR_TRY_AGAIN},
          Case{NO_RECOVERY, 1, SYSERR_NO_RECOVERY}, Case{NO_DATA, 1, SYSERR_NO_DATA}, Case{5, 1, -5}, Case{0, 1, 0},
          Case{0, 0, 0}, Case{200, 0, -200}, Case{123, 0, -123}, Case{-3, 0, 3}, Case{-3, 1, 3}, Case{2, 2, -2},
          Case{INT_MIN, 0, INT_MIN}})
        EXPECT_EQ(UnixErrOsErrToSysErr(number, static_cast<SysErrCategoryEType>(category)), code) << number;
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
    for (const size_t length : {4070U, 4094U, 4096U, 9000U}) {
        const std::string text(length, 'x');
        const std::string whole = text + ": No such file or directory";
        SysErrorSet(&record.err, 2, "%s", text.c_str());
        EXPECT_EQ(record.err.errMsg, whole.substr(0, 4095));
        EXPECT_STREQ(record.behind, "behind!");
    }
    char buf[5] = "abcd";
    EXPECT_STREQ(HostGetErrMsg(2, buf, 4), "No ");
    EXPECT_EQ(buf[4], '\0');
    EXPECT_STREQ(HostGetErrMsg(1234567, buf, 1), "");
}
} // namespace
