#include "utl/heapcheck.h"

#include "host/base/guarantee.h"
#include "utl/heapledger.h"
#include "utl/heapstate.h"
#include "utl/prefetch.h"

void HeapViolations::add(int line, unsigned times) {
    if (used > 0 && runs[used - 1].line == line) {
        runs[used - 1].count += times;
    } else if (used < runs.size()) {
        runs[used++] = {line, times};
    } else {
        for (size_t i = used; i-- > 0;) {
            if (runs[i].line == line) {
                runs[i].count += times;
                return;
            }
        }
    }
}

void HeapViolations::report() {
    for (size_t i = 0; i < used; ++i) {
        for (unsigned n = 0; n < runs[i].count; ++n) {
            hostGuaranteeFailed("utlheap", runs[i].line);
        }
    }
    used = 0;
}

namespace {
// Fetches what checkLiveList will look at.
inline void prefetchBlock(const HeapLedger::Entry& entry) {
    // Integers: of a gap, which has no chunk, no address is formed.
    const auto chunk = reinterpret_cast<uintptr_t>(entry.chunk);
    const uintptr_t end = chunk + sizeof(HeapChunk) + entry.size;
    const auto prefetchAt = [](uintptr_t place) { prefetch(reinterpret_cast<const void*>(place)); };
    prefetchAt(chunk + offsetof(HeapChunk, prev));
    prefetchAt(chunk + sizeof(HeapChunk) - 1);
    prefetchAt(end);
    prefetchAt(end + heapGuardWords * sizeof(uint32_t) - 1);
}

[[gnu::cold]] void addBlockDamage(const HeapLedger::Entry& entry, bool linkedWell, HeapViolations& violations) {
    if (!entry.chunk->frontGuardsIntact()) {
        violations.add(__LINE__);
    }
    if (!entry.chunk->endGuardsIntact(entry.size)) {
        violations.add(__LINE__);
    }
    if (!linkedWell) {
        violations.add(__LINE__);
    }
}

void heapHalt(HeapViolations& violations) {
    if (!heapCheckDebug) {
        violations.add(__LINE__);
    }
}
} // namespace

void addDamage(HeapChunk* chunk, size_t trustedSize, HeapViolations& violations) {
    if (!chunk->frontGuardsIntact()) {
        checkHeapRefs(violations);
        violations.add(__LINE__);
    }
    if (!chunk->endGuardsIntact(trustedSize)) {
        violations.add(__LINE__);
    }
}

void checkLiveList(HeapViolations& violations) {
    constexpr std::ptrdiff_t ahead = 8;
    heapLedger.compactIfSparse();
    const std::span<const HeapLedger::Entry> all = heapLedger.all();
    const HeapLedger::Entry* const oldest = all.data();
    HeapChunk* newer = nullptr;
    HeapChunk* linked = heapStart;
    for (const HeapLedger::Entry* entry = oldest + all.size(); entry != oldest;) {
        --entry;
        HeapChunk* chunk = entry->chunk;
        if (chunk == nullptr) [[unlikely]] {
            entry -= entry->size - 1;
            continue;
        }
        if (entry - oldest >= ahead) [[likely]] {
            prefetchBlock(entry[-ahead]);
        }
        const bool linkedWell = linked == chunk && chunk->prev == newer;
        if (!linkedWell || !isIntact(chunk, entry->size)) [[unlikely]] {
            addBlockDamage(*entry, linkedWell, violations);
        }
        newer = chunk;
        linked = chunk->next;
    }
    if (linked != nullptr) {
        violations.add(__LINE__);
    }
}

BoolType checkHeapRefs(HeapViolations& violations) {
    const auto scan = [&](auto isDamaged) {
        for (int i = 0; i < usedRefs; ++i) {
            HeapChunkRef& ref = chunkRefs[i];
            if (ref.c != nullptr && isDamaged(ref)) {
                heapHalt(violations);
            }
        }
    };
    scan([](HeapChunkRef& ref) { return ref.c->frontGuardsIntact() && !ref.c->endGuardsIntact(ref.userSize); });
    scan([](HeapChunkRef& ref) { return !ref.c->endGuardsIntact(ref.userSize); });
    scan([](HeapChunkRef& ref) { return !ref.c->frontGuardsIntact(); });
    return TRUE;
}
