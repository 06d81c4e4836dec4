// Rendering of messages: the expansion of a pattern, and the bracketed form that needs none. Takes no lock.
#pragma once

#include <cstdarg>
#include <string_view>

#include "err/messages/errentry.h"
#include "errutl.h"
#include "host/base/boundedtext.h"

#pragma GCC visibility push(hidden)

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

// The longest text of an expanded message.
constexpr size_t maxMessageText = 2046;

// Expands an entry's pattern.
void mySprintf(BoundedText& out, const ParsedEntry& entry, const MessageArgs& args);

// Renders [symbol argument ...], with the pattern in quotes before the symbol unless it is NULL. What does not fit is
// left out, the closing bracket included.
void desperateErr(BoundedText& out, std::string_view sym, const std::string_view* pat, const MessageArgs& args);

#pragma GCC visibility pop
