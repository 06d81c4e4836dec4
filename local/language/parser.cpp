#include "language/parser.h"

#include <algorithm>

namespace local {

namespace {

// Callers may run on small stacks (a Java thread of a 32-bit virtual machine has 320 KiB).
constexpr uint32_t maxHeight = 250; // of the tree: a long chain of messages is high, too
constexpr uint32_t maxNesting = 60; // of brackets in the text
constexpr size_t maxArguments = 200;

std::string narrow(std::u16string_view text) {
    return {text.begin(), text.end()};
}

class Parser {
public:
    explicit Parser(std::u16string_view source) : lexer(source) { advance(); }

    NodePointer expression() {
        NodePointer body = make(Node::Kind::Block);
        parseTemporaries(*body);
        parseStatements(*body);
        expectEnd();
        return body;
    }

    NodePointer method() {
        NodePointer body = make(Node::Kind::Block);
        parsePattern(*body);
        parseTemporaries(*body);
        parseStatements(*body);
        expectEnd();
        return body;
    }

private:
    void advance() { token = lexer.next(); }
    [[noreturn]] void fail(const std::string& problem) { failAt(lexer.text(), token.position, problem); }
    void expectEnd() {
        if (token.kind != TokenKind::End) {
            fail("this belongs to no expression");
        }
    }

    NodePointer make(Node::Kind kind) {
        NodePointer node = std::make_unique<Node>();
        node->kind = kind;
        node->position = token.position;
        return node;
    }

    void adopt(Node& parent, NodePointer child) {
        parent.height = std::max(parent.height, child->height + 1);
        if (parent.height > maxHeight) {
            fail("expressions are nested too deeply");
        }
        parent.children.push_back(std::move(child));
    }

    // What opened at a position and never closes is reported where it opened.
    void checkHasEnd(uint32_t opening, const char* what) {
        if (token.kind == TokenKind::End) {
            failAt(lexer.text(), opening, std::string("the ") + what + " has no end");
        }
    }

    void expectClosing(char16_t closing, uint32_t opening, const char* what) {
        checkHasEnd(opening, what);
        if (!token.is(closing)) {
            fail(std::string("expected ") + static_cast<char>(closing) + " to end the " + what +
                 " that begins at position " + std::to_string(opening + 1));
        }
        advance();
    }

    std::string takeIdentifier(const char* what) {
        if (token.kind != TokenKind::Identifier) {
            fail(std::string("expected ") + what);
        }
        std::string name = narrow(token.text);
        if (isReservedWord(name)) {
            fail(name + " cannot be the name of a variable");
        }
        advance();
        return name;
    }

    void parsePattern(Node& method) {
        if (token.kind == TokenKind::Identifier) {
            method.name = narrow(token.text);
            advance();
        } else if (token.kind == TokenKind::Operator) {
            method.name = narrow(token.text);
            advance();
            method.parameters.push_back(takeIdentifier("an argument name"));
        } else {
            while (token.kind == TokenKind::Keyword) {
                method.name += narrow(token.text);
                advance();
                method.parameters.push_back(takeIdentifier("an argument name"));
            }
        }
        if (method.name.empty()) {
            fail("expected a method's name");
        }
        checkCount(method.parameters.size());
    }

    void checkCount(size_t count) {
        if (count > maxArguments) {
            fail("too many arguments or variables");
        }
    }

    void parseTemporaries(Node& body) {
        while (token.isOperator(u"|")) {
            advance();
            while (!token.isOperator(u"|")) {
                body.temporaries.push_back(takeIdentifier("a variable name or |"));
                checkCount(body.temporaries.size());
            }
            advance();
        }
    }

    bool atBodyEnd() const { return token.kind == TokenKind::End || token.is(u']'); }

    void parseStatements(Node& body) {
        while (token.is(u'.')) {
            advance();
        }
        while (!atBodyEnd()) {
            adopt(body, parseStatement());
            if (!token.is(u'.') && !atBodyEnd()) {
                fail("expected a period or the end");
            }
            while (token.is(u'.')) {
                advance();
            }
        }
    }

    NodePointer parseStatement() {
        if (!token.is(u'^')) {
            return parseExpression();
        }
        NodePointer node = make(Node::Kind::Return);
        advance();
        adopt(*node, parseExpression());
        return node;
    }

    // Held by everything that brackets in the text can lead to again.
    class Nesting {
    public:
        explicit Nesting(Parser& owner) : parser(owner) {
            if (++parser.nesting > maxNesting) {
                parser.fail("expressions are nested too deeply");
            }
        }
        ~Nesting() { --parser.nesting; }

