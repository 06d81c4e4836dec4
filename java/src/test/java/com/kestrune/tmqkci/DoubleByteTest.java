package com.kestrune.tmqkci;

import static org.junit.jupiter.api.Assertions.assertArrayEquals;
import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertTrue;

import java.nio.charset.StandardCharsets;

import org.junit.jupiter.api.AfterEach;
import org.junit.jupiter.api.BeforeEach;
import org.junit.jupiter.api.Test;

/** Double-byte strings sent to the server: not in a virtual machine that checks the native methods. */
class DoubleByteTest {
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
    void unitsArriveUnchanged() {
        for (String text : new String[] {"", "plain", "a\0b", "\u00FF\u20AC", "\uD83D\uDE00", "\uDC00\uD800"}) {
            TmqKciReport report = TmqKciReport.ofDoubleByteString(text);
            assertEquals(0, TestSession.succeed(error -> TmqKciInterface._setup(session.id, report, error)));
            assertEquals(1553, report.classOop);
            assertEquals(TmqKciReport.VALUE_DB_STRING, report.valueType);
            assertTrue(report.isString && report.isDBString);
            byte[] expected = new byte[text.length() * 2];
            for (int i = 0; i < text.length(); ++i) {
                expected[2 * i] = (byte) text.charAt(i);
                expected[2 * i + 1] = (byte) (text.charAt(i) >> 8);
            }
            assertArrayEquals(expected, session.bytes(report));
        }
    }

    @Test
    void doubleByteStringsAreArgumentsReceiversAndSource() {
        assertEquals(3, session.send(TmqKciReport.ofDoubleByteString("\u0416\u0417\u0418"), "size").valueLong);
        TmqKciReport joined = session.send(TmqKciReport.ofString("a"), ",", TmqKciReport.ofDoubleByteString("\u0416"));
        assertEquals("a\u0416", new String(session.bytes(joined), StandardCharsets.UTF_16LE));
        TestSession.succeed(error -> TmqKciInterface._executeObj(session.id,
                TmqKciReport.ofDoubleByteString("'\u0416' size + 1"), error));
        assertEquals(2, session.end().valueLong);
    }

    @Test
    void oneCallSendsManyStrings() {
        TmqKciReport array = session.run("Array new: 90");
        TmqKciReport[] texts = new TmqKciReport[90];
        for (int i = 0; i < texts.length; ++i) {
            texts[i] = i % 2 == 0 ? TmqKciReport.ofString("s" + i) : TmqKciReport.ofDoubleByteString("d" + i);
        }
        TestSession.succeed(error -> TmqKciInterface._putObjs(session.id, array, 1, texts.length, texts, error));
        assertEquals("s88", session.text(session.send(array, "at:", TmqKciReport.ofInteger(89))));
        TmqKciReport last = session.send(array, "at:", TmqKciReport.ofInteger(90));
        assertEquals("d89", new String(session.bytes(last), StandardCharsets.UTF_16LE));
        assertEquals(TmqKciInterface.NOT_LENT, TmqKciInterface._setup(session.id,
                TmqKciReport.ofDoubleByteString(null), new TmqKciException()));
    }

    @Test
    void aCallHoldsAHundredStrings() {
        TmqKciReport array = session.run("Array new: 200");
        TmqKciReport[] texts = new TmqKciReport[200];
        java.util.Arrays.setAll(texts, i -> TmqKciReport.ofString("s"));
        TestSession.succeed(error -> TmqKciInterface._putObjs(session.id, array, 1, 101, texts, error));
        assertEquals(TmqKciInterface.NOT_LENT,
                TmqKciInterface._putObjs(session.id, array, 1, 102, texts, new TmqKciException()));
        assertEquals(7, session.run("3 + 4").valueLong, "the next call begins with none");
    }
}
