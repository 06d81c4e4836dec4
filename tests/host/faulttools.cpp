#include "host/faulttools.h"

#include <cstdlib>
#include <dlfcn.h>
#include <filesystem>
#include <fstream>
#include <sys/mman.h>
#include <sys/resource.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include "hostatomic.h"
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
        script("bin/gstack", "echo stack of $1\nsleep 0.2", printer == Printer::fake ? 0755 : 0644);
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

void touch(const void* address) {
    asm volatile("movb (%0), %%al" : : "r"(address) : "eax");
}

void say(const char* text) {
    HostSignalSafePrint(text);
}

struct sigaction actionOf(int sig) {
    struct sigaction action = {};
    sigaction(sig, nullptr, &action);
    return action;
}

void setAction(int sig, void (*handler)(int, siginfo_t*, void*), int flags) {
    struct sigaction action = {};
    action.sa_sigaction = handler;
    action.sa_flags = flags;
    sigaction(sig, &action, nullptr);
}

void install(HostFaultFuncType* flush) {
    HostInstallFaultHandler(flush, nullptr);
}

char* newPage(int protection) {
    return static_cast<char*>(mmap(nullptr, UtlGetPageSize(), protection, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
}

// A fault whose instruction lies in the C library.
void faultInCLibrary(const char* address) {
    static size_t (*volatile length)(const char*) =
        reinterpret_cast<size_t (*)(const char*)>(dlsym(RTLD_DEFAULT, "strlen"));
    length(address);
}

void jumpToNowhere() {
    void (*volatile nowhere)() = nullptr;
    nowhere();
}

// Faults in the library itself.
void faultInLibrary() {
    HostAsmSyncCtrAdd(reinterpret_cast<int*>(64), 1);
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
