#include "errmsgc/source.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <memory>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>
#include <unordered_map>

#include "hash.h"
#include "host/names/filestatus.h"

namespace errmsgc {
namespace {

struct CloseFile {
    void operator()(FILE* file) const { fclose(file); }
};
using FilePointer = std::unique_ptr<FILE, CloseFile>;

uint32_t symbolHash(const std::string& symbol) {
    return static_cast<uint32_t>(
        HashStrHash(reinterpret_cast<const ByteType*>(symbol.data()), static_cast<unsigned>(symbol.size()), TRUE));
}

// What the parser cannot see: it cuts an entry that is too long, and ends it at a zero byte. Examines the lines of the
// entry that ended where the stream stands now.
const char* cutEntry(FILE* file, long begin) {
    const long end = ftell(file);
    std::string lines(static_cast<size_t>(end - begin), 0);
    fseek(file, begin, SEEK_SET);
    lines.resize(fread(lines.data(), 1, lines.size(), file));
    fseek(file, end, SEEK_SET);
    if (lines.find('\0') != std::string::npos) {
        return "zero byte";
    }
    size_t length = lines.size() - (lines.ends_with('\n') ? 1 : 0);
    for (size_t joint = lines.find("\\\n"); joint != std::string::npos; joint = lines.find("\\\n", joint + 2)) {
        length -= 2;
    }
    return length > ERRUTL_MAX_LINE ? "entry too long" : nullptr;
}

// The parser says nothing about a catalogue whose last line is to be continued.
bool endsInContinuation(FILE* file) {
    char last[2] = {};
    return fseek(file, -2, SEEK_END) == 0 && fread(last, 1, 2, file) == 2 &&
           (last[1] == '\\' || (last[1] == '\n' && last[0] == '\\'));
}

// The image of a message file up to its text.
class ImageWriter {
public:
    ImageWriter(size_t size, const Transform& transform) : bytes(size, 0), transform(transform) {}

    void put(size_t position, uint32_t value) {
        for (size_t i = 0; i < transform.size(); ++i) {
            bytes[position + i] = static_cast<char>(value >> 8 * transform[i]);
        }
    }
    void put(size_t position, const void* data, size_t size) { memcpy(&bytes[position], data, size); }

