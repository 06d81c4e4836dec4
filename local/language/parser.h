// Reads source text into a tree.
#pragma once

#include "language/lexer.h"
#include "language/number.h"

#include <memory>

namespace local {

struct Literal {
    enum class Kind : uint8_t { Immediate, Number, Text, WideText, Symbol, Array, Bytes };

    Kind kind = Kind::Immediate;
    Oop immediate = nil;
    Number number;
    std::u16string text;
    std::vector<Literal> elements; // of Array and Bytes
};

struct Node;
using NodePointer = std::unique_ptr<Node>;

struct Node {
    enum class Kind : uint8_t {
        Literal,
        Name,
        Assign,  // name := child
        Send,    // children: receiver, arguments
        Cascade, // children: receiver, then Sends whose receiver is null
        Block,   // children: statements; a whole source and a method are blocks too
        Return,
        Brace, // children: elements
    };

    Kind kind;
    uint32_t position;
    uint32_t height = 1; // of the tree, limited so that nothing that walks it can exhaust the stack
    std::string name;    // of a variable, or a selector
    Literal literal;
    std::vector<NodePointer> children;
    std::vector<std::string> parameters;
    std::vector<std::string> temporaries;
};

// Both throw a Failure that tells the position.
NodePointer parseExpression(std::u16string_view source);
// A method: its pattern, then its body; the node's name is the selector.
NodePointer parseMethod(std::u16string_view source);

} // namespace local
