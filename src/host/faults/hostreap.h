#pragma once

#pragma GCC visibility push(hidden)

// Takes the status of all children that ended or stopped. Runs in a signal handler.
void hostReapChildren();

#pragma GCC visibility pop
