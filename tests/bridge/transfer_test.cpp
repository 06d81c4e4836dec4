// Bodies of objects in bulk, the export set and changed objects. The buffer holds 64 bytes, 16 identifiers.
#include "bridge/harness.h"

namespace bridge {
namespace {

// What the six transfer methods have in common and where they differ.
struct Transfer {
    std::string name, traceName;
    bool isBytes, isPut;
    std::string limitText, nullText, clientCall;
    std::function<jint(Argument receiver, jlong start, jint count, Argument array, jthrowable error)> method;

    Object* array(size_t size) const {
        std::vector<jbyte> bytes;
        std::vector<Object*> objects;
        for (size_t i = 0; i < size; i++) {
            bytes.push_back(jbyte('a' + i));
            objects.push_back(i == 0 ? server(301) : value(3, 5));
        }
        return isBytes ? jni().byteArray(bytes) : jni().objectArray(objects);
    }
    std::string intro(jlong start, jint count) const {
        return "7: " + traceName + " start " + std::to_string(start) + " num " + std::to_string(count) + "|" + FRAME;
    }
};

template <auto Native, typename Array>
auto transfer() {
    return [](Argument receiver, jlong start, jint count, Argument array, jthrowable error) {
        return Native(jni().env(), nullptr, 7, receiver, start, count, Array(array), error);
    };
}

#define TRANSFER(name, Array) transfer<&Java_com_kestrune_tmqkci_TmqKciInterface__1##name, Array>()
const std::string LIMIT = " requested exceeds buffer size";
const Transfer TRANSFERS[] = {
    {"getBytes", "getBytes", true, false, "numBytes" + LIMIT, "", "KciFetchBytes(15, ", TRANSFER(getBytes, jbyteArray)},
    {"getObjs", "GetObjs", false, false, "numObjs" + LIMIT, "getObjs()", "KciFetchVaryingOops(15, ",
     TRANSFER(getObjs, jobjectArray)},
    {"getNamedObjs", "getNamedObjs", false, false, "buffer size exceeded", "getNamedObjs()", "KciFetchNamedOops(15, ",
     TRANSFER(getNamedObjs, jobjectArray)},
    {"putBytes", "putBytes", true, true, "numBytes" + LIMIT, "", "KciStoreBytesInstanceOf(10, 15, ",
     TRANSFER(putBytes, jbyteArray)},
    {"putObjs", "putObjs", false, true, "numObjs" + LIMIT, "pubObjs()", "KciStoreIdxOops(15, ",
     TRANSFER(putObjs, jobjectArray)},
    {"putNamedObjs", "putNamedObjs", false, true, "numObjs" + LIMIT, "putNamedObjs()", "KciStoreNamedOops(15, ",
     TRANSFER(putNamedObjs, jobjectArray)},
};

class Transfers : public Bridge, public testing::WithParamInterface<int> {};
INSTANTIATE_TEST_SUITE_P(Bridge, Transfers, testing::Range(0, 6),
                         [](const auto& each) { return TRANSFERS[each.param].name; });

TEST_P(Transfers, MoveElements) {
    Object *array = nullptr, *receiver = value(3, 3);
    const Transfer& each = TRANSFERS[GetParam()];
    const auto run = [&](jlong start, jint count) {
        return [=, this, &array, &each] { return each.method(arg(receiver), start, count, arg(array), arg(error)); };
    };
    const auto use = [&](size_t size, bool withNull = false) {
        return [=, &array, &each] {
            array = each.array(size);
            if (withNull)
                array->elements[1] = nullptr;
            client().oops = {304, 305};
            client().bytes = {'y', 'z'};
        };
    };
    const bool describes = !each.isBytes && !each.isPut, converts = !each.isBytes && each.isPut;
    // Up to the client's call with two elements, and with none.
    const std::string lend = each.isBytes ? "lend GetByteArrayElements|" : "";
    const std::string made = "KciLongToOop(3)|KciErr|" + lend;
    const std::string elements = !each.isPut ? "" : each.isBytes ? "'ab', " : "[301 23], ";
    const std::string none = !each.isPut ? "" : each.isBytes ? "'', " : "[], ";
    const std::string moved = made + (converts ? "KciLongToOop(5)|KciErr|" : "") + each.clientCall + "1, " + elements +
                              "2)|KciErr" + (each.name == "getBytes" ? " loan|" : "|"); // kept
    const auto fetched = [&](const std::string& count) {
        return describes && each.name == "getObjs" ? "7:  GetObjs oopsFetched: " + count + "|"
               : each.name == "getBytes"           ? "     fetchedBytes = " + count + "|"
                                                   : "";
    };
    const std::string completed = each.name + " completed.|= ";
    const std::string first = describes ? "KciSaveObjs([304])|KciErr|" : "";
    const std::string nullElement = "! Problem with GetObjectArrayElement in " + each.nullText;
    const std::string refused = "! " + each.name + "(): ", count = each.isBytes ? "numBytes" : "numObjs";
    const std::string tooShort = refused + (each.isBytes ? "bytes" : "jobjs") + " is NULL or shorter than " + count;
    const jint limit = each.isBytes ? 64 : 16;

    std::vector<Story> stories = {
        {run(1, 2),
         each.intro(1, 2) + moved + fetched("2") + first + (describes ? "KciSaveObjs([305])|KciErr|" : "") + completed +
             (each.isPut ? "0" : "2"),
         use(2),
         [&] {
             EXPECT_EQ(jni().localReferences, 0u) << "elements are let go one by one";
             if (each.isBytes) {
                 EXPECT_EQ(jni().count("ReleaseByteArrayElements 0"), 1u);
                 EXPECT_EQ(array->bytes[0], each.isPut ? 'a' : 'y');
             } else {
                 EXPECT_EQ(jni().count("DeleteLocalRef"), 2u);
                 EXPECT_EQ(describe(array->elements[0]), each.isPut ? "oop=301" : "oop=304");
             }
         }},
        {[&] { return each.method(null, 1, 2, arg(array), arg(error)); }, each.intro(1, 2) + "! getOop(): NULL object",
         use(2)},
        // The client gets the low 32 bits of the start; without elements only the bytes' array is needed.
        {run(0x1FFFFFFFE, 0),
         each.intro(0x1FFFFFFFE, 0) + made + each.clientCall + "-2, " + none + "0)|KciErr" +
             (each.name == "getBytes" ? " loan|" : "|") + fetched("0") + completed + "0",
         [&] { array = each.isBytes ? each.array(0) : nullptr; }},
        {run(1, 3), each.intro(1, 3) + tooShort, use(2)},
        {run(1, 1), each.intro(1, 1) + tooShort, [&] { array = nullptr; }},
    };
    for (jlong start : {jlong(0), INT64_MIN})
        stories.push_back({run(start, 100), each.intro(start, 100) + refused + "startIndex < 1"});
    stories.push_back({run(1, limit + 1), each.intro(1, limit + 1) + refused + each.limitText});
    stories.push_back({run(1, -1), each.intro(1, -1) + refused + count + " < 0", use(2)});
    if (each.isBytes)
        stories.push_back({run(1, 0), each.intro(1, 0) + tooShort, [&] { array = nullptr; }});
    if (each.name == "getBytes") {
        stories.push_back(
            {run(1, 2), each.intro(1, 2) + moved + fetched("1") + "! Number of bytes fetched does not match request",
             [=] { use(2)(), client().results["KciFetchBytes"] = {1}; }, [&] { EXPECT_EQ(array->bytes[0], 'y'); }});
    }
    if (describes) {
        stories.push_back({run(1, 2), each.intro(1, 2) + moved + fetched("2") + first + nullElement, use(2, true)});
        // A client that claims more than it was asked for is not believed.
        stories.push_back(
            {run(1, 1),
             each.intro(1, 1) + made + each.clientCall + "1, 1)|KciErr|" + fetched("9") + first + completed + "1", [=] {
                 use(2)();
                 client().results[each.clientCall.substr(0, each.clientCall.find('('))] = {9};
             }});
    }
    if (converts)
        stories.push_back({run(1, 3), each.intro(1, 3) + "KciLongToOop(3)|KciErr|" + nullElement, use(3, true)});
    check(stories);

    const auto whole = [&] { use(size_t(limit))(), client().bytes.assign(64, 'x'), client().oops.assign(16, 1); };
    EXPECT_EQ(call(run(1, limit), whole), each.isPut ? 0 : limit);
}

// The string table holds 101 strings; one more is refused, and all are given back.
TEST_F(Bridge, StringTable) {
    initialize({.debugFlag = 0, .bufSize = 1024});
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

TEST_F(Bridge, ExportSet) {
    const auto remove = [this](const std::vector<Object*>& objects, jint count) {
        return [=, this] { return CALL(removeFromExportSet, 7, arg(objects), count); };
    };
    const auto release = [this](const std::vector<jlong>& oops, jint count) {
        return [=, this] { return CALL(releaseOops, 7, arg(jni().longArray(oops)), count); };
    };
    Object* oops = nullptr;
    const auto changed = [&](jint count) { return [&, count] { return CALL(changedOops, 7, arg(oops), count); }; };
    const auto script = [&](const std::vector<OopType>& answer) {
        return [&, answer] { oops = jni().longArray({-1, -1, -1}), client().changed = answer; };
    };
    Object* five = value(3, 5);
    const std::string removing = "RemoveFromExportSet: 7|" + FRAME, releasing = "ReleaseOops: 7|" + FRAME,
                      changing = "ChangedOops: 7|" + FRAME;
    const std::string removed = "removeFromExportSet completed.|= 0", released = "ReleaseOops completed.|= 0";
    const std::string first = removing + "     jobj[0] = {reference 0}|     oop[0] = 301|";
    std::vector<Story> stories = {
        {remove({server(301), five}, 2),
         first +
             "     jobj[1] = {reference 1}|KciLongToOop(5)|KciErr|     oop[1] = 23|KciReleaseOops([301 23], 2)|"
             "KciErr|" +
             removed,
         {},
         [] { EXPECT_EQ(jni().localReferences, 0u); }},
        {remove({server(301), nullptr}, 2), first + "     jobj[1] = 0|! getOop(): NULL object"},

        {release({301, 0x500000000 | 0x80000001, 303}, 2),
         releasing + "     Releasing 2 oops:|     301|     -2147483647|KciReleaseOops([301 2147483649], 2)|KciErr|" +
             released},
        {changed(2),
         changing + "KciDirtySaveObjs(2)|KciErr|     Returning 2 changed oops:|     301|     -2147483647|"
                    "ChangedOops completed.|= 2",
         [=] {
             script({301, 0x80000001, 303})(), client().results["KciDirtySaveObjs"] = {9};
         },
         [&] {
             EXPECT_EQ(oops->longs, (std::vector<jlong>{301, 0x80000001, -1}));
         }},
        {changed(3), changing + "KciDirtySaveObjs(3)|KciErr|     Returning 0 changed oops:|ChangedOops completed.|= 0",
         script({}), [&] { EXPECT_EQ(oops->longs, std::vector<jlong>(3, -1)); }},
        {[&] { return CALL(changedOops, 7, null, 0); },
         changing + "! changedOops(): joops is NULL or shorter than numOops"},
    };
    const auto refusal = [](const std::string& method, const std::string& array, const std::string& number,
                            jint count) {
        return "! " + method + "(): " +
               (count > 16  ? "buffer size exceeded"
                : count < 0 ? number + " < 0"
                            : array + " is NULL or shorter than " + number);
    };
    for (jint count : {17, -1, 4}) {
        stories.push_back(
            {remove({five, five, five}, count), removing + refusal("removeFromExportSet", "jobjs", "numObjs", count)});
        stories.push_back(
            {release({301, 302, 303}, count), releasing + refusal("releaseOops", "joops", "numOops", count)});
        stories.push_back({changed(count), changing + refusal("changedOops", "joops", "numOops", count), script({})});
    }
    check(stories);
    EXPECT_EQ(call(remove(std::vector(16, server(1)), 16)), 0);
}

} // namespace
} // namespace bridge
