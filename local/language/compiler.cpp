#include "language/compiler.h"

#include "language/text.h"

#include <algorithm>
#include <map>

namespace local {

namespace {

struct Function;

struct Variable {
    Function* owner;
    bool shared = false; // with a block: it lives in a scope object
    uint32_t index = 0;  // in the frame, or in the scope
};

// An expression, a method or a block that is not compiled in line.
struct Function {
    const Node* node;
    Function* outer;
    std::map<std::string, Variable> variables;
    bool needsScope = false;
};

enum class Inline : uint8_t { No, IfTrue, IfFalse, IfTrueIfFalse, IfFalseIfTrue, And, Or, WhileTrue, WhileFalse };

// A block can be compiled in line when it has no variables of its own, which every evaluation would have to renew.
bool isPlainBlock(const NodePointer& node) {
    return node->kind == Node::Kind::Block && node->parameters.empty() && node->temporaries.empty();
}

Inline inlineKind(const Node& send) {
    static const auto& kinds = *new std::map<std::string, Inline>{
        {"ifTrue:", Inline::IfTrue},
        {"ifFalse:", Inline::IfFalse},
        {"ifTrue:ifFalse:", Inline::IfTrueIfFalse},
        {"ifFalse:ifTrue:", Inline::IfFalseIfTrue},
        {"and:", Inline::And},
        {"or:", Inline::Or},
        {"whileTrue:", Inline::WhileTrue},
        {"whileFalse:", Inline::WhileFalse},
    };
    auto found = kinds.find(send.name);
    bool isCascaded = !send.children[0];
    if (isCascaded || found == kinds.end() ||
        !std::all_of(send.children.begin() + 1, send.children.end(), isPlainBlock)) {
        return Inline::No;
    }
    bool loops = found->second == Inline::WhileTrue || found->second == Inline::WhileFalse;
    return !loops || isPlainBlock(send.children[0]) ? found->second : Inline::No;
}

class Compiler {
public:
    Compiler(Runtime& run, const View& sessionView, std::u16string_view text, Oop methodClass, bool classMethod)
        : runtime(run), view(sessionView), source(text), cls(methodClass), isClassMethod(classMethod) {
        if (cls != nil) {
            fields = allVariableNames(view, isClassMethod ? Oop{kernel::Class} : cls);
        }
    }

    CodeId compile(const Node& body) {
        isMethod = cls != nil;
        root = enter(body, nullptr);
        analyzeAll(body.children, root);
        return generateFunction(*root);
    }

private:
    [[noreturn]] void fail(const Node& node, const std::string& problem) { failAt(source, node.position, problem); }

    // --- names -------------------------------------------------------------------------------------------------

    Function* enter(const Node& node, Function* outer) {
        auto function = std::make_unique<Function>();
        function->node = &node;
        function->outer = outer;
        for (const auto* names : {&node.parameters, &node.temporaries}) {
            for (const std::string& name : *names) {
                if (!function->variables.emplace(name, Variable{function.get()}).second) {
                    fail(node, "the variable " + name + " is declared twice");
                }
            }
        }
        return (functions[&node] = std::move(function)).get();
    }

    static Variable* find(Function* function, const std::string& name) {
        for (; function != nullptr; function = function->outer) {
            if (auto found = function->variables.find(name); found != function->variables.end()) {
                return &found->second;
            }
        }
        return nullptr;
    }

    void refer(const std::string& name, Function* function) {
        Variable* variable = find(function, name);
        if (variable != nullptr && variable->owner != function) {
            variable->shared = true;
            variable->owner->needsScope = true;
        }
    }

    void analyzeAll(const std::vector<NodePointer>& nodes, Function* function) {
        for (const NodePointer& node : nodes) {
            if (node) {
                analyze(*node, function);
            }
        }
    }

