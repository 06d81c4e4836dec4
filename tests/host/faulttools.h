// What the tests of faults, reports and core files share.
#pragma once

#include <csignal>
#include <string>

#include "hostfault.h"
#include "support/expect.h"

// A folder of its own for a report: $KESTRUNE points to it, its bin/gstack prints "stack of <pid>", it is the working
// folder, and a report waits for no debugger.
class ReportFolder : public Scratch {
public:
    enum class Printer { fake, none };
    explicit ReportFolder(Printer printer = Printer::fake);
};

// runInChild with reports that end the process, and core files of limited size where the system allows any.
ChildResult runToItsEnd(const std::function<void()>& body, const std::function<void(pid_t)>& whileItRuns = nullptr,
                        std::chrono::milliseconds timeOut = std::chrono::milliseconds(20000));

// How a process ends, with a report: what its streams match, its status.
struct Ending {
    std::string err, out = "";
    int exitStatus = 3, signal = 0;
};
// Runs the body to its end in a report folder of its own.
void expectEnding(const std::function<void()>& body, const Ending& expected, Where where = Where::current());

// Waits until the process handles the signal.
void waitUntilHandled(pid_t pid, int sig);

// Writes to standard error, also from a handler.
void say(const char* text);

struct sigaction actionOf(int sig);

// HostInstallFaultHandler.
void install(HostFaultFuncType* flush = nullptr);

// What comes with a signal.
siginfo_t arrival(int sig, int code, int error = 0);

void jumpToNowhere();

// Runs the body in so many threads at once, to their end.
void inThreads(int count, void (*body)());
