// Turns a tree into code.
#pragma once

#include "language/parser.h"
#include "language/runtime.h"

namespace local {

// An expression: its last statement's value is the result; a name that is assigned to without a declaration is a
// global of the session.
CodeId compileExpression(Runtime& runtime, const View& view, std::u16string_view source);

struct CompiledMethod {
    std::string selector;
    CodeId code;
};
CompiledMethod compileMethod(Runtime& runtime, const View& view, Oop cls, bool classSide, std::u16string_view source);

// The names of a class's variables, inherited ones first.
std::vector<std::string> allVariableNames(const View& view, Oop cls);

} // namespace local
