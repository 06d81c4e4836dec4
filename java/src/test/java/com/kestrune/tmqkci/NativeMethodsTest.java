package com.kestrune.tmqkci;

import static com.kestrune.tmqkci.TestSession.BUFFER_SIZE;
import static com.kestrune.tmqkci.TestSession.PRELOAD_SIZE;
import static com.kestrune.tmqkci.TestSession.fail;
import static com.kestrune.tmqkci.TestSession.succeed;
import static org.junit.jupiter.api.Assertions.assertArrayEquals;
import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertNotEquals;
import static org.junit.jupiter.api.Assertions.assertTrue;

import java.io.ByteArrayOutputStream;
import java.io.DataOutputStream;
import java.io.IOException;
import java.nio.charset.StandardCharsets;
import java.util.Arrays;
import java.util.List;
import java.util.Map;
import java.util.function.ToIntFunction;
import java.util.stream.IntStream;
import java.util.stream.LongStream;
import java.util.stream.Stream;

import org.junit.jupiter.api.AfterEach;
import org.junit.jupiter.api.Test;

/** The native methods by themselves, over the local store, in a virtual machine that checks them. */
class NativeMethodsTest {
    private static final int MOST = BUFFER_SIZE / 4;

    private final TestSession session = new TestSession();
    private final int id = session.id;

    @AfterEach
    void logout() {
        session.close();
    }

    private static TmqKciReport integer(int value) {
        return TmqKciReport.ofInteger(value);
    }

    private static TmqKciReport[] integers(int... values) {
        return IntStream.of(values).mapToObj(TmqKciReport::ofInteger).toArray(TmqKciReport[]::new);
    }

    private static TmqKciReport[] empty(int count) {
        return Stream.generate(TmqKciReport::new).limit(count).toArray(TmqKciReport[]::new);
    }

    private byte[] bytes(TmqKciReport object) {
        byte[] all = new byte[(int) object.indexedSize];
        assertEquals(all.length, succeed(error -> TmqKciInterface._getBytes(id, object, 1, all.length, all, error)));
        return all;
    }

    private String text(TmqKciReport string) {
        return new String(bytes(string), StandardCharsets.UTF_8);
    }

    private static byte[] modifiedUtf8(String text) throws IOException {
        ByteArrayOutputStream bytes = new ByteArrayOutputStream();
        new DataOutputStream(bytes).writeUTF(text);
        return Arrays.copyOfRange(bytes.toByteArray(), 2, bytes.size());
    }

    @Test
    void valuesBecomeWhatTheServerCallsThem() {
        record Row(TmqKciReport value, long oop, int valueType, long valueLong) {
        }
        for (Row row : List.of(new Row(TmqKciReport.ofNil(), 10, 0, 0), new Row(TmqKciReport.ofBoolean(true), 38, 1, 1),
                new Row(TmqKciReport.ofBoolean(false), 6, 1, 0), new Row(TmqKciReport.ofCharacter('A'), 2094, 2, 'A'),
                new Row(TmqKciReport.ofCharacter((char) 200), 6414, 2, -56), new Row(integer(0), 3, 3, 0),
                new Row(integer((1 << 29) - 1), 0x7FFFFFFFL, 3, (1 << 29) - 1),
                new Row(integer(-(1 << 29)), 0x80000003L, 3, -(1 << 29)), new Row(integer(-1), 0xFFFFFFFFL, 3, -1))) {
            TmqKciReport report = session.describe(row.value);
            assertEquals(row, new Row(row.value, report.oop, report.valueType, report.valueLong));
            assertEquals(TmqKciReport.KIND_SPECIAL, report.objType);
        }
        TmqKciReport real = session.describe(TmqKciReport.ofFloat(-1e300));
        assertArrayEquals(new long[] {1521, 1, 4}, new long[] {real.classOop, real.objType, real.valueType});
        assertEquals(-1e300, real.valueDouble);
        TmqKciReport time = session.describe(TmqKciReport.ofDateTime(2024, 366, 86_399_999));
        assertArrayEquals(new long[] {1857, 0, 9, 2024, 366, 86_399_999}, new long[] {
            time.classOop, time.objType, time.valueType, time.valueInt1, time.valueInt2, time.valueLong});
        assertEquals(TmqKciReport.VALUE_NONE, session.describe(TmqKciReport.ofOop(1)).valueType);
        TmqKciReport unsendable = new TmqKciReport();
        unsendable.valueType = TmqKciReport.VALUE_BYTES;
        assertEquals(0, session.describe(unsendable).oop);
        fail(error -> TmqKciInterface._setup(id, TmqKciReport.ofDateTime(2023, 366, 0), error));
        assertEquals(3613, fail(error -> TmqKciInterface._setup(id, TmqKciReport.ofOop(0xFFFFFFF0L), error)).category);
    }

