// The catalogue: expansion, the bracketed form, look-up, damaged files, threads and forks.
#include <atomic>
#include <cstdlib>
#include <cstring>
#include <gtest/gtest.h>
#include <linux/seccomp.h>
#include <random>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

#include "err/catalogue.h"
#include "hostdebug.h"
#include "support/child.h"
#include "utlheap.h"

namespace {

// Two symbols of one hash.
const char* const collidingA = "c.bmhp";
const char* const collidingB = "c.cdfa";

TEST(ErrMsgSymToText, WithoutFileIsBracketed) {
    setenv("KESTRUNE_LANG", "/nonexistent", 1);
    EXPECT_EQ(message("errmsg.line4", "d", 3), "[errmsg.line4 3]");
    ErrMsgInit();
    EXPECT_TRUE(ErrMsgGetPanicked());
    EXPECT_EQ(message("a.b", nullptr), "[a.b]");
    EXPECT_EQ(message("a.b", "dnoxgso", -1, 2, 15, 0xABCu, 1.5, "text", 16),
              "[a.b -1 2 SmallInteger(3) 0xabc 1.5 text Oop(16)]");
    EXPECT_EQ(message("a", "ddd", 0, 2147483647, -2147483647 - 1), "[a 0 2147483647 -2147483648]");
    EXPECT_EQ(message("a.b", "so", nullptr, 0xFFFFFFFFu), "[a.b (null) SmallInteger(-1)]");
    EXPECT_EQ(message("a", "dddddddddddd", 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12), "[a 1 2 3 4 5 6 7 8 9 10]");
    EXPECT_EQ(ErrMsgGetString("a.b"), nullptr);

    char text[32];
    memset(text, 'z', sizeof text);
    ErrMsgSymToText("errmsg.line4", text, 8, "d", 3);
    EXPECT_STREQ(text, "[errmsg");
    EXPECT_EQ(text[8], 'z');
    ErrMsgSymToText("errmsg.line4", text, 20, "d", 3);
    EXPECT_EQ(memcmp(text, "[errmsg.line4 3]\0\0\0\0z", 21), 0);
    ErrMsgSymToText("errmsg.line4", text, 1, "d", 3);
    EXPECT_STREQ(text, "");
    ErrMsgSymToText("errmsg.line4", nullptr, 0, "d", 3);
}

TEST(ErrMsgSymToText, ExpandsPatterns) {
    const std::string patterns[] = {
        R"(plain\n\t\\\x\101\1011\777\f\r\v\b end)",
        R"(ends in \)",
        "100%% %d|%5d|%-5i|%05u|%+d|%x|%#X|%o|%c|%p",
        "%s|%10s|%-10s|%.2s|%ld|%hhd|%g|%.1f|%E",
    };
    std::string text;
    for (size_t i = 0; i < std::size(patterns); ++i)
        text += "p" + std::to_string(i) + "(1 2 3 4 5 6 7 8 9 10):" + patterns[i] + (i == 1 ? " \n" : "\n");
    text += "kinds(1 2 3 4 5):%s %d %s %g %s\nreorder(2 1):%s is %d\nnull(2 1):%s %5d\nsurplus(1):%d %-3d %s %\n"
            "none:%d\nlone(1):%s%\nfew:never\n";
    const OpenCatalogue catalogue(compileText(text));
    EXPECT_EQ(message("p0", ""), "plain\n\t\\xA\11\377\f\r\v\b end");
    EXPECT_EQ(message("p1", ""), "ends in  ");
    EXPECT_EQ(message("p2", "dddddddddd", -7, 42, 42, 42, 42, 255, 255, 8, 'A', 0x10),
              "100% -7|   42|42   |00042|+42|ff|0XFF|10|A|0x10");
    EXPECT_EQ(message("p3", "ssssddggg", "abc", "abc", "abc", "abc", -2, 257, 0.5, 0.25, 1.0),
              "abc|       abc|abc       |ab|-2|1|0.5|0.2|1.000000E+00");
    // Arguments of another kind than the conversion show as what they are.
    EXPECT_EQ(message("kinds", "dsxon", 1, "two", 0xABCu, 15, -5), "1 two abc SmallInteger(3) -5");
    EXPECT_EQ(message("kinds", "gdogs", 1.5, 2, 16, 2.5, "five"), "1.5 2 Oop(16) 2.5 five");
    EXPECT_EQ(message("reorder", "ds", 7, "seven"), "seven is 7");
    EXPECT_EQ(message("null", "s", "first"), "[null] first");
    EXPECT_EQ(message("null", ""), "[null] [null]");
    EXPECT_EQ(message("surplus", "d", 1), "1 %-3d %s %");
    EXPECT_EQ(message("none", ""), "%d");
    EXPECT_EQ(message("lone", "s", "x"), "x%");
    EXPECT_EQ(message("few", "ds", 1, "b"), "[\"never\" few 1 b]");
    EXPECT_EQ(message("missing", "d", 1), "[missing 1]");
    EXPECT_FALSE(ErrMsgGetPanicked());

    char text5[6] = "zzzzz";
    ErrMsgSymToText("few", text5, 5, "");
    EXPECT_STREQ(text5, "neve");
    // An argument may stand in the buffer that receives the text.
    char own[64] = "seven";
    ErrMsgSymToText("reorder", own, sizeof own, "ds", 7, own);
    EXPECT_STREQ(own, "seven is 7");
}

TEST(ErrMsgSymToText, WildConversionsAreHarmless) {
    struct Case {
        const char* pattern;
        const char* kinds;
        std::string expected;
    };
    const std::string blanks(2046, ' ');
    const Case cases[] = {
        {"a%nb", "d", "ab"},
        {"%999999d", "d", blanks},
        {"%-99999999999999999999d|", "d", "7" + std::string(2045, ' ')},
        {"%.999999999f", "g", "7." + std::string(2044, '0')},
        {"%*d %.*d|", "d", "7 %.*d|"},
        {"%*.*s", "s", "seven"},
        {"%2$s %1$d", "s", "seven %1$d"},
        {"%hhhhhd %lld", "d", "7 %lld"},
        {"%s", "d", "7"},
        {"%d", "s", "seven"},
        {"%n", "s", "seven"},
        {"%Lf", "g", "7.000000"},
        {"%ls", "s", "seven"},
        {"%", "d", "%"},
        {"%-", "d", "%-"},
        {"%y5d", "d", "%y5d"},
        {"%5.-3d", "d", "%5.-3d"},
        {"%a d", "g", "7"},
        {"%%%", "d", "%%"},
        {"%0+-# 'd", "d", "+7"},
    };
    std::string text;
    for (size_t i = 0; i < std::size(cases); ++i)
        text += "w" + std::to_string(i) + "(1):" + cases[i].pattern + "\n";
    const OpenCatalogue catalogue(compileText(text));
    for (size_t i = 0; i < std::size(cases); ++i) {
        const std::string sym = "w" + std::to_string(i);
        const std::string shown = *cases[i].kinds == 'd'   ? message(sym.c_str(), "d", 7)
                                  : *cases[i].kinds == 'g' ? message(sym.c_str(), "g", 7.0)
                                                           : message(sym.c_str(), "s", "seven");
        EXPECT_EQ(shown, cases[i].expected) << cases[i].pattern;
    }
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
    EXPECT_EQ(message("long", "ss", "a", "b"), "[\"" + longPattern + "%s\" long a b]");
    EXPECT_EQ(message("long", "ss", argument.substr(0, 2048).c_str(), "b"),
              ("[\"" + longPattern + "%s\" long " + argument).substr(0, 2047));
}

TEST(ErrMsgSymToText, UnknownKindsAreReported) {
    const OpenCatalogue catalogue(compileText("s(1):<%s>\n"));
    testing::internal::CaptureStderr();
    EXPECT_EQ(message("s", "q", 5), "<5>");
    EXPECT_EQ(message("missing", "q", 5), "[missing 5]");
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "Unknown argkind in errmsg|buildString\nmySprintf: Illegal argument q read\n"
              "Unknown argkind in errmsg|buildString\ndesperateErr: Illegal argument q read\n");
}

