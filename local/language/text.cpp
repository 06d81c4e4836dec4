#include "language/text.h"

#include "language/number.h"

#include <algorithm>
#include <cstring>

namespace local {

namespace {

// The number of continuation bytes after a lead byte; -1 for a byte that leads no character.
int continuationCount(ByteType lead) {
    if (lead >= 0xC0 && lead <= 0xDF) {
        return 1;
    }
    if (lead >= 0xE0 && lead <= 0xEF) {
        return 2;
    }
    return lead >= 0xF0 && lead <= 0xF4 ? 3 : -1;
}

std::u16string readUnits(const View& view, Oop oop, bool wide, uint32_t first, uint32_t count) {
    if (!wide) {
        std::string bytes(count, '\0');
        bytes.resize(view.readBytes(oop, first, {reinterpret_cast<ByteType*>(bytes.data()), count}));
        return widen(bytes);
    }
    std::u16string units(count, u'\0');
    units.resize(view.readBytes(oop, first * 2, {reinterpret_cast<ByteType*>(units.data()), size_t{count} * 2}) / 2);
    return units;
}

} // namespace

std::u16string decodeText(std::string_view bytes) {
    std::u16string units;
    units.reserve(bytes.size());
    for (size_t i = 0; i < bytes.size(); ++i) {
        auto lead = static_cast<ByteType>(bytes[i]);
        int more = continuationCount(lead);
        bool whole = more > 0 && i + more < bytes.size();
        uint32_t code = more > 0 ? lead & (0x3Fu >> more) : lead;
        for (int k = 1; whole && k <= more; ++k) {
            auto next = static_cast<ByteType>(bytes[i + k]);
            whole = (next & 0xC0) == 0x80;
            code = code << 6 | (next & 0x3F);
        }
        if (!whole || code > 0x10FFFF) {
            units.push_back(lead);
            continue;
        }
        i += more;
        if (code > 0xFFFF) {
            units.push_back(static_cast<char16_t>(0xD800 + ((code - 0x10000) >> 10)));
            units.push_back(static_cast<char16_t>(0xDC00 + ((code - 0x10000) & 0x3FF)));
        } else {
            units.push_back(static_cast<char16_t>(code));
        }
    }
    return units;
}

std::string encodeText(std::u16string_view units) {
    std::string bytes;
    bytes.reserve(units.size());
    for (char16_t unit : units) {
        if (unit != 0 && unit < 0x80) {
            bytes += static_cast<char>(unit);
        } else if (unit < 0x800) {
            bytes += static_cast<char>(0xC0 | unit >> 6);
            bytes += static_cast<char>(0x80 | (unit & 0x3F));
        } else {
            bytes += static_cast<char>(0xE0 | unit >> 12);
            bytes += static_cast<char>(0x80 | (unit >> 6 & 0x3F));
            bytes += static_cast<char>(0x80 | (unit & 0x3F));
        }
    }
    return bytes;
}

std::string_view truncated(std::string_view text, size_t limit) {
    if (text.size() <= limit) {
        return text;
    }
    while (limit > 0 && (static_cast<ByteType>(text[limit]) & 0xC0) == 0x80) {
        --limit;
    }
    return text.substr(0, limit);
}

Units::Units(const View& view, Oop text) : bytes(view.bytes(text)), isWide(isDoubleByte(view, text)) {}

int Units::compare(const Units& other) const {
    uint32_t common = std::min(size(), other.size());
    if (!isWide && !other.isWide) {
        if (int order = common == 0 ? 0 : std::memcmp(bytes.data(), other.bytes.data(), common)) {
            return order;
        }
    } else {
        for (uint32_t i = 0; i < common; ++i) {
            if ((*this)[i] != other[i]) {
                return (*this)[i] < other[i] ? -1 : 1;
            }
        }
    }
    return size() == other.size() ? 0 : size() < other.size() ? -1 : 1;
}

bool isText(const View& view, Oop oop) {
    if (!isReference(oop)) {
        return false;
    }
    Oop cls = view.classOf(oop);
    return cls == kernel::String || cls == kernel::Symbol || kernel::inherits(view, cls, kernel::Text);
}

bool isDoubleByte(const View& view, Oop oop) {
    Oop cls = view.classOf(oop);
    return cls != kernel::String && cls != kernel::Symbol && kernel::inherits(view, cls, kernel::DoubleByteString);
}

std::string bytesOf(const View& view, Oop oop) {
    std::string bytes(view.size(oop), '\0');
    view.readBytes(oop, 0, {reinterpret_cast<ByteType*>(bytes.data()), bytes.size()});
    return bytes;
}

std::u16string textOf(const View& view, Oop oop) {
    bool wide = isDoubleByte(view, oop);
    return readUnits(view, oop, wide, 0, view.size(oop) / (wide ? 2 : 1));
}

std::u16string textOf(const View& view, Oop oop, uint32_t first, uint32_t count) {
    return readUnits(view, oop, isDoubleByte(view, oop), first, count);
}

Oop newString(const View& view, std::string_view ascii) {
    Oop string = view.create({kernel::String, Body::Byte, true, 0}, static_cast<uint32_t>(ascii.size()));
    view.writeBytes(string, 0, {reinterpret_cast<const ByteType*>(ascii.data()), ascii.size()});
    return string;
}

Oop newDoubleByteString(const View& view, std::u16string_view units) {
    if (units.size() > Store::maxBytes / 2) {
        throw StoreFull{};
    }
    Oop string = kernel::newInstance(view, kernel::DoubleByteString, static_cast<uint32_t>(units.size() * 2));
    view.writeBytes(string, 0, {reinterpret_cast<const ByteType*>(units.data()), units.size() * 2});
    return string;
}

Oop newText(const View& view, std::u16string_view units) {
    if (std::any_of(units.begin(), units.end(), [](char16_t unit) { return unit > 0xFF; })) {
        return newDoubleByteString(view, units);
    }
    return newString(view, std::string(units.begin(), units.end()));
}

std::u16string widen(std::string_view ascii) {
    std::u16string units(ascii.size(), u'\0');
    std::transform(ascii.begin(), ascii.end(), units.begin(), [](char c) { return static_cast<ByteType>(c); });
    return units;
}

std::string withArticle(const std::string& noun) {
    bool vowel = std::string_view("AEIOUaeiou").find(noun[0]) != std::string_view::npos;
    return (vowel ? "an " : "a ") + noun;
}

std::string className(const View& view, Oop cls) {
    return encodeText(textOf(view, view.slot(cls, kernel::class_slot::name)));
}

std::string brief(const View& view, Oop oop) {
    if (oop == nil) {
        return "nil";
    }
    if (isBoolean(oop)) {
        return oop == KCI_OOP_TRUE ? "true" : "false";
    }
    if (isCharacter(oop)) {
        return "$" + encodeText(std::u16string(1, characterValue(oop)));
    }
    if (std::optional<Number> number = numberOf(view, oop)) {
        return printNumber(*number);
    }
    if (!isReference(oop) || !view.exists(oop)) {
        return "object " + std::to_string(oop);
    }
    if (isText(view, oop)) {
        constexpr size_t shown = 60;
        bool isLong = Units(view, oop).size() > shown;
        std::string text = encodeText(textOf(view, oop, 0, shown)) + (isLong ? "..." : "");
        return view.classOf(oop) == kernel::Symbol ? "#" + text : "'" + text + "'";
    }
    if (kernel::isClass(view, oop)) {
        return className(view, oop);
    }
    return withArticle(className(view, view.classOf(oop)));
}

} // namespace local
