package com.kestrune.tmqkci;

import static com.kestrune.tmqkci.KciSessionTest.login;
import static org.junit.jupiter.api.Assertions.*;

import com.kestrune.tmqkci.KciInterruptedException.Outcome;

import java.io.PrintWriter;
import java.io.StringWriter;
import java.time.Duration;
import java.util.List;
import java.util.Map;
import java.util.concurrent.CompletableFuture;

import org.junit.jupiter.api.AfterEach;
import org.junit.jupiter.api.BeforeEach;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.Timeout;
import org.junit.jupiter.api.function.Executable;

/** The session API over a client library that answers late, and fails at each step, as source texts tell it. */
@Timeout(60)
class ScriptedClientTest {
    private static final String SECRET = "k9-unlikely-secret";

    private KciSession session = login("none");

    @BeforeEach
    void makeObjects() {
        session.execute("objects");
    }

    @AfterEach
    void close() {
        session.close();
    }

    private int released(long oop) {
        return session.execute("released " + oop).intValue();
    }

    @Test
    void onlyTheLastReferenceReleases() throws Exception {
        KciObject first = session.execute("answer 4400 after 0");
        KciObject second = session.execute("answer 4400 after 0");
        first.release();
        first.release();
        assertEquals(0, released(4400), "another reference is left");
        second.release();
        KciObject again = session.object(4400);
        assertEquals(1, released(4400), "the batch went out with the call that asked for it again");
        again.release();
        assertEquals(2, released(4400));

        KciObject held = session.execute("answer 4404 after 0");
        CompletableFuture<KciObject> same = session.executeAsync("answer 4404 after 300");
        KciStoppingTest.pause(session);
        held.release();
        assertFalse(same.isDone());
        same.get();
        assertEquals(0, released(4404), "handed out again before the batch left");
        same.get().release();
        assertEquals(1, released(4404));

        List<KciObject> elements = session.fetchElements(session.object(4020), 1, 3);
        List<Integer> before = elements.stream().map(each -> released(each.oop())).toList(); // by earlier tests' garbage
        session.release(elements.get(1), elements.get(2));
        for (int i = 0; i < 3; i++) {
            assertEquals(i == 0 ? 0 : 1, released(elements.get(i).oop()) - before.get(i));
        }
    }

    @Test
    void abandonedCallsAreFinishedAndReleased() throws Exception {
        int started = session.execute("started").intValue();
        CompletableFuture<KciObject> call = session.executeAsync("answer 4800 after 300");
        KciStoppingTest.pause(session);
        call.cancel(true);
        assertEquals(started + 2, session.execute("started").intValue());
        assertEquals(1, released(4800), "its result");

        CompletableFuture<KciObject> failing = session.executeAsync("fail 2010 context 4804 after 300");
        KciStoppingTest.pause(session);
        failing.cancel(true);
        session.execute("answer 31 after 0");
        assertEquals(1, released(4804), "the process that its error suspended");
    }

    @Test
    void breaksThatAreNotAnsweredDoNotKeepTheCaller() {
        long begin = System.nanoTime();
        assertEquals(Outcome.STILL_RUNNING, assertThrows(KciTimeoutException.class, () -> session.withCallTimeout(
                Duration.ofMillis(10), () -> session.execute("answer 31 after 1000000"))).outcome());
        assertTrue(System.nanoTime() - begin < 4_000_000_000L);
        begin = System.nanoTime();
        session.close(Duration.ofMillis(100));
        assertTrue(System.nanoTime() - begin < 1_000_000_000L);
        assertFalse(session.isOpen());
        session = login("none");
    }

    @Test
    void whatACallCreatesLivesAsLongAsTheCall() {
        long oop = session.create("x").oop();
        assertEquals(oop, session.send(session.object(oop), "any", "text", "caf\u00E9").oop());
        assertEquals(1, released(oop + 4));
        assertEquals(1, released(oop + 8));
        failsAt("KciNewOop", 0, () -> session.send(1, "any", "text"));
        failsAt("KciNbPerform", 0, () -> session.send(1, "any", "text"));
        assertEquals(1, released(oop + 12), "also when the call fails");
        failsAt("KciStoreBytesInstanceOf", 0, () -> session.send(1, "any", "caf\u00E9"));
        assertEquals(1, released(oop + 16), "or was never begun");
        failsAt("KciNbExecuteStr", 0, () -> session.send(1, "any", "caf\u00E9", new byte[1]));
        assertEquals(1, released(oop + 20), "or could not be converted to its end");
    }