    // Finds out which variables are shared with blocks, and which blocks return from their method.
    void analyze(const Node& node, Function* function) {
        if (node.kind == Node::Kind::Block) {
            analyzeAll(node.children, enter(node, function));
            return;
        }
        if (node.kind == Node::Kind::Name || node.kind == Node::Kind::Assign) {
            refer(node.name, function);
        } else if (node.kind == Node::Kind::Return && function != root) {
            root->needsScope = true;
        } else if (node.kind == Node::Kind::Send && inlineKind(node) != Inline::No) {
            for (const NodePointer& child : node.children) {
                if (isPlainBlock(child)) {
                    analyzeAll(child->children, function);
                } else {
                    analyze(*child, function);
                }
            }
            return;
        }
        analyzeAll(node.children, function);
    }

    // --- code --------------------------------------------------------------------------------------------------

    struct Unit {
        Function* function;
        Code* code;
        std::unordered_map<Oop, int32_t> literalIndices;
        int32_t depth = 0; // of the stack, beyond the temporaries
        int32_t maxDepth = 0;
    };

    static int32_t stackEffect(Operation operation, int32_t operand, int32_t a) {
        switch (operation) {
        case Operation::StoreTemporary:
        case Operation::StoreScoped:
        case Operation::StoreVariable:
        case Operation::StoreGlobal:
        case Operation::Jump:
            return 0;
        case Operation::Pop:
        case Operation::JumpTrue:
        case Operation::JumpFalse:
        case Operation::Return:
        case Operation::ReturnHome:
        case Operation::SendArithmetic:
            return -1;
        case Operation::Send:
        case Operation::SendSuper:
            return -a;
        case Operation::MakeArray:
            return 1 - operand;
        default:
            return 1;
        }
    }

    uint32_t emit(Unit& unit, Operation operation, int32_t operand = 0, uint32_t a = 0) {
        unit.code->instructions.push_back({operation, static_cast<uint8_t>(a), operand});
        unit.depth += stackEffect(operation, operand, static_cast<int32_t>(a));
        unit.maxDepth = std::max(unit.maxDepth, unit.depth);
        return static_cast<uint32_t>(unit.code->instructions.size() - 1);
    }

    static int32_t here(const Unit& unit) { return static_cast<int32_t>(unit.code->instructions.size()); }
    static void land(Unit& unit, uint32_t jump) { unit.code->instructions[jump].operand = here(unit); }

    static int32_t literalIndex(Unit& unit, Oop literal) {
        auto& literals = unit.code->literals;
        auto [found, isNew] = unit.literalIndices.emplace(literal, static_cast<int32_t>(literals.size()));
        if (isNew) {
            literals.push_back(literal);
        }
        return found->second;
    }

    int32_t symbolIndex(Unit& unit, const std::string& name) { return literalIndex(unit, runtime.symbol(name)); }

    CodeId generateFunction(Function& function) {
        auto code = std::make_unique<Code>();
        Unit unit{&function, code.get(), {}, 0, 0};
        code->isBlock = &function != root;
        code->needsScope = function.needsScope;
        code->owner = cls;
        code->isClassMethod = isClassMethod;
        code->argumentCount = static_cast<uint32_t>(function.node->parameters.size());
        uint32_t inFrame = code->argumentCount;
        for (const std::string& name : function.node->temporaries) {
            placeVariable(function.variables.at(name), *code, inFrame);
        }
        for (uint32_t i = 0; i < code->argumentCount; ++i) {
            Variable& variable = function.variables.at(function.node->parameters[i]);
            uint32_t argument = i;
            placeVariable(variable, *code, argument);
            variable.index = variable.shared ? variable.index : i;
            if (variable.shared) {
                emit(unit, Operation::PushTemporary, static_cast<int32_t>(i));
                emit(unit, Operation::StoreScoped, static_cast<int32_t>(variable.index));
                emit(unit, Operation::Pop);
            }
        }
        code->temporaryCount = inFrame - code->argumentCount;
        generateBody(unit, function.node->children, code->isBlock || !isMethod);
        emit(unit, Operation::Return);
        code->stackNeed = code->temporaryCount + static_cast<uint32_t>(unit.maxDepth) + 1;
        return runtime.codes.add(std::move(code));
    }