TEST(ErrMsg, StatesAndOtherOutputs) {
    const OpenCatalogue catalogue(compileText("m(1):\\\\n is %s\\n\\\\\\t\nerrmsg.invalidErr:unknown\n"
                                              "errmsg.rtErrBadArgKind:bad kind\n"));
    char* const pattern = ErrMsgGetString("m");
    EXPECT_STREQ(pattern, "\\n is %s\n\\\\t");
    UtlFree(pattern);
    EXPECT_EQ(ErrMsgGetString("missing"), nullptr);

    ErrMsgStrType text;
    ErrMsgToTxt(3613, 2094, text, sizeof text);
    EXPECT_STREQ(text, "bad kind");
    ErrMsgToTxt(3613, 1, text, sizeof text);
    EXPECT_STREQ(text, "unknown");
    memset(text, 'z', sizeof text);
    ErrMsgToTxt(10, 2094, text, 30);
    EXPECT_EQ(memcmp(text, "errmsg.userErrTxt\0\0\0\0\0\0\0\0\0\0\0\0\0z", 31), 0);
    ErrMsgToTxt(10, 2094, text, 7);
    EXPECT_STREQ(text, "errmsg");
    ErrMsgToTxt(10, 2094, nullptr, 0);

    ErrMsgSetPanicked(TRUE);
    EXPECT_EQ(message("m", "s", "x"), "[m x]");
    EXPECT_TRUE(ErrMsgReset());
    EXPECT_FALSE(ErrMsgGetPanicked());
    const std::string longSymbol(256, 's');
    EXPECT_EQ(message(longSymbol.substr(1).c_str(), ""), "[" + longSymbol.substr(1) + "]");
    EXPECT_FALSE(ErrMsgGetPanicked());
    testing::internal::CaptureStderr();
    EXPECT_EQ(message(longSymbol.c_str(), ""), "[" + longSymbol + "]");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "errmsg|buildString:  Error symbol too long\n");
    EXPECT_EQ(message("errmsg.invalidErr", ""), "[errmsg.invalidErr]");
    EXPECT_TRUE(ErrMsgReset());
    EXPECT_EQ(message("errmsg.invalidErr", ""), "unknown");
    unlink(catalogue.name.c_str());
    EXPECT_EQ(message("errmsg.invalidErr", ""), "unknown");
    EXPECT_FALSE(ErrMsgReset());
    EXPECT_TRUE(ErrMsgGetPanicked());

    char* stream = nullptr;
    size_t size = 0;
    FILE* const file = open_memstream(&stream, &size);
    ErrMsgSymToFileNoTimeStamp("m", file, "s", "x");
    EXPECT_STREQ(stream, "[m x]");
    ErrMsgSymToFile("m", file, "d", 1);
    ErrMsgSymToFile_2("%.900s%s", file, std::string(2000, 'a').c_str(), std::string(2000, 'b').c_str());
    fflush(file);
    EXPECT_NE(std::string(stream).find("] [m 1]"), std::string::npos) << stream;
    EXPECT_TRUE(std::string(stream).ends_with(std::string(900, 'a') + std::string(123, 'b')));
    fclose(file);
    free(stream);
}

