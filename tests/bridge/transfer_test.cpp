// Bodies of objects in bulk, the export set and changed objects. The buffer holds 64 bytes, 16 identifiers.
#include "bridge/harness.h"

namespace bridge {
namespace {

const std::string SESSION = "KciSetSessionId(7) KciErr";

// What the six transfer methods have in common and where they differ.
struct Transfer {
    const char* name;
    const char* traceName;
    bool isBytes, isPut;
    const char* limitText;
    const char* nullText;
    const char* clientCall;
    std::function<jint(jobject receiver, jlong start, jint count, Argument array, jthrowable error)> method;
};

void PrintTo(const Transfer& transfer, std::ostream* out) {
    *out << transfer.name;
}

template <auto Native, typename Array>
auto transfer() {
    return [](jobject receiver, jlong start, jint count, Argument array, jthrowable error) {
        return Native(jni().env(), nullptr, 7, receiver, start, count, Array(array), error);
    };
}

#define TRANSFER(name, Array) transfer<&Java_com_kestrune_tmqkci_TmqKciInterface__1##name, Array>()
const Transfer TRANSFERS[] = {
    {"getBytes", "getBytes", true, false, "numBytes requested exceeds buffer size", nullptr, "KciFetchBytes(300, 1, 2)",
     TRANSFER(getBytes, jbyteArray)},
    {"getObjs", "GetObjs", false, false, "numObjs requested exceeds buffer size",
     "Problem with GetObjectArrayElement in getObjs()", "KciFetchVaryingOops(300, 1, 2)",
     TRANSFER(getObjs, jobjectArray)},
    {"getNamedObjs", "getNamedObjs", false, false, "buffer size exceeded",
     "Problem with GetObjectArrayElement in getNamedObjs()", "KciFetchNamedOops(300, 1, 2)",
     TRANSFER(getNamedObjs, jobjectArray)},
    {"putBytes", "putBytes", true, true, "numBytes requested exceeds buffer size", nullptr,
     "KciStoreBytesInstanceOf(10, 300, 1, 'ab', 2)", TRANSFER(putBytes, jbyteArray)},
    {"putObjs", "putObjs", false, true, "numObjs requested exceeds buffer size",
     "Problem with GetObjectArrayElement in pubObjs()", "KciStoreIdxOops(300, 1, [301 23], 2)",
     TRANSFER(putObjs, jobjectArray)},
    {"putNamedObjs", "putNamedObjs", false, true, "numObjs requested exceeds buffer size",
     "Problem with GetObjectArrayElement in putNamedObjs()", "KciStoreNamedOops(300, 1, [301 23], 2)",
     TRANSFER(putNamedObjs, jobjectArray)},
};

class Transfers : public Bridge, public testing::WithParamInterface<Transfer> {
protected:
    const Transfer& transfer = GetParam();
    Object* array = nullptr;

