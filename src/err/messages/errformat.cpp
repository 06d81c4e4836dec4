#include "err/messages/errformat.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <iterator>

#include "host/base/upwardcalls.h"

namespace {

// A string argument contributes at most this many characters.
constexpr size_t maxArgumentText = 2048;
// Padding beyond it cannot be told apart in the output, whatever is padded.
constexpr int maxWidth = 4096;

const char* shown(const char* text) {
    return text != nullptr ? text : "(null)";
}

std::string_view argumentText(const char* text) {
    std::string_view view = shown(text);
    if (view.size() > maxArgumentText) {
        printf("Warning: message argument truncated:\n%s\n", view.data());
        view = view.substr(0, maxArgumentText);
    }
    return view;
}

// Writes the digits of a number, at most ten, up to the given end; returns the first of them.
char* writeDigits(char* end, uint32_t value) {
    do {
        *--end = static_cast<char>('0' + value % 10);
    } while ((value /= 10) != 0);
    return end;
}

bool appendDecimal(BoundedText& out, int32_t value) {
    char text[11];
    const auto magnitude = static_cast<uint32_t>(value);
    char* first = writeDigits(std::end(text), value < 0 ? 0 - magnitude : magnitude);
    if (value < 0) {
        *--first = '-';
    }
    return out.appendCut({first, std::end(text)});
}

bool appendObject(BoundedText& out, OopType object) {
    if ((object & 3) == 3) {
        return out.formatCut("SmallInteger(%ld)", static_cast<long>(static_cast<int32_t>(object) >> 2));
    }
    return out.formatCut("Oop(%lu)", static_cast<unsigned long>(object));
}

// The kind of argument for which a conversion letter is made; 0 for every other character.
constexpr char letterKind(char c) {
    switch (c) {
    case 'd':
    case 'i':
    case 'o':
    case 'u':
    case 'x':
    case 'X':
    case 'c':
    case 'p':
    case 'n':
        return 'd';
    case 'e':
    case 'E':
    case 'f':
    case 'g':
    case 'G':
        return 'g';
    case 's':
        return 's';
    default:
        return 0;
    }
}

// The kind of a conversion; one without a letter counts as a number's.
char baseKind(std::string_view conversion) {
    const char kind = letterKind(conversion.back());
    return kind ? kind : 'd';
}

// A conversion made safe to hand to snprintf: it takes exactly one argument of the type that belongs to its
// letter, its width and precision are bounded, and it writes nowhere but to the output.
struct SafeConversion {
    // Enough for '%', six flags, a width, a precision, two modifiers and the letter.
    char text[24];
    char letter = 0;
    bool plain = false; // nothing stands between percent sign and letter that has a meaning

