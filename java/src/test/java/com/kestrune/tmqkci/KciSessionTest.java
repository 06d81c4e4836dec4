package com.kestrune.tmqkci;

import static org.junit.jupiter.api.Assertions.*;

import java.math.BigInteger;
import java.time.Instant;
import java.time.LocalDate;
import java.time.LocalDateTime;
import java.util.ArrayList;
import java.util.Arrays;
import java.util.Collections;
import java.util.List;
import java.util.Map;
import java.util.Random;
import java.util.stream.IntStream;
import java.util.stream.Stream;

import org.junit.jupiter.api.AfterEach;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.function.Executable;

/** The session API over the local store, with buffers so small that most transfers take several slices. */
class KciSessionTest {
    static final KciBridgeOptions SMALL = KciBridgeOptions.DEFAULTS.withSizes(1024, 64);

    private final KciSession session = login("local");

    static KciSession login(String server) {
        return KciSession.login(
                new KciLoginOptions().server(server).user("guest").password("guest".toCharArray()), SMALL);
    }

    @AfterEach
    void close() {
        session.close();
    }

    @Test
    void valuesGoBothWays() {
        KciObject list = session.execute("List new");
        for (Object value : new Object[] {true, false, 'a', '\u00E9', '\u20AC', 0, -1, Integer.MAX_VALUE,
            Integer.MIN_VALUE, 1 << 29, -(1 << 29) - 1, 1.5, -0.0, Double.NaN, 1e300, "", "plain", "it's",
            "caf\u00E9 \u00FF\u0080", "nul\0inside", "\u20AC\0", "\uD83D\uDE00", "\uDC00 alone \uD800",
            "x".repeat(3000), "\u00E9".repeat(3000), "\u20AC".repeat(3000), LocalDateTime.of(2024, 2, 29, 23, 59, 58),
            LocalDateTime.of(1969, 12, 31, 0, 0, 0, 1_000_000), LocalDate.of(1900, 3, 1), Instant.EPOCH,
            Instant.ofEpochMilli(-1), BigInteger.TEN, BigInteger.ONE.shiftLeft(31), BigInteger.valueOf(Long.MIN_VALUE),
            List.of(), Arrays.asList(1, null, "two", 3.5, 'c', true, 1 << 30, "caf\u00E9"), Map.of(),
            List.of(List.of(1, List.of()), Map.of("a", List.of(2)), LocalDateTime.of(2024, 1, 1, 0, 0)),
            Map.of("one", 1, 2, "two", 'x', List.of("y"), "m", Map.of(1.5, -1))}) {
            KciObject object = session.send(list, "add:", value);
            Class<?> type = value instanceof List ? List.class : value instanceof Map ? Map.class : value.getClass();
            assertEquals(value, object.as(type), String.valueOf(value));
            if (value instanceof String text) {
                assertEquals(text.length(), session.send(text, "size").intValue(), "a character stays a character");
                assertEquals(text.chars().anyMatch(c -> c > 0xFF), object.description().isDBString);
                assertEquals(text, session.fetchString(session.create(text)));
            }
        }
        assertNull(session.send(list, "add:", (Object) null).as(String.class));
        for (int length : new int[] {0, 1, 64, 65, 1024, 1025, 5000}) {
            byte[] bytes = new byte[length];
            new Random(length).nextBytes(bytes);
            assertArrayEquals(bytes, session.send(list, "add:", bytes).as(byte[].class));
        }
        assertEquals(10_000_000_000L, session.execute("100000 * 100000").longValue());
    }

