// The kernel objects: fixed identifiers, and where the variables of the kernel's records stand.
#pragma once

#include "store/store.h"

#include <string_view>

namespace local::kernel {

// name, identifier, superclass, body, indexable, names of the added variables
#define KERNEL_CLASSES(ROW)                                                                                            \
    ROW(Object, 1001, None, Pointer, false, "")                                                                        \
    ROW(Class, 1005, Object, Pointer, false,                                                                           \
        "name superclass body variables methods classMethods indexable namedSize comment reserved1 reserved2 history") \
    ROW(Nil, 1009, Object, Pointer, false, "")                                                                         \
    ROW(Boolean, 1013, Object, Pointer, false, "")                                                                     \
    ROW(Number, 1017, Object, Pointer, false, "")                                                                      \
    ROW(Integer, 1021, Number, Pointer, false, "")                                                                     \
    ROW(SmallInteger, 1025, Integer, Pointer, false, "")                                                               \
    ROW(LargeInteger, 1029, Integer, Byte, true, "")                                                                   \
    ROW(Float, KCI_CLASS_FLOAT, Number, Byte, true, "")                                                                \
    ROW(Character, 1033, Object, Pointer, false, "")                                                                   \
    ROW(Collection, 1037, Object, Pointer, false, "")                                                                  \
    ROW(Sequence, 1041, Collection, Pointer, false, "")                                                                \
    ROW(Array, 1045, Sequence, Pointer, true, "")                                                                      \
    ROW(List, 1049, Sequence, Pointer, true, "")                                                                       \
    ROW(ByteArray, 1053, Sequence, Byte, true, "")                                                                     \
    ROW(Text, KCI_CLASS_STRING_KIND, Sequence, Byte, true, "")                                                         \
    ROW(String, KCI_CLASS_STRING, Text, Byte, true, "")                                                                \
    ROW(Symbol, 1057, Text, Byte, true, "")                                                                            \
    ROW(DoubleByteString, KCI_CLASS_DB_STRING, Text, Byte, true, "")                                                   \
    ROW(Bag, 1061, Collection, Unordered, false, "")                                                                   \
    ROW(Set, 1065, Bag, Unordered, false, "")                                                                          \
    ROW(Dictionary, 1069, Collection, Unordered, false, "")                                                            \
    ROW(Association, 1073, Object, Pointer, false, "key value")                                                        \
    ROW(Interval, 1077, Sequence, Pointer, false, "first last step")                                                   \
    ROW(DateTime, KCI_CLASS_DATE_TIME, Object, Pointer, false, "year dayOfYear milliseconds timeZone")                 \
    ROW(Block, 1081, Object, Pointer, false, "code scope receiver home")                                               \
    ROW(Method, 1085, Object, Pointer, false, "code selector source")                                                  \
    ROW(Scope, 1089, Object, Pointer, true, "outer")                                                                   \
    ROW(Process, 1093, Object, Pointer, false, "number message arguments")                                             \
    ROW(System, 1097, Object, Pointer, false, "")                                                                      \
    ROW(ErrorCategory, 1101, Object, Pointer, false, "")                                                               \
    ROW(KernelObject, 1105, Object, Pointer, false, "")                                                                \
    ROW(MethodDictionary, 1113, Object, Unordered, false, "")

enum ClassOop : Oop {
    None = nil,
#define ROW(name, oop, ...) name = oop,
    KERNEL_CLASSES(ROW)
#undef ROW
};

constexpr Shape arrayShape{Array, Body::Pointer, true, 0};
// Not a Dictionary: no message of code reaches into it.
constexpr Shape methodDictionaryShape{MethodDictionary, Body::Unordered, false, 0};

constexpr Oop systemObject = 1109;     // the global System
constexpr Oop sharedDictionary = 1189; // the global Shared: names that all sessions see
constexpr Oop errorCategory = KCI_CATEGORY_SYSTEM;
// Identifiers that a client knows from the start and that nothing here gives a meaning.
constexpr Oop plainObjects[] = {1197, 1209, 1213, 1733};

// Slots of a class; clients find the class history as named variable 12.
namespace class_slot {
enum : uint32_t {
    name,
    superclass,
    body,
    variables,
    methods,
    classMethods,
    indexable,
    namedSize,
    comment,
    history = 11,
    count
};
}
namespace association_slot {
enum : uint32_t { key, value };
}
namespace block_slot {
enum : uint32_t { code, scope, receiver, home };
}
namespace method_slot {
enum : uint32_t { code, selector, source };
}
namespace date_time_slot {
enum : uint32_t { year, dayOfYear, milliseconds, timeZone };
}

// The class of any identifier, immediate or not.
inline Oop classOf(const View& view, Oop oop) {
    if (isReference(oop)) {
        return view.classOf(oop);
    }
    if (isSmallInteger(oop)) {
        return SmallInteger;
    }
    if (isCharacter(oop)) {
        return Character;
    }
    if (isBoolean(oop)) {
        return Boolean;
    }
    if (oop == nil) {
        return Nil;
    }
    throw NoSuchObject{oop};
}

inline bool isClass(const View& view, Oop oop) {
    return isReference(oop) && view.exists(oop) && view.classOf(oop) == Class;
}

// Objects of these classes are made by the system only: their contents are its own.
constexpr bool isSystemMade(Oop cls) {
    switch (cls) {
    case Class:
    case Nil:
    case Boolean:
    case SmallInteger:
    case LargeInteger:
    case Character:
    case Symbol:
    case Block:
    case Method:
    case Scope:
    case Process:
    case System:
    case MethodDictionary:
        return true;
    default:
        return false;
    }
}

bool inherits(const View& view, Oop cls, Oop ancestor);
bool isKindOf(const View& view, Oop oop, Oop cls);
// How instances of a class look.
Shape shapeOf(const View& view, Oop cls);
Oop newInstance(const View& view, Oop cls, uint32_t size);

} // namespace local::kernel
