#include "host/faulttools.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sys/resource.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include "hostdebug.h"
#include "hostsignal.h"
#include "utlhost.h"

namespace fs = std::filesystem;

// The handlers under test are to meet the faults, not the sanitizer's.
extern "C" [[gnu::visibility("default")]] const char* __asan_default_options();
extern "C" const char* __asan_default_options() {
    return "handle_segv=0:handle_sigbus=0:handle_abort=0:handle_sigill=0:handle_sigfpe=0:detect_leaks=0";
}

ReportFolder::ReportFolder(Printer printer) {
    fs::create_directory(file("bin"));
    if (printer != Printer::none)
        script("bin/gstack", "echo stack of $1\nsleep 0.2");
    setenv("KESTRUNE", path().c_str(), 1);
    setenv("KS_CORE_TIME_OUT", "0", 1);
    unsetenv("KESTRUNE_CHILD_DEBUG");
    fs::current_path(path());
}

ChildResult runToItsEnd(const std::function<void()>& body, const std::function<void(pid_t)>& whileItRuns,
                        std::chrono::milliseconds timeOut) {
    const auto reported = [&] {
        noHalt = FALSE;
        rlimit limit;
        getrlimit(RLIMIT_CORE, &limit);
        constexpr rlim_t smallCore = 4 << 20;
        limit.rlim_cur = std::min(limit.rlim_max, smallCore);
        setrlimit(RLIMIT_CORE, &limit);
        body();
    };
    const ChildResult child = runInChild(reported, whileItRuns, timeOut);
    // A process that ends by itself does not tell in its status.
    EXPECT_EQ(child.out.find(": Failure\n"), std::string::npos) << child.out;
    return child;
}

void expectEnding(const std::function<void()>& body, const Ending& expected, Where where) {
    const ReportFolder folder;
    const ChildResult child = runToItsEnd(body);
    expectHas(child.err, expected.err, where);
    expectHas(child.out, expected.out, where);
    EXPECT_EQ(child.exitStatus, expected.exitStatus) << where.line() << child.out << child.err;
    EXPECT_EQ(child.signal, expected.signal) << where.line();
}

void waitUntilHandled(pid_t pid, int sig) {
    for (int i = 0; i < 1000; ++i, usleep(10000)) {
        std::ifstream status("/proc/" + std::to_string(pid) + "/status");
        for (std::string line; std::getline(status, line);) {
            if (line.starts_with("SigCgt:") && std::stoull(line.substr(7), nullptr, 16) >> (sig - 1) & 1)
                return;
        }
    }
}

void say(const char* text) {
    HostSignalSafePrint(text);
}

struct sigaction actionOf(int sig) {
    struct sigaction action = {};
    sigaction(sig, nullptr, &action);
    return action;
}

void install(HostFaultFuncType* flush) {
    HostInstallFaultHandler(flush, nullptr);
}

void jumpToNowhere() {
    void (*volatile nowhere)() = nullptr;
    nowhere();
}

siginfo_t arrival(int sig, int code, int error) {
    siginfo_t info = {};
    info.si_signo = sig;
    info.si_code = code;
    info.si_errno = error;
    return info;
}

void inThreads(int count, void (*body)()) {
    std::vector<std::thread> all;
    for (int i = 0; i < count; ++i)
        all.emplace_back(body);
    for (std::thread& thread : all)
        thread.join();
}
