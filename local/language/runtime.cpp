#include "language/runtime.h"

#include "language/collections.h"
#include "language/compiler.h"
#include "language/prelude.h"
#include "language/primitives.h"
#include "language/text.h"

#include <algorithm>

namespace local {

namespace kernel {

namespace {

struct ClassRow {
    const char* name;
    Oop oop;
    Oop superclass;
    Body body;
    bool indexable;
    std::string_view variables; // separated by blanks
};

constexpr ClassRow classRows[] = {
#define ROW(name, oop, superclass, body, indexable, variables)                                                         \
    {#name, oop, superclass, Body::body, indexable, variables},
    KERNEL_CLASSES(ROW)
#undef ROW
};

constexpr Shape classShape{Class, Body::Pointer, false, class_slot::count};

} // namespace

bool inherits(const View& view, Oop cls, Oop ancestor) {
    for (; cls != nil; cls = view.slot(cls, class_slot::superclass)) {
        if (cls == ancestor) {
            return true;
        }
    }
    return false;
}

bool isKindOf(const View& view, Oop oop, Oop cls) {
    return inherits(view, classOf(view, oop), cls);
}

Shape shapeOf(const View& view, Oop cls) {
    return {cls, static_cast<Body>(smallIntegerValue(view.slot(cls, class_slot::body))),
            view.slot(cls, class_slot::indexable) == KCI_OOP_TRUE,
            static_cast<uint32_t>(smallIntegerValue(view.slot(cls, class_slot::namedSize)))};
}

Oop newInstance(const View& view, Oop cls, uint32_t size) {
    return view.create(shapeOf(view, cls), size);
}

} // namespace kernel

Runtime::Runtime() {
    makeClasses();
    addPrimitives();
    addPrelude();
    isComplete = true;
}

void Runtime::noteMethod(Oop cls, Oop selector) {
    bool isNumeric =
        cls == kernel::Object || cls == kernel::Number || cls == kernel::Integer || cls == kernel::SmallInteger;
    std::string name = bytesOf(systemView(), selector);
    arithmeticChanged = arithmeticChanged || (isComplete && isNumeric &&
                                              std::find(std::begin(arithmeticSelectors), std::end(arithmeticSelectors),
                                                        name) != std::end(arithmeticSelectors));
    ++methodEpoch;
}

Oop Runtime::symbol(std::string_view name) {
    auto found = symbols.find(std::string(name));
    if (found == symbols.end()) {
        Oop oop = store.create(store.systemSession(), {kernel::Symbol, Body::Byte, true, 0},
                               static_cast<uint32_t>(name.size()));
        store.writeBytes(store.systemSession(), oop, 0, {reinterpret_cast<const ByteType*>(name.data()), name.size()});
        found = symbols.emplace(name, oop).first;
    }
    return found->second;
}

Oop Runtime::kernelGlobal(Oop name) const {
    auto found = kernelGlobals.find(name);
    return found == kernelGlobals.end() ? KCI_OOP_NONE : found->second;
}

Store::Progress Runtime::commit(Store::Session& session, bool checked, uint32_t steps) {
    auto visit = [this](Oop, Oop cls, Oop firstSlot, const Mark& mark) {
        if (CodeId code = codeOf(cls, firstSlot); code >= 0) {
            codes.visit(code, mark);
        }
    };
    Store::Progress progress = store.commit(session, visit, checked, steps);
    // The next transaction may see other methods.
    ++methodEpoch;
    return progress;
}

void Runtime::abort(Store::Session& session) {
    store.abort(session);
    ++methodEpoch;
}

CodeId Runtime::codeOf(Oop cls, Oop firstSlot) {
    bool hasCode = (cls == kernel::Block || cls == kernel::Method) && isSmallInteger(firstSlot);
    return hasCode ? smallIntegerValue(firstSlot) : -1;
}

void Runtime::addRoots(const Mark& mark) const {
    for (const auto& [name, oop] : kernelGlobals) {
        mark(name);
    }
}

void Runtime::makeClasses() {
    View view = systemView();
    for (const kernel::ClassRow& row : kernel::classRows) {
        store.createAt(row.oop, kernel::classShape, 0);
    }
    for (const kernel::ClassRow& row : kernel::classRows) {
        using namespace kernel;
        std::vector<Oop> names;
        for (std::string_view rest = row.variables; !rest.empty();) {
            size_t end = std::min(rest.find(' '), rest.size());
            names.push_back(symbol(rest.substr(0, end)));
            rest.remove_prefix(std::min(end + 1, rest.size()));
        }
        auto count = static_cast<int32_t>(names.size());
        Oop variables = view.create(arrayShape, static_cast<uint32_t>(count));
        for (uint32_t i = 0; i < names.size(); ++i) {
            view.setSlot(variables, i, names[i]);
        }
        Oop history = view.create(arrayShape, 1);
        view.setSlot(history, 0, row.oop);
        view.setSlot(row.oop, class_slot::name, symbol(row.name));
        view.setSlot(row.oop, class_slot::superclass, row.superclass);
        view.setSlot(row.oop, class_slot::body, smallIntegerOop(static_cast<int32_t>(row.body)));
        view.setSlot(row.oop, class_slot::variables, variables);
        view.setSlot(row.oop, class_slot::methods, view.create(methodDictionaryShape, 0));
        view.setSlot(row.oop, class_slot::classMethods, view.create(methodDictionaryShape, 0));
        view.setSlot(row.oop, class_slot::indexable, booleanOop(row.indexable));
        view.setSlot(row.oop, class_slot::namedSize, smallIntegerOop(count)); // no kernel class inherits variables
        view.setSlot(row.oop, class_slot::history, history);
        kernelGlobals[symbol(row.name)] = row.oop;
    }
    store.createAt(kernel::systemObject, {kernel::System, Body::Pointer, false, 0}, 0);
    store.createAt(kernel::sharedDictionary, {kernel::Dictionary, Body::Unordered, false, 0}, 0);
    store.createAt(kernel::errorCategory, {kernel::ErrorCategory, Body::Pointer, false, 0}, 0);
    for (Oop oop : kernel::plainObjects) {
        store.createAt(oop, {kernel::KernelObject, Body::Pointer, false, 0}, 0);
    }
    kernelGlobals[symbol("System")] = kernel::systemObject;
    kernelGlobals[symbol("Shared")] = kernel::sharedDictionary;
}

void Runtime::addPrimitives() {
    std::span<const Primitive> all = primitives();
    for (size_t i = 0; i < all.size(); ++i) {
        addMethod(*this, systemView(), all[i].cls, all[i].classSide, symbol(all[i].selector),
                  -1 - static_cast<int32_t>(i), nil);
    }
}

void Runtime::addPrelude() {
    View view = systemView();
    for (const PreludeMethod& method : preludeMethods()) {
        std::u16string source = decodeText(method.source);
        CompiledMethod compiled = compileMethod(*this, view, method.cls, method.classSide, source);
        addMethod(*this, view, method.cls, method.classSide, symbol(compiled.selector), compiled.code,
                  newText(view, source));
    }
}

void addMethod(Runtime& runtime, const View& view, Oop cls, bool classSide, Oop selector, int32_t code, Oop source) {
    Oop method = view.create({kernel::Method, Body::Pointer, false, 3}, 0);
    view.setSlot(method, kernel::method_slot::code, smallIntegerOop(code));
    view.setSlot(method, kernel::method_slot::selector, selector);
    view.setSlot(method, kernel::method_slot::source, source);
    if (code >= 0) {
        runtime.codes.keep(code);
    }
    Oop methods = view.slot(cls, classSide ? kernel::class_slot::classMethods : kernel::class_slot::methods);
    dictionaryAtPut(view, methods, selector, method);
    runtime.noteMethod(cls, selector);
}

} // namespace local
