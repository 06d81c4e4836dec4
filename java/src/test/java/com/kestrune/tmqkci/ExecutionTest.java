package com.kestrune.tmqkci;

import static org.junit.jupiter.api.Assertions.assertArrayEquals;
import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertFalse;
import static org.junit.jupiter.api.Assertions.assertNotEquals;
import static org.junit.jupiter.api.Assertions.assertTrue;

import java.util.Arrays;

import org.junit.jupiter.api.AfterEach;
import org.junit.jupiter.api.BeforeEach;
import org.junit.jupiter.api.Test;

/** Running code on the server: source text, messages, suspended processes. */
class ExecutionTest {
    private TestSession session;

    @BeforeEach
    void login() {
        session = new TestSession();
    }

    @AfterEach
    void logout() {
        session.close();
    }

    @Test
    void sourceTextRuns() {
        TmqKciReport seven = session.run("3 + 4");
        assertEquals(31, seven.oop);
        assertEquals(TmqKciReport.KIND_SPECIAL, seven.objType);
        assertEquals(TmqKciReport.VALUE_INTEGER, seven.valueType);
        assertEquals(7, seven.valueLong);

        TmqKciReport source = TmqKciReport.ofString("3 + 4");
        TestSession.succeed(error -> TmqKciInterface._executeObj(session.id, source, error));
        assertEquals(7, session.end().valueLong);
        TmqKciReport onServer = TmqKciReport.ofOop(source.oop);
        TestSession.succeed(error -> TmqKciInterface._executeObj(session.id, onServer, error));
        assertEquals(7, session.end().valueLong);
    }

    @Test
    void sourceThatIsMissingOrWrongIsReported() {
        assertEquals(TmqKciInterface.NOT_LENT,
                TmqKciInterface._executeStr(session.id, null, new TmqKciException()));
        TestSession.refuse("getOop(): NULL object", error -> TmqKciInterface._executeObj(session.id, null, error));
        assertEquals(TmqKciInterface.NOT_LENT,
                TmqKciInterface._executeObj(session.id, TmqKciReport.ofString(null), new TmqKciException()));
        for (String source : new String[] {"3 +", "#(1 2", "nosuchName", "'open", "3 / 0", "(1", "Object new: -1"}) {
            TmqKciException error = session.runFailing(source);
            assertEquals(TestSession.SYSTEM_ERRORS, error.category, source);
            assertNotEquals(TmqKciException.BRIDGE_ERROR, error.number, source);
            assertFalse(error.message.isBlank(), source);
        }
        TestSession.succeed(error -> TmqKciInterface._executeObj(session.id, TmqKciReport.ofInteger(5), error));
        TestSession.fail(error -> session.end(new TmqKciReport(), error));
        assertEquals(7, session.run("3 + 4").valueLong, "the session goes on");
    }

    @Test
    void messagesAreSent() {
        assertEquals(7, session.send(TmqKciReport.ofInteger(3), "+", TmqKciReport.ofInteger(4)).valueLong);
        TmqKciReport array = session.object("Array new: 3");
        TmqKciReport nine = TmqKciReport.ofInteger(9);
        assertEquals(9, session.send(array, "at:put:", TmqKciReport.ofInteger(2), nine).valueLong);
        assertEquals(9, session.send(array, "at:", TmqKciReport.ofInteger(2)).valueLong);
        assertEquals(3, session.send(array, "size").valueLong);
        TestSession.succeed(error -> TmqKciInterface._perform(session.id, array, "size", null, 0, error));
        assertEquals(3, session.end().valueLong);
    }

    @Test
    void upToTwentyArgumentsAreTaken() {
        TmqKciReport[] args = new TmqKciReport[21];
        Arrays.setAll(args, TmqKciReport::ofInteger);
        String selector = "a:".repeat(20);
        TestSession.succeed(
                error -> TmqKciInterface._perform(session.id, TmqKciReport.ofNil(), selector, args, 20, error));
        TmqKciException error = TestSession.fail(report -> session.end(new TmqKciReport(), report));
        assertEquals(2010, error.number);

        TmqKciReport nil = TmqKciReport.ofNil();
        TestSession.refuse("perform(): numArgs exceeds 20",
                report -> TmqKciInterface._perform(session.id, nil, selector, args, 21, report));
        TestSession.refuse("perform(): numArgs < 0",
                report -> TmqKciInterface._perform(session.id, nil, selector, args, -1, report));
        TestSession.refuse("perform(): NULL argument array",
                report -> TmqKciInterface._perform(session.id, nil, "a:", null, 1, report));
        TestSession.refuse("perform(): jArgs is shorter than numArgs",
                report -> TmqKciInterface._perform(session.id, nil, "a:b:", new TmqKciReport[] {nil}, 2, report));
        TestSession.refuse("Problem with GetObjectArrayElement in perform()",
                report -> TmqKciInterface._perform(session.id, nil, "a:", new TmqKciReport[1], 1, report));
        TestSession.refuse("getOop(): NULL object",
                report -> TmqKciInterface._perform(session.id, null, "size", null, 0, report));
        assertEquals(TmqKciInterface.NOT_LENT,
                TmqKciInterface._perform(session.id, nil, null, null, 0, new TmqKciException()));
        assertEquals(7, session.run("3 + 4").valueLong, "the session goes on");
    }

