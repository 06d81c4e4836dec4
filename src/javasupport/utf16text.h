// Conversion between the support layer's texts, which ought to be UTF-8, and Java's UTF-16. Whatever the bytes are, the
// result is a valid Java string.
#pragma once

#include <jni.h>

#include <cstddef>
#include <string_view>

#pragma GCC visibility push(hidden)

// Collects a text in UTF-16. A failure to allocate is remembered, and what follows is ignored.
class Utf16Text {
public:
    Utf16Text() = default;
    ~Utf16Text();
    Utf16Text(const Utf16Text&) = delete;
    Utf16Text& operator=(const Utf16Text&) = delete;

    // Appends text that was cut into pieces by its bytes: a character that began in one piece is completed from the
    // next, on the next line when a line break alone comes between them. Malformed bytes become U+FFFD.
    void appendUtf8(std::string_view piece);
    void append(const jchar* units, size_t count);
    // Makes room for units that the caller writes. NULL when there is none.
    jchar* extend(size_t count);

    // Ends a text: a character that was never completed becomes U+FFFD.
    void finish();
    bool failed() const { return outOfMemory; }
    const jchar* data() const { return units; }
    size_t size() const { return used; }

private:
    void appendCharacter(char32_t character);

    jchar* units = nullptr;
    size_t used = 0;
    size_t capacity = 0;
    bool outOfMemory = false;
    char partial[4] = {}; // the beginning of a character
    size_t partialSize = 0;
};

// Writes UTF-16 as UTF-8, cut before the first character that does not fit, with a terminator. Zero characters, which
// would end the text, become blanks, and lone surrogates become question marks.
void utf16ToUtf8(const jchar* units, size_t count, char* buffer, size_t size);

#pragma GCC visibility pop
