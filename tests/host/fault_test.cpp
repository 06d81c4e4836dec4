// The fault handler in the real library, whose faults it tells from others'.
#include "hostfault.h"

#include <array>
#include <cerrno>
#include <csetjmp>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <ucontext.h>
#include <unistd.h>
#include <vector>

#include "host/faulttools.h"
#include "host/signals/unixiosignal.h"
#include "hostdebug.h"
#include "hostsignal.h"
#include "hosttime.h"
#include "syserror.h"
#include "utlhost.h"

namespace {
void keptHandler(int) {}

TEST(Install, TakesOverInTheDocumentedManner) {
    constexpr int taken = SA_SIGINFO | SA_RESTART, takenNoRestart = SA_SIGINFO, ignored = -1, kept = -2;
    const auto check = [](int outcome, std::initializer_list<int> signals) { // flags of our handler, or another outcome
        for (const int sig : signals) {
            SCOPED_TRACE(sig);
            const struct sigaction action = actionOf(sig);
            if (outcome < 0) {
                EXPECT_EQ(action.sa_handler, outcome == ignored ? SIG_IGN : keptHandler);
                continue;
            }
            EXPECT_EQ(action.sa_sigaction, HostFaultHandler);
            EXPECT_EQ(action.sa_flags & (SA_SIGINFO | SA_RESTART | SA_ONSTACK | SA_NODEFER), outcome);
            EXPECT_TRUE(sigismember(&action.sa_mask, SIGUSR2) && sigismember(&action.sa_mask, SIGSEGV));
        }
    };
    expectGoodInChild([&] {
        install();
        check(ignored, {SIGPIPE, SIGHUP});
        check(taken, {SIGQUIT, SIGILL, SIGFPE, SIGABRT, SIGBUS, SIGSEGV, SIGUSR1, SIGCHLD, SIGXFSZ, SIGXCPU});
        check(takenNoRestart, {SIGTERM});
        hostUnInstallFaultHandler();
        for (const int sig : {SIGQUIT, SIGFPE, SIGSEGV, SIGTERM, SIGCHLD, SIGXCPU})
            EXPECT_EQ(actionOf(sig).sa_handler, SIG_DFL);
        check(ignored, {SIGPIPE});
        install(); // once per process
        EXPECT_EQ(actionOf(SIGSEGV).sa_handler, SIG_DFL);
    });
    expectGoodInChild([&] {
        for (const int sig : {SIGPIPE, SIGHUP, SIGFPE, SIGCHLD, SIGSEGV})
            signal(sig, keptHandler);
        install();
        check(kept, {SIGPIPE, SIGHUP, SIGFPE, SIGCHLD});
        check(taken, {SIGSEGV});
    });
}

TEST(Install, FlagsAndFailure) {
    const ChildResult child = runInChild([] {
        UNIXIO_DO_SIGNAL_(SIGUSR2, HostFaultHandler, nullptr, SA_ONSTACK);
        const int kernels = 0x04000000; // SA_RESTORER
        EXPECT_EQ(actionOf(SIGUSR2).sa_flags & ~kernels, SA_SIGINFO | SA_RESTART | SA_ONSTACK);
        UNIXIO_DO_SIGNAL(SIGKILL, HostFaultHandler, nullptr);
    });
    expectGood(child);
    expectHas(child.out, "^sigaction failed for sig 9 with errno 22\nUTL_GUARANTEE failure in file hostunix at line "
                         "[0-9]+\n$");
}

TEST(Interrupts, KeyboardAndBlocking) {
    const ChildResult child = runInChild([] {
        HostEnableKbInt([](int) { say("int "); });
        raise(SIGINT);
        signal(SIGINT, SIG_IGN);
        HostEnableKbInt([](int) { say("wrong"); });
        raise(SIGINT);
        HostIgnoreSigIo();
        HostIgnoreSigTerm();
        raise(SIGIO);
        raise(SIGTERM);
        signal(SIGUSR2, [](int) { say("usr2 "); });
        errno = 7;
        HostDisableInterrupts();
        raise(SIGUSR2);
        say("blocked ");
        HostEnableInterrupts();
        EXPECT_EQ(errno, 7);
    });
    EXPECT_EQ(child.err, "int blocked usr2 ");
    expectGood(child);
}

// The handler that was there before: opens the page at fault, and looks at how it was called.
char* closedPage;
sigset_t maskInside;

void openClosedPage(int, siginfo_t* info, void* context) {
    EXPECT_EQ(info->si_addr, closedPage);
    EXPECT_NE(context, nullptr);
    pthread_sigmask(SIG_BLOCK, nullptr, &maskInside);
    mprotect(closedPage, UtlGetPageSize(), PROT_READ | PROT_WRITE);
    errno = ENOTTY;
}

TEST(Chaining, EarlierHandlerRunsUnderItsMask) {
    for (const int flags : {SA_SIGINFO, SA_SIGINFO | SA_NODEFER}) {
        expectGoodInChild([=] {
            closedPage = newPage(PROT_NONE);
            struct sigaction old = {};
            old.sa_sigaction = openClosedPage;
            old.sa_flags = flags;
            sigaddset(&old.sa_mask, SIGUSR2);
            sigaction(SIGSEGV, &old, nullptr);
            install();
            errno = EDOM;
            faultInCLibrary(closedPage);
            EXPECT_EQ(errno, EDOM);
            EXPECT_EQ(sigismember(&maskInside, SIGSEGV), flags == SA_SIGINFO);
            EXPECT_TRUE(sigismember(&maskInside, SIGUSR2));
            EXPECT_FALSE(sigismember(&maskInside, SIGINT));
            sigset_t after;
            pthread_sigmask(SIG_BLOCK, nullptr, &after);
            EXPECT_FALSE(sigismember(&after, SIGUSR2));
        });
    }
}

TEST(Chaining, PlainOneShotAndNone) {
    const auto dispositions = [] {
        signal(SIGXFSZ, [](int) { say("one argument "); });
        setAction(SIGQUIT, SAYS("once "), SA_SIGINFO | int(SA_RESETHAND));
        signal(SIGILL, SIG_IGN);
        install();
        raise(SIGXFSZ);
        siginfo_t info = arrival(SIGILL, ILL_ILLOPC);
        HostFaultHandler(SIGILL, &info, nullptr);
        say("ignored ");
        raise(SIGQUIT);
        raise(SIGQUIT);
    };
    expectEnding(dispositions, {"^one argument ignored once \n\nKS Signal Handler: Unhandled signal 3, SIGQUIT "});
    // A fault of this library is not passed on; the earlier handler is only called on the way out.
    expectEnding([] { setAction(SIGSEGV, SAYS("earlier handler\n")), install(), faultInLibrary(); },
                 {"Unhandled signal 11, SIGSEGV Received at [0-9]+ \n[^]*earlier handler\n\nBegin attempt"});
}

TEST(Recursion, EndsAtTheThirdActivation) {
    const ChildResult child = runToItsEnd([] {
        setAction(
            SIGSEGV, [](int, siginfo_t*, void*) { say("fault in handler\n"), jumpToNowhere(); },
            SA_SIGINFO | SA_NODEFER);
        install();
        jumpToNowhere();
    });
    EXPECT_EQ(child.err, "fault in handler\nfault in handler\nKS signal handler: Recursive SEGV detected, "
                         "attempting to dump core\n");
    EXPECT_EQ(child.signal, SIGABRT);
}

TEST(Recursion, JumpsOutOfAHandlerDoNotCount) {
    expectGoodInChild([] {
        static sigjmp_buf escape;
        static int count;
        setAction(SIGSEGV, [](int, siginfo_t*, void*) { siglongjmp(escape, 1); });
        install();
        sigsetjmp(escape, 1);
        if (++count < 10)
            jumpToNowhere();
    });
}

BoolType allow(char*, char*) {
    return TRUE;
}
BoolType refuse(char*, char*) {
    return FALSE;
}

TEST(ExitModes, EndAtOnce) {
    const std::string stars = "\\*\\*\\*", goodbye = " " + stars + ".\nGoodbye.\n$";
    const auto provoke = [](auto body) { return [=] { install([] { say("flushed"); }), body(); }; };
    expectEnding(provoke([] { HostExitOnFault(), jumpToNowhere(); }),
                 {"^\n" + stars + " Received signal 11 \\(SIGSEGV\\) at [0-9]+" + goodbye, "", 1});
    const auto touchGuardPage = [] {
        char* page = newPage(PROT_READ | PROT_WRITE);
        HostProtectPage(page, allow, nullptr);
        HostExitOnGuardPageAccess();
        touch(page);
    };
    expectEnding(provoke(touchGuardPage), {"^\n" + stars +
                                               " Kestrune detected a SIGSEGV caused by an attempt to access guard page "
                                               "address 0x[0-9a-f]+.  time=[0-9]+" +
                                               goodbye,
                                           "", 1});
}

TEST(GuardPages, OpenOnTouch) {
    const ChildResult child = runInChild([] {
        install();
        static char *toldPage, *toldAddress;
        const HostProtectHandlerFType record = [](char* page, char* address) -> BoolType {
            return toldPage = page, toldAddress = address, TRUE;
        };
        char* const page = newPage(PROT_READ | PROT_WRITE);
        EXPECT_TRUE(HostProtectPage(page, refuse, nullptr));
        EXPECT_TRUE(HostProtectPage(page, record, nullptr)); // in its place
        touch(page + 17);
        EXPECT_EQ(toldPage, page);
        EXPECT_EQ(toldAddress, page + 17);
        EXPECT_FALSE(HostUnProtectPage(page)); // opened already
        EXPECT_TRUE(HostProtectPage(page, record, nullptr));
        page[UtlGetPageSize() - 1] = 2;
        EXPECT_TRUE(HostProtectPage(page, record, nullptr) && HostUnProtectPage(page));
        page[0] = 3;
    });
    expectGood(child);
    expectHas(child.err, "^(\n\\[Debug\\]: Kestrune ignored signal SIGSEGV caused by attempted guard page access at "
                         "address 0x[0-9a-f]+.  time=[0-9]+\n){2}$");
}

// A thread touched the page, too, before it was opened; its fault arrives after that. The second is a fault of its own.
TEST(GuardPages, FaultThatAnotherThreadRepaired) {
    const auto body = [] {
        install();
        char* const page = newPage(PROT_READ | PROT_WRITE);
        for (int i = 0; i < 2; ++i) {
            HostProtectPage(page, allow, nullptr);
            touch(page);
            siginfo_t info = arrival(SIGSEGV, SEGV_ACCERR);
            info.si_addr = page + 17;
            HostFaultHandler(SIGSEGV, &info, nullptr);
            say(i == 0 ? "first again\n" : "second again\n");
        }
        HostUnProtectPage(page);
        munmap(page, UtlGetPageSize());
        touch(page);
    };
    expectEnding(body, {"first again\n[^]*second again\n\n\nKS Signal Handler: Unhandled signal 11"});
}

TEST(GuardPages, SetupFailures) {
    const ChildResult child = runInChild([] {
        SysErrorSType err;
        char expected[128];
        const long size = long(UtlGetPageSize());
        char* const page = newPage(PROT_READ);
        EXPECT_FALSE(HostProtectPage(page + 4, nullptr, &err));
        snprintf(expected, sizeof expected, "Page pointer %p was not aligned on page boundary %ld.", page + 4, size);
        EXPECT_STREQ(err.errMsg, expected);
        munmap(page, size);
        EXPECT_FALSE(HostProtectPage(page, nullptr, &err));
        EXPECT_EQ(err.hostError, ENOMEM);
        for (int i = 0; i < 16; ++i)
            EXPECT_TRUE(HostProtectPage(newPage(PROT_NONE), nullptr, &err));
        EXPECT_FALSE(HostProtectPage(newPage(PROT_NONE), nullptr, &err));
        EXPECT_STREQ(err.errMsg, "System only supports protecting 16 pages.");

        char* const pages = newPage(PROT_NONE);
        EXPECT_TRUE(HostBasicProtectPageReadOnly(pages, size) && HostBasicUnprotectPage(pages, size));
        pages[0] = 1;
        EXPECT_FALSE(HostBasicUnprotectPage(pages + 1, size));
        HostBasicProtectPageReadOnly(pages, 5);
    });
    expectGood(child);
    expectHas(child.out, "^(UTL_GUARANTEE failure in file hostunix at line [0-9]+\n){2}$");
}

} // namespace