    @Test
    void aMessageNotUnderstoodIsReportedWithItsArguments() {
        TmqKciException error = session.runFailing("true fizz: 3 buzz: 5");
        assertEquals(2010, error.number);
        assertEquals(TestSession.SYSTEM_ERRORS, error.category);
        assertFalse(error.fatal);
        assertEquals(3, error.argCount);
        assertEquals(38, error.args[0], "the receiver");
        assertEquals("fizz:buzz:", session.text(describe(error.args[1])));
        assertArrayEquals(new long[] {15, 23}, describe(error.args[2]).valueLongs, "the small integers 3 and 5");
    }

    private TmqKciReport describe(long oop) {
        TmqKciReport report = TmqKciReport.ofOop(oop);
        TestSession.succeed(error -> TmqKciInterface._setup(session.id, report, error));
        return report;
    }

    @Test
    void aSuspendedProcessContinuesWithAValue() {
        TmqKciException error = session.runFailing("(nil noSuchMessage) + 1");
        assertNotEquals(TestSession.NIL, error.context);
        TmqKciReport process = TmqKciReport.ofOop(error.context);
        TmqKciReport result = new TmqKciReport();
        assertEquals(0, TestSession.succeed(report -> TmqKciInterface._continue(session.id, process, false,
                TmqKciReport.ofInteger(41), result, null, null, report)));
        assertEquals(42, result.valueLong);
        TestSession.fail(report -> TmqKciInterface._continue(session.id, process, false, TmqKciReport.ofInteger(1),
                new TmqKciReport(), null, null, report));
    }

    @Test
    void whatCannotBeContinuedIsReported() {
        TmqKciReport nil = TmqKciReport.ofNil();
        TestSession.fail(error -> TmqKciInterface._continue(session.id, nil, false, null, new TmqKciReport(), null,
                null, error));
        TestSession.refuse("getOop(): NULL object", error -> TmqKciInterface._continue(session.id, null, false, null,
                new TmqKciReport(), null, null, error));
        TestSession.refuse("continue(): NULL result argument",
                error -> TmqKciInterface._continue(session.id, nil, false, null, null, null, null, error));
    }

    @Test
    void aJavaErrorIsPutOnTheServer() {
        TmqKciReport process = TmqKciReport.ofNil();
        TmqKciException error = TestSession.fail(report -> TmqKciInterface._continue(session.id, process, true, null,
                null, "it broke", "at line 1\nat line 2", report));
        assertEquals(TmqKciException.ERROR_CONTINUE, error.number);
        assertEquals("it broke", error.getMessage());
        assertEquals(TestSession.NIL, error.category);
        assertEquals(3, error.argCount);
        assertEquals(2318, error.args[0]);
        assertEquals("it broke", session.text(describe(error.args[1])));
        assertEquals("at line 1\nat line 2", session.text(describe(error.args[2])));

        String tooLong = "x".repeat(399) + "\u20AC" + "y".repeat(100);
        TmqKciException cut = TestSession.fail(report -> TmqKciInterface._continue(session.id, process, true, null,
                null, tooLong, "", report));
        assertEquals("x".repeat(399), cut.message, "cut between characters");
        assertEquals(tooLong, session.text(describe(cut.args[1])));
        assertEquals("", session.text(describe(cut.args[2])));

        for (String[] texts : new String[][] {{null, "stack"}, {"message", null}}) {
            assertEquals(TmqKciInterface.NOT_LENT, TmqKciInterface._continue(session.id, process, true, null, null,
                    texts[0], texts[1], new TmqKciException()));
        }
    }

    @Test
    void kindsAreTold() {
        TmqKciReport array = session.object("Array new: 1");
        TmqKciReport arrayClass = session.object("Array");
        TmqKciReport objectClass = session.object("Object");
        assertEquals(1, TestSession.succeed(e -> TmqKciInterface._isKindOf(session.id, array, arrayClass, e)));
        assertEquals(1, TestSession.succeed(e -> TmqKciInterface._isKindOf(session.id, array, objectClass, e)));
        assertEquals(0, TestSession.succeed(
                e -> TmqKciInterface._isKindOf(session.id, TmqKciReport.ofInteger(1), arrayClass, e)));
        TestSession.refuse("getOop(): NULL object",
                error -> TmqKciInterface._isKindOf(session.id, null, arrayClass, error));
        TestSession.refuse("getOop(): NULL object", error -> TmqKciInterface._isKindOf(session.id, array, null, error));
        TmqKciException error = TestSession.fail(
                report -> TmqKciInterface._isKindOf(session.id, array, TmqKciReport.ofInteger(1), report));
        assertTrue(error.message.length() > 0);
    }
}