    // FALSE for what is no conversion.
    bool parse(std::string_view conversion);
};

int takeNumber(std::string_view& rest) {
    int value = 0;
    for (; !rest.empty() && rest.front() >= '0' && rest.front() <= '9'; rest.remove_prefix(1)) {
        value = std::min(value * 10 + (rest.front() - '0'), maxWidth);
    }
    return value;
}

bool takeCharacter(std::string_view& rest, char c) {
    if (rest.empty() || rest.front() != c) {
        return false;
    }
    rest.remove_prefix(1);
    return true;
}

char* appendDigits(char* to, int value) {
    char digits[10];
    return std::copy(writeDigits(std::end(digits), static_cast<uint32_t>(value)), std::end(digits), to);
}

bool SafeConversion::parse(std::string_view conversion) {
    letter = conversion.back();
    if (conversion.size() < 2 || !letterKind(letter)) {
        return false;
    }
    std::string_view rest = conversion.substr(1, conversion.size() - 2);
    if (rest.empty()) {
        plain = true;
        return true;
    }

    // "%2$d": an argument's position is the entry's business.
    const size_t position = rest.find_first_not_of("0123456789");
    if (position != std::string_view::npos && position > 0 && rest[position] == '$') {
        rest.remove_prefix(position + 1);
    }

    char* end = text;
    *end++ = '%';
    constexpr std::string_view flags = "-+ #0'";
    for (const char flag : flags) {
        const std::string_view run = rest.substr(0, rest.find_first_not_of(flags));
        if (run.find(flag) != std::string_view::npos) {
            *end++ = flag;
        }
    }
    rest.remove_prefix(std::min(rest.find_first_not_of(flags), rest.size()));

    // A star would take an argument that was never passed.
    const int width = takeCharacter(rest, '*') ? 0 : takeNumber(rest);
    if (width > 0) {
        end = appendDigits(end, width);
    }
    int precision = -1;
    if (takeCharacter(rest, '.')) {
        precision = takeCharacter(rest, '*') ? -1 : takeNumber(rest);
    }
    if (precision >= 0) {
        *end++ = '.';
        end = appendDigits(end, precision);
    }
    // An argument is as wide as it is, whatever the modifier says; only the narrowing ones have an effect.
    const size_t modifiers = std::min(rest.find_first_not_of("hlqjztL"), rest.size());
    const auto halves = std::count(rest.begin(), rest.begin() + static_cast<std::ptrdiff_t>(modifiers), 'h');
    rest.remove_prefix(modifiers);
    if (!rest.empty()) {
        return false;
    }
    if (letterKind(letter) == 'd' && letter != 'c' && letter != 'p') {
        for (std::ptrdiff_t i = 0; i < std::min<std::ptrdiff_t>(halves, 2); ++i) {
            *end++ = 'h';
        }
    }
    plain = end == text + 1;
    *end++ = letter;
    *end = 0;
    return true;
}

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"

void appendWord(BoundedText& out, const SafeConversion& conversion, int32_t word) {
    if (conversion.letter == 'n') {
        return;
    }
    if (conversion.plain && (conversion.letter == 'd' || conversion.letter == 'i')) {
        appendDecimal(out, word);
        return;
    }
    char plainText[] = {'%', conversion.letter, 0};
    const char* const format = conversion.plain ? plainText : conversion.text;
    if (conversion.letter == 'p') {
        out.formatCut(format, reinterpret_cast<void*>(static_cast<uintptr_t>(static_cast<uint32_t>(word))));
    } else {
        out.formatCut(format, word);
    }
}

void appendReal(BoundedText& out, const SafeConversion& conversion, double real) {
    char plainText[] = {'%', conversion.letter, 0};
    out.formatCut(conversion.plain ? plainText : conversion.text, real);
}

void appendString(BoundedText& out, const SafeConversion& conversion, const char* text) {
    const std::string_view argument = argumentText(text);
    if (conversion.plain) {
        out.appendCut(argument);
    } else if (argument.size() < maxArgumentText) {
        out.formatCut(conversion.text, argument.data());
    } else {
        char cut[maxArgumentText + 1];
        cut[argument.copy(cut, maxArgumentText)] = 0;
        out.formatCut(conversion.text, cut);
    }
}

#pragma GCC diagnostic pop

// Renders an argument by its own kind. FALSE when it was cut.
bool appendByKind(BoundedText& out, char kind, const MessageArg& arg, const char* hexPrefix, const char* function) {
    switch (kind) {
    case 'd':
    case 'n':
        return appendDecimal(out, arg.word);
    case 'g':
        return out.formatCut("%g", arg.real);
    case 'o':
        return appendObject(out, static_cast<OopType>(arg.word));
    case 's':
        return out.appendCut(std::string_view(shown(arg.text)));
    case 'x':
        return out.formatCut("%s%lx", hexPrefix, static_cast<unsigned long>(static_cast<uint32_t>(arg.word)));
    default:
        fprintf(stderr, "%s: Illegal argument %c read\n", function, kind);
        HostCallDebugger();
        return appendDecimal(out, arg.word);
    }
}

// Takes the conversion at the beginning of the pattern off it: up to the first conversion letter, or all of it.
std::string_view takeConversion(std::string_view& pattern) {
    size_t length = 1;
    while (length < pattern.size() && !letterKind(pattern[length++])) {
    }
    const std::string_view conversion = pattern.substr(0, length);
    pattern.remove_prefix(length);
    return conversion;
}

void appendConversion(BoundedText& out, std::string_view conversion, int index, const ParsedEntry& entry,
                      const MessageArgs& args) {
    if (index >= entry.argListSize) {
        out.appendCut(conversion);
        return;
    }
    char kind = 's';
    MessageArg value;
    value.text = "[null]";
    const size_t argument = static_cast<size_t>(entry.argOrder[index] - 1);
    if (argument < args.kinds.size()) {
        kind = args.kinds[argument];
        value = args.values[argument];
    }

    if (kind != baseKind(conversion)) {
        if (kind == 's') {
            out.appendCut(argumentText(value.text));
        } else {
            appendByKind(out, kind, value, "", "mySprintf");
        }
        return;
    }
    SafeConversion safe;
    if (!safe.parse(conversion)) {
        out.appendCut(conversion);
    } else if (kind == 'd') {
        appendWord(out, safe, value.word);
    } else if (kind == 'g') {
        appendReal(out, safe, value.real);
    } else {
        appendString(out, safe, value.text);
    }
}

void appendCharacter(BoundedText& out, char c) {
    out.appendCut({&c, 1});
}

// Takes the escape behind a backslash off the pattern and appends what it stands for.
void appendEscape(BoundedText& out, std::string_view& pattern) {
    const char c = pattern.front();
    if (c >= '0' && c <= '7') {
        unsigned value = 0;
        for (; !pattern.empty() && pattern.front() >= '0' && pattern.front() <= '7'; pattern.remove_prefix(1)) {
            value = (value * 8 + static_cast<unsigned>(pattern.front() - '0')) % 256;
        }
        appendCharacter(out, static_cast<char>(value));
        return;
    }
    pattern.remove_prefix(1);
    constexpr std::string_view letters = "frntvb";
    constexpr std::string_view meanings = "\f\r\n\t\v\b";
    const size_t found = letters.find(c);
    appendCharacter(out, found == std::string_view::npos ? c : meanings[found]);
}

} // namespace