    private:
        Parser& parser;
    };

    NodePointer parseExpression() {
        Nesting guard(*this);
        NodePointer first = parsePrimary();
        if (first->kind == Node::Kind::Name && token.kind == TokenKind::Assign) {
            if (isReservedWord(first->name)) {
                fail(first->name + " cannot be assigned to");
            }
            first->kind = Node::Kind::Assign;
            advance();
            adopt(*first, parseExpression());
        } else {
            first = parseCascade(parseKeywordSend(parseBinarySends(parseUnarySends(std::move(first)))));
        }
        return first;
    }

    NodePointer send(std::string selector, NodePointer receiver, uint32_t position) {
        NodePointer node = make(Node::Kind::Send);
        node->position = position;
        node->name = std::move(selector);
        if (receiver) {
            adopt(*node, std::move(receiver));
        } else {
            node->children.push_back(nullptr);
        }
        return node;
    }

    NodePointer parseUnarySends(NodePointer receiver) {
        while (token.kind == TokenKind::Identifier) {
            uint32_t position = token.position;
            std::string selector = narrow(token.text);
            advance();
            receiver = send(std::move(selector), std::move(receiver), position);
        }
        return receiver;
    }

    NodePointer parseBinaryPart(NodePointer receiver) {
        uint32_t position = token.position;
        std::string selector = narrow(token.text);
        advance();
        NodePointer node = send(std::move(selector), std::move(receiver), position);
        adopt(*node, parseUnarySends(parsePrimary()));
        return node;
    }

    NodePointer parseBinarySends(NodePointer receiver) {
        while (token.kind == TokenKind::Operator) {
            receiver = parseBinaryPart(std::move(receiver));
        }
        return receiver;
    }

    NodePointer parseKeywordSend(NodePointer receiver) {
        if (token.kind != TokenKind::Keyword) {
            return receiver;
        }
        NodePointer node = send("", std::move(receiver), token.position);
        while (token.kind == TokenKind::Keyword) {
            node->name += narrow(token.text);
            advance();
            adopt(*node, parseBinarySends(parseUnarySends(parsePrimary())));
            checkCount(node->children.size() - 1);
        }
        return node;
    }

    NodePointer parseCascade(NodePointer first) {
        if (!token.is(u';')) {
            return first;
        }
        if (first->kind != Node::Kind::Send) {
            fail("a cascade follows a message");
        }
        NodePointer cascade = make(Node::Kind::Cascade);
        adopt(*cascade, std::move(first->children[0]));
        adopt(*cascade, std::move(first));
        while (token.is(u';')) {
            advance();
            adopt(*cascade, parseCascadedMessage());
        }
        return cascade;
    }

    NodePointer parseCascadedMessage() {
        if (token.kind == TokenKind::Identifier) {
            NodePointer node = send(narrow(token.text), nullptr, token.position);
            advance();
            return node;
        }
        if (token.kind == TokenKind::Operator) {
            return parseBinaryPart(nullptr);
        }
        if (token.kind != TokenKind::Keyword) {
            fail("a message should follow ;");
        }
        return parseKeywordSend(nullptr);
    }

    NodePointer parsePrimary() {
        NodePointer node = nullptr;
        switch (token.kind) {
        case TokenKind::Identifier:
            node = make(Node::Kind::Name);
            node->name = narrow(token.text);
            advance();
            return node;
        case TokenKind::Punctuation:
            return parseBracketed();
        case TokenKind::End:
            fail("the expression is not complete");
        case TokenKind::Operator:
        case TokenKind::Keyword:
        case TokenKind::Assign:
            fail("an expression should stand here");
        default:
            node = make(Node::Kind::Literal);
            node->literal = parseLiteral();
            return node;
        }
    }

    NodePointer parseBracketed() {
        uint32_t opening = token.position;
        if (token.is(u'(')) {
            advance();
            NodePointer node = parseExpression();
            expectClosing(u')', opening, "parenthesis");
            return node;
        }
        if (token.is(u'[')) {
            return parseBlock();
        }
        if (!token.is(u'{')) {
            fail("an expression should stand here");
        }
        NodePointer node = make(Node::Kind::Brace);
        advance();
        while (!token.is(u'}')) {
            checkHasEnd(opening, "array");
            adopt(*node, parseExpression());
            if (!token.is(u'.')) {
                break;
            }
            advance();
        }
        expectClosing(u'}', opening, "array");
        return node;
    }

