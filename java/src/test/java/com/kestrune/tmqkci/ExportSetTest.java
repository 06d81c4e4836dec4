package com.kestrune.tmqkci;

import static org.junit.jupiter.api.Assertions.assertArrayEquals;
import static org.junit.jupiter.api.Assertions.assertEquals;

import java.util.Arrays;

import org.junit.jupiter.api.AfterEach;
import org.junit.jupiter.api.BeforeEach;
import org.junit.jupiter.api.Test;

/** Learning which objects changed, and giving objects up. */
class ExportSetTest {
    private static final int MOST = TestSession.BUFFER_SIZE / 4;

    private TestSession session;

    @BeforeEach
    void login() {
        session = new TestSession();
    }

    @AfterEach
    void logout() {
        session.close();
    }

    private long[] changed(int room) {
        long[] oops = new long[room];
        int count = TestSession.succeed(
                error -> TmqKciInterface._changedOops(session.id, oops, room, error));
        for (int i = count; i < room; ++i) {
            assertEquals(0, oops[i], "nothing is written beyond the count");
        }
        return Arrays.copyOf(oops, count);
    }

    @Test
    void changedObjectsAreToldOnce() {
        TmqKciReport one = session.run("one := Array new: 1");
        TmqKciReport two = session.run("two := Array new: 1");
        changed(MOST);
        session.run("one at: 1 put: 5. two at: 1 put: 6. nil");
        long[] first = changed(1);
        assertEquals(1, first.length);
        long[] rest = changed(MOST);
        assertEquals(1, rest.length);
        long[] both = {first[0], rest[0]};
        long[] expected = {one.oop, two.oop};
        Arrays.sort(both);
        Arrays.sort(expected);
        assertArrayEquals(expected, both);
        assertEquals(0, changed(MOST).length);
        assertEquals(0, changed(0).length);
    }

    @Test
    void objectsAreGivenUp() {
        TmqKciReport one = session.run("one := Array new: 1");
        TmqKciReport two = session.run("two := Array new: 1");
        TmqKciReport three = session.run("three := Array new: 1");
        changed(MOST);
        TestSession.succeed(error -> TmqKciInterface._removeFromExportSet(session.id, new TmqKciReport[] {one}, 1,
                error));
        long highBitsDoNotCount = two.oop | 7L << 32;
        TestSession.succeed(
                error -> TmqKciInterface._releaseOops(session.id, new long[] {highBitsDoNotCount}, 1, error));
        session.run("one at: 1 put: 5. two at: 1 put: 5. three at: 1 put: 5. nil");
        assertArrayEquals(new long[] {three.oop}, changed(MOST), "objects given up are no longer tracked");
        assertEquals(0, TestSession.succeed(
                error -> TmqKciInterface._releaseOops(session.id, new long[0], 0, error)));
        assertEquals(0, TestSession.succeed(
                error -> TmqKciInterface._removeFromExportSet(session.id, new TmqKciReport[0], 0, error)));
    }

    @Test
    void countsAreChecked() {
        int id = session.id;
        TmqKciReport[] reports = {TmqKciReport.ofNil()};
        long[] oops = new long[1];
        int above = MOST + 1;
        TestSession.refuse("removeFromExportSet(): buffer size exceeded",
                error -> TmqKciInterface._removeFromExportSet(id, reports, above, error));
        TestSession.refuse("releaseOops(): buffer size exceeded",
                error -> TmqKciInterface._releaseOops(id, oops, above, error));
        TestSession.refuse("changedOops(): buffer size exceeded",
                error -> TmqKciInterface._changedOops(id, oops, above, error));
        TestSession.refuse("removeFromExportSet(): numObjs < 0",
                error -> TmqKciInterface._removeFromExportSet(id, reports, -1, error));
        TestSession.refuse("releaseOops(): numOops < 0",
                error -> TmqKciInterface._releaseOops(id, oops, -1, error));
        TestSession.refuse("changedOops(): numOops < 0",
                error -> TmqKciInterface._changedOops(id, oops, -1, error));
        TestSession.refuse("removeFromExportSet(): jobjs is NULL or shorter than numObjs",
                error -> TmqKciInterface._removeFromExportSet(id, reports, 2, error));
        TestSession.refuse("releaseOops(): joops is NULL or shorter than numOops",
                error -> TmqKciInterface._releaseOops(id, oops, 2, error));
        TestSession.refuse("changedOops(): joops is NULL or shorter than numOops",
                error -> TmqKciInterface._changedOops(id, null, 1, error));
        TestSession.refuse("getOop(): NULL object",
                error -> TmqKciInterface._removeFromExportSet(id, new TmqKciReport[1], 1, error));
    }
}
