// Local time without the C library's time-zone lock. A fatal report may have interrupted whoever holds that lock, and
// a forked process has it locked for ever.
#pragma once

#include <ctime>

#pragma GCC visibility push(hidden)

// Learns the local zone's offsets for about ten years from now. The first call counts. For ordinary code; thread-safe.
void hostLearnLocalTime();

// As localtime_r (POSIX), from what was learned; before anything was learned, from localtime_r. Signal-safe otherwise.
tm hostLocalTime(time_t t);

#pragma GCC visibility pop
