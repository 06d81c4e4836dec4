#include "language/filling.h"

#include "language/failure.h"
#include "language/text.h"

#include <algorithm>

namespace local {

namespace {

// Letters of the Latin-1 range; others stay as they are.
char16_t changed(Filling::Change change, char16_t unit) {
    bool lowerCase = (unit >= 'a' && unit <= 'z') || (unit >= 0xE0 && unit <= 0xFE && unit != 0xF7);
    bool upperCase = (unit >= 'A' && unit <= 'Z') || (unit >= 0xC0 && unit <= 0xDE && unit != 0xD7);
    switch (change) {
    case Filling::Change::Upper:
        return lowerCase ? unit ^ 0x20 : unit;
    case Filling::Change::Lower:
        return upperCase ? unit ^ 0x20 : unit;
    case Filling::Change::Blank:
        return u' ';
    default:
        return unit;
    }
}

} // namespace

bool Filling::step(const View& view) {
    const uint32_t count = std::min(end - next, piece);
    const uint32_t width = isDoubleByte(view, to) ? 2 : 1;
    const Units units(view, from);
    if (units.size() < end || Units(view, to).size() < at + count) {
        throw Failure(ErrorNumber::BadSubscript, "an abort has shortened a text that was being copied", {from, to});
    }
    if (change == Change::None && units.isWide == (width == 2)) {
        view.copyElements(to, at * width, from, next * width, count * width);
        at += count;
    } else {
        std::string bytes;
        bytes.reserve(size_t{count} * width);
        for (uint32_t i = next; i < next + count; ++i) {
            const char16_t unit = changed(change, units[i]);
            for (int times = change == Change::Quote && unit == u'\'' ? 2 : 1; times > 0; --times) {
                bytes.append(reinterpret_cast<const char*>(&unit), width);
            }
        }
        view.writeBytes(to, at * width, {reinterpret_cast<const ByteType*>(bytes.data()), bytes.size()});
        at += static_cast<uint32_t>(bytes.size()) / width;
    }
    next += count;
    return next == end;
}

} // namespace local
