// The heap's state that its checks read. Guarded by the heap's mutex.
#pragma once

#include "utl/heapchunk.h"

#pragma GCC visibility push(hidden)

#pragma GCC visibility push(hidden)

// The newest live block.
extern HeapChunk* heapStart;
// The records of the table that were ever in use; the ones behind them are free and untouched.
extern int usedRefs;

#pragma GCC visibility pop

#pragma GCC visibility pop
