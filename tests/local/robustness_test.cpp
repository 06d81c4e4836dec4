// Callers and source texts that make no sense: every one ends in an error or a result, and the store stays usable.
#include "client_fixture.h"

#include <cstdlib>
#include <random>

namespace local_tests {

struct NamedEntry {
    const char* name;
    KciOtherFunc* entry;
};

TEST_F(LocalClient, EveryUnsupportedEntrySaysSo) {
    const NamedEntry entries[] = {
#define ENTRY(name) {#name, kci.name},
#include "kci/unsupported.inc"
#undef ENTRY
    };
    for (const NamedEntry& e : entries) {
        e.entry();
        ASSERT_TRUE(kci.KciErr(&error)) << e.name;
        EXPECT_EQ(error.number, 4101);
        EXPECT_EQ(error.message, std::string(e.name) + " is not supported by the local store");
    }
}

// Pieces of source in any order.
TEST_F(LocalClient, RandomSourceIsHarmless) {
    const char* pieces[] = {"3",          "foo",         "x",
                            ":=",         "|",           "[",
                            "]",          "(",           ")",
                            "{",          "}",           ".",
                            ";",          "^",           "#(",
                            "#[",         "$",           "'a'",
                            "w'b'",       "\"",          "+",
                            "-",          "at:",         "put:",
                            "self",       "super",       "nil",
                            "true",       ":y",          "Array",
                            "new",        "new:",        "value",
                            "do:",        "class",       "#z",
                            "whileTrue:", "ifTrue:",     "System",
                            "commit",     "abort",       "Object",
                            "copy",       "printString", "List",
                            "add:",       "size",        "Dictionary",
                            "sorted",     "asArray",     "\xE6\x97\xA5",
                            "1e5",        "perform:"};
    std::minstd_rand random(42);
    evaluate("System sliceSize: 2000");
    for (int i = 0; i < 4000; ++i) {
        std::string source;
        for (uint32_t n = random() % 14; n > 0; --n) {
            source += std::string(pieces[random() % std::size(pieces)]) + " ";
        }
        kci.KciNbExecuteStr(source.c_str(), KCI_OOP_NIL);
        void* result = nullptr;
        for (int polls = 0; kci.KciNbEnd(&result) != KCI_RESULT_READY; ++polls) {
            if (polls == 3) {
                reinterpret_cast<void (*)()>(kci.KciSoftBreak)();
            }
        }
        if (kci.KciErr(&error) && error.context != KCI_OOP_NIL && i % 3 == 0) {
            reinterpret_cast<void (*)()>(kci.KciSoftBreak)(); // without effect: nothing runs
            evaluate("System sliceSize");
        }
    }
    EXPECT_EQ(print("3 + 4"), "7");
}

// Any entry with any identifier: values, kernel objects, live objects of every body, and ones that do not exist.
TEST_F(LocalClient, RandomCallsAreHarmless) {
    std::minstd_rand random(7);
    std::vector<OopType> pool = {0,
                                 1,
                                 2,
                                 18,
                                 KCI_OOP_NIL,
                                 KCI_OOP_TRUE,
                                 small(1),
                                 small(-1),
                                 14,
                                 6414,
                                 0xFFFFFFFF,
                                 KCI_CLASS_STRING,
                                 KCI_CLASS_FLOAT,
                                 KCI_CLASS_DATE_TIME,
                                 KCI_CATEGORY_SYSTEM,
                                 1045};
    for (const char* source :
         {"'text'", "w'wide'", "1.5", "10000000000", "{1. 2}", "List new", "Set new", "Dictionary new", "1 -> 2",
          "[:a | ^a]", "DateTime now", "Object subclass: #T variables: #(#v)", "T new", "System", "Object", "#symbol",
          "1 to: 3"}) {
        pool.push_back(evaluate(source));
    }
    auto any = [&] { return pool[random() % pool.size()]; };
    const char* selectors[] = {"at:",  "add:",    "=",          ",",     "+",      "copy",    "printString",
                               "hash", "asArray", "sorted",     "value", "value:", "method:", "new",
                               "new:", "keys",    "removeKey:", "asSet", "year"};
    ByteType bytesRoom[16] = {};
    for (int i = 0; i < 20000; ++i) {
        OopType oops[3] = {any(), any(), any()};
        auto start = static_cast<KciLong>(random() % 6) - 1;
        KciObjInfoSType info{};
        ArraySizeType count = random() % 4;
        switch (random() % 12) {
        case 0:
            kci.KciFetchObjInfo(any(), start, 16, &info, bytesRoom, &count);
            break;
        case 1:
            kci.KciFetchBytes(any(), start, bytesRoom, count);
            break;
        case 2:
            kci.KciFetchVaryingOops(any(), start, oops, count % 3);
            break;
        case 3:
            kci.KciFetchNamedOops(any(), start, oops, count % 3);
            break;
        case 4:
            kci.KciStoreBytesInstanceOf(KCI_OOP_NIL, any(), start, bytesRoom, count);
            break;
        case 5:
            kci.KciStoreIdxOops(any(), start, oops, count);
            break;
        case 6:
            kci.KciStoreNamedOops(any(), start, oops, count);
            break;
        case 7:
            pool[16 + random() % 20 % (pool.size() - 16)] = kci.KciNewOop(any());
            break;
        case 8:
            kci.KciReleaseOops(oops, count % 2);
            break;
        case 9:
            kci.KciContinueWith(any(), any(), 0, nullptr);
            break;
        case 10:
            kci.KciOopToFlt(any()), kci.KciOopToLong(any()), kci.KciIsKindOf(any(), any());
            break;
        default: {
            const char* selector = selectors[random() % std::size(selectors)];
            kci.KciNbPerform(any(), selector, oops, std::string(selector).ends_with(":") ? 1 : random() % 2);
            finish();
            pool[16 + random() % (pool.size() - 16)] = error.number != 0 ? error.context : any();
        }
        }
        kci.KciErr(&error);
    }
    EXPECT_EQ(print("3 + 4"), "7");
}

TEST_F(LocalClient, OnlyTheLatestProcessesAreKept) {
    perform(small(1), "nothing");
    OopType oldest = error.context;
    perform(small(2), "nothing");
    OopType second = error.context;
    for (int i = 0; i < 99; ++i) {
        perform(small(3), "nothing");
    }
    EXPECT_EQ(kci.KciContinueWith(oldest, small(5), 0, nullptr), KCI_OOP_ILLEGAL);
    EXPECT_TRUE(kci.KciErr(&error));
    EXPECT_EQ(kci.KciContinueWith(second, small(5), 0, nullptr), small(5));
}

TEST_F(LocalClient, SessionsRunTheirCallsSideBySide) {
    setenv("KCILOCAL_SLICE", "50", 1);
    KciSessionIdType sessions[3] = {};
    for (KciSessionIdType& session : sessions) {
        ASSERT_TRUE(kci.KciLogin("guest", "guest"));
        session = kci.KciGetSessionId();
        EXPECT_EQ(evaluate("System sliceSize"), small(50));
        kci.KciNbExecuteStr("| n | n := 0. [n < 300] whileTrue: [n := n + 1]. n + System session", KCI_OOP_NIL);
    }
    void* results[3] = {};
    int running = 3;
    for (int polls = 0; running > 0; ++polls) {
        ASSERT_LT(polls, 10000);
        for (int i = 0; i < 3; ++i) {
            kci.KciSetSessionId(sessions[i]);
            running -= results[i] == nullptr && kci.KciNbEnd(&results[i]) == KCI_RESULT_READY ? 1 : 0;
        }
    }
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(*static_cast<OopType*>(results[i]), small(300 + sessions[i]));
    }
}

TEST_F(LocalClient, BodiesAreFetchedFromAnyStart) {
    KciObjInfoSType info{};
    ByteType room[8] = {};
    ArraySizeType fetched = 0;
    ASSERT_TRUE(kci.KciFetchObjInfo(string("abcdef"), 5, 8, &info, room, &fetched));
    EXPECT_EQ(fetched, 2u);
    EXPECT_EQ(room[1], 'f');
    OopType array = evaluate("{1. 2. 3. 4}");
    ASSERT_TRUE(kci.KciFetchObjInfo(array, 2, 7, &info, room, &fetched)); // room for one whole reference
    EXPECT_EQ(fetched, 1u);
    EXPECT_EQ(*reinterpret_cast<OopType*>(room), small(2));
    EXPECT_FALSE(kci.KciFetchObjInfo(array, 6, 8, &info, room, &fetched));
    EXPECT_TRUE(kci.KciErr(&error) && error.number == 2110);
}

} // namespace local_tests
