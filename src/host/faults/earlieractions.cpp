#include "host/faults/earlieractions.h"

#include <array>
#include <atomic>

#include "host/signals/handlerscope.h"
#include "host/signals/unixiosignal.h"

namespace {
struct OldHandlers {
    std::array<struct sigaction, MAX_OLD_HANDLERS> action;
    // 1 where an action is recorded. Written after the action, read before it.
    std::array<std::atomic<int>, MAX_OLD_HANDLERS> valid;
};
OldHandlers oldHandlers;
} // namespace

void hostRecordAction(int sig) {
    if (sigaction(sig, nullptr, &oldHandlers.action[sig]) == 0) {
        oldHandlers.valid[sig].store(1, std::memory_order_release);
    }
}

void hostForgetAction(int sig) {
    oldHandlers.valid[sig] = 0;
}

void hostForgetActions() {
    for (std::atomic<int>& valid : oldHandlers.valid) {
        valid = 0;
    }
}

struct sigaction* hostOldHandler(int sig) {
    if (sig < 0 || sig >= MAX_OLD_HANDLERS || !oldHandlers.valid[sig].load(std::memory_order_acquire)) {
        return nullptr;
    }
    return &oldHandlers.action[sig];
}

void hostCallOldHandler(int sig, siginfo_t* info, void* context) {
    const struct sigaction* old = hostOldHandler(sig);
    if (old == nullptr || !unixioIsFunction(*old)) {
        return;
    }
    const HandlerScope::Lifted lifted;
    if (old->sa_flags & SA_SIGINFO) {
        old->sa_sigaction(sig, info, context);
    } else {
        old->sa_handler(sig);
    }
}
