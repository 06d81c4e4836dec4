#pragma once

#pragma GCC visibility push(hidden)

// Ends the process, with status 3, because host initialisation failed; errno tells why, unless it is 0.
[[noreturn]] void hostInitCrash(const char* what);

#pragma GCC visibility pop
