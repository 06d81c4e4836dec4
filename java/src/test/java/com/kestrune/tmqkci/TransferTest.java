package com.kestrune.tmqkci;

import static com.kestrune.tmqkci.TestSession.BUFFER_SIZE;
import static org.junit.jupiter.api.Assertions.assertArrayEquals;
import static org.junit.jupiter.api.Assertions.assertEquals;

import java.nio.charset.StandardCharsets;
import java.util.stream.Stream;

import org.junit.jupiter.api.AfterEach;
import org.junit.jupiter.api.BeforeEach;
import org.junit.jupiter.api.Test;

/** Reading and writing the contents of objects in bulk. */
class TransferTest {
    private TestSession session;

    @BeforeEach
    void login() {
        session = new TestSession();
    }

    @AfterEach
    void logout() {
        session.close();
    }

    private static TmqKciReport[] reports(int count) {
        return Stream.generate(TmqKciReport::new).limit(count).toArray(TmqKciReport[]::new);
    }

    private static TmqKciReport[] integers(int... values) {
        return java.util.Arrays.stream(values).mapToObj(TmqKciReport::ofInteger).toArray(TmqKciReport[]::new);
    }

    private static long[] values(TmqKciReport[] reports) {
        return Stream.of(reports).mapToLong(report -> report.valueLong).toArray();
    }

    @Test
    void bytesAreReadAndWritten() {
        TmqKciReport string = session.run("'abcdef' copy");
        byte[] middle = new byte[5];
        assertEquals(3, TestSession.succeed(
                error -> TmqKciInterface._getBytes(session.id, string, 2, 3, middle, error)));
        assertEquals("bcd\0\0", new String(middle, StandardCharsets.ISO_8859_1));
        assertEquals(0, TestSession.succeed(
                error -> TmqKciInterface._putBytes(session.id, string, 5, 2, new byte[] {'x', (byte) 0xFF}, error)));
        byte[] all = new byte[6];
        long sameLow32Bits = (1L << 32) + 1;
        TestSession.succeed(error -> TmqKciInterface._getBytes(session.id, string, sameLow32Bits, 6, all, error));
        assertEquals("abcdx\u00FF", new String(all, StandardCharsets.ISO_8859_1));
        assertEquals(0, TestSession.succeed(
                error -> TmqKciInterface._getBytes(session.id, string, 1, 0, new byte[0], error)));
    }

    @Test
    void fewerBytesThanAskedForAreAFailure() {
        TmqKciReport string = session.run("'abc' copy");
        byte[] bytes = new byte[4];
        TestSession.refuse("Number of bytes fetched does not match request",
                error -> TmqKciInterface._getBytes(session.id, string, 1, 4, bytes, error));
        assertEquals("abc\0", new String(bytes, StandardCharsets.ISO_8859_1), "what exists was copied");
    }

    @Test
    void aWholeBufferMoves() {
        TmqKciReport string = session.run("String new: " + BUFFER_SIZE);
        byte[] written = new byte[BUFFER_SIZE];
        new java.util.Random(1).nextBytes(written);
        TestSession.succeed(
                error -> TmqKciInterface._putBytes(session.id, string, 1, BUFFER_SIZE, written, error));
        assertArrayEquals(written, session.bytes(string));
        assertEquals(TestSession.PRELOAD_SIZE, session.run("String new: " + BUFFER_SIZE).valueBytes.length);

        int most = BUFFER_SIZE / 4;
        TmqKciReport array = session.run("Array new: " + (most + 1));
        assertEquals(most, TestSession.succeed(
                error -> TmqKciInterface._getObjs(session.id, array, 1, most, reports(most), error)));
    }

    @Test
    void referencesAreReadAndWritten() {
        TmqKciReport array = session.run("Array new: 4");
        assertEquals(0, TestSession.succeed(
                error -> TmqKciInterface._putObjs(session.id, array, 2, 3, integers(20, 30, 40), error)));
        TmqKciReport[] read = reports(4);
        assertEquals(2, TestSession.succeed(
                error -> TmqKciInterface._getObjs(session.id, array, 3, 4, read, error)), "up to the object's end");
        assertArrayEquals(new long[] {30, 40, 0, 0}, values(read));
        assertEquals(TmqKciReport.KIND_NONE, read[2].objType, "the rest is left alone");

        TmqKciReport[] mixed = {TmqKciReport.ofString("text"), TmqKciReport.ofNil()};
        TestSession.succeed(error -> TmqKciInterface._putObjs(session.id, array, 1, 2, mixed, error));
        TmqKciReport[] two = reports(2);
        TestSession.succeed(error -> TmqKciInterface._getObjs(session.id, array, 1, 2, two, error));
        assertEquals(mixed[0].oop, two[0].oop);
        assertEquals(TmqKciReport.KIND_NONE, two[0].objType, "of an ordinary object only the identifier is told");
        assertEquals(TestSession.NIL, two[1].oop);
        assertEquals("text", session.text(session.send(array, "at:", TmqKciReport.ofInteger(1))));
    }

