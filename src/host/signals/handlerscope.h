// Whether a signal handler of the host services runs on a thread.
#pragma once

#include <cstdint>

#pragma GCC visibility push(hidden)

// Marks the calling thread for as long as its handler runs. Signal-safe.
//
//     void handler(int sig, siginfo_t* info, void* context) {
//         const HandlerScope running;
class HandlerScope {
public:
    [[gnu::always_inline]] HandlerScope() {
        const auto frame = reinterpret_cast<uintptr_t>(__builtin_frame_address(0));
        // A mark below this frame was left behind by a handler that was left by a jump.
        outer = innermost > frame ? innermost : 0;
        innermost = frame;
    }
    ~HandlerScope() { innermost = outer; }
    HandlerScope(const HandlerScope&) = delete;
    HandlerScope& operator=(const HandlerScope&) = delete;

    // Takes the mark off while a handler of somebody else runs, which may jump out: the mark is not left behind then.
    class Lifted {
    public:
        ~Lifted() { innermost = kept; }
        Lifted() { innermost = 0; }
        Lifted(const Lifted&) = delete;
        Lifted& operator=(const Lifted&) = delete;

    private:
        const uintptr_t kept = innermost;
    };

    // Whether the calling thread is marked.
    [[gnu::always_inline]] static bool isActive() {
        return innermost > reinterpret_cast<uintptr_t>(__builtin_frame_address(0));
    }
    // Takes the mark off, before a jump out of the handler.
    static void leave() { innermost = 0; }

private:
    // The frame of the innermost handler, 0 for none. This model of thread-local data needs no allocation on first use.
    static __thread uintptr_t innermost [[gnu::tls_model("initial-exec")]];
    uintptr_t outer;
};

#pragma GCC visibility pop
