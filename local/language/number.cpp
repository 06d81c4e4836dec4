#include "language/number.h"

#include <charconv>
#include <clocale>
#include <cmath>
#include <cstdlib>

namespace local {

namespace {

template <class Value>
Value readWhole(const View& view, Oop oop) {
    Value value{};
    view.readBytes(oop, 0, {reinterpret_cast<ByteType*>(&value), sizeof value});
    return value;
}

template <class Value>
Oop writeWhole(const View& view, Oop cls, const Value& value) {
    Oop oop = view.create({cls, Body::Byte, true, 0}, sizeof value);
    view.writeBytes(oop, 0, {reinterpret_cast<const ByteType*>(&value), sizeof value});
    return oop;
}

} // namespace

std::optional<Number> numberOf(const View& view, Oop oop) {
    if (isSmallInteger(oop)) {
        return Number::of(smallIntegerValue(oop));
    }
    if (isReference(oop) && view.exists(oop)) {
        Oop cls = view.classOf(oop);
        if (cls == kernel::Float) {
            return Number::ofReal(readWhole<double>(view, oop));
        }
        if (cls == kernel::LargeInteger) {
            return Number::of(readWhole<int64_t>(view, oop));
        }
    }
    return std::nullopt;
}

std::optional<int64_t> integerOf(const View& view, Oop oop) {
    std::optional<Number> number = numberOf(view, oop);
    if (!number || number->isFloat) {
        return std::nullopt;
    }
    return number->integer;
}

namespace {

std::partial_ordering compareMixed(int64_t integer, double real) {
    if (!(real >= -0x1p63 && real < 0x1p63)) {
        return 0.0 <=> real; // beyond all integers, or no number
    }
    const auto whole = static_cast<int64_t>(real);
    return integer != whole ? std::partial_ordering(integer <=> whole) : 0.0 <=> real - static_cast<double>(whole);
}

std::partial_ordering reversed(std::partial_ordering order) {
    return std::is_lt(order) ? std::partial_ordering::greater : std::is_gt(order) ? std::partial_ordering::less : order;
}

} // namespace

std::partial_ordering compare(const Number& left, const Number& right) {
    if (left.isFloat == right.isFloat) {
        return left.isFloat ? left.real <=> right.real : std::partial_ordering(left.integer <=> right.integer);
    }
    return left.isFloat ? reversed(compareMixed(right.integer, left.real)) : compareMixed(left.integer, right.real);
}

Oop newInteger(const View& view, int64_t value) {
    if (fitsSmallInteger(value)) {
        return smallIntegerOop(static_cast<int32_t>(value));
    }
    return writeWhole(view, kernel::LargeInteger, value);
}

Oop newFloat(const View& view, double value) {
    return writeWhole(view, kernel::Float, value);
}

Oop newNumber(const View& view, const Number& value) {
    return value.isFloat ? newFloat(view, value.real) : newInteger(view, value.integer);
}

std::string printNumber(const Number& value) {
    char buffer[64];
    if (!value.isFloat) {
        return {buffer, std::to_chars(buffer, buffer + sizeof buffer, value.integer).ptr};
    }
    if (std::isnan(value.real)) {
        return "nan";
    }
    if (std::isinf(value.real)) {
        return value.real < 0 ? "-infinity" : "infinity";
    }
    std::string text(buffer, std::to_chars(buffer, buffer + sizeof buffer, value.real).ptr);
    if (text.find_first_of(".e") == std::string::npos) {
        text += ".0";
    }
    return text;
}

std::optional<Number> readNumber(std::string_view text) {
    bool negative = text.starts_with('-');
    std::string_view digits = text.substr(negative ? 1 : 0);
    int radix = 10;
    if (size_t r = digits.find('r'); r != std::string_view::npos) {
        auto [end, error] = std::from_chars(digits.data(), digits.data() + r, radix);
        if (error != std::errc{} || end != digits.data() + r || radix < 2 || radix > 36) {
            return std::nullopt;
        }
        digits.remove_prefix(r + 1);
    }
    if (digits.empty() || digits[0] == '-' || (radix == 10 && (digits[0] < '0' || digits[0] > '9'))) {
        return std::nullopt;
    }
    const char* last = digits.data() + digits.size();
    if (radix == 10 && digits.find_first_of(".e") != std::string_view::npos) {
        double real = 0;
        auto [end, error] = std::from_chars(digits.data(), last, real);
        if (end != last || end[-1] == '.') {
            return std::nullopt;
        }
        if (error == std::errc::result_out_of_range) {
            static const locale_t neutral = newlocale(LC_ALL_MASK, "C", nullptr);
            real = strtod_l(std::string(digits).c_str(), nullptr, neutral); // infinity or 0
        }
        return Number::ofReal(negative ? -real : real);
    }
    // The magnitude is read unsigned, so that the smallest integer has a text too.
    uint64_t magnitude = 0;
    auto [end, error] = std::from_chars(digits.data(), last, magnitude, radix);
    uint64_t limit = uint64_t{INT64_MAX} + (negative ? 1 : 0);
    if (end != last || error != std::errc{} || magnitude > limit) {
        return std::nullopt;
    }
    return Number::of(static_cast<int64_t>(negative ? 0 - magnitude : magnitude));
}

} // namespace local
