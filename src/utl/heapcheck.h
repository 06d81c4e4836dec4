// The heap's checks. They run under the heap's mutex and change nothing but the ledger's gaps.
#pragma once

#include <array>
#include <cstddef>

#include "utl/heapchunk.h"

#pragma GCC visibility push(hidden)

#pragma GCC visibility push(hidden)

// Guarantee failures found under the heap's mutex. A report may run a hook that allocates, so it is made later, when
// the mutex is free. Equal failures in a row are counted; when the room for different ones is used up, a further one
// counts with the last one of its line.
class HeapViolations {
public:
    bool any() const { return used != 0; }
    void add(int line, unsigned times = 1);
    // Reports all, in their order, and forgets them. Without the mutex.
    void report();

private:
    struct Run {
        int line;
        unsigned count;
    };
    std::array<Run, 32> runs;
    size_t used = 0;
};

// A block's guard words, which a release tests.
inline bool isIntact(HeapChunk* chunk, size_t trustedSize) {
    return chunk->frontGuardsIntact() && chunk->endGuardsIntact(trustedSize);
}
// What is wrong with a block that is not intact.
void addDamage(HeapChunk* chunk, size_t trustedSize, HeapViolations& violations);
// The whole live list: every guard word, every link.
void checkLiveList(HeapViolations& violations);
// The blocks of the whole record table, in three passes. Always TRUE.
BoolType checkHeapRefs(HeapViolations& violations);

#pragma GCC visibility pop

#pragma GCC visibility pop
