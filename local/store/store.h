// The object store: objects by identifier, in versions; each session sees them through its transaction.
//
// A transaction sees the store as it was at its begin, and its own changes. An object that a session makes is its own;
// a change to an object that others see is made in a version of the session's own. Commit publishes both, abort drops
// the changes. A version that a newer one has superseded is kept while a transaction can see it.
// No pointer into the store leaves it. Nothing here is thread-safe: one thread at a time.
#pragma once

#include "store/hash_index.h"
#include "store/oop.h"

#include <forward_list>
#include <functional>
#include <list>
#include <map>
#include <memory>
#include <span>
#include <unordered_map>
#include <unordered_set>
#include <vector>

namespace local {

using SessionId = KciSessionIdType;

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
    size_t storeLimit = 0; // the store's, in bytes; 0 for the object's
};

using Mark = std::function<void(Oop)>;
// Told of an object, marks what the object keeps for one outside the store.
using Visit = std::function<void(Oop oop, Oop cls, Oop firstSlot, const Mark& mark)>;

class Store {
    struct Object;
    struct Superseded {
        Oop oop;
        uint32_t version;
    };

public:
    static constexpr uint32_t maxElements = 4u << 20;
    static constexpr uint32_t maxBytes = 16u << 20;
    static constexpr size_t defaultMemoryLimit = 256u << 20;
    static constexpr size_t errorRoom = 2u << 20;
    static constexpr uint32_t firstFreeIndex = 2048; // identifiers below 4 * this are given out by createAt only

    enum class Progress : uint8_t { Working, Done, Refused };

    // What a session adds to the store. Its fields are the store's.
    struct Session {
        uint32_t mark = 0;              // in place of a version, in what is the session's own
        uint32_t snapshot = maxVersion; // the last commit that its transaction sees
        uint32_t readToken = 0;         // of its transaction
        std::vector<Oop> changes;       // objects of others that have a version of the session's own
        // Those of them with unordered bodies: what was added to and removed from each, and whether that is all.
        struct KeyChange {
            uint32_t hash;
            Oop element;
            bool added;
        };
        struct KeyChanges {
            std::vector<KeyChange> log;
            bool isAll = true;
        };
        std::unordered_map<Oop, KeyChanges> keyChanges;
        std::vector<Oop> reads;
        std::vector<std::pair<Oop, uint32_t>> keyReads; // with the key's hash
        struct Publication;
        std::unique_ptr<Publication> publication; // of a commit that is not done yet
        std::unordered_set<Oop> exported;
        std::unordered_set<Oop> changed;
        std::unordered_set<Oop> changedByOthers; // by commits that the transaction does not see
        bool tracking = false;

        Session();
        ~Session();
    };

    Store();
    ~Store();
    Store(const Store&) = delete;
    Store& operator=(const Store&) = delete;

    // Session numbers are from 1 to 2^30-1 and not used again. Begins the session's first transaction.
    Session& openSession(SessionId id);
    void closeSession(SessionId id);
    // The view of the store itself: what it makes is seen by all at once.
    Session& systemSession() { return system; }

    Oop create(Session& session, const Shape& shape, uint32_t size);
    void createAt(Oop oop, const Shape& shape, uint32_t size);
    // A new object with the same class and contents.
    Oop clone(Session& session, Oop oop);

    bool exists(const Session& session, Oop oop) const { return find(session, oop) != nullptr; }
    Description describe(Session& session, Oop oop);
    Oop classOf(const Session& session, Oop oop) const { return look(session, oop).cls; }

