#pragma once

#pragma GCC visibility push(hidden)

// Whether $KESTRUNE_CHILD_DEBUG asks this process to wait for a debugger.
bool hostDebuggerWaitIsWanted();

#pragma GCC visibility pop
