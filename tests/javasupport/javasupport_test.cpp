// Fault reports from Java; texts on their way to Java and back: whatever the bytes are, a valid Java string comes out.
#include <gtest/gtest.h>
#include <jni.h>
#include <string>

#include "hostdebug.h"
#include "javasupport/faultreports.h"
#include "javasupport/utf16text.h"

extern "C" void Java_com_kestrune_tmqkci_KciMessages_faultReports(JNIEnv*, jclass, jboolean);

namespace {

std::u16string decode(std::initializer_list<std::string> pieces) {
    Utf16Text text;
    for (const std::string& piece : pieces)
        text.appendUtf8(piece);
    text.finish();
    EXPECT_FALSE(text.failed());
    return {text.data(), text.data() + text.size()};
}

TEST(Utf16Text, DecodesUtf8AndReplacesWhatIsNone) {
    const struct {
        std::initializer_list<std::string> pieces;
        std::u16string text;
    } cases[] = {
        {{}, u""},
        {{"\xC3\xA4\xE2\x82\xAC\xF0\x9F\x98\x80"}, u"\u00E4\u20AC\U0001F600"},
        {{"\xED\x9F\xBF\xEE\x80\x80\xF4\x8F\xBF\xBF"}, u"\uD7FF\uE000\U0010FFFF"},
        {{"a\x80z"}, u"a\uFFFDz"},
        {{"\xC0\x80"}, u"\uFFFD\uFFFD"},
        {{"\xED\xA0\x80"}, u"\uFFFD\uFFFD\uFFFD"},
        {{"\xF4\x90\x80\x80"}, u"\uFFFD\uFFFD\uFFFD\uFFFD"},
        {{"\xE0\x9F\x80\xF0\x8F\x80\x80\xF5z"}, u"\uFFFD\uFFFD\uFFFD\uFFFD\uFFFD\uFFFD\uFFFD\uFFFDz"},
        {{"\xE0\xA0\x80\xF0\x90\x80\x80\xF4\x80\x80\x80\xED\x80("}, u"\u0800\U00010000\U00100000\uFFFD("},
        {{"\xE2", "a\xE2\x82", "b"}, u"\uFFFDa\uFFFDb"},
        {{"\xF0\x9F\x98"}, u"\uFFFD"},
        {{"\xF0", "\x9F", "\x98", "\x80"}, u"\U0001F600"},
        // The report's line wrapper counts bytes.
        {{"line\xE2\x82", "\n", "\xAC", "\n"}, u"line\n\u20AC\n"},
    };
    for (const auto& c : cases)
        EXPECT_EQ(decode(c.pieces), c.text);
    EXPECT_EQ(decode({std::string(100000, 'x')}), std::u16string(100000, u'x'));
    for (const size_t count : {SIZE_MAX, SIZE_MAX / 4}) {
        Utf16Text endless;
        EXPECT_EQ(endless.extend(count), nullptr);
        endless.appendUtf8("what comes behind");
        EXPECT_TRUE(endless.failed() && endless.size() == 0);
    }
}

TEST(Utf16Text, EncodesWithinTheBuffer) {
    const struct {
        std::u16string text;
        size_t size;
        const char* utf8;
    } cases[] = {
        {u"plain", 5, "plai"},
        {std::u16string({0xFB01, 0xD83D, 0xE000}), 10, "\xEF\xAC\x81?\xEE\x80\x80"},
        {u"\u00E4\u20AC\U0001F600", 100, "\xC3\xA4\xE2\x82\xAC\xF0\x9F\x98\x80"},
        {u"\u00E4\u20AC\U0001F600", 9, "\xC3\xA4\xE2\x82\xAC"},
        {std::u16string(u"a\0b", 3), 10, "a b"},
        {std::u16string({u'a', 0xD83D}), 10, "a?"},
        {std::u16string({0xDE00, u'b', 0xD83D, u'c'}), 10, "?b?c"},
    };
    for (const auto& c : cases) {
        char buffer[101];
        buffer[c.size] = 'z';
        utf16ToUtf8(reinterpret_cast<const jchar*>(c.text.data()), c.text.size(), buffer, c.size);
        EXPECT_STREQ(buffer, c.utf8);
        EXPECT_EQ(buffer[c.size], 'z');
    }
}

TEST(FaultReports, TheVirtualMachineIsKeptAliveUnlessJavaWantsReports) {
    keepVirtualMachineAlive();
    EXPECT_TRUE(noHalt);
    for (const jboolean wanted : {JNI_TRUE, JNI_FALSE}) {
        Java_com_kestrune_tmqkci_KciMessages_faultReports(nullptr, nullptr, wanted);
        keepVirtualMachineAlive();
        EXPECT_EQ(noHalt, !wanted);
    }
}

} // namespace
