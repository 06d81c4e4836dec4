package com.kestrune.tmqkci;

import static com.kestrune.tmqkci.TestSession.NO_SESSION;
import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertFalse;
import static org.junit.jupiter.api.Assertions.assertNotEquals;
import static org.junit.jupiter.api.Assertions.assertTrue;

import java.util.List;
import java.util.function.ToIntFunction;

import org.junit.jupiter.api.BeforeAll;
import org.junit.jupiter.api.Test;

/** Opening, using and closing sessions. */
class SessionTest {
    @BeforeAll
    static void initialize() {
        TestSession.initialize();
    }

    private static int login(String server, String user, String password, TmqKciException error) {
        return TmqKciInterface._login(server, null, user, password, null, null, error);
    }

    @Test
    void loginNeedsServerUserAndPassword() {
        TestSession.refuse("Login:  NULL serverName argument", error -> login(null, null, null, error));
        TestSession.refuse("Login:  NULL UserName argument", error -> login("local", null, null, error));
        TestSession.refuse("Login:  NULL password argument", error -> login("local", "guest", null, error));
    }

    @Test
    void loginChecksThePassword() {
        String[][] pairs = {{"guest", "s3cret"}, {"nobody", "s3cret"}, {"", ""}, {"guest\0", "s3cret"}};
        for (String[] wrong : pairs) {
            TmqKciException error = TestSession.fail(report -> login("local", wrong[0], wrong[1], report));
            assertEquals(TestSession.SYSTEM_ERRORS, error.category);
            assertNotEquals(TmqKciException.BRIDGE_ERROR, error.number);
            assertFalse(error.message.isEmpty());
            assertFalse(error.message.contains("s3cret"), "a password is not repeated");
        }
    }

    @Test
    void optionalArgumentsOfLoginMayBeGiven() {
        int session = TestSession.succeed(error -> TmqKciInterface._login("local", "net", "guest", "guest", "host user",
                "host password", error));
        assertEquals(0, TestSession.succeed(error -> TmqKciInterface._logout(session, error)));
    }

    @Test
    void sessionsAreUsedAlternately() {
        try (TestSession one = new TestSession(); TestSession other = new TestSession()) {
            assertNotEquals(one.id, other.id);
            one.run("shared := 1");
            other.run("shared := 2");
            TestSession.succeed(error -> TmqKciInterface._executeStr(one.id, "shared + 10", error));
            TestSession.succeed(error -> TmqKciInterface._executeStr(other.id, "shared + 10", error));
            assertEquals(12, other.end().valueLong);
            assertEquals(11, one.end().valueLong);
            one.runFailing("nil noSuchMessage");
            assertEquals(0, TestSession.succeed(error -> TmqKciInterface._checkErrors(other.id, error)));
        }
    }

    @Test
    void aRunningCallIsPolled() {
        try (TestSession session = new TestSession()) {
            TestSession.succeed(error -> TmqKciInterface._executeStr(session.id,
                    "| sum | sum := 0. 1 to: 300000 do: [:each | sum := sum + each \\\\ 7]. sum", error));
            TmqKciReport result = new TmqKciReport();
            int polls = 0;
            while (TestSession.succeed(error -> TmqKciInterface._nbEnd(session.id, result,
                    error)) == TmqKciInterface.NOT_READY) {
                assertEquals(TmqKciReport.KIND_NONE, result.objType, "not touched before the end");
                ++polls;
            }
            assertTrue(polls > 0, "the call ended in one slice");
            assertEquals(TmqKciReport.VALUE_INTEGER, result.valueType);
        }
    }

    @Test
    void everyMethodNeedsASession() {
        TmqKciReport report = TmqKciReport.ofOop(TestSession.NIL);
        TmqKciReport[] reports = {report};
        TestSession closed = new TestSession();
        closed.close();
        List<ToIntFunction<TmqKciException>> calls = List.of(
                error -> TmqKciInterface._logout(NO_SESSION, error),
                error -> TmqKciInterface._logout(closed.id, error),
                error -> TmqKciInterface._setup(NO_SESSION, report, error),
                error -> TmqKciInterface._nbEnd(NO_SESSION, report, error),
                error -> TmqKciInterface._executeStr(NO_SESSION, "1", error),
                error -> TmqKciInterface._executeObj(NO_SESSION, report, error),
                error -> TmqKciInterface._perform(NO_SESSION, report, "x", reports, 1, error),
                error -> TmqKciInterface._continue(NO_SESSION, report, false, null, report, null, null, error),
                error -> TmqKciInterface._isKindOf(NO_SESSION, report, report, error),
                error -> TmqKciInterface._checkErrors(NO_SESSION, error),
                error -> TmqKciInterface._getBytes(NO_SESSION, report, 1, 1, new byte[1], error),
                error -> TmqKciInterface._getObjs(NO_SESSION, report, 1, 1, reports, error),
                error -> TmqKciInterface._getNamedObjs(NO_SESSION, report, 1, 1, reports, error),
                error -> TmqKciInterface._putBytes(NO_SESSION, report, 1, 1, new byte[1], error),
                error -> TmqKciInterface._putObjs(NO_SESSION, report, 1, 1, reports, error),
                error -> TmqKciInterface._putNamedObjs(NO_SESSION, report, 1, 1, reports, error),
                error -> TmqKciInterface._removeFromExportSet(NO_SESSION, reports, 1, error),
                error -> TmqKciInterface._releaseOops(NO_SESSION, new long[1], 1, error),
                error -> TmqKciInterface._changedOops(NO_SESSION, new long[1], 1, error));
        for (ToIntFunction<TmqKciException> call : calls) {
            TmqKciException error = TestSession.fail(call);
            assertEquals(TestSession.SYSTEM_ERRORS, error.category);
            assertEquals(4100, error.number);
        }
    }

    @Test
    void aPollWithoutAResultIsRefused() {
        try (TestSession session = new TestSession()) {
            session.run("1");
            TestSession.refuse("nbEnd(): NULL result argument",
                    error -> TmqKciInterface._nbEnd(session.id, null, error));
        }
    }
}
