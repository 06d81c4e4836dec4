// Internal consistency checks. A check that fails is reported to HostCallDebuggerMsg, and the caller carries on.
//
//     namespace { constexpr char utlModule[] = "hostmutex"; }
//     ...
//     UTL_GUARANTEE(count > 0);
//
// A source file defines utlModule, the module's name in the report, before its first check.
#pragma once

#pragma GCC visibility push(hidden)

// Reports "UTL_GUARANTEE failure in file <module> at line <line>". errno is kept. Not signal-safe.
[[gnu::cold, gnu::noinline]] void hostGuaranteeFailed(const char* module, int line);

// The same, without the wait for a debugger that $KESTRUNE_CHILD_DEBUG asks for.
[[gnu::cold, gnu::noinline]] void hostReportGuarantee(const char* module, int line);

// Prints the same line and reports nothing.
[[gnu::cold, gnu::noinline]] void hostPrintGuarantee(const char* module, int line);

#define UTL_GUARANTEE(condition) ((condition) ? (void)0 : hostGuaranteeFailed(utlModule, __LINE__))

#pragma GCC visibility pop