    static void placeVariable(Variable& variable, Code& code, uint32_t& inFrame) {
        variable.index = variable.shared ? ++code.scopedCount : inFrame++; // slot 0 of a scope is the outer one
    }

    // Leaves the last statement's value on the stack; a method that ends without ^ answers the receiver.
    void generateBody(Unit& unit, const std::vector<NodePointer>& statements, bool answersLast) {
        for (size_t i = 0; i < statements.size(); ++i) {
            generate(unit, *statements[i]);
            if (!answersLast || i + 1 < statements.size()) {
                emit(unit, Operation::Pop);
            }
        }
        if (!answersLast) {
            emit(unit, Operation::PushSelf);
        } else if (statements.empty()) {
            emit(unit, Operation::PushOop, static_cast<int32_t>(nil));
        }
    }

    void generate(Unit& unit, const Node& node) {
        switch (node.kind) {
        case Node::Kind::Literal:
            generateLiteral(unit, node.literal);
            break;
        case Node::Kind::Name:
            generateName(unit, node);
            break;
        case Node::Kind::Assign:
            generate(unit, *node.children[0]);
            generateStore(unit, node);
            break;
        case Node::Kind::Send:
            generateSend(unit, node);
            break;
        case Node::Kind::Cascade:
            generateCascade(unit, node);
            break;
        case Node::Kind::Block: {
            CodeId block = generateFunction(*functions.at(&node));
            unit.code->blocks.push_back(block);
            emit(unit, Operation::MakeBlock, block);
            break;
        }
        case Node::Kind::Return:
            generate(unit, *node.children[0]);
            emit(unit, unit.function == root ? Operation::Return : Operation::ReturnHome);
            break;
        case Node::Kind::Brace:
            for (const NodePointer& element : node.children) {
                generate(unit, *element);
            }
            emit(unit, Operation::MakeArray, static_cast<int32_t>(node.children.size()));
            break;
        }
    }

    // How many scope objects lie between the running function and the variable's.
    static uint32_t scopeDistance(const Function* from, const Function* owner) {
        uint32_t distance = 0;
        for (; from != owner; from = from->outer) {
            distance += from->needsScope ? 1 : 0;
        }
        return distance;
    }

    void accessVariable(Unit& unit, const Variable& variable, Operation inFrame, Operation scoped) {
        if (variable.shared) {
            emit(unit, scoped, static_cast<int32_t>(variable.index), scopeDistance(unit.function, variable.owner));
        } else {
            emit(unit, inFrame, static_cast<int32_t>(variable.index));
        }
    }

    int32_t fieldIndex(const std::string& name) const {
        auto found = std::find(fields.rbegin(), fields.rend(), name);
        return found == fields.rend() ? -1 : static_cast<int32_t>(fields.rend() - found - 1);
    }

    void generateName(Unit& unit, const Node& node) {
        static const auto& constants =
            *new std::map<std::string, Oop>{{"nil", nil}, {"true", KCI_OOP_TRUE}, {"false", KCI_OOP_FALSE}};
        if (node.name == "self" || node.name == "super") {
            if (node.name == "super" && !isMethod) {
                fail(node, "super means something in a method only");
            }
            emit(unit, Operation::PushSelf);
        } else if (auto constant = constants.find(node.name); constant != constants.end()) {
            emit(unit, Operation::PushOop, static_cast<int32_t>(constant->second));
        } else if (const Variable* variable = find(unit.function, node.name)) {
            accessVariable(unit, *variable, Operation::PushTemporary, Operation::PushScoped);
        } else if (int32_t field = fieldIndex(node.name); field >= 0) {
            emit(unit, Operation::PushVariable, field);
        } else {
            emit(unit, Operation::PushGlobal, symbolIndex(unit, node.name));
        }
    }

