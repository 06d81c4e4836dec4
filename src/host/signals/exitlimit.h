// An exit that a signal handler began (UtlExit), and whose exit handlers have ten seconds.
#pragma once

#pragma GCC visibility push(hidden)

// Whether the calling thread is in it. Signal-safe.
bool hostIsExiting();
// Ends the process at once, with the code of that exit. Signal-safe.
[[noreturn]] void hostEndExit();

#pragma GCC visibility pop
