// Whose instruction a signal interrupted. Runs in a signal handler.
#pragma once

#pragma GCC visibility push(hidden)

// The address of the interrupted instruction; NULL without a context.
const void* hostInstructionAddress(const void* context);

// Learns where this library's instructions lie; the handler then tells them from others without the loader's lock.
void hostLearnInstructionRange();

// Whether an address lies in this library.
bool hostIsInThisLibrary(const void* address);

#pragma GCC visibility pop