    @Test
    void stringsTravelAsModifiedUtf8() throws IOException {
        for (String text : List.of("", "plain", "a\0b\0", "\u00FF", "\u20AC uro", "\uD83D\uDE00", "\uD800 alone",
                "long ".repeat(150))) {
            TmqKciReport report = session.describe(TmqKciReport.ofString(text));
            byte[] expected = modifiedUtf8(text);
            assertArrayEquals(new long[] {1169, 1, 7, 0, expected.length}, new long[] {
                report.classOop, report.objType, report.valueType, report.namedSize, report.indexedSize});
            assertTrue(report.isString && !report.isDBString && report.isCollection);
            assertArrayEquals(Arrays.copyOf(expected, Math.min(expected.length, PRELOAD_SIZE)), report.valueBytes);
            assertArrayEquals(expected, bytes(report));
            assertEquals(text, report.valueString, "what was sent is left alone");
        }
        assertEquals(3, session.run("'a\0b' size").valueLong);
        assertEquals(TmqKciReport.VALUE_DB_STRING, session.run("'\uD83D\uDE00'").valueType);
        assertEquals(TmqKciReport.VALUE_STRING, session.run("'\u00FF'").valueType);
    }

    @Test
    void collectionsShowTheirFirstElements() {
        TmqKciReport array = session.run("Array with: 1 with: nil");
        assertArrayEquals(new long[] {0, 6, 2}, new long[] {array.objType, array.valueType, array.indexedSize});
        assertArrayEquals(new long[] {7, 10}, array.valueLongs);
        assertTrue(array.isCollection && !array.isString);
        assertEquals(PRELOAD_SIZE / 4, session.run("Array new: 100").valueLongs.length);
        TmqKciReport set = session.run("Set new add: 5; yourself");
        assertEquals(TmqKciReport.KIND_UNORDERED, set.objType);
        assertArrayEquals(new long[] {23}, set.valueLongs);
        TmqKciReport history = session.describe(TmqKciReport.ofOop(array.classHistoryOop));
        assertTrue(LongStream.of(history.valueLongs).anyMatch(oop -> oop == array.classOop));
    }

    @Test
    void sourceTextAndMessagesRun() {
        TmqKciReport source = TmqKciReport.ofString("3 + 4");
        for (TmqKciReport each : new TmqKciReport[] {source, TmqKciReport.ofOop(session.describe(source).oop)}) {
            succeed(error -> TmqKciInterface._executeObj(id, each, error));
            assertEquals(31, session.end().oop);
        }
        TmqKciReport array = TmqKciReport.ofOop(session.run("Array new: 3").oop);
        assertEquals(9, session.send(array, "at:put:", integers(2, 9)).valueLong);
        assertEquals(9, session.send(array, "at:", integer(2)).valueLong);
        succeed(error -> TmqKciInterface._perform(id, array, "size", null, 0, error));
        assertEquals(3, session.end().valueLong);
        String twenty = "a:".repeat(20);
        succeed(error -> TmqKciInterface._perform(id, TmqKciReport.ofNil(), twenty, integers(new int[20]), 20, error));
        assertEquals(2010, fail(error -> session.end(new TmqKciReport(), error)).number);

        TmqKciReport arrayClass = TmqKciReport.ofOop(session.run("Array").oop);
        assertEquals(1, succeed(error -> TmqKciInterface._isKindOf(id, array, arrayClass, error)));
        assertEquals(0, succeed(error -> TmqKciInterface._isKindOf(id, integer(1), arrayClass, error)));
        fail(error -> TmqKciInterface._isKindOf(id, array, integer(1), error));
        assertEquals(0, succeed(error -> TmqKciInterface._checkErrors(id, error)));
    }

