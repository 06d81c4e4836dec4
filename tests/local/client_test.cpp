// The entry points: sessions, calls, object transfer, export set and changes.
#include "client_fixture.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <sys/wait.h>
#include <thread>
#include <tuple>
#include <unistd.h>

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
         {Case{two, "ann", "a:b", true}, Case{two, "bob", "", true}, Case{two, "guest", "guest", false},
          Case{two, "ann:a", "b", false}, Case{nullptr, "guest", "", false}, Case{nullptr, nullptr, nullptr, false}}) {
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
    kci.KciSetSessionId(second);
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

TEST_F(LocalClient, EndlessLoopStaysPollableAndBreaks) {
    evaluate("System sliceSize: 100");
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

// The call of one runs, that of the other waits.
TEST_F(LocalClient, BreaksReachTheSessionThatWasSelected) {
    KciSessionIdType first = kci.KciGetSessionId();
    OopType system = evaluate("System");
    const OopType wait = small(300);
    kci.KciNbPerform(system, "waitMilliseconds:", &wait, 1);
    kci.KciSoftBreak();
    ASSERT_TRUE(kci.KciLogin("guest", "guest"));
    KciSessionIdType second = kci.KciGetSessionId();
    kci.KciNbExecuteStr("[true] whileTrue: [nil]", KCI_OOP_NIL);
    void* result = nullptr;
    EXPECT_EQ(kci.KciNbEnd(&result), KCI_RESULT_PROGRESSED);
    kci.KciSetSessionId(first);
    EXPECT_EQ(kci.KciNbEnd(&result), KCI_RESULT_READY);
    EXPECT_TRUE(kci.KciErr(&error) && error.number == 6003);
    EXPECT_EQ(kci.KciContinueWith(error.context, KCI_OOP_NIL, 0, nullptr), system);
    kci.KciSetSessionId(second);
    EXPECT_EQ(kci.KciNbEnd(&result), KCI_RESULT_PROGRESSED);
    kci.KciSoftBreak();
    EXPECT_EQ(kci.KciNbEnd(&result), KCI_RESULT_READY);
}

TEST_F(LocalClient, TheProcessMayEndDuringACall) {
    for (int i = 0; i < 30; ++i) {
        pid_t child = fork();
        if (child == 0) {
            kci.KciNbExecuteStr("[true] whileTrue: [#(1 2 3) collect: [:e | e printString]]", KCI_OOP_NIL);
            std::thread([this] {
                for (void* result = nullptr;;)
                    kci.KciNbEnd(&result);
            }).detach();
            usleep(3000);
            std::exit(0);
        }
        int status = -1;
        waitpid(child, &status, 0);
        ASSERT_EQ(status, 0) << "process " << i;
    }
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
    evaluate("#(7 8) inject: 0 into: [:a :b | a + (b at: 1)]"); // fails twice, in the
                                                                // same process
    OopType process = error.context;
    kci.KciContinueWith(process, small(5), 0, nullptr);
    EXPECT_EQ(pending(), 2004);
    EXPECT_EQ(error.context, process);
    EXPECT_EQ(kci.KciContinueWith(process, small(0), 0, nullptr), small(5));
    EXPECT_EQ(kci.KciContinueWith(process, small(8), 0, nullptr), KCI_OOP_ILLEGAL) << "it has ended";
    EXPECT_EQ(pending(), 2094);
    kci.KciContinueWith(process, small(8), 1, nullptr);
    EXPECT_EQ(pending(), 4101);
}

// A break leaves a large text half copied, and what is left of it finds other texts, or no room.
TEST_F(LocalClient, TransactionsEndWhileATextIsCopied) {
    setenv("KCILOCAL_MEMORY", "24", 1);
    logIn();
    evaluate("Shared at: #text put: ''. System commit. big := String new: 6000000. System sliceSize: 1");
    for (const auto& [source, commits, number] :
         {std::tuple("text asUppercase", false, 2004), std::tuple("text add: big", false, 2004),
          std::tuple("text add: big", true, 2208)}) {
        evaluate("text add: big");
        kci.KciNbExecuteStr(source, KCI_OOP_NIL);
        for (int i = 0; i < 3; ++i) {
            EXPECT_EQ(kci.KciNbEnd(nullptr), KCI_RESULT_PROGRESSED);
        }
        kci.KciSoftBreak();
        finish();
        EXPECT_EQ(error.number, 6003);
        OopType process = error.context;
        commits ? static_cast<void>(kci.KciCommit()) : kci.KciAbort();
        EXPECT_EQ(kci.KciContinueWith(process, KCI_OOP_ILLEGAL, 0, nullptr), KCI_OOP_ILLEGAL);
        EXPECT_EQ(pending(), number) << source;
        EXPECT_EQ(print("3 + 4"), "7");
    }
    // A limit below what the store holds already: calls end, without a process that would need more.
    setenv("KCILOCAL_MEMORY", "16", 1);
    logIn();
    unsetenv("KCILOCAL_MEMORY");
    for (const auto& [source, number] : {std::pair("System halt", 6003), std::pair("[true] whileTrue: [nil]", 2208)}) {
        evaluate(source);
        EXPECT_EQ(error.number, number);
        EXPECT_EQ(error.context, KCI_OOP_NIL);
    }
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
    EXPECT_EQ(bytes(arguments[1]), "five");
    OopType number = kci.KciFetchNamedOop(error.context, 1);
    EXPECT_EQ(number, small(2010)) << "the process tells its error";

    evaluate("System error: ((1 to: 200) inject: 'xx' into: [:text :i | text , "
             "'\xE6\x97\xA5'])");
    EXPECT_EQ(strlen(error.message), 2u + 132 * 3) << "cut at a character's border";
}

TEST_F(LocalClient, ErrorsNameEntryArgumentAndValue) {
    const OopType many = small(4000000), missing = 40001;
    const std::pair<std::function<void()>, const char*> rows[] = {
        {[&] { kci.KciStoreIdxOops(small(3), 1, nullptr, 2); }, "KciStoreIdxOops: oops is NULL, not 2 elements"},
        {[&] { kci.KciNbPerform(evaluate("List new"), "add:", &missing, 1), kci.KciNbEnd(nullptr); },
         "no object has the identifier 40001"},
        {[&] { kci.KciOopToBool(small(3)); }, "3 is not a Boolean"},
        {[&] { setenv("KCILOCAL_SLICE", "20x", 1), kci.KciLogin("guest", "guest"); },
         "KCILOCAL_SLICE is '20x', not a number from 1 to 1000000000"},
        {[&] { unsetenv("KCILOCAL_SLICE"), setenv("KCILOCAL_MEMORY", "8", 1), kci.KciLogin("guest", "guest"); },
         "KCILOCAL_MEMORY is '8', not a number from 16 to 2048"},
        {[&] {
             setenv("KCILOCAL_MEMORY", "20", 1), kci.KciLogin("guest", "guest"), evaluate("kept := Array new: 3000000"),
                 kci.KciNbPerform(evaluate("Array"), "new:", &many, 1), kci.KciNbEnd(nullptr);
         },
         "the local store would hold more than 20 MiB"},
        {[&] { setenv("KCILOCAL_USERS", "bob", 1), kci.KciLogin("bob", ""); },
         "login to the local store denied: KCILOCAL_USERS holds no pair of the form name:password"},
    };
    for (const auto& [call, message] : rows) {
        call();
        EXPECT_TRUE(kci.KciErr(&error));
        EXPECT_STREQ(error.message, message);
    }
    unsetenv("KCILOCAL_MEMORY");
    unsetenv("KCILOCAL_USERS");
    setenv("KCILOCAL_SLICE", "50", 1);
    logIn();
    EXPECT_EQ(evaluate("System sliceSize"), small(50));
    unsetenv("KCILOCAL_SLICE");
}

TEST_F(LocalClient, PerformChecksItsArguments) {
    EXPECT_EQ(perform(small(3), "between:and:", {small(1), small(5)}), KCI_OOP_TRUE);
    perform(small(3), "+");
    EXPECT_EQ(error.number, 2005);
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
        {"{1. 2}", KCI_IMPL_POINTER, 0, 2, true, 0},
        {"(Object indexedSubclass: #Pair variables: #(#a #b)) new: 3", KCI_IMPL_POINTER, 2, 5, true, 0},
        {"Set new add: 1; add: 2; add: 3; yourself", KCI_IMPL_NSC, 0, 3, false, 0},
        {"DateTime now", KCI_IMPL_POINTER, 4, 4, false, KCI_CLASS_DATE_TIME},
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
    ASSERT_TRUE(kci.KciFetchObjInfo(array, 1, 7, &info, buffer,
                                    &fetched)); // room for one whole reference
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
        {"far gap", [&] { kci.KciStoreBytesInstanceOf(10, text, INT32_MAX, buffer, 1); }, 2110},
        {"beyond the limit", [&] { store(string(std::string(16 << 20, 'x')), (16 << 20) + 1, "y"); }, 2208},
        {"other class", [&] { kci.KciStoreBytesInstanceOf(KCI_CLASS_FLOAT, text, 1, buffer, 1); }, 2094},
        {"beyond the variables", [&] { kci.KciStoreNamedOops(pair, 2, values, 2); }, 2110},
        {"unknown element", [&] { kci.KciStoreIdxOops(array, 1, &nowhere, 1); }, 2094},
        {"symbol", [&] { kci.KciStoreBytesInstanceOf(10, evaluate("#abc"), 1, buffer, 1); }, 2094},
        {"new block", [&] { kci.KciNewOop(evaluate("Block")); }, 2094},
        {"negative count", [&] { kci.KciFetchBytes(text, 1, buffer, static_cast<ArraySizeType>(-1)); }, 2094},
        {"beyond the end", [&] { kci.KciFetchObjInfo(array, 6, 8, &info, buffer, &fetched); }, 2110},
        {"no such day", [&] { kci.KciNewDateTime(KCI_CLASS_DATE_TIME, &day); }, 2161},
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
    OopType one = 0;
    for (const BoolType more : {TRUE, FALSE}) {
        ArraySizeType count = 1;
        EXPECT_EQ(kci.KciDirtySaveObjs(&one, &count), more);
        EXPECT_EQ(count, 1u);
    }
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

// Transactions through the entries, and what they do to export set, changes and
// processes.
TEST_F(LocalClient, TransactionsReachOtherSessions) {
    KciSessionIdType first = kci.KciGetSessionId();
    OopType list = evaluate("Shared at: #list put: (List new)");
    KciSessionIdType second = logIn();
    EXPECT_FALSE(exists(list)) << "not even by its identifier";
    kci.KciSetSessionId(first);
    EXPECT_TRUE(kci.KciCommit());
    kci.KciSetSessionId(second);
    kci.KciBegin();
    EXPECT_TRUE(exists(list));
    evaluate("list add: 1");
    kci.KciSetSessionId(first);
    kci.KciDirtyObjsInit();
    kci.KciSetSessionId(second);
    EXPECT_TRUE(kci.KciCommit());
    kci.KciSetSessionId(first);
    EXPECT_FALSE(changed().contains(list));
    kci.KciAbort();
    EXPECT_EQ(print("list"), "List(1)");
    EXPECT_TRUE(changed().contains(list)) << "the other session's commit changed it";
    evaluate("3 foo");
    OopType process = error.context;
    evaluate("list add: 2");
    EXPECT_TRUE(changed().contains(list));
    evaluate("System abort");
    EXPECT_TRUE(changed().contains(list)) << "the abort changed it";
    EXPECT_EQ(kci.KciContinueWith(process, small(6), 0, nullptr), small(6)) << "an abort keeps processes";
}

} // namespace local_tests
