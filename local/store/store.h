// The object store: objects by identifier, seen through one view per session.
//
// An object made by a session is private to it. A change to an object that others see goes into the session's write
// set, a copy of its own, and is dropped by abort or published by commit, with the private objects that it leads to.
// No pointer into the store leaves it. Nothing here is thread-safe: one thread at a time.
#pragma once

#include "store/oop.h"

#include <deque>
#include <functional>
#include <memory>
#include <span>
#include <unordered_map>
#include <unordered_set>
#include <vector>

namespace local {

using SessionId = KciSessionIdType;

// The view of the store itself; what it makes is seen by all at once.
constexpr SessionId systemSession = 0;
// Owns what a closed session left behind, until the next collection.
constexpr SessionId noSession = -1;

enum class Body : uint8_t { Pointer, Byte, Unordered }; // values of KciObjImplEType

struct Shape {
    Oop cls;
    Body body;
    bool indexable;
    uint32_t named;
};

struct Description {
    Shape shape;
    uint32_t size; // elements or bytes, without the named variables
};

// Thrown for an identifier that names no object the session can see.
struct NoSuchObject {
    Oop oop;
};

// Thrown when an object or the whole store would exceed its limit.
struct StoreFull {
    bool wholeStore = false;
};

using Mark = std::function<void(Oop)>;
// Told of an object, marks what the object keeps for one outside the store.
using Visit = std::function<void(Oop oop, Oop cls, Oop firstSlot, const Mark& mark)>;

class Store {
public:
    static constexpr uint32_t maxElements = 4u << 20;
    static constexpr uint32_t maxBytes = 16u << 20;
    static constexpr size_t memoryLimit = 256u << 20;
    static constexpr size_t errorRoom = 2u << 20;
    static constexpr uint32_t firstFreeIndex = 2048; // identifiers below 4 * this are given out by createAt only

    void openSession(SessionId session);
    void closeSession(SessionId session);

    Oop create(SessionId session, const Shape& shape, uint32_t size);
    void createAt(Oop oop, const Shape& shape, uint32_t size);

    bool exists(SessionId session, Oop oop) const { return find(session, oop) != nullptr; }
    Description describe(SessionId session, Oop oop) const;
    Oop classOf(SessionId session, Oop oop) const { return look(session, oop).shape.cls; }

    // Slots count from 0, the named variables first. Reading beyond the end answers nil; writing there is ignored.
    Oop slot(SessionId session, Oop oop, uint32_t index) const;
    void setSlot(SessionId session, Oop oop, uint32_t index, Oop value);
    void insertSlot(SessionId session, Oop oop, uint32_t index, Oop value);
    void removeSlot(SessionId session, Oop oop, uint32_t index);
    // Gives a pointer or byte object another number of elements; new ones are nil or 0.
    void resize(SessionId session, Oop oop, uint32_t size);

    // Bytes count from 0. readBytes answers how many there were to read.
    uint32_t readBytes(SessionId session, Oop oop, uint32_t start, std::span<ByteType> destination) const;
    void writeBytes(SessionId session, Oop oop, uint32_t start, std::span<const ByteType> bytes);
    uint32_t readSlots(SessionId session, Oop oop, uint32_t start, std::span<Oop> destination) const;

    // FALSE: another session committed a change to one of the objects first; nothing was published.
    bool commit(
        SessionId session, const Visit& visit = [](Oop, Oop, Oop, const Mark&) {});
    // Objects of the kept class keep their changes: the running computation's own data is no part of a transaction.
    void abort(SessionId session, Oop keptClass);

    void exportObject(SessionId session, Oop oop);
    void release(SessionId session, Oop oop);

    // Changed objects among the exported ones, as the session sees them: by its own writes, by its abort, and by
    // commits of others. Nothing is tracked before trackChanges, which also forgets earlier changes.
    void trackChanges(SessionId session);
    bool isTracking(SessionId session) const { return sessions.at(session).tracking; }
    // Moves changed identifiers into destination and answers how many; *more tells whether some remain.
    uint32_t takeChanged(SessionId session, std::span<Oop> destination, bool* more);
    bool isChanged(SessionId session, Oop oop) const { return sessions.at(session).changed.contains(oop); }
    void forgetChange(SessionId session, Oop oop) { sessions.at(session).changed.erase(oop); }

    // Mark and sweep. The language's roots come through addRoots, which calls mark for each; visit is called for
    // every live object. Call it only where every identifier in use is reachable from these, from an export set or from
    // an object that is. When memory runs out midway, all that lives is still there, and the next collection is whole.
    class Roots {
    public:
        virtual ~Roots() = default;
        virtual void addRoots(const Mark& mark) = 0;
        virtual void visit(Oop oop, Oop cls, Oop firstSlot, const Mark& mark) = 0;
        virtual void swept(const std::function<bool(Oop)>& isLive) = 0;
    };
    bool collectionDue() const { return memoryUsed >= collectAt; }
    void collect(Roots& roots);
    void requestCollection() { collectAt = 0; }

