#pragma once

#pragma GCC visibility push(hidden)

// Takes and allocates beforehand what the report needs from the C library: once it runs, whatever has interrupted may
// hold the library's locks. For ordinary code; thread-safe.
void hostPrepareReport();

#pragma GCC visibility pop
