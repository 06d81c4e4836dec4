#pragma once

#include <csignal>

// One call of the handler.
struct SignalArrival {
    int sig;
    siginfo_t* info; // may be NULL; whether it belongs to this signal tells infoIsValid
    void* context;   // the interrupted frame, a ucontext_t; may be NULL
    bool infoIsValid;

    // Sent by a process, not raised by the hardware or the kernel.
    bool wasSent() const { return infoIsValid && info->si_code < 1; }
};