    @Test
    void whatDoesNotFitIsRefused() {
        assertRefused("the integer 2147483648 does not fit 32 bits", () -> session.send(1L << 31, "abs"));
        assertRefused("a java.util.Date has no counterpart on the server",
                () -> session.send(1, "max:", new java.util.Date()));
        assertRefused("the instant 1970-01-01T00:00:00.000000001Z is finer than a millisecond",
                () -> session.send(Instant.ofEpochSecond(0, 1), "year"));
        BigInteger large = BigInteger.ONE.shiftLeft(70);
        assertTrue(assertThrows(KciConversionException.class, () -> session.create(large)).getMessage()
                .startsWith("the integer " + large + " does not fit the server's: "));
        assertRefused("the map has keys that differ in Java and are equal on the server",
                () -> session.create(Map.of(1, "a", 1.0, "b")));
        assertRefused("year 1970, day 1, 1 ms has a time of day and cannot be converted to LocalDate",
                () -> session.create(Instant.ofEpochMilli(1)).as(LocalDate.class));
        for (Class<?> type : new Class<?>[] {List.class, Map.class, BigInteger.class}) {
            assertRefused("'text' cannot be converted to " + type.getSimpleName(),
                    () -> session.execute("'text'").as(type));
        }
        assertTrue(assertThrows(KciConversionException.class, () -> session.execute("l := List new. l add: l. l")
                .as(List.class)).getMessage().endsWith("more than 100 collections deep"));
        assertEquals(1, session.execute("[1]", new Object[0]).intValue());
        assertEquals(KciErrorNumber.BAD_MESSAGE, assertThrows(TmqKciException.class,
                () -> session.execute("[:a | a]", 1, 2)).number);
        assertRefused("the integer 128 does not fit Byte", () -> session.execute("128").as(Byte.class));
        assertRefused("1.5 cannot be converted to Integer", () -> session.execute("1.5").intValue());
        KciObject plain = session.create("plain");
        assertRefused("the text has characters beyond U+00FF, and the string holds bytes",
                () -> session.storeString(plain, 1, "\u20AC"));
        assertThrows(NullPointerException.class, () -> session.execute((String) null));
        try (KciSession other = login("local")) {
            assertThrows(IllegalArgumentException.class, () -> other.send(plain, "size"));
        }
        plain.release();
        assertThrows(IllegalStateException.class, () -> session.send(plain, "size"));
        assertThrows(IllegalArgumentException.class, () -> KciBridgeOptions.DEFAULTS.withSizes(64, 65));
        assertEquals("arguments", assertThrows(NullPointerException.class,
                () -> session.send(1, "max:", (Object[]) null)).getMessage());
    }

    private static void assertRefused(String text, Executable call) {
        assertEquals(text, assertThrows(KciConversionException.class, call).getMessage());
    }

    @Test
    void contentsMoveInSlices() {
        KciObject array = session.execute("Array new: 1000");
        List<Object> values = new ArrayList<>(Collections.nCopies(1000, "text"));
        values.set(500, array);
        values.set(999, 12);
        session.storeElements(array, 1, values);
        List<KciObject> elements = session.fetchElements(array);
        assertEquals(1000, elements.size());
        assertEquals("text", elements.get(998).stringValue());
        assertEquals(array.oop(), elements.get(500).oop());
        assertEquals("object " + array.oop(), elements.get(500).toString());
        assertEquals(300, session.fetchElements(array, 701, 10_000).size());

        session.execute("Object subclass: #Pair variables: #(#left #right)");
        KciObject pair = session.execute("Pair new");
        session.storeNamed(pair, 2, List.of("right"));
        session.storeNamed(pair, 1, Arrays.asList((Object) null));
        assertEquals(Arrays.asList(null, "right"),
                session.fetchNamed(pair).stream().map(each -> each.as(String.class)).toList());

        KciObject bytes = session.create(new byte[3000]);
        byte[] part = "5".repeat(2000).getBytes();
        session.storeBytes(bytes, 1001, part);
        assertArrayEquals(part, session.fetchBytes(bytes, 1001, 2000));
        assertEquals(0, session.fetchBytes(bytes)[999]);
        KciObject wide = session.create("\u20ACabc");
        session.storeString(wide, 3, "\uD800");
        assertEquals("\u20ACa\uD800c", session.fetchString(wide));
    }

    @Test
    void indexesBeyond31BitsAreRefused() {
        KciObject text = session.create("abc");
        KciObject wide = session.create("\u20ACabc");
        for (long start : new long[] {0, (1L << 32) + 1, Long.MAX_VALUE}) {
            for (Executable call : new Executable[] {() -> session.storeBytes(text, start, new byte[] {'X'}),
                () -> session.storeString(wide, start, "X"), () -> session.fetchBytes(text, start, 1),
                () -> session.storeElements(text, start, List.of(7)), () -> session.fetchElements(text, start, 3)}) {
                assertTrue(assertThrows(IndexOutOfBoundsException.class, call).getMessage()
                        .startsWith("start " + start + ", count "));
            }
        }
        assertThrows(IndexOutOfBoundsException.class,
                () -> session.storeBytes(text, Integer.MAX_VALUE, new byte[] {'X', 'Y'}));
        assertEquals("abc", text.stringValue());
    }

