// Dispositions and masks of signals as the kernel has them, past the C library: a library in front of sigaction may
// keep books, or a lock (a Java virtual machine's signal chaining does both). Signal-safe, also in a child of vfork.
#pragma once

#include <csignal>

#pragma GCC visibility push(hidden)

// Gives a signal one of the plain dispositions, SIG_DFL and SIG_IGN.
void hostSetInKernel(int sig, void (*plain)(int));

// Gives every signal that a function handles the default disposition, as exec will do. Until then a signal that came
// to this child would run its parent's handlers in it.
void hostDropHandlersInKernel();

// Blocks every signal of the calling thread for a scope.
class AllSignalsBlocked {
public:
    AllSignalsBlocked() {
        sigset_t all;
        sigfillset(&all);
        pthread_sigmask(SIG_SETMASK, &all, &callersMask);
    }
    ~AllSignalsBlocked() { pthread_sigmask(SIG_SETMASK, &callersMask, nullptr); }
    AllSignalsBlocked(const AllSignalsBlocked&) = delete;
    AllSignalsBlocked& operator=(const AllSignalsBlocked&) = delete;

    const sigset_t& callers() const { return callersMask; }

private:
    sigset_t callersMask;
};

#pragma GCC visibility pop
