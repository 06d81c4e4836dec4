// Starting, continuing and asking: _executeStr, _executeObj, _perform, _continue, _isKindOf.
#include "bridge/harness.h"

#include "kcirtl.h"

#include <utility>

namespace bridge {
namespace {

TEST_F(Bridge, Execute) {
    const std::string string = "ExecuteStr: 7|" + FRAME, object = "ExecuteObj: 7|" + FRAME;
    const auto laterFailure = [](const char* function) {
        return [=] { client().fail(function, scriptError()); }; // left for the poll
    };
    check({
        {[&] { return CALL(executeStr, 7, arg(u"3 + 4")); },
         string + "lend GetStringUTFChars|    Execute Str = '3 + 4'|KciNbExecuteStr('3 + 4', 10)|= 0",
         laterFailure("KciNbExecuteStr")},
        {[&] { return CALL(executeStr, 7, null); }, string + "= -2"},
        {[&] { return CALL(executeObj, 7, arg(server(0x80000001))); },
         object + "     Execute str oop = -2147483647|KciNbExecute(2147483649, 10)|= 0", laterFailure("KciNbExecute")},
        {[&] { return CALL(executeObj, 7, arg(value(3, 5))); },
         object + "KciLongToOop(5)|KciErr|     Execute str oop = 23|KciNbExecute(23, 10)|= 0"},
        {[&] { return CALL(executeObj, 7, null); }, object + "! getOop(): NULL object"},
    });
}

TEST_F(Bridge, Perform) {
    const auto perform = [this](Object* receiver, const char16_t* selector, std::vector<Object*> args, jint count) {
        return [=, this] {
            return CALL(perform, 7, arg(receiver), selector ? arg(selector) : null, args.empty() ? null : arg(args),
                        count);
        };
    };
    Object *three = value(3, 3), *five = value(3, 5), *object = server(300);
    const std::string begin = "Perform: 7|" + FRAME, none = "    Receiver = 300|    NumArgs = 0|";
    std::vector<Story> stories = {
        {perform(three, u"at:put:", {server(301), five}, 2),
         begin + "KciLongToOop(3)|KciErr|    Receiver = 15|    NumArgs = 2|    jarg[0] = {reference 0}|"
                 "    arg[0] = 301|    jarg[1] = {reference 1}|KciLongToOop(5)|KciErr|    arg[1] = 23|"
                 "lend GetStringUTFChars|    Selector = at:put:|KciNbPerform(15, 'at:put:', [301 23], 2)|= 0",
         [] { client().fail("KciNbPerform", scriptError()); }}, // left for the poll
        {perform(object, u"size", {}, 0),
         begin + none + "lend GetStringUTFChars|    Selector = size|KciNbPerform(300, 'size', [], 0)|= 0"},
        {perform(object, nullptr, {}, 0), begin + none + "= -2"},
        {perform(nullptr, u"size", {}, 0), begin + "! getOop(): NULL object"},
        {perform(three, u"at:", {}, 1), begin + "! perform(): NULL argument array"},
        {perform(three, u"at:put:", {five}, 2), begin + "! perform(): jArgs is shorter than numArgs"},
        {perform(object, u"at:put:", {five, nullptr}, 2),
         begin + "    Receiver = 300|    NumArgs = 2|    jarg[0] = {reference 0}|KciLongToOop(5)|KciErr|"
                 "    arg[0] = 23|! Problem with GetObjectArrayElement in perform()"},
    };
    for (jint count : {21, -1}) {
        stories.push_back({perform(three, u"at:", std::vector(25, five), count),
                           begin + "! perform(): numArgs " + (count < 0 ? "< 0" : "exceeds 20")});
    }
    check(stories);
    EXPECT_EQ(call(perform(object, u"at:", std::vector(20, server(1)), 20)), 0);
}

TEST_F(Bridge, Continue) {
    const auto proceed = [this](Object* process, Object* top) {
        return [=, this] { return CALL(continue, 7, arg(process), JNI_FALSE, arg(top), arg(result), null, null); };
    };
    const std::string begin = "Continue: 7|" + FRAME, end = "|KciErr|Continue: oop result = 10|= 0";
    const auto nil = [] { client().results["KciContinueWith"] = {10}; };
    check({
        {proceed(value(3, 3), value(3, 5)),
         begin + "KciLongToOop(3)|KciErr|Normal continue|KciLongToOop(5)|KciErr|KciContinueWith(15, 23, 0, NULL)" + end,
         nil, [&] { EXPECT_EQ(describe(result), "objType=3 oop=10 valueType=0"); }},
        {proceed(server(300), nullptr), begin + "Normal continue|KciContinueWith(300, 1, 0, NULL)" + end, nil},
        {proceed(nullptr, nullptr), begin + "! getOop(): NULL object"},
        {[&] { return CALL(continue, 7, arg(server(300)), JNI_FALSE, null, null, null, null); },
         begin + "Normal continue|! continue(): NULL result argument"},
    });
    EXPECT_EQ(call(proceed(server(300), nullptr), [] { client().fail("KciContinueWith", scriptError()); }), -1);
    EXPECT_EQ(describe(result), "");
}

#define CONTROL(name, ...)                                                                                             \
    [&] {                                                                                                              \
        return Java_com_kestrune_tmqkci_TmqKciControl__1##name(scripted::jni().env(), nullptr, __VA_ARGS__,            \
                                                               arg(error));                                            \
    }
TEST_F(Bridge, BreaksTransactionsAndContinuingWithoutWaiting) {
    // What a break leaves in a host's client library is another call's to find.
    const std::string broken = hosted ? "()|= 0" : "()|KciErr|= 0", end = "()|KciErr|= ";
    const std::string begin = "NbContinue: 7|" + FRAME;
    const auto commits = [](int answer) { return [=] { client().results["KciCommit"] = {answer}; }; };
    const struct {
        std::function<jint()> native;
        std::string name, end;
    } controls[] = {{CONTROL(softBreak, 7), "SoftBreak", broken},
                    {CONTROL(hardBreak, 7), "HardBreak", broken},
                    {CONTROL(begin, 7), "Begin", end + "0"},
                    {CONTROL(abort, 7), "Abort", end + "0"},
                    {CONTROL(commit, 7), "Commit", end + "0"}};
    std::vector<Story> stories = {
        {CONTROL(commit, 7), "Commit: 7|" + FRAME + "KciCommit" + end + "1", commits(256)},
        {CONTROL(nbContinue, 7, arg(server(300)), arg(value(3, 5))),
         begin + "KciLongToOop(5)|KciErr|KciNbContinueWith(300, 23, 0)|= 0"},
        {CONTROL(nbContinue, 7, arg(server(300)), null), begin + "KciNbContinueWith(300, 1, 0)|= 0"},
        {CONTROL(nbContinue, 7, null, null), begin + "! getOop(): NULL object"},
    };
    for (const auto& [native, name, ending] : controls)
        stories.push_back({native, name + ": 7|" + FRAME + "Kci" + name + ending, commits(0)});
    check(stories);
    KciRtlJumpSType poor = *rtlPrivKciRtlFuncs;
    poor.KciSoftBreak = poor.KciHardBreak = poor.KciBegin = poor.KciAbort = nullptr;
    poor.KciCommit = nullptr;
    poor.KciNbContinueWith = nullptr;
    const auto* const whole = std::exchange(rtlPrivKciRtlFuncs, &poor);
    for (const auto& [native, name, ending] : controls) {
        const std::string method = char(tolower(name[0])) + name.substr(1);
        run({native, name + ": 7|" + FRAME + "! " + method + "(): the client library has no entry Kci" + name}, 2);
    }
    run({CONTROL(nbContinue, 7, null, null), begin + "= 1"}, 2);
    rtlPrivKciRtlFuncs = whole;
}
#undef CONTROL

// The process is not resumed.
TEST_F(Bridge, ContinueWithAnError) {
    const auto report = [this](const char16_t* message, const char16_t* stack) {
        return [=, this] {
            return CALL(continue, 7, arg(server(300)), JNI_TRUE, null, arg(result), message ? arg(message) : null,
                        stack ? arg(stack) : null);
        };
    };
    const auto script = [] { client().results["KciNewOop"] = {400, 401}; };
    const std::string begin = "Continue: 7|" + FRAME + "Error continue|";
    const std::string first = begin + "lend GetStringUTFChars|Error message: m\u00e9|KciNewOop(1169)|KciErr|"
                                      "KciStoreBytesInstanceOf(10, 400, 1, 'm\\195\\169', 3)|KciErr|";
    const std::string second = first + "lend GetStringUTFChars|Error stack: \nstack|KciNewOop(1169)|KciErr|"
                                       "KciStoreBytesInstanceOf(10, 401, 1, 'stack', 5)|KciErr|";
    KciErrSType expected = clientError(2372, "m\u00e9", {2318, 400, 401});
    expected.category = KCI_OOP_NIL;
    check({
        {report(nullptr, nullptr), begin + "= -2"},
        {report(u"m\u00e9", nullptr), first + "= -2", script},
        {report(u"m\u00e9", u"stack"), second + "= -1", script, [&] { EXPECT_EQ(describe(result), ""); }, &expected},
    });

    // A message longer than the record's field is cut, never within a character.
    for (const char16_t* tail : {u"abc", u"\u00e9\u00e9", u"\u20ac\u20ac"}) {
        const std::u16string longMessage = std::u16string(399, u'x') + tail;
        EXPECT_EQ(call(report(longMessage.c_str(), u""), script), -1);
        EXPECT_EQ(error->object("message")->text, longMessage.substr(0, tail[0] == u'a' ? 400 : 399));
    }
}

// What the client library answers is told as it is; reports' own tests tell the rest.
TEST_F(Bridge, IsKindOf) {
    const std::string begin = "isKindOf: 7|" + FRAME;
    check({{[&] { return CALL(isKindOf, 7, arg(server(300)), null); }, begin + "! getOop(): NULL object"},
           {[&] { return CALL(isKindOf, 7, arg(server(300)), arg(server(400))); },
            begin + "KciIsKindOf(300, 400)|KciErr|isKindOf completed.|= 256",
            [] { client().results["KciIsKindOf"] = {256}; }}});
}

} // namespace
} // namespace bridge
