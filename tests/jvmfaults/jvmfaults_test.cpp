// The fault handler in a Java virtual machine, with and without the machine's signal chaining preloaded.
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <gtest/gtest.h>
#include <string>
#include <unistd.h>
#include <vector>

#include "host/faulttools.h"

namespace {
namespace fs = std::filesystem;
using std::string;

// What a virtual machine does that runs Faults with these words.
struct Case {
    const char* name;
    string words;
    int exitStatus; // -1: by SIGABRT
    bool crashFile; // the virtual machine's own report, hs_err_pid*.log
    string out, err;
    bool chaining = false;
};

void PrintTo(const Case& c, std::ostream* out) {
    *out << c.name << (c.chaining ? ", chaining" : "");
}

[[noreturn]] void runJava(const Case& c) {
    const char* path = getenv("LD_LIBRARY_PATH");
    setenv("LD_LIBRARY_PATH", (string(I386_LIBS ":") + (path != nullptr ? path : "")).c_str(), 1);
    if (c.chaining)
        setenv("LD_PRELOAD", JAVA_HOME "/lib/libjsig.so", 1);
    // The fast compiler keeps making null checks of faults; the other replaces those that fail often.
    const string command = "exec " JAVA_HOME "/bin/java -XX:TieredStopAtLevel=1 -Xmx100m -cp " CLASSES
                           " Faults " JNI_LIBRARY " " +
                           c.words;
    execl("/bin/sh", "sh", "-c", command.c_str(), nullptr);
    _exit(96);
}

class Jvm : public testing::TestWithParam<Case> {};

TEST_P(Jvm, EndsAsDocumented) {
    const Case& c = GetParam();
    const ReportFolder folder;
    const ChildResult child = runToItsEnd([&] { runJava(c); }, nullptr, std::chrono::minutes(4));
    EXPECT_FALSE(child.timedOut);
    EXPECT_EQ(child.exitStatus, c.exitStatus);
    EXPECT_EQ(child.signal, c.exitStatus == -1 ? SIGABRT : 0);
    bool crashFile = false;
    for (const auto& entry : fs::directory_iterator("."))
        crashFile |= entry.path().filename().string().starts_with("hs_err_pid");
    EXPECT_EQ(crashFile, c.crashFile);
    expectHas(child.out, c.out);
    expectHas(child.err, c.err);
}

const string otherTraps = "stack overflow: true\ndivision: true\ntruncated file: true\nchildren: right\ndone\n$";
const string unhandled = "KS Signal Handler: Unhandled signal 11, SIGSEGV ";
const string ownReport = unhandled + "[^]*Begin attempt to print C-level stack";
const string aborted = "KS signal handler: signal 6 \\(SIGABRT\\)[^]*Begin attempt to print C-level stack";
const string sent = "KS signal handler: signal 11 \\(SIGSEGV\\), received from process [^]*Begin attempt";
const string terminated = "Signal 15, SIGTERM, Software Termination Signal Received";
const string stacks = "stack of [0-9]+\n";
const string any, hook = "^shutdown hook\n$";

std::vector<Case> cases() {
    std::vector<Case> all{
        {"healthy", "healthy 100000", 0, false, "^null checks: true\nfaults passed on: true\n" + otherTraps, "^$"},
        {"healthy", "healthy 10000", 0, false, "^null checks: true\nfaults passed on: false\n" + otherTraps, any, true},
        {"children, SIGCHLD kept", "children", 0, false, "^children: right\ndone\n$", "^$"},
        {"fault in the library", "library", 3, true, stacks, unhandled},
        {"fault in the library", "library", 3, false, stacks, ownReport, true},
        {"fault in foreign code", "foreign", 3, true, stacks, aborted},
        {"fault in foreign code", "foreign", 3, false, stacks, ownReport, true},
        {"two threads", "two", 3, true, stacks, aborted},
        // The second thread ends the process, perhaps before the first has printed the stacks.
        {"two threads", "two", 3, false, any, unhandled, true},
    };
    const Case inBothModes[] = {
        {"kill -SEGV", "signal 11", 3, false, stacks, sent},
        {"SIGTERM", "signal 15", 0, false, "^$", terminated},
        {"SIGTERM postponed", "postponed 15", 0, false, hook, terminated},
        {"SIGQUIT", "signal 3", 0, false, "Full thread dump [^]*done\nshutdown hook\n$", "^(?![^]*KS )"},
    };
    for (const Case& c : inBothModes) {
        all.push_back(c);
        all.push_back(c);
        all.back().chaining = true;
    }
    return all;
}

INSTANTIATE_TEST_SUITE_P(InJava, Jvm, testing::ValuesIn(cases()));
} // namespace
