// Requests on objects: their descriptions, bodies and values, the export set and its changes.
#include "language/date_time.h"
#include "language/number.h"
#include "language/primitives.h"
#include "language/server.h"
#include "language/text.h"

namespace local {

namespace {

// The object's description; immediate values have no body to speak of.
Description needBody(const View& view, Oop oop) {
    if (isImmediate(oop)) {
        throw Failure(ErrorNumber::BadArgument, brief(view, oop) + " is a value without a body", {oop});
    }
    return view.describe(oop);
}

void needStart(const Request& request, int64_t last) {
    if (request.start < 1 || request.start > last) {
        throw Failure(ErrorNumber::BadOffset,
                      "the start index " + std::to_string(request.start) + " is not in the range 1 to " +
                          std::to_string(last),
                      {request.object});
    }
}

void needOwnMade(const View& view, Oop oop, const Description& description) {
    if (kernel::isSystemMade(description.shape.cls)) {
        throw Failure(ErrorNumber::BadArgument, "the contents of " + brief(view, oop) + " cannot be changed", {oop});
    }
}

[[noreturn]] void failBody(const View& view, Oop oop, const char* what) {
    throw Failure(ErrorNumber::BadArgument, brief(view, oop) + what, {oop});
}

void fetchInfo(const View& view, const Request& request, Reply& reply) {
    KciObjInfoSType& info = reply.info;
    info.objId = request.object;
    info.segment = nil;
    if (isImmediate(request.object)) {
        info.objClass = kernel::classOf(view, request.object);
        info.objImpl = KCI_IMPL_SPECIAL;
        info.isInvariant = 1;
        return;
    }
    Description description = view.describe(request.object);
    info.namedSize = static_cast<int32_t>(description.shape.named);
    info.objClass = description.shape.cls;
    info.objSize = static_cast<int32_t>(description.shape.named + description.size);
    info.isIndexable = description.shape.indexable ? 1 : 0;
    info.isInvariant = kernel::isSystemMade(description.shape.cls) ? 1 : 0;
    info.objImpl = static_cast<uint32_t>(description.shape.body) & 7;
    needStart(request, int64_t{info.objSize} + 1);
    auto start = static_cast<uint32_t>(request.start - 1);
    if (description.shape.body == Body::Byte) {
        reply.integer = static_cast<KciLong>(view.readBytes(request.object, start, request.room));
        return;
    }
    // The room holds whole identifiers; it need not be aligned for them.
    auto count = static_cast<uint32_t>(std::min<uint64_t>(request.room.size() / sizeof(Oop), info.objSize - start));
    for (uint32_t i = 0; i < count; ++i) {
        Oop value = view.slot(request.object, start + i);
        std::copy_n(reinterpret_cast<const ByteType*>(&value), sizeof value, request.room.data() + i * sizeof value);
    }
    reply.integer = static_cast<KciLong>(count);
}

// Reads from a range of slots: as many as there are, which is no error.
void fetchSlots(const View& view, const Request& request, Reply& reply, uint32_t first, uint32_t count) {
    needStart(request, INT32_MAX);
    auto offset = static_cast<uint32_t>(request.start - 1);
    if (offset >= count) {
        return;
    }
    auto room = request.objectRoom.first(std::min<size_t>(request.objectRoom.size(), count - offset));
    reply.integer = static_cast<KciLong>(view.store().readSlots(view.session(), request.object, first + offset, room));
}

void storeSlots(const View& view, const Request& request, uint32_t first) {
    uint32_t slot = first + static_cast<uint32_t>(request.start - 1);
    for (Oop value : request.objects) {
        view.setSlot(request.object, slot++, value);
    }
}

void fetchBytes(const View& view, const Request& request, Reply& reply) {
    if (needBody(view, request.object).shape.body != Body::Byte) {
        failBody(view, request.object, " has no bytes");
    }
    needStart(request, INT32_MAX);
    reply.integer =
        static_cast<KciLong>(view.readBytes(request.object, static_cast<uint32_t>(request.start - 1), request.room));
}

void fetchNamed(const View& view, const Request& request, Reply& reply) {
    Description description = needBody(view, request.object);
    fetchSlots(view, request, reply, 0, description.shape.named);
}

void fetchVariable(const View& view, const Request& request, Reply& reply) {
    needStart(request, needBody(view, request.object).shape.named);
    reply.object = view.slot(request.object, static_cast<uint32_t>(request.start - 1));
}

void fetchIndexed(const View& view, const Request& request, Reply& reply) {
    Description description = needBody(view, request.object);
    if (description.shape.body == Body::Byte) {
        failBody(view, request.object, " holds bytes, no references");
    }
    fetchSlots(view, request, reply, description.shape.named, description.size);
}

void storeBytes(const View& view, const Request& request) {
    Description description = needBody(view, request.object);
    if (description.shape.body != Body::Byte) {
        failBody(view, request.object, " has no bytes");
    }
    needOwnMade(view, request.object, description);
    if (request.secondObject != nil && request.secondObject != description.shape.cls) {
        throw Failure(ErrorNumber::BadArgument,
                      brief(view, request.object) + " is no instance of " + brief(view, request.secondObject),
                      {request.object, request.secondObject});
    }
    needStart(request, int64_t{description.size} + 1);
    view.writeBytes(request.object, static_cast<uint32_t>(request.start - 1), request.bytes);
}

void storeNamed(const View& view, const Request& request) {
    Description description = needBody(view, request.object);
    needOwnMade(view, request.object, description);
    needStart(request, int64_t{description.shape.named} + 1);
    if (request.objects.size() > description.shape.named - static_cast<uint32_t>(request.start - 1)) {
        throw Failure(ErrorNumber::BadOffset,
                      brief(view, request.object) + " has " + std::to_string(description.shape.named) +
                          " named variables",
                      {request.object});
    }
    needValues(view, request.objects);
    storeSlots(view, request, 0);
}

// Elements beyond the end make the object longer.
void storeIndexed(const View& view, const Request& request) {
    Description description = needBody(view, request.object);
    needOwnMade(view, request.object, description);
    if (description.shape.body != Body::Pointer || !description.shape.indexable) {
        failBody(view, request.object, " has no indexed references");
    }
    needStart(request, int64_t{description.size} + 1);
    needValues(view, request.objects);
    uint64_t end = static_cast<uint64_t>(request.start - 1) + request.objects.size();
    if (end > Store::maxElements) {
        throw StoreFull{};
    }
    if (end > description.size) {
        view.resize(request.object, static_cast<uint32_t>(end));
    }
    storeSlots(view, request, description.shape.named);
}

void newObject(const View& view, const Request& request, Reply& reply) {
    needClass(view, request.object);
    if (kernel::isSystemMade(request.object)) {
        throw Failure(ErrorNumber::BadArgument,
                      "objects of class " + className(view, request.object) + " cannot be made so", {request.object});
    }
    reply.object = kernel::newInstance(view, request.object, 0);
}

void toInteger(const View& view, const Request& request, Reply& reply) {
    std::optional<int64_t> value = integerOf(view, request.object);
    if (!value || *value < INT32_MIN || *value > INT32_MAX) {
        throw Failure(ErrorNumber::NotLong, brief(view, request.object) + " is not an integer of 32 bits",
                      {request.object});
    }
    reply.integer = static_cast<KciLong>(*value);
}

void toReal(const View& view, const Request& request, Reply& reply) {
    std::optional<Number> number = numberOf(view, request.object);
    if (!number || !number->isFloat) {
        throw Failure(ErrorNumber::NotFloat, brief(view, request.object) + " is not a float", {request.object});
    }
    reply.real = number->real;
}

void newDateTimeObject(const View& view, const Request& request, Reply& reply) {
    if (!kernel::inherits(view, needClass(view, request.object), kernel::DateTime)) {
        throw Failure(ErrorNumber::BadArgument, brief(view, request.object) + " is no class of date-times",
                      {request.object});
    }
    needValues(view, {&request.dateTime.timeZone, 1});
    reply.object = newDateTime(view, request.object, request.dateTime);
}

void saveObjects(const View& view, const Request& request) {
    needValues(view, request.objects);
    for (Oop oop : request.objects) {
        if (isReference(oop)) {
            view.store().exportObject(view.session(), oop);
        }
    }
}

} // namespace

void needValues(const View& view, std::span<const Oop> values) {
    for (Oop value : values) {
        if (!isImmediate(value) && !view.exists(value)) {
            throw NoSuchObject{value};
        }
    }
}

void handleObjectRequest(ServerSession& session, const Request& request, Reply& reply) {
    const View& view = session.interpreter.view;
    Store& store = view.store();
    bool stores = request.kind == RequestKind::StoreBytes || request.kind == RequestKind::StoreNamed ||
                  request.kind == RequestKind::StoreIndexed;
    // What changed before it was filled stays changed.
    bool fills =
        stores && session.freshObjects.contains(request.object) && !view.session().changed.contains(request.object);
    bool makes = false;
    switch (request.kind) {
    case RequestKind::FetchInfo:
        fetchInfo(view, request, reply);
        break;
    case RequestKind::FetchBytes:
        fetchBytes(view, request, reply);
        break;
    case RequestKind::FetchNamed:
        fetchNamed(view, request, reply);
        break;
    case RequestKind::FetchVariable:
        fetchVariable(view, request, reply);
        break;
    case RequestKind::FetchIndexed:
        fetchIndexed(view, request, reply);
        break;
    case RequestKind::StoreBytes:
        storeBytes(view, request);
        break;
    case RequestKind::StoreNamed:
        storeNamed(view, request);
        break;
    case RequestKind::StoreIndexed:
        storeIndexed(view, request);
        break;
    case RequestKind::NewObject:
        newObject(view, request, reply);
        makes = true;
        break;
    case RequestKind::NewDateTime:
        newDateTimeObject(view, request, reply);
        makes = true;
        break;
    case RequestKind::FetchDateTime:
        if (!kernel::isKindOf(view, request.object, kernel::DateTime)) {
            throw Failure(ErrorNumber::BadArgument, brief(view, request.object) + " is not a date-time",
                          {request.object});
        }
        reply.dateTime = dateTimeOf(view, request.object);
        break;
    case RequestKind::FromInteger:
        reply.object = newInteger(view, request.integer);
        makes = true;
        break;
    case RequestKind::FromReal:
        reply.object = newFloat(view, request.real);
        makes = true;
        break;
    case RequestKind::ToInteger:
        toInteger(view, request, reply);
        break;
    case RequestKind::ToReal:
        toReal(view, request, reply);
        break;
    case RequestKind::ToBoolean:
        reply.integer = needBoolean(view, request.object) == KCI_OOP_TRUE ? 1 : 0;
        break;
    case RequestKind::ToCharacter:
        reply.integer = needCharacter(view, request.object);
        break;
    case RequestKind::IsKindOf:
        reply.integer = kernel::isKindOf(view, request.object, needClass(view, request.secondObject)) ? 1 : 0;
        break;
    case RequestKind::Save:
        saveObjects(view, request);
        break;
    case RequestKind::Release:
        for (Oop oop : request.objects) {
            store.release(view.session(), oop);
            session.freshObjects.erase(oop);
        }
        break;
    case RequestKind::TrackChanges:
        store.trackChanges(view.session());
        break;
    case RequestKind::TakeChanges:
        if (!view.session().tracking) {
            throw Failure(ErrorNumber::BadArgument, "changes are not tracked in this session");
        }
        reply.integer = static_cast<KciLong>(store.takeChanged(view.session(), request.objectRoom, &reply.more));
        break;
    default:
        throw Failure(ErrorNumber::InternalFailure, "a request that the local store does not know");
    }
    if (makes && isReference(reply.object)) {
        store.exportObject(view.session(), reply.object);
        session.freshObjects.insert(reply.object);
    } else if (fills) {
        view.session().changed.erase(request.object);
    }
    if (stores) {
        session.freshObjects.erase(request.object);
    }
}

} // namespace local