MessageArgs::MessageArgs(const char* kindsText, va_list list) : kinds(kindsText != nullptr ? kindsText : "") {
    given = kinds.size();
    kinds = kinds.substr(0, ERRMSG_MAX_ARGS);
    for (size_t i = 0; i < kinds.size(); ++i) {
        switch (kinds[i]) {
        case 'd':
        case 'n':
        case 'o':
        case 'x':
            values[i].word = va_arg(list, int32_t);
            break;
        case 'g':
            values[i].real = va_arg(list, double);
            break;
        case 's':
            values[i].text = va_arg(list, const char*);
            break;
        default:
            fputs("Unknown argkind in errmsg|buildString\n", stderr);
            HostCallDebugger();
            values[i].word = va_arg(list, int32_t);
            break;
        }
    }
}

void mySprintf(BoundedText& out, const ParsedEntry& entry, const MessageArgs& args) {
    std::string_view pattern = entry.pattern;
    for (int conversion = 0; !pattern.empty() && !out.full();) {
        const size_t literal =
            std::min(entry.hasEscapes ? pattern.find_first_of("%\\") : pattern.find('%'), pattern.size());
        out.appendCut(pattern.substr(0, literal));
        pattern.remove_prefix(literal);
        if (pattern.empty()) {
            break;
        }
        if (pattern.front() == '\\') {
            pattern.remove_prefix(1);
            if (!pattern.empty()) {
                appendEscape(out, pattern);
            }
        } else if (pattern.starts_with("%%")) {
            pattern.remove_prefix(2);
            out.appendCut("%");
        } else {
            appendConversion(out, takeConversion(pattern), conversion++, entry, args);
        }
    }
}

void desperateErr(BoundedText& out, std::string_view sym, const std::string_view* pat, const MessageArgs& args) {
    bool fits = out.appendCut("[");
    if (pat != nullptr) {
        fits = out.appendCut("\"") && out.appendCut(*pat) && out.appendCut("\" ");
    }
    fits = fits && out.appendCut(sym);
    for (size_t i = 0; fits && i < args.kinds.size(); ++i) {
        fits = out.appendCut(" ") && appendByKind(out, args.kinds[i], args.values[i], "0x", "desperateErr");
    }
    if (fits) {
        out.appendCut("]");
    }
}
