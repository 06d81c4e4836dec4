package com.kestrune.tmqkci;

import static org.junit.jupiter.api.Assertions.assertArrayEquals;
import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertFalse;
import static org.junit.jupiter.api.Assertions.assertTrue;

import java.io.ByteArrayOutputStream;
import java.io.DataOutputStream;
import java.io.IOException;
import java.util.Arrays;

import org.junit.jupiter.api.AfterEach;
import org.junit.jupiter.api.BeforeEach;
import org.junit.jupiter.api.Test;

/** Values from Java to the server and back. */
class ValueTest {
    private TestSession session;

    @BeforeEach
    void login() {
        session = new TestSession();
    }

    @AfterEach
    void logout() {
        session.close();
    }

    /** What becomes of a Java-side value on the server. */
    private TmqKciReport sent(TmqKciReport value) {
        assertEquals(0, TestSession.succeed(error -> TmqKciInterface._setup(session.id, value, error)));
        return value;
    }

    private void isSpecial(long oop, byte valueType, long valueLong, TmqKciReport value) {
        TmqKciReport report = sent(value);
        assertEquals(oop, report.oop);
        assertEquals(TmqKciReport.KIND_SPECIAL, report.objType);
        assertEquals(valueType, report.valueType);
        assertEquals(valueLong, report.valueLong);
    }

    @Test
    void identifiersThatAreValues() {
        isSpecial(10, TmqKciReport.VALUE_NIL, 0, TmqKciReport.ofNil());
        isSpecial(38, TmqKciReport.VALUE_BOOLEAN, 1, TmqKciReport.ofBoolean(true));
        isSpecial(6, TmqKciReport.VALUE_BOOLEAN, 0, TmqKciReport.ofBoolean(false));
        isSpecial('A' << 5 | 14, TmqKciReport.VALUE_CHARACTER, 'A', TmqKciReport.ofCharacter('A'));
        isSpecial(6414, TmqKciReport.VALUE_CHARACTER, 200 - 256, TmqKciReport.ofCharacter((char) 200));
        isSpecial(3, TmqKciReport.VALUE_INTEGER, 0, TmqKciReport.ofInteger(0));
        isSpecial(0x7FFFFFFFL, TmqKciReport.VALUE_INTEGER, (1 << 29) - 1, TmqKciReport.ofInteger((1 << 29) - 1));
        isSpecial(0x80000003L, TmqKciReport.VALUE_INTEGER, -(1 << 29), TmqKciReport.ofInteger(-(1 << 29)));
        isSpecial(0xFFFFFFFFL, TmqKciReport.VALUE_INTEGER, -1, TmqKciReport.ofInteger(-1));
    }

    @Test
    void identifiersThatAreNone() {
        TmqKciReport one = TmqKciReport.ofOop(1);
        sent(one);
        assertEquals(TmqKciReport.VALUE_NONE, one.valueType);
        TestSession.refuse("Logic error:  Bad object type",
                error -> TmqKciInterface._setup(session.id, TmqKciReport.ofOop(18), error));
        TestSession.refuse("setup(): NULL result argument",
                error -> TmqKciInterface._setup(session.id, null, error));
        TmqKciException error = TestSession.fail(
                report -> TmqKciInterface._setup(session.id, TmqKciReport.ofOop(0xFFFFFFF0L), report));
        assertEquals(TestSession.SYSTEM_ERRORS, error.category);
    }

    @Test
    void largeIntegersAreObjects() {
        for (int number : new int[] {Integer.MAX_VALUE, Integer.MIN_VALUE, 1 << 29, -(1 << 29) - 1}) {
            TmqKciReport report = sent(TmqKciReport.ofInteger(number));
            assertEquals(TmqKciReport.KIND_BYTE, report.objType);
            assertEquals(Integer.toString(number),
                    session.text(session.send(TmqKciReport.ofInteger(number), "printString")));
        }
    }

    @Test
    void floats() {
        for (double number : new double[] {0.0, -0.0, 1.5, -1e300, Double.MIN_VALUE, Double.MAX_VALUE,
            Double.POSITIVE_INFINITY, Double.NaN}) {
            TmqKciReport report = sent(TmqKciReport.ofFloat(number));
            assertEquals(TmqKciReport.VALUE_FLOAT, report.valueType);
            assertEquals(1521, report.classOop);
            assertEquals(TmqKciReport.KIND_BYTE, report.objType);
            assertEquals(number, report.valueDouble);
            assertEquals(report.indexedSize, report.valueBytes.length);
        }
        assertEquals(2.5, session.send(TmqKciReport.ofFloat(1.5), "+", TmqKciReport.ofInteger(1)).valueDouble);
    }

