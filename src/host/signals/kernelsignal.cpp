#include "host/signals/kernelsignal.h"

#include <sys/syscall.h>
#include <unistd.h>

namespace {
// The kernel's view of a signal set and action.
constexpr size_t kernelSetSize = 8;
struct KernelAction {
    void (*handler)(int);
    unsigned long flags;
    void (*restorer)();
    unsigned char mask[kernelSetSize];
};
} // namespace

void hostSetInKernel(int sig, void (*plain)(int)) {
    KernelAction action{};
    action.handler = plain;
    syscall(SYS_rt_sigaction, sig, &action, nullptr, kernelSetSize);
}

void hostDropHandlersInKernel() {
    for (int sig = 1; sig <= SIGRTMAX; ++sig) {
        KernelAction action;
        if (syscall(SYS_rt_sigaction, sig, nullptr, &action, kernelSetSize) == 0 && action.handler != SIG_DFL &&
            action.handler != SIG_IGN) {
            hostSetInKernel(sig, SIG_DFL);
        }
    }
}