    @Test
    void callsOfTwoSessionsRunAlternately() {
        try (TestSession other = new TestSession()) {
            session.run("shared := 1");
            other.run("shared := 2");
            String source = "| sum | sum := 0. 1 to: 300000 do: [:each | sum := sum + each \\\\ 7]. shared + 10";
            succeed(error -> TmqKciInterface._executeStr(id, source, error));
            succeed(error -> TmqKciInterface._executeStr(other.id, source, error));
            TmqKciReport result = new TmqKciReport();
            assertEquals(TmqKciInterface.NOT_READY, succeed(error -> TmqKciInterface._nbEnd(id, result, error)));
            assertEquals(TmqKciReport.KIND_NONE, result.objType, "not touched before the end");
            assertEquals(12, other.end().valueLong);
            assertEquals(11, session.end().valueLong);
        }
    }

    @Test
    void errorsCarryTheirArgumentsAndTheSuspendedProcess() {
        succeed(error -> TmqKciInterface._executeStr(id, "(true fizz: 3 buzz: 5) + 1", error));
        TmqKciException error = fail(report -> session.end(new TmqKciReport(), report));
        assertArrayEquals(new long[] {2010, 3613, 3, 38}, new long[] {error.number, error.category, error.argCount,
            error.args[0]});
        assertEquals("fizz:buzz:", text(session.describe(TmqKciReport.ofOop(error.args[1]))));
        assertArrayEquals(new long[] {15, 23}, session.describe(TmqKciReport.ofOop(error.args[2])).valueLongs);
        assertNotEquals(Values.NIL, error.context);

        TmqKciReport process = TmqKciReport.ofOop(error.context);
        String tooLong = "x".repeat(399) + "\u20AC" + "y".repeat(100);
        TmqKciException mine = fail(report -> TmqKciInterface._continue(id, process, true, null, null, tooLong,
                "a\0b \uD83D\uDE00", report));
        assertEquals("x".repeat(399), mine.message, "cut between characters");
        assertArrayEquals(new long[] {TmqKciException.ERROR_CONTINUE, 10, 2318}, new long[] {mine.number, mine.category,
            mine.args[0]});
        assertEquals(tooLong, text(session.describe(TmqKciReport.ofOop(mine.args[1]))));
        assertEquals("a\0b \uD83D\uDE00", fail(report -> TmqKciInterface._continue(id, process, true, null, null,
                "a\0b \uD83D\uDE00", "", report)).message);
        TmqKciReport result = new TmqKciReport();
        succeed(report -> TmqKciInterface._continue(id, process, false, integer(41), result, null, null, report));
        assertEquals(42, result.valueLong);
        fail(report -> TmqKciInterface._continue(id, process, false, integer(1), result, null, null, report));
    }

