// The stack printer, run as the fault report runs it. GSTACK_PROGRAM is its path.
#include <csignal>
#include <cstdlib>
#include <fstream>
#include <pthread.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

#include "host/faulttools.h"
#include "hostdebug.h"

namespace {
using std::string;

// Runs gstack on a process with two idle threads.
ChildResult runGstack(const char* argument, const string& path) {
    return runInChild([=] {
        const pid_t printer = getpid();
        const pid_t idle = fork();
        if (idle == 0) {
            prctl(PR_SET_PDEATHSIG, SIGKILL);
            std::thread([] {
                pthread_setname_np(pthread_self(), "idler");
                for (;;)
                    pause();
            }).join();
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

bool haveGdb() {
    return system("command -v gdb >/dev/null") == 0;
}

TEST(Gstack, PrintsStacksOrSaysWhyNot) {
    const ReportFolder folder;
    mkdir("sleepers", 0755);
    folder.script("sleepers/gdb", "exec /bin/sleep 100");
    const string systemPath = getenv("PATH");
    const string asleep = "state S \\(sleeping\\)  waits in [^\n]+\n";
    const string threads = "^Threads of process [0-9]+ \\(no stacks\\):\nThread [0-9]+ \"[^\"]+\"  " + asleep +
                           "Thread [0-9]+ \"idler\"  " + asleep + "$";
    const string missing =
        "^gstack: gdb is not installed, or not on the PATH; without it no C stacks can be printed.\n$";
    const string usage = "^usage: gstack PID\n";
    const struct {
        const char* argument; // NULL: the idle process
        string path, out, err;
        int exitStatus;
    } cases[] = {
        {nullptr, systemPath, haveGdb() ? "Thread 2 [^\n]*\"idler\"[^\n]*\n#0 [^]*Thread 1 [^]*#1 " : threads,
         haveGdb() ? "^$" : missing, haveGdb() ? 0 : 1},
        {nullptr, "/nowhere", threads, missing, 1},
        {nullptr, "sleepers", threads, "^gstack: gdb did not finish within 1 seconds and was ended.\n$", 1},
        {"2000000000", systemPath, "^$", "^gstack: there is no process 2000000000.\n$", 1},
        {"12x", systemPath, "^$", usage, 2},
    };
    for (const auto& c : cases) {
        const ChildResult child = runGstack(c.argument, c.path);
        expectHas(child.out, c.out);
        expectHas(child.err, c.err);
        EXPECT_EQ(child.exitStatus, c.exitStatus);
    }
}

TEST(Gstack, PrintsAProcessFromItsOwnReport) {
    const ReportFolder folder(ReportFolder::Printer::none);
    ASSERT_EQ(symlink(GSTACK_PROGRAM, "bin/gstack"), 0);
    expectGoodInChild(HostPrintMyCStack, "", haveGdb() ? "Thread 1 [^]*HostPrintCStack" : "Threads of process");
}
} // namespace
