// The actions that fatal signals had before the fault handler was installed. Recorded by ordinary code, read in signal
// handlers.
#pragma once

#include <csignal>

#pragma GCC visibility push(hidden)

// Signal numbers whose earlier actions can be remembered: 0 to one below.
constexpr int MAX_OLD_HANDLERS = 50;

// Records a signal's present action. Before the handler is installed, not by that call itself: another thread's fault,
// harmless in the hands of the earlier handler, may come at any moment.
void hostRecordAction(int sig);

// Forgets a recorded action, respectively all.
void hostForgetAction(int sig);
void hostForgetActions();

// The recorded action of a signal, or NULL.
struct sigaction* hostOldHandler(int sig);

// Calls a signal's recorded action when it is a function, with the arguments that its flags ask for.
void hostCallOldHandler(int sig, siginfo_t* info, void* context);

#pragma GCC visibility pop
