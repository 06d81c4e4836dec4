// The catalogue: expansion, the bracketed form, look-up, damaged files.
#include <cstdlib>
#include <cstring>
#include <gtest/gtest.h>
#include <regex>
#include <unistd.h>

#include "err/catalogue.h"
#include "hash.h"
#include "support/child.h"
#include "utlheap.h"

namespace {

TEST(ErrMsgSymToText, WithoutFileIsBracketed) {
    setenv("KESTRUNE_LANG", "/nonexistent", 1);
    ErrMsgInit();
    EXPECT_TRUE(ErrMsgGetPanicked());
    EXPECT_EQ(message("a.b", "dnoxgso", -1, 2, 15, 0xABCu, 1.5, "text", 16),
              "[a.b -1 2 SmallInteger(3) 0xabc 1.5 text Oop(16)]");
    EXPECT_EQ(message("a", "dsoo", -2147483647 - 1, nullptr, 0xFFFFFFFFu, 18),
              "[a -2147483648 (null) SmallInteger(-1) Oop(18)]");
    EXPECT_EQ(message("a", "dddddddddddd", 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12), "[a 1 2 3 4 5 6 7 8 9 10]");
    char text[32];
    memset(text, 'z', sizeof text);
    ErrMsgSymToText("errmsg.line4", text, 8, "d", 3);
    EXPECT_STREQ(text, "[errmsg");
    EXPECT_EQ(text[8], 'z');
    ErrMsgSymToText("errmsg.line4", nullptr, 0, "d", 3);
    ErrMsgSymToText("abc", text, 5, "d", 3);
    EXPECT_STREQ(text, "[abc");
    // Symbol and arguments may stand in the buffer that receives the text.
    strcpy(text, "abc");
    ErrMsgSymToText(text, text, sizeof text, "ss", text, text + 1);
    EXPECT_EQ(std::string(text, sizeof text), "[abc abc bc]" + std::string(sizeof text - 12, '\0'));
    char large[5000] = "abc";
    ErrMsgSymToText("a", large, sizeof large, "ss", large, large + 1);
    EXPECT_STREQ(large, "[a abc bc]");
}

// The message that an entry, without its symbol, gives.
template <class... Args>
std::string expand(const std::string& entry, const char* kinds, Args... args) {
    const OpenCatalogue catalogue(compileText("m" + entry + "\n"));
    return message("m", kinds, args...);
}

TEST(ErrMsgSymToText, ExpandsPatterns) {
    EXPECT_EQ(expand(R"(:plain\n\t\\\x\-\101\1018\777\f\r\v\b end\101)", ""), "plain\n\t\\x-AA8\377\f\r\v\b endA");
    EXPECT_EQ(expand(":ends in \\\\\n", ""), "ends in ");
    EXPECT_EQ(expand("(1 2 3 4 5 6 7 8 9 10):100%% %d|%5d|%-5i|%05u|%+d|%x|%#X|%o|%2c|%5p", "dddddddddd", -7, 42, 42,
                     42, 42, 255, 255, 8, 'A', 0x10),
              "100% -7|   42|42   |00042|+42|ff|0XFF|10| A| 0x10");
    EXPECT_EQ(expand("(1 2 3 4 5 6 7 8 9):%s|%10s|%-10s|%.2s|%li|%hhd|%g|%.1f|%E", "ssssddggg", "abc", "abc", "abc",
                     "abc", -2, 257, 0.5, 0.25, 1.0),
              "abc|       abc|abc       |ab|-2|1|0.5|0.2|1.000000E+00");
    // Arguments of another kind than the conversion show as what they are.
    EXPECT_EQ(expand("(1 2 3 4 5):%s %d %s %g %s", "dsxon", 1, "two", 0xABCu, 15, -5), "1 two abc SmallInteger(3) -5");
    EXPECT_EQ(expand("(2 1):%s %5d", "s", "first"), "[null] first");
    EXPECT_EQ(expand("(1):%d %-3d %s %", "d", 1), "1 %-3d %s %");
    EXPECT_EQ(expand(":never", "ds", 1, "b"), "[\"never\" m 1 b]");

    const OpenCatalogue catalogue(compileText("reorder(2 1):%s is %d\n"));
    EXPECT_EQ(message("missing", "d", 1), "[missing 1]");
    EXPECT_FALSE(ErrMsgGetPanicked());
    char text[6] = "zzzzz";
    ErrMsgSymToText("reorder", text, 5, "ds", 7, "seven");
    EXPECT_STREQ(text, "seve");
    // An argument may stand in the buffer that receives the text.
    char own[64] = "seven";
    ErrMsgSymToText("reorder", own, sizeof own, "ds", 7, own);
    EXPECT_STREQ(own, "seven is 7");
}

TEST(ErrMsgSymToText, WildConversionsAreHarmless) {
    EXPECT_EQ(expand("(1):a%nb", "d", 7), "ab");
    EXPECT_EQ(expand("(1):%-99999999999999999999d|", "d", 7), "7" + std::string(2045, ' '));
    EXPECT_EQ(expand("(1):%.999999999f", "g", 7.0), "7." + std::string(2044, '0'));
    EXPECT_EQ(expand("(1 2 3):%*d %.*d|%l5d|", "ddd", 7, 8, 9), "7 8|%l5d|");
    EXPECT_EQ(expand("(1):%2$s %1$d", "s", "seven"), "seven %1$d");
    EXPECT_EQ(expand("(1):%hhhhhd %lld", "d", 7), "7 %lld");
    EXPECT_EQ(expand("(1):%-", "d", 7), "%-");
    EXPECT_EQ(expand("(1):%%%", "d", 7), "%%");
}

TEST(ErrMsgSymToText, LimitsOfLength) {
    const std::string longPattern(2000, 'p');
    const OpenCatalogue catalogue(compileText("long(1):" + longPattern + "%s\ns(1):%s\npadded(1):%3000s\n"));
    const std::string argument(5000, 'a');
    testing::internal::CaptureStdout();
    EXPECT_EQ(message("s", "s", argument.c_str()), argument.substr(0, 2046));
    EXPECT_EQ(message("padded", "s", argument.c_str()), std::string(952, ' ') + argument.substr(0, 1094));
    const std::string warning = "Warning: message argument truncated:\n" + argument + "\n";
    EXPECT_EQ(testing::internal::GetCapturedStdout(), warning + warning);
    EXPECT_EQ(message("long", "s", argument.substr(0, 100).c_str()), longPattern + argument.substr(0, 46));
    EXPECT_EQ(message("long", "ss", argument.substr(0, 2048).c_str(), "b"),
              ("[\"" + longPattern + "%s\" long " + argument).substr(0, 2047));
    EXPECT_EQ(expand(":" + std::string(2044, 'p'), "d", 1), "[\"" + std::string(2044, 'p') + "\"");
}

TEST(ErrMsgSymToText, UnknownKindsAreReported) {
    const ChildResult child = runInChild([] {
        const OpenCatalogue catalogue(compileText("s(1):<%s>\n"));
        countHookCalls();
        EXPECT_EQ(message("s", "q", 5), "<5>");
        EXPECT_EQ(message("missing", "q", 5), "[missing 5]");
        EXPECT_EQ(hookCalls, 4);
    });
    EXPECT_EQ(child.exitStatus, 0) << child.out;
    EXPECT_EQ(child.err, "Unknown argkind in errmsg|buildString\nmySprintf: Illegal argument q read\n"
                         "Unknown argkind in errmsg|buildString\ndesperateErr: Illegal argument q read\n");
}

TEST(ErrMsg, GetStringAndToTxt) {
    const OpenCatalogue catalogue(compileText("m(1):\\\\n is %s\\n\\\\\\t\nerrmsg.rtErrBadArgKind:bad kind\n"));
    char* const pattern = ErrMsgGetString("m");
    EXPECT_STREQ(pattern, "\\n is %s\n\\\\t");
    UtlFree(pattern);
    EXPECT_EQ(ErrMsgGetString("missing"), nullptr);

    ErrMsgStrType text;
    ErrMsgToTxt(3613, 2094, text, sizeof text);
    EXPECT_STREQ(text, "bad kind");
    memset(text, 'z', sizeof text);
    ErrMsgToTxt(10, 2094, text, 30);
    EXPECT_EQ(memcmp(text, "errmsg.userErrTxt\0\0\0\0\0\0\0\0\0\0\0\0\0z", 31), 0);
    ErrMsgToTxt(10, 2094, nullptr, 0);
}

TEST(ErrMsg, PanickedUntilReset) {
    const ChildResult child = runInChild([] {
        const OpenCatalogue catalogue(compileText("m(1):is %s\n"));
        countHookCalls();
        const std::string longSymbol(256, 's');
        EXPECT_EQ(message(longSymbol.c_str(), ""), "[" + longSymbol + "]");
        EXPECT_EQ(hookCalls, 1);
        EXPECT_EQ(message("m", "s", "x"), "[m x]");
        EXPECT_TRUE(ErrMsgReset());
        EXPECT_EQ(message("m", "s", "x"), "is x");
        unlink(catalogue.name.c_str());
        EXPECT_FALSE(ErrMsgReset());
        EXPECT_TRUE(ErrMsgGetPanicked());
        EXPECT_EQ(hookCalls, 1);
    });
    EXPECT_EQ(child.exitStatus, 0) << child.out;
    EXPECT_TRUE(child.err.starts_with("errmsg|buildString:  Error symbol too long\nErrUtlReset: fopen() failure"));
}

TEST(ErrMsg, WritesToStreams) {
    testing::internal::CaptureStdout();
    ErrMsgSymToFileNoTimeStamp("m", stdout, "s", "x");
    ErrMsgSymToFile("m", stdout, "d", 1);
    ErrMsgSymToFile_1("%.1s%%", stdout, "ab");
    ErrMsgSymToFile_2("%s%s", stdout, std::string(900, 'a').c_str(), std::string(2000, 'b').c_str());
    const std::string text = testing::internal::GetCapturedStdout(), stamp = "\\[[^\\]]+\\] ";
    const std::regex expected("\\[m x\\]" + stamp + "\\[m 1\\]" + stamp + "a%" + stamp + "a{900}b{123}");
    EXPECT_TRUE(std::regex_match(text, expected)) << text;
}

TEST(ErrMsgNumToSym, MapsTheNumbersOfTheSystem) {
    EXPECT_STREQ(ErrMsgNumToSym(1), "errmsg.invalidErr");
    EXPECT_EQ(ErrMsgGsErrNumToSym(-1), nullptr);
    std::string rows;
    for (int number = 0; number < 10000; ++number) {
        if (const char* const sym = ErrMsgGsErrNumToSym(number)) {
            EXPECT_STREQ(sym, ErrMsgNumToSym(number));
            rows += std::to_string(number) + " " + sym + "\n";
        }
    }
    EXPECT_EQ(HashCStrHash(rows.c_str()), 0x1028A3) << "a row has changed:\n" << rows;
}

// Every byte order, enough entries for long probe runs, and two symbols that share their hash.
TEST(FindErrSym, FindsEverySymbolInEveryByteOrder) {
    std::string text = "c.bmhp(1):A %d\nc.cdfa(1):B %d\n";
    for (int i = 0; i < 500; ++i)
        text += "sym." + std::to_string(i) + "(1):" + std::to_string(i) + " %d\n";
    for (const errmsgc::Transform& transform : {littleEndian, bigEndian, mixedEndian, cyclic}) {
        const OpenCatalogue catalogue(compileText(text, transform));
        for (int round = 0; round < 2; ++round) {
            for (int i = 0; i < 500; ++i)
                EXPECT_EQ(message(("sym." + std::to_string(i)).c_str(), "d", 7), std::to_string(i) + " 7");
            EXPECT_EQ(message("c.bmhp", "d", round), "A " + std::to_string(round));
            EXPECT_EQ(message("c.cdfa", "d", round), "B " + std::to_string(round));
            EXPECT_EQ(message("sym.500", "d", 7), "[sym.500 7]");
        }
    }
}

// A damaged file gives the bracketed form, a diagnostic and, unless the symbol just is not found, the panicked state;
// and one call of the debugger hook, from which messages can be had.
TEST(FindErrSym, DamagedFilesAreReportedOnce) {
    const std::string good = compileText("symbol(1):text %d\nother(1):other %d\n");
    const size_t entry = good.find("symbol(1)");
    size_t slot = 20;
    while (wordAt(good, slot + 8) != entry)
        slot += 12;
    const auto with = [&](size_t position, size_t value) {
        std::string image = good;
        setWord(image, position, static_cast<uint32_t>(value));
        return image;
    };
    const std::string unreadable = "errmsg\\readLong:  fread() error, errno = 0\n";
    const std::string noKey = "findErrSym:  symbol fread() error, errno = 0\n";
    const struct {
        const char* name;
        std::string image;
        std::string err; // with % for the file's name; when empty, the symbol is not found and nothing else
        const char* out = "";
    } damages[] = {
        {"cut in a slot", good.substr(0, slot + 11), unreadable},
        {"key negative", with(slot + 4, 0xFFFFFFF0), noKey},
        {"key cut off", with(slot + 4, good.size() - 3), noKey},
        {"entry outside", with(slot + 8, 0x80000000), "%: unexpected eof\n"},
        {"entry of another symbol", with(slot + 8, good.find("other(1)")), ""},
        {"entry without symbol", good.substr(0, entry) + ":" + good.substr(entry + 1),
         "% near line 0: symbol missing\nErrUtlNextSym:  line 0 Why is symbol missing?\n", "UTL_GUARANTEE"},
    };
    for (const auto& [name, image, err, out] : damages) {
        SCOPED_TRACE(name);
        const OpenCatalogue catalogue(image);
        const ChildResult child = runInChild([panics = !err.empty()] {
            countHookCalls();
            errno = 0;
            for (int i = 0; i < 2; ++i) {
                EXPECT_EQ(message("symbol", "d", 7), "[symbol 7]");
                EXPECT_EQ(ErrMsgGetPanicked(), panics);
                EXPECT_EQ(hookCalls, panics);
            }
        });
        EXPECT_EQ(child.exitStatus, 0) << child.out;
        EXPECT_EQ(child.err, err.starts_with('%') ? ErrUtlErrFileName + err.substr(1) : err);
        EXPECT_EQ(child.out.substr(0, strlen("UTL_GUARANTEE")), out);
    }
}

TEST(FindErrSym, ForgetsAFileThatIsReplacedByRubbish) {
    const OpenCatalogue catalogue(compileText("symbol:text\n"));
    EXPECT_EQ(message("symbol", ""), "text");
    catalogue.folder.write("messages.err", "rubbish");
    ErrMsgInit();
    EXPECT_TRUE(ErrMsgGetPanicked());
    EXPECT_TRUE(ErrMsgReset()); // the header stays refused
    EXPECT_EQ(ErrMsgGetString("symbol"), nullptr);
    catalogue.folder.write("messages.err", compileText("symbol:new text\n"));
    ErrMsgInit();
    EXPECT_EQ(message("symbol", ""), "new text");
}

} // namespace
