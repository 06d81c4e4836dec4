// Starting, continuing and asking: _executeStr, _executeObj, _perform, _continue, _isKindOf.
#include "bridge/harness.h"

namespace bridge {
namespace {

const std::string SESSION = "KciSetSessionId(7) KciErr";

TEST_F(Bridge, ExecuteStr) {
    const std::string begin = debug("ExecuteStr: 7");
    const auto native = [this] { return CALL(executeStr, 7, arg(u"3 + 4")); };
    check({
        {.name = "success",
         .native = native,
         .client = SESSION + " KciNbExecuteStr('3 + 4', 10)",
         .trace = begin + debug("    Execute Str = '3 + 4'") + returning(0),
         .script = [] { client().fail("KciNbExecuteStr", scriptError()); }, // left for the poll
         .check = [] { EXPECT_EQ(jni().count("ReleaseStringUTFChars"), 1u); }},
        {.name = "not lent",
         .native = native,
         .status = -2,
         .client = SESSION,
         .trace = begin + allocationError(),
         .script = [] { jni().fail("GetStringUTFChars"); }},
        {.name = "null",
         .native = [this] { return CALL(executeStr, 7, null); },
         .status = -2,
         .client = SESSION,
         .trace = begin + allocationError()},
    });
}

TEST_F(Bridge, ExecuteObj) {
    const std::string begin = debug("ExecuteObj: 7");
    check({
        {.name = "success",
         .native = [this] { return CALL(executeObj, 7, arg(server(0x80000001))); },
         .client = SESSION + " KciNbExecute(2147483649, 10)",
         .trace = begin + debug("     Execute str oop = -2147483647") + returning(0)},
        {.name = "source not made", // passed on without a further trace
         .native = [this] { return CALL(executeObj, 7, arg(value(3, 5))); },
         .status = -1,
         .client = SESSION + " KciLongToOop(5) KciErr",
         .trace = begin + clientFailure(scriptError()),
         .script = [] { client().fail("KciLongToOop", scriptError()); }},
        {.name = "no value", // the identifier stays 0
         .native = [this] { return CALL(executeObj, 7, arg(value(-1))); },
         .client = SESSION + " KciNbExecute(0, 10)",
         .trace = begin + debug("     Execute str oop = 0") + returning(0)},
    });
    expectRefused([&] { return CALL(executeObj, 7, null); });
}

TEST_F(Bridge, Perform) {
    const auto perform = [this](std::vector<Object*> args, jint count) {
        return CALL(perform, 7, arg(server(300)), arg(u"at:put:"), arg(args), count);
    };
    const auto two = [=] { return perform({server(301), value(3, 5)}, 2); };
    const auto begin = [](int count) {
        return debug("Perform: 7") + debug("    Receiver = 300") + debug("    NumArgs = " + std::to_string(count));
    };
    const std::string arguments = begin(2) + debug("    jarg[0] = {reference 0}") + debug("    arg[0] = 301") +
                                  debug("    jarg[1] = {reference 1}");
    check({
        {.name = "two arguments",
         .native = two,
         .client = SESSION + " KciLongToOop(5) KciErr KciNbPerform(300, 'at:put:', [301 23], 2)",
         .trace = arguments + debug("    arg[1] = 23") + debug("    Selector = at:put:") + returning(0),
         .script = [] { client().fail("KciNbPerform", scriptError()); }, // left for the poll
         .check = [] { EXPECT_EQ(jni().count("ReleaseStringUTFChars"), 1u); }},
        {.name = "no argument",
         .native = [this] { return CALL(perform, 7, arg(server(300)), arg(u"size"), null, 0); },
         .client = SESSION + " KciNbPerform(300, 'size', [], 0)",
         .trace = begin(0) + debug("    Selector = size") + returning(0)},
        {.name = "receiver not made",
         .native = [this] { return CALL(perform, 7, arg(value(3, 5)), arg(u"size"), null, 0); },
         .status = -1,
         .client = SESSION + " KciLongToOop(5) KciErr",
         .trace = debug("Perform: 7") + clientFailure(scriptError()),
         .script = [] { client().fail("KciLongToOop", scriptError()); }},
        {.name = "argument not made, before the selector is borrowed",
         .native = two,
         .status = -1,
         .client = SESSION + " KciLongToOop(5) KciErr",
         .trace = arguments + clientFailure(scriptError()),
         .script = [] { client().fail("KciLongToOop", scriptError()); },
         .check = [] { EXPECT_EQ(jni().count("GetStringUTFChars"), 0u); }},
        {.name = "selector not lent",
         .native = two,
         .status = -2,
         .client = SESSION + " KciLongToOop(5) KciErr",
         .trace = arguments + debug("    arg[1] = 23") + allocationError(),
         .script = [] { jni().fail("GetStringUTFChars"); }},
    });

    EXPECT_EQ(call([&] { return perform(std::vector(20, server(1)), 20); }), 0);
    for (jint count : {21, -1, INT32_MIN, INT32_MAX}) {
        expectRefused([&] { return perform(std::vector(25, value(3, 5)), count); });
        EXPECT_EQ(client().calls, SESSION) << "right after the frame";
    }
    expectRefused([&] { return perform({value(3, 5), nullptr}, 2); });
    EXPECT_EQ(client().calls, SESSION + " KciLongToOop(5) KciErr");
    expectRefused([&] { return perform({server(301)}, 2); });
    expectRefused([&] { return CALL(perform, 7, arg(server(300)), arg(u"at:"), null, 1); });
    expectRefused([&] { return CALL(perform, 7, null, arg(u"at:"), null, 0); });
    EXPECT_EQ(client().calls, SESSION);
    EXPECT_EQ(call([&] { return CALL(perform, 7, arg(server(300)), null, null, 0); }), -2);
}

TEST_F(Bridge, Continue) {
    const auto proceed = [this](Object* top) {
        return CALL(continue, 7, arg(server(300)), JNI_FALSE, arg(top), arg(result), null, null);
    };
    const std::string begin = debug("Continue: 7") + debug("Normal continue");
    const auto nil = [] { client().results["KciContinueWith"] = {10}; };
    check({
        {.name = "with a value",
         .native = [=] { return proceed(server(301)); },
         .client = SESSION + " KciContinueWith(300, 301, 0, NULL) KciErr",
         .trace = begin + debug("Continue: oop result = 10") + returning(0),
         .script = nil,
         .check = [this] { EXPECT_EQ(describe(result), "objType=3 oop=10 valueType=0"); }},
        {.name = "without a value",
         .native = [=] { return proceed(nullptr); },
         .client = SESSION + " KciContinueWith(300, 1, 0, NULL) KciErr",
         .trace = begin + debug("Continue: oop result = 10") + returning(0),
         .script = nil},
        {.name = "the client fails",
         .native = [=] { return proceed(nullptr); },
         .status = -1,
         .client = SESSION + " KciContinueWith(300, 1, 0, NULL) KciErr",
         .trace = begin + clientFailure(scriptError()),
         .script = [] { client().fail("KciContinueWith", scriptError()); },
         .check = [this] { EXPECT_EQ(describe(result), ""); }},
        {.name = "value not made",
         .native = [=] { return proceed(value(3, 5)); },
         .status = -1,
         .client = SESSION + " KciLongToOop(5) KciErr",
         .trace = begin + clientFailure(scriptError()),
         .script = [] { client().fail("KciLongToOop", scriptError()); }},
        {.name = "process not made",
         .native = [this] { return CALL(continue, 7, arg(value(3, 5)), JNI_FALSE, null, arg(result), null, null); },
         .status = -1,
         .client = SESSION + " KciLongToOop(5) KciErr",
         .trace = debug("Continue: 7") + clientFailure(scriptError()),
         .script = [] { client().fail("KciLongToOop", scriptError()); }},
    });
    expectRefused([&] { return CALL(continue, 7, null, JNI_FALSE, null, arg(result), null, null); });
    expectRefused([&] { return CALL(continue, 7, arg(server(300)), JNI_FALSE, null, null, null, null); }, "", nil);
}

TEST_F(Bridge, ContinueWithAnError) {
    const auto report = [this](Argument message, Argument stack) {
        return CALL(continue, 7, arg(server(300)), JNI_TRUE, null, arg(result), message, stack);
    };
    const auto native = [=] { return report(arg(u"m\u00e9"), arg(u"stack")); };
    const auto script = [] { client().results["KciNewOop"] = {400, 401}; };
    const std::string begin = debug("Continue: 7") + debug("Error continue");
    const std::string message = begin + debug("Error message: m\u00e9");
    const std::string stack = message + debug("Error stack: \nstack");
    const std::string newMessage = SESSION + " KciNewOop(1169) KciErr";
    const std::string storedMessage = newMessage + " KciStoreBytesInstanceOf(10, 400, 1, 'm\\195\\169', 3) KciErr";
    const std::string newStack = storedMessage + " KciNewOop(1169) KciErr";
    const std::string storedStack = newStack + " KciStoreBytesInstanceOf(10, 401, 1, 'stack', 5) KciErr";
    std::vector<Row> rows = {
        {.name = "first string not lent",
         .native = native,
         .status = -2,
         .client = SESSION,
         .trace = begin + allocationError(),
         .script = [] { jni().fail("GetStringUTFChars", 1); }},
        {.name = "no first string",
         .native = [=] { return report(null, null); },
         .status = -2,
         .client = SESSION,
         .trace = begin + allocationError()},
        {.name = "second string not lent",
         .native = native,
         .status = -2,
         .client = storedMessage,
         .trace = message + allocationError(),
         .script = [=] { script(), jni().fail("GetStringUTFChars", 2); }},
    };
    const struct {
        const char* function;
        unsigned nth;
        std::string calls, trace;
    } failures[] = {{"KciNewOop", 1, newMessage, message},
                    {"KciStoreBytesInstanceOf", 1, storedMessage, message},
                    {"KciNewOop", 2, newStack, stack},
                    {"KciStoreBytesInstanceOf", 2, storedStack, stack}};
    for (const auto& failure : failures) {
        rows.push_back({.name = failure.function,
                        .native = native,
                        .status = -1,
                        .client = failure.calls,
                        .trace = failure.trace + clientFailure(scriptError()),
                        .script = [=] {
                            script();
                            client().fail(failure.function, scriptError(), failure.nth);
                        }});
    }
    check(rows);

    // The error itself: the process is not resumed.
    KciErrSType expected = clientError(2372, "m\u00e9", {2318, 400, 401});
    expected.category = KCI_OOP_NIL;
    EXPECT_EQ(call(native, script), -1);
    EXPECT_EQ(client().calls, storedStack);
    EXPECT_EQ(trace, stack + errorRecord(expected) + returning(-1));
    EXPECT_EQ(error->object("message")->text, u"m\u00e9");
    EXPECT_EQ(error->number("number"), 2372);
    EXPECT_EQ(error->object("args")->longs, (std::vector<jlong>{2318, 400, 401}));
    EXPECT_EQ(describe(result), "");
    EXPECT_EQ(jni().count("ReleaseStringUTFChars"), 2u);

    // A message longer than the record's field is cut, never within a character.
    for (const char16_t* tail : {u"abc", u"\u00e9\u00e9", u"\u20ac\u20ac"}) {
        const std::u16string longMessage = std::u16string(399, u'x') + tail;
        EXPECT_EQ(call([&] { return report(arg(longMessage.c_str()), arg(u"")); }, script), -1);
        EXPECT_EQ(error->object("message")->text, longMessage.substr(0, tail[0] == u'a' ? 400 : 399));
    }
}

TEST_F(Bridge, IsKindOf) {
    const std::string begin = debug("isKindOf: 7");
    const auto native = [this] { return CALL(isKindOf, 7, arg(server(300)), arg(server(400))); };
    std::vector<Row> rows = {
        {.name = "client error",
         .native = native,
         .status = -1,
         .client = SESSION + " KciIsKindOf(300, 400) KciErr",
         .trace = begin + clientFailure(scriptError()),
         .script = [] { client().fail("KciIsKindOf", scriptError()); }},
        {.name = "class not made",
         .native = [this] { return CALL(isKindOf, 7, arg(value(3, 5)), arg(value(3, 6))); },
         .status = -1,
         .client = SESSION + " KciLongToOop(5) KciErr KciLongToOop(6) KciErr",
         .trace = begin + clientFailure(scriptError()),
         .script = [] { client().fail("KciLongToOop", scriptError(), 2); }},
    };
    for (int answer : {0, 1}) {
        rows.push_back({.name = "answer",
                        .native = native,
                        .status = answer,
                        .client = SESSION + " KciIsKindOf(300, 400) KciErr",
                        .trace = begin + debug("isKindOf completed.") + returning(answer),
                        .script = [=] { client().results["KciIsKindOf"] = {answer}; }});
    }
    check(rows);
    expectRefused([&] { return CALL(isKindOf, 7, null, arg(server(400))); });
    expectRefused([&] { return CALL(isKindOf, 7, arg(server(300)), null); });
}

} // namespace
} // namespace bridge
