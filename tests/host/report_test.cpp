// The fatal report, core files, C stacks and waits.
#include <algorithm>
#include <cerrno>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <numeric>
#include <sys/resource.h>
#include <ucontext.h>
#include <unistd.h>

#include "hash.h"
#include "host/base/guarantee.h"
#include "host/faults/faulttext.h"
#include "host/faults/hostfaultinstall.h"
#include "host/faults/hostsigexit.h"
#include "host/faulttools.h"
#include "host/hostinit.h"
#include "host/report/hoststack.h"
#include "hostdebug.h"
#include "hostsignal.h"
#include "hosttime.h"
#include "hostunix.h"

namespace {
namespace fs = std::filesystem;
using std::string;

const string edge = "_{78}\n";
string banner(const string& who) {
    return "\n\n" + edge + "\\[host.debugger1 " + who + "\\]\n\\[host.debugger2 [^\\]]+\\]\n";
}
const string date = "[^\n]+\n";
const string sleeping =
    "\n    Sleeping for 0 seconds before dumping core.\n    You can now attach a debugger.     Process "
    "Id is [0-9]+\n";
const string stackLines = "\nBegin attempt to print C-level stack for PID [0-9]+ at: \n\nEnd of C-level stack for PID "
                          "[0-9]+\n\n";
// What the end of a dump says, whatever the kernel's settings are.
const string coreLines =
    "(\\[host.core7 [^\\]]+/core[0-9]+\\]\n|\\[host.core5 [^\\]]+/core[0-9]+\\]\n\\[host.core6 2 No such "
    "file or directory\\]\n|\\[host.core4\\]\n)";

TEST(CallDebugger, ReportsAndEnds) {
    const string reason = "\\[fault.errno 11 Resource temporarily unavailable\\]";
    expectEnding([] { errno = EAGAIN, HostCallDebuggerMsg("out of cheese"); },
                 {"^" + reason + stackLines + coreLines + "$", "^out of cheese\n" + banner("HostCallDebugger") + date +
                                                                   "stack of [0-9]+\n" + banner("HostCoredump") +
                                                                   sleeping + reason + "\n" + edge + "$"});
    // An error within the report.
    const auto twice = [] { HostInstallFatalReportHandler([] { HostCallDebugger(); }), HostCallDebugger(); };
    expectEnding(twice, {coreLines + "$",
                         "^(?![^]*HostCallDebugger\\])[^]*notifying trune of fatal error\nRecursive error caught!\n",
                         -1, SIGABRT});
}

TEST(CallDebugger, HooksInOrderAndOnce) {
    const auto body = [] {
        HostInstallFaultHandler([] { say("flush "); }, nullptr);
        HostOnDebug([] { say("hook "); });
        HostInstallFatalReportHandler([] { say("report "); });
        coreDumpEnabled = 0;
        errno = EDOM;
        EXPECT_EQ(HostCallDebuggerMsg_o("odd", 4000000000UL), 4000000000UL);
        EXPECT_EQ(errno, EDOM);
        EXPECT_TRUE(HostGetFatalErr());
        HostCallDebugger(); // the first has not ended: no further report
    };
    expectEnding(body, {"^hook flush report hook flush $",
                        "^\nodd arg:4000000000\n\nHostcalldebugger invoked in process ([0-9]+), notifying trune of "
                        "fatal error\n\nHostCallDebugger invoked in process \\1\n",
                        0});
}

TEST(Coredump, FirstSecondThird) {
    const ReportFolder folder;
    const ChildResult child = runToItsEnd([&] {
        HostInstallFaultHandler([] { say("flush "); }, [] { say("shutdown\n"); });
        setenv("KS_CORE_TIME_OUT", "30", 1); // explicit requests do not wait
        HostDisableInterrupts();
        const BoolType dumped = HostCoredump(TRUE);
        sigset_t mask;
        pthread_sigmask(SIG_BLOCK, nullptr, &mask);
        EXPECT_TRUE(sigismember(&mask, SIGCHLD)); // as before
        EXPECT_EQ(actionOf(SIGCHLD).sa_sigaction, HostFaultHandler);
        puts(dumped ? "dumped" : "not dumped");
        HostCoredump(TRUE);
        HostCoredump(TRUE);
    });
    expectHas(child.err, "^flush " + stackLines + "flush " + coreLines +
                             "shutdown\ncoredump panic: Avoiding user-defined rundown function\ncoredump panic: "
                             "disabling errmsg expansion\n" +
                             coreLines + "shutdown\ncoredump panic:  giving up!\n$");
    EXPECT_EQ(child.exitStatus, 1) << child.out;
    int cores = 0;
    for (const auto& entry : fs::recursive_directory_iterator(folder.path()))
        cores += entry.path().filename().string().starts_with("core") && entry.is_regular_file();
    EXPECT_TRUE(cores > 0 || child.out.find("not dumped") != string::npos) << "where the kernel put it, or moved";
}

TEST(Coredump, WithoutFolderOrFile) {
    const auto body = [] {
        const fs::path folder = fs::current_path();
        char host[256];
        EXPECT_TRUE(HostGetHostname(host, sizeof host));
        std::ofstream("coredir" + std::to_string(getpid()) + "-" + host) << "in the way";
        const rlimit none{0, 0};
        setrlimit(RLIMIT_CORE, &none);
        EXPECT_FALSE(HostCoredump(TRUE));
        EXPECT_EQ(fs::current_path(), folder);
    };
    expectEnding(body, {stackLines + "coredump:  Unable to create core directory /[^\n]+/coredir[0-9]+-[^\n]+; errno = "
                                     "17\n\\[host.core4\\]\n$",
                        "", 0});
}

TEST(Coredump, WaitsADayAndAHalfUnlessToldAndSigTermEndsIt) {
    const ReportFolder folder;
    unsetenv("KS_CORE_TIME_OUT");
    const ChildResult child =
        runToItsEnd([] { install(), raise(SIGILL); },
                    [](pid_t pid) { waitUntilHandled(pid, SIGTERM), HostMilliSleep(1500), kill(pid, SIGTERM); });
    expectGood(child);
    expectHas(child.out, "Sleeping for 129600 seconds");
    expectHas(child.err, "Signal 15, SIGTERM");
}

// What is carried out later comes with its own signal, info and context, though the handler's frame is gone.
TEST(PostponedExit, RecordsAreWhole) {
    static int carriedOut;
    HostDelaySigExit([] {}, nullptr);
    {
        siginfo_t info = arrival(SIGXCPU, SI_USER);
        ucontext_t context = {};
        std::fill_n(context.uc_mcontext.gregs, NGREG, 24);
        const auto check = [](int code, int sig, siginfo_t* info, void* context) {
            const auto& registers = static_cast<ucontext_t*>(context)->uc_mcontext.gregs;
            EXPECT_TRUE(code == 7 && sig == SIGXCPU && info->si_signo == sig);
            EXPECT_TRUE(registers[0] == 24 && registers[NGREG - 1] == 24);
            ++carriedOut;
        };
        hostExitNowOrLater(check, 7, {SIGXCPU, &info, &context, true});
        info = {}, context = {};
    }
    EXPECT_EQ(carriedOut, 0);
    HostDoSigExit();
    EXPECT_EQ(carriedOut, 1);
}

TEST(StackListing, OneForTwoThreadsAndAPrinterThatCannotRun) {
    const ReportFolder folder;
    expectGoodInChild([] { inThreads(2, printStacks); }, "^" + stackLines + "$", "^" + date + "stack of [0-9]+\n$");
    fs::permissions("bin/gstack", fs::perms(0644));
    expectGoodInChild([] { HostPrintCStack(-1), HostPrintCStack(1234); },
                      "^\nBegin attempt to print C-level stack for PID 1234 at: \n\n    Problem with exev\\(\\)\n  "
                      "cmd=[^\n]+/bin/gstack\n  args=1234\n  errno=13.\n\nEnd of C-level stack for PID 1234\n\n$");
}

// $KESTRUNE is the user's: what it names runs with no more than the user's rights. Not a shell script, since shells
// give set-id rights up themselves.
TEST(StackListing, PrinterRunsUnderTheRealIds) {
    if (geteuid() != 0)
        GTEST_SKIP() << "only root has other ids to take";
    const ReportFolder folder;
    std::ofstream("bin/gstack")
        << "#!/usr/bin/awk -f\n"
           "BEGIN { while (getline < \"/proc/self/status\") if (/^[UG]id/) print $2 $3 $4 $5 }\n";
    const auto body = [] {
        EXPECT_EQ(setegid(65534) | seteuid(65534), 0);
        HostPrintMyCStack();
        EXPECT_EQ(geteuid(), 65534U);
    };
    expectGoodInChild(body, "", "^" + date + "0000\n0000\n$");
}

TEST(Waiting, ForADebugger) {
    const string line = "^HostCallDebugger: Waiting for Debugger to attach,\n    processId = ([0-9]+) = 0x[0-9A-F]+\n$";
    const string box =
        "^\n __________________________________ \n\\| UTL_GUARANTEE failure in file hostx at line 7 \n"
        "\\|  HostCallDebugger: Waiting for a C Debugger to attach,\n\\|  process [0-9]+ \\(0x[0-9a-f]+\\) "
        "\n\\|__________________________________ \n$";
    HostWaitForDebugger(); // returns
    setenv("KESTRUNE_CHILD_DEBUG", "1", 1);
    const std::pair<void (*)(), string> cases[] = {
        {HostWaitForDebugger, line},
        {[] { hostGuaranteeFailed("hostx", 7); }, box},
    };
    for (const auto& [wait, err] : cases) {
        const ChildResult child = runInChild(wait, std::chrono::milliseconds(300));
        expectHas(child.err, err);
        EXPECT_TRUE(child.timedOut);
    }
}

TEST(HostInitCrash, Transcript) {
    expectEnding([] { errno = ENOENT, hostInitCrash("the clock"); },
                 {"^\n\n" + edge +
                  "\\[host.initfail the clock\\]\n\\[fault.errno 2 No such file or "
                  "directory\\]\n\\[fault.date [^\\]]+\\]\n" +
                  edge + "$"});
}

TEST(Handler, Tables) {
    expectGoodInChild([] { hostInstallHandlerFor(50, Restart::yes); },
                      "^port error increase hostunix:MAX_OLD_HANDLERS to 51\n$");
    std::string rows;
    for (int sig = -1; sig < 70; ++sig)
        rows += std::to_string(sig) + (hostDelayableSignal(sig) ? " " : " at once ") + getSignalName(sig) + "\n";
    for (int code = -8; code < 2; ++code) {
        siginfo_t info = arrival(SIGTERM, code);
        rows += getSignalSourceName({SIGTERM, &info, nullptr, true}) + string("\n");
        EXPECT_STREQ(getSignalSourceName({SIGTERM, &info, nullptr, false}), "(unknown: bad siginfo_t)");
    }
    // Every saved register has a value of its own.
    siginfo_t info = arrival(SIGBUS, BUS_ADRERR);
    info.si_addr = reinterpret_cast<void*>(0xabc);
    ucontext_t context = {};
    std::iota(std::begin(context.uc_mcontext.gregs), std::end(context.uc_mcontext.gregs), 0x100);
    testing::internal::CaptureStderr();
    translateFaultCode({SIGBUS, &info, &context, true});
    rows += testing::internal::GetCapturedStderr();
    EXPECT_EQ(HashCStrHash(rows.c_str()), sizeof(void*) == 4 ? 0x2155D8 : 0xEC8661) << "a row has changed:\n" << rows;
}
} // namespace
