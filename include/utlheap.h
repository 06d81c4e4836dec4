/*
 * The heap of the support layer: malloc and free (ISO C) with bookkeeping, called wherever the support layer or an
 * embedding program needs memory that is handed over between them.
 *
 * Every block carries its origin, guard words before and after the caller's bytes, and a place in the list of live
 * blocks. Each 300th allocation and each 300th release checks all live blocks; a release checks its own. Damage, double
 * releases and foreign pointers are reported as guarantee failures, after which the heap goes on: see
 * HostCallDebuggerMsg for what a report does. Reports are made while the heap is not locked, so they may use the heap.
 *
 * All functions are thread-safe; a child made by fork may use them whatever other threads did. None is signal-safe.
 * Blocks are aligned to 8 bytes on i386 (56 behind the system's 16).
 */
#ifndef TMQKCI_UTLHEAP_H
#define TMQKCI_UTLHEAP_H

#include "kcitypes.h"

TMQKCI_C_BEGIN

/*
 * A block of length bytes, uninitialized, released with UtlFree; NULL when there is no memory. A length of 0 is
 * reported as a guarantee failure and gives an empty block. reason names the requester in reports and in the summary
 * (up to 15 characters, counted from behind the first "src/"); it is copied. When memory runs out and reason is not
 * NULL, one line goes to standard error and HostCallDebuggerMsg is called with an empty text.
 */
TMQKCI_API void* UtlMalloc(unsigned length, const char* reason);

/* The same for a source line (not 0) of a named file; memory running out is always reported. */
TMQKCI_API void* UtlMallocF(unsigned length, int lineNum, const char* fileName);

/* The same for a source line alone; a length of 0 is accepted, and memory running out is not reported. */
TMQKCI_API void* UtlMalloc_(unsigned length, int line);

/* UtlMallocF; then all pages that the block touches may be read, written and executed, also after its release. */
TMQKCI_API void* UtlMallocExe(unsigned length, int lineNum, const char* fileName);

/*
 * Releases a block. NULL is reported. A pointer that is not a live block's is reported, with a line on standard error
 * that says what is known of it, and left alone; the memory that it leads to need not exist.
 */
TMQKCI_API void UtlFree(void* ptr);

/* Prepares the heap. Allocations do so themselves; later calls change nothing. */
TMQKCI_API void UtlHeapInit(void);

/* Checks all live blocks now. */
TMQKCI_API void UtlHeapCheck(void);

/* Checks all live blocks and prints the counters and each block, newest first, on standard output. */
TMQKCI_API void UtlHeapPrint(void);

/* The callers' bytes in live blocks, in units of 1024, rounded down. */
TMQKCI_API unsigned UtlHeapSizeKB(void);

TMQKCI_C_END

#endif