    private TmqKciException failsAt(String entry, int fatal, Executable call) {
        session.execute("break " + entry + " fatal " + fatal);
        TmqKciException error = assertThrows(TmqKciException.class, call, entry);
        assertEquals(4000, error.number, entry);
        assertEquals("as told", error.getMessage());
        assertEquals(fatal != 0, error.fatal);
        return error;
    }

    /** What calls each entry that can fail. */
    private Map<String, Executable> calls() {
        KciObject bytes = session.object(4008);
        KciObject array = session.object(4012);
        return Map.ofEntries(
                Map.entry("KciNbExecuteStr", () -> session.execute("answer 31 after 0")),
                Map.entry("KciNbEnd", () -> session.execute("answer 31 after 3")),
                Map.entry("KciSaveObjs", () -> session.execute("answer 4000 after 3")),
                Map.entry("KciFetchObjInfo", () -> session.execute("answer 4000 after 0")),
                Map.entry("KciNbPerform", () -> session.send(array, "size")),
                Map.entry("KciSetSessionId", () -> session.execute("answer 31 after 0")),
                Map.entry("KciFetchBytes", () -> session.fetchBytes(bytes)),
                Map.entry("KciFetchVaryingOops", () -> session.fetchElements(array)),
                Map.entry("KciStoreBytesInstanceOf", () -> session.storeBytes(bytes, 1, new byte[5000])),
                Map.entry("KciStoreNamedOops", () -> session.storeNamed(array, 1, List.of(1, 2))),
                Map.entry("KciDirtySaveObjs", () -> session.changedObjects()),
                Map.entry("KciNewOop", () -> session.create("text")),
                Map.entry("KciIsKindOf", () -> session.isKindOf(1, array)),
                Map.entry("KciPollForSignal", () -> session.checkErrors()),
                Map.entry("KciNbContinueWith", () -> new KciProcess(session.object(4040)).continueWith(1)));
    }

    @Test
    void errorsAtEachStepReachTheCallerAndFatalOnesEndTheSession() {
        for (String entry : calls().keySet()) {
            Executable call = calls().get(entry);
            assertDoesNotThrow(call, entry);
            assertNull(failsAt(entry, 0, call).process(), entry);
            assertDoesNotThrow(call, entry + ": the session goes on");
            failsAt(entry, 1, call);
            assertFalse(session.isOpen(), entry);
            assertTrue(assertThrows(IllegalStateException.class, call).getMessage().endsWith(
                    "was ended by error 4000: as told"));
            session.close();
            session = login("none");
        }
    }

    @Test
    void negativeAnswersAreErrorsOfTheirOwn() {
        KciObject array = session.object(4012);
        failsAt("KciFetchVaryingOops", 0, () -> session.fetchElements(array));
        session.execute("claim KciFetchVaryingOops -5");
        assertEquals("the client library answered -5 and reported no error",
                assertThrows(TmqKciException.class, () -> session.fetchElements(array)).getMessage());
    }

    @Test
    void failingReleasesDoNotDisturb() {
        session.execute("answer 4804 after 0").release();
        session.execute("break KciReleaseOops fatal 0");
        session.execute("answer 4804 after 0").release();
        assertEquals(7, session.execute("answer 31 after 0").intValue());
    }

    @Test
    void failingLoginsAndLogouts() {
        for (String entry : List.of("KciSetNet", "KciLogin", "KciGetSessionId", "KciDirtyObjsInit")) {
            char[] password = SECRET.toCharArray();
            char[] hostPassword = SECRET.toCharArray();
            KciLoginOptions options = new KciLoginOptions().server(entry).user("u").password(password)
                    .networkService("net").hostUser("me").hostPassword(hostPassword);
            StringWriter shown = new StringWriter();
            shown.append(options.toString());
            TmqKciException error = assertThrows(TmqKciException.class, () -> KciSession.login(options));
            assertEquals(4000, error.number, entry);
            error.printStackTrace(new PrintWriter(shown.append(error.render())));
            assertFalse(shown.toString().contains(SECRET), entry);
            for (char[] wiped : new char[][] {password, hostPassword}) {
                assertArrayEquals(new char[SECRET.length()], wiped, entry);
            }
        }
        KciSession other = login("none");
        other.execute("break KciLogout fatal 0");
        assertThrows(TmqKciException.class, other::close);
        assertTrue(other.isOpen(), "it can be closed again");
        other.close();
        assertFalse(other.isOpen());
    }
}
