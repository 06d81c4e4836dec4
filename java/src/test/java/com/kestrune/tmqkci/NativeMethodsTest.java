package com.kestrune.tmqkci;

import static com.kestrune.tmqkci.TestSession.PRELOAD_SIZE;
import static com.kestrune.tmqkci.TestSession.fail;
import static com.kestrune.tmqkci.TestSession.succeed;
import static org.junit.jupiter.api.Assertions.*;

import java.io.ByteArrayOutputStream;
import java.io.DataOutputStream;
import java.io.IOException;
import java.util.Arrays;
import java.util.List;

import org.junit.jupiter.api.AfterEach;
import org.junit.jupiter.api.Test;

/** The native methods by themselves, over the local store, in a virtual machine that checks them. */
class NativeMethodsTest {
    private final int id = TestSession.login();

    @AfterEach
    void logout() {
        assertEquals(0, succeed(error -> TmqKciInterface._logout(id, error)));
    }

    private TmqKciReport describe(TmqKciReport report) {
        assertEquals(0, succeed(error -> TmqKciInterface._setup(id, report, error)));
        return report;
    }

    private byte[] bytes(TmqKciReport object) {
        byte[] all = new byte[(int) object.indexedSize];
        assertEquals(all.length, succeed(error -> TmqKciInterface._getBytes(id, object, 1, all.length, all, error)));
        return all;
    }

    @Test
    void stringsTravelAsModifiedUtf8() throws IOException {
        for (String text : List.of("", "plain", "a\0b\0", "\u00FF", "\u20AC uro", "\uD83D\uDE00", "\uD800 alone",
                "long ".repeat(150))) {
            ByteArrayOutputStream out = new ByteArrayOutputStream();
            new DataOutputStream(out).writeUTF(text);
            byte[] expected = Arrays.copyOfRange(out.toByteArray(), 2, out.size());
            TmqKciReport report = describe(TmqKciReport.ofString(text));
            assertArrayEquals(new long[] {1169, 1, 7, expected.length}, new long[] {
                report.classOop, report.objType, report.valueType, report.indexedSize});
            assertTrue(report.isString && !report.isDBString && report.isCollection);
            assertArrayEquals(Arrays.copyOf(expected, Math.min(expected.length, PRELOAD_SIZE)), report.valueBytes);
            assertArrayEquals(expected, bytes(report));
            TmqKciException error = fail(each -> TmqKciInterface._continue(id, TmqKciReport.ofNil(), true, null, null,
                    text, text, each));
            assertEquals(text.substring(0, Math.min(text.length(), 400)), error.getMessage());
            assertArrayEquals(expected, bytes(describe(TmqKciReport.ofOop(error.args[2]))));
        }
    }
}