    // Slots count from 0, the named variables first. Reading beyond the end answers nil; writing there is ignored.
    Oop slot(Session& session, Oop oop, uint32_t index) {
        const Object& object = read(session, oop);
        return index < object.slotCount() ? object.slots()[index] : nil;
    }
    void setSlot(Session& session, Oop oop, uint32_t index, Oop value) {
        Object& object = writable(session, oop);
        if (index < object.slotCount()) {
            shade(value);
            object.slots()[index] = value;
            if (object.body == Body::Unordered) {
                noteOtherChange(session, oop);
            }
        }
    }
    // Elements at both ends come and go in constant time on average. What is removed must be there.
    void insertSlot(Session& session, Oop oop, uint32_t index, Oop value);
    void removeSlot(Session& session, Oop oop, uint32_t index);
    // Gives a pointer or byte object another number of elements; new ones are nil or 0.
    void resize(Session& session, Oop oop, uint32_t size);
    // Replaces elements, which must be there, by those of another object of the same body.
    void copyElements(Session& session, Oop to, uint32_t toStart, Oop from, uint32_t fromStart, uint32_t count);

    // Elements of unordered bodies are found by hash values that the caller gives them. Adding goes to the end; the
    // last one takes the place of a removed one. Positions are slots.
    template <class Same>
    std::optional<uint32_t> findElement(Session& session, Oop oop, uint32_t hash, Same same);
    Oop elementAt(const Session& session, Oop oop, uint32_t position) const {
        return look(session, oop).slots()[position];
    }
    void addElement(Session& session, Oop oop, Oop element, uint32_t hash);
    void removeElement(Session& session, Oop oop, uint32_t position);

    // Bytes count from 0. readBytes answers how many there were to read.
    uint32_t readBytes(Session& session, Oop oop, uint32_t start, std::span<ByteType> destination);
    void writeBytes(Session& session, Oop oop, uint32_t start, std::span<const ByteType> bytes);
    uint32_t readSlots(Session& session, Oop oop, uint32_t start, std::span<Oop> destination);
    // Valid until anything is made, changed or collected.
    std::span<const ByteType> bytes(Session& session, Oop oop);
    // A new object of the left one's class with the bytes of both. A long left one of the session's own hands its room
    // on and leads there until somebody changes either, so that appending in a loop costs what is appended.
    Oop join(Session& session, Oop left, Oop right);

    // Works at the commit for about so many steps. Refused: another session has committed a change to one of the
    // changed objects (when checked: or of those that were read) since the transaction began; nothing was published.
    // Of an unordered body only the keys count that were changed or asked for. Done: the next transaction has begun.
    // Between the calls the session must not change anything; when it may, dropCommit.
    Progress commit(Session& session, const Visit& visit, bool checked, uint32_t steps);
    void dropCommit(Session& session);
    // Drops the session's changes and begins its next transaction.
    void abort(Session& session);

    void exportObject(Session& session, Oop oop);
    void release(Session& session, Oop oop);

    // Changed objects among the exported ones, as the session sees them: by its own writes, by its abort, and by
    // commits of others when a transaction begins that sees them. Nothing is tracked before trackChanges, which also
    // forgets earlier changes.
    void trackChanges(Session& session);
    // Moves changed identifiers into destination and answers how many; *more tells whether some remain.
    uint32_t takeChanged(Session& session, std::span<Oop> destination, bool* more);

    // Garbage is marked and swept step by step. The language's roots come through Roots; a step may be taken only where
    // every identifier in use is reachable from these, from an export set or from an object that is.
    class Roots {
    public:
        virtual ~Roots() = default;
        // Asked at the start, and again at the end for what changed meanwhile without the store's knowledge.
        virtual void addRoots(const Mark& mark) = 0;
        virtual void startMarking() = 0;
        virtual void visit(Oop oop, Oop cls, Oop firstSlot, const Mark& mark) = 0;
        virtual void marked() = 0;
        virtual void freeing(Oop oop, Oop cls, std::span<const ByteType> bytes) = 0;
    };
    // Counts work that made nothing as if it had, so that steps of computations are short.
    void worked(size_t bytes) { debt += bytes; }
    // Whether so much was made that a step should be taken.
    bool stepDue() const { return debt >= stepBytes; }
    void collectStep(Roots& roots);
    bool isMarking() const { return phase == Phase::Roots || phase == Phase::Marking; }
    // To be called for what is kept outside the store, once it is no longer on a stack.
    void shade(Oop oop) {
        if (isMarking() && isReference(oop)) {
            shadeReference(oop);
        }
    }
    // The steps that follow make a whole collection from its start, and it is wanted until then.
    void startCollection();
    bool isCollectionWanted() const { return static_cast<int32_t>(wanted - completed) > 0; }
    // Whether a collection could make room: something was made since the last one.
    bool isWorthCollecting() const { return madeSinceStart > memoryLimit / 32; }