TEST(ErrMsgNumToSym, MapsTheNumbersOfTheSystem) {
    EXPECT_STREQ(ErrMsgNumToSym(1), "errmsg.invalidErr");
    EXPECT_EQ(ErrMsgGsErrNumToSym(2235), nullptr);
    EXPECT_EQ(ErrMsgGsErrNumToSym(-1), nullptr);
    EXPECT_STREQ(ErrMsgNumToSym(2004), "errmsg.rtErrBadSubscript");
    EXPECT_STREQ(ErrMsgNumToSym(6004), "errmsg.rtErrHardBreak");
    for (const int number : {2227, 2230, 2234, 2240, 2243})
        EXPECT_STREQ(ErrMsgNumToSym(number), "errmsg.lgcProtcolError");
    int count = 0;
    for (int number = 0; number < 10000; ++number)
        count += ErrMsgGsErrNumToSym(number) != nullptr;
    EXPECT_EQ(count, 128);
}

// Every byte order, enough entries for long probe runs, and two symbols that share their hash.
TEST(FindErrSym, FindsEverySymbolInEveryByteOrder) {
    std::string text = std::string(collidingA) + "(1):A %d\n" + collidingB + "(1):B %d\n";
    for (int i = 0; i < 500; ++i)
        text += "sym." + std::to_string(i) + "(1):" + std::to_string(i) + " %d\n";
    for (const errmsgc::Transform& transform : {littleEndian, bigEndian, mixedEndian}) {
        const std::string image = compileText(text, transform);
        const OpenCatalogue catalogue(image);
        for (int round = 0; round < 2; ++round) {
            for (int i = 0; i < 500; ++i)
                EXPECT_EQ(message(("sym." + std::to_string(i)).c_str(), "d", 7), std::to_string(i) + " 7");
            EXPECT_EQ(message(collidingA, "d", round), "A " + std::to_string(round));
            EXPECT_EQ(message(collidingB, "d", round), "B " + std::to_string(round));
            EXPECT_EQ(message("sym.500", "d", 7), "[sym.500 7]");
        }
        EXPECT_FALSE(ErrMsgGetPanicked());
    }
}

