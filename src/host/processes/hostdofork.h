#pragma once

#include "kcitypes.h"

#pragma GCC visibility push(hidden)

// Set in a debugger: the next process that HostFork or HostForkServer starts waits for a debugger in
// HostWaitForDebugger.
extern volatile BoolType debugchild;

#pragma GCC visibility pop
