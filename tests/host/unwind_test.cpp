#include "hostunwind.h"

#include <csetjmp>
#include <csignal>
#include <sys/mman.h>

#include "err/messages/errcatalogue.h"
#include "host/base/forklocks.h"
#include "hostfault.h"
#include "support/expect.h"
#include "utlhost.h"

namespace {
// What a buffer catches when the function unwinds; 0 when that returns.
int unwindWith(void (*unwind)()) {
    UnwindJmpBufSType buffer;
    buffer.previous = UnwindGetCurrentJumpBuffer();
    const int caught = _setjmp(buffer.buf);
    if (caught == 0) {
        UnwindSetCurrentJumpBuffer(&buffer);
        unwind();
    }
    UnwindSetCurrentJumpBuffer(buffer.previous);
    return caught;
}

TEST(Unwind, NestedBuffers) {
    static int inner = 0;
    EXPECT_EQ(unwindWith([] {
                  inner = unwindWith([] { UnwindDoUnwind(UNWIND_KCI_ERR); });
                  UnwindDoUnwind(UNWIND_ERR);
              }),
              UNWIND_ERR);
    EXPECT_EQ(inner, UNWIND_KCI_ERR);
    // A jump cannot answer 0; the kind is kept as it is.
    EXPECT_EQ(unwindWith([] { UnwindDoUnwind(UNWIND_NO_SIGNAL); }), 1);
    EXPECT_EQ(UnwindGetExceptionVal(), UNWIND_NO_SIGNAL);
}

const std::string stamp = R"(\[.*\.\d\d\d\] \[DEBUG\]: Unwind)";
const std::string forbidden = R"(UTL_GUARANTEE failure in file utl at line \d+\n)";
const std::string broken = R"(UTL_GUARANTEE failure in file unwind at line \d+\n)";

// A forbidden or impossible unwind: what is printed, and what happens where fatal errors do not end the process.
TEST(Unwind, Reports) {
    const struct {
        void (*unwind)();
        std::string out; // a regular expression
        int caught;
    } cases[] = {
        {[] { UnwindDoTraceUnwind(UNWIND_SERV_TXT_FILE_TO_OOP_JMP, "repos.c", 123); },
         stamp + R"(\(UNWIND_SERV_TXT_FILE_TO_OOP_JMP\) called from line 123 in repos\.c)",
         UNWIND_SERV_TXT_FILE_TO_OOP_JMP},
        {[] { UnwindDoTraceUnwind(15, "f.c", 1); }, broken + stamp + R"(\(unknown\) called.*)", 15},
        {[] { UnwindTotalPinnedPages = 1, UnwindDoUnwind(UNWIND_ERR); }, broken, UNWIND_ERR},
        {[] { HostMutexAcquire(printMutex()), UnwindDoUnwind(UNWIND_ERR); }, forbidden, UNWIND_ERR},
    };
    for (const auto& c : cases)
        expectGoodInChild([&] { EXPECT_EQ(unwindWith(c.unwind), c.caught); }, "", "^" + c.out + "$");
    expectGoodInChild([] { UnwindDoUnwind(UNWIND_ERR); }, "^UNWIND called with no handler!\n$");
}

#if !defined(__SANITIZE_THREAD__) // under which a fault after a jump out of a handler ends the process
sigjmp_buf escape;

// Far below the frame of any handler that the caller's caller had.
[[gnu::noinline]] void deepCall(void (*body)()) {
    volatile char room[100'000];
    room[0] = 0;
    body();
    EXPECT_EQ(room[0], 0);
}

void checkFromADeepCall() {
    deepCall([] { deepCall(UtlCheckUnwindAllowed); });
}

// Our own handlers may not be left by an unwind. An earlier handler that a signal is passed on to may, by any jump. The
// mark of either is gone afterwards.
TEST(Unwind, NotOutOfASignalHandler) {
    const auto body = [] {
        static char* const page =
            static_cast<char*>(mmap(nullptr, UtlGetPageSize(), PROT_READ, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
        const auto touch = [] { *const_cast<volatile char*>(page); };
        signal(SIGXFSZ, [](int) { UnwindDoUnwind(UNWIND_ERR); });
        for (const int sig : {SIGQUIT, SIGXCPU})
            signal(sig, [](int) { siglongjmp(escape, 1); });
        HostInstallFaultHandler([] { puts("flush"), UtlCheckUnwindAllowed(); }, nullptr);
        HostProtectPage(
            page, [](char*, char*) -> BoolType { return UnwindDoUnwind(UNWIND_ERR), TRUE; }, nullptr);
        EXPECT_EQ(unwindWith(touch), UNWIND_ERR);
        checkFromADeepCall();
        sigset_t none;
        sigemptyset(&none);
        pthread_sigmask(SIG_SETMASK, &none, nullptr);
        puts("earlier handlers");
        EXPECT_EQ(unwindWith([] { raise(SIGXFSZ); }), UNWIND_ERR);
        checkFromADeepCall();
        for (const int sig : {SIGQUIT, SIGXCPU}) { // the latter's handler is called on the way out
            if (sigsetjmp(escape, 1) == 0)
                raise(sig);
            checkFromADeepCall();
        }
        // A jump of the wrong kind out of our own handler: the mark stays until the next handler.
        HostProtectPage(
            page, [](char*, char*) -> BoolType { siglongjmp(escape, 1); }, nullptr);
        if (sigsetjmp(escape, 1) == 0)
            deepCall(touch);
        raise(SIGCHLD);
        checkFromADeepCall();
    };
    expectGoodInChild(body, "", "^" + forbidden + "earlier handlers\nflush\n" + forbidden + "$");
}
#endif
} // namespace
