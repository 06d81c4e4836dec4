// The expansion of patterns. The input is a line of kinds, a line of numerals and a pattern.
#include <algorithm>
#include <cstdarg>
#include <cstdint>
#include <cstring>
#include <string_view>

#include "err/messages/errformat.h"
#include "quiet.h"

namespace {

std::string_view takeLine(std::string_view& input) {
    const std::string_view line = input.substr(0, input.find('\n'));
    input.remove_prefix(std::min(line.size() + 1, input.size()));
    return line;
}

void expand(const ParsedEntry& entry, const char* kinds, ...) {
    va_list list;
    va_start(list, kinds);
    const MessageArgs args(kinds, list);
    va_end(list);
    char text[maxMessageText + 2];
    text[maxMessageText + 1] = 'z';
    BoundedText out(text, maxMessageText + 1);
    mySprintf(out, entry, args);
    if (out.length() > maxMessageText || text[maxMessageText + 1] != 'z')
        abort();
    BoundedText quoted(text, 100 + 1);
    desperateErr(quoted, "symbol", &entry.pattern, args);
    if (quoted.length() > 100)
        abort();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const bool quiet = (beQuiet(), true);
    (void)quiet;
    std::string_view input(reinterpret_cast<const char*>(data), size);
    const std::string_view wanted = takeLine(input);
    const std::string_view numerals = takeLine(input);
    ParsedEntry entry{};
    entry.setPattern(input.substr(0, std::min(input.find('\0'), maxLogicalLine)));
    for (const char c : numerals.substr(0, ERRMSG_MAX_ARGS)) {
        const int numeral = std::clamp(c - '0', 1, ERRMSG_MAX_ARGS);
        entry.argOrder[entry.argListSize++] = static_cast<ByteType>(numeral);
        entry.expectedArgCount = std::max(entry.expectedArgCount, static_cast<ByteType>(numeral));
    }
    // Arguments stand in a fixed order, so kinds choose among fixed lists: words, texts or reals.
    const char kind = wanted.empty() ? 'd' : wanted.front();
    const size_t count = std::min<size_t>(wanted.size(), ERRMSG_MAX_ARGS);
    char kinds[ERRMSG_MAX_ARGS + 1] = {};
    switch (kind) {
    case 's': {
        static const char longText[] = "text\xff%n";
        memset(kinds, 's', count);
        expand(entry, kinds, longText, "", longText, nullptr, longText, "x", "y", "z", longText, longText);
        break;
    }
    case 'g':
        memset(kinds, 'g', count);
        expand(entry, kinds, 1.5, -1e308, 0.0, 1e-320, 2.0, 3.0, 4.0, 5.0, 6.0, 7.0);
        break;
    default:
        // The caller's own letters, known or not, all of them words.
        for (size_t i = 0; i < count; ++i)
            kinds[i] = wanted[i] == 's' || wanted[i] == 'g' || wanted[i] == 0 ? 'd' : wanted[i];
        expand(entry, kinds, 1, -1, 0x7fffffff, 0, 15, 16, 255, 100, -5, 42);
        break;
    }
    return 0;
}
