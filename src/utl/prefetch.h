#pragma once

#pragma GCC visibility push(hidden)

// A hint that fetches a line of memory and never faults. The compiler's own builtin needs a processor option on i386;
// processors without the instruction take it for a long no-operation.
inline void prefetch(const void* address) {
#if defined(__i386__)
    asm volatile("prefetcht0 %0" : : "m"(*static_cast<const char*>(address)));
#else
    __builtin_prefetch(address);
#endif
}

#pragma GCC visibility pop
