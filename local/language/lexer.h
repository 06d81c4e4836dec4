// Splits source text into tokens.
#pragma once

#include "language/failure.h"

#include <string>
#include <string_view>

namespace local {

enum class TokenKind : uint8_t {
    End,
    Identifier,
    Keyword, // an identifier with its colon
    Number,
    String,
    WideString, // w'...'
    Symbol,
    Character,
    Operator,
    Assign,
    Punctuation, // one of ^ . ; ( ) [ ] { } :
    ArrayStart,  // #(
    BytesStart,  // #[
};

struct Token {
    TokenKind kind = TokenKind::End;
    uint32_t position = 0; // of the first unit, from 0
    std::u16string text;

    bool is(char16_t punctuation) const { return kind == TokenKind::Punctuation && text[0] == punctuation; }
    bool isOperator(std::u16string_view op) const { return kind == TokenKind::Operator && text == op; }
};

// + - * and their like, of which operators consist.
bool isOperatorCharacter(char16_t c);
// self, super, nil, true, false: no variable can have these names.
bool isReservedWord(std::string_view word);

// Whether the name can follow # as it is, without quotes.
bool isSymbolWord(std::u16string_view name);

// An error in source text at a unit's position.
[[noreturn]] void failAt(std::u16string_view source, uint32_t position, const std::string& problem);

class Lexer {
public:
    explicit Lexer(std::u16string_view text) : source(text) {}

    Token next();
    std::u16string_view text() const { return source; }

private:
    char16_t peek(size_t ahead = 0) const { return at + ahead < source.size() ? source[at + ahead] : u'\0'; }
    bool atEnd() const { return at >= source.size(); }
    void skipBlanks();
    TokenKind readHash(std::u16string& text);
    std::u16string readQuoted();
    std::u16string readWord();
    std::u16string readOperator();
    std::u16string readNumberText();

    std::u16string_view source;
    uint32_t at = 0;
    bool afterOperand = false; // a minus sign here is an operator
};

} // namespace local
