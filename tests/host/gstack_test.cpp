// The stack printer, run as the fault report runs it. GSTACK_PROGRAM is its path.
#include <array>
#include <csignal>
#include <cstdlib>
#include <fstream>
#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

#include "host/faulttools.h"
#include "hostdebug.h"

namespace {
using std::string;

// Makes a folder, sleepers, with a gdb that only sleeps.
void makeSleepingGdb() {
    mkdir("sleepers", 0755);
    std::ofstream("sleepers/gdb") << "#!/bin/sh\nexec /bin/sleep 100\n";
    chmod("sleepers/gdb", 0755);
}

// Runs gstack on a process with two idle threads.
ChildResult runGstack(const char* argument, const string& path) {
    return runInChild([=] {
        const pid_t printer = getpid();
        const pid_t idle = fork();
        if (idle == 0) {
            prctl(PR_SET_PDEATHSIG, SIGKILL);
            std::thread second([] {
                pthread_setname_np(pthread_self(), "idler");
                for (;;)
                    pause();
            });
            second.join();
        }
        usleep(300000);
        setenv("PATH", path.c_str(), 1);
        setenv("GSTACK_TIME_OUT", path == "sleepers" ? "1" : "30", 1);
        // As a fault handler starts it.
        sigset_t all;
        sigfillset(&all);
        sigprocmask(SIG_SETMASK, &all, nullptr);
        execl(GSTACK_PROGRAM, "gstack", argument != nullptr ? argument : std::to_string(idle).c_str(), nullptr);
        kill(printer, SIGKILL);
    });
}

TEST(Gstack, PrintsStacksOrSaysWhyNot) {
    const ReportFolder folder;
    makeSleepingGdb();
    const string systemPath = getenv("PATH");
    const bool haveGdb = system("command -v gdb >/dev/null") == 0;
    const string threads = "^Threads of process [0-9]+ \\(no stacks\\):\nThread [0-9]+ \"[^\"]+\"  state S "
                           "\\(sleeping\\)  waits in [^\n]+\nThread [0-9]+ \"idler\"  state S \\(sleeping\\)  waits in "
                           "[^\n]+\n$";
    const string missing =
        "^gstack: gdb is not installed, or not on the PATH; without it no C stacks can be printed.\n$";
    const string usage = "^usage: gstack PID\n";
    struct Case {
        const char* name;
        const char* argument; // NULL: the idle process
        string path;
        string out;
        string err;
        int exitStatus;
    };
    const std::array<Case, 6> cases{{
        {"as it is", nullptr, systemPath, haveGdb ? "Thread 2 [^\n]*\"idler\"[^\n]*\n#0 [^]*Thread 1 [^]*#1 " : threads,
         haveGdb ? "^$" : missing, haveGdb ? 0 : 1},
        {"no gdb", nullptr, "/nowhere", threads, missing, 1},
        {"gdb hangs", nullptr, "sleepers", threads, "^gstack: gdb did not finish within 1 seconds and was ended.\n$",
         1},
        {"no process", "2000000000", systemPath, "^$", "^gstack: there is no process 2000000000.\n$", 1},
        {"no number", "12x", systemPath, "^$", usage, 2},
        {"negative", "-1", systemPath, "^$", usage, 2},
    }};
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        const ChildResult child = runGstack(c.argument, c.path);
        EXPECT_TRUE(has(child.out, c.out)) << child.out;
        EXPECT_TRUE(has(child.err, c.err)) << child.err;
        EXPECT_EQ(child.exitStatus, c.exitStatus);
        EXPECT_LT(child.elapsed.count(), 15000);
    }
}

TEST(Gstack, PrintsAProcessFromItsOwnReport) {
    const ReportFolder folder(ReportFolder::Printer::none);
    ASSERT_EQ(symlink(GSTACK_PROGRAM, (folder.path() + "/bin/gstack").c_str()), 0);
    const bool haveGdb = system("command -v gdb >/dev/null") == 0;
    const ChildResult child = runInChild([] { HostPrintMyCStack(); });
    EXPECT_TRUE(has(child.out, haveGdb ? "Thread 1 [^]*HostPrintCStack" : "Threads of process"))
        << child.out << child.err;
}
} // namespace
