// The codes of a report's values, and the identifiers that carry their value in themselves.
#pragma once

#include "kcirecords.h"

#include <jni.h>

// "objType" of a report that stands for a Java-side value; the others are the client's KciObjImplEType.
constexpr jbyte objTypeJavaValue = -1;

// "valueType" of a report.
enum ValueCode : jbyte {
    valueNone = -1,
    valueNil = 0,
    valueBoolean = 1,
    valueCharacter = 2,
    valueInteger = 3,
    valueFloat = 4,
    valueBytes = 5,
    valueOops = 6,
    valueString = 7,
    valueDbString = 8,
    valueDateTime = 9
};

// Whether the identifier carries its value in itself.
constexpr bool isSpecial(OopType oop) {
    return (oop & 2) != 0;
}
// What the value of such an identifier is, nil aside.
constexpr bool isBoolean(OopType oop) {
    return (oop & 0x1F) == 6;
}
constexpr bool isCharacter(OopType oop) {
    return (oop & 0x1F) == 14;
}
constexpr bool isSmallInteger(OopType oop) {
    return (oop & 3) == 3;
}

constexpr OopType characterOop(jlong code) {
    return (static_cast<OopType>(code & 0xFFFF) << 5) | 14;
}
constexpr KciLong smallIntegerValue(OopType oop) {
    return static_cast<KciLong>(oop) >> 2;
}
