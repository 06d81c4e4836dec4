// The message file: location, header, entries.
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "err/catalogue.h"
#include "err/messages/errentry.h"
#include "support/child.h"

namespace {

const std::string fileHeader("\xDE\xAD\xBE\xEF\0\1\2\3\1\0\0\0\2\0\0\0\54\0\0\0", 20);

std::string withByte(size_t position, char value) {
    std::string changed = fileHeader;
    changed[position] = value;
    return changed;
}

TEST(ErrUtlReadHdr, AcceptsEveryByteOrderAndNamesEveryFault) {
    const std::pair<std::string, std::string> cases[] = {
        {fileHeader, ""},
        {std::string("\xDE\xAD\xBE\xEF\3\2\1\0\0\0\0\1\0\0\0\2\0\0\0\54", 20), ""},
        {std::string("\xDE\xAD\xBE\xEF\1\2\3\0\0\0\0\1\0\0\0\2\0\0\0\54", 20), ""},
        {fileHeader.substr(0, 19), "ErrUtlReadHdr: fread() header failure, errno = 0\n"},
        {withByte(3, 'x'), "ErrUtlReadHdr:  bad magic number\n"},
        {withByte(7, 2), "ErrUtlReadHdr: illegal swizzle transforms\n"},
        {withByte(8, 2), "ErrUtlReadHdr:  bad version = 2\n"},
        {withByte(12, 0), "ErrUtlReadHdr:  zero length hash table\n"},
    };
    const Scratch folder;
    for (const auto& [bytes, diagnostic] : cases) {
        FILE* const file = fopen(folder.write("header", bytes).c_str(), "r");
        fgetc(file);
        ErrUtlHdrSType header{};
        testing::internal::CaptureStderr();
        const bool good = ErrUtlReadHdr(file, &header);
        EXPECT_EQ(testing::internal::GetCapturedStderr(), diagnostic);
        EXPECT_EQ(good, diagnostic.empty());
        EXPECT_TRUE(!good || (header.tabSize == 2 && header.textBegin == 44));
        fclose(file);
    }
}

TEST(ErrUtlInit, FindsTheFileByEnvironmentAndBesideTheProgram) {
    using std::filesystem::canonical;
    const Scratch folder;
    std::filesystem::create_directories(folder.file("sys"));
    const std::string image = compileText("a: default\n");
    const auto beside = canonical("/proc/self/exe").replace_filename("errutl-test.err");
    std::ofstream(beside) << image;
    setenv("KESTRUNE", folder.path().c_str(), 1);
    const std::pair<const std::string, std::string> cases[] = {
        // $KESTRUNE_LANG, when there is one, and the file
        {"", folder.write("sys/english67.err", image)},
        {folder.write("french", image), folder.file("french")},
        {"errutl-test", beside},
    };
    for (const auto& [language, file] : cases) {
        language.empty() ? unsetenv("KESTRUNE_LANG") : setenv("KESTRUNE_LANG", language.c_str(), 1);
        ASSERT_TRUE(ErrUtlInit(TRUE, nullptr));
        EXPECT_EQ(canonical(ErrUtlErrFileName), canonical(file));
        EXPECT_TRUE(ErrUtlIsUp());
        EXPECT_TRUE(fcntl(fileno(ErrUtlErrFile), F_GETFD) & FD_CLOEXEC);
    }
    std::filesystem::remove(beside);
    ErrUtlShutdown();
    EXPECT_EQ(ErrUtlErrFile, nullptr);
}

TEST(ErrUtlInit, RefusesWhatIsNoMessageFile) {
    const Scratch folder;
    ASSERT_EQ(mkfifo(folder.file("pipe").c_str(), 0600), 0);
    // A file that no message file is as large as.
    const std::string large = folder.write("large", compileText("a: b\n"));
    std::filesystem::resize_file(large, 1u << 30);
    const std::string missing = folder.file("missing");
    const std::pair<std::string, std::string> cases[] = {
        {missing, "ErrUtlReset: fopen() failure on \"" + missing +
                      "\"\n     errno = 2 (sorry, no translation available)\nErrUtlInit: Unable to use file " +
                      missing + " as a language file\n"},
        {folder.file("pipe"), "errno = 29 (sorry"},
        {folder.path(), "fread() header failure"},
        {"/dev/zero", "bad magic number"},
        {large, "unable to read"},
        {std::string(5000, 'n'), "ErrUtlInit: Unable to use file nnn"},
    };
    for (const auto& [name, refusal] : cases) {
        testing::internal::CaptureStderr();
        EXPECT_FALSE(ErrUtlInit(TRUE, name.c_str()));
        EXPECT_FALSE(ErrUtlIsUp());
        EXPECT_NE(testing::internal::GetCapturedStderr().find(refusal), std::string::npos) << name;
    }
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
    const std::string longest(2047 - 2, 'p');
    const struct {
        std::string text;
        std::string symbol;
        std::vector<int> argOrder;
        int expectedArgCount;
        std::string pattern;
    } cases[] = {
        {"errmsg.line4(1): Arg %d\n", "errmsg.line4", {1}, 1, " Arg %d"},
        {" \t\ffoo \t(02\t10 1 1 1 1 1 1 1 1)\f :  x \n", "foo", {2, 10, 1, 1, 1, 1, 1, 1, 1, 1}, 10, "  x "},
        {"fo\\\no:a\\\n  b\\\\\nc\n", "foo", {}, 0, "a  b\\c"},
        {"s:" + longest + std::string(3000, 'c') + "\\\nx\n", "s", {}, 0, longest},
        {"s:" + longest + "c\n", "s", {}, 0, longest},
        {std::string(254, 's') + ":x:y(1)\n", std::string(254, 's'), {}, 0, "x:y(1)"},
    };
    for (const auto& [text, symbol, argOrder, expectedArgCount, pattern] : cases) {
        for (const bool building : {false, true}) {
            const Parsed parsed = parse(text, building);
            ASSERT_TRUE(parsed.found) << text;
            EXPECT_FALSE(parsed.syntaxErr) << text;
            EXPECT_EQ(parsed.entry.sym, symbol);
            EXPECT_EQ(parsed.entry.buf, pattern);
            EXPECT_EQ(parsed.entry.expectedArgCount, expectedArgCount);
            EXPECT_EQ(parsed.entry.argListSize, static_cast<int>(argOrder.size()));
            std::vector<int> padded = argOrder;
            padded.resize(ERRMSG_MAX_ARGS);
            EXPECT_EQ(std::vector<int>(parsed.entry.argOrder, std::end(parsed.entry.argOrder)), padded);
        }
    }
}

TEST(ErrUtlNextSym, ReportsMalformedLinesInBothModes) {
    const std::string near = "file near line %: ";
    const std::string badLine = "ErrUtlNextSym:  why is line bad?\n";
    const std::string whyMissing = "ErrUtlNextSym:  line 0 Why is symbol missing?\n";
    const std::string bogus = "file:  bogus arg numeral\n";
    const struct {
        std::string line;
        std::string first;
        std::string second;
    } cases[] = {
        {"", "", "file: why is line 0 empty?\n"},
        {"# text", "", "file:  line 0, why am I reading a comment?\n"},
        {"foo", near + "symbol missing\n", whyMissing},
        {std::string(255, 's') + ":x", near + "symbol too long\n", "ErrUtlNextSym:  Why is symbol bad?\n"},
        {"foo(", near + "\")\" missing\n", badLine},
        {"foo(1", near + "\")\" expected\n", badLine},
        {"foo(1;", near + "\")\" expected\n", badLine},
        {"foo(1 119): x", near + "numeral (11) out of range\n", bogus},
        {"foo(1 1 1 1 1 1 1 1 1 1 1): x", near + "too many arguments\n", "ErrUtlNextSym:  bogus arg list\n"},
        {"foo  x", near + "\":\" expected\n", badLine},
        {"foo ", near + "\":\" expected\n", badLine},
    };
    for (const auto& [line, first, second] : cases) {
        for (const bool building : {false, true}) {
            const ChildResult child = runInChild([&] {
                countHookCalls();
                const Parsed parsed = parse(line + "\nnext: good\n", building);
                EXPECT_TRUE(parsed.found);
                EXPECT_STREQ(parsed.entry.sym, "next");
                EXPECT_EQ(parsed.syntaxErr, !building || !first.empty());
                EXPECT_EQ(parsed.line, building ? 2 : 0);
                EXPECT_TRUE(!building || parsed.entry.loc == static_cast<long>(line.size() + 1));
                EXPECT_EQ(hookCalls, building ? 0 : 1);
            });
            EXPECT_EQ(child.exitStatus, 0) << line << child.out;
            std::string expected = building ? first : first + second;
            if (const size_t number = expected.find('%'); number != std::string::npos)
                expected[number] = building ? '1' : '0';
            EXPECT_EQ(child.err, expected);
            const std::string guarantee = "UTL_GUARANTEE failure in file errutl at line ";
            EXPECT_EQ(child.out.substr(0, guarantee.size()), building ? "" : guarantee) << child.out;
        }
    }
}

TEST(ErrUtlNextSym, EndOfFile) {
    for (const auto& [text, pending] : {std::pair("\n# only a comment\n", false), std::pair("foo: x\\\n", true)}) {
        const Parsed parsed = parse(text, true);
        EXPECT_FALSE(parsed.found);
        EXPECT_EQ(parsed.syntaxErr, pending);
    }
    testing::internal::CaptureStderr();
    EXPECT_TRUE(parse("foo: x\\\n", false).syntaxErr);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "file: unexpected eof\n");
}

} // namespace
