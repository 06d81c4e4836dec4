#include "errmsgc/compiled.h"

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <map>
#include <memory>
#include <sys/stat.h>

#include "errmsg.h"
#include "hash.h"
#include "host/names/filestatus.h"
#include "hostdebug.h"
#include "utlheap.h"

namespace errmsgc {
namespace {

struct Slot {
    uint32_t hash;
    uint32_t keyLoc;
    uint32_t valLoc;
};

// A message file and what is wrong with it.
class Compiled {
public:
    explicit Compiled(const std::string& fileName) : name(fileName) {}
    ~Compiled() {
        if (file != nullptr) {
            fclose(file);
        }
    }
    Compiled(const Compiled&) = delete;
    Compiled& operator=(const Compiled&) = delete;

    // Reads the header and the table. FALSE when there is no point in reading on.
    bool open();
    // The entry at a position of the file.
    bool entryAt(uint32_t position, Entry& entry);
    // The zero-terminated text at a position. FALSE when it is not terminated.
    bool textAt(uint32_t position, std::string& text);
    // Whether the text is empty or its last line complete.
    bool endsWithLine() {
        char last = '\n';
        return header.textBegin >= size || (readAt(size - 1, &last, 1) && last == '\n');
    }
    // Whether a probe for the symbol ends in the given slot.
    bool reaches(const std::string& symbol, uint32_t hash, size_t slot);

    void fault(const char* format, ...) __attribute__((format(printf, 2, 3)));

    const std::string name;
    ErrUtlHdrSType header{};
    std::vector<Slot> slots;
    uint32_t size = 0;
    bool good = true;

private:
    bool readAt(uint32_t position, void* bytes, size_t count) {
        return fseek(file, static_cast<long>(position), SEEK_SET) == 0 && fread(bytes, 1, count, file) == count;
    }
    uint32_t word(const ByteType* bytes) const {
        uint32_t value = 0;
        for (int i = 0; i < 4; ++i) {
            value |= static_cast<uint32_t>(bytes[i]) << 8 * header.transform[i];
        }
        return value;
    }

