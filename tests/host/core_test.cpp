// The fatal report, core files, C stacks and waits.
#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <thread>
#include <unistd.h>

#include "host/fatalreport.h"
#include "host/faulthandler.h"
#include "host/faultstate.h"
#include "host/faulttools.h"
#include "host/guarantee.h"
#include "hostdebug.h"
#include "hostsignal.h"
#include "hosttime.h"
#include "hostunix.h"

namespace {
namespace fs = std::filesystem;
using std::string;

// Where the kernel puts the core file of process <pid>, and whether the library finds it there.
struct KernelCores {
    bool possible = false;   // core files are written at all, and as files
    bool asExpected = false; // as core.<pid> in the working folder
    KernelCores() {
        string pattern, usesPid;
        std::getline(std::ifstream("/proc/sys/kernel/core_pattern"), pattern);
        std::getline(std::ifstream("/proc/sys/kernel/core_uses_pid"), usesPid);
        rlimit limit;
        getrlimit(RLIMIT_CORE, &limit);
        possible = limit.rlim_max != 0 && !pattern.starts_with("|");
        asExpected = possible && (pattern == "core.%p" || (pattern == "core" && usesPid == "1"));
    }
};

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

void call(const char* text) {
    HostSignalSafePrint(text);
}

TEST(CallDebugger, ReportsAndEnds) {
    const ReportFolder folder;
    const ChildResult child = runToItsEnd([] {
        errno = EAGAIN;
        HostCallDebuggerMsg("out of cheese");
    });
    EXPECT_TRUE(has(child.out, "^out of cheese\n" + banner("HostCallDebugger") + date + "stack of [0-9]+\n" +
                                   banner("HostCoredump") + sleeping +
                                   "\\[fault.errno 11 Resource temporarily "
                                   "unavailable\\]\n" +
                                   edge + "$"))
        << child.out;
    EXPECT_TRUE(has(child.err, "^\\[fault.errno 11 Resource temporarily unavailable\\]" + stackLines + coreLines + "$"))
        << child.err;
    EXPECT_EQ(child.exitStatus, 3);
}

TEST(CallDebugger, HooksInOrderAndOnce) {
    const ReportFolder folder;
    const ChildResult child = runToItsEnd([] {
        HostInstallFaultHandler([] { call("flush "); }, nullptr);
        HostOnDebug([] { call("hook "); });
        HostInstallFatalReportHandler([] { call("report "); });
        coreDumpEnabled = 0;
        errno = EDOM;
        EXPECT_EQ(HostCallDebuggerMsg_o("odd", 4000000000UL), 4000000000UL);
        EXPECT_EQ(errno, EDOM);
        EXPECT_TRUE(HostGetFatalErr());
        HostCallDebugger(); // the first has not ended: no further report
        noHalt = TRUE;
        EXPECT_EQ(HostCallDebugger(), 0);
        EXPECT_TRUE(HostCoredump(FALSE));
        HostInit(); // clears noHalt and the report hook
        EXPECT_FALSE(noHalt);
        EXPECT_FALSE(HostCoredump(TRUE));
    });
    EXPECT_TRUE(has(child.out,
                    "^\nodd arg:4000000000\n\nHostcalldebugger invoked in process ([0-9]+), notifying trune of "
                    "fatal error\n\nHostCallDebugger invoked in process \\1\n"))
        << child.out;
    EXPECT_TRUE(has(child.err, "^hook flush report hook flush flush \nBegin")) << child.err;
    EXPECT_EQ(child.exitStatus, 0) << child.out;
}

TEST(CallDebugger, ErrorWithinTheReport) {
    const ReportFolder folder;
    const ChildResult child = runToItsEnd([] {
        HostInstallFatalReportHandler([] { HostCallDebugger(); });
        HostCallDebugger();
    });
    EXPECT_TRUE(has(child.out, "notifying trune of fatal error\nRecursive error caught!\n")) << child.out;
    EXPECT_FALSE(has(child.out, "HostCallDebugger\\]"));
    EXPECT_TRUE(has(child.err, coreLines + "$")) << child.err;
    EXPECT_EQ(child.signal, SIGABRT);
}

TEST(Coredump, FirstSecondThird) {
    const ReportFolder folder;
    const KernelCores kernel;
    const ChildResult child = runToItsEnd([&] {
        HostInstallFaultHandler([] { call("flush "); }, [] { call("shutdown\n"); });
        setenv("KS_CORE_TIME_OUT", "30", 1); // explicit requests do not wait
        HostDisableInterrupts();
        EXPECT_EQ(HostCoredump(TRUE), kernel.possible);
        sigset_t mask;
        pthread_sigmask(SIG_BLOCK, nullptr, &mask);
        EXPECT_TRUE(sigismember(&mask, SIGCHLD)); // as before
        struct sigaction child = {};
        sigaction(SIGCHLD, nullptr, &child);
        EXPECT_EQ(child.sa_sigaction, HostFaultHandler);
        EXPECT_EQ(fs::exists(folder.path() + "/core" + std::to_string(getpid())), kernel.asExpected);
        HostCoredump(TRUE);
        HostCoredump(TRUE);
    });
    EXPECT_TRUE(has(child.err, "^flush " + stackLines + "flush " + coreLines +
                                   "shutdown\ncoredump panic: Avoiding user-defined rundown function\ncoredump panic: "
                                   "disabling errmsg expansion\n" +
                                   coreLines + "shutdown\ncoredump panic:  giving up!\n$"))
        << child.err;
    EXPECT_EQ(child.exitStatus, 1) << child.out;
    EXPECT_LT(child.elapsed.count(), 15000);
    if (kernel.possible && !kernel.asExpected) {
        int cores = 0;
        for (const auto& entry : fs::recursive_directory_iterator(folder.path()))
            cores += entry.path().filename().string().starts_with("core") && entry.is_regular_file();
        EXPECT_GE(cores, 1) << "the core file stays where the kernel put it";
    }
}

TEST(Coredump, WithoutFolderOrFile) {
    const ReportFolder folder;
    const ChildResult child = runToItsEnd([&] {
        char host[256];
        EXPECT_TRUE(HostGetHostname(host, sizeof host));
        std::ofstream("coredir" + std::to_string(getpid()) + "-" + host) << "in the way";
        const rlimit none{0, 0};
        setrlimit(RLIMIT_CORE, &none);
        EXPECT_FALSE(HostCoredump(TRUE));
        EXPECT_EQ(fs::current_path(), folder.path());
    });
    EXPECT_TRUE(has(child.err, stackLines + "coredump:  Unable to create core directory " + folder.path() +
                                   "/coredir[0-9]+-[^\n]+; errno = 17\n\\[host.core4\\]\n$"))
        << child.err;
    EXPECT_EQ(child.exitStatus, 0) << child.out;
}

TEST(Coredump, WaitsADayAndAHalfUnlessToldAndSigTermEndsIt) {
    const ReportFolder folder(ReportFolder::Printer::fake);
    const ChildResult child = runToItsEnd(
        [] {
            unsetenv("KS_CORE_TIME_OUT");
            HostInstallFaultHandler(nullptr, nullptr);
            raise(SIGILL);
        },
        [](pid_t pid) { waitUntilHandled(pid, SIGTERM), HostMilliSleep(1500), kill(pid, SIGTERM); });
    EXPECT_TRUE(has(child.out, "Sleeping for 129600 seconds")) << child.out;
    EXPECT_TRUE(has(child.err, "Signal 15, SIGTERM")) << child.err;
    EXPECT_EQ(child.exitStatus, 0);
}

TEST(StackListing, OneListingForTwoThreads) {
    const ReportFolder folder;
    const ChildResult child = runInChild([] {
        std::thread other(printStacks);
        printStacks();
        other.join();
    });
    EXPECT_TRUE(has(child.err, "^" + stackLines + "$")) << child.err;
    EXPECT_TRUE(has(child.out, "^" + date + "stack of [0-9]+\n$")) << child.out;
}

TEST(StackListing, PrinterThatCannotRun) {
    const ReportFolder folder(ReportFolder::Printer::notExecutable);
    const ChildResult child = runInChild([] {
        HostPrintCStack(-1);
        HostPrintCStack(1234);
    });
    EXPECT_TRUE(has(child.err,
                    "^\nBegin attempt to print C-level stack for PID 1234 at: \n\n    Problem with exev\\(\\)\n  "
                    "cmd=[^\n]+/bin/gstack\n  args=1234\n  errno=13.\n\nEnd of C-level stack for PID 1234\n\n$"))
        << child.err;
}

TEST(Waiting, ForADebugger) {
    struct Case {
        const char* name;
        void (*wait)();
        const char* err;
    };
    const string box = "\n __________________________________ \n| UTL_GUARANTEE failure in file hostx at line 7 \n|  "
                       "HostCallDebugger: Waiting for a C Debugger to attach,\n|  process PID (0xHEX) \n"
                       "|__________________________________ \n";
    const string line = "HostCallDebugger: Waiting for Debugger to attach,\n    processId = PID = 0xUPPER\n";
    const std::array<Case, 3> cases{{
        {"explicit", HostExplicitWaitForDebugger, line.c_str()},
        {"asked", [] { setenv("KESTRUNE_CHILD_DEBUG", "1", 1), HostWaitForDebugger(); }, line.c_str()},
        {"guarantee", [] { setenv("KESTRUNE_CHILD_DEBUG", "1", 1), hostGuaranteeFailed("hostx", 7); }, box.c_str()},
    }};
    for (const Case& c : cases) {
        pid_t child = 0;
        const ChildResult result = runInChild(c.wait, [&](pid_t pid) {
            child = pid;
            HostMilliSleep(300), kill(pid, SIGKILL);
        });
        string expected = c.err;
        const auto replace = [&](const string& mark, const char* format) {
            char number[16];
            snprintf(number, sizeof number, format, child);
            if (const size_t at = expected.find(mark); at != string::npos)
                expected.replace(at, mark.size(), number);
        };
        replace("PID", "%d");
        replace("HEX", "%x");
        replace("UPPER", "%X");
        EXPECT_EQ(result.err, expected);
        EXPECT_EQ(result.signal, SIGKILL);
    }
    unsetenv("KESTRUNE_CHILD_DEBUG");
    HostWaitForDebugger(); // returns
}

TEST(HostInitCrash, Transcript) {
    const ChildResult child = runInChild([] { errno = ENOENT, hostInitCrash("the clock"); });
    EXPECT_TRUE(has(child.err, "^\n\n" + edge +
                                   "\\[host.initfail the clock\\]\n\\[fault.errno 2 No such file or "
                                   "directory\\]\n\\[fault.date [^\\]]+\\]\n" +
                                   edge + "$"))
        << child.err;
    EXPECT_EQ(child.exitStatus, 3);
}

TEST(Handler, SignalsBeyondTheTable) {
    const ChildResult child = runInChild([] { hostInstallHandlerFor(50, Restart::yes); });
    EXPECT_EQ(child.err, "port error increase hostunix:MAX_OLD_HANDLERS to 51\n");
    EXPECT_EQ(child.exitStatus, 0);
    for (int sig = -1; sig < 70; ++sig)
        EXPECT_EQ(hostDelayableSignal(sig), !((sig >= 4 && sig <= 8) || sig == 11)) << sig;
}
} // namespace
