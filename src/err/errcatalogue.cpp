#include "err/errcatalogue.h"

#include <atomic>
#include <errno.h>
#include <string.h>

#include "err/errimage.h"
#include "hash.h"
#include "host/hostfork.h"
#include "host/mutexowner.h"

namespace {

constexpr size_t headerSize = 20;
constexpr size_t slotSize = 12;
constexpr size_t cacheSize = 64;
// A slot that points into rubbish is reported line by line, but not for ever.
constexpr int malformedLimit = 100;

// Usable from the start: messages are asked for before anybody calls ErrMsgInit.
HostMutexSType mutex = PTHREAD_MUTEX_INITIALIZER;

std::atomic<BoolType> ErrMsgPanicked{FALSE};
bool swizzleNeeded;
ErrUtlHashSType cachedMessages[cacheSize];
unsigned long cacheProbes;
unsigned long cacheHits;

void forkGetLocks() { HostMutexAcquire(&mutex); }
void forkReleaseLocks() { HostMutexRelease(&mutex); }

// Reads one number of the file.
bool readLong(std::string_view file, uint64_t position, uint32_t& value, PendingHooks& hooks) {
    if (position + sizeof value > file.size()) {
        fprintf(stderr, "errmsg\\readLong:  fread() error, errno = %d\n", errno);
        ++hooks.plain;
        return false;
    }
    memcpy(&value, file.data() + position, sizeof value);
    if (swizzleNeeded) {
        ByteType bytes[4];
        memcpy(bytes, &value, sizeof bytes);
        value = decodeWord(bytes, ErrUtlFileHdr.transform);
    }
    return true;
}

// Compares the text at position, and its terminator, with the symbol.
bool keyMatches(std::string_view file, uint32_t position, std::string_view sym, bool& matches, PendingHooks& hooks) {
    if (position > file.size() || file.size() - position < sym.size() + 1) {
        fprintf(stderr, "findErrSym:  symbol fread() error, errno = %d\n", errno);
        ++hooks.plain;
        return false;
    }
    matches = memcmp(file.data() + position, sym.data(), sym.size() + 1) == 0;
    return true;
}

enum class Probe { found, absent, failed };

// Probes the file's table for the slot of a symbol, which is followed by a terminator.
Probe probeTable(std::string_view file, std::string_view sym, uint32_t hash, ErrUtlHashSType& slot,
                 PendingHooks& hooks) {
    const uint32_t tabSize = ErrUtlFileHdr.tabSize;
    if (tabSize == 0) // a header that was refused
        return Probe::failed;
    const uint32_t start = hash % tabSize;
    uint32_t pos = start;
    do {
        const uint64_t position = headerSize + static_cast<uint64_t>(pos) * slotSize;
        uint32_t slotHash = 0, keyLoc = 0, valLoc = 0;
        if (!readLong(file, position, slotHash, hooks) || !readLong(file, position + 4, keyLoc, hooks) ||
            !readLong(file, position + 8, valLoc, hooks))
            return Probe::failed;
        if (valLoc == 0)
            return Probe::absent;
        if (slotHash == hash) {
            bool matches = true;
            if (keyLoc != 0 && !keyMatches(file, keyLoc, sym, matches, hooks))
                return Probe::failed;
            if (matches) {
                slot = {static_cast<long>(slotHash), static_cast<long>(keyLoc), static_cast<long>(valLoc)};
                return Probe::found;
            }
        }
        pos = pos + 1 < tabSize ? pos + 1 : 0;
    } while (pos != start);
    return Probe::absent;
}

} // namespace

HostMutexSType* printMutex() {
    hostForkRegister(ForkSlot::printMutex, {forkGetLocks, forkReleaseLocks, [] { return hostHoldsMutex(mutex); }});
    return &mutex;
}

bool errMsgPanicked() { return ErrMsgPanicked.load(std::memory_order_relaxed) != FALSE; }
void errMsgSetPanicked(bool panicked) { ErrMsgPanicked.store(panicked ? TRUE : FALSE, std::memory_order_relaxed); }

void errMsgForgetLookups() {
    constexpr ByteType nativeTransform[4] = {0, 1, 2, 3};
    swizzleNeeded = memcmp(ErrUtlFileHdr.transform, nativeTransform, sizeof nativeTransform) != 0;
    for (ErrUtlHashSType& slot : cachedMessages)
        slot.valLoc = 0;
    cacheProbes = 0;
    cacheHits = 0;
}

bool findErrSym(const char* sym, ErrUtlEntrySType& entry, PendingHooks& hooks) {
    if (!ErrUtlErrFile)
        return false;
    const std::string_view file = errUtlImage();
    const std::string_view symbol = sym;
    const auto* const bytes = reinterpret_cast<const ByteType*>(sym);
    const int hash = HashStrHash(bytes, static_cast<unsigned>(symbol.size()), TRUE);
    ++cacheProbes;

    ErrUtlHashSType& cached = cachedMessages[static_cast<unsigned>(hash) % cacheSize];
    // Where the hash does not identify the symbol alone, only the file can tell.
    if (cached.valLoc != 0 && cached.hash == hash && cached.keyLoc == 0) {
        ++cacheHits;
    } else {
        ErrUtlHashSType slot;
        switch (probeTable(file, symbol, static_cast<uint32_t>(hash), slot, hooks)) {
        case Probe::failed:
            errMsgSetPanicked(true);
            return false;
        case Probe::absent:
            return false;
        case Probe::found:
            cached = slot;
            break;
        }
    }

    long lineCount = 0;
    EntryContext context{ErrUtlErrFileName, &lineCount, false, &hooks, malformedLimit};
    BoolType syntaxErr = FALSE;
    const auto position = static_cast<unsigned long>(cached.valLoc);
    if (!nextEntryInText(file, position, context, entry, syntaxErr) || syntaxErr) {
        errMsgSetPanicked(true);
        return false;
    }
    return symbol == entry.sym;
}
