// The pieces of the fatal report. It runs in the thread that met the error, also in a signal handler.
#pragma once

#include <cstdio>

// Takes and allocates beforehand what the report needs from the C library: once it runs, whatever has interrupted may
// hold the library's locks. For ordinary code; thread-safe.
void hostPrepareReport();

// Builds a message for the report as ErrMsgSymToText does. The error may have hit a thread that holds the catalogue's
// mutex: when that cannot be had within a moment, the message is built without the catalogue, in brackets.
void hostReportText(const char* sym, char* buf, unsigned size, const char* kinds, ...);

// The same, printed to a stream as one line.
void hostReportLine(FILE* f, const char* sym, const char* kinds, ...);

// Opens the report of `who` on standard output: a rule, its name, the time.
void printDebuggerBanner(const char* who);

// Opens the report of HostCallDebugger and leaves the text of the error number in buf, having printed it on standard
// error, too.
void printHostcallDebugger(int error, char* buf, unsigned size);

// Prints the C stacks of this process, and the language's; nothing while another thread does that.
void printStacks();

// Waits for a debugger, for ever, when $KESTRUNE_CHILD_DEBUG is set; before the report of a broken guarantee.
void hostWaitAfterGuarantee(const char* reason);

// Ends the process, with status 3, because host initialisation failed; errno tells why, unless it is 0.
[[noreturn]] void hostInitCrash(const char* what);