    void generateStore(Unit& unit, const Node& node) {
        if (const Variable* variable = find(unit.function, node.name)) {
            accessVariable(unit, *variable, Operation::StoreTemporary, Operation::StoreScoped);
        } else if (int32_t field = fieldIndex(node.name); field >= 0) {
            if (isClassMethod || kernel::isSystemMade(cls)) {
                fail(node, "the variable " + node.name + " belongs to the system");
            }
            emit(unit, Operation::StoreVariable, field);
        } else if (Oop name = runtime.symbol(node.name); runtime.kernelGlobal(name) != KCI_OOP_NONE) {
            fail(node, node.name + " is the name of a kernel object");
        } else {
            emit(unit, Operation::StoreGlobal, literalIndex(unit, name));
        }
    }

    void generateLiteral(Unit& unit, const Literal& literal) {
        Oop value = makeLiteral(literal);
        if (!isReference(value)) {
            emit(unit, Operation::PushOop, static_cast<int32_t>(value));
            return;
        }
        // Strings and arrays are copied at each evaluation: code that changes one does not change the program.
        bool isConstant = literal.kind == Literal::Kind::Number || literal.kind == Literal::Kind::Symbol;
        emit(unit, isConstant ? Operation::PushLiteral : Operation::PushCopy, literalIndex(unit, value));
    }

    Oop makeLiteral(const Literal& literal) {
        switch (literal.kind) {
        case Literal::Kind::Immediate:
            return literal.immediate;
        case Literal::Kind::Number:
            return newNumber(view, literal.number);
        case Literal::Kind::Text:
            return newText(view, literal.text);
        case Literal::Kind::WideText:
            return newDoubleByteString(view, literal.text);
        case Literal::Kind::Symbol:
            return runtime.symbol(std::string(literal.text.begin(), literal.text.end()));
        case Literal::Kind::Array: {
            Oop array = kernel::newInstance(view, kernel::Array, static_cast<uint32_t>(literal.elements.size()));
            for (uint32_t i = 0; i < literal.elements.size(); ++i) {
                view.setSlot(array, i, makeLiteral(literal.elements[i]));
            }
            return array;
        }
        case Literal::Kind::Bytes: {
            std::vector<ByteType> bytes;
            for (const Literal& element : literal.elements) {
                bytes.push_back(static_cast<ByteType>(element.number.integer));
            }
            Oop array = kernel::newInstance(view, kernel::ByteArray, static_cast<uint32_t>(bytes.size()));
            view.writeBytes(array, 0, bytes);
            return array;
        }
        }
        return nil;
    }

    void generateSend(Unit& unit, const Node& node) {
        if (Inline kind = inlineKind(node); kind != Inline::No) {
            generateInline(unit, node, kind);
            return;
        }
        generate(unit, *node.children[0]);
        generateMessage(unit, node, sendTo(*node.children[0]));
    }

    static Operation sendTo(const Node& receiver) {
        bool isSuper = receiver.kind == Node::Kind::Name && receiver.name == "super";
        return isSuper ? Operation::SendSuper : Operation::Send;
    }

    void generateMessage(Unit& unit, const Node& node, Operation operation) {
        for (size_t i = 1; i < node.children.size(); ++i) {
            generate(unit, *node.children[i]);
        }
        auto arithmetic = std::find(std::begin(arithmeticSelectors), std::end(arithmeticSelectors), node.name);
        if (operation == Operation::Send && arithmetic != std::end(arithmeticSelectors)) {
            emit(unit, Operation::SendArithmetic, symbolIndex(unit, node.name),
                 static_cast<uint32_t>(arithmetic - std::begin(arithmeticSelectors)));
            return;
        }
        emit(unit, operation, symbolIndex(unit, node.name), static_cast<uint32_t>(node.children.size() - 1));
    }