    @Test
    void manyObjectsMoveInFewCalls() {
        List<Object> values = new ArrayList<>();
        for (int i = 0; i < 700; ++i) {
            values.addAll(Arrays.asList("text " + i, i << 22, i * 0.5, i % 2 == 0, (char) (i * 93), null));
        }
        List<KciObject> created = session.createAll(values);
        for (int i = 0; i < values.size(); ++i) {
            assertEquals(values.get(i), created.get(i).as(Object.class) instanceof KciObject ? created.get(i).intValue()
                    : created.get(i).as(Object.class));
        }
        KciObject cls = session.execute("Object subclass: #Many variables: #(#a #b #c)");
        List<List<?>> rows = new ArrayList<>();
        for (int i = 0; i < 700; ++i) {
            rows.add(Arrays.asList(i - 350, i % 9 == 0 ? "text " + i : null, cls).subList(0, i % 100 / 33 % 4));
        }
        List<KciObject> objects = session.createAll(cls, rows);
        KciObject large = session.execute("(1 to: 900) asArray");
        List<KciObject> mixed = new ArrayList<>(objects);
        mixed.addAll(List.of(large, session.create("bytes"), session.execute("7")));
        List<List<KciObject>> contents = session.fetchAll(mixed);
        for (int i = 0; i < rows.size(); ++i) {
            List<Object> all = new ArrayList<>(rows.get(i));
            all.addAll(Collections.nCopies(3 - all.size(), null));
            assertEquals(all, contents.get(i).stream()
                    .map(each -> each.equals(cls) ? cls : each.as(Object.class)).toList());
        }
        assertEquals(List.of(900, 0, 0), contents.subList(700, 703).stream().map(List::size).toList());
        assertEquals(cls, objects.get(699).send("class"));
        assertEquals(List.of(), session.createAll(List.of()));
        assertEquals(KciErrorNumber.BAD_OFFSET, assertThrows(TmqKciException.class,
                () -> session.createAll(cls, List.of(List.of(1, 2, 3, 4)))).number);
        TmqKciException error = new TmqKciException();
        for (int count : new int[] {-1, 1}) {
            assertEquals(-1, TmqKciBulk._create(session.id(), 0, 0, null, null, count, error));
            assertEquals(-1, TmqKciBulk._contents(session.id(), null, count, null, null, error));
            assertEquals("contents(): " + (count < 0 ? "numbers below 0 or beyond the buffer size"
                    : "an array is NULL or too short"), error.message);
        }

        assertEquals(IntStream.rangeClosed(3, 902).boxed().toList(), session.sendAll(
                session.elements(large).toList(), "+", 2).stream().map(KciObject::intValue).toList());
        assertThrows(IllegalArgumentException.class, () -> session.sendAll(List.of(1), "foo. System abort"));
        assertEquals(2010, assertThrows(TmqKciException.class, () -> session.sendAll(List.of(1), "foo")).number);
        assertEquals(512, session.elements(session.execute("Array new: 512")).count());
        session.changedObjects().forEach(each -> { });
        session.execute("System commit");
        session.storeElements(large, 1, List.of(0));
        assertEquals(List.of(large), session.changedObjects().limit(1).toList());
    }

    @Test
    void changedObjectsAreDrained() {
        session.changedObjects();
        KciObject array = session.execute("all := Array new: 600. 1 to: 600 do: [:i | all at: i put: (List new)]. all");
        List<KciObject> elements = session.fetchElements(array);
        session.execute("System commit. all do: [:each | each add: 1]");
        assertEquals(elements.stream().map(KciObject::oop).sorted().toList(),
                session.changedObjects().map(KciObject::oop).filter(oop -> oop != array.oop()).sorted().toList());
        assertEquals(0, session.changedObjects().count());
    }

