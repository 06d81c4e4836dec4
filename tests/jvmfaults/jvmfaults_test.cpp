// The fault handler in a Java virtual machine, with and without the machine's signal chaining preloaded.
#include <cstdlib>
#include <filesystem>
#include <string>
#include <unistd.h>

#include "host/faulttools.h"

namespace {
using std::string;

[[noreturn]] void runJava(const string& words, bool chaining) {
    const char* path = getenv("LD_LIBRARY_PATH");
    setenv("LD_LIBRARY_PATH", (string(I386_LIBS ":") + (path != nullptr ? path : "")).c_str(), 1);
    if (chaining)
        setenv("LD_PRELOAD", JAVA_HOME "/lib/libjsig.so", 1);
    // The fast compiler keeps making null checks of faults; the other replaces those that fail often.
    const string command =
        "exec " JAVA_HOME "/bin/java -XX:TieredStopAtLevel=1 -Xmx100m -cp " CLASSES " Faults " JNI_LIBRARY " " + words;
    execl("/bin/sh", "sh", "-c", command.c_str(), nullptr);
    _exit(96);
}

TEST(Jvm, EndsAsDocumented) {
    const string allRight = "true\nstack overflow: true\ndivision: true\ntruncated file: true\nchildren: true\ndone\n$";
    const string unhandled = "KS Signal Handler: Unhandled signal 11, SIGSEGV ";
    const string ownReport = unhandled + "[^]*Begin attempt to print C-level stack";
    const string aborted = "KS signal handler: signal 6 \\(SIGABRT\\)[^]*Begin attempt to print C-level stack";
    const string sent = "KS signal handler: signal 11 \\(SIGSEGV\\), received from process [^]*Begin attempt";
    const string terminated = "Signal 15, SIGTERM, Software Termination Signal Received";
    const string stacks = "stack of [0-9]+\n", dump = "Full thread dump [^]*done\nshutdown hook\n$";
    const struct {
        bool chaining;
        string words;
        int exitStatus;
        bool crashFile; // the virtual machine's own report, hs_err_pid*.log
        string out, err;
    } cases[] = {
        {false, "healthy", 0, false, "^null checks: true\nfaults passed on: " + allRight, "^$"},
        {true, "healthy", 0, false, "^null checks: true\nfaults passed on: false" + allRight.substr(4), ""},
        {false, "library", 3, true, stacks, unhandled},
        {true, "library", 3, false, stacks, ownReport},
        {false, "foreign", 3, true, stacks, aborted},
        {true, "foreign", 3, false, stacks, ownReport},
        {false, "SEGV", 3, false, stacks, sent},
        {true, "SEGV", 3, false, stacks, sent},
        {false, "TERM", 0, false, "^$", terminated},
        {true, "TERM", 0, false, "^$", terminated},
        {false, "QUIT", 0, false, dump, "^(?![^]*KS )"},
        {true, "QUIT", 0, false, dump, "^(?![^]*KS )"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.words + (c.chaining ? ", chaining" : ""));
        const ReportFolder folder;
        const ChildResult child = runToItsEnd([&] { runJava(c.words, c.chaining); }, nullptr, std::chrono::minutes(4));
        EXPECT_EQ(child.exitStatus, c.exitStatus) << child.signal;
        bool crashFile = false;
        for (const auto& entry : std::filesystem::directory_iterator("."))
            crashFile |= entry.path().filename().string().starts_with("hs_err_pid");
        EXPECT_EQ(crashFile, c.crashFile);
        expectHas(child.out, c.out);
        expectHas(child.err, c.err);
    }
}
} // namespace
