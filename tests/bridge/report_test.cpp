// Describing server objects (through _setup) and turning reports into identifiers (through _isKindOf).
#include "bridge/harness.h"

namespace bridge {
namespace {

class Describe : public Bridge {
protected:
    Story setup(jlong oop, const std::string& steps, const std::string& fields,
                const std::function<void()>& further = {}) {
        return {[this] { return CALL(setup, 7, arg(result)); }, FRAME + steps,
                [=, this] {
                    result->fields["oop"].number = oop;
                    if (further)
                        further();
                },
                [=, this] { EXPECT_EQ(describe(result), fields); }};
    }
};

TEST_F(Describe, IdentifiersThatAreValues) {
    const struct {
        jlong oop;
        const char *steps, *fields;
    } values[] = {
        {3, "KciErr|", "objType=3 oop=3 valueLong=0 valueType=3"},
        {0x7FFFFFFF, "KciErr|", "objType=3 oop=2147483647 valueLong=536870911 valueType=3"},
        {0x80000003, "KciErr|", "objType=3 oop=2147483651 valueLong=-536870912 valueType=3"},
        {0x500000000 | 7, "KciErr|", "objType=3 oop=7 valueLong=1 valueType=3"},
        {38, "KciOopToBool(38)|", "objType=3 oop=38 valueLong=1 valueType=1"},
        {10, "", "objType=3 oop=10 valueType=0"},
        {200 << 5 | 14, "KciOopToChr(6414)|", "objType=3 oop=6414 valueLong=-56 valueType=2"},
        {1, "", "oop=1"},
    };
    std::vector<Story> stories;
    for (const auto& [oop, steps, fields] : values)
        stories.push_back(setup(oop, steps + std::string("= 0"), fields));
    for (jlong oop : {2, 42})
        stories.push_back(setup(oop, "! Logic error:  Bad object type", "objType=3 oop=" + std::to_string(oop)));
    // The report itself gives the value, or one of no kind that can be sent.
    stories.push_back(setup(0, "KciLongToOop(5)|KciErr again|KciErr|= 0", "objType=3 oop=23 valueLong=5 valueType=3",
                            [this] { result->fields = value(3, 5)->fields; }));
    stories.push_back(setup(0, "    getOop(): Logic error in case statement|= 0", "objType=-1 oop=0 valueType=5",
                            [this] { result->fields = value(5)->fields; }));
    stories.push_back({[this] { return CALL(setup, 7, null); }, FRAME + "! setup(): NULL result argument"});
    check(stories);

    // Whatever is not 0 is true.
    const Story odd =
        setup(6, "", "objType=3 oop=6 valueLong=1 valueType=1", [] { client().results["KciOopToBool"] = {256}; });
    EXPECT_EQ(call(odd.native, odd.script), 0);
    odd.check();

    // An error that is pending after the decoding of an integer keeps the value out of the report.
    if (!hosted) {
        const Story pending = setup(7, "", "objType=3 oop=7", [] { client().fail("KciErr", scriptError(), 2); });
        EXPECT_EQ(call(pending.native, pending.script), -1);
        pending.check();
    }
}

TEST_F(Describe, ServerObjects) {
    const auto describes = [](int impl, int cls, int named, int size, bool indexable) {
        client().results["KciFetchNamedOop"] = {600};
        client().info.objImpl = unsigned(impl) & 7;
        client().info.objClass = OopType(cls);
        client().info.namedSize = named;
        client().info.objSize = size;
        client().info.isIndexable = indexable;
    };
    const auto bytes = [=](int cls, int size, int string = 0, int dbString = 0, int named = 0) {
        return [=] {
            describes(KCI_IMPL_BYTE, cls, named, size, true);
            client().bytes.assign(size_t(size), 'x');
            client().results["KciIsKindOf"] = {string, dbString};
            client().floatResult = 2.5;
        };
    };
    const auto oops = [=](int impl, int cls, int named, const std::vector<OopType>& body) {
        return [=] {
            describes(impl, cls, named, int(body.size()), impl == KCI_IMPL_NSC);
            client().oops = body;
            client().results["KciOopToLong"] = {366, -5};
        };
    };
    const auto other = [=](int impl, int named, int size) { return [=] { describes(impl, 500, named, size, true); }; };
    const std::string begin = "KciSaveObjs([300])|KciErr|KciFetchObjInfo(300, 1, 16)|";
    const auto history = [&](int cls) {
        return begin + "[ INFO ] Set oop 300 class to " + std::to_string(cls) + "|KciFetchNamedOop(" +
               std::to_string(cls) + ", 12)|KciErr unchecked|[ INFO ] Set oop 300 class history to 600|";
    };
    const std::string kind = "KciIsKindOf(300, 1257)|", dbKind = kind + "KciIsKindOf(300, 1553)|";
    const std::string byteArray = "lend NewByteArray|", longArray = "lend NewLongArray|";
    const struct {
        std::function<void()> script;
        int cls;
        std::string steps, fields;
    } objects[] = {
        {bytes(500, 3, 1), 500, byteArray + dbKind,
         "indexedSize=3 isCollection=1 isString=1 namedSize=0 objType=1 oop=300 valueBytes='xxx' valueType=7"},
        {bytes(500, 4, 256, 2), 500, byteArray + dbKind,
         "indexedSize=4 isCollection=1 isDBString=1 isString=1 namedSize=0 objType=1 oop=300 valueBytes='xxxx' "
         "valueType=8"},
        {bytes(1521, 8), 1521, byteArray + "KciOopToFlt(300)|",
         "indexedSize=8 isCollection=1 namedSize=0 objType=1 oop=300 valueBytes='xxxxxxxx' valueDouble=2.5 "
         "valueType=4"},
        {bytes(500, 100), 500, byteArray + kind,
         "indexedSize=100 isCollection=1 namedSize=0 objType=1 oop=300 valueBytes='xxxxxxxxxxxxxxxx' valueType=5"},
        {bytes(500, 5, 0, 0, 2), 500, byteArray + kind,
         "indexedSize=3 isCollection=1 namedSize=2 objType=1 oop=300 valueBytes='xxx' valueType=5"},
        {oops(KCI_IMPL_POINTER, 501, 1, {301, 0x80000001}), 501, longArray,
         "indexedSize=1 isCollection=0 namedSize=1 objType=0 oop=300 valueLongs=[ 301 2147483649 ] valueType=6"},
        {oops(KCI_IMPL_NSC, 501, 2, {301, 304, 305, 308, 309}), 501, longArray,
         "indexedSize=3 isCollection=1 namedSize=2 objType=2 oop=300 valueLongs=[ 301 304 305 308 ] valueType=6"},
        {oops(KCI_IMPL_POINTER, 1857, 4, {2024 << 2 | 3, 300, OopType(-7) << 2 | 3, 10}), 1857,
         longArray + "KciOopToLong(300)|",
         "indexedSize=0 isCollection=0 namedSize=4 objType=0 oop=300 valueInt1=2024 valueInt2=366 valueLong=-7 "
         "valueLongs=[ 8099 300 4294967271 10 ] valueType=9"},
        {oops(KCI_IMPL_POINTER, 1857, 4, {300, 1 << 2 | 3, 304, 10}), 1857,
         longArray + "KciOopToLong(300)|KciOopToLong(304)|",
         "indexedSize=0 isCollection=0 namedSize=4 objType=0 oop=300 valueInt1=366 valueInt2=1 valueLong=-5 "
         "valueLongs=[ 300 7 304 10 ] valueType=9"},
        {other(5, 0, 3), 500, "", "indexedSize=3 isCollection=1 namedSize=0 objType=5 oop=300"},
        {other(5, 1, INT32_MIN), 500, "", "indexedSize=2147483647 isCollection=1 namedSize=1 objType=5 oop=300"},
    };
    std::vector<Story> stories;
    for (const auto& each : objects) {
        const std::string classes = "classHistoryOop=600 classOop=" + std::to_string(each.cls) + " ";
        stories.push_back(
            setup(300, history(each.cls) + each.steps + "KciErr|= 0", classes + each.fields, each.script));
    }
    stories.push_back(setup(300, begin + "KciErr|! Failure in KciFetchObjInfo() call", "oop=300",
                            [] { client().results["KciFetchObjInfo"] = {0}; }));
    stories.push_back(
        setup(300, history(500) + "! Logic error:  Special oop processing",
              "classHistoryOop=600 classOop=500 indexedSize=0 isCollection=1 namedSize=0 objType=3 oop=300",
              other(KCI_IMPL_SPECIAL, 0, 0)));
    // A class without a history is no failure.
    stories.push_back(
        setup(300, history(500) + "KciErr|= 0",
              "classHistoryOop=600 classOop=500 indexedSize=3 isCollection=1 namedSize=0 objType=5 oop=300",
              [=] { other(5, 0, 3)(), client().fail("KciFetchNamedOop", scriptError()); }));
    check(stories);
}

// Reports whose value is still Java's alone become identifiers, each told to the report as well.
TEST_F(Bridge, ValuesForTheServer) {
    Object *real = value(4), *dateTime = value(9, 0x100000001);
    real->fields["valueDouble"].real = 2.5;
    dateTime->fields["valueInt1"].number = 2024;
    dateTime->fields["valueInt2"].number = 300;
    const std::string softly = "    getOop(): Logic error in case statement|";
    const std::string utf = "lend GetStringUTFChars|KciNewOop(1169)|KciErr|KciStoreBytesInstanceOf(10, 402, 1, ";
    const std::string units = "lend GetStringChars|KciNewOop(1553)|KciErr|KciStoreBytesInstanceOf(10, 402, 1, ";
    const struct {
        Object* sent;
        std::string steps;
        jlong oop; // -1: none is written, 0 is passed on
    } values[] = {
        {value(-1), "", -1},
        {value(0), "", 10},
        {value(1, 0x100000000), "KciErr|", 38},
        {value(2, 0x1F600), "KciErr|", 0xF600 << 5 | 14},
        {value(3, 0x100000005), "KciLongToOop(5)|KciErr|", 23},
        {real, "KciFltToOop(2.5)|KciErr|", 401},
        {value(5), softly, -1},
        {value(-7), softly, -1},
        {text(7, {u'a', 0, 0xE9, 0xD83D, 0xDE00}),
         utf + "'a\\192\\128\\195\\169\\237\\160\\189\\237\\184\\128', 11)|KciErr|", 402},
        {text(8, {u'a', 0, 0xD83D, 0xDE00}), units + "'a\\0\\0\\0=\\216\\0\\222', 8)|KciErr|", 402},
        {text(8, u""), units + "'', 0)|KciErr|", 402},
        {dateTime, "    CALENDAR: yr 2024 day 300 ms 4294967297|KciNewDateTime(1857, 2024, 300, 1, 10)|KciErr|", 403},
        {value(7), "= -2", -1},
    };
    std::vector<Story> stories;
    for (const auto& [sent, steps, oop] : values) {
        const std::string passed = std::to_string(std::max<jlong>(oop, 0));
        const std::string rest = "KciIsKindOf(" + passed + ", 400)|KciErr|isKindOf completed.|= 0";
        stories.push_back({[=, this] { return CALL(isKindOf, 7, arg(sent), arg(server(400))); },
                           "isKindOf: 7|" + FRAME + steps + (steps == "= -2" ? "" : rest),
                           [=] {
                               sent->fields.erase("oop");
                               client().results["KciFltToOop"] = {401};
                               client().results["KciNewOop"] = {402};
                               client().results["KciNewDateTime"] = {403};
                           },
                           [=] {
                               EXPECT_EQ(sent->wrote("oop"), oop >= 0);
                               EXPECT_EQ(sent->number("oop"), std::max<jlong>(oop, 0));
                               EXPECT_EQ(sent->number("objType"), -1);
                           }});
    }
    check(stories);
}

} // namespace
} // namespace bridge
