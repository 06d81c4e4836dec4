#include "language/lexer.h"

#include <algorithm>

namespace local {

namespace {

bool isDigit(char16_t c) {
    return c >= u'0' && c <= u'9';
}

bool isLetter(char16_t c) {
    return (c >= u'a' && c <= u'z') || (c >= u'A' && c <= u'Z') || c == u'_';
}

bool isBlank(char16_t c) {
    return c == u' ' || (c >= u'\t' && c <= u'\r') || c == 0xA0;
}

} // namespace

bool isOperatorCharacter(char16_t c) {
    return c != 0 && std::u16string_view(u"+-*/\\<>=~,@%&?|").find(c) != std::u16string_view::npos;
}

bool isReservedWord(std::string_view word) {
    return word == "self" || word == "super" || word == "nil" || word == "true" || word == "false";
}

bool isSymbolWord(std::u16string_view name) {
    auto [start, end] = std::pair{name.begin(), name.end()};
    if (name.empty() || isOperatorCharacter(name[0])) {
        return !name.empty() && name.size() <= 2 && std::all_of(start, end, isOperatorCharacter) &&
               (name.size() == 1 || name.find(u'|') == name.npos);
    }
    return isLetter(name[0]) &&
           std::all_of(start, end, [](char16_t c) { return isLetter(c) || isDigit(c) || c == u':'; });
}

void failAt(std::u16string_view source, uint32_t position, const std::string& problem) {
    auto before = source.substr(0, std::min<size_t>(position, source.size()));
    auto line = 1 + std::count(before.begin(), before.end(), u'\n');
    size_t lineStart = before.rfind(u'\n') + 1; // npos + 1 is 0
    throw Failure(ErrorNumber::BadMessageParts,
                  "syntax error at position " + std::to_string(position + 1) + " (line " + std::to_string(line) +
                      ", column " + std::to_string(before.size() - lineStart + 1) + "): " + problem,
                  {smallIntegerOop(static_cast<int32_t>(position + 1))});
}

void Lexer::skipBlanks() {
    while (!atEnd()) {
        if (isBlank(peek())) {
            ++at;
        } else if (peek() == u'"') {
            uint32_t start = at++;
            while (!atEnd() && peek() != u'"') {
                ++at;
            }
            if (atEnd()) {
                failAt(source, start, "the comment has no end");
            }
            ++at;
        } else {
            return;
        }
    }
}

Token Lexer::next() {
    skipBlanks();
    Token token;
    token.position = at;
    if (atEnd()) {
        return token;
    }
    char16_t c = peek();
    bool negative = c == u'-' && isDigit(peek(1)) && !afterOperand;
    if (c == u'w' && peek(1) == u'\'') {
        ++at;
        token.kind = TokenKind::WideString;
        token.text = readQuoted();
    } else if (isLetter(c)) {
        token.kind = TokenKind::Identifier;
        token.text = readWord();
        if (peek() == u':' && peek(1) != u'=') {
            token.kind = TokenKind::Keyword;
            token.text += source[at++];
        }
    } else if (isDigit(c) || negative) {
        token.kind = TokenKind::Number;
        token.text = readNumberText();
    } else if (c == u'\'') {
        token.kind = TokenKind::String;
        token.text = readQuoted();
    } else if (c == u'$') {
        if (at + 1 >= source.size()) {
            failAt(source, at, "a character is missing after $");
        }
        token.kind = TokenKind::Character;
        token.text = source[at + 1];
        at += 2;
    } else if (c == u'#') {
        ++at;
        token.kind = readHash(token.text);
    } else if (c == u':' && peek(1) == u'=') {
        token.kind = TokenKind::Assign;
        at += 2;
    } else if (isOperatorCharacter(c)) {
        token.kind = TokenKind::Operator;
        token.text = readOperator();
    } else if (std::u16string_view(u"^.;()[]{}:").find(c) != std::u16string_view::npos) {
        token.kind = TokenKind::Punctuation;
        token.text = c;
        ++at;
    } else {
        failAt(source, at, "this character has no meaning here");
    }
    afterOperand = token.kind == TokenKind::Identifier || token.kind == TokenKind::Number ||
                   token.kind == TokenKind::String || token.kind == TokenKind::WideString ||
                   token.kind == TokenKind::Symbol || token.kind == TokenKind::Character || token.is(u')') ||
                   token.is(u']') || token.is(u'}');
    return token;
}

// What follows #: a symbol, or the start of a literal array.
TokenKind Lexer::readHash(std::u16string& text) {
    char16_t c = peek();
    if (c == u'(' || c == u'[') {
        ++at;
        return c == u'(' ? TokenKind::ArrayStart : TokenKind::BytesStart;
    }
    if (c == u'\'') {
        text = readQuoted();
    } else if (isOperatorCharacter(c)) {
        text = readOperator();
    } else if (isLetter(c)) {
        while (isLetter(peek()) || isDigit(peek()) || (peek() == u':' && peek(1) != u'=')) {
            text += source[at++];
        }
    } else {
        failAt(source, at, "a symbol or a literal array should follow #");
    }
    return TokenKind::Symbol;
}

std::u16string Lexer::readQuoted() {
    uint32_t start = at++;
    std::u16string text;
    for (;;) {
        if (atEnd()) {
            failAt(source, start, "the string has no end");
        }
        char16_t c = source[at++];
        if (c == u'\'') {
            if (peek() != u'\'') {
                return text;
            }
            ++at;
        }
        text += c;
    }
}

std::u16string Lexer::readWord() {
    std::u16string text;
    while (isLetter(peek()) || isDigit(peek())) {
        text += source[at++];
    }
    return text;
}

// One or two characters; a minus sign before a digit is the number's.
std::u16string Lexer::readOperator() {
    std::u16string text(1, source[at++]);
    if (isOperatorCharacter(peek()) && text != u"|" && peek() != u'|' && !(peek() == u'-' && isDigit(peek(1)))) {
        text += source[at++];
    }
    return text;
}

std::u16string Lexer::readNumberText() {
    std::u16string text(1, source[at++]);
    auto takeDigits = [&] {
        while (isDigit(peek())) {
            text += source[at++];
        }
    };
    takeDigits();
    if (peek() == u'r') {
        text += source[at++];
        while (isDigit(peek()) || (peek() >= u'A' && peek() <= u'Z')) {
            text += source[at++];
        }
        return text;
    }
    if (peek() == u'.' && isDigit(peek(1))) {
        text += source[at++];
        takeDigits();
    }
    size_t sign = peek(1) == u'-' || peek(1) == u'+' ? 1 : 0;
    if (peek() == u'e' && isDigit(peek(1 + sign))) {
        for (size_t i = 0; i <= sign; ++i) {
            text += source[at++];
        }
        takeDigits();
    }
    return text;
}

} // namespace local
