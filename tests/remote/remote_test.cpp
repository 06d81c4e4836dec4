// The near side and a host over the scripted client library: exchanges, arrays of every size, answers ahead.
#include "channel/block.h"
#include "host/server.h"
#include "kciremote.h"
#include "near/near.h"
#include "support/scripted_client.h"

#include <gtest/gtest.h>

#include <cstring>
#include <regex>
#include <string>
#include <vector>

extern "C" const KciRtlJumpSType* remoteGetRtlTable();

namespace {

using scripted::clientError;

scripted::Client& client() {
    return *scriptedClient();
}

class Remote : public testing::Test {
protected:
    void SetUp() override {
        table = remoteGetRtlTable();
        table->KciInit();
        table->KciLogin("user", "password");
        ASSERT_EQ(table->KciGetSessionId(), 7);
    }

    // The client library's calls since, without KciErr; and how many exchanges they took.
    std::string calls() {
        const std::string all = std::regex_replace(client().calls, std::regex("(^| )KciErr(?= |$)"), "");
        client().calls.clear();
        return all;
    }
    uint64_t exchanges() { return KciRemoteExchanges() - std::exchange(exchangesBefore, KciRemoteExchanges()); }

    std::string error() {
        KciErrSType record{};
        return table->KciErr(&record) ? record.message : "";
    }

    // What the bridge asks for a description; its error, if any.
    std::string describe(OopType oop) {
        table->KciSaveObjs(&oop, 1);
        if (const std::string text = error(); !text.empty())
            return text;
        ByteType body[64];
        ArraySizeType fetched = 0;
        KciObjInfoSType info{};
        if (!table->KciFetchObjInfo(oop, 1, 64, &info, body, &fetched))
            return error();
        EXPECT_EQ(fetched, client().bytes.size());
        EXPECT_EQ(std::memcmp(body, client().bytes.data(), fetched), 0);
        table->KciFetchNamedOop(info.objClass, 12);
        table->KciErr(nullptr);
        if (table->KciIsKindOf(oop, KCI_CLASS_STRING_KIND))
            table->KciIsKindOf(oop, KCI_CLASS_DB_STRING);
        return error();
    }
    std::string setup(OopType oop) {
        table->KciSetSessionId(7);
        return describe(oop);
    }
    std::string fetch(OopType object, ArraySizeType count, ArraySizeType saved) {
        table->KciSetSessionId(7);
        std::vector<OopType> oops(count);
        const KciLong fetched = table->KciFetchVaryingOops(object, 1, oops.data(), count);
        EXPECT_EQ(oops, std::vector(client().oops.begin(), client().oops.begin() + fetched));
        for (ArraySizeType i = 0; i < std::min<ArraySizeType>(saved, fetched); i++) {
            if (!(oops[i] & 2))
                table->KciSaveObjs(&oops[i], 1);
            if (const std::string text = error(); !text.empty())
                return text;
        }
        return "";
    }
    void aString() {
        client().info.objClass = 500;
        client().info.objImpl = KCI_IMPL_BYTE;
        client().bytes = {'a', 'b', 'c'};
        client().results["KciIsKindOf"] = {1};
    }