    uint32_t objectCount() const { return liveObjects; }
    size_t memory() const { return memoryUsed; }
    void setMemoryLimit(size_t bytes) { memoryLimit = bytes; }
    size_t limit() const { return memoryLimit; }
    // Counts memory outside the objects, of code and of stacks, towards the limit.
    void charge(size_t bytes) { count(bytes); }
    void discharge(size_t bytes) { memoryUsed -= bytes; }
    // Whether such memory has gone beyond the limit. What an error needs may go beyond it by as much.
    bool isFull() const { return memoryUsed > memoryLimit + errorRoom; }
    // Whether hardly anything could be made any more.
    bool isNearlyFull() const { return memoryUsed > memoryLimit - memoryLimit / 32; }
    class ForError {
    public:
        explicit ForError(Store& owner) : store(owner) { store.beyondLimit = errorRoom; }
        ~ForError() { store.beyondLimit = 0; }

    private:
        Store& store;
    };

private:
    static constexpr uint32_t maxVersion = 0x3FFFFFFF;
    static constexpr uint32_t own = 0x80000000;        // in a mark
    static constexpr uint32_t publishing = 0x40000000; // in the mark of what a commit has reached
    static constexpr size_t stepBytes = 32u << 10;

    // Followed by its slots or bytes. In front of the slots there may be room; with an unordered body, it holds the
    // pointer to its index. A byte object with something in front has the first bytes of another one, which is named
    // there, with the one that has the first bytes of this one or nil.
    struct Object {
        Object* older;    // the version before this one; those of sessions come before all committed ones
        uint32_t version; // the commit that published it, or a session's mark
        Oop cls;
        uint16_t named;
        Body body;
        bool indexable;
        uint32_t first;    // slots in front
        uint32_t count;    // slots or bytes
        uint32_t capacity; // likewise, those in front included

        Oop* room() { return reinterpret_cast<Oop*>(this + 1); }
        Oop* slots() { return room() + first; }
        const Oop* slots() const { return reinterpret_cast<const Oop*>(this + 1) + first; }
        ByteType* bytes() { return reinterpret_cast<ByteType*>(this + 1); }
        const ByteType* bytes() const { return reinterpret_cast<const ByteType*>(this + 1); }
        uint32_t slotCount() const { return body == Body::Byte ? 0 : count; }
        uint32_t byteCount() const { return body == Body::Byte ? count : 0; }
        bool isPrefix() const { return body == Body::Byte && first != 0; }
        HashIndex* index() const;
        Shape shape() const { return {cls, body, indexable, named}; }
        size_t memory() const;
        bool isOwn() const { return version >= own; }
    };
    // The pointer itself lies in the slots. NOLINTNEXTLINE(bugprone-sizeof-expression)
    static constexpr uint32_t indexSlots = sizeof(HashIndex*) / sizeof(Oop);

    struct Entry {
        Object* versions; // the latest first
        uint32_t marked;  // by the collection of this number
        uint32_t reader;  // token of the transaction that read it last; of a free entry: the next free one
        uint32_t exports; // export sets that hold it
    };

    struct Snapshot {
        uint32_t sessions = 0;
        std::forward_list<Superseded> superseded; // kept for it
    };

