#pragma once

// Prints the C stacks of this process, and the language's; nothing while another thread does that. Runs in a signal
// handler.
void printStacks();
