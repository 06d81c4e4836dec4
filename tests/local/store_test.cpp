// The store by itself: who sees what, and what is collected.
#include "store/store.h"

#include <gtest/gtest.h>

#include <set>

namespace local {
namespace {

constexpr Oop someClass = 4001;
constexpr Shape pointers{someClass, Body::Pointer, true, 1};
constexpr Shape bytes{someClass, Body::Byte, true, 0};

struct NoRoots : Store::Roots {
    void addRoots(const std::function<void(Oop)>& mark) override {
        for (Oop root : roots) {
            mark(root);
        }
    }
    void visit(Oop, Oop, Oop, const std::function<void(Oop)>&) override {}
    void swept(const std::function<bool(Oop)>&) override {}

    std::set<Oop> roots;
};

class StoreTest : public testing::Test {
protected:
    StoreTest() {
        store.createAt(someClass, pointers, 0);
        store.openSession(1);
        store.openSession(2);
    }

    std::set<Oop> changes(SessionId session) {
        Oop taken[10];
        bool more = false;
        uint32_t count = store.takeChanged(session, taken, &more);
        return {taken, taken + count};
    }

    // What a shared object leads to is published.
    Oop committedObject(Oop oop) {
        store.setSlot(1, someClass, 0, oop);
        EXPECT_TRUE(store.commit(1));
        return oop;
    }
    Oop committedObject() { return committedObject(store.create(1, pointers, 1)); }