    @Test
    void namedVariablesAreReadAndWritten() {
        TmqKciReport dateTime = TmqKciReport.ofDateTime(2024, 60, 1234);
        TestSession.succeed(error -> TmqKciInterface._setup(session.id, dateTime, error));
        TmqKciReport[] read = reports(3);
        assertEquals(3, TestSession.succeed(
                error -> TmqKciInterface._getNamedObjs(session.id, dateTime, 1, 3, read, error)));
        assertArrayEquals(new long[] {2024, 60, 1234}, values(read));
        TestSession.succeed(
                error -> TmqKciInterface._putNamedObjs(session.id, dateTime, 2, 2, integers(61, 99), error));
        TestSession.succeed(error -> TmqKciInterface._setup(session.id, dateTime, error));
        assertEquals(61, dateTime.valueInt2);
        assertEquals(99, dateTime.valueLong);
    }

    /** One of the six methods, as far as its arguments are checked alike. */
    private interface Method {
        int call(TmqKciReport object, long start, int count, Object array, TmqKciException error);
    }

    private void checksItsArguments(String name, String count, String array, int limit, Object good, Object tooShort,
            String aboveLimit, Method method) {
        TmqKciReport nil = TmqKciReport.ofNil();
        String below = name + "(): startIndex < 1";
        TestSession.refuse(below, error -> method.call(nil, 0, 1, good, error));
        TestSession.refuse(below, error -> method.call(null, Long.MIN_VALUE, limit + 1, good, error));
        TestSession.refuse(name + aboveLimit, error -> method.call(null, 1, limit + 1, good, error));
        TestSession.refuse(name + aboveLimit, error -> method.call(null, 1, Integer.MAX_VALUE, null, error));
        TestSession.refuse(name + "(): " + count + " < 0", error -> method.call(null, 1, -1, good, error));
        String shorter = name + "(): " + array + " is NULL or shorter than " + count;
        TestSession.refuse(shorter, error -> method.call(null, 1, 2, tooShort, error));
        TestSession.refuse(shorter, error -> method.call(null, 1, 2, null, error));
        TestSession.refuse("getOop(): NULL object", error -> method.call(null, 1, 1, good, error));
        TestSession.fail(error -> method.call(TmqKciReport.ofOop(0xFFFF_FFF0L), 1, 1, good, error));
        TestSession.fail(error -> method.call(nil, 1, 1, good, error));
    }

    @Test
    void argumentsAreChecked() {
        int id = session.id;
        String exceeds = " requested exceeds buffer size";
        byte[] bytes = new byte[2];
        byte[] oneByte = new byte[1];
        checksItsArguments("getBytes", "numBytes", "bytes", BUFFER_SIZE, bytes, oneByte, "(): numBytes" + exceeds,
                (object, start, n, a, error) -> TmqKciInterface._getBytes(id, object, start, n, (byte[]) a, error));
        checksItsArguments("putBytes", "numBytes", "bytes", BUFFER_SIZE, bytes, oneByte, "(): numBytes" + exceeds,
                (object, start, n, a, error) -> TmqKciInterface._putBytes(id, object, start, n, (byte[]) a, error));
        TmqKciReport[] objs = integers(1, 2);
        TmqKciReport[] one = integers(1);
        int limit = BUFFER_SIZE / 4;
        checksItsArguments("getObjs", "numObjs", "jobjs", limit, objs, one, "(): numObjs" + exceeds,
                (o, start, n, a, error) -> TmqKciInterface._getObjs(id, o, start, n, (TmqKciReport[]) a, error));
        checksItsArguments("getNamedObjs", "numObjs", "jobjs", limit, objs, one, "(): buffer size exceeded",
                (o, start, n, a, error) -> TmqKciInterface._getNamedObjs(id, o, start, n, (TmqKciReport[]) a, error));
        checksItsArguments("putObjs", "numObjs", "jobjs", limit, objs, one, "(): numObjs" + exceeds,
                (o, start, n, a, error) -> TmqKciInterface._putObjs(id, o, start, n, (TmqKciReport[]) a, error));
        checksItsArguments("putNamedObjs", "numObjs", "jobjs", limit, objs, one, "(): numObjs" + exceeds,
                (o, start, n, a, error) -> TmqKciInterface._putNamedObjs(id, o, start, n, (TmqKciReport[]) a, error));
    }

    @Test
    void nullElementsAreRefused() {
        TmqKciReport array = session.run("Array with: 1 with: 2");
        TmqKciReport[] holed = {TmqKciReport.ofInteger(7), null};
        TestSession.refuse("Problem with GetObjectArrayElement in getObjs()",
                error -> TmqKciInterface._getObjs(session.id, array, 1, 2, holed.clone(), error));
        TestSession.refuse("Problem with GetObjectArrayElement in pubObjs()",
                error -> TmqKciInterface._putObjs(session.id, array, 1, 2, holed, error));
        TestSession.refuse("Problem with GetObjectArrayElement in putNamedObjs()",
                error -> TmqKciInterface._putNamedObjs(session.id, array, 1, 2, holed, error));
        TmqKciReport dateTime = TmqKciReport.ofDateTime(2024, 60, 1234);
        TestSession.succeed(error -> TmqKciInterface._setup(session.id, dateTime, error));
        TestSession.refuse("Problem with GetObjectArrayElement in getNamedObjs()",
                error -> TmqKciInterface._getNamedObjs(session.id, dateTime, 1, 2, holed.clone(), error));
        assertEquals(1, session.send(array, "at:", TmqKciReport.ofInteger(1)).valueLong, "nothing was stored");
    }
}