    static uint32_t indexOf(Oop oop) { return oop >> 2; }
    static Oop oopAt(uint32_t index) { return index << 2 | 1; }
    bool isEntry(Oop oop) const { return (oop & 3) == 1 && indexOf(oop) < entryCount && isReference(oop); }

    Object* find(const Session& session, Oop oop) const {
        if (!isEntry(oop)) {
            return nullptr;
        }
        Object* object = entries[indexOf(oop)].versions;
        while (object != nullptr && object->version != session.mark && object->version > session.snapshot) {
            object = object->older;
        }
        return object;
    }
    Object& look(const Session& session, Oop oop) const {
        if (Object* object = find(session, oop)) {
            return *object;
        }
        throw NoSuchObject{oop};
    }
    // Whether looking into it is a read of others' data that is not noted yet. Of the session's own version of an
    // unordered body only the changed keys are the session's.
    bool isRead(const Session& session, const Object& object, Oop oop) const {
        return (object.version != session.mark || (object.body == Body::Unordered && object.older != nullptr)) &&
               entries[indexOf(oop)].reader != session.readToken;
    }
    const Object& read(Session& session, Oop oop) {
        const Object& object = look(session, oop);
        if (isRead(session, object, oop)) {
            noteRead(session, oop);
        }
        return object;
    }
    // The session's own version of an object.
    Object& writable(Session& session, Oop oop) {
        Object& object = look(session, oop);
        if (object.version != session.mark || entries[indexOf(oop)].exports != 0) {
            return makeWritable(session, oop, object);
        }
        return object;
    }

    void reserve(size_t bytes) const;
    void noteRead(Session& session, Oop oop);
    void noteKeyRead(Session& session, Oop oop, uint32_t hash);
    void noteOtherChange(Session& session, Oop oop);
    void noteChange(const Entry& entry, Session& session, Oop oop);
    Object& makeWritable(Session& session, Oop oop, Object& object);
    Session::KeyChanges* keyChangesOf(Session& session, Oop oop);
    // Objects by themselves: memory, counted.
    Object* makeObject(const Shape& shape, uint32_t count, uint32_t capacity);
    Object* copyObject(const Object& object, uint32_t moreSlots = 0);
    void freeObject(Object* object);
    Oop adopt(Session& session, Object* object);
    const ByteType* bytesOf(const Object& object) const;
    void settle(Oop oop);
    Object*& linkTo(Oop oop, const Object* version);
    Object& setCapacity(Oop oop, Object& object, uint32_t capacity);
    void recount(Object& object, size_t before);
    void count(size_t bytes);
    uint32_t takeEntry();
    void addTo(Object& object, Oop element, uint32_t hash);
    void removeFrom(Object& object, uint32_t position);

    // Transactions
    void enter(Session& session, uint32_t snapshot);
    void leave(Session& session);
    void beginTransaction(Session& session, uint32_t snapshot);
    void dropChanges(Session& session);
    Object* committed(Oop oop) const;
    bool reach(Session& session, const Visit& visit, uint32_t steps);
    Progress check(Session& session, bool checked, uint32_t steps);
    bool sameKeys(const Object& before, const Object& now, uint32_t hash) const;
    bool canMerge(Session& session, Oop oop);
    Object* merged(Session& session, Oop oop);
    void publish(Session& session);
    void reclaim(uint32_t steps);

    // Collection
    enum class Phase : uint8_t { Idle, Roots, Marking, Sweeping };
    void shadeReference(Oop oop);
    void scanAgain(Oop oop);
    void scan(Roots& roots, uint32_t& units);
    void freeEntry(uint32_t index);
    void setThreshold();
    void giveUpMarking();

    Entry* entries = nullptr;
    uint32_t entryCount = 0;
    uint32_t entryCapacity = 0;
    uint32_t firstFree = 0; // reused oldest first, so that a stale identifier stays recognisable for long
    uint32_t lastFree = 0;
    std::unordered_map<Oop, Oop> prefixes; // of what was joined: the object that has its first bytes
    Session system;
    std::map<SessionId, Session> sessions;
    std::map<uint32_t, Snapshot> snapshots; // of the open transactions
    std::forward_list<Superseded> leftOver; // to be freed, or kept for another snapshot
    uint32_t commitCount = 0;
    uint32_t lastToken = 0;
    uint32_t liveObjects = 0;

