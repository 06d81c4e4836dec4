// Versions, login and logout, polling, pending errors, and cache statistics.
#include "bridge/harness.h"

#include <algorithm>
#include <cstring>

namespace bridge {
namespace {

TEST_F(Bridge, CacheStatisticsAreNotDefined) {
    for (int level : {0, 2}) {
        run({[this] { return CALL(KCSIattach, null); }, "! KCSI Interface not defined for 32-bit"}, level);
        initialize({});
    }
}

TEST_F(Bridge, Version) {
    Object* versions = nullptr;
    const auto native = [&] { return CALL(kciVersion, arg(versions)); };
    const auto script = [&] { versions = jni().objectArray({nullptr, nullptr}); };
    check({
        {native, "KciVersion()|= 0", script,
         [&] {
             ASSERT_NE(versions->elements[0], nullptr);
             EXPECT_EQ(versions->elements[0]->text, u"6.7");
             EXPECT_EQ(versions->elements[1], nullptr);
         }},
        {native, "KciVersion()|! Failure of KciVersion() call", [&] { script(), client().version = nullptr; }},
        {native, "KciVersion()|! Problem creating java string for KCI version",
         [&] { script(), jni().fail("NewStringUTF"); }},
        {native, "! kciVersion(): NULL version array", [&] { versions = nullptr; }},
        {native, "KciVersion()|! kciVersion(): the version array has no room for a string",
         [&] { versions = jni().objectArray({}); }},
    });
}

TEST_F(Bridge, Login) {
    using Strings = std::array<const char16_t*, 6>;
    const auto login = [this](const Strings& s) {
        const auto given = [](const char16_t* text) { return text ? arg(text) : null; };
        return [=, this] {
            return CALL(login, given(s[0]), given(s[1]), given(s[2]), given(s[3]), given(s[4]), given(s[5]));
        };
    };
    const auto lends = [](int count) {
        std::string steps = "Login.|";
        while (count-- > 0)
            steps += "lend GetStringUTFChars|";
        return steps;
    };
    const auto all = login({u"srv", u"net", u"usr", u"pwd", u"hu", u"hp"});
    const auto session = [] { client().results["KciGetSessionId"] = {9}; };
    const std::string ready = "     Ready to KciSetNet..|";
    const std::string ok = "     Kci_Login OK!|KciGetSessionId()|KciErr 9|     Setting up dirty "
                           "object tracking..|"
                           "KciDirtyObjsInit()|KciErr 9|Login completed session = 9.|= 9";
    const std::string begin = lends(6) + "     Connect: server = srv user = usr pass = pwd|" + ready +
                              "KciSetNet('srv', 'hu', 'hp', 'net')|KciErr 0|     Ready to KciLogin..|"
                              "KciLogin('usr', 'pwd')|";
    const std::string kanji = "\xED\xA0\xBD\xED\xB8\x80";
    check({
        {all, begin + ok, session},
        {login({u"\u00e9", nullptr, u"\U0001F600", u"", nullptr, nullptr}),
         lends(3) + "     Connect: server = \u00e9 user = " + kanji + " pass = |" + ready +
             "KciSetNet('\u00e9', NULL, NULL, NULL)|KciErr 0|     Ready to "
             "KciLogin..|KciLogin('" +
             kanji + "', '')|" + ok,
         session},
        {all, begin + ok, [=] { session(), client().results["KciLogin"] = {256}; }},
        {all, begin + "    Kci_Login Failed!|KciErr 0|! KciLogin failure: cause unknown",
         [] { client().results["KciLogin"] = {0}; }},
        // What is missing or not lent first decides.
        {login({}), "Login.|! Login:  NULL serverName argument"},
        {login({u"srv", u"net"}), lends(2) + "! Login:  NULL UserName argument"},
        {login({u"srv", nullptr, u"usr"}), lends(2) + "! Login:  NULL password argument"},
    });
}

// What reaches Java of an error, whole and where Java cannot allocate; the
// method fails with -1 in any case.
TEST_F(Bridge, ErrorRecordsOnTheirWayToJava) {
    const auto native = [this] { return CALL(checkErrors, 7); };
    initialize({});
    KciErrSType odd = scriptError();
    const auto fails = [&] { client().fail("KciPollForSignal", odd); };
    EXPECT_EQ(call(native, fails), -1);

    // More than the record holds, less than none, no terminator.
    memset(odd.message, 'm', sizeof odd.message);
    std::fill_n(odd.args, KCI_ERR_MAX_ARGS, 301);
    odd.fatal = 0x100; // of which the low byte counts
    for (const auto& [given, taken] : {std::pair(11, 10), {-1, 0}}) {
        odd.argCount = given;
        EXPECT_EQ(call(native, fails), -1);
        EXPECT_EQ(error->number("argCount"), taken);
        EXPECT_EQ(error->object("args")->longs, std::vector<jlong>(size_t(taken), 301));
        EXPECT_EQ(error->object("message")->text, std::u16string(400, 'm'));
        EXPECT_EQ(error->number("fatal"), 0);
    }

    // Where Java refuses, the fields before stay written.
    odd = scriptError();
    for (const char* refused : {"NewStringUTF", "NewLongArray"}) {
        EXPECT_EQ(call(native, [&] { fails(), jni().fail(refused), pendingAllowed = "OutOfMemoryError"; }), -1);
        EXPECT_TRUE(trace.ends_with(allocationError() + debug("    Session: 7") + returning(-1))) << trace;
        EXPECT_EQ(error->wrote("message"), refused == std::string("NewLongArray"));
        error->fields.erase("message");
        EXPECT_EQ(describe(error), "argCount=2 category=3613 context=4294967281 fatal=1 number=2101");
    }
}

TEST_F(Bridge, LogoutAndPendingErrors) {
    check({
        {[&] { return CALL(logout, 7); },
         "Logout session: 7|" + FRAME +
             "KciLogout()|KciErr|KciGetSessionId()|    After Logout: Session ID "
             "= -1|"
             "    Logout completed.|= 0",
         [] { client().results["KciGetSessionId"] = {-1}; }},
        {[&] { return CALL(checkErrors, 7); },
         "CheckErrors: 7|" + FRAME + "KciPollForSignal()|KciErr|checkErrors completed.|= 0"},
    });
}

TEST_F(Bridge, NbEnd) {
    const auto native = [this] { return CALL(nbEnd, 7, arg(result)); };
    const std::string begin = "\"[DEBUGC] NbEnd: 7 |" + FRAME;
    const auto untouched = [this] { EXPECT_EQ(describe(result), ""); };
    std::vector<Story> stories = {
        {native, begin + "KciNbEnd()|\"\n|KciErr|= 0", [] { client().results["KciNbEnd result"] = {10}; },
         [this] { EXPECT_EQ(describe(result), "objType=3 oop=10 valueType=0"); }},
        {[&] { return CALL(nbEnd, 7, null); }, begin + "! nbEnd(): NULL result argument"},
    };
    // The early exit looks for no error, and its trace is neither prefixed nor
    // flushed.
    for (int progress : {0, 256}) {
        stories.push_back({native, begin + "KciNbEnd()|\"/ not ready: " + std::to_string(progress) + ".\n|-> 1",
                           [=] { client().results["KciNbEnd"] = {progress}; },
                           [=, this] {
                               untouched();
                               EXPECT_EQ(host().flushes, trace.empty() ? 0u : 1u);
                           }});
    }
    check(stories);
    EXPECT_EQ(call(native, [] { client().fail("KciNbEnd", scriptError()); }), -1);
    untouched();
}

} // namespace
} // namespace bridge
