#pragma once

#pragma GCC visibility push(hidden)

// Makes the real user and group ids the effective ones of a child that then executes a program. FALSE with errno set.
// System calls only, past the C library, whose functions for ids tell all threads of a process: a child of vfork runs
// in its parent's memory, and one of a failed process must not wait for anybody.
bool hostTakeRealIdsForExec();

// Gives set-id privileges up for ever, in the calling thread and what it starts. System calls only, too: it runs in the
// fatal report. A process without such privileges has none to lose, so nothing is answered.
void hostDropSetIds();

#pragma GCC visibility pop
