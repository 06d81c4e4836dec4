// Text and numbers between their forms.
#include "language/number.h"
#include "language/text.h"

#include <gtest/gtest.h>

#include <array>

namespace local {
namespace {

using namespace std::string_literals;

TEST(Text, IsDecodedAndEncoded) {
    const struct {
        std::string bytes;
        std::u16string units;
        bool roundTrip; // the bytes are modified UTF-8
    } cases[] = {
        {"abc", u"abc", true},
        {"\xC3\xA9", u"\u00E9", true},
        {"\xE6\x97\xA5", u"\u65E5", true},
        {"\xC0\x80", u"\0"s, true},
        {"\xED\xA0\xBD\xED\xB8\x80", u"\xD83D\xDE00", true},
        {"\xF0\x9F\x98\x80", u"\xD83D\xDE00", false},
        {"\xE9", u"\u00E9", false},           // Latin-1
        {"\xE6\x97", u"\u00E6\u0097", false}, // cut
        {"\xC3(", u"\u00C3(", false},
        {"\xF4\x90\x80\x80", u"\u00F4\u0090\u0080\u0080", false}, // beyond the last character
    };
    for (const auto& [bytes, units, roundTrip] : cases) {
        EXPECT_EQ(decodeText(bytes), units) << testing::PrintToString(bytes);
        EXPECT_EQ(encodeText(units) == bytes, roundTrip) << testing::PrintToString(bytes);
    }
    for (size_t limit = 0; limit < 8; ++limit) {
        EXPECT_EQ(truncated("a\xE6\x97\xA5z\xC3\xA9", limit).size(), (std::array{0, 1, 1, 1, 4, 5, 5, 7})[limit]);
    }
}

TEST(Number, IsReadAndPrinted) {
    using Case = std::array<const char*, 2>;
    for (const auto& [text, printed] :
         {Case{"-0", "0"}, Case{"9223372036854775807", "9223372036854775807"},
          Case{"-9223372036854775808", "-9223372036854775808"}, Case{"16rff", "255"}, Case{"16rFF", "255"},
          Case{"36rZ", "35"}, Case{"-16rA", "-10"}, Case{"1.5", "1.5"}, Case{"1e3", "1000.0"}, Case{"1.0e-7", "1e-07"},
          Case{"1e400", "infinity"}, Case{"-1e400", "-infinity"}, Case{"1e-400", "0.0"}, Case{"0.1", "0.1"},
          Case{"123456789012345680000.0", "123456789012345683968.0"}}) {
        std::optional<Number> number = readNumber(text);
        EXPECT_EQ(number ? printNumber(*number) : "none", printed) << text;
    }
    for (const char* text : {"9223372036854775808", "37r1", "1r0", "2r2", "16r", "r5", "16r-A", "", "-", "--1", "1.",
                             ".5", "1e", "+1", " 1", "1 ", "inf", "nan"})
        EXPECT_FALSE(readNumber(text)) << text;
}

} // namespace
} // namespace local
