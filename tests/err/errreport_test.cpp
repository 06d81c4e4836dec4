// Reports of client errors, and the banner lines.
#include <cstring>
#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "err/catalogue.h"
#include "vermsg.h"

namespace {

std::vector<std::string> pieces;
void collect(const char* text) {
    pieces.emplace_back(text);
}
void showObject(ErrMsgPrinterFuncType* printer, OopType object) {
    printer(("<" + std::to_string(object) + ">").c_str());
}

KciErrSType makeError(const char* text) {
    KciErrSType error{3613, 2010, 20, {}, {100, 4294967295u}, 2, FALSE};
    snprintf(error.message, sizeof error.message, "%s", text);
    return error;
}

// The pieces, each with a bar behind it.
std::string report(const KciErrSType& error, int errorNum, BoolType displayOops, int errsInProgress) {
    pieces.clear();
    ErrMsgWriteError(collect, showObject, &error, errorNum, displayOops, errsInProgress);
    std::string all;
    for (const std::string& piece : pieces)
        all += piece + "|";
    return all;
}

const std::string rule = "-----------------------------------------------------\n";

TEST(ErrMsgWriteError, RendersEveryVariant) {
    const OpenCatalogue catalogue(compileText(
        "errmsg.line1(1 2):E %d/%d\nerrmsg.line1a:E\nerrmsg.line1b:fatal\nerrmsg.line1c:mild\nerrmsg.line3b:int\n"
        "errmsg.line3c:fint\nerrmsg.line3d:sys\nerrmsg.line3e:user\nerrmsg.line3f(1 2 3):C %d %s N %d\n"
        "errmsg.line3g(1 2):%s N %d\nerrmsg.line3h(1):A %d\nerrmsg.line3i(1): X %d\nerrmsg.line4(1):Arg %d: \n"));
    KciErrSType error = makeError("two\nlines");
    EXPECT_EQ(report(error, 1, FALSE, 1), rule + "|E                       mild|\n|two|\n|lines|\n|"
                                                 "sys N 2010              A 2|\n|"
                                                 "Arg 1: |<100>|\n|Arg 2: |<4294967295>|\n|");
    error.fatal = TRUE;
    error.argCount = 0;
    error.number = 2183;
    EXPECT_EQ(report(error, 2, TRUE, 3), rule + "|E 2/3                   fatal|\n|two|\n|lines|\n|"
                                                "C 3613 int N 2183       A 0 X 20|\n|");
    error.number = 4126;
    EXPECT_NE(report(error, 1, FALSE, 1).find("|fint N 4126"), std::string::npos);
    error.category = 0xFFFFFFFFu;
    error.argCount = 12;
    memset(error.message, 'm', sizeof error.message);
    const std::string full = report(error, 1, TRUE, 1);
    EXPECT_NE(full.find("|C -1 user N 4126        A 12 X 20|\n|"), std::string::npos) << full;
    EXPECT_TRUE(full.ends_with("Arg 10: |<0>|\n|"));
    EXPECT_NE(full.find("|" + std::string(80, 'm') + "|\n|m|\n|C"), std::string::npos) << full;
    error.argCount = -1;
    EXPECT_EQ(report(error, 1, TRUE, 1).find("Arg"), std::string::npos);
}

TEST(ErrMsgWriteError, WrapsLines) {
    const auto a = [](size_t count) { return std::string(count, 'a'); };
    const std::pair<std::string, std::vector<std::string>> cases[] = {
        {a(81), {a(80), "a"}},
        {a(80) + " b", {a(80), "b"}},
        {a(65) + " b", {a(65), "b"}},
        {a(78) + "\177b", {a(78) + "\177", "b"}},
        {a(79) + "\1b", {a(79) + "\1", "b"}},
        {a(76) + "\t\r\7\303b", {a(76) + "\t\r\a\303", "b"}},
    };
    for (const auto& [text, lines] : cases) {
        KciErrSType error = makeError(text.c_str());
        error.argCount = 0;
        report(error, 1, FALSE, 1);
        // The rule, line one and its end come first, line three and its end last.
        std::vector<std::string> expected;
        for (const std::string& line : lines)
            expected.insert(expected.end(), {line, "\n"});
        EXPECT_EQ(std::vector(pieces.begin() + 3, pieces.end() - 2), expected) << text;
    }
}

TEST(VerMessage, CentersWhatFits) {
    testing::internal::CaptureStdout();
    VerCenteredMessage(stdout, "middle");
    VerCenteredMessage(stdout, std::string(100, 'w').c_str());
    VerInfo(stdout);
    const std::string text = testing::internal::GetCapturedStdout();
    EXPECT_TRUE(text.starts_with(std::string(36, ' ') + "middle\n" + std::string(100, 'w') + "\n")) << text;
    EXPECT_NE(text.find("3.1.3"), std::string::npos);
}

} // namespace
