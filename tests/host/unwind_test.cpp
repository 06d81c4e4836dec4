#include "hostunwind.h"

#include <csignal>
#include <gtest/gtest.h>
#include <regex>

#include "err/errcatalogue.h"
#include "host/hostfork.h"
#include "hostdebug.h"
#include "hostfault.h"
#include "support/child.h"
#include "unwindframes.h"

namespace {
TEST(Unwind, NestedBuffers) {
    UnwindEnd();
    EXPECT_EQ(UnwindGetCurrentJumpBuffer(), nullptr);
    static int inner = 0;
    EXPECT_EQ(unwindWith([] {
                  inner = unwindWith([] { UnwindDoUnwind(UNWIND_KCI_ERR); });
                  UnwindDoUnwind(UNWIND_ERR);
              }),
              UNWIND_ERR);
    EXPECT_EQ(inner, UNWIND_KCI_ERR);
    EXPECT_EQ(UnwindGetExceptionVal(), UNWIND_ERR);
    EXPECT_EQ(UnwindGetCurrentJumpBuffer(), nullptr);
    // A jump cannot answer 0; the kind is kept as it is.
    EXPECT_EQ(unwindWith([] { UnwindDoUnwind(UNWIND_NO_SIGNAL); }), 1);
    EXPECT_EQ(UnwindGetExceptionVal(), UNWIND_NO_SIGNAL);
    UnwindSetExceptionVal(UNWIND_LOST_OT);
    EXPECT_EQ(UnwindGetExceptionVal(), UNWIND_LOST_OT);
}

TEST(Unwind, KeepsTheSignalMask) {
    EXPECT_EQ(unwindWith([] {
                  sigset_t blocked;
                  sigemptyset(&blocked);
                  sigaddset(&blocked, SIGUSR2);
                  pthread_sigmask(SIG_BLOCK, &blocked, nullptr);
                  UnwindDoUnwind(UNWIND_RESTART);
              }),
              UNWIND_RESTART);
    sigset_t now;
    pthread_sigmask(SIG_SETMASK, nullptr, &now);
    EXPECT_TRUE(sigismember(&now, SIGUSR2));
}

// A forbidden or impossible unwind: what is printed, and what happens where fatal errors do not end the process.
TEST(Unwind, Reports) {
    const struct {
        const char* name;
        void (*unwind)();
        std::string out; // a regular expression
        int caught;
    } cases[] = {
        {"trace", [] { UnwindDoTraceUnwind(UNWIND_SERV_TXT_FILE_TO_OOP_JMP, "repos.c", 123); },
         R"(\[.*\.\d\d\d\] \[DEBUG\]: Unwind\(UNWIND_SERV_TXT_FILE_TO_OOP_JMP\) called from line 123 in repos\.c)",
         UNWIND_SERV_TXT_FILE_TO_OOP_JMP},
        {"long trace", [] { UnwindDoTraceUnwind(UNWIND_ERR, std::string(1000, 'f').c_str(), 1); },
         R"(\[.*\.\d\d\d\] \[DEBUG\]: Unwind\(UNWIND_ERR\) called from line 1 in f{99})", UNWIND_ERR},
        {"unknown kind", [] { UnwindDoTraceUnwind(15, "f.c", 1); },
         R"(UTL_GUARANTEE failure in file unwind at line \d+\n\[.*\] \[DEBUG\]: Unwind\(unknown\) called.*)", 15},
        {"pinned pages", [] { UnwindTotalPinnedPages = 1, UnwindDoUnwind(UNWIND_ERR); },
         R"(UTL_GUARANTEE failure in file unwind at line \d+\n)", UNWIND_ERR},
        {"catalogue's mutex held", [] { HostMutexAcquire(printMutex()), UnwindDoUnwind(UNWIND_ERR); },
         R"(UTL_GUARANTEE failure in file utl at line \d+\n)", UNWIND_ERR},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        const ChildResult child = runInChild([&] { EXPECT_EQ(unwindWith(c.unwind), c.caught); });
        EXPECT_EQ(child.exitStatus, 0);
        EXPECT_TRUE(std::regex_match(child.out, std::regex(c.out))) << child.out;
    }
}

TEST(Unwind, WithoutABuffer) {
    const ChildResult child = runInChild([] { UnwindDoUnwind(UNWIND_ERR); });
    EXPECT_EQ(child.err, "UNWIND called with no handler!\n");
    EXPECT_EQ(child.exitStatus, 0);
}

// A handler that ours passes a signal on to; the mark is gone afterwards.
TEST(Unwind, NotOutOfASignalHandler) {
    const ChildResult child = runInChild([] {
        signal(SIGQUIT, [](int) { UtlCheckUnwindAllowed(); });
        signal(SIGXFSZ, [](int) { UnwindDoUnwind(UNWIND_ERR); });
        HostInstallFaultHandler(nullptr, nullptr);
        UtlCheckUnwindAllowed();
        puts("handler");
        raise(SIGQUIT);
        UtlCheckUnwindAllowed();
        puts("jump");
        EXPECT_EQ(unwindWith([] { raise(SIGXFSZ); }), UNWIND_ERR);
        puts("afterwards");
        UtlCheckUnwindAllowed();
        EXPECT_EQ(unwindWith([] { UnwindDoUnwind(UNWIND_ERR); }), UNWIND_ERR);
    });
    const std::string failure = R"(UTL_GUARANTEE failure in file utl at line \d+\n)";
    const std::regex expected("handler\n" + failure + "jump\n" + failure + "afterwards\n");
    EXPECT_TRUE(std::regex_match(child.out, expected)) << child.out;
    EXPECT_EQ(child.exitStatus, 0) << child.err;
}
} // namespace