    void SetUp() override {
        Bridge::SetUp();
        useArray(2);
    }
    void useArray(size_t size) {
        if (transfer.isBytes) {
            array = jni().byteArray(std::vector<jbyte>(size, 'a'));
            for (size_t i = 0; i < size; i++)
                array->bytes[i] = jbyte('a' + i);
        } else {
            array = jni().objectArray(std::vector<Object*>(size, nullptr));
            for (Object*& element : array->elements)
                element = element == array->elements.front() ? server(301) : value(3, 5);
        }
    }
    jint run(jlong start, jint count, Object* receiver = server(300)) {
        return transfer.method(arg(receiver), start, count, arg(array), arg(error));
    }
    std::string intro(jlong start = 1, jint count = 2) const {
        return debug("7: " + std::string(transfer.traceName) + " start " + std::to_string(start) + " num " +
                     std::to_string(count));
    }
    std::string text(const char* what) const { return transfer.name + std::string("(): ") + what; }
    // The client calls up to the transfer itself: elements that are sent become identifiers first.
    std::string calls() const {
        const bool converts = transfer.isPut && !transfer.isBytes;
        return SESSION + (converts ? " KciLongToOop(5) KciErr " : " ") + transfer.clientCall + " KciErr";
    }
};

TEST_P(Transfers, Succeed) {
    const std::string completed = debug(transfer.name + std::string(" completed."));
    const std::string fetched = transfer.isPut                 ? ""
                                : transfer.isBytes             ? debug("     fetchedBytes = 2")
                                : transfer.traceName[0] == 'G' ? debug("7:  GetObjs oopsFetched: 2")
                                                               : "";
    const bool describes = !transfer.isBytes && !transfer.isPut;
    const std::string saves = describes ? " KciSaveObjs([304]) KciErr KciSaveObjs([305]) KciErr" : "";
    const jint result = transfer.isPut ? 0 : 2;
    const auto script = [&] {
        useArray(2);
        client().oops = {304, 305};
        client().bytes = {'y', 'z'};
    };
    check({{.name = "success",
            .native = [&] { return run(1, 2); },
            .status = result,
            .client = calls() + saves,
            .trace = intro() + fetched + completed + returning(result),
            .script = script,
            .check =
                [&] {
                    EXPECT_EQ(jni().localReferences, 0u) << "elements are let go one by one";
                    if (transfer.isBytes) {
                        EXPECT_EQ(jni().count("ReleaseByteArrayElements 0"), 1u);
                        EXPECT_EQ(array->bytes[0], transfer.isPut ? 'a' : 'y');
                    } else {
                        EXPECT_EQ(jni().count("DeleteLocalRef"), 2u);
                        EXPECT_EQ(describe(array->elements[0]), transfer.isPut ? "oop=301" : "oop=304");
                    }
                }}});

    // The start index is compared whole and handed on as its low 32 bits; nothing at all is moved, too.
    useArray(0);
    EXPECT_EQ(call([&] { return run(0x1FFFFFFFE, 0); }), 0);
    EXPECT_NE(client().calls.find(transfer.isPut && transfer.isBytes ? "300, -2, '', 0)" : "300, -2, "),
              std::string::npos)
        << client().calls;
    const jint limit = transfer.isBytes ? 64 : 16;
    useArray(size_t(limit));
    EXPECT_EQ(call([&] { return run(1, limit); }, [&] { client().bytes.assign(64, 'x'), client().oops.assign(16, 1); }),
              transfer.isPut ? 0 : limit);
}

TEST_P(Transfers, RefuseWrongArguments) {
    const jint limit = transfer.isBytes ? 64 : 16;
    const std::string start = text("startIndex < 1"), many = text(transfer.limitText);
    std::vector<Row> rows;
    for (jlong index : {jlong(0), jlong(-1), INT64_MIN, jlong(-0x100000000)}) {
        rows.push_back({.name = "start index",
                        .native = [=, this] { return run(index, 100); },
                        .status = -1,
                        .client = SESSION,
                        .trace = intro(index, 100) + genericFailure(start),
                        .error = start});
    }
    for (jint count : {limit + 1, INT32_MAX}) {
        rows.push_back({.name = "limit",
                        .native = [=, this] { return run(1, count, nullptr); },
                        .status = -1,
                        .client = SESSION,
                        .trace = intro(1, count) + genericFailure(many),
                        .script = [] { jni().missingField = ""; },
                        .error = many});
    }
    check(rows);
    // Negative counts and arrays that are too short, before the receiver becomes an identifier.
    for (jint count : {-1, INT32_MIN, 3}) {
        expectRefused([&] { return run(1, count, value(3, 5)); }, text(""));
        EXPECT_EQ(client().calls, SESSION);
    }
    expectRefused([&] { return transfer.method(arg(value(3, 5)), 1, 1, null, arg(error)); }, text(""));
    EXPECT_EQ(client().calls, SESSION);
    expectRefused([&] { return run(1, 2, nullptr); });
    EXPECT_EQ(client().calls, SESSION);
}

TEST_P(Transfers, ReportFailures) {
    const std::string function = std::string(transfer.clientCall).substr(0, std::string(transfer.clientCall).find('('));
    const auto fails = [](const std::string& name, unsigned nth = 1) { client().fail(name, scriptError(), nth); };
    std::vector<Row> rows = {
        {.name = "receiver not made",
         .native = [&] { return run(1, 2, value(3, 6)); },
         .status = -1,
         .client = SESSION + " KciLongToOop(6) KciErr",
         .trace = intro() + clientFailure(scriptError()),
         .script = [&] { fails("KciLongToOop"); }},
        {.name = "client error",
         .native = [&] { return run(1, 2); },
         .status = -1,
         .client = calls(),
         .trace = intro() + clientFailure(scriptError()),
         .script =
             [&] {
                 useArray(2), fails(function);
                 // Kept: after an error the bytes stay borrowed.
                 jni().loansExpected = transfer.name == std::string("getBytes");
             }},
    };
    if (transfer.isBytes) {
        rows.push_back({.name = "not lent",
                        .native = [&] { return run(1, 2); },
                        .status = -2,
                        .client = SESSION,
                        .trace = intro() + allocationError(),
                        .script = [] { jni().fail("GetByteArrayElements"); }});
    }
    const std::string shortFetch = "Number of bytes fetched does not match request";
    if (transfer.isBytes && !transfer.isPut) {
        rows.push_back({.name = "short",
                        .native = [&] { return run(1, 2); },
                        .status = -1,
                        .client = calls(),
                        .trace = intro() + debug("     fetchedBytes = 1") + genericFailure(shortFetch),
                        .script = [] { client().bytes = {'y'}; },
                        .error = shortFetch,
                        .check = [&] { EXPECT_EQ(array->bytes[0], 'y'); }});
    }
    const std::string traceFetched = transfer.traceName[0] == 'G' ? debug("7:  GetObjs oopsFetched: 2") : "";
    if (!transfer.isBytes && !transfer.isPut) {
        const auto twoOops = [&] {
            useArray(2);
            client().oops = {304, 305};
        };
        rows.push_back({.name = "second element not described",
                        .native = [&] { return run(1, 2); },
                        .status = -1,
                        .client = calls() + " KciSaveObjs([304]) KciErr KciSaveObjs([305]) KciErr",
                        .trace = intro() + traceFetched + clientFailure(scriptError()),
                        .script = [=] { twoOops(), fails("KciSaveObjs", 2); }});
        rows.push_back({.name = "second element null",
                        .native = [&] { return run(1, 2); },
                        .status = -1,
                        .client = calls() + " KciSaveObjs([304]) KciErr",
                        .trace = intro() + traceFetched + genericFailure(transfer.nullText),
                        .script = [=, this] { twoOops(), array->elements[1] = nullptr; },
                        .error = transfer.nullText});
    }
    if (!transfer.isBytes && transfer.isPut) {
        rows.push_back({.name = "second element not made",
                        .native = [&] { return run(1, 2); },
                        .status = -1,
                        .client = SESSION + " KciLongToOop(5) KciErr",
                        .trace = intro() + clientFailure(scriptError()),
                        .script = [&] { useArray(2), fails("KciLongToOop"); }});
        rows.push_back({.name = "second element null",
                        .native = [&] { return run(1, 3); },
                        .status = -1,
                        .client = SESSION,
                        .trace = intro(1, 3) + genericFailure(transfer.nullText),
                        .script = [&] { useArray(3), array->elements[1] = nullptr; },
                        .error = transfer.nullText});
    }
    check(rows);
}

INSTANTIATE_TEST_SUITE_P(Bridge, Transfers, testing::ValuesIn(TRANSFERS),
                         [](const auto& each) { return std::string(each.param.name); });

// The string table holds 101 strings; one more is refused, and all are given back.
TEST_F(Bridge, StringTable) {
    initialize(0, 1024);
    for (size_t count : {101u, 102u}) {
        std::vector<Object*> strings;
        for (size_t i = 0; i < count; i++)
            strings.push_back(text(i % 2 == 0 ? 7 : 8, u"abc"));
        call([&] { return CALL(putObjs, 7, arg(server(300)), 1, jint(count), arg(strings)); });
        EXPECT_EQ(status, count == 101 ? 0 : -2);
        EXPECT_EQ(jni().count("ReleaseStringUTFChars"), 101u);
        EXPECT_EQ(jni().count("GetStringUTFChars") + jni().count("GetStringChars"), 101u) << "not asked when full";
        EXPECT_EQ(jni().pending, "");
    }
}

TEST_F(Bridge, RemoveFromExportSet) {
    const auto remove = [this](std::vector<Object*> objects, jint count) {
        return CALL(removeFromExportSet, 7, arg(objects), count);
    };
    const auto two = [=] { return remove({server(301), value(3, 5)}, 2); };
    const std::string begin = debug("RemoveFromExportSet: 7"), done = debug("removeFromExportSet completed.");
    const std::string first = begin + debug("     jobj[0] = {reference 0}") + debug("     oop[0] = 301") +
                              debug("     jobj[1] = {reference 1}");
    const std::string calls = SESSION + " KciLongToOop(5) KciErr";
    check({
        {.name = "success",
         .native = two,
         .client = calls + " KciReleaseOops([301 23], 2) KciErr",
         .trace = first + debug("     oop[1] = 23") + done + returning(0),
         .check = [] { EXPECT_EQ(jni().localReferences, 0u); }},
        {.name = "none",
         .native = [=] { return remove({}, 0); },
         .client = SESSION + " KciReleaseOops([], 0) KciErr",
         .trace = begin + done + returning(0)},
        {.name = "element not made",
         .native = two,
         .status = -1,
         .client = calls,
         .trace = first + clientFailure(scriptError()),
         .script = [] { client().fail("KciLongToOop", scriptError()); }},
        {.name = "client error",
         .native = two,
         .status = -1,
         .client = calls + " KciReleaseOops([301 23], 2) KciErr",
         .trace = first + debug("     oop[1] = 23") + clientFailure(scriptError()),
         .script = [] { client().fail("KciReleaseOops", scriptError()); }},
    });
    EXPECT_EQ(call([=] { return remove(std::vector(16, server(1)), 16); }), 0);
    for (jint count : {17, -1, INT32_MIN, INT32_MAX}) {
        expectRefused([=] { return remove(std::vector(20, value(3, 5)), count); }, "removeFromExportSet(): ");
        EXPECT_EQ(client().calls, SESSION);
    }
    expectRefused([=] { return remove({value(3, 5)}, 2); }, "removeFromExportSet(): ");
    EXPECT_EQ(client().calls, SESSION);
    expectRefused([=, this] { return CALL(removeFromExportSet, 7, null, 1); });
    expectRefused([=] { return remove({server(301), nullptr}, 2); });
    EXPECT_EQ(client().calls, SESSION);
}

TEST_F(Bridge, ReleaseOops) {
    const auto release = [this](std::vector<jlong> oops, jint count) {
        return CALL(releaseOops, 7, Argument{jni().argument(jni().longArray(std::move(oops)))}, count);
    };
    const auto two = [=] { return release({301, 0x500000000 | 0x80000001, 303}, 2); };
    const std::string begin = debug("ReleaseOops: 7"), many = "releaseOops(): buffer size exceeded";
    const std::string list = begin + debug("     Releasing 2 oops:") + debug("     301") + debug("     -2147483647");
    check({
        {.name = "success",
         .native = two,
         .client = SESSION + " KciReleaseOops([301 2147483649], 2) KciErr",
         .trace = list + debug("ReleaseOops completed.") + returning(0)},
        {.name = "none",
         .native = [=] { return release({}, 0); },
         .client = SESSION + " KciReleaseOops([], 0) KciErr",
         .trace = begin + debug("     Releasing 0 oops:") + debug("ReleaseOops completed.") + returning(0)},
        {.name = "client error",
         .native = two,
         .status = -1,
         .client = SESSION + " KciReleaseOops([301 2147483649], 2) KciErr",
         .trace = list + clientFailure(scriptError()),
         .script = [] { client().fail("KciReleaseOops", scriptError()); }},
        {.name = "limit",
         .native = [=] { return release({}, 17); },
         .status = -1,
         .client = SESSION,
         .trace = begin + genericFailure(many),
         .error = many},
    });
    EXPECT_EQ(call([=] { return release(std::vector<jlong>(16, 1), 16); }), 0);
    for (jint count : {-1, INT32_MIN, 4}) {
        expectRefused([=] { return release({301, 302, 303}, count); }, "releaseOops(): ");
        EXPECT_EQ(client().calls, SESSION);
    }
    expectRefused([=, this] { return CALL(releaseOops, 7, null, 1); }, "releaseOops(): ");
}

TEST_F(Bridge, ChangedOops) {
    Object* oops = nullptr;
    const auto changed = [&](jint count) { return CALL(changedOops, 7, arg(oops), count); };
    const auto script = [&] { oops = jni().longArray({-1, -1, -1}); };
    const std::string begin = debug("ChangedOops: 7"), many = "changedOops(): buffer size exceeded";
    check({
        {.name = "more than asked for",
         .native = [&] { return changed(2); },
         .status = 2,
         .client = SESSION + " KciDirtySaveObjs(2) KciErr",
         .trace = begin + debug("     Returning 2 changed oops:") + debug("     301") + debug("     -2147483647") +
                  debug("ChangedOops completed.") + returning(2),
         .script =
             [&] {
                 script(), client().changed = {301, 0x80000001, 303};
             },
         .check =
             [&] {
                 EXPECT_EQ(oops->longs, (std::vector<jlong>{301, 0x80000001, -1}));
             }},
        {.name = "none",
         .native = [&] { return changed(3); },
         .client = SESSION + " KciDirtySaveObjs(3) KciErr",
         .trace = begin + debug("     Returning 0 changed oops:") + debug("ChangedOops completed.") + returning(0),
         .script = script,
         .check = [&] { EXPECT_EQ(oops->longs, std::vector<jlong>(3, -1)); }},
        {.name = "client error",
         .native = [&] { return changed(3); },
         .status = -1,
         .client = SESSION + " KciDirtySaveObjs(3) KciErr",
         .trace = begin + clientFailure(scriptError()),
         .script = [&] { script(), client().fail("KciDirtySaveObjs", scriptError()); },
         .check = [&] { EXPECT_EQ(oops->longs, std::vector<jlong>(3, -1)); }},
        {.name = "limit",
         .native = [&] { return changed(17); },
         .status = -1,
         .client = SESSION,
         .trace = begin + genericFailure(many),
         .script = script,
         .error = many},
    });
    for (jint count : {-1, INT32_MIN, 4}) {
        expectRefused([&] { return changed(count); }, "changedOops(): ", script);
        EXPECT_EQ(client().calls, SESSION);
    }
    expectRefused([&] { return CALL(changedOops, 7, null, 1); }, "changedOops(): ");
}

} // namespace
} // namespace bridge
