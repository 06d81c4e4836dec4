// Formatted lines from signal handlers.
#pragma once

#pragma GCC visibility push(hidden)

// Writes a line of at most 255 bytes to standard error, what is beyond them is cut. Signal-safe for the conversions
// d, u, x, p and s. The frame is large; keep it off the path of a fault that is only passed on.
[[gnu::cold, gnu::noinline, gnu::format(printf, 1, 2)]] void hostSafePrintf(const char* format, ...);

#pragma GCC visibility pop
