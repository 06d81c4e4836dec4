// The English messages against the code that asks for them.
#include <cstring>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <map>
#include <set>
#include <sstream>

#include "err/catalogue.h"

namespace {

const std::map<std::string, std::set<std::string>>& documentedKinds() {
    static const std::map<std::string, std::set<std::string>> kinds = {
        {"errmsg.line1", {"dd"}},       {"errmsg.line1a", {""}},     {"errmsg.line1b", {""}},
        {"errmsg.line1c", {""}},        {"errmsg.line3b", {""}},     {"errmsg.line3c", {""}},
        {"errmsg.line3d", {""}},        {"errmsg.line3e", {""}},     {"errmsg.line3f", {"dsd"}},
        {"errmsg.line3g", {"sd"}},      {"errmsg.line3h", {"d"}},    {"errmsg.line3i", {"d"}},
        {"errmsg.line4", {"d"}},        {"errmsg.userErrTxt", {""}}, {"errmsg.invalidErr", {""}},
        {"host.debugger1", {"s"}},      {"host.debugger2", {"s"}},   {"host.core2", {"ds"}},
        {"host.core3", {""}},           {"host.core4", {""}},        {"host.core5", {"s"}},
        {"host.core6", {"ds"}},         {"host.core7", {"s"}},       {"host.initfail", {"s"}},
        {"fault.errno", {"ds"}},        {"fault.date", {"s"}},       {"host.fork1", {"s"}},
        {"host.fork1a", {"s"}},         {"host.fork4", {"s"}},       {"host.fork5", {"d"}},
        {"host.fork6", {"d"}},          {"host.fork7", {"ds"}},      {"host.fork9a", {""}},
        {"host.fork9b", {""}},          {"host.forkClient", {"s"}},  {"host.fork10", {"s"}},
        {"host.fork11", {"s"}},         {"host.fork12", {""}},       {"host.fork13", {"d", "s"}},
        {"host.syscallfailed", {"ss"}}, {"host.serverfailed", {""}},
    };
    return kinds;
}

std::map<std::string, errmsgc::Entry> englishEntries() {
    std::vector<errmsgc::Entry> entries;
    EXPECT_TRUE(errmsgc::readCatalogue(TMQKCI_SOURCE_DIR "/messages/english.msg", entries));
    std::map<std::string, errmsgc::Entry> bySymbol;
    for (const errmsgc::Entry& entry : entries)
        bySymbol.emplace(entry.symbol, entry);
    return bySymbol;
}

// What a conversion of the pattern can show as its author meant it: %s shows anything.
bool fits(char conversion, char kind) {
    return conversion == 's' || (conversion == 'd' && kind == 'd');
}

std::vector<char> conversionsOf(const std::string& pattern) {
    std::vector<char> conversions;
    for (size_t at = pattern.find('%'); at != std::string::npos; at = pattern.find('%', at + 1)) {
        if (pattern[at + 1] != '%')
            at = std::min(pattern.find_first_of("diouxXcpneEfgGs", at), pattern.size());
        else
            ++at;
        if (pattern[at] != '%')
            conversions.push_back(pattern[at]);
    }
    return conversions;
}

TEST(EnglishMessages, FitTheKindsThatTheCodePasses) {
    const auto entries = englishEntries();
    std::map<std::string, std::set<std::string>> kinds = documentedKinds();
    for (int number = 0; number < 10000; ++number) {
        if (const char* const sym = ErrMsgGsErrNumToSym(number))
            kinds[sym] = {""};
    }
    EXPECT_EQ(kinds.size(), 119u + documentedKinds().size());
    for (const auto& [sym, lists] : kinds) {
        ASSERT_TRUE(entries.contains(sym)) << sym;
        const errmsgc::Entry& entry = entries.at(sym);
        const std::vector<char> conversions = conversionsOf(entry.pattern);
        ASSERT_EQ(conversions.size(), entry.argOrder.size()) << sym;
        EXPECT_FALSE(entry.pattern.empty()) << sym;
        for (const std::string& list : lists) {
            std::set<int> shown(entry.argOrder.begin(), entry.argOrder.end());
            EXPECT_EQ(shown.size(), list.size()) << sym << ": every argument is shown";
            for (size_t n = 0; n < conversions.size(); ++n) {
                ASSERT_LE(static_cast<size_t>(entry.argOrder[n]), list.size()) << sym;
                EXPECT_TRUE(fits(conversions[n], list[static_cast<size_t>(entry.argOrder[n]) - 1])) << sym;
            }
        }
    }
    for (const auto& [sym, entry] : entries)
        EXPECT_TRUE(kinds.contains(sym)) << sym << " is never asked for";
}

bool isSymbol(const std::string& literal) {
    const size_t dot = literal.find('.');
    const std::string family = literal.substr(0, dot);
    return (family == "errmsg" || family == "host" || family == "fault") && !literal.ends_with(".h") &&
           literal.find_first_of("\\/ %:|") == std::string::npos && dot + 1 < literal.size();
}

// A source file without the quotes that begin or end no literal.
std::string withoutQuotedQuotes(const std::filesystem::path& path) {
    std::stringstream text;
    text << std::ifstream(path).rdbuf();
    std::string source = text.str();
    for (const char* const quoted : {"\\\"", "'\"'"}) {
        for (size_t at = source.find(quoted); at != std::string::npos; at = source.find(quoted, at))
            source.erase(at, strlen(quoted));
    }
    return source;
}

TEST(EnglishMessages, HoldEverySymbolOfTheSources) {
    const auto entries = englishEntries();
    size_t found = 0;
    for (const auto& file : std::filesystem::recursive_directory_iterator(TMQKCI_SOURCE_DIR "/src")) {
        if (file.path().extension() != ".cpp")
            continue;
        std::stringstream source(withoutQuotedQuotes(file.path()));
        // Between two quotes stands a literal, or what separates it from the next one.
        std::string sym;
        std::string between;
        for (std::string piece; std::getline(source, between, '"') && std::getline(source, piece, '"');) {
            const bool sameStatement = between.find(';') == std::string::npos;
            if (isSymbol(piece)) {
                ++found;
                EXPECT_TRUE(entries.contains(piece)) << piece << " in " << file.path();
            } else if (sameStatement && documentedKinds().contains(sym) &&
                       piece.find_first_not_of("dnoxgs") == std::string::npos) {
                EXPECT_TRUE(documentedKinds().at(sym).contains(piece)) << sym << " in " << file.path();
            }
            sym = isSymbol(piece) ? piece : "";
        }
    }
    EXPECT_GT(found, 130u);
}

TEST(EnglishMessages, ShowNumberOrTextInOnePlace) {
    std::ifstream file(TMQKCI_SOURCE_DIR "/messages/english.msg");
    std::stringstream text;
    text << file.rdbuf();
    const OpenCatalogue catalogue(compileText(text.str()));
    EXPECT_TRUE(message("host.fork13", "d", 77).ends_with(": 77"));
    EXPECT_TRUE(message("host.fork13", "s", "reason").ends_with(": reason"));
    EXPECT_EQ(message("fault.errno", "ds", 2, "text"), "errno = 2 (text)");
}

} // namespace