    NodePointer parseBlock() {
        NodePointer block = make(Node::Kind::Block);
        advance();
        while (token.is(u':')) {
            advance();
            block->parameters.push_back(takeIdentifier("a block argument"));
            checkCount(block->parameters.size());
        }
        if (!block->parameters.empty() && !token.is(u']')) {
            checkHasEnd(block->position, "block");
            if (!token.isOperator(u"|")) {
                fail("expected | after the block's arguments");
            }
            advance();
        }
        parseTemporaries(*block);
        parseStatements(*block);
        expectClosing(u']', block->position, "block");
        return block;
    }

    Literal parseLiteral() {
        Literal literal;
        switch (token.kind) {
        case TokenKind::Number:
            literal = numberLiteral(narrow(token.text));
            break;
        case TokenKind::String:
            literal = textLiteral(Literal::Kind::Text);
            break;
        case TokenKind::WideString:
            literal = textLiteral(Literal::Kind::WideText);
            break;
        case TokenKind::Symbol:
            literal = textLiteral(Literal::Kind::Symbol);
            if (std::any_of(literal.text.begin(), literal.text.end(), [](char16_t c) { return c > 0xFF; })) {
                fail("a symbol holds single-byte characters only");
            }
            break;
        case TokenKind::Character:
            literal.immediate = characterOop(token.text[0]);
            break;
        case TokenKind::ArrayStart:
            return parseLiteralArray();
        case TokenKind::BytesStart:
            return parseLiteralBytes();
        default:
            fail("a literal should stand here");
        }
        advance();
        return literal;
    }

    Literal numberLiteral(const std::string& text) {
        std::optional<Number> number = readNumber(text);
        if (!number) {
            fail("not a number, or one beyond 64 bits");
        }
        Literal literal;
        literal.kind = Literal::Kind::Number;
        literal.number = *number;
        return literal;
    }

    Literal textLiteral(Literal::Kind kind) {
        Literal literal;
        literal.kind = kind;
        literal.text = std::move(token.text);
        return literal;
    }

    // Inside a literal array words are symbols, and parentheses nest further arrays.
    Literal parseLiteralArray() {
        Nesting guard(*this);
        Literal array;
        array.kind = Literal::Kind::Array;
        uint32_t opening = token.position;
        advance();
        while (!token.is(u')')) {
            checkHasEnd(opening, "array");
            array.elements.push_back(parseArrayElement());
        }
        advance();
        return array;
    }

    Literal parseArrayElement() {
        if (token.is(u'(')) {
            return parseLiteralArray();
        }
        if (token.isOperator(u"-")) {
            uint32_t position = token.position;
            advance();
            if (token.kind == TokenKind::Number && token.position == position + 1) {
                Literal literal = numberLiteral("-" + narrow(token.text));
                advance();
                return literal;
            }
            Literal minus;
            minus.kind = Literal::Kind::Symbol;
            minus.text.push_back(u'-');
            return minus;
        }
        if (token.kind != TokenKind::Identifier && token.kind != TokenKind::Keyword &&
            token.kind != TokenKind::Operator) {
            return parseLiteral();
        }
        Literal word = textLiteral(Literal::Kind::Symbol);
        if (word.text == u"nil" || word.text == u"true" || word.text == u"false") {
            word.kind = Literal::Kind::Immediate;
            word.immediate = word.text == u"nil" ? nil : booleanOop(word.text == u"true");
        }
        advance();
        return word;
    }

    Literal parseLiteralBytes() {
        Nesting guard(*this);
        Literal bytes;
        bytes.kind = Literal::Kind::Bytes;
        uint32_t opening = token.position;
        advance();
        while (!token.is(u']')) {
            checkHasEnd(opening, "array");
            Literal element = parseLiteral();
            if (element.kind != Literal::Kind::Number || element.number.isFloat || element.number.integer < 0 ||
                element.number.integer > 255) {
                fail("a byte array holds integers from 0 to 255");
            }
            bytes.elements.push_back(std::move(element));
        }
        advance();
        return bytes;
    }

    Lexer lexer;
    Token token;
    uint32_t nesting = 0;
};

} // namespace

NodePointer parseExpression(std::u16string_view source) {
    return Parser(source).expression();
}

NodePointer parseMethod(std::u16string_view source) {
    return Parser(source).method();
}

} // namespace local
