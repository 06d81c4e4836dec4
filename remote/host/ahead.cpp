#include "host/ahead.h"

#include <cstdlib>
#include <iterator>

namespace remote {

namespace {

constexpr KciLong classHistoryIndex = 12;

// Identifiers that carry their value in themselves.
bool isSpecial(OopType oop) {
    return (oop & 2) != 0;
}
bool isSmallInteger(OopType oop) {
    return (oop & 3) == 3;
}
bool isBoolean(OopType oop) {
    return (oop & 0x1F) == 6;
}
bool isCharacter(OopType oop) {
    return (oop & 0x1F) == 14;
}

} // namespace

Sequence::~Sequence() {
    free(elements);
}

void Sequence::resultIs(OopType oop) {
    object = oop;
    stage = Stage::result;
}

void Sequence::elementsAre(const OopType* oops, uint64_t count) {
    stage = Stage::none;
    if (count > elementRoom) {
        auto* const larger = static_cast<OopType*>(realloc(elements, static_cast<size_t>(count) * sizeof(OopType)));
        if (larger == nullptr) {
            return;
        }
        elements = larger;
        elementRoom = static_cast<size_t>(count);
    }
    std::copy_n(oops, count, elements);
    elementCount = static_cast<size_t>(count);
    elementAt = 0;
    stage = Stage::elements;
}

void Sequence::savedOne(OopType oop, bool failed) {
    if (failed) {
        stage = Stage::none;
    } else if (stage == Stage::elements) {
        valueOf(oop);
    } else {
        object = oop;
        stage = Stage::saved;
    }
}

// Elements are dealt with in order.
void Sequence::valueOf(OopType oop) {
    if (stage == Stage::elements && elementAt < elementCount && elements[elementAt] == oop) {
        ++elementAt;
    } else {
        stage = Stage::none;
    }
}

void Sequence::infoOf(OopType oop, const KciObjInfoSType& record, const ByteType* body, ArraySizeType fetched,
                      const ByteType* request, size_t requestSize) {
    object = oop;
    description = record;
    hasParts = fetched >= sizeof firstParts;
    if (hasParts) {
        memcpy(firstParts, body, sizeof firstParts);
    }
    part = 0;
    if (requestSize <= sizeof infoRequest) {
        memcpy(infoRequest, request, requestSize);
        infoRequestSize = requestSize;
    }
    stage = Stage::described;
}

template <EntryId id>
bool Sequence::set(NextCall& call, Step step, const typename RowOf<id>::Arguments& arguments) {
    call.entry = id;
    call.step = step;
    Writer request(call.request, sizeof call.request);
    writeRequest<RowOf<id>>(request, arguments);
    call.size = static_cast<uint32_t>(sizeof call.request - request.room());
    return request.ok();
}

bool Sequence::setSave(NextCall& call, Step step, OopType oop) {
    return set<EntryId::KciSaveObjs>(call, step, {&oop, 1});
}

bool Sequence::setSpecialValue(NextCall& call, Step step, OopType oop) {
    if (isBoolean(oop)) {
        return set<EntryId::KciOopToBool>(call, step, {oop});
    }
    return isCharacter(oop) && set<EntryId::KciOopToChr>(call, step, {oop});
}

bool Sequence::nextOfBody(NextCall& call) {
    switch (description.objImpl) {
    case KCI_IMPL_BYTE:
        if (part > 0) {
            return false;
        }
        if (description.objClass == KCI_CLASS_FLOAT) {
            return set<EntryId::KciOopToFlt>(call, floatValue, {object});
        }
        return set<EntryId::KciIsKindOf>(call, stringKind, {object, KCI_CLASS_STRING_KIND});
    case KCI_IMPL_POINTER:
    case KCI_IMPL_NSC:
        if (description.objClass != KCI_CLASS_DATE_TIME || !hasParts) {
            return false;
        }
        while (part < std::size(firstParts) && isSmallInteger(firstParts[part])) {
            ++part;
        }
        return part < std::size(firstParts) && set<EntryId::KciOopToLong>(call, datePart, {firstParts[part]});
    default:
        return false;
    }
}

bool Sequence::nextElement(NextCall& call) {
    for (; elementAt < elementCount; ++elementAt) {
        const OopType oop = elements[elementAt];
        // No object at all: what the report stands for comes instead, and only the near side knows it.
        if (oop == KCI_OOP_NONE) {
            break;
        }
        if (needsNoCall(oop)) {
            continue;
        }
        return isSpecial(oop) ? setSpecialValue(call, specialElement, oop) : setSave(call, saveElement, oop);
    }
    return false;
}

OopType Sequence::nextSave() {
    if (stage != Stage::elements || (expected >> saveElement & 1) == 0) {
        return KCI_OOP_NONE;
    }
    while (elementAt < elementCount && needsNoCall(elements[elementAt])) {
        ++elementAt;
    }
    const OopType oop = elementAt < elementCount ? elements[elementAt] : KCI_OOP_NONE;
    return isSpecial(oop) ? KCI_OOP_NONE : oop;
}

bool Sequence::next(NextCall& call) {
    switch (stage) {
    case Stage::none:
    case Stage::made:
        return false;
    case Stage::filled:
        return set<EntryId::KciNewOop>(call, newObject, {madeOf});
    case Stage::result:
        if (object == KCI_OOP_NONE || object == KCI_OOP_ILLEGAL || object == KCI_OOP_NIL) {
            return false;
        }
        return isSpecial(object) ? setSpecialValue(call, specialValue, object) : setSave(call, saveResult, object);
    case Stage::saved:
        if (infoRequestSize == 0) {
            return false;
        }
        call.entry = EntryId::KciFetchObjInfo;
        call.step = info;
        call.size = static_cast<uint32_t>(infoRequestSize);
        memcpy(call.request, infoRequest, infoRequestSize);
        memcpy(call.request, &object, sizeof object);
        return true;
    case Stage::described:
        return set<EntryId::KciFetchNamedOop>(call, classHistory, {description.objClass, classHistoryIndex});
    case Stage::withHistory:
    case Stage::dateParts:
        return nextOfBody(call);
    case Stage::string:
        return set<EntryId::KciIsKindOf>(call, doubleByteKind, {object, KCI_CLASS_DB_STRING});
    case Stage::elements:
        return nextElement(call);
    }
    return false;
}

} // namespace remote