    size_t memoryUsed = 0;
    size_t memoryLimit = defaultMemoryLimit;
    size_t beyondLimit = 0;

    Phase phase = Phase::Idle;
    uint32_t collection = 1; // number of the one at work, or of the next one
    uint32_t completed = 0;
    uint32_t wanted = 0; // how many are to be completed
    uint32_t cursor = 0; // the entry where Roots and Sweeping are
    int rootRounds = 0;
    std::vector<Oop> grey; // marked, and not scanned yet
    Oop scanning = nil;    // one of them of which a part has been scanned: of a version, the slots from a place on
    Object* scanned = nullptr;
    uint32_t unscanned = 0;
    size_t collectAt = 8u << 20;
    size_t debt = 0;
    size_t madeSinceStart = 0;
};

template <class Same>
std::optional<uint32_t> Store::findElement(Session& session, Oop oop, uint32_t hash, Same same) {
    const Object& object = look(session, oop);
    if (isRead(session, object, oop)) {
        noteKeyRead(session, oop, hash);
    }
    std::optional<uint32_t> found =
        object.index()->find(hash, [&](uint32_t at) { return same(object.slots()[object.named + at]); });
    return found ? std::optional(object.named + *found) : found;
}

// The store as one session sees it.
class View {
public:
    View(Store& store, Store::Session& session) : objects(&store), viewer(&session) {}

    Store& store() const { return *objects; }
    Store::Session& session() const { return *viewer; }
    Oop create(const Shape& shape, uint32_t size) const { return objects->create(*viewer, shape, size); }
    Oop clone(Oop oop) const { return objects->clone(*viewer, oop); }
    bool exists(Oop oop) const { return objects->exists(*viewer, oop); }
    Description describe(Oop oop) const { return objects->describe(*viewer, oop); }
    Oop classOf(Oop oop) const { return objects->classOf(*viewer, oop); }
    uint32_t size(Oop oop) const { return describe(oop).size; }
    Oop slot(Oop oop, uint32_t index) const { return objects->slot(*viewer, oop, index); }
    void setSlot(Oop oop, uint32_t index, Oop value) const { objects->setSlot(*viewer, oop, index, value); }
    void insertSlot(Oop oop, uint32_t index, Oop value) const { objects->insertSlot(*viewer, oop, index, value); }
    void removeSlot(Oop oop, uint32_t index) const { objects->removeSlot(*viewer, oop, index); }
    void resize(Oop oop, uint32_t size) const { objects->resize(*viewer, oop, size); }
    void copyElements(Oop to, uint32_t toStart, Oop from, uint32_t fromStart, uint32_t count) const {
        objects->copyElements(*viewer, to, toStart, from, fromStart, count);
    }
    template <class Same>
    std::optional<uint32_t> findElement(Oop oop, uint32_t hash, Same same) const {
        return objects->findElement(*viewer, oop, hash, same);
    }
    void addElement(Oop oop, Oop element, uint32_t hash) const { objects->addElement(*viewer, oop, element, hash); }
    void removeElement(Oop oop, uint32_t position) const { objects->removeElement(*viewer, oop, position); }
    uint32_t readBytes(Oop oop, uint32_t start, std::span<ByteType> destination) const {
        return objects->readBytes(*viewer, oop, start, destination);
    }
    std::span<const ByteType> bytes(Oop oop) const { return objects->bytes(*viewer, oop); }
    void writeBytes(Oop oop, uint32_t start, std::span<const ByteType> bytes) const {
        objects->writeBytes(*viewer, oop, start, bytes);
    }

private:
    Store* objects;
    Store::Session* viewer;
};

} // namespace local
