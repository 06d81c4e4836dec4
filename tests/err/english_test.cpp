// The English messages against the code that asks for them.
#include <filesystem>
#include <gtest/gtest.h>
#include <regex>
#include <set>

#include "err/catalogue.h"

namespace {

// The symbols that the sources and the numbers ask for, each with the kinds of arguments that it comes with.
std::set<std::pair<std::string, std::string>> askedFor(std::set<std::string>& symbols) {
    // Those that the sources hand on before they name the kinds. Others without kinds have no arguments.
    std::set<std::pair<std::string, std::string>> uses = {
        {"host.core2", "ds"}, {"host.core6", "ds"}, {"host.fork13", "d"}, {"host.fork5", "d"}, {"host.fork6", "d"},
    };
    const std::regex use("\"((errmsg|host|fault)\\.(?!h\")\\w+)\"(\\s*,[^;\"?:]*\"([dnoxgs]*)\")?");
    for (const auto& file : std::filesystem::recursive_directory_iterator(TMQKCI_SOURCE_DIR "/src")) {
        const std::string source = file.path().extension() == ".cpp" ? contentsOf(file.path()) : "";
        for (std::sregex_iterator at(source.begin(), source.end(), use), end; at != end; ++at) {
            symbols.insert((*at)[1]);
            if ((*at)[3].matched)
                uses.emplace((*at)[1], (*at)[4]);
        }
    }
    for (int number = 0; number < 10000; ++number) {
        if (const char* const sym = ErrMsgGsErrNumToSym(number))
            symbols.insert(sym);
    }
    for (const std::string& sym : symbols) {
        const auto used = uses.lower_bound({sym, ""});
        if (used == uses.end() || used->first != sym)
            uses.emplace(sym, "");
    }
    return uses;
}

TEST(EnglishMessages, FitTheKindsThatTheCodePasses) {
    std::vector<errmsgc::Entry> entries;
    ASSERT_TRUE(errmsgc::readCatalogue(TMQKCI_SOURCE_DIR "/messages/english.msg", entries));
    std::set<std::string> symbols;
    const auto uses = askedFor(symbols);
    EXPECT_GT(symbols.size(), 119u + 35u);
    const std::regex conversion("%[^%diouxXcpneEfgGs]*(.)");
    for (const errmsgc::Entry& entry : entries) {
        EXPECT_EQ(symbols.erase(entry.symbol), 1u) << entry.symbol << " is never asked for";
        for (auto used = uses.lower_bound({entry.symbol, ""}); used != uses.end() && used->first == entry.symbol;
             ++used) {
            SCOPED_TRACE(used->first + " with " + used->second);
            const std::string& kinds = used->second;
            const std::set<int> shown(entry.argOrder.begin(), entry.argOrder.end());
            EXPECT_EQ(shown.size(), kinds.size()) << "every argument is shown";
            size_t n = 0;
            for (std::sregex_iterator at(entry.pattern.begin(), entry.pattern.end(), conversion), end; at != end;
                 ++at) {
                const std::string letter = (*at)[1];
                if (letter == "%")
                    continue;
                ASSERT_LT(n, entry.argOrder.size());
                const auto argument = static_cast<size_t>(entry.argOrder[n++]) - 1;
                ASSERT_LT(argument, kinds.size());
                // As its author meant it: %s shows anything.
                EXPECT_TRUE(letter == "s" || (letter == "d" && kinds[argument] == 'd')) << letter;
            }
            EXPECT_EQ(n, entry.argOrder.size());
        }
    }
    EXPECT_TRUE(symbols.empty()) << *symbols.begin() << " has no text";
}

} // namespace
