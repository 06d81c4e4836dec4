#pragma once

#pragma GCC visibility push(hidden)

// Prints the C stacks of this process, and the language's; nothing while another thread does that. Runs in a signal
// handler.
void printStacks();

#pragma GCC visibility pop
