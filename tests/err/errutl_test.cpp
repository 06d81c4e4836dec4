// The message file: location, header, entries.
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "err/catalogue.h"
#include "err/errentry.h"
#include "support/child.h"

namespace {

const std::string fileHeader("\xDE\xAD\xBE\xEF\0\1\2\3\1\0\0\0\2\0\0\0\54\0\0\0", 20);

std::string withByte(size_t position, char value) {
    std::string changed = fileHeader;
    changed[position] = value;
    return changed;
}

TEST(ErrUtlReadHdr, AcceptsEveryByteOrderAndNamesEveryFault) {
    struct Case {
        std::string bytes;
        const char* diagnostic;
    };
    const Case cases[] = {
        {fileHeader, ""},
        {std::string("\xDE\xAD\xBE\xEF\3\2\1\0\0\0\0\1\0\0\0\2\0\0\0\54", 20), ""},
        {std::string("\xDE\xAD\xBE\xEF\2\3\0\1\0\0\1\0\0\0\2\0\0\0\54\0", 20), ""},
        {fileHeader.substr(0, 19), "ErrUtlReadHdr: fread() header failure, errno = 0\n"},
        {withByte(3, 'x'), "ErrUtlReadHdr:  bad magic number\n"},
        {withByte(7, 2), "ErrUtlReadHdr: illegal swizzle transforms\n"},
        {withByte(7, 4), "ErrUtlReadHdr: illegal swizzle transforms\n"},
        {withByte(8, 2), "ErrUtlReadHdr:  bad version = 2\n"},
        {withByte(11, '\xFF'), "ErrUtlReadHdr:  bad version = -16777215\n"},
        {withByte(12, 0), "ErrUtlReadHdr:  zero length hash table\n"},
    };
    const TempFolder folder;
    for (const Case& c : cases) {
        FILE* const file = fopen(folder.write("header", c.bytes).c_str(), "r");
        fgetc(file);
        ErrUtlHdrSType header{};
        testing::internal::CaptureStderr();
        const BoolType good = ErrUtlReadHdr(file, &header);
        EXPECT_EQ(testing::internal::GetCapturedStderr(), c.diagnostic);
        EXPECT_EQ(good, *c.diagnostic == 0);
        if (good) {
            EXPECT_EQ(header.tabSize, 2u);
            EXPECT_EQ(header.textBegin, 44u);
        }
        fclose(file);
    }
    EXPECT_EQ(memcmp(ErrUtlGetMagic(), "\xDE\xAD\xBE\xEF", 4), 0);
}

TEST(ErrUtlInit, FindsTheFileByEnvironmentAndBesideTheProgram) {
    const TempFolder folder;
    std::filesystem::create_directories(folder.path("sys"));
    folder.write("sys/english67.err", compileText("a: default\n"));
    setenv("KESTRUNE", folder.path("").c_str(), 1);
    unsetenv("KESTRUNE_LANG");
    ASSERT_TRUE(ErrUtlInit(TRUE, nullptr));
    EXPECT_EQ(std::filesystem::canonical(ErrUtlErrFileName),
              std::filesystem::canonical(folder.path("sys/english67.err")));
    EXPECT_TRUE(ErrUtlIsUp());
    EXPECT_TRUE(fcntl(fileno(ErrUtlErrFile), F_GETFD) & FD_CLOEXEC);

    setenv("KESTRUNE_LANG", folder.write("french", compileText("a: named\n")).c_str(), 1);
    ASSERT_TRUE(ErrUtlInit(TRUE, nullptr));
    EXPECT_EQ(std::filesystem::canonical(ErrUtlErrFileName), std::filesystem::canonical(folder.path("french")));

    const auto installed = std::filesystem::canonical("/proc/self/exe").parent_path().parent_path() / "sys";
    const std::string unlikely = "errutl-test-" + std::to_string(getpid());
    std::filesystem::create_directories(installed);
    std::filesystem::copy_file(folder.path("french"), installed / (unlikely + ".err"));
    setenv("KESTRUNE_LANG", unlikely.c_str(), 1);
    EXPECT_TRUE(ErrUtlInit(TRUE, nullptr));
    EXPECT_EQ(std::filesystem::path(ErrUtlErrFileName), installed / (unlikely + ".err"));
    std::filesystem::remove(installed / (unlikely + ".err"));
    ErrUtlShutdown();
    EXPECT_EQ(ErrUtlErrFile, nullptr);
}

TEST(ErrUtlInit, RefusesWhatIsNoMessageFile) {
    const TempFolder folder;
    ASSERT_EQ(mkfifo(folder.path("pipe").c_str(), 0600), 0);
    const std::string missing = folder.path("missing");
    const auto refusal = [](const std::string& name) {
        testing::internal::CaptureStderr();
        EXPECT_FALSE(ErrUtlInit(TRUE, name.c_str()));
        EXPECT_FALSE(ErrUtlIsUp());
        return testing::internal::GetCapturedStderr();
    };
    EXPECT_EQ(refusal(missing), "ErrUtlReset: fopen() failure on \"" + missing +
                                    "\"\n     errno = 2 (sorry, no translation available)\n"
                                    "ErrUtlInit: Unable to use file " +
                                    missing + " as a language file\n");
    EXPECT_NE(refusal(folder.path("pipe")).find("errno = 29 "), std::string::npos);
    EXPECT_EQ(ErrUtlErrFile, nullptr);
    EXPECT_NE(refusal(folder.path("")).find("fread() header failure"), std::string::npos);
    EXPECT_NE(refusal("/dev/zero").find("bad magic number"), std::string::npos);
    EXPECT_NE(ErrUtlErrFile, nullptr);
    const std::string tooLong(5000, 'x');
    EXPECT_EQ(refusal(tooLong), "ErrUtlInit: Unable to use file " + tooLong + " as a language file\n");
    // A file that no message file is as large as.
    const std::string large = folder.write("large", compileText("a: b\n"));
    std::filesystem::resize_file(large, 1u << 30);
    EXPECT_NE(refusal(large).find("unable to read"), std::string::npos);
    ErrUtlShutdown();
}

struct Parsed {
    BoolType found = FALSE;
    BoolType syntaxErr = FALSE;
    long line = 0;
    ErrUtlEntrySType entry{};
};

Parsed parse(std::string text, bool building) {
    Parsed parsed;
    FILE* const file = fmemopen(text.data(), text.size(), "r");
    parsed.found = ErrUtlNextSym(file, "file", &parsed.line, &parsed.entry, building, &parsed.syntaxErr);
    fclose(file);
    return parsed;
}

TEST(ErrUtlNextSym, ParsesEntries) {
    struct Case {
        std::string text;
        std::string symbol;
        std::vector<int> argOrder;
        int expectedArgCount;
        std::string pattern;
    };
    const std::string longest(2047 - 2, 'p');
    const Case cases[] = {
        {"errmsg.line4(1): Arg %d\n", "errmsg.line4", {1}, 1, " Arg %d"},
        {"foo: x", "foo", {}, 0, " x"},
        {"foo:\n", "foo", {}, 0, ""},
        {" \t\ffoo \t(2\t10 1)\f :  x \n", "foo", {2, 10, 1}, 10, "  x "},
        {"foo():x\n", "foo", {}, 0, "x"},
        {"foo(01 1 1 1 1 1 1 1 1 3):x\n", "foo", {1, 1, 1, 1, 1, 1, 1, 1, 1, 3}, 3, "x"},
        {"fo\\\no:a\\\n  b\\\\\nc\n", "foo", {}, 0, "a  b\\c"},
        {"s:" + longest + "\n", "s", {}, 0, longest},
        {"s:" + longest + "cut\\\ncut too\n", "s", {}, 0, longest},
        {"s:" + longest + std::string(3000, 'c') + "\\\nx\n", "s", {}, 0, longest},
        {std::string("s:a\0b\n", 6), "s", {}, 0, "a"},
        {std::string(254, 's') + ":x\n", std::string(254, 's'), {}, 0, "x"},
        {"s\f#:x:y(1)\n", "s\f#", {}, 0, "x:y(1)"},
    };
    for (const Case& c : cases) {
        for (const bool building : {false, true}) {
            Parsed parsed = parse(c.text, building);
            ASSERT_TRUE(parsed.found) << c.text;
            EXPECT_FALSE(parsed.syntaxErr) << c.text;
            EXPECT_EQ(parsed.entry.sym, c.symbol);
            EXPECT_EQ(parsed.entry.buf, c.pattern);
            EXPECT_EQ(parsed.entry.expectedArgCount, c.expectedArgCount);
            std::vector<int> argOrder(parsed.entry.argOrder, parsed.entry.argOrder + parsed.entry.argListSize);
            EXPECT_EQ(argOrder, c.argOrder);
            for (int i = parsed.entry.argListSize; i < ERRMSG_MAX_ARGS; ++i)
                EXPECT_EQ(parsed.entry.argOrder[i], 0);
        }
    }
}

TEST(ErrUtlNextSym, ReportsMalformedLinesInBothModes) {
    struct Case {
        std::string line;
        std::string first;
        std::string second;
    };
    const Case cases[] = {
        {"", "", "file: why is line 0 empty?\n"},
        {" \t\f", "", "file: why is line 0 empty?\n"},
        {"# text", "", "file:  line 0, why am I reading a comment?\n"},
        {"foo", "file near line %: symbol missing\n", "ErrUtlNextSym:  line 0 Why is symbol missing?\n"},
        {":x", "file near line %: symbol missing\n", "ErrUtlNextSym:  line 0 Why is symbol missing?\n"},
        {std::string(300, 's'), "file near line %: symbol missing\n",
         "ErrUtlNextSym:  line 0 Why is symbol missing?\n"},
        {std::string(255, 's') + ":x", "file near line %: symbol too long\n", "ErrUtlNextSym:  Why is symbol bad?\n"},
        {"foo(", "file near line %: \")\" missing\n", "ErrUtlNextSym:  why is line bad?\n"},
        {"foo(1 2 ", "file near line %: \")\" missing\n", "ErrUtlNextSym:  why is line bad?\n"},
        {"foo(1,2):x", "file near line %: \")\" expected\n", "ErrUtlNextSym:  why is line bad?\n"},
        {"foo(1 11): x", "file near line %: numeral (11) out of range\n", "file:  bogus arg numeral\n"},
        {"foo(0): x", "file near line %: numeral (0) out of range\n", "file:  bogus arg numeral\n"},
        {"foo(98765432109876543210): x", "file near line %: numeral (98) out of range\n", "file:  bogus arg numeral\n"},
        {"foo(1 1 1 1 1 1 1 1 1 1 1): x", "file near line %: too many arguments\n", "ErrUtlNextSym:  bogus arg list\n"},
        {"foo  x", "file near line %: \":\" expected\n", "ErrUtlNextSym:  why is line bad?\n"},
        {"foo(1) ", "file near line %: \":\" expected\n", "ErrUtlNextSym:  why is line bad?\n"},
    };
    for (const Case& c : cases) {
        for (const bool building : {false, true}) {
            const ChildResult child = runInChild([&] {
                const Parsed parsed = parse(c.line + "\nnext: good\n", building);
                EXPECT_TRUE(parsed.found);
                EXPECT_STREQ(parsed.entry.sym, "next");
                EXPECT_EQ(parsed.syntaxErr, !building || !c.first.empty());
                EXPECT_EQ(parsed.line, building ? 2 : 0);
                if (building) {
                    EXPECT_EQ(parsed.entry.loc, static_cast<long>(c.line.size() + 1));
                }
            });
            EXPECT_EQ(child.exitStatus, 0) << c.line << child.out;
            std::string expected = c.first;
            if (const size_t number = expected.find('%'); number != std::string::npos)
                expected[number] = building ? '1' : '0';
            EXPECT_EQ(child.err, building ? expected : expected + c.second);
            const std::string guarantee = "UTL_GUARANTEE failure in file errutl at line ";
            EXPECT_EQ(child.out.substr(0, guarantee.size()), building ? "" : guarantee) << child.out;
        }
    }
}

TEST(ErrUtlNextSym, EndOfFile) {
    EXPECT_FALSE(parse("\n# only a comment\n", true).found);
    const Parsed pending = parse("foo: x\\\n", true);
    EXPECT_FALSE(pending.found);
    EXPECT_TRUE(pending.syntaxErr);
    testing::internal::CaptureStderr();
    std::string empty = "\n";
    FILE* const file = fmemopen(empty.data(), 1, "r");
    fgetc(file);
    Parsed parsed;
    EXPECT_FALSE(ErrUtlNextSym(file, "file", nullptr, &parsed.entry, FALSE, &parsed.syntaxErr));
    EXPECT_FALSE(parsed.syntaxErr);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "file: unexpected eof\n");
    fclose(file);
}

} // namespace
