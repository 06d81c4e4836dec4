// Versions, login and logout, polling, pending errors, and what all methods share: the frame around them.
#include "bridge/harness.h"

namespace bridge {
namespace {

const std::string SESSION = "KciSetSessionId(7) KciErr";

TEST_F(Bridge, EveryMethodFailsWithTheSessionItCannotSelect) {
    std::vector<Row> rows;
    for (const Method& method : methods()) {
        if (method.hasSession) {
            rows.push_back({.name = method.name,
                            .native = method.native,
                            .status = -1,
                            .client = SESSION,
                            .trace = method.intro + clientFailure(scriptError()),
                            .script = [] { client().fail("KciSetSessionId", scriptError()); }});
        }
    }
    check(rows);
}

// This exit neither traces its result nor releases anything; the report is written before any field is known.
TEST_F(Bridge, EveryMethodRefusesToWorkBeforeInitialization) {
    const std::string text = "KCI: Not initialized";
    for (int level : {0, 1, 2}) {
        for (const Method& method : methods()) {
            check({.name = method.name,
                   .native = method.native,
                   .status = -1,
                   .trace = method.intro + genericError(text),
                   .error = text},
                  level);
            EXPECT_EQ(jni().count("ReleaseStringUTFChars"), 0u);
        }
        initialize(level + 1, 64, 65); // fails, but raises the trace level
    }
    EXPECT_EQ(client().callCount, 0u);
}

TEST_F(Bridge, CacheStatisticsAreNotDefined) {
    const std::string text = "KCSI Interface not defined for 32-bit";
    const std::function<jint()> natives[] = {
        [this] { return CALL0(KCSIinitialize); },       [this] { return CALL(KCSIstatNames, null); },
        [this] { return CALL(KCSIattach, null); },      [this] { return CALL0(KCSIdetach); },
        [this] { return CALL(KCSIsampleStats, null); }, [this] { return CALL(KCSIgetStats, 1, null); },
    };
    std::vector<Row> rows;
    for (const auto& native : natives)
        rows.push_back({.name = "KCSI", .native = native, .status = -1, .trace = genericFailure(text), .error = text});
    for (const Row& row : rows)
        check(row, 0); // before _initialize
    check(rows);
}

// A missing error report costs the report, nothing else.
TEST_F(Bridge, NullErrorReport) {
    const auto everything = [this](const char* when) {
        SCOPED_TRACE(when);
        const auto withoutReport = [this] { error = nullptr; };
        for (const Method& method : methods()) {
            call(method.native, [&] {
                withoutReport();
                client().fail(method.hasSession ? "KciSetSessionId" : "KciSetNet", scriptError());
                client().version = nullptr;
            });
            EXPECT_EQ(status, -1) << method.name;
        }
        EXPECT_EQ(call([this] { return CALL0(KCSIdetach); }, withoutReport), -1);
    };
    everything("not initialized");
    initialize(2);
    everything("initialized");
}

TEST_F(Bridge, Version) {
    Object* versions = nullptr;
    const auto native = [&] { return CALL(kciVersion, arg(versions)); };
    const auto script = [&] { versions = jni().objectArray({nullptr, nullptr}); };
    const std::string noVersion = "Failure of KciVersion() call";
    const std::string noString = "Problem creating java string for KCI version";
    check({
        {.name = "success",
         .native = native,
         .client = "KciVersion()",
         .trace = returning(0),
         .script = script,
         .check =
             [&] {
                 ASSERT_NE(versions->elements[0], nullptr);
                 EXPECT_EQ(versions->elements[0]->text, u"6.7");
                 EXPECT_EQ(versions->elements[1], nullptr);
             }},
        {.name = "no version",
         .native = native,
         .status = -1,
         .client = "KciVersion()",
         .trace = genericFailure(noVersion),
         .script = [&] { script(), client().version = nullptr; },
         .error = noVersion},
        {.name = "no string",
         .native = native,
         .status = -1,
         .client = "KciVersion()",
         .trace = genericFailure(noString),
         .script = [&] { script(), jni().fail("NewStringUTF"); },
         .error = noString},
    });
    expectRefused([&] { return CALL(kciVersion, null); });
    expectRefused([&] { return CALL(kciVersion, arg(std::vector<Object*>())); });
}

TEST_F(Bridge, Login) {
    const auto login = [this] {
        return CALL(login, arg(u"srv"), arg(u"net"), arg(u"usr"), arg(u"pwd"), arg(u"hu"), arg(u"hp"));
    };
    const auto session = [] { client().results["KciGetSessionId"] = {9}; };
    const std::string net = "KciSetNet('srv', 'hu', 'hp', 'net') KciErr";
    const std::string logged = net + " KciLogin('usr', 'pwd')";
    const std::string begin = debug("Login.");
    const std::string connect =
        begin + debug("     Connect: server = srv user = usr pass = pwd") + debug("     Ready to KciSetNet..");
    const std::string ready = connect + debug("     Ready to KciLogin..");
    const std::string ok = ready + debug("     Kci_Login OK!");
    const std::string dirty = ok + debug("     Setting up dirty object tracking..");
    const std::string unknown = "KciLogin failure: cause unknown";
    std::vector<Row> rows = {
        {.name = "success",
         .native = login,
         .status = 9,
         .client = logged + " KciGetSessionId() KciErr KciDirtyObjsInit() KciErr",
         .trace = dirty + debug("Login completed session = 9.") + returning(9),
         .script = session,
         .check = [] { EXPECT_EQ(jni().count("ReleaseStringUTFChars"), 6u); }},
        {.name = "optional arguments and text of more than ASCII",
         .native = [this] { return CALL(login, arg(u"\u00e9"), null, arg(u"\U0001F600"), arg(u""), null, null); },
         .status = 9,
         .client = "KciSetNet('\u00e9', NULL, NULL, NULL) KciErr KciLogin('\xED\xA0\xBD\xED\xB8\x80', '') "
                   "KciGetSessionId() KciErr KciDirtyObjsInit() KciErr",
         .trace = begin + debug("     Connect: server = \u00e9 user = \xED\xA0\xBD\xED\xB8\x80 pass = ") +
                  debug("     Ready to KciSetNet..") + debug("     Ready to KciLogin..") + debug("     Kci_Login OK!") +
                  debug("     Setting up dirty object tracking..") + debug("Login completed session = 9.") +
                  returning(9),
         .script = session},
        {.name = "KciSetNet fails",
         .native = login,
         .status = -1,
         .client = net,
         .trace = connect + clientFailure(scriptError(), 0),
         .script = [] { client().fail("KciSetNet", scriptError()); }},
        {.name = "KciLogin fails",
         .native = login,
         .status = -1,
         .client = logged + " KciErr",
         .trace = ready + debug("    Kci_Login Failed!") + clientFailure(scriptError(), 0),
         .script = [] { client().results["KciLogin"] = {0}, client().fail("KciLogin", scriptError()); }},
        {.name = "KciLogin fails without an error",
         .native = login,
         .status = -1,
         .client = logged + " KciErr",
         .trace = ready + debug("    Kci_Login Failed!") + genericFailure(unknown),
         .script = [] { client().results["KciLogin"] = {0}; },
         .error = unknown},
        {.name = "KciGetSessionId fails",
         .native = login,
         .status = -1,
         .client = logged + " KciGetSessionId() KciErr",
         .trace = ok + clientFailure(scriptError(), 9),
         .script = [=] { session(), client().fail("KciGetSessionId", scriptError()); }},
        {.name = "KciDirtyObjsInit fails",
         .native = login,
         .status = -1,
         .client = logged + " KciGetSessionId() KciErr KciDirtyObjsInit() KciErr",
         .trace = dirty + clientFailure(scriptError(), 9),
         .script = [=] { session(), client().fail("KciDirtyObjsInit", scriptError()); }},
        {.name = "the server's lending fails before the user name is missed",
         .native = [this] { return CALL(login, arg(u"srv"), null, null, null, null, null); },
         .status = -2,
         .trace = begin + allocationError(),
         .script = [] { jni().fail("GetStringUTFChars"); }},
    };
    for (unsigned nth = 1; nth <= 6; nth++) {
        rows.push_back({.name = "a string is not lent",
                        .native = login,
                        .status = -2,
                        .trace = begin + allocationError(),
                        .script = [nth] { jni().fail("GetStringUTFChars", nth); },
                        .check = [nth] { EXPECT_EQ(jni().count("ReleaseStringUTFChars"), nth - 1); }});
    }
    const std::pair<const char*, std::function<jint()>> missing[] = {
        {"Login:  NULL serverName argument", [this] { return CALL(login, null, null, null, null, null, null); }},
        {"Login:  NULL UserName argument",
         [this] { return CALL(login, arg(u"srv"), arg(u"net"), null, null, null, null); }},
        {"Login:  NULL password argument",
         [this] { return CALL(login, arg(u"srv"), null, arg(u"usr"), null, null, null); }},
    };
    for (const auto& [text, native] : missing) {
        rows.push_back(
            {.name = text, .native = native, .status = -1, .trace = begin + genericFailure(text), .error = text});
    }
    check(rows);
}

TEST_F(Bridge, Logout) {
    const auto native = [this] { return CALL(logout, 7); };
    const std::string begin = debug("Logout session: 7");
    check({
        {.name = "success",
         .native = native,
         .client = SESSION + " KciLogout() KciErr KciGetSessionId()",
         .trace = begin + debug("    After Logout: Session ID = -1") + debug("    Logout completed.") + returning(0),
         .script = [] { client().results["KciGetSessionId"] = {-1}; }},
        {.name = "failure",
         .native = native,
         .status = -1,
         .client = SESSION + " KciLogout() KciErr",
         .trace = begin + clientFailure(scriptError()),
         .script = [] { client().fail("KciLogout", scriptError()); }},
    });
}

TEST_F(Bridge, CheckErrors) {
    const auto native = [this] { return CALL(checkErrors, 7); };
    const std::string begin = debug("CheckErrors: 7");
    check({
        {.name = "none",
         .native = native,
         .client = SESSION + " KciPollForSignal() KciErr",
         .trace = begin + debug("checkErrors completed.") + returning(0)},
        {.name = "one",
         .native = native,
         .status = -1,
         .client = SESSION + " KciPollForSignal() KciErr",
         .trace = begin + clientFailure(scriptError()),
         .script = [] { client().fail("KciPollForSignal", scriptError()); }},
    });
}

TEST_F(Bridge, NbEnd) {
    const auto native = [this] { return CALL(nbEnd, 7, arg(result)); };
    const std::string polled = SESSION + " KciNbEnd()";
    const std::string begin = "[DEBUGC] NbEnd: 7 ";
    std::vector<Row> rows = {
        {.name = "ready",
         .native = native,
         .client = polled + " KciErr",
         .trace = begin + "\n" + returning(0),
         .script = [] { client().results["KciNbEnd result"] = {10}; },
         .check = [this] { EXPECT_EQ(describe(result), "objType=3 oop=10 valueType=0"); }},
        {.name = "failed on the server",
         .native = native,
         .status = -1,
         .client = polled + " KciErr",
         .trace = begin + "\n" + clientFailure(scriptError()),
         .script = [] { client().fail("KciNbEnd", scriptError()); },
         .check = [this] { EXPECT_EQ(describe(result), ""); }},
    };
    // The early exit looks for no error, and its trace is neither prefixed nor flushed.
    for (int progress : {KCI_RESULT_NOT_READY, KCI_RESULT_PROGRESSED}) {
        rows.push_back({.name = "not ready",
                        .native = native,
                        .status = 1,
                        .client = polled,
                        .trace = begin + "/ not ready: " + std::to_string(progress) + ".\n",
                        .script = [=] { client().results["KciNbEnd"] = {progress}; },
                        .check =
                            [this] {
                                EXPECT_EQ(describe(result), "");
                                EXPECT_EQ(host().flushes, trace.empty() ? 0u : 1u);
                            }});
    }
    check(rows);
    expectRefused([&] { return CALL(nbEnd, 7, null); });
    expectRefused([&] { return CALL(setup, 7, null); });
}

} // namespace
} // namespace bridge
