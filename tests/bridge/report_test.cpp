// Describing server objects (through _setup) and turning reports into identifiers (through _isKindOf).
#include "bridge/harness.h"

#include <cstring>

namespace bridge {
namespace {

const std::string SESSION = "KciSetSessionId(7) KciErr";

class Describe : public Bridge {
protected:
    std::function<jint()> native = [this] { return CALL(setup, 7, arg(result)); };
    std::function<void()> script(jlong oop, const std::function<void()>& further = {}) {
        return [=, this] {
            result->fields["oop"].number = oop;
            if (further)
                further();
        };
    }
    std::function<void()> gives(const std::string& fields) {
        return [=, this] { EXPECT_EQ(describe(result), fields); };
    }
};

TEST_F(Describe, IdentifiersThatAreValues) {
    const std::string none = "Logic error:  Bad object type";
    struct {
        jlong oop;
        std::string calls, fields;
    } const values[] = {
        {3, " KciErr", "objType=3 oop=3 valueLong=0 valueType=3"},
        {7, " KciErr", "objType=3 oop=7 valueLong=1 valueType=3"},
        {0x7FFFFFFF, " KciErr", "objType=3 oop=2147483647 valueLong=536870911 valueType=3"},
        {0x80000003, " KciErr", "objType=3 oop=2147483651 valueLong=-536870912 valueType=3"},
        {0xFFFFFFFF, " KciErr", "objType=3 oop=4294967295 valueLong=-1 valueType=3"},
        {38, " KciOopToBool(38)", "objType=3 oop=38 valueLong=1 valueType=1"},
        {6, " KciOopToBool(6)", "objType=3 oop=6 valueLong=0 valueType=1"},
        {10, "", "objType=3 oop=10 valueType=0"},
        {65 << 5 | 14, " KciOopToChr(2094)", "objType=3 oop=2094 valueLong=65 valueType=2"},
        {200 << 5 | 14, " KciOopToChr(6414)", "objType=3 oop=6414 valueLong=-56 valueType=2"},
        {1, "", "oop=1"},
        {0, "", "oop=0"},
        {0x500000000 | 7, " KciErr", "objType=3 oop=7 valueLong=1 valueType=3"},
    };
    std::vector<Row> rows;
    for (const auto& [oop, calls, fields] : values) {
        rows.push_back({.name = "value",
                        .native = native,
                        .client = SESSION + calls,
                        .trace = returning(0),
                        .script = script(oop),
                        .check = gives(fields)});
    }
    for (jlong oop : {2, 18, 42, 34}) {
        rows.push_back({.name = "no value",
                        .native = native,
                        .status = -1,
                        .client = SESSION,
                        .trace = genericFailure(none),
                        .script = script(oop),
                        .error = none,
                        .check = gives("objType=3 oop=" + std::to_string(oop))});
    }
    rows.push_back({.name = "an error is pending after the decoding of an integer",
                    .native = native,
                    .status = -1,
                    .client = SESSION + " KciErr",
                    .trace = clientFailure(scriptError()),
                    .script = script(7, [] { client().fail("KciErr", scriptError(), 2); }),
                    .check = gives("objType=3 oop=7")});
    rows.push_back({.name = "the report gives the value",
                    .native = native,
                    .client = SESSION + " KciLongToOop(5) KciErr KciErr",
                    .trace = returning(0),
                    .script = [this] { result->fields = value(3, 5)->fields; },
                    .check = gives("objType=3 oop=23 valueLong=5 valueType=3")});
    rows.push_back({.name = "the report's value is of no kind that can be sent",
                    .native = native,
                    .client = SESSION,
                    .trace = debug("    getOop(): Logic error in case statement") + returning(0),
                    .script = [this] { result->fields = value(5)->fields; },
                    .check = gives("objType=-1 oop=0 valueType=5")});
    check(rows);
}

TEST_F(Describe, ServerObjects) {
    const std::string saved = SESSION + " KciSaveObjs([300]) KciErr";
    const std::string fetched = saved + " KciFetchObjInfo(300, 1, 16)";
    const auto history = [&](int cls) { return fetched + " KciFetchNamedOop(" + std::to_string(cls) + ", 12) KciErr"; };
    const auto traced = [](int cls) {
        return info("Set oop 300 class to " + std::to_string(cls)) + info("Set oop 300 class history to 600");
    };
    const auto describes = [](int impl, int cls, int named, int size, bool indexable) {
        client().results["KciFetchNamedOop"] = {600};
        client().info.objImpl = unsigned(impl) & 7;
        client().info.objClass = OopType(cls);
        client().info.namedSize = named;
        client().info.objSize = size;
        client().info.isIndexable = indexable;
    };
    const auto header = [](int cls, const char* rest) {
        return "classHistoryOop=600 classOop=" + std::to_string(cls) + " " + rest;
    };
    const auto bytes = [=](int cls, int size) {
        describes(KCI_IMPL_BYTE, cls, 0, size, true);
        client().bytes.assign(size_t(size), 'x');
    };
    const auto oops = [=](int impl, int cls, int named, std::vector<OopType> body) {
        describes(impl, cls, named, int(body.size()), impl == KCI_IMPL_NSC);
        client().oops = std::move(body);
    };
    const auto kinds = [](int string, int dbString) { client().results["KciIsKindOf"] = {string, dbString}; };

    struct Object {
        const char* name;
        std::function<void()> script;
        int cls;
        std::string calls, fields;
    };
    const Object objects[] = {
        {"bytes", [=] { bytes(500, 3); }, 500, " KciIsKindOf(300, 1257) KciErr",
         "indexedSize=3 isCollection=1 namedSize=0 objType=1 oop=300 valueBytes='xxx' valueType=5"},
        {"string", [=] { bytes(500, 3), kinds(1, 0); }, 500, " KciIsKindOf(300, 1257) KciIsKindOf(300, 1553) KciErr",
         "indexedSize=3 isCollection=1 isString=1 namedSize=0 objType=1 oop=300 valueBytes='xxx' valueType=7"},
        {"double-byte string", [=] { bytes(500, 4), kinds(1, 1); }, 500,
         " KciIsKindOf(300, 1257) KciIsKindOf(300, 1553) KciErr",
         "indexedSize=4 isCollection=1 isDBString=1 isString=1 namedSize=0 objType=1 oop=300 valueBytes='xxxx' "
         "valueType=8"},
        {"float", [=] { bytes(1521, 8), client().floatResult = 2.5; }, 1521, " KciOopToFlt(300) KciErr",
         "indexedSize=8 isCollection=1 namedSize=0 objType=1 oop=300 valueBytes='xxxxxxxx' valueDouble=2.5 "
         "valueType=4"},
        {"more bytes than are preloaded", [=] { bytes(500, 100); }, 500, " KciIsKindOf(300, 1257) KciErr",
         "indexedSize=100 isCollection=1 namedSize=0 objType=1 oop=300 valueBytes='xxxxxxxxxxxxxxxx' valueType=5"},
        {"no bytes", [=] { bytes(500, 0); }, 500, " KciIsKindOf(300, 1257) KciErr",
         "indexedSize=0 isCollection=1 namedSize=0 objType=1 oop=300 valueBytes='' valueType=5"},
        {"pointers",
         [=] {
             oops(KCI_IMPL_POINTER, 501, 1, {301, 0x80000001});
         },
         501, " KciErr",
         "indexedSize=1 isCollection=0 namedSize=1 objType=0 oop=300 valueLongs=[ 301 2147483649 ] valueType=6"},
        {"an unordered collection, larger than is preloaded",
         [=] {
             oops(KCI_IMPL_NSC, 501, 2, {301, 304, 305, 308, 309});
         },
         501, " KciErr",
         "indexedSize=3 isCollection=1 namedSize=2 objType=2 oop=300 valueLongs=[ 301 304 305 308 ] valueType=6"},
        {"date-time",
         [=] {
             oops(KCI_IMPL_POINTER, 1857, 4, {2024 << 2 | 3, 300, OopType(-7) << 2 | 3, 10});
             client().results["KciOopToLong"] = {366};
         },
         1857, " KciOopToLong(300) KciErr",
         "indexedSize=0 isCollection=0 namedSize=4 objType=0 oop=300 valueInt1=2024 valueInt2=366 valueLong=-7 "
         "valueLongs=[ 8099 300 4294967271 10 ] valueType=9"},
        {"another kind of body", [=] { describes(5, 500, 0, 3, true); }, 500, " KciErr",
         "indexedSize=3 isCollection=1 namedSize=0 objType=5 oop=300"},
        {"the class history is not there",
         [=] { oops(KCI_IMPL_POINTER, 501, 0, {}), client().fail("KciFetchNamedOop", scriptError()); }, 501, " KciErr",
         "indexedSize=0 isCollection=0 namedSize=0 objType=0 oop=300 valueLongs=[ ] valueType=6"},
    };
    std::vector<Row> rows;
    for (const Object& each : objects) {
        rows.push_back({.name = each.name,
                        .native = native,
                        .client = history(each.cls) + each.calls,
                        .trace = traced(each.cls) + returning(0),
                        .script = script(300, each.script),
                        .check = gives(header(each.cls, each.fields.c_str()))});
    }

    const std::string special = "Logic error:  Special oop processing", fetch = "Failure in KciFetchObjInfo() call";
    const auto fails = [](const char* function) { client().fail(function, scriptError()); };
    const std::vector<Row> failures = {
        {.name = "not saved",
         .native = native,
         .status = -1,
         .client = saved,
         .trace = clientFailure(scriptError()),
         .script = script(300, [=] { fails("KciSaveObjs"); }),
         .check = gives("oop=300")},
        {.name = "not fetched",
         .native = native,
         .status = -1,
         .client = fetched + " KciErr",
         .trace = clientFailure(scriptError()),
         .script = script(300, [=] { client().results["KciFetchObjInfo"] = {0}, fails("KciFetchObjInfo"); })},
        {.name = "not fetched, without a reason",
         .native = native,
         .status = -1,
         .client = fetched + " KciErr",
         .trace = genericFailure(fetch),
         .script = script(300, [=] { client().results["KciFetchObjInfo"] = {0}; }),
         .error = fetch},
        {.name = "an object that claims to be a value",
         .native = native,
         .status = -1,
         .client = history(500),
         .trace = traced(500) + genericFailure(special),
         .script = script(300, [=] { describes(KCI_IMPL_SPECIAL, 500, 0, 0, false); }),
         .error = special},
        {.name = "the kind is not found out",
         .native = native,
         .status = -1,
         .client = history(500) + " KciIsKindOf(300, 1257) KciErr",
         .trace = traced(500) + clientFailure(scriptError()),
         .script = script(300, [=] { bytes(500, 3), fails("KciIsKindOf"); })},
        {.name = "no byte array",
         .native = native,
         .status = -2,
         .client = history(500),
         .trace = traced(500) + allocationError(),
         .script = script(300, [=] { bytes(500, 3), jni().fail("NewByteArray"); })},
        {.name = "no long array",
         .native = native,
         .status = -2,
         .client = history(501),
         .trace = traced(501) + allocationError(),
         .script = script(300, [=] { oops(KCI_IMPL_POINTER, 501, 0, {301}), jni().fail("NewLongArray"); })},
    };
    rows.insert(rows.end(), failures.begin(), failures.end());
    check(rows);
}

// Reports whose value is still Java's alone become identifiers, each told to the report as well.
TEST_F(Bridge, ValuesForTheServer) {
    Object* sent = nullptr;
    const auto native = [&] { return CALL(isKindOf, 7, arg(sent), arg(server(400))); };
    const std::string begin = debug("isKindOf: 7");
    const auto real = [] {
        Object* made = value(4);
        made->fields["valueDouble"].real = 2.5;
        return made;
    };
    const auto dateTime = [] {
        Object* made = value(9, 0x100000001);
        made->fields["valueInt1"].number = 2024;
        made->fields["valueInt2"].number = 300;
        return made;
    };
    const std::string calendar = debug("    CALENDAR: yr 2024 day 300 ms 4294967297");
    const std::string softly = debug("    getOop(): Logic error in case statement");
    struct Value {
        std::function<Object*()> make;
        std::string calls, trace;
        jlong oop; // -1: none is written, 0 is passed on
    };
    const Value values[] = {
        {[] { return value(-1); }, "", "", -1},
        {[] { return value(0); }, "", "", 10},
        {[] { return value(1); }, " KciErr", "", 6},
        {[] { return value(1, 0x100000000); }, " KciErr", "", 38},
        {[] { return value(2, 200); }, " KciErr", "", 6414},
        {[] { return value(2, 0x1F600); }, " KciErr", "", 0xF600 << 5 | 14},
        {[] { return value(3, -1); }, " KciLongToOop(-1) KciErr", "", 0xFFFFFFFF},
        {[] { return value(3, 0x100000005); }, " KciLongToOop(5) KciErr", "", 23},
        {real, " KciFltToOop(2.5) KciErr", "", 401},
        {[] { return value(5); }, "", softly, -1},
        {[] { return value(6); }, "", softly, -1},
        {[] {
             return text(7, {u'a', 0, 0xE9, 0xD83D, 0xDE00});
         },
         " KciNewOop(1169) KciErr KciStoreBytesInstanceOf(10, 402, 1, "
         "'a\\192\\128\\195\\169\\237\\160\\189\\237\\184\\128', 11) KciErr",
         "", 402},
        {[] {
             return text(8, {u'a', 0, 0xD83D, 0xDE00});
         },
         " KciNewOop(1553) KciErr KciStoreBytesInstanceOf(10, 402, 1, 'a\\0\\0\\0=\\216\\0\\222', 8) KciErr", "", 402},
        {[] { return text(8, u""); }, " KciNewOop(1553) KciErr KciStoreBytesInstanceOf(10, 402, 1, '', 0) KciErr", "",
         402},
        {dateTime, " KciNewDateTime(1857, 2024, 300, 1, 10) KciErr", calendar, 403},
        {[] { return value(10); }, "", softly, -1},
        {[] { return value(-7); }, "", softly, -1},
    };
    const auto answers = [] {
        client().results["KciFltToOop"] = {401};
        client().results["KciNewOop"] = {402};
        client().results["KciNewDateTime"] = {403};
    };
    std::vector<Row> rows;
    for (const Value& each : values) {
        const std::string kind = std::to_string(each.make()->number("valueType"));
        const bool isText = kind == "7" || kind == "8", isDouble = kind == "8";
        rows.push_back({.name = "value",
                        .native = native,
                        .client = SESSION + each.calls + " KciIsKindOf(" +
                                  std::to_string(std::max<jlong>(each.oop, 0)) + ", 400) KciErr",
                        .trace = begin + each.trace + debug("isKindOf completed.") + returning(0),
                        .script = [&, make = each.make] { sent = make(), answers(); },
                        .check =
                            [&, oop = each.oop, isText, isDouble] {
                                EXPECT_EQ(sent->wrote("oop"), oop >= 0);
                                EXPECT_EQ(sent->number("oop"), std::max<jlong>(oop, 0));
                                EXPECT_EQ(sent->number("objType"), -1);
                                EXPECT_EQ(jni().count("ReleaseStringUTFChars"), unsigned(isText));
                                EXPECT_EQ(jni().mixedReleases, unsigned(isDouble)) << "kept: the release call of UTF";
                            }});
        // Every check for a client error, and only those: fail at each in turn.
        const auto checks = size_t(std::count(each.calls.begin(), each.calls.end(), 'E')); // of "KciErr"
        size_t end = 0;
        for (unsigned nth = 1; nth <= checks; nth++) {
            end = each.calls.find(" KciErr", end) + strlen(" KciErr");
            rows.push_back({.name = "client error",
                            .native = native,
                            .status = -1,
                            .client = SESSION + each.calls.substr(0, end),
                            .trace = begin + each.trace + clientFailure(scriptError()),
                            .script =
                                [&, make = each.make, nth] {
                                    sent = make(), answers();
                                    client().fail("KciErr", scriptError(), nth + 1);
                                },
                            .check = [isText] { EXPECT_EQ(jni().count("ReleaseStringUTFChars"), unsigned(isText)); }});
        }
    }
    for (int kind : {7, 8}) {
        for (bool isNull : {false, true}) {
            rows.push_back({.name = "not lent",
                            .native = native,
                            .status = -2,
                            .client = SESSION,
                            .trace = begin + allocationError(),
                            .script = [&, kind, isNull] {
                                sent = isNull ? value(kind) : text(kind, u"abc");
                                jni().fail(kind == 7 ? "GetStringUTFChars" : "GetStringChars");
                            }});
        }
    }
    check(rows);
}

} // namespace
} // namespace bridge
