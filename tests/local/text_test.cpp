// Text and numbers between their forms.
#include "language/number.h"
#include "language/text.h"

#include <gtest/gtest.h>

#include <array>

namespace local {
namespace {

using namespace std::string_literals;

struct TextCase {
    std::string bytes;
    std::u16string units;
    bool roundTrip; // the bytes are modified UTF-8
};

TEST(Text, IsDecodedAndEncoded) {
    const TextCase cases[] = {
        {"", u"", true},
        {"abc", u"abc", true},
        {"\xC3\xA9", u"\u00E9", true},
        {"\xE6\x97\xA5", u"\u65E5", true},
        {"\xC0\x80", u"\0"s, true},
        {"\xED\xA0\xBD\xED\xB8\x80", u"\xD83D\xDE00", true},
        {"\xF0\x9F\x98\x80", u"\xD83D\xDE00", false},
        {"\xE9", u"\u00E9", false},           // Latin-1
        {"\xE6\x97", u"\u00E6\u0097", false}, // cut
        {"\xC3(", u"\u00C3(", false},
        {"\x80\xBF", u"\u0080\u00BF", false},
        {"\xF8\x88\x80\x80\x80", u"\u00F8\u0088\u0080\u0080\u0080", false},
        {"\xF4\x90\x80\x80", u"\u00F4\u0090\u0080\u0080", false}, // beyond the last character
    };
    for (const TextCase& c : cases) {
        EXPECT_EQ(decodeText(c.bytes), c.units) << testing::PrintToString(c.bytes);
        EXPECT_EQ(encodeText(c.units) == c.bytes, c.roundTrip) << testing::PrintToString(c.bytes);
    }
    for (size_t limit = 0; limit < 8; ++limit) {
        EXPECT_EQ(truncated("a\xE6\x97\xA5z\xC3\xA9", limit).size(), (std::array{0, 1, 1, 1, 4, 5, 5, 7})[limit]);
    }
}

struct NumberCase {
    const char* text;
    const char* printed; // NULL: no number
};

TEST(Number, IsReadAndPrinted) {
    const NumberCase cases[] = {
        {"0", "0"},
        {"-0", "0"},
        {"007", "7"},
        {"9223372036854775807", "9223372036854775807"},
        {"-9223372036854775808", "-9223372036854775808"},
        {"9223372036854775808", nullptr},
        {"16rff", "255"},
        {"16rFF", "255"},
        {"36rZ", "35"},
        {"37r1", nullptr},
        {"1r0", nullptr},
        {"2r2", nullptr},
        {"16r", nullptr},
        {"r5", nullptr},
        {"-16rA", "-10"},
        {"16r-A", nullptr},
        {"1.5", "1.5"},
        {"-1.50", "-1.5"},
        {"1e3", "1000.0"},
        {"1.0e-7", "1e-07"},
        {"1e400", "infinity"},
        {"1e-400", "0.0"},
        {"0.1", "0.1"},
        {"", nullptr},
        {"-", nullptr},
        {"--1", nullptr},
        {"1.", nullptr},
        {".5", nullptr},
        {"1e", nullptr},
        {"+1", nullptr},
        {" 1", nullptr},
        {"1 ", nullptr},
        {"inf", nullptr},
        {"nan", nullptr},
        {"123456789012345680000.0", "123456789012345683968.0"},
    };
    for (const NumberCase& c : cases) {
        std::optional<Number> number = readNumber(c.text);
        EXPECT_EQ(number.has_value(), c.printed != nullptr) << c.text;
        if (number && c.printed != nullptr) {
            EXPECT_EQ(printNumber(*number), c.printed) << c.text;
        }
    }
}

} // namespace
} // namespace local