    @Test
    void datesAndTimes() {
        for (int[] parts : new int[][] {{2024, 366, 86_399_999}, {1, 1, 0}, {1969, 200, 43_200_000}}) {
            TmqKciReport report = sent(TmqKciReport.ofDateTime(parts[0], parts[1], parts[2]));
            assertEquals(TmqKciReport.VALUE_DATE_TIME, report.valueType);
            assertEquals(1857, report.classOop);
            assertEquals(TmqKciReport.KIND_POINTER, report.objType);
            assertArrayEquals(parts, new int[] {report.valueInt1, report.valueInt2, (int) report.valueLong});
            assertTrue(report.namedSize >= 3);
        }
        TestSession.fail(
                error -> TmqKciInterface._setup(session.id, TmqKciReport.ofDateTime(2023, 366, 0), error));
    }

    private static byte[] modifiedUtf8(String text) {
        ByteArrayOutputStream bytes = new ByteArrayOutputStream();
        try {
            new DataOutputStream(bytes).writeUTF(text);
        } catch (IOException impossible) {
            throw new AssertionError(impossible);
        }
        return Arrays.copyOfRange(bytes.toByteArray(), 2, bytes.size());
    }

    @Test
    void stringsTravelAsModifiedUtf8() {
        for (String text : new String[] {"", "plain", "a\0b\0", "\u00FF", "\u20AC uro", "\uD83D\uDE00", "\uD800 alone",
            "long ".repeat(150)}) {
            TmqKciReport report = sent(TmqKciReport.ofString(text));
            byte[] expected = modifiedUtf8(text);
            assertEquals(TmqKciReport.VALUE_STRING, report.valueType);
            assertEquals(1169, report.classOop);
            assertEquals(TmqKciReport.KIND_BYTE, report.objType);
            assertTrue(report.isString);
            assertFalse(report.isDBString);
            assertTrue(report.isCollection);
            assertEquals(0, report.namedSize);
            assertEquals(expected.length, report.indexedSize);
            assertArrayEquals(Arrays.copyOf(expected, Math.min(expected.length, TestSession.PRELOAD_SIZE)),
                    report.valueBytes);
            assertArrayEquals(expected, session.bytes(report));
            assertEquals(text, report.valueString, "what was sent is left alone");
        }
    }

    @Test
    void textsOfErrorsArriveWhole() {
        TmqKciReport process = TmqKciReport.ofNil();
        for (String text : new String[] {"plain", "\u00FF \u20AC", "\uD83D\uDE00"}) {
            TmqKciException error = TestSession.fail(report -> TmqKciInterface._continue(session.id, process, true,
                    null, null, text, text, report));
            assertEquals(text, error.getMessage());
        }
        TmqKciException nul = TestSession.fail(
                report -> TmqKciInterface._continue(session.id, process, true, null, null, "a\0b", "", report));
        assertEquals("a\0b", nul.getMessage());
    }

    @Test
    void sourceMayHoldAnyText() {
        assertEquals(3, session.run("'a\0b' size").valueLong);
        assertEquals(0x20AC, session.run("('\u20AC' at: 1) value").valueLong & 0xFFFF);
        assertEquals(TmqKciReport.VALUE_DB_STRING, session.run("'\uD83D\uDE00'").valueType);
        assertEquals(TmqKciReport.VALUE_STRING, session.run("'\u00FF'").valueType);
    }

    @Test
    void collectionsShowTheirFirstElements() {
        TmqKciReport array = session.run("Array with: 1 with: nil");
        assertEquals(TmqKciReport.VALUE_OOPS, array.valueType);
        assertEquals(TmqKciReport.KIND_POINTER, array.objType);
        assertArrayEquals(new long[] {7, 10}, array.valueLongs);
        assertEquals(2, array.indexedSize);
        assertTrue(array.isCollection);
        assertFalse(array.isString);
        assertEquals(TestSession.PRELOAD_SIZE / 4, session.run("Array new: 100").valueLongs.length);

        TmqKciReport set = session.run("Set new add: 5; yourself");
        assertEquals(TmqKciReport.KIND_UNORDERED, set.objType);
        assertArrayEquals(new long[] {23}, set.valueLongs);
    }

    @Test
    void classesHaveAHistory() {
        TmqKciReport array = session.run("Array new: 1");
        TmqKciReport history = sent(TmqKciReport.ofOop(array.classHistoryOop));
        assertTrue(history.classOop != 0);
        assertTrue(Arrays.stream(history.valueLongs).anyMatch(oop -> oop == array.classOop));
    }

    @Test
    void aValueTheBridgeDoesNotSendLeavesNoObject() {
        TmqKciReport bytes = new TmqKciReport();
        bytes.valueType = TmqKciReport.VALUE_BYTES;
        assertEquals(0, TestSession.succeed(error -> TmqKciInterface._setup(session.id, bytes, error)));
        assertEquals(0, bytes.oop);
    }
}
