// The English messages against the code that asks for them.
#include <algorithm>
#include <filesystem>
#include <gtest/gtest.h>
#include <map>
#include <regex>
#include <set>

#include "err/catalogue.h"

namespace {

const std::multimap<std::string, std::string> documentedKinds = {
    {"errmsg.line1", "dd"},    {"errmsg.line1a", ""},        {"errmsg.line1b", ""},     {"errmsg.line1c", ""},
    {"errmsg.line3b", ""},     {"errmsg.line3c", ""},        {"errmsg.line3d", ""},     {"errmsg.line3e", ""},
    {"errmsg.line3f", "dsd"},  {"errmsg.line3g", "sd"},      {"errmsg.line3h", "d"},    {"errmsg.line3i", "d"},
    {"errmsg.line4", "d"},     {"errmsg.userErrTxt", ""},    {"errmsg.invalidErr", ""}, {"host.debugger1", "s"},
    {"host.debugger2", "s"},   {"host.core2", "ds"},         {"host.core3", ""},        {"host.core4", ""},
    {"host.core5", "s"},       {"host.core6", "ds"},         {"host.core7", "s"},       {"host.initfail", "s"},
    {"fault.errno", "ds"},     {"fault.date", "s"},          {"host.fork1", "s"},       {"host.fork1a", "s"},
    {"host.fork4", "s"},       {"host.fork5", "d"},          {"host.fork6", "d"},       {"host.fork7", "ds"},
    {"host.fork9a", ""},       {"host.fork9b", ""},          {"host.forkClient", "s"},  {"host.fork10", "s"},
    {"host.fork11", "s"},      {"host.fork12", ""},          {"host.fork13", "d"},      {"host.fork13", "s"},
    {"host.serverfailed", ""}, {"host.syscallfailed", "ss"},
};

std::map<std::string, errmsgc::Entry> englishEntries() {
    std::vector<errmsgc::Entry> entries;
    EXPECT_TRUE(errmsgc::readCatalogue(TMQKCI_SOURCE_DIR "/messages/english.msg", entries));
    std::map<std::string, errmsgc::Entry> bySymbol;
    for (const errmsgc::Entry& entry : entries)
        bySymbol.emplace(entry.symbol, entry);
    return bySymbol;
}

TEST(EnglishMessages, FitTheKindsThatTheCodePasses) {
    const auto entries = englishEntries();
    std::multimap<std::string, std::string> kinds = documentedKinds;
    std::set<std::string> numbered;
    for (int number = 0; number < 10000; ++number) {
        if (const char* const sym = ErrMsgGsErrNumToSym(number); sym && numbered.insert(sym).second)
            kinds.emplace(sym, "");
    }
    EXPECT_EQ(numbered.size(), 119u);
    const std::regex conversion("%[^%diouxXcpneEfgGs]*(.)");
    for (const auto& [sym, list] : kinds) {
        SCOPED_TRACE(sym);
        ASSERT_TRUE(entries.contains(sym));
        const errmsgc::Entry& entry = entries.at(sym);
        const std::set<int> shown(entry.argOrder.begin(), entry.argOrder.end());
        EXPECT_EQ(shown.size(), list.size()) << "every argument is shown";
        size_t n = 0;
        for (std::sregex_iterator at(entry.pattern.begin(), entry.pattern.end(), conversion), end; at != end; ++at) {
            const std::string letter = (*at)[1];
            if (letter == "%")
                continue;
            ASSERT_LT(n, entry.argOrder.size());
            const auto argument = static_cast<size_t>(entry.argOrder[n++]) - 1;
            ASSERT_LT(argument, list.size());
            // As its author meant it: %s shows anything.
            EXPECT_TRUE(letter == "s" || (letter == "d" && list[argument] == 'd')) << letter;
        }
        EXPECT_EQ(n, entry.argOrder.size());
    }
    for (const auto& [sym, entry] : entries)
        EXPECT_TRUE(kinds.contains(sym)) << sym << " is never asked for";
}

TEST(EnglishMessages, HoldEverySymbolOfTheSources) {
    const auto entries = englishEntries();
    const std::regex symbol("\"((errmsg|host|fault)\\.(?!h\")\\w+)\"(\\s*[,:][^;\"]*\"([dnoxgs]*)\")?");
    size_t found = 0;
    for (const auto& file : std::filesystem::recursive_directory_iterator(TMQKCI_SOURCE_DIR "/src")) {
        if (file.path().extension() != ".cpp")
            continue;
        const std::string source = contentsOf(file.path());
        for (std::sregex_iterator at(source.begin(), source.end(), symbol), end; at != end; ++at, ++found) {
            const std::string sym = (*at)[1];
            EXPECT_TRUE(entries.contains(sym)) << sym << " in " << file.path();
            const auto [first, last] = documentedKinds.equal_range(sym);
            const auto fits = [&](const auto& documented) { return documented.second == (*at)[4]; };
            if ((*at)[3].matched && first != last) {
                EXPECT_TRUE(std::any_of(first, last, fits)) << at->str() << " in " << file.path();
            }
        }
    }
    EXPECT_GT(found, 130u);
}

} // namespace
