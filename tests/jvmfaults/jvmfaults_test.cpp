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

string javaHome() {
    const char* home = getenv("TMQKCI_JAVA32_HOME");
    return home != nullptr ? home : JAVA32_HOME;
}

[[noreturn]] void runJava(bool chaining, const std::vector<string>& arguments) {
    const char* path = getenv("LD_LIBRARY_PATH");
    setenv("LD_LIBRARY_PATH", (I386_LIBS + string(path != nullptr ? ":" : "") + (path != nullptr ? path : "")).c_str(),
           1);
    if (chaining)
        setenv("LD_PRELOAD", (javaHome() + "/lib/libjsig.so").c_str(), 1);
    // The fast compiler keeps making null checks of faults; the other replaces those that fail often.
    std::vector<string> words{javaHome() + "/bin/java",
                              "-XX:TieredStopAtLevel=1",
                              "-Xmx100m",
                              "-cp",
                              CLASSES,
                              "Faults",
                              arguments[0],
                              JNI_LIBRARY};
    words.insert(words.end(), arguments.begin() + 1, arguments.end());
    std::vector<char*> argv;
    for (string& word : words)
        argv.push_back(word.data());
    argv.push_back(nullptr);
    execv(argv[0], argv.data());
    perror(argv[0]);
    _exit(96);
}

bool haveCrashFile() {
    for (const auto& entry : fs::directory_iterator(".")) {
        if (entry.path().filename().string().starts_with("hs_err_pid"))
            return true;
    }
    return false;
}

struct Case {
    const char* name;
    std::vector<string> arguments;
    bool chaining;
    int exitStatus; // -1: by SIGABRT
    bool crashFile; // the virtual machine's own report, hs_err_pid*.log
    string out;
    string err;
};

void PrintTo(const Case& c, std::ostream* out) {
    *out << c.name;
}

class Jvm : public testing::TestWithParam<Case> {};

TEST_P(Jvm, EndsAsDocumented) {
    const Case& c = GetParam();
    const ReportFolder folder;
    const ChildResult child = runToItsEnd([&] { runJava(c.chaining, c.arguments); }, nullptr, std::chrono::minutes(4));
    EXPECT_FALSE(child.timedOut);
    EXPECT_EQ(child.exitStatus, c.exitStatus);
    EXPECT_EQ(child.signal, c.exitStatus == -1 ? SIGABRT : 0);
    EXPECT_EQ(haveCrashFile(), c.crashFile);
    EXPECT_TRUE(has(child.out, c.out)) << child.out;
    EXPECT_TRUE(has(child.err, c.err)) << child.err;
}

string number(int sig) {
    return std::to_string(sig);
}

const string otherTraps = "stack overflow: caught\ndivision: caught\ntruncated file: caught\nsafepoints: passed\n"
                          "children: right\ndone\n$";
const string unhandled = "KS Signal Handler: Unhandled signal 11, SIGSEGV ";
const string ownReport = unhandled + "[^]*Begin attempt to print C-level stack";
const string aborted = "KS signal handler: signal 6 \\(SIGABRT\\)[^]*Begin attempt to print C-level stack";
const string sent = "KS signal handler: signal 11 \\(SIGSEGV\\), received from process [^]*Begin attempt";
const string recursion = "KS signal handler: Recursive SEGV detected, attempting to dump core\n";
const string terminated = "Signal 15, SIGTERM, Software Termination Signal Received";
const string stacks = "stack of [0-9]+\n";
const string any, hook = "^shutdown hook\n$";

INSTANTIATE_TEST_SUITE_P(
    Plain, Jvm,
    testing::Values(Case{"healthy",
                         {"healthy", "100000"},
                         false,
                         0,
                         false,
                         "^null checks: true\nfaults passed on: true\n" + otherTraps,
                         "^$"},
                    Case{"children", {"children"}, false, 0, false, "^children: (right|some lost)\ndone\n$", "^$"},
                    Case{
                        "children, SIGCHLD kept", {"childrenkept"}, false, 0, false, "^children: right\ndone\n$", "^$"},
                    Case{"fault in the library", {"library"}, false, 3, true, stacks, unhandled},
                    Case{"fault in foreign code", {"foreign"}, false, 3, true, stacks, aborted},
                    Case{"two threads", {"two"}, false, 3, true, stacks, aborted},
                    Case{"fault in the handler", {"handler"}, false, -1, false, any, recursion},
                    Case{"kill -SEGV", {"signal", number(SIGSEGV)}, false, 3, false, stacks, sent},
                    Case{"SIGTERM", {"signal", number(SIGTERM)}, false, 0, false, "^$", terminated},
                    Case{"SIGTERM postponed", {"postponed", number(SIGTERM)}, false, 0, false, hook, terminated},
                    Case{"SIGQUIT",
                         {"signal", number(SIGQUIT)},
                         false,
                         0,
                         false,
                         "Full thread dump [^]*done\nshutdown hook\n$",
                         "^$"}));

INSTANTIATE_TEST_SUITE_P(
    Chaining, Jvm,
    testing::Values(Case{"healthy",
                         {"healthy", "10000"},
                         true,
                         0,
                         false,
                         "^null checks: true\nfaults passed on: false\n" + otherTraps,
                         any},
                    Case{"fault in the library", {"library"}, true, 3, false, stacks, ownReport},
                    Case{"fault in foreign code", {"foreign"}, true, 3, false, stacks, ownReport},
                    // The second thread ends the process, perhaps before the first has printed the stacks.
                    Case{"two threads", {"two"}, true, 3, false, any, unhandled},
                    Case{"fault in the handler", {"handler"}, true, -1, false, any, recursion},
                    Case{"kill -SEGV", {"signal", number(SIGSEGV)}, true, 3, false, stacks, sent},
                    Case{"SIGTERM", {"signal", number(SIGTERM)}, true, 0, false, "^$", terminated},
                    Case{"SIGTERM postponed", {"postponed", number(SIGTERM)}, true, 0, false, hook, terminated},
                    Case{"SIGQUIT",
                         {"signal", number(SIGQUIT)},
                         true,
                         0,
                         false,
                         "Full thread dump [^]*done\nshutdown hook\n$",
                         any}));
} // namespace
