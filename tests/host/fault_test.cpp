// The fault handler in the real library, whose faults it tells from others': installation, chaining, guard pages,
// reports, ends.
#include <cerrno>
#include <csetjmp>
#include <csignal>
#include <cstring>
#include <ctime>
#include <dlfcn.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <ucontext.h>
#include <unistd.h>

#include "errmsg.h"
#include "host/faulttools.h"
#include "host/signals/unixiosignal.h"
#include "hostatomic.h"
#include "hostdebug.h"
#include "hostfault.h"
#include "hostsignal.h"
#include "hosttime.h"
#include "syserror.h"
#include "utlheap.h"
#include "utlhost.h"

namespace {
bool lockingIsDeadly;
} // namespace

#ifndef __SANITIZE_ADDRESS__ // which has an allocator of its own
// These take locks of the C library.
extern "C" void* __libc_malloc(size_t size);
extern "C" [[gnu::visibility("default")]] void* malloc(size_t size) {
    if (lockingIsDeadly)
        _exit(96);
    return __libc_malloc(size);
}
extern "C" [[gnu::visibility("default")]] tm* localtime_r(const time_t* time, tm* local) {
    static auto* const original = reinterpret_cast<tm* (*)(const time_t*, tm*)>(dlsym(RTLD_NEXT, "localtime_r"));
    if (lockingIsDeadly)
        _exit(96);
    return original(time, local);
}
#endif