    @Test
    void contentsMove() {
        TmqKciReport string = session.run("'abcdef' copy");
        byte[] seven = new byte[7];
        assertEquals(3, succeed(error -> TmqKciInterface._getBytes(id, string, 2, 3, seven, error)));
        assertEquals("bcd\0\0\0\0", new String(seven, StandardCharsets.ISO_8859_1));
        succeed(error -> TmqKciInterface._putBytes(id, string, (1L << 32) + 5, 2, new byte[] {'x', -1}, error));
        TestSession.refuse("Number of bytes fetched does not match request",
                error -> TmqKciInterface._getBytes(id, string, 1, 7, seven, error));
        assertEquals("abcdx\u00FF\0", new String(seven, StandardCharsets.ISO_8859_1), "what exists was copied");
        TmqKciReport large = session.run("String new: " + BUFFER_SIZE);
        byte[] random = new byte[BUFFER_SIZE];
        new java.util.Random(1).nextBytes(random);
        succeed(error -> TmqKciInterface._putBytes(id, large, 1, BUFFER_SIZE, random, error));
        assertArrayEquals(random, bytes(large));

        TmqKciReport array = session.run("Array new: 4");
        TmqKciReport[] mixed = {integer(20), integer(30), TmqKciReport.ofString("text")};
        succeed(error -> TmqKciInterface._putObjs(id, array, 2, 3, mixed, error));
        TmqKciReport[] read = empty(4);
        assertEquals(2, succeed(error -> TmqKciInterface._getObjs(id, array, 3, 4, read, error)), "up to the end");
        assertArrayEquals(new long[] {30, 0}, new long[] {read[0].valueLong, read[2].oop});
        assertEquals(mixed[2].oop, read[1].oop);
        assertEquals(TmqKciReport.KIND_NONE, read[1].objType, "of an ordinary object only the identifier is told");
        TmqKciReport wide = session.run("Array new: " + (MOST + 1));
        assertEquals(MOST, succeed(error -> TmqKciInterface._getObjs(id, wide, 1, MOST, empty(MOST), error)));

        TmqKciReport time = session.describe(TmqKciReport.ofDateTime(2024, 60, 1234));
        succeed(error -> TmqKciInterface._putNamedObjs(id, time, 2, 2, integers(61, 99), error));
        assertEquals(3, succeed(error -> TmqKciInterface._getNamedObjs(id, time, 1, 3, read, error)));
        assertArrayEquals(new long[] {2024, 61, 99}, Stream.of(read).limit(3).mapToLong(r -> r.valueLong).toArray());
    }

    private long[] changed(int room) {
        long[] oops = new long[MOST];
        int count = succeed(error -> TmqKciInterface._changedOops(id, oops, room, error));
        assertEquals(0, oops[count], "nothing is written beyond the count");
        return Arrays.copyOf(oops, count);
    }

    @Test
    void changedObjectsAreToldOnceUntilTheyAreGivenUp() {
        TmqKciReport[] all = Stream.of("one", "two", "three").map(name -> session.run(name + " := Array new: 1"))
                .toArray(TmqKciReport[]::new);
        String change = "one at: 1 put: 5. two at: 1 put: 5. three at: 1 put: 5. nil";
        changed(MOST - 1);
        session.run(change);
        long[] first = changed(1);
        assertArrayEquals(Stream.of(all).mapToLong(each -> each.oop).sorted().toArray(),
                LongStream.concat(LongStream.of(first), LongStream.of(changed(MOST - 1))).sorted().toArray());
        assertEquals(1, first.length);
        assertEquals(0, changed(MOST - 1).length);
        succeed(error -> TmqKciInterface._removeFromExportSet(id, all, 1, error));
        long highBitsDoNotCount = all[1].oop | 7L << 32;
        succeed(error -> TmqKciInterface._releaseOops(id, new long[] {highBitsDoNotCount}, 1, error));
        session.run(change);
        assertArrayEquals(new long[] {all[2].oop}, changed(MOST - 1), "objects given up are no longer tracked");
    }

