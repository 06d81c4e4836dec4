package com.kestrune.tmqkci;

import static com.kestrune.tmqkci.TestSession.PRELOAD_SIZE;
import static com.kestrune.tmqkci.TestSession.fail;
import static com.kestrune.tmqkci.TestSession.refuse;
import static com.kestrune.tmqkci.TestSession.succeed;
import static org.junit.jupiter.api.Assertions.*;

import java.io.ByteArrayOutputStream;
import java.io.DataOutputStream;
import java.io.IOException;
import java.util.Arrays;
import java.util.List;
import java.util.stream.LongStream;
import java.util.stream.Stream;

import org.junit.jupiter.api.AfterEach;
import org.junit.jupiter.api.Test;

/** The native methods by themselves, over the local store, in a virtual machine that checks them. */
class NativeMethodsTest {
    private final TestSession session = new TestSession();
    private final int id = session.id;

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
    void valuesBecomeWhatTheServerCallsThem() {
        record Row(TmqKciReport value, long oop, int valueType, long valueLong) {
        }
        for (Row row : List.of(new Row(TmqKciReport.ofNil(), 10, 0, 0), new Row(TmqKciReport.ofBoolean(true), 38, 1, 1),
                new Row(TmqKciReport.ofCharacter((char) 200), 6414, 2, -56),
                new Row(TmqKciReport.ofInteger(0), 3, 3, 0),
                new Row(TmqKciReport.ofInteger(-(1 << 29)), 0x80000003L, 3, -(1 << 29)))) {
            TmqKciReport report = describe(row.value);
            assertEquals(row, new Row(row.value, report.oop, report.valueType, report.valueLong));
        }
        TmqKciReport time = describe(TmqKciReport.ofDateTime(2024, 366, 86_399_999));
        assertArrayEquals(new long[] {1857, 0, 9, 2024, 366, 86_399_999}, new long[] {
            time.classOop, time.objType, time.valueType, time.valueInt1, time.valueInt2, time.valueLong});
        assertEquals(-1e300, describe(TmqKciReport.ofFloat(-1e300)).valueDouble);
        fail(error -> TmqKciInterface._setup(id, TmqKciReport.ofDateTime(2023, 366, 0), error));

        TmqKciReport array = session.run("Array with: 1 with: nil");
        assertArrayEquals(new long[] {7, 10}, array.valueLongs);
        assertEquals(PRELOAD_SIZE / 4, session.run("Array new: 100").valueLongs.length);
        assertEquals(TmqKciReport.KIND_UNORDERED, session.run("Set new add: 5; yourself").objType);
        assertTrue(LongStream.of(describe(TmqKciReport.ofOop(array.classHistoryOop)).valueLongs)
                .anyMatch(oop -> oop == array.classOop));
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
        assertEquals(3, session.run("'a\0b' size").valueLong);
    }

    @Test
    void aCallIsPolledAndItsErrorContinued() {
        TmqKciReport source = TmqKciReport.ofString(
                "| n | n := 0. 1 to: 300000 do: [:i | n := n + 1]. (nil foo: 3) + n");
        succeed(error -> TmqKciInterface._executeObj(id, source, error));
        TmqKciReport result = new TmqKciReport();
        assertEquals(TmqKciInterface.NOT_READY, succeed(error -> TmqKciInterface._nbEnd(id, result, error)));
        assertEquals(TmqKciReport.KIND_NONE, result.objType, "not touched before the end");
        TmqKciException error = fail(report -> session.end(result, report));
        assertArrayEquals(new long[] {2010, 3613, 3, 10}, new long[] {error.number, error.category, error.argCount,
            error.args[0]});
        assertEquals("foo:", new String(bytes(describe(TmqKciReport.ofOop(error.args[1])))));
        succeed(report -> TmqKciInterface._continue(id, TmqKciReport.ofOop(error.context), false,
                TmqKciReport.ofInteger(-299_958), result, null, null, report));
        assertEquals(42, result.valueLong);
    }

    private long[] changed(int room) {
        long[] oops = new long[101];
        int count = succeed(error -> TmqKciInterface._changedOops(id, oops, room, error));
        assertEquals(0, oops[count], "nothing is written beyond the count");
        return Arrays.copyOf(oops, count);
    }

    @Test
    void changedObjectsAreToldOnceUntilTheyAreGivenUp() {
        TmqKciReport[] all = Stream.of("one", "two", "three").map(name -> session.run(name + " := Array new: 1"))
                .toArray(TmqKciReport[]::new);
        String change = "one at: 1 put: 5. two at: 1 put: 5. three at: 1 put: 5. nil";
        changed(100);
        session.run(change);
        long[] first = changed(1);
        assertEquals(1, first.length);
        assertArrayEquals(Stream.of(all).mapToLong(each -> each.oop).sorted().toArray(),
                LongStream.concat(LongStream.of(first), LongStream.of(changed(100))).sorted().toArray());
        assertEquals(0, changed(100).length);
        succeed(error -> TmqKciInterface._removeFromExportSet(id, all, 1, error));
        long highBitsDoNotCount = all[1].oop | 7L << 32;
        succeed(error -> TmqKciInterface._releaseOops(id, new long[] {highBitsDoNotCount}, 1, error));
        session.run(change);
        assertArrayEquals(new long[] {all[2].oop}, changed(100), "objects given up are no longer tracked");
    }

    @Test
    void wrongArgumentsAreRefused() {
        TmqKciReport nil = TmqKciReport.ofNil();
        TmqKciReport[] holed = {TmqKciReport.ofInteger(7), null};
        refuse("getOop(): NULL object", error -> TmqKciInterface._perform(id, null, "size", null, 0, error));
        refuse("Logic error:  Bad object type",
                error -> TmqKciInterface._setup(id, TmqKciReport.ofOop(18), error));
        refuse("setup(): NULL result argument", error -> TmqKciInterface._setup(id, null, error));
        refuse("nbEnd(): NULL result argument", error -> TmqKciInterface._nbEnd(id, null, error));
        refuse("continue(): NULL result argument",
                error -> TmqKciInterface._continue(id, nil, false, null, null, null, null, error));
        refuse("perform(): NULL argument array", error -> TmqKciInterface._perform(id, nil, "a:", null, 1, error));
        refuse("perform(): jArgs is shorter than numArgs",
                error -> TmqKciInterface._perform(id, nil, "a:b:c:", holed, 3, error));
        refuse("perform(): numArgs < 0", error -> TmqKciInterface._perform(id, nil, "a:", holed, -1, error));
        refuse("Problem with GetObjectArrayElement in perform()",
                error -> TmqKciInterface._perform(id, nil, "a:b:", holed, 2, error));
        refuse("getBytes(): bytes is NULL or shorter than numBytes",
                error -> TmqKciInterface._getBytes(id, nil, 1, 2, new byte[1], error));
        refuse("getNamedObjs(): jobjs is NULL or shorter than numObjs",
                error -> TmqKciInterface._getNamedObjs(id, nil, 1, 3, holed, error));
        refuse("Problem with GetObjectArrayElement in pubObjs()",
                error -> TmqKciInterface._putObjs(id, nil, 1, 2, holed, error));
        refuse("releaseOops(): numOops < 0", error -> TmqKciInterface._releaseOops(id, new long[1], -1, error));
        assertEquals(TmqKciInterface.NOT_LENT, TmqKciInterface._executeStr(id, null, new TmqKciException()));
        assertEquals(7, session.run("3 + 4").valueLong, "the session goes on");
    }
}
