// The one parser of message entries, behind the stream interface (ErrUtlNextSym) and behind the catalogue's look-ups in
// the file's image.
#pragma once

#include "errutl.h"

#include <string_view>

#pragma GCC visibility push(hidden)

// Calls of the debugger hook that wait until the print mutex is free: the hook's report asks for messages itself.
struct PendingHooks {
    int guarantees = 0; // failed guarantees of errutl
    int plain = 0;      // failures that were reported by their own text

    bool any() const { return guarantees + plain > 0; }
    // Makes the calls, in the order in which a look-up notes them.
    void run();
};

// The longest logical line.
constexpr size_t maxLogicalLine = ERRUTL_MAX_LINE;

// An entry as it stands in its line: valid as long as the text, or the buffer in which the line was joined.
struct ParsedEntry {
    std::string_view symbol;
    std::string_view pattern;
    bool hasEscapes; // in the pattern: each expansion would search it for them
    // As in ErrUtlEntrySType, but small: entries are kept and copied.
    ByteType expectedArgCount;
    ByteType argListSize;
    ByteType argOrder[ERRMSG_MAX_ARGS];

    void setPattern(std::string_view text) {
        pattern = text;
        hasEscapes = text.find('\\') != std::string_view::npos;
    }
};

struct EntryContext {
    const char* fileName; // shown in diagnostics
    long* lineCount;      // shown in diagnostics; counts physical lines while a table is built
    bool building;
    PendingHooks* pending = nullptr; // where hook calls are noted; without it they are made at once
    int malformedLimit = 0;          // give up after so many malformed lines; 0: never
};

// Parses the next entry of the text from position on. FALSE at the end. Lines that continue are joined in the buffer.
bool nextEntryInText(std::string_view text, size_t position, const EntryContext& context,
                     char (&buffer)[maxLogicalLine], ParsedEntry& entry, BoolType& syntaxErr);

#pragma GCC visibility pop