    FILE* file = nullptr;
};

void Compiled::fault(const char* format, ...) {
    good = false;
    fprintf(stderr, "%s: ", name.c_str());
    va_list list;
    va_start(list, format);
    vfprintf(stderr, format, list);
    va_end(list);
    fputc('\n', stderr);
}

bool Compiled::open() {
    FileStatus status;
    file = hostOpenAtOnce(name.c_str(), status);
    if (file == nullptr) {
        fault("cannot be read: %s", strerror(errno));
        return false;
    }
    if (!S_ISREG(status.mode) || status.size > INT32_MAX) {
        fault("not a message file");
        return false;
    }
    size = static_cast<uint32_t>(status.size);
    if (!ErrUtlReadHdr(file, &header)) {
        fault("the header is not valid");
        return false;
    }
    if (header.tabSize > (size - ERRUTL_HEADER_SIZE) / ERRUTL_SLOT_SIZE) {
        fault("the table of %lu slots reaches beyond the end", static_cast<unsigned long>(header.tabSize));
        return false;
    }
    if (header.textBegin < ERRUTL_HEADER_SIZE + header.tabSize * ERRUTL_SLOT_SIZE || header.textBegin > size) {
        fault("the text begins at %lu, outside the file or inside the table",
              static_cast<unsigned long>(header.textBegin));
    }
    std::vector<ByteType> bytes(header.tabSize * ERRUTL_SLOT_SIZE);
    if (!readAt(ERRUTL_HEADER_SIZE, bytes.data(), bytes.size())) {
        fault("the table cannot be read");
        return false;
    }
    for (size_t at = 0; at < bytes.size(); at += ERRUTL_SLOT_SIZE) {
        slots.push_back({word(&bytes[at]), word(&bytes[at + 4]), word(&bytes[at + 8])});
    }
    return true;
}

bool Compiled::entryAt(uint32_t position, Entry& entry) {
    if (position >= size || fseek(file, static_cast<long>(position), SEEK_SET) != 0) {
        return false;
    }
    const auto parsed = std::make_unique<ErrUtlEntrySType>();
    long line = 0;
    BoolType syntaxErr = FALSE;
    // While building, lines that are skipped show in the entry's position.
    if (!ErrUtlNextSym(file, name.c_str(), &line, parsed.get(), TRUE, &syntaxErr) || syntaxErr ||
        parsed->loc != static_cast<long>(position)) {
        return false;
    }
    entry = {parsed->sym, {parsed->argOrder, parsed->argOrder + parsed->argListSize}, parsed->buf, 0};
    return true;
}

bool Compiled::textAt(uint32_t position, std::string& text) {
    char bytes[ERRUTL_MAX_SYMBOL + 1];
    const size_t count = std::min<size_t>(sizeof bytes, position < size ? size - position : 0);
    if (!readAt(position, bytes, count)) {
        return false;
    }
    const size_t length = strnlen(bytes, count);
    text.assign(bytes, length);
    return length < count;
}

bool Compiled::reaches(const std::string& symbol, uint32_t hash, size_t slot) {
    std::string key;
    for (size_t probe = hash % slots.size(), visited = 0; visited < slots.size() && slots[probe].valLoc != 0;
         ++visited, probe = probe + 1 < slots.size() ? probe + 1 : 0) {
        if (slots[probe].hash == hash &&
            (slots[probe].keyLoc == 0 || !textAt(slots[probe].keyLoc, key) || key == symbol)) {
            return probe == slot;
        }
    }
    return false;
}

void checkSlot(Compiled& compiled, size_t index, std::map<uint32_t, int>& sharing) {
    const Slot& slot = compiled.slots[index];
    Entry entry;
    if (slot.valLoc < compiled.header.textBegin || !compiled.entryAt(slot.valLoc, entry)) {
        compiled.fault("slot %zu: no entry at %lu", index, static_cast<unsigned long>(slot.valLoc));
        return;
    }
    const auto hash = static_cast<uint32_t>(HashStrHash(reinterpret_cast<const ByteType*>(entry.symbol.data()),
                                                        static_cast<unsigned>(entry.symbol.size()), TRUE));
    if (slot.hash != hash) {
        compiled.fault("slot %zu: the hash is not that of \"%s\"", index, entry.symbol.c_str());
    }
    std::string key;
    if (slot.keyLoc != 0 && (!compiled.textAt(slot.keyLoc, key) || key != entry.symbol)) {
        compiled.fault("slot %zu: the key is not \"%s\"", index, entry.symbol.c_str());
    }
    if (slot.keyLoc == 0 && sharing[slot.hash] > 1) {
        compiled.fault("slot %zu: \"%s\" shares its hash but has no key", index, entry.symbol.c_str());
    }
    if (!compiled.reaches(entry.symbol, hash, index)) {
        compiled.fault("slot %zu: \"%s\" is not found by its hash", index, entry.symbol.c_str());
    }
}

} // namespace

bool listFile(const std::string& fileName, std::vector<Entry>& entries) {
    Compiled compiled(fileName);
    if (!compiled.open()) {
        return false;
    }
    std::vector<uint32_t> positions;
    for (const Slot& slot : compiled.slots) {
        if (slot.valLoc != 0) {
            positions.push_back(slot.valLoc);
        }
    }
    std::sort(positions.begin(), positions.end());
    for (const uint32_t position : positions) {
        Entry entry;
        if (compiled.entryAt(position, entry)) {
            entries.push_back(std::move(entry));
        } else {
            compiled.fault("no entry at %lu", static_cast<unsigned long>(position));
        }
    }
    return compiled.good;
}

bool checkFile(const std::string& fileName) {
    Compiled compiled(fileName);
    if (!compiled.open()) {
        return false;
    }
    if (!compiled.endsWithLine()) {
        compiled.fault("the text ends inside a line");
    }
    std::map<uint32_t, int> sharing;
    for (const Slot& slot : compiled.slots) {
        if (slot.valLoc != 0) {
            ++sharing[slot.hash];
        }
    }
    for (size_t index = 0; index < compiled.slots.size(); ++index) {
        if (compiled.slots[index].valLoc != 0) {
            checkSlot(compiled, index, sharing);
        }
    }
    return compiled.good;
}

bool getText(const std::string& fileName, const std::string& symbol, std::string& text) {
    noHalt = TRUE; // a damaged file is an answer here, not a reason to stop
    if (!ErrUtlInit(TRUE, fileName.c_str()) || !ErrMsgReset()) {
        return false;
    }
    char* const found = ErrMsgGetString(symbol.c_str());
    if (found == nullptr) {
        fprintf(stderr, "errmsgc: %s has no text for \"%s\"\n", fileName.c_str(), symbol.c_str());
        return false;
    }
    text = found;
    UtlFree(found);
    return true;
}

} // namespace errmsgc
