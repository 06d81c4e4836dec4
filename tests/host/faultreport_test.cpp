// Reports of unhandled faults, ends on request, and what else the handler does, in the real library.
#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include "errmsg.h"
#include "host/faulttools.h"
#include "hostdebug.h"
#include "hostfault.h"
#include "hostsignal.h"
#include "hosttime.h"
#include "utlheap.h"

namespace {
TEST(Report, UnhandledFaults) {
    const std::string jump =
        "^\n\nKS Signal Handler: Unhandled signal 11, SIGSEGV Received at [0-9]+ \nHostFaultHandler: signal "
        "\\(int\\) = 11 \n    info->si_signo = 11 = 0xb  \n    info->si_code =  1 = 0x1  \n    info->si_errno = 0 = "
        "0x0 "
        " \n    info->si_addr = 0x\\(nil\\)  pc = 0x\\(nil\\) \n";
    const std::string registers =
        "  Registers saved from frame receiving the signal:\n   gs 0x[0-9a-f]+ fs 0x[0-9a-f]+ es 0x[0-9a-f]+ ds "
        "0x[0-9a-f]+ \n   edi 0x[0-9a-f]+ esi 0x[0-9a-f]+ epb 0x[0-9a-f]+ esp 0x[0-9a-f]+ \n   ebx 0x[0-9a-f]+ edx "
        "0x[0-9a-f]+ ecx 0x[0-9a-f]+ eax 0x[0-9a-f]+ \n   trapno 0xe err 0x[0-9a-f]+ eip 0x[0-9a-f]+ cs 0x[0-9a-f]+ "
        "\n   efl 0x[0-9a-f]+ uesp 0x[0-9a-f]+ ss 0x[0-9a-f]+ \n";
    const std::string ending = "\nBegin attempt to print C-level stack for PID [0-9]+ at: \n\nEnd of C-level stack for "
                               "PID [0-9]+\n\nflush \\[host.core[457][^]*\n$";
    struct Case {
        const char* name;
        void (*fault)();
        std::string start;
    };
    const std::array<Case, 4> cases{{
        {"jump to nowhere", jumpToNowhere, jump + registers},
        {"store", [] { memset(newPage(PROT_READ), 1, 1); }, "SIGSEGV [^]*si_code =  2"},
        {"divide", [] { asm volatile("xorl %%ecx, %%ecx; divl %%ecx"
                                     :
                                     :
                                     : "eax", "ecx", "edx"); },
         "Unhandled signal 8, SIGFPE [^]*si_errno = 0 = 0x0  \n"},
        {"illegal instruction", [] { asm volatile("ud2"); }, "Unhandled signal 4, SIGILL Received"},
    }};
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        const ReportFolder folder;
        const ChildResult child = runToItsEnd([&] {
            install([] { say("flush "); });
            c.fault();
        });
        EXPECT_TRUE(has(child.err, c.start)) << child.err;
        EXPECT_TRUE(has(child.err, ending)) << child.err;
        EXPECT_TRUE(has(child.out,
                        "stack of [0-9]+\n[^]*\\[host.debugger1 HostCoredump\\]\n[^]*\n    Sleeping for 0 "
                        "seconds before dumping core.\n    You can now attach a debugger.     Process Id is"))
            << child.out;
        EXPECT_EQ(child.exitStatus, 3);
    }
}