    void generateCascade(Unit& unit, const Node& node) {
        generate(unit, *node.children[0]);
        for (size_t i = 1; i < node.children.size(); ++i) {
            bool last = i + 1 == node.children.size();
            if (!last) {
                emit(unit, Operation::Duplicate);
            }
            generateMessage(unit, *node.children[i], sendTo(*node.children[0]));
            if (!last) {
                emit(unit, Operation::Pop);
            }
        }
    }

    void generateInline(Unit& unit, const Node& node, Inline kind) {
        const auto& parts = node.children;
        switch (kind) {
        case Inline::IfTrue:
        case Inline::IfFalse:
        case Inline::IfTrueIfFalse:
        case Inline::IfFalseIfTrue: {
            bool onTrue = kind == Inline::IfTrue || kind == Inline::IfTrueIfFalse;
            generate(unit, *parts[0]);
            uint32_t toElse = emit(unit, onTrue ? Operation::JumpFalse : Operation::JumpTrue);
            generateBody(unit, parts[1]->children, true);
            uint32_t toEnd = emit(unit, Operation::Jump);
            --unit.depth; // the other branch begins without this one's value
            land(unit, toElse);
            if (parts.size() > 2) {
                generateBody(unit, parts[2]->children, true);
            } else {
                emit(unit, Operation::PushOop, static_cast<int32_t>(nil));
            }
            land(unit, toEnd);
            break;
        }
        case Inline::And:
        case Inline::Or: {
            generate(unit, *parts[0]);
            uint32_t toShort = emit(unit, kind == Inline::And ? Operation::JumpFalse : Operation::JumpTrue);
            generateBody(unit, parts[1]->children, true);
            uint32_t toEnd = emit(unit, Operation::Jump);
            --unit.depth; // the other branch begins without this one's value
            land(unit, toShort);
            emit(unit, Operation::PushOop, static_cast<int32_t>(booleanOop(kind == Inline::Or)));
            land(unit, toEnd);
            break;
        }
        default: {
            int32_t start = here(unit);
            generateBody(unit, parts[0]->children, true);
            uint32_t toEnd = emit(unit, kind == Inline::WhileTrue ? Operation::JumpFalse : Operation::JumpTrue);
            generateBody(unit, parts[1]->children, true);
            emit(unit, Operation::Pop);
            emit(unit, Operation::Jump, start);
            land(unit, toEnd);
            emit(unit, Operation::PushOop, static_cast<int32_t>(nil));
        }
        }
    }

    Runtime& runtime;
    const View& view;
    std::u16string_view source;
    Oop cls;
    bool isClassMethod;
    bool isMethod = false;
    std::vector<std::string> fields;
    Function* root = nullptr;
    std::map<const Node*, std::unique_ptr<Function>> functions;
};

} // namespace

CodeId compileExpression(Runtime& runtime, const View& view, std::u16string_view source) {
    NodePointer body = parseExpression(source);
    return Compiler(runtime, view, source, nil, false).compile(*body);
}

CompiledMethod compileMethod(Runtime& runtime, const View& view, Oop cls, bool classSide, std::u16string_view source) {
    NodePointer body = parseMethod(source);
    return {body->name, Compiler(runtime, view, source, cls, classSide).compile(*body)};
}

std::vector<std::string> allVariableNames(const View& view, Oop cls) {
    std::vector<Oop> chain;
    for (; cls != nil; cls = view.slot(cls, kernel::class_slot::superclass)) {
        chain.push_back(cls);
    }
    std::vector<std::string> names;
    for (auto it = chain.rbegin(); it != chain.rend(); ++it) {
        Oop own = view.slot(*it, kernel::class_slot::variables);
        for (uint32_t i = 0; i < view.size(own); ++i) {
            names.push_back(bytesOf(view, view.slot(own, i)));
        }
    }
    return names;
}

} // namespace local
