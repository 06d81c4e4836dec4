// Rendering of messages: the expansion of a pattern, and the bracketed form that needs none. Takes no lock.
#pragma once

#include <stdarg.h>
#include <string_view>

#include "err/messages/errentry.h"
#include "errutl.h"

union MessageArg {
    int32_t word;
    double real;
    const char* text;
};

// The caller's arguments, taken off its list.
struct MessageArgs {
    MessageArgs(const char* kinds, va_list list);

    // Kinds of the values held, at most ten; the caller may have named more.
    std::string_view kinds;
    size_t given;
    MessageArg values[ERRMSG_MAX_ARGS];
};

// Collects text in a buffer of limit + 1 bytes; what goes beyond the limit is cut. The text is terminated on demand.
class TextSink {
public:
    TextSink(char* buffer, size_t limit) : buffer(buffer), limit(limit) {}

    size_t length() const { return used; }
    bool full() const { return used == limit; }
    void terminate() { buffer[used] = 0; }

    void append(char c) {
        if (!full())
            buffer[used++] = c;
    }
    // FALSE when the text was cut.
    bool append(std::string_view text) {
        const size_t taken = text.copy(buffer + used, limit - used);
        used += taken;
        return taken == text.size();
    }
    bool format(const char* format, ...) __attribute__((format(printf, 2, 3)));

private:
    char* buffer;
    size_t limit;
    size_t used = 0;
};

// The longest text of an expanded message.
constexpr size_t maxMessageText = 2046;

// Expands an entry's pattern.
void mySprintf(TextSink& out, const ParsedEntry& entry, const MessageArgs& args);

// Renders [symbol argument ...], with the pattern in quotes before the symbol unless it is NULL. What does not fit is
// left out, the closing bracket included.
void desperateErr(TextSink& out, const char* sym, const std::string_view* pat, const MessageArgs& args);
