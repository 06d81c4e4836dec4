// Runs code in a child process, for whatever ends, faults, prints, forks or changes the process.
//
//     const ChildResult child = runInChild([] { HostCallDebuggerMsg("text"); });
//     EXPECT_EQ(child.out, "text\n");
//
// The child is a plain fork: it has the parent's state and one thread. A failed EXPECT inside it makes it exit with 99
// and shows up in `out`. After the time-out it is killed. Do not fork while another thread of the test runs unless that
// is what is tested.
//
// In a program with these, a fatal error is announced and the program goes on (noHalt), unless a test clears noHalt.
#pragma once

#include <chrono>
#include <functional>
#include <string>
#include <sys/types.h>

struct ChildResult {
    std::string out;     // all of standard output, and of
    std::string err;     // standard error
    int exitStatus = -1; // -1 when a signal ended the child
    int signal = 0;      // the signal that ended it
    bool timedOut = false;
};

// The child runs body, flushes its streams and exits with 0 through _exit, so that no exit handler of the test program
// runs twice; a body that wants exit handlers calls exit itself.
ChildResult runInChild(const std::function<void()>& body,
                       std::chrono::milliseconds timeOut = std::chrono::milliseconds(20000));

// The same, with a hook in the parent while the child runs (to send it signals, for example).
ChildResult runInChild(const std::function<void()>& body, const std::function<void(pid_t)>& whileItRuns,
                       std::chrono::milliseconds timeOut = std::chrono::milliseconds(20000));
