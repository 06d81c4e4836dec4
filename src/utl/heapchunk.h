// The records of the checking heap and its state. A block, from the system heap, is laid out as
//
//     HeapChunk | the caller's bytes, rounded up to a multiple of 4 | three guard words
#pragma once

#include <cstddef>
#include <cstdint>

#include "kcitypes.h"

#pragma GCC visibility push(hidden)

#pragma GCC visibility push(hidden)

constexpr uint32_t heapGuard = 0x0102030E;
// The first guard word of a released block: a second release fails the guard check.
constexpr uint32_t heapReleasedGuard = 0xFFFFFFFF;
constexpr size_t heapGuardWords = 3;
constexpr size_t heapNameSize = 16;

struct HeapChunk;

// What the record table knows of a block. A free record keeps the index of the next free one in lineNum, -1 at the end.
struct HeapChunkRef {
    HeapChunk* c; // null: the record is free
    size_t userSize;
    intptr_t lineNum;
    char fName[heapNameSize];
};

struct HeapChunk {
    size_t userSize;      // bytes asked for
    intptr_t lineNum;     // source line of the request
    unsigned num_mallocs; // the two counters when the block was made; this one is its sequence number
    unsigned num_frees;
    char fName[heapNameSize]; // origin, terminated
    HeapChunkRef* ref;        // null: the record table was full
    HeapChunk* prev;          // the next newer live block
    HeapChunk* next;          // the next older one
    uint32_t guard[heapGuardWords];

    // The guarded allocation and release. They take the heap's mutex.
    static void* malloc(size_t size, intptr_t line, const char* name);
    static void free(void* ptr);

    char* userBytes() { return reinterpret_cast<char*>(this + 1); }
    bool frontGuardsIntact() const { return guardsIntact(guard); }
    // userSize may have been overwritten: the size is the one that was kept outside the block.
    bool endGuardsIntact(size_t trustedSize) { return guardsIntact(endGuards(trustedSize)); }
    uint32_t* endGuards(size_t size) { return reinterpret_cast<uint32_t*>(userBytes() + roundedSize(size)); }

    static size_t roundedSize(size_t size) { return (size + 3) & ~size_t{3}; }

private:
    static bool guardsIntact(const uint32_t* words) {
        return words[0] == heapGuard && words[1] == heapGuard && words[2] == heapGuard;
    }
};

constexpr size_t heapOverhead = sizeof(HeapChunk) + heapGuardWords * sizeof(uint32_t);
static_assert(sizeof(void*) != 4 || (sizeof(HeapChunk) == 56 && offsetof(HeapChunk, ref) == 32 && heapOverhead == 68));
static_assert(sizeof(void*) != 4 || sizeof(HeapChunkRef) == 28);

constexpr int REF_ARRAY_SIZE = 200000;
extern HeapChunkRef chunkRefs[REF_ARRAY_SIZE];

// Debugging mode: blocks as above; otherwise plain ones of the system. To be changed before the first allocation only.
extern volatile BoolType debugCHeap;
// Set in a debugger: a scan of the record table raises no guarantee failures.
extern volatile BoolType heapCheckDebug;

#pragma GCC visibility pop

#pragma GCC visibility pop
