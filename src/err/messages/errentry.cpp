#include "err/messages/errentry.h"

#include "host/base/guarantee.h"
#include "host/base/upwardcalls.h"
#include "hostfile.h"

#include <algorithm>
#include <array>
#include <cstring>

namespace {

// A line as it stands in the file, without its newline and without the backslash that joins the next one to it.
struct PhysicalLine {
    std::string_view text;
    bool continues;
};

PhysicalLine withoutBackslash(std::string_view text) {
    const bool continues = text.ends_with('\\');
    return {text.substr(0, text.size() - (continues ? 1 : 0)), continues};
}

class TextLines {
public:
    TextLines(std::string_view whole, size_t position) : whole(whole), next(position) {}

    long position() const { return static_cast<long>(next); }

    bool read(PhysicalLine& line) {
        if (next >= whole.size()) {
            return false;
        }
        const size_t end = whole.find('\n', next);
        const size_t stop = end == std::string_view::npos ? whole.size() : end;
        line = withoutBackslash(whole.substr(next, stop - next));
        next = stop + 1;
        return true;
    }

private:
    std::string_view whole;
    size_t next;
};

class StreamLines {
public:
    explicit StreamLines(FILE* stream) : stream(stream) {}

    long position() const { return Hostftell(stream); }

    bool read(PhysicalLine& line) {
        int c = getc(stream);
        if (c == EOF) {
            return false;
        }
        size_t length = 0;
        int last = 0;
        for (; c != EOF && c != '\n'; c = getc(stream)) {
            if (length < sizeof buffer) {
                buffer[length] = static_cast<char>(c);
            }
            ++length;
            last = c;
        }
        if (length <= sizeof buffer) {
            line = withoutBackslash({buffer, length});
        } else {
            line = {{buffer, sizeof buffer}, last == '\\'};
        }
        return true;
    }

private:
    FILE* stream;
    char buffer[maxLogicalLine + 1]; // room for the backslash behind a line of full length
};

enum class LineStatus { complete, endOfFile, endInContinuation };

// Reads one logical line. The view shows the source's own memory, or buffer when lines had to be joined or cut.
template <class Lines>
LineStatus readLogicalLine(Lines& lines, const EntryContext& context, char (&buffer)[maxLogicalLine],
                           std::string_view& logical) {
    size_t length = 0;
    for (bool first = true;; first = false) {
        PhysicalLine line{};
        if (!lines.read(line)) {
            return first ? LineStatus::endOfFile : LineStatus::endInContinuation;
        }
        if (context.building) {
            ++*context.lineCount;
        }
        if (first && !line.continues && line.text.size() <= maxLogicalLine) {
            logical = line.text;
            break;
        }
        length += line.text.copy(buffer + length, maxLogicalLine - length);
        if (!line.continues) {
            logical = {buffer, length};
            break;
        }
    }
    // A zero byte ends a text everywhere else, so it ends the line here.
    logical = logical.substr(0, logical.find('\0'));
    return LineStatus::complete;
}

enum class Syntax {
    good,
    empty,
    comment,
    symbolMissing,
    symbolTooLong,
    listUnclosed,
    listCharacter,
    numeralRange,
    tooManyArguments,
    colonExpected
};

bool isBlank(char c) {
    return c == ' ' || c == '\t' || c == '\f';
}
constexpr auto symbolEnds = [] {
    std::array<bool, 256> ends{};
    for (const unsigned char c : {' ', '\t', ':', '('}) {
        ends[c] = true;
    }
    return ends;
}();
bool endsSymbol(char c) {
    return symbolEnds[static_cast<unsigned char>(c)];
}
bool isDigit(char c) {
    return c >= '0' && c <= '9';
}

inline void skipBlanks(std::string_view& rest) {
    while (!rest.empty() && isBlank(rest.front())) {
        rest.remove_prefix(1);
    }
}

// Parses the numerals behind an opening parenthesis, and the closing one. numeral receives one that is out of range.
Syntax parseArgumentList(std::string_view& rest, ParsedEntry& entry, int& numeral) {
    for (;;) {
        skipBlanks(rest);
        if (rest.empty()) {
            return entry.argListSize == 0 ? Syntax::listUnclosed : Syntax::listCharacter;
        }
        if (rest.front() == ')') {
            rest.remove_prefix(1);
            return Syntax::good;
        }
        if (!isDigit(rest.front())) {
            return Syntax::listCharacter;
        }
        for (numeral = 0; !rest.empty() && isDigit(rest.front()); rest.remove_prefix(1)) {
            if (numeral <= ERRMSG_MAX_ARGS) {
                numeral = numeral * 10 + (rest.front() - '0');
            }
        }
        if (numeral < 1 || numeral > ERRMSG_MAX_ARGS) {
            return Syntax::numeralRange;
        }
        if (entry.argListSize == ERRMSG_MAX_ARGS) {
            return Syntax::tooManyArguments;
        }
        entry.argOrder[entry.argListSize++] = static_cast<ByteType>(numeral);
        if (numeral > entry.expectedArgCount) {
            entry.expectedArgCount = static_cast<ByteType>(numeral);
        }
    }
}

Syntax parseEntry(std::string_view rest, ParsedEntry& entry, int& numeral) {
    skipBlanks(rest);
    if (rest.empty()) {
        return Syntax::empty;
    }
    if (rest.front() == '#') {
        return Syntax::comment;
    }
    size_t symbolLength = 0;
    while (symbolLength < rest.size() && !endsSymbol(rest[symbolLength])) {
        ++symbolLength;
    }
    if (symbolLength == 0 || symbolLength == rest.size()) {
        return Syntax::symbolMissing;
    }
    if (symbolLength > ERRUTL_MAX_SYMBOL) {
        return Syntax::symbolTooLong;
    }
    entry.symbol = rest.substr(0, symbolLength);
    rest.remove_prefix(symbolLength);

    entry.expectedArgCount = 0;
    entry.argListSize = 0;
    memset(entry.argOrder, 0, sizeof entry.argOrder);
    skipBlanks(rest);
    if (!rest.empty() && rest.front() == '(') {
        rest.remove_prefix(1);
        const Syntax list = parseArgumentList(rest, entry, numeral);
        if (list != Syntax::good) {
            return list;
        }
        skipBlanks(rest);
    }
    if (rest.empty() || rest.front() != ':') {
        return Syntax::colonExpected;
    }
    entry.setPattern(rest.substr(1));
    return Syntax::good;
}

void failGuarantee(PendingHooks* pending) {
    if (pending != nullptr) {
        ++pending->guarantees;
    } else {
        hostGuaranteeFailed("errutl", __LINE__);
    }
}

// While a table is built, a line's position in the source is what matters; afterwards, a malformed line means that the
// file is not what it should be.
void reportMalformed(const EntryContext& context, Syntax syntax, int numeral) {
    const char* const file = context.fileName;
    const long line = context.lineCount != nullptr ? *context.lineCount : 0;
    const bool reading = !context.building;
    const char* second = nullptr;
    switch (syntax) {
    case Syntax::empty:
        fprintf(stderr, "%s: why is line %ld empty?\n", file, line);
        break;
    case Syntax::comment:
        fprintf(stderr, "%s:  line %ld, why am I reading a comment?\n", file, line);
        break;
    case Syntax::symbolMissing:
        fprintf(stderr, "%s near line %ld: symbol missing\n", file, line);
        if (reading) {
            fflush(stderr);
            fprintf(stderr, "ErrUtlNextSym:  line %ld Why is symbol missing?\n", line);
        }
        break;
    case Syntax::symbolTooLong:
        fprintf(stderr, "%s near line %ld: symbol too long\n", file, line);
        second = "ErrUtlNextSym:  Why is symbol bad?\n";
        break;
    case Syntax::listUnclosed:
        fprintf(stderr, "%s near line %ld: \")\" missing\n", file, line);
        second = "ErrUtlNextSym:  why is line bad?\n";
        break;
    case Syntax::listCharacter:
        fprintf(stderr, "%s near line %ld: \")\" expected\n", file, line);
        second = "ErrUtlNextSym:  why is line bad?\n";
        break;
    case Syntax::numeralRange:
        fprintf(stderr, "%s near line %ld: numeral (%d) out of range\n", file, line, numeral);
        if (reading) {
            fflush(stderr);
            fprintf(stderr, "%s:  bogus arg numeral\n", file);
        }
        break;
    case Syntax::tooManyArguments:
        fprintf(stderr, "%s near line %ld: too many arguments\n", file, line);
        second = "ErrUtlNextSym:  bogus arg list\n";
        break;
    case Syntax::colonExpected:
        fprintf(stderr, "%s near line %ld: \":\" expected\n", file, line);
        second = "ErrUtlNextSym:  why is line bad?\n";
        break;
    case Syntax::good:
        break;
    }
    if (reading && second != nullptr) {
        fflush(stderr);
        fputs(second, stderr);
    }
    fflush(stderr);
    if (reading) {
        failGuarantee(context.pending);
    }
}

template <class Lines>
bool nextEntry(Lines& lines, const EntryContext& context, char (&buffer)[maxLogicalLine], ParsedEntry& entry, long& loc,
               BoolType& syntaxErr) {
    syntaxErr = FALSE;
    for (int malformed = 0;;) {
        if (context.building) {
            loc = lines.position();
        }
        std::string_view line;
        const LineStatus status = readLogicalLine(lines, context, buffer, line);
        if (status != LineStatus::complete) {
            if (status == LineStatus::endInContinuation) {
                syntaxErr = TRUE;
            }
            if (!context.building) {
                fprintf(stderr, "%s: unexpected eof\n", context.fileName);
                if (context.pending) {
                    ++context.pending->plain;
                } else {
                    HostCallDebugger();
                }
            }
            return false;
        }
        int numeral = 0;
        const Syntax syntax = parseEntry(line, entry, numeral);
        if (syntax == Syntax::good) {
            return true;
        }
        if (context.building && (syntax == Syntax::empty || syntax == Syntax::comment)) {
            continue;
        }
        syntaxErr = TRUE;
        reportMalformed(context, syntax, numeral);
        if (++malformed == context.malformedLimit) {
            return false;
        }
    }
}

} // namespace