    Store store;
    NoRoots roots;
};

TEST_F(StoreTest, IdentifiersAreOrdinary) {
    for (int i = 0; i < 1000; ++i) {
        Oop oop = store.create(1, bytes, 0);
        EXPECT_TRUE(isReference(oop)) << oop;
        EXPECT_GT(oop, 2u * KCI_CATEGORY_SYSTEM); // far from the fixed ones
    }
}

TEST_F(StoreTest, ObjectsArePrivateUntilCommit) {
    Oop oop = store.create(1, pointers, 2);
    EXPECT_TRUE(store.exists(1, oop));
    EXPECT_FALSE(store.exists(2, oop));
    EXPECT_THROW(store.slot(2, oop, 0), NoSuchObject);
    EXPECT_TRUE(store.commit(1));
    EXPECT_FALSE(store.exists(2, oop)) << "nothing shared leads to it";
    Oop inner = store.create(1, bytes, 0);
    store.setSlot(1, oop, 0, inner);
    committedObject(oop);
    EXPECT_TRUE(store.exists(2, oop) && store.exists(2, inner));
}

TEST_F(StoreTest, ChangesAreSeenAfterCommitAndGoneAfterAbort) {
    Oop oop = committedObject();
    store.setSlot(1, oop, 0, smallIntegerOop(1));
    EXPECT_EQ(store.slot(1, oop, 0), smallIntegerOop(1));
    EXPECT_EQ(store.slot(2, oop, 0), nil);
    store.abort(1, KCI_OOP_NONE);
    EXPECT_EQ(store.slot(1, oop, 0), nil);
    store.setSlot(1, oop, 0, smallIntegerOop(2));
    EXPECT_TRUE(store.commit(1));
    EXPECT_EQ(store.slot(2, oop, 0), smallIntegerOop(2));
}

TEST_F(StoreTest, SecondWriterOfAnObjectIsRefused) {
    Oop shared = committedObject();
    Oop other = committedObject();
    store.setSlot(1, shared, 0, smallIntegerOop(1));
    store.setSlot(2, shared, 0, smallIntegerOop(2));
    store.setSlot(2, other, 0, smallIntegerOop(3));
    EXPECT_TRUE(store.commit(1));
    EXPECT_FALSE(store.commit(2));
    EXPECT_EQ(store.slot(1, other, 0), nil) << "a refused commit publishes nothing";
    EXPECT_EQ(store.slot(2, shared, 0), smallIntegerOop(2));
    store.abort(2, KCI_OOP_NONE);
    EXPECT_EQ(store.slot(2, shared, 0), smallIntegerOop(1));
    store.setSlot(2, shared, 0, smallIntegerOop(4));
    EXPECT_TRUE(store.commit(2));
}

TEST_F(StoreTest, AbortKeepsObjectsOfTheKeptClass) {
    Oop oop = committedObject();
    store.setSlot(1, oop, 0, smallIntegerOop(1));
    store.abort(1, someClass);
    EXPECT_EQ(store.slot(1, oop, 0), smallIntegerOop(1));
}

TEST_F(StoreTest, ChangesOfExportedObjectsAreReportedOnce) {
    Oop exported = committedObject();
    Oop hidden = committedObject();
    store.exportObject(1, exported);
    store.setSlot(1, exported, 0, nil);
    store.trackChanges(1);
    EXPECT_EQ(changes(1), std::set<Oop>{}) << "changes before tracking";
    store.setSlot(1, exported, 0, KCI_OOP_TRUE);
    store.setSlot(1, hidden, 0, KCI_OOP_TRUE);
    EXPECT_EQ(changes(1), std::set{exported});
    EXPECT_EQ(changes(1), std::set<Oop>{});
    store.abort(1, KCI_OOP_NONE);
    EXPECT_EQ(changes(1), std::set{exported}) << "an abort changes what the session sees";
    store.setSlot(2, exported, 0, KCI_OOP_TRUE);
    EXPECT_EQ(changes(1), std::set<Oop>{});
    EXPECT_TRUE(store.commit(2));
    EXPECT_EQ(changes(1), std::set{exported});
    store.setSlot(1, exported, 0, nil);
    store.release(1, exported);
    EXPECT_EQ(changes(1), std::set<Oop>{});
}

TEST_F(StoreTest, CollectionKeepsWhatIsReached) {
    Oop root = store.create(1, pointers, 0);
    Oop inner = store.create(1, bytes, 10);
    Oop exported = store.create(2, bytes, 10);
    Oop lost = store.create(1, bytes, 10);
    Oop byCopyOnly = store.create(1, bytes, 10);
    store.setSlot(1, root, 0, inner);
    store.exportObject(2, exported);
    roots.roots = {root};
    committedObject(root);
    store.setSlot(1, root, 0, byCopyOnly); // the committed version still leads to inner, the copy does not
    store.collect(roots);
    EXPECT_TRUE(store.exists(1, inner) && store.exists(2, exported) && store.exists(1, byCopyOnly));
    EXPECT_FALSE(store.exists(1, lost));
    store.closeSession(2);
    store.collect(roots);
    EXPECT_FALSE(store.exists(1, exported));
}

TEST_F(StoreTest, MemoryStaysFlat) {
    uint32_t before = store.objectCount();
    for (int i = 0; i < 200000; ++i) {
        Oop oop = store.create(1, bytes, 200);
        store.exportObject(1, oop);
        store.release(1, oop);
        if (store.collectionDue()) {
            store.collect(roots);
        }
        ASSERT_LT(store.memory(), 64u << 20);
    }
    store.collect(roots);
    EXPECT_EQ(store.objectCount(), before);
}

TEST_F(StoreTest, LimitsHold) {
    Oop text = store.create(1, bytes, 0);
    const ByteType byte[2] = {};
    EXPECT_THROW(store.create(1, bytes, Store::maxBytes + 1), StoreFull);
    EXPECT_THROW(store.create(1, pointers, Store::maxElements + 1), StoreFull);
    EXPECT_THROW(store.writeBytes(1, text, Store::maxBytes - 1, byte), StoreFull);
    EXPECT_THROW(store.writeBytes(1, text, UINT32_MAX, byte), StoreFull);
    EXPECT_THROW(store.resize(1, text, Store::maxBytes + 1), StoreFull);
    EXPECT_EQ(store.describe(1, text).size, 0u);
    for (Oop wrong : {Oop{0}, Oop{1}, nil, Oop{5}, Oop{4}, text + 1, text - 1, text + 4000000, Oop{0xFFFFFFFD}}) {
        EXPECT_FALSE(store.exists(1, wrong)) << wrong;
    }
}

} // namespace
} // namespace local
