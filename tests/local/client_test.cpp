// The entry points: sessions, calls, object transfer, export set and changes.
#include "client_fixture.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <set>
#include <thread>
#include <tuple>

namespace local_tests {

TEST_F(LocalClient, TableIsComplete) {
    EXPECT_EQ(kci.kciFeatureLevel, KCI_ENTRY_COUNT);
    EXPECT_EQ(kci.kciCompatiblityLevel, 0);
    EXPECT_EQ(kci.KciProduct(), 1);
    EXPECT_GE(strcmp(kci.KciVersion(), "6.7"), 0);
    EXPECT_LE(strcmp(kci.KciVersion(), "6.9.999"), 0);
    KciOtherFunc* const* entries = &kci.KciAbort;
    EXPECT_EQ(std::count(entries, entries + KCI_ENTRY_COUNT, nullptr), 0);
    kci.KciHelp();
    EXPECT_EQ(pending(), 4101);
    EXPECT_STREQ(error.message, "KciHelp is not supported by the local store");
}

TEST_F(LocalClient, LoginIsChecked) {
    struct Case {
        const char* users;
        const char* user;
        const char* password;
        bool accepted;
    };
    const char* const two = "ann:a:b;bob:";
    for (const auto& [users, user, password, accepted] :
         {Case{nullptr, "guest", "guest", true}, Case{nullptr, "guest", "", false},
          Case{nullptr, "guest", "guest;", false}, Case{nullptr, "", "", false}, Case{nullptr, nullptr, nullptr, false},
          Case{two, "ann", "a:b", true}, Case{two, "bob", "", true}, Case{two, "guest", "guest", false},
          Case{two, "ann:a", "b", false}, Case{"", "guest", "guest", true}}) {
        users ? setenv("KCILOCAL_USERS", users, 1) : unsetenv("KCILOCAL_USERS");
        EXPECT_EQ(kci.KciLogin(user, password) != 0, accepted) << (user ? user : "NULL");
        EXPECT_EQ(pending(), accepted ? 0 : 4051);
    }
}

TEST_F(LocalClient, SessionsKeepTheirOwnState) {
    KciSessionIdType first = kci.KciGetSessionId();
    evaluate("mine := 1");
    kci.KciFetchBytes(KCI_OOP_NIL, 1, nullptr, 0); // leaves an error pending
    KciSessionIdType second = logIn();
    EXPECT_NE(first, second);
    EXPECT_EQ(pending(), 0) << "the pending error is the first session's";
    EXPECT_EQ(print("mine"), "error 2189: the name mine is not known");

    kci.KciSetSessionId(77);
    EXPECT_EQ(kci.KciGetSessionId(), second);
    EXPECT_EQ(pending(), 4100);
    EXPECT_EQ(error.category, KCI_CATEGORY_SYSTEM);
    kci.KciSetSessionId(77); // what this one leaves untaken is no other call's
    EXPECT_EQ(kci.KciLongToOop(1 << 30) & 2, 0u);
    EXPECT_EQ(pending(), 0);
    kci.KciSetSessionId(77);
    kci.KciSetSessionId(second);
    EXPECT_EQ(pending(), 0);
    kci.KciLogin("guest", "wrong");
    ASSERT_TRUE(kci.KciLogin("guest", "guest"));
    EXPECT_EQ(pending(), 0);

    kci.KciSetSessionId(first);
    EXPECT_EQ(pending(), 2094);
    EXPECT_EQ(pending(), 0) << "fetching clears";
    EXPECT_EQ(print("mine"), "1");

    kci.KciLogout();
    EXPECT_EQ(kci.KciGetSessionId(), 0);
    kci.KciSetSessionId(first);
    EXPECT_TRUE(kci.KciErr(&error));
    EXPECT_EQ(kci.KciNewOop(KCI_CLASS_STRING), KCI_OOP_ILLEGAL);
    EXPECT_EQ(pending(), 2139);
    kci.KciSetSessionId(second);
    EXPECT_EQ(print("3 + 4"), "7");
}

TEST_F(LocalClient, CallsRunInSlices) {
    evaluate("System sliceSize: 100");
    kci.KciNbExecuteStr("| i | i := 0. [i < 1000] whileTrue: [i := i + 1]. i", KCI_OOP_NIL);
    void* result = nullptr;
    int progressed = 0;
    KciNbProgressEType progress = KCI_RESULT_READY;
    while ((progress = kci.KciNbEnd(&result)) != KCI_RESULT_READY) {
        EXPECT_EQ(progress, KCI_RESULT_PROGRESSED);
        EXPECT_EQ(result, nullptr);
        ++progressed;
    }
    EXPECT_GE(progressed, 50);
    EXPECT_EQ(*static_cast<OopType*>(result), small(1000));

    kci.KciNbExecuteStr("System waitMilliseconds: 30. 5", KCI_OOP_NIL);
    bool waited = false;
    while ((progress = kci.KciNbEnd(&result)) != KCI_RESULT_READY) {
        waited = waited || progress == KCI_RESULT_NOT_READY;
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    EXPECT_TRUE(waited);
    EXPECT_EQ(*static_cast<OopType*>(result), small(5));
}

TEST_F(LocalClient, EndlessLoopStaysPollableAndBreaks) {
    kci.KciNbExecuteStr("n := 0. [true] whileTrue: [n := n + 1]", KCI_OOP_NIL);
    void* result = nullptr;
    for (int i = 0; i < 20; ++i)
        ASSERT_EQ(kci.KciNbEnd(&result), KCI_RESULT_PROGRESSED);
    EXPECT_EQ(kci.KciNewOop(KCI_CLASS_STRING), KCI_OOP_ILLEGAL);
    kci.KciNbExecuteStr("1", KCI_OOP_NIL);
    EXPECT_EQ(pending(), 2203);
    kci.KciSoftBreak();
    finish();
    EXPECT_EQ(error.number, 6003);
    OopType process = error.context;
    std::thread breaker([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        kci.KciHardBreak();
    });
    kci.KciContinueWith(process, KCI_OOP_ILLEGAL, 0, nullptr);
    breaker.join();
    EXPECT_EQ(pending(), 6004);
    EXPECT_EQ(error.context, process);
    EXPECT_EQ(print("n > 100"), "true");
    EXPECT_EQ(kci.KciNbEnd(&result), KCI_RESULT_READY);
    EXPECT_TRUE(kci.KciErr(&error)) << "nothing is in progress";
}

TEST_F(LocalClient, SuspendedProcessContinuesWithAValue) {
    struct Case {
        const char* source;
        int32_t number;
        OopType value;
        OopType result;
    };
    for (const auto& [source, number, value, result] :
         {Case{"3 foo + 4", 2010, small(6), small(10)},
          Case{"(3 foo: 1 bar: 2) class name == #Nil", 2010, KCI_OOP_ILLEGAL, KCI_OOP_TRUE},
          Case{"unknown1 + 1", 2189, small(1), small(2)},
          Case{"(5 ifTrue: [1] ifFalse: [2]) * 10", 2211, KCI_OOP_FALSE, small(20)},
          Case{"System halt. 12", 6003, KCI_OOP_ILLEGAL, small(12)},
          Case{"[:x | x / 0] value: 4", 2094, small(9), small(9)}}) {
        evaluate(source);
        EXPECT_EQ(error.number, number) << source << ": " << error.message;
        EXPECT_EQ(kci.KciContinueWith(error.context, value, 0, nullptr), result) << source;
        EXPECT_EQ(pending(), 0) << source << ": " << error.message;
        evaluate(source);
        kci.KciNbContinueWith(error.context, value, 0);
        EXPECT_TRUE(kci.KciCallInProgress());
        EXPECT_EQ(finish(), result) << source;
        EXPECT_EQ(error.number, 0) << source << ": " << error.message;
    }
    evaluate("#(7 8) inject: 0 into: [:a :b | a + (b at: 1)]"); // fails twice, in the same process
    OopType process = error.context;
    kci.KciContinueWith(process, small(5), 0, nullptr);
    EXPECT_EQ(pending(), 2004);
    EXPECT_EQ(error.context, process);
    EXPECT_EQ(kci.KciContinueWith(process, small(0), 0, nullptr), small(5));
    EXPECT_EQ(kci.KciContinueWith(process, small(8), 0, nullptr), KCI_OOP_ILLEGAL) << "it has ended";
    EXPECT_EQ(pending(), 2094);
    kci.KciContinueWith(process, small(8), 1, nullptr);
    EXPECT_EQ(pending(), 4101);
    kci.KciNbContinueWith(process, small(8), 0);
    EXPECT_EQ(finish(), KCI_OOP_ILLEGAL);
    EXPECT_EQ(error.number, 2094);
    kci.KciNbContinueWith(process, small(8), 1);
    EXPECT_EQ(pending(), 4101);
}

TEST_F(LocalClient, ErrorsCarryTheirArguments) {
    evaluate("3 at: 4 foo: 'five'");
    EXPECT_EQ(error.category, KCI_CATEGORY_SYSTEM);
    EXPECT_EQ(error.number, 2010);
    ASSERT_EQ(error.argCount, 3);
    EXPECT_EQ(error.args[0], small(3));
    EXPECT_EQ(bytes(error.args[1]), "at:foo:");
    OopType arguments[3] = {};
    EXPECT_EQ(kci.KciFetchVaryingOops(error.args[2], 1, arguments, 3), 2);
    EXPECT_EQ(arguments[0], small(4));
    EXPECT_EQ(bytes(arguments[1]), "five");
    OopType number = kci.KciFetchNamedOop(error.context, 1);
    EXPECT_EQ(number, small(2010)) << "the process tells its error";

    evaluate("System error: (String new: 500)");
    EXPECT_EQ(error.number, 2094);
    EXPECT_EQ(strlen(error.message), 400u);
    evaluate("System error: ((1 to: 200) inject: 'xx' into: [:text :i | text , '\xE6\x97\xA5'])");
    EXPECT_EQ(strlen(error.message), 2u + 132 * 3) << "cut at a character's border";
}

TEST_F(LocalClient, SourceComesFromStringObjectsToo) {
    kci.KciNbExecute(string("'\xC3\xA9' , 'x'"), KCI_OOP_NIL);
    EXPECT_EQ(bytes(finish()), "\xE9x");
    OopType wide = kci.KciNewOop(KCI_CLASS_DB_STRING);
    std::u16string source = u"'日本' size";
    kci.KciStoreBytesInstanceOf(KCI_OOP_NIL, wide, 1, reinterpret_cast<const ByteType*>(source.data()),
                                static_cast<ArraySizeType>(source.size() * 2));
    kci.KciNbExecute(wide, KCI_OOP_NIL);
    EXPECT_EQ(finish(), small(2));
    kci.KciNbExecute(small(3), KCI_OOP_NIL);
    finish();
    EXPECT_EQ(error.number, 2094);
}

TEST_F(LocalClient, PerformChecksItsArguments) {
    EXPECT_EQ(perform(small(3), "+", {small(4)}), small(7));
    EXPECT_EQ(perform(small(3), "between:and:", {small(1), small(5)}), KCI_OOP_TRUE);
    const std::pair<const char*, std::vector<OopType>> wrong[] = {
        {"+", {}}, {"negated", {small(1)}}, {"max:", {small(1), small(2)}}, {"", {small(1)}}};
    for (const auto& [selector, arguments] : wrong) {
        perform(small(3), selector, arguments);
        EXPECT_EQ(error.number, 2005) << selector;
    }
    perform(18, "printString");
    EXPECT_EQ(error.number, 2094);
    perform(small(3), "+", {OopType{123456789}});
    EXPECT_EQ(error.number, 2094);
    OopType one = small(1);
    kci.KciNbPerform(small(3), "+", &one, static_cast<ArraySizeType>(-1));
    EXPECT_EQ(pending(), 2094);
}

TEST_F(LocalClient, ObjectsAreDescribed) {
    const struct {
        const char* source;
        int body;
        int named;
        int size;
        bool indexable;
        OopType cls; // 0: do not care
    } cases[] = {
        {"'abc'", KCI_IMPL_BYTE, 0, 3, true, KCI_CLASS_STRING},
        {"w'abc'", KCI_IMPL_BYTE, 0, 6, true, KCI_CLASS_DB_STRING},
        {"1.5", KCI_IMPL_BYTE, 0, 8, true, KCI_CLASS_FLOAT},
        {"{1. 2}", KCI_IMPL_POINTER, 0, 2, true, 0},
        {"Set new add: 1; add: 2; add: 3; yourself", KCI_IMPL_NSC, 0, 3, false, 0},
        {"DateTime now", KCI_IMPL_POINTER, 4, 4, false, KCI_CLASS_DATE_TIME},
        {"(Object indexedSubclass: #Pair variables: #(#a #b)) new: 3", KCI_IMPL_POINTER, 2, 5, true, 0},
        {"Object", KCI_IMPL_POINTER, 12, 12, false, 0},
        {"$a", KCI_IMPL_SPECIAL, 0, 0, false, 0},
    };
    for (const auto& [source, body, named, size, indexable, cls] : cases) {
        SCOPED_TRACE(source);
        OopType object = evaluate(source);
        KciObjInfoSType info{};
        ByteType room[64];
        ArraySizeType fetched = 0;
        ASSERT_TRUE(kci.KciFetchObjInfo(object, 1, sizeof room, &info, room, &fetched));
        EXPECT_EQ(info.objId, object);
        EXPECT_EQ(std::tuple(+info.objImpl, info.namedSize, info.objSize, info.isIndexable != 0),
                  std::tuple(body, named, size, indexable));
        EXPECT_EQ(cls == 0 ? 0 : info.objClass, cls);
        EXPECT_EQ(fetched, static_cast<ArraySizeType>(std::min(size, body == KCI_IMPL_BYTE ? 64 : 16)));
        EXPECT_EQ(kci.KciFetchNamedOop(info.objClass, 12) & 2, 0u) << "the class history is an object";
        EXPECT_EQ(pending(), 0);
    }
    for (const char* source : {"'abc'", "w'abc'"}) {
        EXPECT_TRUE(kci.KciIsKindOf(evaluate(source), KCI_CLASS_STRING_KIND));
        EXPECT_EQ(kci.KciIsKindOf(evaluate(source), KCI_CLASS_DB_STRING) != 0, *source == 'w');
    }
    EXPECT_FALSE(kci.KciIsKindOf(small(3), KCI_CLASS_STRING_KIND));
    EXPECT_EQ(pending(), 0);
    EXPECT_FALSE(kci.KciIsKindOf(small(3), small(3)));
    EXPECT_TRUE(kci.KciErr(&error));
}

TEST_F(LocalClient, BodiesAreTransferred) {
    OopType text = string("hello");
    ByteType buffer[10] = {};
    EXPECT_EQ(kci.KciFetchBytes(text, 2, buffer, 10), 4);
    EXPECT_EQ(memcmp(buffer, "ello", 4), 0);
    store(text, 6, "!!");
    EXPECT_EQ(bytes(text), "hello!!");

    OopType array = evaluate("{1. 2. 3}");
    OopType values[2] = {text, small(9)};
    kci.KciStoreIdxOops(array, 3, values, 2);
    OopType back[10] = {};
    EXPECT_EQ(kci.KciFetchVaryingOops(array, 2, back, 10), 3);
    EXPECT_EQ(std::vector<OopType>(back, back + 3), (std::vector{small(2), text, small(9)}));
    EXPECT_EQ(kci.KciFetchVaryingOops(array, 9, back, 10), 0);
    KciObjInfoSType info{};
    ArraySizeType fetched = 0;
    ASSERT_TRUE(kci.KciFetchObjInfo(text, 5, 10, &info, buffer, &fetched));
    EXPECT_EQ(std::string(buffer, buffer + fetched), "o!!");
    ASSERT_TRUE(kci.KciFetchObjInfo(array, 1, 7, &info, buffer, &fetched)); // room for one whole reference
    EXPECT_EQ(fetched, 1u);

    KciDateTimeSType day{2024, 366, 86399999, KCI_OOP_NIL};
    KciDateTimeSType sameDay{};
    EXPECT_TRUE(kci.KciFetchDateTime(kci.KciNewDateTime(KCI_CLASS_DATE_TIME, &day), &sameDay));
    EXPECT_EQ(memcmp(&day, &sameDay, sizeof day), 0);
    day.year = 2023;
    EXPECT_EQ(kci.KciOopToLong(kci.KciLongToOop(INT32_MIN)), INT32_MIN);

    OopType pair = evaluate("1 -> 2");
    kci.KciStoreNamedOops(pair, 2, values, 1);
    EXPECT_EQ(kci.KciFetchNamedOop(pair, 2), text);
    EXPECT_EQ(pending(), 0) << error.message;

    OopType nowhere = 123456789;
    const struct {
        const char* what;
        std::function<void()> call;
        int32_t number;
    } failing[] = {
        {"start 0", [&] { kci.KciFetchBytes(text, 0, buffer, 1); }, 2110},
        {"gap", [&] { kci.KciStoreBytesInstanceOf(10, text, 9, buffer, 1); }, 2110},
        {"far gap", [&] { kci.KciStoreBytesInstanceOf(10, text, INT32_MAX, buffer, 1); }, 2110},
        {"beyond the limit", [&] { store(string(std::string(16 << 20, 'x')), (16 << 20) + 1, "y"); }, 2208},
        {"bytes of an array", [&] { kci.KciFetchBytes(array, 1, buffer, 1); }, 2094},
        {"references of a string", [&] { kci.KciFetchVaryingOops(text, 1, back, 1); }, 2094},
        {"other class", [&] { kci.KciStoreBytesInstanceOf(KCI_CLASS_FLOAT, text, 1, buffer, 1); }, 2094},
        {"beyond the variables", [&] { kci.KciStoreNamedOops(pair, 2, values, 2); }, 2110},
        {"no 13th variable", [&] { kci.KciFetchNamedOop(KCI_CLASS_STRING, 13); }, 2110},
        {"unordered", [&] { kci.KciStoreIdxOops(evaluate("Set new"), 1, values, 1); }, 2094},
        {"unknown element", [&] { kci.KciStoreIdxOops(array, 1, &nowhere, 1); }, 2094},
        {"unknown object", [&] { kci.KciFetchBytes(nowhere, 1, buffer, 1); }, 2094},
        {"immediate", [&] { kci.KciFetchNamedOop(small(3), 1); }, 2094},
        {"symbol", [&] { kci.KciStoreBytesInstanceOf(10, evaluate("#abc"), 1, buffer, 1); }, 2094},
        {"class", [&] { kci.KciStoreNamedOops(KCI_CLASS_STRING, 1, values, 1); }, 2094},
        {"block", [&] { kci.KciStoreNamedOops(evaluate("[1]"), 1, values, 1); }, 2094},
        {"new block", [&] { kci.KciNewOop(evaluate("Block")); }, 2094},
        {"new of no class", [&] { kci.KciNewOop(small(1)); }, 2094},
        {"negative count", [&] { kci.KciFetchBytes(text, 1, buffer, static_cast<ArraySizeType>(-1)); }, 2094},
        {"save nothing", [&] { kci.KciSaveObjs(&nowhere, 1); }, 2094},
        {"beyond the end", [&] { kci.KciFetchObjInfo(array, 6, 8, &info, buffer, &fetched); }, 2110},
        {"no such day", [&] { kci.KciNewDateTime(KCI_CLASS_DATE_TIME, &day); }, 2161},
        {"no date", [&] { kci.KciFetchDateTime(small(1), &day); }, 2094},
        {"no float", [&] { kci.KciOopToFlt(small(1)); }, 2120},
        {"more than 32 bits", [&] { kci.KciOopToLong(evaluate("10000000000")); }, 2163},
        {"null", [&] { kci.KciFetchObjInfo(text, 1, 0, nullptr, nullptr, nullptr); }, 2094},
    };
    for (const auto& [what, call, number] : failing) {
        call();
        EXPECT_EQ(pending(), number) << what << ": " << error.message;
    }
}

TEST_F(LocalClient, ChangedObjectsAreReported) {
    OopType array = evaluate("kept := {1. 2}");
    OopType text = string("new"); // filling it is no change
    EXPECT_EQ(changed(), std::set<OopType>{});
    evaluate("kept at: 1 put: 5");
    store(text, 1, "N");
    EXPECT_EQ(changed(), (std::set{array, text}));
    EXPECT_EQ(changed(), std::set<OopType>{});
    evaluate("kept at: 1 put: 6. 'x'");
    store(text, 1, "M");
    OopType one = 0;
    ArraySizeType count = 1;
    EXPECT_TRUE(kci.KciDirtySaveObjs(&one, &count)) << "one more remains";
    EXPECT_EQ(count, 1u);
    count = 1;
    EXPECT_FALSE(kci.KciDirtySaveObjs(&one, &count));
    EXPECT_EQ(count, 1u);
    evaluate("kept at: 1 put: 7");
    kci.KciReleaseOops(&array, 1);
    evaluate("kept at: 1 put: 8");
    EXPECT_EQ(changed(), std::set<OopType>{});
    EXPECT_EQ(pending(), 0);
}

TEST_F(LocalClient, ReleasedObjectsAreCollected) {
    OopType kept = string("kept");
    OopType released = string("released");
    OopType global = evaluate("g := 'global'");
    kci.KciReleaseOops(&released, 1);
    kci.KciReleaseOops(&global, 1);
    evaluate("3 foo");
    OopType process = error.context;
    evaluate("System collectGarbage");
    EXPECT_TRUE(exists(kept) && exists(global));
    EXPECT_FALSE(exists(released));
    EXPECT_EQ(kci.KciContinueWith(process, small(4), 0, nullptr), small(4)) << "it outlived the collection";

    KciSessionIdType first = kci.KciGetSessionId();
    logIn();
    OopType exported = string("exported");
    evaluate("System commit. System collectGarbage");
    EXPECT_TRUE(exists(exported));
    kci.KciLogout();
    kci.KciSetSessionId(first);
    evaluate("System collectGarbage");
    EXPECT_FALSE(exists(exported)) << "its export set is gone";
}

// Transactions through the entries, and what they do to export set, changes and processes.
TEST_F(LocalClient, TransactionsReachOtherSessions) {
    KciSessionIdType first = kci.KciGetSessionId();
    OopType list = evaluate("Shared at: #list put: (List new)");
    KciSessionIdType second = logIn();
    EXPECT_FALSE(exists(list)) << "not even by its identifier";
    kci.KciSetSessionId(first);
    EXPECT_TRUE(kci.KciCommit());
    kci.KciSetSessionId(second);
    EXPECT_EQ(print("list"), "error 2189: the name list is not known");
    kci.KciBegin();
    EXPECT_TRUE(exists(list));
    EXPECT_EQ(print("list add: 1. list"), "List(1)");
    kci.KciSetSessionId(first);
    EXPECT_EQ(print("list"), "List()");
    kci.KciDirtyObjsInit();
    kci.KciSetSessionId(second);
    EXPECT_TRUE(kci.KciCommit());
    kci.KciSetSessionId(first);
    EXPECT_EQ(print("list"), "List()");
    EXPECT_FALSE(changed().contains(list));
    kci.KciAbort();
    EXPECT_EQ(print("list"), "List(1)");
    EXPECT_TRUE(changed().contains(list)) << "the other session's commit changed it";
    evaluate("3 foo");
    OopType process = error.context;
    evaluate("list add: 2");
    EXPECT_TRUE(changed().contains(list));
    EXPECT_EQ(print("System abort. list"), "List(1)");
    EXPECT_TRUE(changed().contains(list)) << "the abort changed it";
    EXPECT_EQ(kci.KciContinueWith(process, small(6), 0, nullptr), small(6)) << "an abort keeps processes";
}

TEST_F(LocalClient, ShutDownEndsEverything) {
    kci.KciShutdown();
    EXPECT_EQ(kci.KciGetSessionId(), 0);
    EXPECT_FALSE(kci.KciLogin("guest", "guest"));
    EXPECT_TRUE(kci.KciErr(&error));
    EXPECT_TRUE(kci.KciInit());
    logIn();
    EXPECT_EQ(print("3 + 4"), "7");
}

} // namespace local_tests
