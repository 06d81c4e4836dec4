#include "store/store.h"

#include <algorithm>

namespace local {

void Store::openSession(SessionId session) {
    sessions[session];
}

void Store::closeSession(SessionId session) {
    Session& closing = sessions.at(session);
    for (Oop oop : closing.exported) {
        --entries[indexOf(oop)].exports;
    }
    for (Oop oop : closing.created) {
        entries[indexOf(oop)].owner = noSession;
    }
    dropCopies(closing);
    sessions.erase(session);
}

const Store::Object* Store::find(SessionId session, Oop oop) const {
    uint32_t index = indexOf(oop);
    if (!isReference(oop) || oop != oopAt(index) || index >= entries.size()) {
        return nullptr;
    }
    const Entry& entry = entries[index];
    if (entry.owner != systemSession && entry.owner != session) {
        return nullptr;
    }
    if (entry.copies != 0 && session != systemSession) {
        const auto& writeSet = sessions.at(session).writeSet;
        if (auto copy = writeSet.find(oop); copy != writeSet.end()) {
            return copy->second.object.get();
        }
    }
    return entry.object.get();
}

const Store::Object& Store::look(SessionId session, Oop oop) const {
    if (const Object* object = find(session, oop)) {
        return *object;
    }
    throw NoSuchObject{oop};
}

Store::Object& Store::writable(SessionId session, Oop oop) {
    const Object& seen = look(session, oop);
    Entry& entry = entries[indexOf(oop)];
    if (entry.exports != 0) {
        noteChange(entry, session, oop);
    }
    if (entry.owner == session) {
        return *entry.object;
    }
    Session& writer = sessions.at(session);
    auto found = writer.writeSet.find(oop);
    if (found == writer.writeSet.end()) {
        reserve(seen.memory());
        Copy copy{std::make_unique<Object>(seen), seen.version};
        memoryUsed += copy.object->memory();
        found = writer.writeSet.emplace(oop, std::move(copy)).first;
        ++entry.copies;
    }
    return *found->second.object;
}

void Store::noteChange(const Entry& entry, SessionId session, Oop oop) {
    if (entry.exports == 0 || session == systemSession) {
        return;
    }
    Session& seer = sessions.at(session);
    if (seer.tracking && seer.exported.contains(oop)) {
        seer.changed.insert(oop);
    }
}

void Store::reserve(size_t bytes) {
    if (memoryUsed + bytes > memoryLimit + beyondLimit) {
        collectAt = 0;
        throw StoreFull{.wholeStore = true};
    }
}

std::unique_ptr<Store::Object> Store::makeObject(const Shape& shape, uint32_t size) {
    if (size > (shape.body == Body::Byte ? maxBytes : maxElements)) {
        throw StoreFull{};
    }
    reserve(size * (shape.body == Body::Byte ? 1 : sizeof(Oop)));
    auto object = std::make_unique<Object>();
    object->shape = shape;
    if (shape.body == Body::Byte) {
        object->bytes.resize(size);
    } else {
        object->slots.assign(shape.named + size, nil);
    }
    memoryUsed += object->memory();
    ++liveObjects;
    return object;
}

Oop Store::create(SessionId session, const Shape& shape, uint32_t size) {
    auto object = makeObject(shape, size);
    uint32_t index = 0;
    if (!freeIndices.empty()) {
        index = freeIndices.front();
        freeIndices.pop_front();
    } else {
        index = std::max<uint32_t>(static_cast<uint32_t>(entries.size()), firstFreeIndex);
        entries.resize(index + 1);
    }
    entries[index].object = std::move(object);
    entries[index].owner = session;
    if (session != systemSession) {
        sessions.at(session).created.push_back(oopAt(index));
    }
    return oopAt(index);
}

void Store::createAt(Oop oop, const Shape& shape, uint32_t size) {
    if (entries.size() < firstFreeIndex) {
        entries.resize(firstFreeIndex);
    }
    entries[indexOf(oop)].object = makeObject(shape, size);
}

Description Store::describe(SessionId session, Oop oop) const {
    const Object& object = look(session, oop);
    size_t size = object.shape.body == Body::Byte ? object.bytes.size() : object.slots.size() - object.shape.named;
    return {object.shape, static_cast<uint32_t>(size)};
}

Oop Store::slot(SessionId session, Oop oop, uint32_t index) const {
    const Object& object = look(session, oop);
    return index < object.slots.size() ? object.slots[index] : nil;
}

void Store::setSlot(SessionId session, Oop oop, uint32_t index, Oop value) {
    Object& object = writable(session, oop);
    if (index < object.slots.size()) {
        object.slots[index] = value;
    }
}

// Runs an action that changes an object's size, with the limits and the memory count kept.
template <class Action>
void Store::changeSize(SessionId session, Oop oop, Action action) {
    Object& object = writable(session, oop);
    size_t before = object.memory();
    if (object.slots.size() >= maxElements) {
        throw StoreFull{};
    }
    // A vector that grows by one element doubles at most.
    if (object.slots.size() == object.slots.capacity()) {
        reserve(object.slots.size() * sizeof(Oop));
    }
    action(object);
    memoryUsed += object.memory() - before;
}

void Store::insertSlot(SessionId session, Oop oop, uint32_t index, Oop value) {
    changeSize(session, oop, [&](Object& object) {
        index = std::min<uint32_t>(index, static_cast<uint32_t>(object.slots.size()));
        object.slots.insert(object.slots.begin() + index, value);
    });
}

void Store::removeSlot(SessionId session, Oop oop, uint32_t index) {
    Object& object = writable(session, oop);
    if (index < object.slots.size()) {
        object.slots.erase(object.slots.begin() + index);
    }
}

void Store::resize(SessionId session, Oop oop, uint32_t size) {
    Object& object = writable(session, oop);
    size_t before = object.memory();
    if (object.shape.body == Body::Byte) {
        if (size > maxBytes) {
            throw StoreFull{};
        }
        reserve(size > object.bytes.size() ? size : 0);
        object.bytes.resize(size);
    } else {
        if (size > maxElements) {
            throw StoreFull{};
        }
        reserve(size > object.slots.size() ? size * sizeof(Oop) : 0);
        object.slots.resize(object.shape.named + size, nil);
    }
    memoryUsed += object.memory() - before;
}

uint32_t Store::readBytes(SessionId session, Oop oop, uint32_t start, std::span<ByteType> destination) const {
    const Object& object = look(session, oop);
    if (start >= object.bytes.size()) {
        return 0;
    }
    size_t count = std::min(destination.size(), object.bytes.size() - start);
    std::copy_n(object.bytes.begin() + start, count, destination.begin());
    return static_cast<uint32_t>(count);
}

void Store::writeBytes(SessionId session, Oop oop, uint32_t start, std::span<const ByteType> bytes) {
    if (start + uint64_t{bytes.size()} > maxBytes) {
        throw StoreFull{};
    }
    uint32_t end = start + static_cast<uint32_t>(bytes.size());
    if (end > look(session, oop).bytes.size()) {
        resize(session, oop, end);
    }
    std::copy(bytes.begin(), bytes.end(), writable(session, oop).bytes.begin() + start);
}

uint32_t Store::readSlots(SessionId session, Oop oop, uint32_t start, std::span<Oop> destination) const {
    const Object& object = look(session, oop);
    if (start >= object.slots.size()) {
        return 0;
    }
    size_t count = std::min(destination.size(), object.slots.size() - start);
    std::copy_n(object.slots.begin() + start, count, destination.begin());
    return static_cast<uint32_t>(count);
}

bool Store::commit(SessionId session, const Visit& visit) {
    Session& writer = sessions.at(session);
    for (const auto& [oop, copy] : writer.writeSet) {
        if (entries[indexOf(oop)].object->version != copy.baseVersion) {
            return false;
        }
    }
    markReached(session, visit);
    auto notes = notesOf(session);
    // From here on nothing throws.
    for (auto& [seer, changed] : notes) {
        seer->changed.merge(changed);
    }
    ++commitCount;
    std::erase_if(writer.created, [&](Oop oop) {
        if (!isMarked(oop)) {
            return false;
        }
        Entry& entry = entries[indexOf(oop)];
        entry.owner = systemSession;
        entry.object->version = commitCount;
        return true;
    });
    for (auto& [oop, copy] : writer.writeSet) {
        Entry& entry = entries[indexOf(oop)];
        memoryUsed -= entry.object->memory();
        entry.object = std::move(copy.object);
        entry.object->version = commitCount;
        --entry.copies;
    }
    writer.writeSet.clear();
    return true;
}

// What other sessions will have to be told of the session's changes; there is room for it in their own sets.
std::vector<std::pair<Store::Session*, std::unordered_set<Oop>>> Store::notesOf(SessionId session) {
    std::vector<std::pair<Session*, std::unordered_set<Oop>>> notes;
    for (auto& [other, seer] : sessions) {
        if (other == session || !seer.tracking) {
            continue;
        }
        auto& changed = notes.emplace_back(&seer, std::unordered_set<Oop>()).second;
        for (const auto& [oop, copy] : sessions.at(session).writeSet) {
            if (entries[indexOf(oop)].exports != 0 && seer.exported.contains(oop)) {
                changed.insert(oop);
            }
        }
        seer.changed.reserve(seer.changed.size() + changed.size());
    }
    return notes;
}

void Store::abort(SessionId session, Oop keptClass) {
    std::erase_if(sessions.at(session).writeSet, [&](const auto& item) {
        const auto& [oop, copy] = item;
        if (copy.object->shape.cls == keptClass) {
            return false;
        }
        Entry& entry = entries[indexOf(oop)];
        noteChange(entry, session, oop);
        memoryUsed -= copy.object->memory();
        --entry.copies;
        return true;
    });
}

void Store::dropCopies(Session& session) {
    for (const auto& [oop, copy] : session.writeSet) {
        memoryUsed -= copy.object->memory();
        --entries[indexOf(oop)].copies;
    }
    session.writeSet.clear();
}

void Store::exportObject(SessionId session, Oop oop) {
    look(session, oop);
    if (sessions.at(session).exported.insert(oop).second) {
        ++entries[indexOf(oop)].exports;
    }
}

void Store::release(SessionId session, Oop oop) {
    Session& owner = sessions.at(session);
    if (owner.exported.erase(oop) != 0) {
        --entries[indexOf(oop)].exports;
        owner.changed.erase(oop);
    }
}

void Store::trackChanges(SessionId session) {
    sessions.at(session).tracking = true;
    sessions.at(session).changed.clear();
}

uint32_t Store::takeChanged(SessionId session, std::span<Oop> destination, bool* more) {
    auto& changed = sessions.at(session).changed;
    uint32_t count = 0;
    for (auto it = changed.begin(); it != changed.end() && count < destination.size(); it = changed.erase(it)) {
        destination[count++] = *it;
    }
    *more = !changed.empty();
    return count;
}

} // namespace local