TEST(Report, SentAndImpossibleSignals) {
    struct Case {
        const char* name;
        void (*provoke)();
        const char* err;
        int exitStatus;
        int signal;
    };
    const std::array<Case, 6> cases{{
        {"kill", [] { kill(getpid(), SIGSEGV); },
         "^KS signal handler: signal 11 \\(SIGSEGV\\), received from process [0-9]+ userId [0-9]+\n  si_code: 0, "
         "SI_USER, "
         "signal from kill\\(2\\), sigsend\\(2\\), raise\\(3C\\) or abort\\(3C\\)\n\\[fault.errno [^\n]*\\]\nBegin",
         3, 0},
        {"queue", [] { sigqueue(getpid(), SIGBUS, {}); }, "si_code: -1, SI_QUEUE, signal from sigqueue\\(3RT\\)\n", 3,
         0},
        {"abort", [] { abort(); }, "signal 6 \\(SIGABRT\\)[^]*si_code: -6, SI_TKILL, signal from tkill", 3, 0},
        {"no info", [] { HostFaultHandler(SIGSEGV, nullptr, nullptr); },
         "^KS signal handler: signal 11 \\(SIGSEGV\\), received with incomplete or invalid args.  Additional info not "
         "available.\n",
         3, 0},
        {"no info, no core files", [] { coreDumpEnabled = 0, HostFaultHandler(SIGBUS, nullptr, nullptr); },
         "Unhandled signal 7, SIGBUS Received at [0-9]+ \nHostFaultHandler: signal \\(int\\) = 7 \n    info arg to "
         "HostFaultHandler was invalid\n",
         3, 0},
        {"no memory",
         [] {
             siginfo_t info = arrival(SIGSEGV, SEGV_MAPERR, ENOMEM);
             HostFaultHandler(SIGSEGV, &info, nullptr);
         },
         "\\[fault.errno 12 Cannot allocate memory\\]KS signal handler: cannot safely fork\\(\\) to print the C stack "
         "due to ENOMEM error.\n   This is really a Linux bug.  See: [^]*4737\n$",
         -1, SIGABRT},
    }};
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        const ReportFolder folder;
        const ChildResult child = runToItsEnd([&] { install(), c.provoke(); });
        EXPECT_TRUE(has(child.err, c.err)) << child.err;
        EXPECT_EQ(child.exitStatus, c.exitStatus) << child.out;
        EXPECT_EQ(child.signal, c.signal);
    }
}

TEST(Report, EndsWhoeverFaultsAndHoweverMany) {
    const ReportFolder folder;
    const ChildResult child = runToItsEnd([] {
        install();
        std::vector<std::thread> all;
        for (int i = 0; i < 8; ++i)
            all.emplace_back(jumpToNowhere);
        for (std::thread& thread : all)
            thread.join();
    });
    EXPECT_FALSE(child.timedOut);
    EXPECT_TRUE(child.exitStatus == 1 || child.exitStatus == 3) << child.exitStatus << " " << child.signal;
    EXPECT_TRUE(has(child.err, "Unhandled signal 11, SIGSEGV")) << child.err;
}

TEST(Termination, SigTermAndSigXcpu) {
    struct Case {
        const char* name;
        void (*provoke)();
        bool fromOutside;
        const char* err;
    };
    const std::array<Case, 3> cases{{
        {"quiet from itself", [] { kill(getpid(), SIGTERM); }, false, "^flush count=1 $"},
        {"from another", [] { HostSleep(10); }, true,
         "^\nKS Signal Handler: Signal 15, SIGTERM, Software Termination Signal Received at [0-9]+ in thread "
         "[0-9]+\nflush count=1 $"},
        {"processor time", [] { raise(SIGXCPU); }, false,
         "^\nKS Signal Handler: Signal 24, SIGXCPU, CPU time limit exceeded Received at [0-9]+ in thread [0-9]+\nflush "
         "count=0 earlier$"},
    }};
    for (const Case& c : cases) {
        const ChildResult child = runToItsEnd(
            [&] {
                for (const int sig : {SIGTERM, SIGXCPU})
                    setPlain(sig, [](int) { say("earlier"); });
                install([] {
                    EXPECT_TRUE(HostGetFatalErr());
                    say("flush ");
                    say(HostGetSigTerm_() == 1 ? "count=1 " : "count=0 ");
                });
                c.provoke();
            },
            [&](pid_t pid) {
                if (c.fromOutside)
                    waitUntilHandled(pid, SIGTERM), HostMilliSleep(100), kill(pid, SIGTERM);
            });
        EXPECT_TRUE(has(child.err, c.err)) << c.name << child.err;
        EXPECT_EQ(child.exitStatus, 0);
    }
}

