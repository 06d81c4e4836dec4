// Reports of unhandled faults, ends on request, and what else the handler does, in the real library.
#include <cerrno>
#include <csignal>
#include <cstring>
#include <sys/mman.h>
#include <sys/wait.h>
#include <ucontext.h>
#include <unistd.h>

#include "errmsg.h"
#include "host/faulttools.h"
#include "hostdebug.h"
#include "hostfault.h"
#include "hostsignal.h"
#include "hosttime.h"
#include "utlheap.h"

namespace {
// A fault whose every saved register has a value of its own.
void faultWithKnownRegisters() {
    siginfo_t info = arrival(SIGBUS, BUS_ADRERR);
    info.si_addr = reinterpret_cast<void*>(0xabc);
    ucontext_t context = {};
    for (int i = 0; i < NGREG; ++i)
        context.uc_mcontext.gregs[i] = 0x100 + i;
    HostFaultHandler(SIGBUS, &info, &context);
}

#if defined(__i386__)
#define FIRST_REGISTERS "gs 0x[0-9a-f]+ fs 0x[0-9a-f]+ es 0x"
#define PROGRAM_COUNTER "0x10e"
#define REGISTERS                                                                                                      \
    "   gs 0x100 fs 0x101 es 0x102 ds 0x103 \n   edi 0x104 esi 0x105 epb 0x106 esp 0x107 \n"                           \
    "   ebx 0x108 edx 0x109 ecx 0x10a eax 0x10b \n   trapno 0x10c err 0x10d eip 0x10e cs 0x10f \n"                     \
    "   efl 0x110 uesp 0x111 ss 0x112 \n"
#else
#define FIRST_REGISTERS "r8 0x[0-9a-f]+ r9 0x[0-9a-f]+ r10 0x"
#define PROGRAM_COUNTER "0x110"
#define REGISTERS                                                                                                      \
    "   r8 0x100 r9 0x101 r10 0x102 r11 0x103 \n   r12 0x104 r13 0x105 r14 0x106 r15 0x107 \n"                         \
    "   rdi 0x108 rsi 0x109 rbp 0x10a rsp 0x10f \n   rbx 0x10b rdx 0x10c rcx 0x10e rax 0x10d \n"                       \
    "   trapno 0x114 err 0x113 rip 0x110 csgsfs 0x112 \n   efl 0x111 cr2 0x116 \n"
#endif

TEST(Report, UnhandledFaults) {
    const std::string ending = "\nBegin attempt to print C-level stack for PID [0-9]+ at: \n\nEnd of C-level stack for "
                               "PID [0-9]+\n\nflush \\[host.core[457][^]*\n$";
    const std::pair<void (*)(), std::string> cases[] = {
        {jumpToNowhere,
         "^\n\nKS Signal Handler: Unhandled signal 11, SIGSEGV Received at [0-9]+ \nHostFaultHandler: signal "
         "\\(int\\) = 11 \n    info->si_signo = 11 = 0xb  \n    info->si_code =  1 = 0x1  \n    info->si_errno = 0 = "
         "0x0  \n    info->si_addr = 0x\\(nil\\)  pc = 0x\\(nil\\) \n  Registers saved from frame receiving the "
         "signal:\n   " FIRST_REGISTERS},
        {faultWithKnownRegisters, "    info->si_addr = 0x0xabc  pc = 0x" PROGRAM_COUNTER " \n"
                                  "  Registers saved from frame receiving the signal:\n" REGISTERS},
        {[] {
             asm volatile("xorl %%ecx, %%ecx; divl %%ecx" : : : "eax", "ecx", "edx");
         },
         "Unhandled signal 8, SIGFPE [^]*si_errno = 0 = 0x0  \n(?=flush \nBegin)"},
    };
    for (const auto& [fault, start] : cases)
        expectEnding([&] { install([] { say("flush "); }), fault(); },
                     {start + "[^]*" + ending,
                      "stack of [0-9]+\n[^]*\\[host.debugger1 HostCoredump\\]\n[^]*\n    Sleeping for 0 seconds before "
                      "dumping core.\n    You can now attach a debugger.     Process Id is"});
}

TEST(Report, SentAndImpossibleSignals) {
    const auto withoutMemory = [] {
        siginfo_t info = arrival(SIGSEGV, SEGV_MAPERR, ENOMEM);
        HostFaultHandler(SIGSEGV, &info, nullptr);
    };
    const std::pair<void (*)(), Ending> cases[] = {
        {[] { kill(getpid(), SIGSEGV); },
         {"^KS signal handler: signal 11 \\(SIGSEGV\\), received from process [0-9]+ userId [0-9]+\n  si_code: 0, "
          "SI_USER, signal from kill\\(2\\), sigsend\\(2\\), raise\\(3C\\) or abort\\(3C\\)\n"
          "\\[fault.errno [^\n]*\\]\nBegin"}},
        {[] { abort(); }, {"signal 6 \\(SIGABRT\\)[^]*si_code: -6, SI_TKILL, signal from tkill"}},
        {[] { HostFaultHandler(SIGSEGV, nullptr, nullptr); },
         {"^KS signal handler: signal 11 \\(SIGSEGV\\), received with incomplete or invalid args.  Additional info not "
          "available.\n"}},
        {withoutMemory,
         {"\\[fault.errno 12 Cannot allocate memory\\]KS signal handler: cannot safely fork\\(\\) to print the C stack "
          "due to ENOMEM error.\n   This is really a Linux bug.  See: [^]*4737\n$",
          "", -1, SIGABRT}},
    };
    for (const auto& [provoke, ending] : cases)
        expectEnding([&] { install(), provoke(); }, ending);
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

TEST(Termination, PostponedExit) {
    const std::pair<void (*)(), Ending> cases[] = {
        {[] {
             install([] { say("flush "); });
             HostDoSigExit(); // nothing is postponed
             HostDelaySigExit([] { say("postponed "); }, [] { say("complete"); });
             raise(SIGTERM);
             HostDoSigExit();
         },
         {"^postponed flush $", "", 0}},
        {[] { // a fault is not
             install();
             HostDelaySigExit([] { say("postponed "); }, nullptr);
             jumpToNowhere();
         },
         {"^(?![^]*postponed)[^]*Unhandled signal 11"}},
    };
    for (const auto& [body, ending] : cases)
        expectEnding(body, ending);
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
    expectGood(child);
    EXPECT_EQ(child.err, "");
}

// With a stack printer, and without.
TEST(Stacks, SigUsr1PrintsThemAndLifeGoesOn) {
    const std::string guarantee = "UTL_GUARANTEE failure in file hostunix at line [0-9]+\n";
    const std::string missing =
        "  Warning: Unable to print C call stack.  'gstack' file not found\n\nC-level stack not "
        "available\n";
    const std::string ending = "\nEnd of C-level stack for PID [0-9]+\n\n";
    const struct {
        ReportFolder::Printer printer;
        std::string err, out;
    } cases[] = {
        {ReportFolder::Printer::fake, "", "^[^\n]+\nstack of [0-9]+\n$"},
        {ReportFolder::Printer::none, missing, "^[^\n]+\n" + guarantee + "$"},
    };
    for (const auto& c : cases) {
        const ReportFolder folder(c.printer);
        setenv("KESTRUNE_CHILD_DEBUG", "1", 1); // waits for ever after a broken guarantee, but not here
        const ChildResult child = runToItsEnd([&] {
            signal(SIGUSR1, [](int) { say("chained"); });
            install([] { say("flush "); });
            HostSetSmalltalkPrintStackFunc([] { say("language stack\n"); });
            raise(SIGUSR1);
            EXPECT_FALSE(HostGetFatalErr());
        });
        unsetenv("KESTRUNE_CHILD_DEBUG");
        expectHas(child.err,
                  "^\n\nSignal SIGUSR1 received printingStack ...\nBegin attempt to print C-level stack for PID "
                  "[0-9]+ at: \n" +
                      c.err + ending + "language stack\n\nchained$");
        expectHas(child.out, c.out);
        expectGood(child);
    }
}

// Exit handlers that run in the signal handler and cannot end.
TEST(Termination, ExitHandlersThatNeedWhatWasInterrupted) {
    void (*const handlers[])() = {jumpToNowhere, abort};
    for (void (*const handler)() : handlers) {
        const auto body = [=] { install(), atexit(handler), raise(SIGTERM); };
        expectEnding(body, {"KS Signal Handler: the exit handlers did not come to their end\n$", "", 0});
    }
}

// A thread faults while it holds every lock of the library, as a fork in the making does.
TEST(Report, NeedsNoLock) {
    const auto body = [] {
        // Handlers registered first run last before a fork.
        pthread_atfork(jumpToNowhere, nullptr, nullptr);
        install();
        ErrMsgInit();
        ErrMsgSetPanicked(FALSE);
        UtlFree(UtlMalloc(10, "test"));
        fork();
    };
    expectEnding(body, {"", "stack of [0-9]+\n[^]*\\[host.debugger1 HostCoredump\\]\n"});
}
} // namespace
