// What the installers of hostsignal.h are made of, for the code that puts earlier actions back.
#pragma once

#include <csignal>
#include <cstdint>

#pragma GCC visibility push(hidden)

// Installs an action exactly as it stands; a failure is reported as by the installers.
void unixioSetAction(int sig, const struct sigaction& action, struct sigaction* previous = nullptr);

// A disposition that is a function, neither the default nor "ignore".
inline bool unixioIsFunction(const struct sigaction& action) {
    return action.sa_handler != SIG_DFL && action.sa_handler != SIG_IGN;
}

// The plain dispositions SIG_DFL and SIG_IGN, as the installers take them.
inline auto unixioPlain(void (*disposition)(int)) {
    return reinterpret_cast<void (*)(int, siginfo_t*, void*)>(reinterpret_cast<uintptr_t>(disposition));
}

#pragma GCC visibility pop
