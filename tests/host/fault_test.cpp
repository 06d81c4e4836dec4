// The fault handler in the real library, whose faults it tells from others'.
#include "hostfault.h"

#include <array>
#include <atomic>
#include <cerrno>
#include <csetjmp>
#include <csignal>
#include <cstring>
#include <dlfcn.h>
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
// What abort, replaced below for recursion into the handler, does before it aborts: so many faults.
std::atomic<int> faultsInAbort;

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
siginfo_t* infoInside;
void* contextInside;
uintptr_t stackInside;

void openClosedPage(int, siginfo_t* info, void* context) {
    stackInside = reinterpret_cast<uintptr_t>(__builtin_frame_address(0));
    infoInside = info;
    contextInside = context;
    pthread_sigmask(SIG_BLOCK, nullptr, &maskInside);
    mprotect(closedPage, UtlGetPageSize(), PROT_READ | PROT_WRITE);
    errno = ENOTTY;
}

void closePageAndFault() {
    mprotect(closedPage, UtlGetPageSize(), PROT_NONE);
    faultInCLibrary(closedPage);
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
            for (int i = 0; i < 2; ++i)
                closePageAndFault();
            EXPECT_EQ(errno, EDOM);
            EXPECT_EQ(infoInside->si_addr, closedPage);
            EXPECT_NE(contextInside, nullptr);
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

#if !defined(__SANITIZE_ADDRESS__)
TEST(Chaining, NeedsLittleStack) {
    expectGoodInChild([] {
        closedPage = newPage(PROT_NONE);
        setAction(SIGSEGV, openClosedPage);
        const auto depth = [] {
            closePageAndFault();
#if defined(__i386__)
            constexpr int stackPointer = REG_ESP;
#else
            constexpr int stackPointer = REG_RSP;
#endif
            const auto* context = static_cast<ucontext_t*>(contextInside);
            return static_cast<uintptr_t>(context->uc_mcontext.gregs[stackPointer]) - stackInside;
        };
        const uintptr_t direct = depth();
        install();
        EXPECT_LT(depth() - direct, 1024U);
    });
}
#endif

TEST(Recursion, LimitsOnOneThread) {
    struct Case {
        int faultsOfAbort; // 0: the third activation aborts for good, 1: the fourth does, 2: the fifth ends the process
        int signal, exitStatus;
    };
    for (const Case& c : {Case{0, SIGABRT, -1}, Case{1, SIGABRT, -1}, Case{2, 0, 2}}) {
        const ChildResult child = runToItsEnd([&] {
            faultsInAbort = c.faultsOfAbort;
            const auto fault = [](int, siginfo_t*, void*) { say("fault in handler\n"), jumpToNowhere(); };
            setAction(SIGSEGV, fault, SA_SIGINFO | SA_NODEFER);
            install();
            jumpToNowhere();
        });
        EXPECT_EQ(child.err, "fault in handler\nfault in handler\nKS signal handler: Recursive SEGV detected, "
                             "attempting to dump core\n");
        EXPECT_EQ(child.signal, c.signal);
        EXPECT_EQ(child.exitStatus, c.exitStatus);
    }
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
    expectEnding(
        provoke([] { HostExitOnFault(), raise(SIGILL); }),
        {"^KS signal handler: signal 4 [^]*\n\n" + stars + " Received signal 4 \\(SIGILL\\) at [0-9]+" + goodbye, "",
         1});
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
        // A fault without an address asks for every page.
        char* const other = newPage(PROT_READ | PROT_WRITE);
        EXPECT_TRUE(HostProtectPage(page, record, nullptr) && HostProtectPage(other, record, nullptr));
        siginfo_t info = arrival(SIGSEGV, SEGV_MAPERR);
        HostFaultHandler(SIGSEGV, &info, nullptr);
        EXPECT_EQ(toldPage, other);
        EXPECT_EQ(toldAddress, nullptr);
        page[0] = other[0] = 4;
    });
    expectGood(child);
    const std::string line = "\n\\[Debug\\]: Kestrune ignored signal SIGSEGV caused by attempted guard page access at "
                             "address ";
    const std::string somewhere = line + "0x[0-9a-f]+.  time=[0-9]+\n";
    expectHas(child.err, "^" + somewhere + somewhere + line + "\\(nil\\).  time=[0-9]+\n$");
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
        snprintf(expected, sizeof expected, "mprotect(%p,%ld,PROT_NONE): Cannot allocate memory", page, size);
        EXPECT_STREQ(err.errMsg, expected);
        EXPECT_FALSE(HostUnProtectPage(page));
        for (int i = 0; i < 16; ++i)
            EXPECT_TRUE(HostProtectPage(newPage(PROT_NONE), nullptr, &err));
        EXPECT_FALSE(HostProtectPage(newPage(PROT_NONE), nullptr, &err));
        EXPECT_STREQ(err.errMsg, "System only supports protecting 16 pages.");

        char* const pages = newPage(PROT_NONE);
        EXPECT_TRUE(HostBasicProtectPageReadOnly(pages, size));
        touch(pages);
        EXPECT_TRUE(HostBasicUnprotectPage(pages, size));
        pages[0] = 1;
        EXPECT_FALSE(HostBasicUnprotectPage(pages + 1, size));
        HostBasicProtectPageReadOnly(pages, 5);
    });
    expectGood(child);
    expectHas(child.out, "^(UTL_GUARANTEE failure in file hostunix at line [0-9]+\n){2}$");
}

#if !defined(__SANITIZE_ADDRESS__)
// While it is set, asking for memory is fatal.
std::atomic<bool> noAllocation;

TEST(SignalContext, AllocatesNothing) {
    const ReportFolder folder(ReportFolder::Printer::fake);
    const ChildResult child = runInChild([] {
        closedPage = newPage(PROT_NONE);
        setAction(SIGSEGV, openClosedPage);
        install();
        HostDelaySigExit([] {}, nullptr);
        char* const page = newPage(PROT_NONE);
        HostProtectPage(page, allow, nullptr);
        noAllocation = true;
        closePageAndFault();
        touch(page);
        raise(SIGUSR1);
        raise(SIGCHLD);
        raise(SIGTERM);
        siginfo_t info = arrival(SIGXFSZ, SI_KERNEL);
        HostFaultHandler(SIGXFSZ, &info, nullptr); // unhandled, reported, postponed
        noAllocation = false;
    });
    expectGood(child);
    expectHas(child.err, "Unhandled signal 25, SIGXFSZ");
}
#endif

} // namespace

// Replaces the C library's, for this program and the library.
extern "C" void abort() noexcept {
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGSEGV);
    pthread_sigmask(SIG_UNBLOCK, &set, nullptr);
    if (faultsInAbort-- > 0)
        jumpToNowhere();
    reinterpret_cast<void (*)()>(dlsym(RTLD_NEXT, "abort"))();
    _exit(98);
}

#if !defined(__SANITIZE_ADDRESS__)
extern "C" void* __libc_malloc(size_t size);
extern "C" void* malloc(size_t size) {
    if (noAllocation) {
        say("malloc in a signal handler\n");
        _exit(97);
    }
    return __libc_malloc(size);
}
#endif
