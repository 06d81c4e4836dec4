#pragma once

#pragma GCC visibility push(hidden)

// Opens the guard page that holds the address, all of them for NULL, when its handler allows it. Whether the last one
// allowed was opened. Runs in a signal handler.
bool hostProtectCheck(char* faultAddr);

// Whether the page that holds the address was a guard page that has been opened since the access: the access is to be
// made again.
[[gnu::noinline]] bool hostWasOpenedMeanwhile(const char* faultAddr);

#pragma GCC visibility pop
