// Text: between modified UTF-8 (source, messages), 16-bit units (the reader) and string objects.
#pragma once

#include "language/kernel.h"

#include <string>
#include <string_view>

namespace local {

// Standard and modified UTF-8 alike; a byte that is part of no character stands for itself.
std::u16string decodeText(std::string_view bytes);
// Modified UTF-8: no zero byte inside, units beyond 16 bits as surrogate pairs of three bytes each.
std::string encodeText(std::u16string_view units);
// Modified UTF-8 cut to at most limit bytes, at a character's border.
std::string_view truncated(std::string_view text, size_t limit);

// The characters of a text where they lie, of either width; valid until anything is made, changed or collected.
class Units {
public:
    Units(const View& view, Oop text);

    uint32_t size() const { return static_cast<uint32_t>(bytes.size() >> (isWide ? 1 : 0)); }
    char16_t operator[](uint32_t index) const {
        if (!isWide) {
            return bytes[index];
        }
        return static_cast<char16_t>(bytes[2 * index] | bytes[2 * index + 1] << 8);
    }
    // Negative, 0 or positive, by the characters' codes.
    int compare(const Units& other) const;

    std::span<const ByteType> bytes;
    bool isWide;
};

bool isText(const View& view, Oop oop);       // String, Symbol or DoubleByteString
bool isDoubleByte(const View& view, Oop oop); // a kind of DoubleByteString
std::u16string textOf(const View& view, Oop oop);
// A part of it: at most count characters from the first one, counted from 0.
std::u16string textOf(const View& view, Oop oop, uint32_t first, uint32_t count);
// The bytes of a byte object.
std::string bytesOf(const View& view, Oop oop);
// A String when every unit fits a byte, else a DoubleByteString.
Oop newText(const View& view, std::u16string_view units);
Oop newString(const View& view, std::string_view ascii);
Oop newDoubleByteString(const View& view, std::u16string_view units);

std::u16string widen(std::string_view ascii);

// An object in a few words, for messages.
std::string brief(const View& view, Oop oop);
std::string className(const View& view, Oop cls);

// "a Point", "an Array"
std::string withArticle(const std::string& noun);

} // namespace local
