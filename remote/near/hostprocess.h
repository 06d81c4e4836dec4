// A host process as its parent sees it: how it is started, watched and ended.
//
// It inherits the shared block, one end of a socket pair and a pipe for its output, nothing else. A thread of this
// process, with every signal blocked, passes the output on to standard error, keeps its last lines, and sees the end of
// the process: it collects the status of this one process, then marks the control words so that waiting calls return.
// A process that is forked off this one holds none of it.
#pragma once

#include "channel/block.h"

#include <atomic>
#include <pthread.h>
#include <sys/types.h>

namespace remote {

// A text in a fixed buffer; what does not fit is cut between characters.
template <size_t size>
struct FixedText {
    char text[size] = {};

    void set(const char* format, ...) __attribute__((format(printf, 2, 3)));
    void append(const char* more);
};

using Problem = FixedText<400>;

class HostProcess {
public:
    // Starts the program of that word size (32 or 64) on the client library `file` and waits until it serves, 10
    // seconds at most. FALSE with the reason, and what to do about it, in `problem`.
    bool start(int wordSize, const char* file, Problem& problem);

    // Tells the process to end. One that does not within a second is killed; with `atOnce`, at once.
    void hangUp(bool atOnce);
    // Waits for the end of the process after hangUp, or of one that ended by itself; ending() then tells how.
    void join();
    // The same, and gives up all that it had.
    void stop();
    // Gives up all but the memory, which a thread in a call may still look at.
    void closeDescriptors();

    [[nodiscard]] bool running() const { return watching; }
    // How the process ended: a signal or a status and the last lines of its output; valid after join().
    [[nodiscard]] const char* ending() const { return end.text; }
    [[nodiscard]] Block& block() { return shared; }

    // In a process that was forked off: lets go of everything.
    void forgetInFork();

private:
    bool spawn(int wordSize, const char* file, Problem& problem);
    bool awaitReady(Problem& problem);
    bool watch();
    void watchUntilEnd();
    void readOutput();
    void collect(int patienceMilliseconds);
    void describe(int status, bool known);
    void appendOutput(Problem& text) const;
    void closeAll();
    static void* watcher(void* process);

    Block shared;
    pid_t pid = -1;
    int pidDescriptor = -1; // -1 where the kernel has none
    int socket = -1;
    int output = -1;
    bool collected = false;
    bool watching = false;
    std::atomic<bool> impatient = false;
    pthread_t thread{};
    Problem end;
    // The end of the process's output.
    static constexpr size_t tailSize = 240;
    char tail[tailSize] = {};
    size_t tailLength = 0;
};

// Where this library lies: its folder with a slash at the end, and its base name. FALSE when the path is too long.
bool ownPlace(FixedText<1024>& folder, FixedText<256>& name);

} // namespace remote