    const KciRtlJumpSType* table;
    uint64_t exchangesBefore = 0;
};

const std::string DESCRIBED = "KciSaveObjs([300]) KciFetchObjInfo(300, 1, 64) KciFetchNamedOop(500, 12) "
                              "KciIsKindOf(300, 1257) KciIsKindOf(300, 1553)";

TEST_F(Remote, DescribesInOneExchangeOnceItHasSeenHow) {
    aString();
    calls(), exchanges();
    for (const uint64_t expected : {5u, 1u, 1u}) {
        EXPECT_EQ(setup(300), "");
        EXPECT_EQ(exchanges(), expected);
        EXPECT_EQ(calls(), DESCRIBED);
    }
    // With a result to describe; a poll without one asks for nothing more.
    client().results["KciNbEnd"] = {KCI_RESULT_NOT_READY, KCI_RESULT_READY};
    client().results["KciNbEnd result"] = {300};
    for (const uint64_t expected : {2u, 1u}) {
        client().results["KciNbEnd"] = {KCI_RESULT_NOT_READY, KCI_RESULT_READY};
        void* cell = nullptr;
        table->KciSetSessionId(7);
        EXPECT_EQ(table->KciNbEnd(&cell), KCI_RESULT_NOT_READY);
        EXPECT_EQ(exchanges(), 1u);
        table->KciSetSessionId(7);
        EXPECT_EQ(table->KciNbEnd(&cell), KCI_RESULT_READY);
        ASSERT_NE(cell, nullptr);
        EXPECT_EQ(describe(*static_cast<OopType*>(cell)), "");
        EXPECT_EQ(exchanges(), expected);
        EXPECT_EQ(calls(), "KciNbEnd() KciNbEnd() " + DESCRIBED);
    }
    // An error at each step of what is asked ahead, and the one after is as ever.
    for (const char* step : {"KciSaveObjs", "KciFetchObjInfo", "KciIsKindOf"}) {
        client().fail(step, clientError(2101, step));
        if (step == std::string("KciFetchObjInfo"))
            client().results[step] = {0, 1};
        EXPECT_EQ(setup(300), step);
        EXPECT_EQ(setup(300), "");
        EXPECT_EQ(exchanges(), 2u) << step;
    }
    client().fail("KciFetchNamedOop", clientError(2101, "no history"));
    EXPECT_EQ(setup(300), "") << "the bridge forgets this one";
}

// What a date-time consists of is asked for with it, unless it is too short to have the three parts.
TEST_F(Remote, DescribesDateTimesAndFloatsWithTheirValues) {
    const auto setupValue = [&] {
        table->KciSetSessionId(7);
        OopType oop = 300, parts[4] = {};
        ArraySizeType fetched = 0;
        KciObjInfoSType info{};
        table->KciSaveObjs(&oop, 1);
        table->KciErr(nullptr);
        table->KciFetchObjInfo(oop, 1, sizeof parts, &info, reinterpret_cast<ByteType*>(parts), &fetched);
        table->KciFetchNamedOop(info.objClass, 12);
        table->KciErr(nullptr);
        for (const OopType part : parts)
            if (info.objImpl == KCI_IMPL_POINTER && part != 0 && (part & 3) != 3)
                table->KciOopToLong(part);
        if (info.objClass == KCI_CLASS_FLOAT)
            table->KciOopToFlt(oop);
    };
    client().info.objClass = KCI_CLASS_DATE_TIME;
    client().info.objImpl = KCI_IMPL_POINTER;
    const std::string begin = "KciSaveObjs([300]) KciFetchObjInfo(300, 1, 16) KciFetchNamedOop(";
    const struct {
        std::vector<OopType> parts;
        std::string asked;
        uint64_t exchanges;
    } rows[] = {
        {{2000, 7, 2004}, " KciOopToLong(2000) KciOopToLong(2004)", 1},
        {{7, 11, 2000, 2004}, " KciOopToLong(2000) KciOopToLong(2004)", 2},
        {{7, 2000}, " KciOopToLong(2000)", 2},
    };
    for (const auto& row : rows) {
        client().oops = row.parts;
        for (int i = 0; i < 3; i++) { // by the third the host has seen how
            calls(), exchanges();
            setupValue();
        }
        EXPECT_EQ(calls(), begin + std::to_string(KCI_CLASS_DATE_TIME) + ", 12)" + row.asked);
        EXPECT_EQ(exchanges(), row.exchanges) << row.asked;
    }
    client().oops.clear();
    client().info.objClass = KCI_CLASS_FLOAT;
    client().info.objImpl = KCI_IMPL_BYTE;
    for (int i = 0; i < 3; i++)
        exchanges(), setupValue();
    EXPECT_EQ(exchanges(), 1u);
}

TEST_F(Remote, SavesWhatItFetchesInOneExchange) {
    for (OopType i = 0; i < 1000; i++)
        client().oops.push_back(i % 10 == 0 ? i << 2 | 3 : 1000 + 4 * i);
    std::string saves;
    for (OopType oop : client().oops)
        saves += oop & 2 ? "" : " KciSaveObjs([" + std::to_string(oop) + "])";
    calls(), exchanges();
    for (const uint64_t expected : {2u, 1u, 1u}) {
        EXPECT_EQ(fetch(200, 1000, 1000), "");
        EXPECT_EQ(exchanges(), expected);
        EXPECT_EQ(calls(), "KciFetchVaryingOops(200, 1, 1000)" + saves);
    }
    for (const int failing : {5, 500, 1}) {
        client().fail("KciSaveObjs", clientError(2101, "one of them"), failing);
        EXPECT_EQ(fetch(200, 1000, 1000), "one of them");
        EXPECT_EQ(exchanges(), 1u);
    }
    calls();
    // A request that lies where the host still writes: it waits.
    EXPECT_EQ(fetch(200, 1000, 40), "");
    const std::string large(remote::firstBodySize, 'x');
    table->KciNbExecuteStr(large.c_str(), 10);
    EXPECT_EQ(calls(), "KciFetchVaryingOops(200, 1, 1000)" + saves + " KciNbExecuteStr('" + large + "', 10)");
    EXPECT_EQ(fetch(200, 1000, 1000), "");
    calls();

    // What nobody asks for is released, unless the session holds it; and nobody asks for it ahead until it is seen.
    client().oops = {8000, 8004, 8008, 1012};
    EXPECT_EQ(fetch(200, 4, 2), "");
    table->KciLongToOop(1);
    EXPECT_EQ(calls(), "KciFetchVaryingOops(200, 1, 4) KciSaveObjs([8000]) KciSaveObjs([8004]) KciSaveObjs([8008]) "
                       "KciSaveObjs([1012]) KciReleaseOops([8008], 1) KciLongToOop(1)");
    EXPECT_EQ(fetch(200, 4, 0), "");
    EXPECT_EQ(calls(), "KciFetchVaryingOops(200, 1, 4)");
}

TEST_F(Remote, MakesTheNextObjectAhead) {
    const OopType values[] = {7, 11};
    const auto create = [&](OopType cls) {
        const OopType object = table->KciNewOop(cls);
        table->KciStoreNamedOops(object, 1, values, 2);
        return object;
    };
    create(500);
    create(500);
    exchanges();
    const OopType third = create(500);
    EXPECT_NE(create(500), third);
    EXPECT_EQ(exchanges(), 2u);
    calls();
    // Of another class: the one that was made is released.
    create(600);
    EXPECT_EQ(calls(), "KciReleaseOops([" + std::to_string(third + 8) + "], 1) KciNewOop(600) KciStoreNamedOops(" +
                           std::to_string(third + 12) + ", 1, [7 11], 2)");
    // And one that fails is an error where it is asked for.
    create(600);
    client().fail("KciNewOop", clientError(2101, "no room"), 1);
    create(600);
    EXPECT_EQ(table->KciNewOop(600), KCI_OOP_ILLEGAL);
    EXPECT_EQ(error(), "no room");
}

TEST_F(Remote, CarriesArraysOfEverySize) {
    const size_t block = remote::firstBodySize;
    for (const size_t count : {size_t{0}, size_t{3}, block, 5 * block + 1}) {
        std::vector<ByteType> sent(count);
        for (size_t i = 0; i < count; i++)
            sent[i] = ByteType('a' + i % 26);
        calls();
        table->KciStoreBytesInstanceOf(KCI_OOP_NIL, 300, 1, sent.data(), ArraySizeType(count));
        const std::string text(sent.begin(), sent.end());
        EXPECT_EQ(calls(), "KciStoreBytesInstanceOf(10, 300, 1, '" + text + "', " + std::to_string(count) + ")");

        client().bytes = sent;
        std::vector<ByteType> fetched(count + 1, '#');
        EXPECT_EQ(table->KciFetchBytes(300, 1, fetched.data(), ArraySizeType(count)), KciLong(count));
        EXPECT_EQ(fetched.back(), '#');
        fetched.pop_back();
        EXPECT_EQ(fetched, sent);

        client().oops.assign(count / 4, 0x80000001);
        EXPECT_EQ(fetch(200, ArraySizeType(count / 4), 0), "");
        table->KciNbExecuteStr(text.c_str(), 10);
        EXPECT_TRUE(calls().ends_with("KciNbExecuteStr('" + text + "', 10)"));
    }
    // A client library that claims more than it was asked for is passed on, what lies behind is not touched.
    client().oops = {301, 302, 303};
    client().results["KciFetchNamedOops"] = {9};
    OopType two[] = {0, 0, 77};
    EXPECT_EQ(table->KciFetchNamedOops(300, 1, two, 2), 9);
    EXPECT_EQ(two[1], 302u);
    EXPECT_EQ(two[2], 77u);
    client().changed = {301};
    client().results["KciDirtySaveObjs"] = {9};
    ArraySizeType room = 2;
    table->KciDirtySaveObjs(two, &room);
    EXPECT_EQ(room, 9u);
    EXPECT_EQ(two[2], 77u);

    // More than any array has is refused here; nothing is asked.
    calls();
    table->KciReleaseOops(two, 0xC0000000);
    EXPECT_EQ(error(), "an array cannot have 3221225472 elements");
    EXPECT_EQ(calls(), "");
}

TEST_F(Remote, KeepsErrorsAndRecordsWhole) {
    KciErrSType error = clientError(2101, std::string(400, 'm'), {1, 2, 3, 4, 5, 6, 7, 8, 9, 0xFFFFFFFF});
    error.context = 0xFFFFFFF1;
    client().fail("KciIsKindOf", error);
    table->KciIsKindOf(300, 400);
    KciErrSType seen{};
    exchanges();
    ASSERT_TRUE(table->KciErr(&seen));
    EXPECT_EQ(std::memcmp(&seen, &error, sizeof seen), 0);
    EXPECT_FALSE(table->KciErr(&seen));
    // Kept for the session that was current.
    client().fail("KciIsKindOf", error);
    table->KciIsKindOf(300, 400);
    table->KciSetSessionId(8);
    EXPECT_FALSE(table->KciErr(&seen));
    table->KciSetSessionId(7);
    EXPECT_TRUE(table->KciErr(&seen));
    EXPECT_EQ(exchanges(), 3u);

    reinterpret_cast<void (*)()>(table->KciExecute)();
    ASSERT_TRUE(table->KciErr(&seen));
    EXPECT_STREQ(seen.message, "KciExecute is not served by the remote client library");
    EXPECT_EQ(seen.number, 4101);
}

// A request that lies about itself is none, whatever it says.
TEST_F(Remote, RefusesRequestsThatLie) {
    using remote::EntryId;
    remote::Block block;
    ASSERT_EQ(block.create(), 0);
    remote::Server server(*KciGetRtlTable(), block);
    struct Request {
        EntryId entry = EntryId::KciSaveObjs;
        uint32_t size = 12, answerAt = 16, bodySize = remote::firstBodySize, length = 4, count = 1;
    };
    const auto answers = [&](const Request& request) {
        const uint32_t words[] = {request.length, 300, request.count, request.count};
        std::memcpy(block.body(), words, sizeof words);
        remote::Control& control = block.control();
        control.entry = uint32_t(request.entry);
        control.requestSize = request.size;
        control.answerAt = request.answerAt;
        control.bodySize = request.bodySize;
        return server.answerRequest();
    };
    EXPECT_TRUE(answers({}));
    EXPECT_TRUE(answers({.length = UINT32_MAX, .count = 0}));
    const Request lies[] = {
        {.entry = EntryId::end},
        {.size = 11},
        {.size = remote::firstBodySize},
        {.answerAt = 8},
        {.answerAt = UINT32_MAX & ~15u},
        {.bodySize = 16},
        {.bodySize = UINT32_MAX},
        {.length = 0},
        {.length = UINT32_MAX - 3},
        {.count = 0x40000001},
        {.entry = EntryId::KciFetchBytes, .size = 16, .count = remote::firstBodySize},
    };
    for (const Request& lie : lies)
        EXPECT_FALSE(answers(lie)) << &lie - lies;
}

} // namespace