    std::string bytes;

private:
    Transform transform;
};

struct Placement {
    std::vector<int> slots; // index of an entry, or -1
    size_t longestRun = 0;  // of slots that one look-up visits
    size_t visits = 0;      // over one look-up of every entry
};

Placement place(const std::vector<uint32_t>& hashes, size_t tabSize) {
    Placement placement;
    placement.slots.assign(tabSize, -1);
    for (size_t i = 0; i < hashes.size(); ++i) {
        size_t slot = hashes[i] % tabSize;
        size_t run = 1;
        for (; placement.slots[slot] >= 0; ++run) {
            slot = slot + 1 < tabSize ? slot + 1 : 0;
        }
        placement.slots[slot] = static_cast<int>(i);
        placement.longestRun = std::max(placement.longestRun, run);
        placement.visits += run;
    }
    return placement;
}

// A table at most half full keeps most runs at one or two slots; among some sizes near that, the best is taken.
Placement choosePlacement(const std::vector<uint32_t>& hashes) {
    const size_t smallest = hashes.size() * 2 + 1;
    Placement best = place(hashes, smallest);
    for (size_t tabSize = smallest + 2; tabSize <= smallest + 64; tabSize += 2) {
        Placement placement = place(hashes, tabSize);
        if (std::pair(placement.longestRun, placement.visits) < std::pair(best.longestRun, best.visits)) {
            best = std::move(placement);
        }
    }
    return best;
}

} // namespace

std::string Entry::text() const {
    std::string line = symbol;
    const char* separator = "(";
    for (const int numeral : argOrder) {
        line += separator + std::to_string(numeral);
        separator = " ";
    }
    if (!argOrder.empty()) {
        line += ")";
    }
    line += ":" + pattern;
    // Of two backslashes at the end of a line, one is the text's and one joins the next line, which is empty here.
    return line + (pattern.ends_with('\\') ? "\\\n" : "");
}

bool readCatalogue(const std::string& fileName, std::vector<Entry>& entries) {
    FileStatus status;
    const FilePointer file(hostOpenAtOnce(fileName.c_str(), status));
    if (!file) {
        fprintf(stderr, "errmsgc: %s cannot be read: %s\n", fileName.c_str(), strerror(errno));
        return false;
    }
    if (!S_ISREG(status.mode)) {
        fprintf(stderr, "errmsgc: %s is not a regular file\n", fileName.c_str());
        return false;
    }
    bool good = true;
    std::unordered_map<std::string, long> seen;
    const auto parsed = std::make_unique<ErrUtlEntrySType>();
    for (long line = 0;;) {
        BoolType syntaxErr = FALSE;
        const BoolType found = ErrUtlNextSym(file.get(), fileName.c_str(), &line, parsed.get(), TRUE, &syntaxErr);
        good = good && syntaxErr == 0;
        if (!found) {
            if (syntaxErr && endsInContinuation(file.get())) {
                fprintf(stderr, "%s near line %ld: unexpected eof\n", fileName.c_str(), line);
            }
            break;
        }
        if (const char* const problem = cutEntry(file.get(), parsed->loc)) {
            fprintf(stderr, "%s near line %ld: %s\n", fileName.c_str(), line, problem);
            good = false;
        }
        const auto [earlier, isNew] = seen.emplace(parsed->sym, line);
        if (!isNew) {
            fprintf(stderr, "%s near line %ld: symbol \"%s\" already defined near line %ld\n", fileName.c_str(), line,
                    parsed->sym, earlier->second);
            good = false;
        }
        entries.push_back({parsed->sym, {parsed->argOrder, parsed->argOrder + parsed->argListSize}, parsed->buf, line});
    }
    if (ferror(file.get())) {
        fprintf(stderr, "errmsgc: %s cannot be read: %s\n", fileName.c_str(), strerror(errno));
        return false;
    }
    return good;
}

std::string buildImage(const std::vector<Entry>& entries, const Transform& transform) {
    std::vector<uint32_t> hashes;
    std::unordered_map<uint32_t, int> sharing;
    for (const Entry& entry : entries) {
        hashes.push_back(symbolHash(entry.symbol));
        ++sharing[hashes.back()];
    }
    const Placement placement = choosePlacement(hashes);
    const auto tabSize = static_cast<uint32_t>(placement.slots.size());

    // Behind the table stand the symbols that need comparing, then the entries.
    std::string keys;
    std::string text;
    std::vector<size_t> keyOffsets, textOffsets;
    for (size_t i = 0; i < entries.size(); ++i) {
        keyOffsets.push_back(keys.size());
        if (sharing[hashes[i]] > 1) {
            keys.append(entries[i].symbol).push_back('\0');
        }
        textOffsets.push_back(text.size());
        text += entries[i].text() + "\n";
    }
    const size_t keysBegin = ERRUTL_HEADER_SIZE + tabSize * ERRUTL_SLOT_SIZE;
    const size_t textBegin = keysBegin + keys.size();

    ImageWriter image(textBegin, transform);
    image.put(0, ErrUtlGetMagic(), 4);
    image.put(4, transform.data(), transform.size());
    image.put(8, ERRUTL_VERSION);
    image.put(12, tabSize);
    image.put(16, static_cast<uint32_t>(textBegin));
    for (size_t slot = 0; slot < tabSize; ++slot) {
        const int index = placement.slots[slot];
        if (index < 0) {
            continue;
        }
        const auto i = static_cast<size_t>(index);
        const size_t keyLoc = sharing[hashes[i]] > 1 ? keysBegin + keyOffsets[i] : 0;
        image.put(ERRUTL_HEADER_SIZE + slot * ERRUTL_SLOT_SIZE, hashes[i]);
        image.put(ERRUTL_HEADER_SIZE + slot * ERRUTL_SLOT_SIZE + 4, static_cast<uint32_t>(keyLoc));
        image.put(ERRUTL_HEADER_SIZE + slot * ERRUTL_SLOT_SIZE + 8, static_cast<uint32_t>(textBegin + textOffsets[i]));
    }
    image.put(keysBegin, keys.data(), keys.size());
    return std::move(image.bytes) + text;
}

bool replaceFile(const std::string& fileName, const std::string& contents) {
    std::string temporary = fileName + ".XXXXXX";
    const int descriptor = mkstemp(temporary.data());
    if (descriptor < 0) {
        fprintf(stderr, "errmsgc: %s cannot be written: %s\n", fileName.c_str(), strerror(errno));
        return false;
    }
    const mode_t mask = umask(0);
    umask(mask);
    const FilePointer file(fdopen(descriptor, "w"));
    bool written = file && fwrite(contents.data(), 1, contents.size(), file.get()) == contents.size() &&
                   fflush(file.get()) == 0 && fchmod(descriptor, 0666 & ~mask) == 0 && fsync(descriptor) == 0 &&
                   rename(temporary.c_str(), fileName.c_str()) == 0;
    if (!written) {
        fprintf(stderr, "errmsgc: %s cannot be written: %s\n", fileName.c_str(), strerror(errno));
        unlink(temporary.c_str());
    }
    return written;
}

} // namespace errmsgc