struct Damage {
    const char* name;
    void (*apply)(std::string& image, size_t slot); // slot: position of the symbol's slot
    std::string err;                                // with % for the number that depends on the system
    const char* out;
    bool panics = true;
};

void fillTable(std::string& image, size_t) {
    for (size_t slot = 20; slot < 20 + 12 * wordAt(image, 12); slot += 12) {
        setWord(image, slot, 1);
        setWord(image, slot + 8, wordAt(image, 16));
    }
}

const std::string unreadable = "errmsg\\readLong:  fread() error, errno = 0\n";
const std::string noKey = "findErrSym:  symbol fread() error, errno = 0\n";

const Damage damages[] = {
    {"cut in the header's words", [](std::string& image, size_t slot) { image.resize(slot + 11); }, unreadable, ""},
    {"table size near 2^32", [](std::string& image, size_t) { setWord(image, 12, 0xFFFFFFFBu); }, unreadable, ""},
    {"table of one empty slot",
     [](std::string& image, size_t) {
         setWord(image, 12, 1);
         setWord(image, 28, 0);
     },
     "", "", false},
    {"full table", fillTable, "", "", false},
    {"key outside", [](std::string& image, size_t slot) { setWord(image, slot + 4, 0x7FFFFFFF); }, noKey, ""},
    {"key negative", [](std::string& image, size_t slot) { setWord(image, slot + 4, 0xFFFFFFF0u); }, noKey, ""},
    {"key cut",
     [](std::string& image, size_t slot) { setWord(image, slot + 4, static_cast<uint32_t>(image.size()) - 6); }, noKey,
     ""},
    {"other key", [](std::string& image, size_t slot) { setWord(image, slot + 4, 20); }, "", "", false},
    {"entry outside", [](std::string& image, size_t slot) { setWord(image, slot + 8, 0x80000000u); },
     "%: unexpected eof\n", ""},
    {"entry of another symbol",
     [](std::string& image, size_t slot) { setWord(image, slot + 8, static_cast<uint32_t>(image.find("other(1)"))); },
     "", "", false},
    {"entry without symbol", [](std::string& image, size_t slot) { image[wordAt(image, slot + 8)] = ':'; },
     "% near line 0: symbol missing\nErrUtlNextSym:  line 0 Why is symbol missing?\n", "UTL_GUARANTEE"},
    {"endless continuation",
     [](std::string& image, size_t slot) {
         std::string lines;
         for (int i = 0; i < 100000; ++i)
             lines += "x\\\n";
         image.replace(wordAt(image, slot + 8), std::string::npos, lines);
     },
     "%: unexpected eof\n", ""},
};

// A damaged file gives the bracketed form, a diagnostic and, unless the symbol just is not found, the panicked state;
// and the debugger hook, from which messages can be had.
TEST(FindErrSym, DamagedFilesAreReportedOnce) {
    const std::string good = compileText("symbol(1):text %d\nother(1):other %d\n");
    const size_t text = good.find("symbol(1)");
    size_t slot = 20;
    while (wordAt(good, slot + 8) != text)
        slot += 12;
    for (const Damage& damage : damages) {
        std::string image = good;
        damage.apply(image, slot);
        std::string name;
        const ChildResult child = runInChild([&] {
            const OpenCatalogue catalogue(image);
            errno = 0;
            EXPECT_EQ(message("symbol", "d", 7), "[symbol 7]");
            EXPECT_EQ(ErrMsgGetPanicked(), damage.panics);
            EXPECT_EQ(message("symbol", "d", 7), "[symbol 7]");
            fputs(("\1" + std::string(ErrUtlErrFileName)).c_str(), stderr);
        });
        EXPECT_EQ(child.exitStatus, 0) << damage.name << child.out;
        const size_t mark = child.err.find('\1');
        ASSERT_NE(mark, std::string::npos) << damage.name << child.err;
        std::string expected = damage.err;
        if (expected.starts_with('%'))
            expected.replace(0, 1, child.err.substr(mark + 1));
        EXPECT_EQ(child.err.substr(0, mark), expected) << damage.name;
        EXPECT_EQ(child.out.substr(0, strlen("UTL_GUARANTEE")), damage.out) << damage.name;
    }
}

TEST(FindErrSym, RubbishIsReportedForALimitedTime) {
    std::string image = compileText("symbol(1):text %d\n");
    image.replace(image.find("symbol(1)"), std::string::npos, std::string(1 << 20, '\n'));
    const ChildResult child = runInChild([&] {
        const OpenCatalogue catalogue(image);
        EXPECT_EQ(message("symbol", "d", 7), "[symbol 7]");
    });
    EXPECT_EQ(child.exitStatus, 0);
    EXPECT_LT(child.err.size(), 20000u);
}

