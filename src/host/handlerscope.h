// Whether a signal handler of the host services runs on a thread.
#pragma once

#include <cstdint>

// Marks the calling thread for as long as its handler runs. Signal-safe.
//
//     void handler(int sig, siginfo_t* info, void* context) {
//         const HandlerScope running;
class HandlerScope {
public:
    [[gnu::always_inline]] HandlerScope() : outer_(innermost) {
        innermost = reinterpret_cast<uintptr_t>(__builtin_frame_address(0));
    }
    ~HandlerScope() { innermost = outer_; }
    HandlerScope(const HandlerScope&) = delete;
    HandlerScope& operator=(const HandlerScope&) = delete;

    // Whether the calling thread is marked. A handler that was left by a jump left its mark behind: its frame then lies
    // below the caller's.
    [[gnu::always_inline]] static bool isActive() {
        return innermost > reinterpret_cast<uintptr_t>(__builtin_frame_address(0));
    }
    // Takes the mark off, before a jump out of the handler.
    static void leave() { innermost = 0; }

private:
    // The frame of the innermost handler, 0 for none. This model of thread-local data needs no allocation on first use.
    static __thread uintptr_t innermost [[gnu::tls_model("initial-exec")]];
    const uintptr_t outer_;
};