    @Test
    void suspendedProcessesContinueOrFail() {
        TmqKciException error = assertThrows(TmqKciException.class, () -> session.execute("(nil foo: 3) + 1"));
        assertEquals("Error 2010: nil does not understand #foo:\n", error.render(), "there is no catalogue here");
        assertEquals(Arrays.asList(null, "foo:"),
                error.arguments().subList(0, 2).stream().map(each -> each.as(String.class)).toList());

        String text = "long ".repeat(150);
        TmqKciException mine = assertThrows(TmqKciException.class, () -> error.process().failWith(text, "at line 1"));
        assertEquals(TmqKciException.ERROR_CONTINUE, mine.number);
        assertEquals(text.substring(0, 400), mine.getMessage());
        assertEquals(text, mine.arguments().get(1).stringValue());
        assertEquals(42, error.process().continueWith(41).intValue(), "it stayed suspended");

        TmqKciException second = assertThrows(TmqKciException.class, () -> session.execute("(1 foo) bar"));
        TmqKciException third = assertThrows(TmqKciException.class, () -> second.process().continueWith("\u00E9"));
        assertEquals("\u00E9", third.arguments().get(0).stringValue());
        assertEquals("done", third.process().continueWith("done").stringValue());
        assertNull(assertThrows(TmqKciException.class, () -> session.execute("3 +")).process());
    }

    @Test
    void objectsTellWhatTheyAre() {
        assertEquals(List.of("7", "nil", "true", "$a", "'wide\u20AC'", "'" + "y".repeat(60) + "...'"),
                Stream.of("7", "nil", "true", "$a", "'wide\u20AC'", "'" + "y".repeat(100) + "'")
                        .map(each -> session.execute(each).toString()).toList());
        KciObject array = session.execute("#(1 2 3)");
        assertTrue(array.toString().matches("object \\d+ of class \\d+ \\(0 named, 3 indexed\\)"), array.toString());
        assertEquals(1, Stream.of(array, session.object(array.oop())).distinct().count());
        assertThrows(IllegalArgumentException.class, () -> session.object(1));
        assertEquals(2, session.execute(session.create("'\u0416' size + 1")).intValue(), "source of double bytes");
        assertEquals("6.7.local", KciBridge.clientVersion());
    }

    @Test
    void whatIsNotReferencedIsReleased() throws Exception {
        session.execute("System collectGarbage");
        int before = session.execute("System objectCount").intValue();
        KciObject kept = session.execute("List new");
        for (int i = 0; i < 2000; ++i) {
            session.send(session.execute("Array new: 10"), "at:put:", 1, "value " + i);
        }
        session.fetchElements(session.execute("(1 to: 3000) collect: [:i | Array new: 1]"));
        for (int i = 0; i < 20 && session.exports().size() > 50; ++i) {
            System.gc();
            Thread.sleep(50);
            session.execute("nil");
        }
        assertTrue(session.exports().size() <= 50, session.exports().size() + " identifiers are still referred to");
        session.execute("System collectGarbage");
        int after = session.execute("System objectCount").intValue();
        assertTrue(after - before < 100, after + " objects, before " + before);
        assertEquals(1, session.send(kept, "add:", 1).intValue(), "what is referenced stays");
    }

    @Test
    void endedSessionsAndHoldersOfTheLockAreRefused() {
        KciSession other = login("local");
        KciObject object = other.execute("Object new");
        assertTrue(other.isOpen());
        KciBridge.lock().lock();
        try {
            assertEquals(256, KciBridge.maxReferences(other.id()), "the buffer was not sized by the defaults");
            assertThrows(IllegalStateException.class, () -> other.execute("1"));
            assertThrows(IllegalStateException.class, other::close);
        } finally {
            KciBridge.lock().unlock();
        }
        KciLoginOptions again = new KciLoginOptions().server("local").user("guest");
        assertThrows(TmqKciException.class, () -> KciSession.login(again));
        KciSession.login(again.password("guest".toCharArray())).close();
        assertTrue(assertThrows(IllegalStateException.class, () -> KciSession.login(again)).getMessage()
                .startsWith("the password was overwritten"));
        again.passwordFrom("guest"::toCharArray);
        KciSession.login(again).close();
        KciSession.login(again, SMALL).close();
        assertTrue(assertThrows(TmqKciException.class, () -> KciSession.login(again, SMALL.withLinked(false)))
                .getMessage().startsWith("this process was initialized for sessions inside it"));
        other.close();
        other.close();
        assertFalse(other.isOpen());
        assertTrue(assertThrows(IllegalStateException.class, () -> object.send("yourself")).getMessage()
                .endsWith("is closed"));
        object.release();
    }
}