TEST(FindErrSym, RefusedHeaderLeavesNothingToFallOver) {
    std::string image = compileText("symbol:text\n");
    setWord(image, 12, 0);
    const ChildResult child = runInChild([&] {
        const OpenCatalogue catalogue(image);
        EXPECT_TRUE(ErrMsgGetPanicked());
        EXPECT_TRUE(ErrMsgReset());
        EXPECT_EQ(message("symbol", ""), "[symbol]");
    });
    EXPECT_EQ(child.exitStatus, 0) << child.out;
}

TEST(FindErrSym, ForgetsAFileThatIsReplacedByRubbish) {
    const OpenCatalogue catalogue(compileText("symbol:text\n"));
    EXPECT_EQ(message("symbol", ""), "text");
    for (const char* const replacement : {"rubbish", ""}) {
        catalogue.folder.write("messages.err", replacement);
        ErrMsgInit();
        EXPECT_TRUE(ErrMsgGetPanicked());
        EXPECT_EQ(ErrMsgGetString("symbol"), nullptr);
    }
    catalogue.folder.write("messages.err", compileText("symbol:new text\n"));
    ErrMsgInit();
    EXPECT_EQ(message("symbol", ""), "new text");
}

// Flips bits and cuts the file at random: whatever comes out, nothing crashes, hangs or reads outside.
TEST(FindErrSym, SurvivesRandomDamage) {
    const ChildResult child = runInChild([] {
        FILE* const silent = freopen("/dev/null", "w", stderr);
        const std::string good =
            compileText(std::string(collidingA) + ":A\n" + collidingB + ":B\nsymbol(2 1):t %d %s\n");
        std::mt19937 random(20260601);
        noHalt = TRUE;
        for (int i = 0; i < 500; ++i) {
            std::string image = good;
            for (unsigned flips = random() % 8; flips > 0; --flips)
                image[random() % image.size()] ^= static_cast<char>(1u << random() % 8);
            if (random() % 4 == 0)
                image.resize(random() % image.size());
            const OpenCatalogue catalogue(image);
            for (const char* const sym : {collidingA, collidingB, "symbol", "missing"})
                EXPECT_LE(message(sym, "ds", 1, "s").size(), 2046u);
        }
        fclose(silent);
    });
    EXPECT_EQ(child.exitStatus, 0) << child.out.substr(0, 2000);
}

#if !defined(__SANITIZE_THREAD__)
// In strict mode the kernel kills a process that makes any call but read, write and exit.
TEST(ErrMsgSymToText, MakesNoSystemCall) {
    const OpenCatalogue catalogue(compileText("symbol(1 2):text %s %5d\n"));
    const pid_t pid = fork();
    if (pid == 0) {
        std::string text = message("symbol", "sd", "s", 1);
        char buffer[64];
        if (prctl(PR_SET_SECCOMP, SECCOMP_MODE_STRICT) != 0)
            syscall(SYS_exit, 2);
        for (int i = 0; i < 1000; ++i)
            ErrMsgSymToText("symbol", buffer, sizeof buffer, "sd", "s", 1);
        syscall(SYS_exit, text == buffer ? 0 : 1);
    }
    int status = 0;
    waitpid(pid, &status, 0);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
}
#endif

TEST(ErrMsg, ThreadsAndForks) {
    const OpenCatalogue catalogue(compileText("a(1):a %d\nb(1):b %d\n"));
    std::atomic<bool> stop{false};
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([&, t] {
            const char* const sym = t % 2 ? "a" : "b";
            const std::string expected = std::string(sym) + " 7";
            while (!stop)
                EXPECT_EQ(message(sym, "d", 7), expected);
        });
    for (int i = 0; i < 20; ++i) {
        EXPECT_TRUE(ErrMsgReset());
        EXPECT_FALSE(ErrMsgGetPanicked());
    }
#if !defined(__SANITIZE_THREAD__)
    for (int i = 0; i < 50; ++i) {
        const pid_t pid = fork();
        if (pid == 0)
            _exit(ErrMsgReset() && message("a", "d", 1) == "a 1" ? 0 : 1);
        int status = 0;
        waitpid(pid, &status, 0);
        EXPECT_EQ(status, 0);
    }
#endif
    stop = true;
    for (std::thread& thread : threads)
        thread.join();
}

} // namespace
