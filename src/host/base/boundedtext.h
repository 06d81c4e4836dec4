// Text that grows in a caller's buffer: never beyond it, and terminated after every step. What happens to a piece that
// does not fit is said by the function's name:
//
//     ...Cut      takes as much of it as fits
//     ...Whole    takes all of it or nothing
//
// Both answer false when something was left out.
#pragma once

#include <cstdarg>
#include <cstddef>
#include <string_view>

#pragma GCC visibility push(hidden)

class BoundedText {
public:
    // size: of the buffer in bytes, its terminator included; at least 1.
    BoundedText(char* buffer, size_t size) : text(buffer), limit(size - 1) { clear(); }

    size_t length() const { return used; }
    bool full() const { return used == limit; }
    void clear() {
        used = 0;
        text[0] = '\0';
    }

    bool appendCut(std::string_view piece) {
        const size_t taken = piece.copy(text + used, room());
        used += taken;
        text[used] = '\0';
        return taken == piece.size();
    }
    bool appendWhole(std::string_view piece) { return piece.size() <= room() && appendCut(piece); }

    // As printf; a zero character ends the piece, and one that cannot be formatted is empty.
    [[gnu::format(printf, 2, 3)]] bool formatCut(const char* format, ...);
    [[gnu::format(printf, 2, 0)]] bool formatCutV(const char* format, va_list values);
    [[gnu::format(printf, 2, 3)]] bool formatWhole(const char* format, ...);

private:
    size_t room() const { return limit - used; }

    char* text;
    size_t limit;
    size_t used = 0;
};

#pragma GCC visibility pop
