#include "err/messages/errcatalogue.h"

#include <algorithm>
#include <atomic>
#include <bit>
#include <cerrno>
#include <cstring>
#include <sys/mman.h>

#include "err/messages/errimage.h"
#include "hash.h"
#include "host/base/forklocks.h"
#include "host/base/mutexowner.h"
#include "host/time/wallclock.h"

namespace {

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

// A cheap hash, a word at a time, whose high bits count.
uint32_t textHash(std::string_view text) {
    uint32_t hash = static_cast<uint32_t>(text.size());
    const auto mix = [&hash](const char* bytes, size_t count) {
        uint32_t word = 0;
        memcpy(&word, bytes, count);
        hash = (std::rotl(hash, 5) ^ word) * 0x9E3779B1u;
    };
    constexpr size_t wordSize = sizeof hash;
    for (size_t at = 0; at + wordSize < text.size(); at += wordSize) {
        mix(text.data() + at, wordSize);
    }
    if (text.size() >= wordSize) { // the last word takes some bytes again
        mix(text.data() + text.size() - wordSize, wordSize);
    } else {
        mix(text.data(), text.size());
    }
    return hash;
}

// The entries of the file's image that were asked for, as they were parsed: they save the file's own hash and the
// parsing. The pages of a large catalogue's index are the system's until they are used.
class ParsedEntries {
public:
    // Forgets all when the image is another one.
    void follow(unsigned number, uint32_t tabSize) {
        if (number != imageNumber) {
            release();
            imageNumber = number;
            const uint32_t wanted = std::bit_ceil(std::min(tabSize, mostEntries));
            void* const pages = wanted <= fewEntries ? MAP_FAILED
                                                     : mmap(nullptr, wanted * sizeof(ParsedEntry),
                                                            PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
            if (pages != MAP_FAILED) {
                entries = static_cast<ParsedEntry*>(pages);
                size = wanted;
            }
        }
    }
    void release() {
        if (entries != few) {
            munmap(entries, size * sizeof(ParsedEntry));
            entries = few;
            size = fewEntries;
        }
        std::fill(std::begin(few), std::end(few), ParsedEntry{});
    }
    // Whether the symbol's entry is there; place shows it, or else where it may stand.
    bool find(std::string_view sym, ParsedEntry*& place) const {
        const uint32_t home = textHash(sym) >> (32 - std::countr_zero(size));
        for (uint32_t i = 0; i < longestProbe; ++i) {
            place = &entries[(home + i) & (size - 1)];
            if (place->symbol.empty()) {
                return false;
            }
            if (place->symbol == sym) {
                return true;
            }
        }
        place = &entries[home];
        return false;
    }

private:
    static constexpr uint32_t fewEntries = 64;
    static constexpr uint32_t mostEntries = 1u << 16;
    static constexpr uint32_t longestProbe = 8;

    static inline ParsedEntry few[fewEntries]; // apart from the pointer to it: all zero, it takes no room in the file
    ParsedEntry* entries = few;
    uint32_t size = fewEntries;
    unsigned imageNumber = 0; // the image in which they stand
};

ParsedEntries parsedEntries;

void forkGetLocks() {
    HostMutexAcquire(&mutex);
}
void forkReleaseLocks() {
    HostMutexRelease(&mutex);
}

// The library goes, by dlclose or with the process, and its open file goes along. A thread that is looking something
// up, perhaps this one, keeps it.
[[gnu::destructor]] void closeFileWithLibrary() {
    if (pthread_mutex_trylock(&mutex) == 0) {
        ErrUtlShutdown();
        parsedEntries.release();
        pthread_mutex_unlock(&mutex);
    }
}

uint32_t wordAt(std::string_view file, uint64_t position) {
    uint32_t value = 0;
    memcpy(&value, file.data() + position, sizeof value);
    if (swizzleNeeded) {
        ByteType bytes[4];
        memcpy(bytes, &value, sizeof bytes);
        value = decodeWord(bytes, ErrUtlFileHdr.transform);
    }
    return value;
}

// Reads the three numbers of a slot.
bool readSlot(std::string_view file, uint64_t position, uint32_t (&words)[3], PendingHooks& hooks) {
    if (position + ERRUTL_SLOT_SIZE > file.size()) {
        fprintf(stderr, "errmsg\\readLong:  fread() error, errno = %d\n", errno);
        ++hooks.plain;
        return false;
    }
    for (uint32_t& word : words) {
        word = wordAt(file, position);
        position += sizeof word;
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
    if (tabSize == 0) { // a header that was refused
        return Probe::failed;
    }
    const uint32_t start = hash % tabSize;
    uint32_t pos = start;
    do {
        const uint64_t position = ERRUTL_HEADER_SIZE + static_cast<uint64_t>(pos) * ERRUTL_SLOT_SIZE;
        uint32_t words[3];
        if (!readSlot(file, position, words, hooks)) {
            return Probe::failed;
        }
        const auto [slotHash, keyLoc, valLoc] = words;
        if (valLoc == 0) {
            return Probe::absent;
        }
        if (slotHash == hash) {
            bool matches = true;
            if (keyLoc != 0 && !keyMatches(file, keyLoc, sym, matches, hooks)) {
                return Probe::failed;
            }
            if (matches) {
                slot = {static_cast<long>(slotHash), static_cast<long>(keyLoc), static_cast<long>(valLoc)};
                return Probe::found;
            }
        }
        pos = pos + 1 < tabSize ? pos + 1 : 0;
    } while (pos != start);
    return Probe::absent;
}

// Looks a symbol up by its hash, and parses its entry.
bool findInFile(std::string_view sym, ParsedEntry& entry, char (&buffer)[maxLogicalLine], PendingHooks& hooks) {
    const std::string_view file = errUtlImage();
    const auto* const bytes = reinterpret_cast<const ByteType*>(sym.data());
    const int hash = HashStrHash(bytes, static_cast<unsigned>(sym.size()), TRUE);
    ErrUtlHashSType& cached = cachedMessages[static_cast<unsigned>(hash) % cacheSize];
    // Where the hash does not identify the symbol alone, only the file can tell.
    if (cached.valLoc != 0 && cached.hash == hash && cached.keyLoc == 0) {
        ++cacheHits;
    } else {
        ErrUtlHashSType slot;
        switch (probeTable(file, sym, static_cast<uint32_t>(hash), slot, hooks)) {
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
    const EntryContext context{ErrUtlErrFileName, &lineCount, false, &hooks, malformedLimit};
    BoolType syntaxErr = FALSE;
    if (!nextEntryInText(file, static_cast<unsigned long>(cached.valLoc), context, buffer, entry, syntaxErr) ||
        syntaxErr) {
        errMsgSetPanicked(true);
        return false;
    }
    return entry.symbol == sym;
}

} // namespace

HostMutexSType* printMutex() {
    static std::atomic<bool> registered{false};
    if (!registered.load(std::memory_order_acquire)) {
        hostForkRegister(ForkSlot::printMutex, {forkGetLocks, forkReleaseLocks, [] { return hostHoldsMutex(mutex); }});
        registered.store(true, std::memory_order_release);
    }
    return &mutex;
}

bool tryPrintMutex() {
    // Far longer than any thread that runs keeps the mutex.
    constexpr int64_t longestWaitMicroseconds = 200'000;
    return hostMutexAcquireWithin(printMutex(), longestWaitMicroseconds);
}

bool errMsgPanicked() {
    return ErrMsgPanicked.load(std::memory_order_relaxed) != FALSE;
}
void errMsgSetPanicked(bool panicked) {
    ErrMsgPanicked.store(panicked ? TRUE : FALSE, std::memory_order_relaxed);
}

void errMsgForgetLookups() {
    constexpr ByteType nativeTransform[4] = {0, 1, 2, 3};
    swizzleNeeded = memcmp(ErrUtlFileHdr.transform, nativeTransform, sizeof nativeTransform) != 0;
    for (ErrUtlHashSType& slot : cachedMessages) {
        slot.valLoc = 0;
    }
    cacheProbes = 0;
    cacheHits = 0;
}

bool findErrSym(std::string_view sym, ParsedEntry& entry, char (&buffer)[maxLogicalLine], PendingHooks& hooks) {
    if (ErrUtlErrFile == nullptr) {
        return false;
    }
    ++cacheProbes;
    parsedEntries.follow(errUtlImageNumber(), ErrUtlFileHdr.tabSize);
    ParsedEntry* parsed = nullptr;
    if (parsedEntries.find(sym, parsed)) {
        ++cacheHits;
        entry = *parsed;
    } else if (!findInFile(sym, entry, buffer, hooks)) {
        return false;
    } else if (entry.pattern.data() < buffer || entry.pattern.data() > buffer + sizeof buffer) {
        *parsed = entry;
    } else {
        memmove(buffer, entry.pattern.data(), entry.pattern.size());
        entry.pattern = {buffer, entry.pattern.size()};
        return true;
    }
    entry.pattern = {buffer, entry.pattern.copy(buffer, sizeof buffer)};
    return true;
}