void PendingHooks::run() {
    for (; guarantees > 0; --guarantees) {
        failGuarantee(nullptr);
    }
    for (; plain > 0; --plain) {
        HostCallDebugger();
    }
}

bool nextEntryInText(std::string_view text, size_t position, const EntryContext& context,
                     char (&buffer)[maxLogicalLine], ParsedEntry& entry, BoolType& syntaxErr) {
    TextLines lines(text, position);
    long loc = 0;
    return nextEntry(lines, context, buffer, entry, loc, syntaxErr);
}

BoolType ErrUtlNextSym(FILE* f, const char* fname, long* lineNum, ErrUtlEntrySType* theEntry, BoolType buildingTable,
                       BoolType* syntaxErr) {
    StreamLines lines(f);
    char buffer[maxLogicalLine];
    ParsedEntry entry;
    if (!nextEntry(lines, {fname, lineNum, buildingTable != FALSE}, buffer, entry, theEntry->loc, *syntaxErr)) {
        return FALSE;
    }
    theEntry->expectedArgCount = entry.expectedArgCount;
    theEntry->argListSize = entry.argListSize;
    std::copy(std::begin(entry.argOrder), std::end(entry.argOrder), theEntry->argOrder);
    theEntry->sym[entry.symbol.copy(theEntry->sym, sizeof theEntry->sym - 1)] = 0;
    theEntry->buf[entry.pattern.copy(theEntry->buf, sizeof theEntry->buf - 1)] = 0;
    return TRUE;
}