    @Test
    void wrongArgumentsAreRefused() {
        TmqKciReport nil = TmqKciReport.ofNil();
        TmqKciReport array = session.run("Array with: 1 with: 2");
        TmqKciReport[] holed = {integer(7), null};
        TmqKciReport result = new TmqKciReport();
        Map<String, List<ToIntFunction<TmqKciException>>> refusals = Map.ofEntries(
                Map.entry("getOop(): NULL object", List.of(error -> TmqKciInterface._executeObj(id, null, error),
                        error -> TmqKciInterface._perform(id, null, "size", null, 0, error),
                        error -> TmqKciInterface._isKindOf(id, nil, null, error),
                        error -> TmqKciInterface._continue(id, null, false, null, result, null, null, error),
                        error -> TmqKciInterface._getBytes(id, null, 1, 1, new byte[1], error),
                        error -> TmqKciInterface._removeFromExportSet(id, new TmqKciReport[1], 1, error))),
                Map.entry("Logic error:  Bad object type",
                        List.of(error -> TmqKciInterface._setup(id, TmqKciReport.ofOop(18), error))),
                Map.entry("setup(): NULL result argument",
                        List.of(error -> TmqKciInterface._setup(id, null, error))),
                Map.entry("nbEnd(): NULL result argument",
                        List.of(error -> TmqKciInterface._nbEnd(id, null, error))),
                Map.entry("continue(): NULL result argument",
                        List.of(error -> TmqKciInterface._continue(id, nil, false, null, null, null, null, error))),
                Map.entry("perform(): numArgs exceeds 20",
                        List.of(error -> TmqKciInterface._perform(id, nil, "a", integers(new int[21]), 21, error))),
                Map.entry("perform(): numArgs < 0",
                        List.of(error -> TmqKciInterface._perform(id, nil, "a", holed, -1, error))),
                Map.entry("perform(): NULL argument array",
                        List.of(error -> TmqKciInterface._perform(id, nil, "a:", null, 1, error))),
                Map.entry("Problem with GetObjectArrayElement in perform()",
                        List.of(error -> TmqKciInterface._perform(id, nil, "a:b:", integers(1), 2, error),
                                error -> TmqKciInterface._perform(id, nil, "a:b:", holed, 2, error))),
                Map.entry("getBytes(): bytes is NULL or shorter than numBytes",
                        List.of(error -> TmqKciInterface._getBytes(id, nil, 1, 2, new byte[1], error))),
                Map.entry("putBytes(): numBytes < 0",
                        List.of(error -> TmqKciInterface._putBytes(id, nil, 1, -1, new byte[1], error))),
                Map.entry("getNamedObjs(): jobjs is NULL or shorter than numObjs",
                        List.of(error -> TmqKciInterface._getNamedObjs(id, nil, 1, 3, holed, error))),
                Map.entry("putNamedObjs(): numObjs < 0",
                        List.of(error -> TmqKciInterface._putNamedObjs(id, nil, 1, -1, holed, error))),
                Map.entry("Problem with GetObjectArrayElement in getObjs()",
                        List.of(error -> TmqKciInterface._getObjs(id, array, 1, 2, holed.clone(), error))),
                Map.entry("Problem with GetObjectArrayElement in pubObjs()",
                        List.of(error -> TmqKciInterface._putObjs(id, array, 1, 2, holed, error))),
                Map.entry("removeFromExportSet(): jobjs is NULL or shorter than numObjs",
                        List.of(error -> TmqKciInterface._removeFromExportSet(id, holed, 3, error))),
                Map.entry("releaseOops(): numOops < 0",
                        List.of(error -> TmqKciInterface._releaseOops(id, new long[1], -1, error))),
                Map.entry("changedOops(): joops is NULL or shorter than numOops",
                        List.of(error -> TmqKciInterface._changedOops(id, null, 1, error))));
        refusals.forEach((text, calls) -> calls.forEach(call -> TestSession.refuse(text, call)));
        TmqKciException unused = new TmqKciException();
        for (int status : new int[] {TmqKciInterface._executeStr(id, null, unused),
            TmqKciInterface._executeObj(id, TmqKciReport.ofString(null), unused),
            TmqKciInterface._perform(id, nil, null, null, 0, unused),
            TmqKciInterface._continue(id, nil, true, null, null, "message", null, unused)}) {
            assertEquals(TmqKciInterface.NOT_LENT, status);
        }
        for (String wrong : List.of("s3cret", "", "guest\0")) {
            TmqKciException error = fail(report -> TmqKciInterface._login("local", null, "guest", wrong, null, null,
                    report));
            assertEquals(4051, error.number);
            assertTrue(!error.message.contains("s3cret"), "a password is not repeated");
        }
        assertEquals(7, session.run("3 + 4").valueLong, "the session goes on");
    }
}