TEST(Termination, PostponedExit) {
    const ReportFolder folder;
    const ChildResult term = runToItsEnd([] {
        install([] { say("flush "); });
        HostDoSigExit(); // nothing is postponed
        HostDelaySigExit([] { say("postponed "); }, [] { say("complete"); });
        raise(SIGTERM);
        HostDoSigExit();
    });
    EXPECT_TRUE(has(term.err, "postponed flush $")) << term.err;
    EXPECT_EQ(term.exitStatus, 0);

    const ChildResult limit = runToItsEnd([] {
        setAction(SIGXFSZ, [](int sig, siginfo_t* info, void*) { say(info->si_signo == sig ? "told " : "wrong "); });
        setAction(SIGPROF, HostFaultHandler);
        install();
        HostDelaySigExit([] { say("postponed "); }, nullptr);
        raise(SIGPROF);
        say("goes on\n");
        HostDoSigExit();
    });
    EXPECT_TRUE(has(limit.err, "Unhandled signal 27, unknown [^]*postponed goes on\n\nBegin attempt")) << limit.err;
    EXPECT_EQ(limit.exitStatus, 3);

    const ChildResult fault = runToItsEnd([] {
        install();
        HostDelaySigExit([] { say("postponed "); }, nullptr);
        jumpToNowhere();
    });
    EXPECT_FALSE(has(fault.err, "postponed"));
    EXPECT_EQ(fault.exitStatus, 3);
}

TEST(Termination, StormDuringSleep) {
    const ChildResult child = runToItsEnd(
        [] {
            HostDelaySigExit([] {}, nullptr);
            install();
            HostSleep(15);
            EXPECT_GT(HostClearSigTerm(), 0);
            HostDoSigExit();
        },
        [](pid_t pid) {
            waitUntilHandled(pid, SIGTERM);
            for (int i = 0; i < 200; ++i)
                HostMilliSleep(2), kill(pid, SIGTERM);
        });
    EXPECT_LT(child.elapsed.count(), 10000);
    EXPECT_EQ(child.exitStatus, 0);
}

TEST(Children, FloodIsReaped) {
    const ChildResult child = runInChild([] {
        install();
        for (int i = 0; i < 100; ++i) {
            if (fork() == 0)
                _exit(0);
        }
        errno = 0;
        for (int i = 0; i < 2000 && (waitpid(-1, nullptr, WNOHANG) != -1 || errno != ECHILD); ++i)
            HostMilliSleep(5);
        EXPECT_EQ(errno, ECHILD);
    });
    EXPECT_EQ(child.exitStatus, 0);
    EXPECT_EQ(child.err, "");
}

TEST(Stacks, SigUsr1PrintsThemAndLifeGoesOn) {
    struct Case {
        ReportFolder::Printer printer;
        const char* err;
        const char* out;
    };
    for (const Case& c :
         {Case{ReportFolder::Printer::fake, "at: \n\nEnd of C-level", "^[^\n]+\nstack of [0-9]+\n$"},
          Case{ReportFolder::Printer::none,
               "at: \n  Warning: Unable to print C call stack.  'gstack' file not found\n\nC-level stack "
               "not available\n\nEnd of C-level",
               "^[^\n]+\nUTL_GUARANTEE failure in file hostunix at line [0-9]+\n$"}}) {
        const ReportFolder folder(c.printer);
        const ChildResult child = runToItsEnd([] {
            setPlain(SIGUSR1, [](int) { say("chained"); });
            install();
            HostSetSmalltalkPrintStackFunc([] { say("language stack\n"); });
            raise(SIGUSR1);
        });
        EXPECT_TRUE(
            has(child.err, "^\n\nSignal SIGUSR1 received printingStack ...\nBegin attempt to print C-level stack "
                           "for PID [0-9]+ [^]*" +
                               std::string(c.err) + " stack for PID [0-9]+\n\nlanguage stack\n\nchained$"))
            << child.err;
        EXPECT_TRUE(has(child.out, c.out)) << child.out;
        EXPECT_EQ(child.exitStatus, 0);
    }
}

// A thread faults while it holds every lock of the library, as a fork in the making does.
TEST(Report, NeedsNoLock) {
    const ReportFolder folder;
    const ChildResult child = runToItsEnd([] {
        install();
        // Handlers registered first run last before a fork.
        pthread_atfork(jumpToNowhere, nullptr, nullptr);
        ErrMsgInit();
        ErrMsgSetPanicked(FALSE);
        UtlFree(UtlMalloc(10, "test"));
        fork();
    });
    EXPECT_FALSE(child.timedOut);
    EXPECT_EQ(child.exitStatus, 3);
    EXPECT_TRUE(has(child.out, "\\[host.debugger1 HostCoredump\\]\n")) << child.out;
    EXPECT_TRUE(has(child.out, "stack of [0-9]+\n")) << child.out;
}
} // namespace