    uint32_t objectCount() const { return liveObjects; }
    // Counts memory outside the objects, of code and of stacks, towards the limit.
    void charge(size_t bytes) { memoryUsed += bytes; }
    void discharge(size_t bytes) { memoryUsed -= bytes; }
    // Whether such memory has gone beyond the limit. What an error needs may go beyond it by as much.
    bool isFull() const { return memoryUsed > memoryLimit + errorRoom; }
    class ForError {
    public:
        explicit ForError(Store& owner) : store(owner) { store.beyondLimit = errorRoom; }
        ~ForError() { store.beyondLimit = 0; }

    private:
        Store& store;
    };

private:
    struct Object {
        Shape shape;
        uint32_t version = 0; // the commit that published it
        std::vector<Oop> slots;
        std::vector<ByteType> bytes;

        size_t memory() const { return sizeof(Object) + slots.capacity() * sizeof(Oop) + bytes.capacity(); }
    };
    struct Entry {
        std::unique_ptr<Object> object;
        SessionId owner = systemSession; // who alone sees it; the system's objects are seen by all
        uint16_t copies = 0;             // write sets that hold a copy
        uint16_t exports = 0;            // export sets that hold it
        uint32_t marked = 0;             // in this round of marking last
    };
    struct Copy {
        std::unique_ptr<Object> object;
        uint32_t baseVersion;
    };
    struct Session {
        std::unordered_map<Oop, Copy> writeSet;
        std::vector<Oop> created; // still private
        std::unordered_set<Oop> exported;
        std::unordered_set<Oop> changed;
        bool tracking = false;
    };

    static uint32_t indexOf(Oop oop) { return oop >> 2; }
    static Oop oopAt(uint32_t index) { return index << 2 | 1; }

    const Object* find(SessionId session, Oop oop) const;
    const Object& look(SessionId session, Oop oop) const;
    Object& writable(SessionId session, Oop oop);
    void noteChange(const Entry& entry, SessionId session, Oop oop);
    std::vector<std::pair<Session*, std::unordered_set<Oop>>> notesOf(SessionId session);
    std::unique_ptr<Object> makeObject(const Shape& shape, uint32_t size);
    template <class Action>
    void changeSize(SessionId session, Oop oop, Action action);
    void dropCopies(Session& session);
    void reserve(size_t bytes);
    bool isMarked(Oop oop) const { return indexOf(oop) < entries.size() && entries[indexOf(oop)].marked == marking; }
    static void follow(Oop oop, const Object& object, const Visit& visit, const Mark& mark);
    void markFrom(std::vector<Oop>& pending, const Visit& visit, const Mark& mark);
    void markReached(SessionId session, const Visit& visit);
    void sweep();

    std::vector<Entry> entries;
    std::deque<uint32_t> freeIndices; // reused oldest first, so that a stale identifier stays recognisable for long
    std::unordered_map<SessionId, Session> sessions;
    uint32_t marking = 0; // the round; an exception can end one, and its marks are then worth nothing
    uint32_t commitCount = 0;
    uint32_t liveObjects = 0;
    size_t memoryUsed = 0;
    size_t beyondLimit = 0;
    size_t collectAt = 8u << 20;
};

// The store as one session sees it.
class View {
public:
    View(Store& store, SessionId session) : objects(&store), id(session) {}

    Store& store() const { return *objects; }
    SessionId session() const { return id; }
    Oop create(const Shape& shape, uint32_t size) const { return objects->create(id, shape, size); }
    bool exists(Oop oop) const { return objects->exists(id, oop); }
    Description describe(Oop oop) const { return objects->describe(id, oop); }
    Oop classOf(Oop oop) const { return objects->classOf(id, oop); }
    uint32_t size(Oop oop) const { return describe(oop).size; }
    Oop slot(Oop oop, uint32_t index) const { return objects->slot(id, oop, index); }
    void setSlot(Oop oop, uint32_t index, Oop value) const { objects->setSlot(id, oop, index, value); }
    void insertSlot(Oop oop, uint32_t index, Oop value) const { objects->insertSlot(id, oop, index, value); }
    void removeSlot(Oop oop, uint32_t index) const { objects->removeSlot(id, oop, index); }
    void resize(Oop oop, uint32_t size) const { objects->resize(id, oop, size); }
    uint32_t readBytes(Oop oop, uint32_t start, std::span<ByteType> destination) const {
        return objects->readBytes(id, oop, start, destination);
    }
    void writeBytes(Oop oop, uint32_t start, std::span<const ByteType> bytes) const {
        objects->writeBytes(id, oop, start, bytes);
    }

private:
    Store* objects;
    SessionId id;
};

} // namespace local
