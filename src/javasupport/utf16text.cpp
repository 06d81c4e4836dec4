#include "javasupport/utf16text.h"

#include <climits>
#include <cstdint>
#include <cstdlib>
#include <cstring>

namespace {

constexpr char32_t replacement = 0xFFFD;
constexpr size_t maxUnits = INT_MAX; // Java's limit

// One step of decoding: a character and how many bytes it took, or none when the bytes may be the beginning of one.
struct Decoded {
    char32_t character;
    size_t size;
};

// The forms of UTF-8 (RFC 3629): no surrogates, nothing beyond U+10FFFF, no longer form than needed.
Decoded decode(const char* bytes, size_t count) {
    const auto lead = static_cast<unsigned char>(bytes[0]);
    if (lead < 0x80) {
        return {lead, 1};
    }
    if (lead < 0xC2 || lead > 0xF4) {
        return {replacement, 1};
    }
    const size_t size = lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4;
    char32_t character = lead & (0xFFU >> (size + 1));
    for (size_t i = 1; i < size; ++i) {
        if (i == count) {
            return {0, 0};
        }
        const auto next = static_cast<unsigned char>(bytes[i]);
        const bool inRange =
            (next & 0xC0) == 0x80 && (i > 1 || (!(lead == 0xE0 && next < 0xA0) && !(lead == 0xED && next > 0x9F) &&
                                                !(lead == 0xF0 && next < 0x90) && !(lead == 0xF4 && next > 0x8F)));
        if (!inRange) {
            return {replacement, i};
        }
        character = character << 6 | (next & 0x3F);
    }
    return {character, size};
}

bool isHighSurrogate(jchar unit) {
    return unit >= 0xD800 && unit <= 0xDBFF;
}
bool isLowSurrogate(jchar unit) {
    return unit >= 0xDC00 && unit <= 0xDFFF;
}

// Returns the number of bytes.
size_t encode(char32_t character, char (&bytes)[4]) {
    if (character < 0x80) {
        bytes[0] = static_cast<char>(character);
        return 1;
    }
    const size_t size = character < 0x800 ? 2 : character < 0x10000 ? 3 : 4;
    for (size_t i = size - 1; i > 0; --i, character >>= 6) {
        bytes[i] = static_cast<char>(0x80 | (character & 0x3F));
    }
    bytes[0] = static_cast<char>((0xF00U >> size & 0xFF) | character);
    return size;
}

} // namespace

Utf16Text::~Utf16Text() {
    free(units);
}

jchar* Utf16Text::extend(size_t count) {
    if (outOfMemory || count > maxUnits - used) {
        outOfMemory = true;
        return nullptr;
    }
    if (used + count > capacity) {
        const size_t wanted = (used + count) * 2 + 256;
        auto* const grown =
            wanted <= SIZE_MAX / sizeof(jchar) ? static_cast<jchar*>(realloc(units, wanted * sizeof(jchar))) : nullptr;
        if (grown == nullptr) {
            outOfMemory = true;
            return nullptr;
        }
        units = grown;
        capacity = wanted;
    }
    jchar* const place = units + used;
    used += count;
    return place;
}

void Utf16Text::append(const jchar* source, size_t count) {
    jchar* const place = extend(count);
    if (place != nullptr && count > 0) {
        memcpy(place, source, count * sizeof(jchar));
    }
}

void Utf16Text::appendCharacter(char32_t character) {
    jchar pair[2] = {static_cast<jchar>(character), 0};
    if (character < 0x10000) {
        append(pair, 1);
        return;
    }
    pair[0] = static_cast<jchar>(0xD800 + ((character - 0x10000) >> 10));
    pair[1] = static_cast<jchar>(0xDC00 + (character & 0x3FF));
    append(pair, 2);
}

void Utf16Text::appendUtf8(std::string_view piece) {
    if (piece == "\n") {
        appendCharacter('\n');
        return;
    }
    while (partialSize > 0 && !piece.empty()) {
        partial[partialSize++] = piece.front();
        const Decoded decoded = decode(partial, partialSize);
        if (decoded.size == 0) {
            piece.remove_prefix(1);
            continue;
        }
        // Either the character is complete now, or its beginning was none; then the byte just taken stands for itself.
        if (decoded.size == partialSize) {
            piece.remove_prefix(1);
        }
        partialSize = 0;
        appendCharacter(decoded.character);
    }
    while (!piece.empty()) {
        const Decoded decoded = decode(piece.data(), piece.size());
        if (decoded.size == 0) {
            partialSize = piece.copy(partial, sizeof partial);
            return;
        }
        appendCharacter(decoded.character);
        piece.remove_prefix(decoded.size);
    }
}

void Utf16Text::finish() {
    if (partialSize > 0) {
        appendCharacter(replacement);
    }
    partialSize = 0;
}

void utf16ToUtf8(const jchar* units, size_t count, char* buffer, size_t size) {
    size_t used = 0;
    for (size_t i = 0; i < count; ++i) {
        char32_t character = units[i];
        if (isHighSurrogate(units[i]) && i + 1 < count && isLowSurrogate(units[i + 1])) {
            character = 0x10000 + ((character - 0xD800) << 10) + (units[++i] - 0xDC00U);
        } else if (isHighSurrogate(units[i]) || isLowSurrogate(units[i])) {
            character = '?';
        } else if (character == 0) {
            character = ' ';
        }
        char bytes[4];
        const size_t length = encode(character, bytes);
        if (used + length >= size) {
            break;
        }
        memcpy(buffer + used, bytes, length);
        used += length;
    }
    buffer[used] = 0;
}
