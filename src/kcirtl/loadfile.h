// For a process that serves one client library: opens that very file, without a search.
#pragma once

#include "kcitypes.h"

#pragma GCC visibility push(hidden)

// As KciRtlLoad, with the file named: its checks, its texts, its state.
bool kciRtlLoadFile(const char* file, char* errBuf, ArraySizeType errBufSize);

#pragma GCC visibility pop
