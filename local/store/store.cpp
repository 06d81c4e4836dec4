#include "store/store.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <new>

namespace local {

Store::Store() = default;

Store::~Store() {
    for (uint32_t index = 0; index < entryCount; ++index) {
        while (Object* object = entries[index].versions) {
            entries[index].versions = object->older;
            freeObject(object);
        }
    }
    std::free(entries);
}

// --- memory --------------------------------------------------------------------------------------------------------

HashIndex* Store::Object::index() const {
    HashIndex* pointer = nullptr;
    std::memcpy(&pointer, this + 1, sizeof pointer);
    return pointer;
}

// What the C library takes for it.
size_t Store::Object::memory() const {
    size_t bytes = sizeof(Object) + sizeof(size_t) + (body == Body::Byte ? capacity : capacity * sizeof(Oop));
    return ((bytes + 15) & ~size_t{15}) + (body == Body::Unordered ? index()->memory() : 0);
}

void Store::reserve(size_t bytes) const {
    if (memoryUsed + bytes > memoryLimit + beyondLimit) {
        throw StoreFull{.storeLimit = memoryLimit};
    }
}

void Store::count(size_t bytes) {
    memoryUsed += bytes;
    debt += bytes;
    madeSinceStart += bytes;
}

void Store::recount(Object& object, size_t before) {
    size_t after = object.memory();
    memoryUsed -= before;
    memoryUsed += after;
    if (after > before) {
        debt += after - before;
        madeSinceStart += after - before;
    }
}

// Slots are not filled, bytes are 0.
Store::Object* Store::makeObject(const Shape& shape, uint32_t count, uint32_t capacity) {
    bool isByte = shape.body == Body::Byte;
    size_t bytes = isByte ? capacity : capacity * sizeof(Oop);
    reserve(bytes);
    auto index = shape.body == Body::Unordered ? std::make_unique<HashIndex>() : nullptr;
    void* memory = isByte ? std::calloc(1, sizeof(Object) + bytes) : std::malloc(sizeof(Object) + bytes);
    if (memory == nullptr) {
        throw std::bad_alloc();
    }
    auto* object = new (memory) Object{
        nullptr, 0, shape.cls, static_cast<uint16_t>(shape.named), shape.body, shape.indexable, 0, count, capacity};
    if (shape.body == Body::Unordered) {
        object->first = indexSlots;
        HashIndex* pointer = index.release();
        std::memcpy(object->room(), &pointer, sizeof pointer);
    }
    this->count(object->memory());
    return object;
}

Store::Object* Store::copyObject(const Object& object, uint32_t moreSlots) {
    bool isUnordered = object.body == Body::Unordered;
    Object* copy = makeObject(object.shape(), object.count, object.count + moreSlots + (isUnordered ? indexSlots : 0));
    if (object.body == Body::Byte) {
        std::memcpy(copy->bytes(), object.bytes(), object.count);
    } else {
        std::memcpy(copy->slots(), object.slots(), object.count * sizeof(Oop));
    }
    if (isUnordered) {
        try {
            size_t before = copy->memory();
            *copy->index() = *object.index();
            recount(*copy, before);
        } catch (...) {
            freeObject(copy);
            throw;
        }
    }
    return copy;
}

void Store::freeObject(Object* object) {
    memoryUsed -= object->memory();
    if (object == scanned) {
        scanAgain(scanning);
    }
    if (object->body == Body::Unordered) {
        delete object->index();
    }
    std::free(object);
}

// What leads to a version.
Store::Object*& Store::linkTo(Oop oop, const Object* version) {
    Object** link = &entries[indexOf(oop)].versions;
    while (*link != version) {
        link = &(*link)->older;
    }
    return *link;
}

Store::Object& Store::setCapacity(Oop oop, Object& object, uint32_t capacity) {
    size_t before = object.memory();
    size_t width = object.body == Body::Byte ? 1 : sizeof(Oop);
    size_t bytes = capacity * width;
    if (capacity > object.capacity) {
        reserve((capacity - object.capacity) * width);
    }
    Object** link = &linkTo(oop, &object);
    bool isScanned = scanned == &object;
    void* memory = std::realloc(static_cast<void*>(&object), sizeof(Object) + bytes);
    if (memory == nullptr) {
        throw std::bad_alloc();
    }
    auto* moved = static_cast<Object*>(memory);
    *link = moved;
    if (isScanned) {
        scanned = moved;
    }
    moved->capacity = capacity;
    recount(*moved, before);
    return *moved;
}

uint32_t Store::takeEntry() {
    if (firstFree != 0) {
        uint32_t index = firstFree;
        firstFree = entries[index].reader;
        return index;
    }
    uint32_t index = std::max(entryCount, firstFreeIndex);
    if (index >= entryCapacity) {
        uint32_t capacity = entryCapacity == 0 ? 2 * firstFreeIndex : entryCapacity + entryCapacity / 2;
        size_t added = (capacity - entryCapacity) * sizeof(Entry);
        reserve(added);
        void* memory = std::realloc(static_cast<void*>(entries), capacity * sizeof(Entry));
        if (memory == nullptr) {
            throw std::bad_alloc();
        }
        entries = static_cast<Entry*>(memory);
        entryCapacity = capacity;
        count(added);
    }
    std::fill(entries + entryCount, entries + index + 1, Entry{});
    entryCount = index + 1;
    return index;
}

// --- objects -------------------------------------------------------------------------------------------------------

Oop Store::create(Session& session, const Shape& shape, uint32_t size) {
    if (size > (shape.body == Body::Byte ? maxBytes : maxElements)) {
        throw StoreFull{};
    }
    uint32_t count = shape.body == Body::Byte ? size : shape.named + size;
    Object* object = makeObject(shape, count, count + (shape.body == Body::Unordered ? indexSlots : 0));
    std::fill_n(object->slots(), object->slotCount(), nil);
    return adopt(session, object);
}

// A new object of the session.
Oop Store::adopt(Session& session, Object* object) {
    uint32_t index = 0;
    try {
        index = takeEntry();
    } catch (...) {
        freeObject(object);
        throw;
    }
    object->version = session.mark;
    entries[index] = {object, collection, 0, 0};
    ++liveObjects;
    return oopAt(index);
}

void Store::createAt(Oop oop, const Shape& shape, uint32_t size) {
    Oop made = create(system, shape, size);
    std::swap(entries[indexOf(made)], entries[indexOf(oop)]);
    --entryCount;
}

Oop Store::clone(Session& session, Oop oop) {
    read(session, oop);
    settle(oop);
    Oop made = adopt(session, copyObject(look(session, oop)));
    scanAgain(made);
    return made;
}

Store::Object& Store::makeWritable(Session& session, Oop oop, Object& object) {
    noteChange(entries[indexOf(oop)], session, oop);
    if (object.version == session.mark) {
        return object;
    }
    if (session.changes.size() == session.changes.capacity()) {
        session.changes.reserve(2 * session.changes.size() + 8);
    }
    if (object.body == Body::Unordered) {
        session.keyChanges[oop] = {};
    }
    shade(oop);
    bool wasScanned = &object == scanned;
    Object* copy = copyObject(object);
    if (wasScanned) {
        scanAgain(oop);
    }
    Entry& entry = entries[indexOf(oop)];
    copy->version = session.mark;
    copy->older = entry.versions;
    entry.versions = copy;
    session.changes.push_back(oop);
    return *copy;
}

void Store::noteChange(const Entry& entry, Session& session, Oop oop) {
    if (entry.exports != 0 && session.tracking && session.exported.contains(oop)) {
        session.changed.insert(oop);
    }
}

Description Store::describe(Session& session, Oop oop) {
    const Object& object = read(session, oop);
    return {object.shape(), object.body == Body::Byte ? object.count : object.count - object.named};
}

void Store::insertSlot(Session& session, Oop oop, uint32_t index, Oop value) {
    Object* object = &writable(session, oop);
    if (object->count - object->named >= maxElements) {
        throw StoreFull{};
    }
    index = std::min(index, object->count);
    shade(value);
    bool atFront = index * 2 < object->count;
    if (atFront ? object->first == 0 : object->first + object->count == object->capacity) {
        uint32_t room = object->count / 2 + 4;
        uint32_t free = object->capacity - object->count;
        if (free < room) {
            object = &setCapacity(oop, *object, object->capacity + room);
            free = object->capacity - object->count;
        }
        uint32_t first = atFront ? free : 0;
        std::memmove(object->room() + first, object->slots(), object->count * sizeof(Oop));
        object->first = first;
    }
    if (atFront) {
        --object->first;
        std::memmove(object->slots(), object->slots() + 1, index * sizeof(Oop));
    } else {
        std::memmove(object->slots() + index + 1, object->slots() + index, (object->count - index) * sizeof(Oop));
    }
    worked(std::min(index, object->count - index));
    object->slots()[index] = value;
    ++object->count;
    if (object == scanned && index < unscanned) {
        ++unscanned;
    }
}

void Store::removeSlot(Session& session, Oop oop, uint32_t index) {
    Object& object = writable(session, oop);
    if (index * 2 < object.count) {
        std::memmove(object.slots() + 1, object.slots(), index * sizeof(Oop));
        ++object.first;
    } else {
        std::memmove(object.slots() + index, object.slots() + index + 1, (object.count - index - 1) * sizeof(Oop));
    }
    --object.count;
    worked(std::min(index, object.count - index));
}

void Store::resize(Session& session, Oop oop, uint32_t size) {
    settle(oop);
    Object* object = &writable(session, oop);
    if (size > (object->body == Body::Byte ? maxBytes : maxElements)) {
        throw StoreFull{};
    }
    uint32_t count = object->body == Body::Byte ? size : object->named + size;
    if (object->body == Body::Unordered) { // can only be emptied
        size_t before = object->memory();
        *object->index() = HashIndex();
        recount(*object, before);
        object->count = object->named;
        noteOtherChange(session, oop);
        return;
    }
    uint32_t needed = object->first + count;
    if (needed > object->capacity) {
        object =
            &setCapacity(oop, *object, std::max(needed, std::min(object->capacity + object->capacity / 2, maxBytes)));
    } else if (needed < object->capacity / 4) {
        object = &setCapacity(oop, *object, needed);
    }
    if (object->body == Body::Byte) {
        std::memset(object->bytes() + std::min(object->count, count), 0, count - std::min(object->count, count));
    } else if (count > object->count) {
        std::fill(object->slots() + object->count, object->slots() + count, nil);
    }
    object->count = count;
}

void Store::copyElements(Session& session, Oop to, uint32_t toStart, Oop from, uint32_t fromStart, uint32_t count) {
    read(session, from);
    settle(to);
    Object& target = writable(session, to);
    const Object& source = look(session, from);
    if (target.body == Body::Byte) {
        std::memmove(target.bytes() + toStart, bytesOf(source) + fromStart, count);
    } else {
        std::memmove(target.slots() + toStart, source.slots() + fromStart, count * sizeof(Oop));
        scanAgain(to);
    }
}

uint32_t Store::readBytes(Session& session, Oop oop, uint32_t start, std::span<ByteType> destination) {
    std::span<const ByteType> all = bytes(session, oop);
    if (start >= all.size()) {
        return 0;
    }
    size_t count = std::min(destination.size(), all.size() - start);
    std::copy_n(all.begin() + start, count, destination.begin());
    return static_cast<uint32_t>(count);
}

std::span<const ByteType> Store::bytes(Session& session, Oop oop) {
    const Object& object = read(session, oop);
    return {bytesOf(object), object.byteCount()};
}

const ByteType* Store::bytesOf(const Object& object) const {
    const Object* holder = &object;
    while (holder->isPrefix()) {
        holder = entries[indexOf(holder->slots()[-1])].versions;
    }
    return holder->bytes();
}

Oop Store::join(Session& session, Oop left, Oop right) {
    constexpr uint32_t minimum = 256;
    const Object& front = read(session, left);
    uint32_t size = front.byteCount();
    uint64_t end = uint64_t{size} + read(session, right).byteCount();
    if (end > maxBytes) {
        throw StoreFull{};
    }
    auto count = static_cast<uint32_t>(end);
    bool takes = size >= minimum && front.version == session.mark && front.older == nullptr && !front.isPrefix();
    Oop joined = create(session, front.shape(), takes ? 0 : count);
    if (!takes) {
        copyElements(session, joined, 0, left, 0, size);
        copyElements(session, joined, size, right, 0, count - size);
        return joined;
    }
    auto before = prefixes.find(left);
    Oop earlier = before != prefixes.end() ? before->second : nil;
    prefixes[joined] = left;
    Object* prefix = nullptr;
    try {
        prefix = makeObject(front.shape(), 2 * sizeof(Oop), 2 * sizeof(Oop));
        Object& room = look(session, left);
        if (room.capacity < count) {
            setCapacity(left, room, std::min(count + count / 2, maxBytes));
        }
    } catch (...) {
        if (prefix != nullptr) {
            freeObject(prefix);
        }
        prefixes.erase(joined);
        throw;
    }
    Object*& taken = entries[indexOf(left)].versions;
    Object*& empty = entries[indexOf(joined)].versions;
    std::swap(taken, empty);
    freeObject(taken);
    prefix->version = session.mark;
    prefix->first = 2;
    prefix->count = size;
    prefix->room()[0] = earlier;
    prefix->room()[1] = joined;
    taken = prefix;
    prefixes.erase(left);
    std::memmove(empty->bytes() + size, left == right ? empty->bytes() : bytesOf(look(session, right)), count - size);
    empty->count = count;
    return joined;
}

// Before a byte object is changed or seen by others: so that nothing shares bytes with it.
void Store::settle(Oop oop) {
    // Gives what has the first bytes of another one bytes of its own.
    auto giveBytes = [this](Oop shorter) {
        Object* object = isEntry(shorter) ? entries[indexOf(shorter)].versions : nullptr;
        if (object == nullptr || !object->isPrefix()) {
            return;
        }
        Object* copy = makeObject(object->shape(), object->count, object->count);
        std::memcpy(copy->bytes(), bytesOf(*object), object->count);
        copy->version = object->version;
        if (Oop earlier = object->room()[0]; earlier != nil) {
            prefixes[shorter] = earlier;
        }
        prefixes.erase(object->room()[1]);
        entries[indexOf(shorter)].versions = copy;
        freeObject(object);
    };
    giveBytes(oop);
    if (auto found = prefixes.empty() ? prefixes.end() : prefixes.find(oop); found != prefixes.end()) {
        Oop earlier = found->second;
        const Object* prefix = entries[indexOf(earlier)].versions;
        if (prefix != nullptr && prefix->isPrefix() && prefix->slots()[-1] == oop) {
            giveBytes(earlier);
        } else {
            prefixes.erase(found);
        }
    }
}

void Store::writeBytes(Session& session, Oop oop, uint32_t start, std::span<const ByteType> bytes) {
    if (start + uint64_t{bytes.size()} > maxBytes) {
        throw StoreFull{};
    }
    settle(oop);
    uint32_t end = start + static_cast<uint32_t>(bytes.size());
    if (end > look(session, oop).byteCount()) {
        resize(session, oop, end);
    }
    std::copy(bytes.begin(), bytes.end(), writable(session, oop).bytes() + start);
}

uint32_t Store::readSlots(Session& session, Oop oop, uint32_t start, std::span<Oop> destination) {
    const Object& object = read(session, oop);
    if (start >= object.slotCount()) {
        return 0;
    }
    size_t count = std::min<size_t>(destination.size(), object.count - start);
    std::copy_n(object.slots() + start, count, destination.begin());
    return static_cast<uint32_t>(count);
}

// --- unordered bodies ----------------------------------------------------------------------------------------------

// What the session has changed of an object of others; nullptr when the object is its own.
Store::Session::KeyChanges* Store::keyChangesOf(Session& session, Oop oop) {
    auto found = session.keyChanges.find(oop);
    return found != session.keyChanges.end() ? &found->second : nullptr;
}

// Of an unordered body: not of one key.
void Store::noteOtherChange(Session& session, Oop oop) {
    if (Session::KeyChanges* changes = keyChangesOf(session, oop)) {
        changes->isAll = false;
    }
}

void Store::addElement(Session& session, Oop oop, Oop element, uint32_t hash) {
    Object* object = &writable(session, oop);
    if (object->count - object->named >= maxElements) {
        throw StoreFull{};
    }
    shade(element);
    if (object->first + object->count == object->capacity) {
        object = &setCapacity(oop, *object, object->capacity + object->count / 2 + 4);
    }
    Session::KeyChanges* changes = keyChangesOf(session, oop);
    if (changes != nullptr) {
        changes->log.push_back({hash, element, true});
    }
    try {
        addTo(*object, element, hash);
    } catch (...) {
        if (changes != nullptr) {
            changes->log.pop_back();
        }
        throw;
    }
}

void Store::removeElement(Session& session, Oop oop, uint32_t position) {
    Object& object = writable(session, oop);
    if (Session::KeyChanges* changes = keyChangesOf(session, oop)) {
        changes->log.push_back({object.index()->hashAt(position - object.named), object.slots()[position], false});
    }
    removeFrom(object, position);
}

// There is room for it.
void Store::addTo(Object& object, Oop element, uint32_t hash) {
    size_t before = object.memory();
    object.index()->add(hash);
    object.slots()[object.count++] = element;
    recount(object, before);
}

void Store::removeFrom(Object& object, uint32_t position) {
    object.index()->remove(position - object.named);
    object.slots()[position] = object.slots()[--object.count];
}

// --- export sets ---------------------------------------------------------------------------------------------------

void Store::exportObject(Session& session, Oop oop) {
    look(session, oop);
    if (session.exported.insert(oop).second) {
        ++entries[indexOf(oop)].exports;
    }
    shade(oop);
}

void Store::release(Session& session, Oop oop) {
    if (session.exported.erase(oop) != 0) {
        --entries[indexOf(oop)].exports;
        session.changed.erase(oop);
        session.changedByOthers.erase(oop);
    }
}

void Store::trackChanges(Session& session) {
    session.tracking = true;
    session.changed.clear();
}

uint32_t Store::takeChanged(Session& session, std::span<Oop> destination, bool* more) {
    uint32_t count = 0;
    for (auto it = session.changed.begin(); it != session.changed.end() && count < destination.size();
         it = session.changed.erase(it)) {
        destination[count++] = *it;
    }
    *more = !session.changed.empty();
    return count;
}

} // namespace local
