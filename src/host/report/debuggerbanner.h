// The first lines of a fatal report.
#pragma once

#pragma GCC visibility push(hidden)

// Opens the report of `who` on standard output: a rule, its name, the time.
void printDebuggerBanner(const char* who);

// Opens the report of HostCallDebugger and leaves the text of the error number in buf, having printed it on standard
// error, too.
void printHostcallDebugger(int error, char* buf, unsigned size);

#pragma GCC visibility pop
