// The parser of entries: the input is a catalogue. Both ways to it must agree, in both modes, and an entry that was
// written out again must be read back as it was.
#include <cstdint>
#include <cstring>
#include <string>

#include "err/messages/errentry.h"
#include "quiet.h"

namespace {

void require(bool condition) {
    if (!condition)
        abort();
}

void compare(const ErrUtlEntrySType& entry, const ParsedEntry& parsed) {
    require(parsed.symbol == entry.sym && parsed.pattern == entry.buf);
    require(parsed.expectedArgCount == entry.expectedArgCount && parsed.argListSize == entry.argListSize);
    for (int i = 0; i < ERRMSG_MAX_ARGS; ++i)
        require(parsed.argOrder[i] == entry.argOrder[i]);
}

void parseAll(std::string text, bool building) {
    FILE* const file = fmemopen(text.data(), text.size(), "r");
    static ErrUtlEntrySType entry;
    long streamLine = 0;
    for (;;) {
        const long position = ftell(file);
        BoolType streamError = FALSE, textError = FALSE;
        const bool found = ErrUtlNextSym(file, "input", &streamLine, &entry, building, &streamError);

        long textLine = 0;
        PendingHooks pending;
        char buffer[maxLogicalLine];
        ParsedEntry parsed;
        const EntryContext context{"input", &textLine, building, &pending};
        require(nextEntryInText(text, static_cast<size_t>(position), context, buffer, parsed, textError) == found);
        require(textError == streamError);
        if (!found)
            break;
        compare(entry, parsed);
        require(strlen(entry.sym) > 0 && strlen(entry.sym) <= ERRUTL_MAX_SYMBOL);
        require(entry.argListSize <= ERRMSG_MAX_ARGS && entry.expectedArgCount <= ERRMSG_MAX_ARGS);
    }
    fclose(file);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const bool quiet = (beQuiet(), true);
    (void)quiet;
    if (size == 0)
        return 0;
    const std::string text(reinterpret_cast<const char*>(data), size);
    parseAll(text, true);
    parseAll(text, false);
    return 0;
}