namespace {
#define SAYS(text) [](int, siginfo_t*, void*) { say(text); }

void setAction(int sig, void (*handler)(int, siginfo_t*, void*), int flags = SA_SIGINFO) {
    struct sigaction action = {};
    action.sa_sigaction = handler;
    action.sa_flags = flags;
    sigaction(sig, &action, nullptr);
}

char* newPage(int protection) {
    return static_cast<char*>(mmap(nullptr, UtlGetPageSize(), protection, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
}

void touch(const void* address) {
    asm volatile("movb (%0), %%al" : : "r"(address) : "eax");
}

// A fault whose instruction lies in the C library.
void faultInCLibrary(const char* address) {
    static size_t (*volatile length)(const char*) =
        reinterpret_cast<size_t (*)(const char*)>(dlsym(RTLD_DEFAULT, "strlen"));
    length(address);
}

// Faults in the library itself.
void faultInLibrary() {
    HostAsmSyncCtrAdd(reinterpret_cast<int*>(64), 1);
}

void keptHandler(int) {}

TEST(Install, TakesOverInTheDocumentedManner) {
    for (const bool handled : {false, true}) {
        expectGoodInChild([=] {
            sighandler_t const before = handled ? keptHandler : SIG_DFL;
            for (const int sig : {SIGPIPE, SIGHUP, SIGFPE, SIGCHLD, SIGSEGV})
                signal(sig, before);
            install();
            for (const int sig : {SIGPIPE, SIGHUP})
                EXPECT_EQ(actionOf(sig).sa_handler, handled ? keptHandler : SIG_IGN);
            for (const int sig :
                 {SIGQUIT, SIGILL, SIGFPE, SIGABRT, SIGBUS, SIGSEGV, SIGUSR1, SIGCHLD, SIGXFSZ, SIGXCPU, SIGTERM}) {
                SCOPED_TRACE(sig);
                const struct sigaction action = actionOf(sig);
                if (handled && (sig == SIGFPE || sig == SIGCHLD)) {
                    EXPECT_EQ(action.sa_handler, keptHandler);
                    continue;
                }
                EXPECT_EQ(action.sa_sigaction, HostFaultHandler);
                EXPECT_EQ(action.sa_flags & (SA_SIGINFO | SA_RESTART | SA_ONSTACK | SA_NODEFER),
                          sig == SIGTERM ? SA_SIGINFO : SA_SIGINFO | SA_RESTART);
                EXPECT_TRUE(sigismember(&action.sa_mask, SIGUSR2) && sigismember(&action.sa_mask, SIGSEGV));
            }
            hostUnInstallFaultHandler();
            for (const int sig : {SIGFPE, SIGSEGV, SIGCHLD})
                EXPECT_EQ(actionOf(sig).sa_handler, before);
            install(); // once per process
            EXPECT_EQ(actionOf(SIGSEGV).sa_handler, before);
        });
    }
}

TEST(Interrupts, KeyboardAndBlocking) {
    const auto body = [] {
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
        UNIXIO_DO_SIGNAL_(SIGUSR2, HostFaultHandler, nullptr, SA_ONSTACK);
        EXPECT_NE(actionOf(SIGUSR2).sa_flags & SA_ONSTACK, 0);
        UNIXIO_DO_SIGNAL(SIGKILL, HostFaultHandler, nullptr);
    };
    expectGoodInChild(body, "^int blocked usr2 $",
                      "^sigaction failed for sig 9 with errno 22\nUTL_GUARANTEE failure in file hostunix at line "
                      "[0-9]+\n$");
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
    const auto body = [] {
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
    };
    expectGoodInChild(body, "", "^(UTL_GUARANTEE failure in file hostunix at line [0-9]+\n){2}$");
}

// What provokes an end, after which report it comes, and how.
TEST(Report, Ends) {
    const std::string stars = "\\*\\*\\*", goodbye = " " + stars + ".\nGoodbye.\n$";
    const std::string ending =
        "[^]*\nBegin attempt to print C-level stack for PID [0-9]+ at: \n\nEnd of C-level stack for "
        "PID [0-9]+\n\nflush \\[host.core[457][^]*\n$";
    const std::string report =
        "stack of [0-9]+\n[^]*\\[host.debugger1 HostCoredump\\]\n[^]*\n    Sleeping for 0 seconds "
        "before dumping core.\n    You can now attach a debugger.     Process Id is";
    const std::pair<void (*)(), Ending> cases[] = {
        {[] { install([] { say("flush "); }), jumpToNowhere(); },
         {"^\n\nKS Signal Handler: Unhandled signal 11, SIGSEGV Received at [0-9]+ \nHostFaultHandler: signal "
          "\\(int\\) = 11 \n    info->si_signo = 11 = 0xb  \n    info->si_code =  1 = 0x1  \n    info->si_errno = 0 = "
          "0x0  \n    info->si_addr = 0x\\(nil\\)  pc = 0x\\(nil\\) \n  Registers saved from frame receiving the "
          "signal:\n   (gs|r8) 0x[0-9a-f]+ (fs|r9) 0x" +
              ending,
          report}},
        {[] {
             install([] { say("flush "); });
             asm volatile("xorl %%ecx, %%ecx; divl %%ecx" : : : "eax", "ecx", "edx");
         },
         {"Unhandled signal 8, SIGFPE [^]*si_errno = 0 = 0x0  \nflush \nBegin", report}},
        // What does not come from a fault.
        {[] { install(), kill(getpid(), SIGSEGV); },
         {"^KS signal handler: signal 11 \\(SIGSEGV\\), received from process [0-9]+ userId [0-9]+\n  si_code: 0, "
          "SI_USER, signal from kill\\(2\\), sigsend\\(2\\), raise\\(3C\\) or abort\\(3C\\)\n"
          "\\[fault.errno [^\n]*\\]\nBegin"}},
        {[] { install(), abort(); }, {"signal 6 \\(SIGABRT\\)[^]*si_code: -6, SI_TKILL, signal from tkill"}},
        {[] { install(), HostFaultHandler(SIGSEGV, nullptr, nullptr); },
         {"^KS signal handler: signal 11 \\(SIGSEGV\\), received with incomplete or invalid args.  Additional info not "
          "available.\n"}},
        {[] {
             install();
             siginfo_t info = arrival(SIGSEGV, SEGV_MAPERR, ENOMEM);
             HostFaultHandler(SIGSEGV, &info, nullptr);
         },
         {"\\[fault.errno 12 Cannot allocate memory\\]KS signal handler: cannot safely fork\\(\\) to print the C stack "
          "due to ENOMEM error.\n   This is really a Linux bug.  See: [^]*4737\n$",
          "", -1, SIGABRT}},
        // Earlier handlers: of one argument, called once, ignoring.
        {[] {
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
         },
         {"^one argument ignored once \n\nKS Signal Handler: Unhandled signal 3, SIGQUIT "}},
        // A fault of this library is not passed on; the earlier handler is only called on the way out.
        {[] { setAction(SIGSEGV, SAYS("earlier handler\n")), install(), faultInLibrary(); },
         {"Unhandled signal 11, SIGSEGV Received at [0-9]+ \n[^]*earlier handler\n\nBegin attempt"}},
        // A handler that faults itself.
        {[] {
             constexpr auto faulty = [](int, siginfo_t*, void*) { say("fault in handler\n"), jumpToNowhere(); };
             setAction(SIGSEGV, faulty, SA_SIGINFO | SA_NODEFER);
             install();
             jumpToNowhere();
         },
         {"^(fault in handler\n){2}KS signal handler: Recursive SEGV detected, attempting to dump core\n$", "", -1,
          SIGABRT}},
        // On request, at once.
        {[] { install([] { say("flushed"); }), HostExitOnFault(), jumpToNowhere(); },
         {"^\n" + stars + " Received signal 11 \\(SIGSEGV\\) at [0-9]+" + goodbye, "", 1}},
        {[] {
             install([] { say("flushed"); });
             char* page = newPage(PROT_READ | PROT_WRITE);
             HostProtectPage(page, allow, nullptr);
             HostExitOnGuardPageAccess();
             touch(page);
         },
         {"^\n" + stars +
              " Kestrune detected a SIGSEGV caused by an attempt to access guard page address 0x[0-9a-f]+.  "
              "time=[0-9]+" +
              goodbye,
          "", 1}},
        // Later, but for a fault.
        {[] {
             install([] { say("flush "); });
             HostDoSigExit(); // nothing is postponed
             HostDelaySigExit([] { say("postponed "); }, [] { say("complete"); });
             raise(SIGTERM);
             HostDoSigExit();
         },
         {"^postponed flush $", "", 0}},
        {[] { install(), HostDelaySigExit([] { say("postponed "); }, nullptr), jumpToNowhere(); },
         {"^(?![^]*postponed)[^]*Unhandled signal 11"}},
        // Exit handlers that run in the signal handler and cannot end.
        {[] { install(), atexit(jumpToNowhere), raise(SIGTERM); },
         {"KS Signal Handler: the exit handlers did not come to their end\n$", "", 0}},
        {[] { install(), atexit(abort), raise(SIGTERM); },
         {"KS Signal Handler: the exit handlers did not come to their end\n$", "", 0}},
    };
    for (const auto& [body, expected] : cases) {
        SCOPED_TRACE(expected.err);
        expectEnding(body, expected);
    }
}

TEST(Report, EndsWhoeverFaultsAndHoweverMany) {
    const ReportFolder folder;
    const ChildResult child = runToItsEnd([] { install(), inThreads(8, jumpToNowhere); });
    EXPECT_FALSE(child.timedOut);
    EXPECT_TRUE(child.exitStatus == 1 || child.exitStatus == 3) << child.exitStatus << " " << child.signal;
    expectHas(child.err, "Unhandled signal 11, SIGSEGV");
}

void termFromAnother() {
    const pid_t self = getpid();
    if (fork() == 0)
        kill(self, SIGTERM), _exit(0);
    HostSleep(10);
}

TEST(Termination, SigTermAndSigXcpu) {
    const std::string place = "Received at [0-9]+ in thread [0-9]+\nflush ";
    const std::pair<void (*)(), std::string> cases[] = {
        {[] { kill(getpid(), SIGTERM); }, "^flush count=1 $"}, // quiet from itself
        {termFromAnother,
         "^\nKS Signal Handler: Signal 15, SIGTERM, Software Termination Signal " + place + "count=1 $"},
        {[] { raise(SIGXCPU); },
         "^\nKS Signal Handler: Signal 24, SIGXCPU, CPU time limit exceeded " + place + "count=0 earlier$"},
    };
    for (const auto& [provoke, err] : cases) {
        const auto body = [&] {
            for (const int sig : {SIGTERM, SIGXCPU})
                signal(sig, [](int) { say("earlier"); });
            install([] {
                EXPECT_TRUE(HostGetFatalErr());
                say(HostGetSigTerm_() == 1 ? "flush count=1 " : "flush count=0 ");
            });
            provoke();
        };
        expectEnding(body, {err, "", 0});
    }
}

TEST(Children, FloodIsReaped) {
    const auto body = [] {
        install();
        for (int i = 0; i < 100; ++i) {
            if (fork() == 0)
                _exit(0);
        }
        for (int i = 0; i < 2000 && waitpid(-1, nullptr, WNOHANG) != -1; ++i)
            HostMilliSleep(5);
        EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1);
    };
    expectGoodInChild(body, "^$");
}

// With a stack printer, and without.
TEST(Stacks, SigUsr1PrintsThemAndLifeGoesOn) {
    const std::pair<ReportFolder::Printer, std::string> cases[] = {
        {ReportFolder::Printer::fake, "stack of [0-9]+\n"},
        {ReportFolder::Printer::none, "UTL_GUARANTEE failure in file hostunix at line [0-9]+\n"},
    };
    for (const auto& [printer, out] : cases) {
        const ReportFolder folder(printer);
        setenv("KESTRUNE_CHILD_DEBUG", "1", 1); // waits for ever after a broken guarantee, but not here
        const ChildResult child = runToItsEnd([&] {
            signal(SIGUSR1, [](int) { say("chained"); });
            install([] { say("flush "); });
            HostSetSmalltalkPrintStackFunc([] { say("language stack\n"); });
            raise(SIGUSR1);
            EXPECT_FALSE(HostGetFatalErr());
        });
        expectGood(child);
        expectHas(child.out, "^[^\n]+\n" + out + "$");
        const std::string missing =
            printer == ReportFolder::Printer::fake
                ? ""
                : "  Warning: Unable to print C call stack.  'gstack' file not found\n\nC-level "
                  "stack not available\n";
        expectHas(child.err, "^\n\nSignal SIGUSR1 received printingStack ...\nBegin attempt to print C-level stack for "
                             "PID [0-9]+ at: \n" +
                                 missing + "\nEnd of C-level stack for PID [0-9]+\n\nlanguage stack\n\nchained$");
    }
}

// A thread faults while it holds every lock of the library, as a fork in the making does; the C library's, too, may be
// held by whatever was interrupted.
TEST(Report, NeedsNoLock) {
    for (const int sig : {SIGSEGV, SIGABRT, SIGQUIT, SIGUSR1}) {
        const auto body = [sig] {
            static int signalSent;
            signalSent = sig;
            // Standard output as if it had not been used yet.
            EXPECT_NE(freopen("/proc/self/fd/1", "w", stdout), nullptr);
            // Handlers registered first run last before a fork.
            pthread_atfork([] { lockingIsDeadly = true, raise(signalSent); }, nullptr, nullptr);
            signal(SIGUSR1, [](int) { _exit(3); }); // called after the stacks were printed
            install();
            ErrMsgInit();
            ErrMsgSetPanicked(FALSE);
            UtlFree(UtlMalloc(10, "test"));
            fork();
        };
        expectEnding(body, {"End of C-level stack", "stack of [0-9]+\n"});
    }
}
} // namespace
