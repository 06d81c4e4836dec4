package com.kestrune.tmqkci;

import static com.kestrune.tmqkci.KciSessionTest.SMALL;
import static com.kestrune.tmqkci.KciSessionTest.login;
import static org.junit.jupiter.api.Assertions.*;

import com.kestrune.tmqkci.KciInterruptedException.Outcome;

import java.time.Duration;
import java.util.List;
import java.util.concurrent.CompletableFuture;
import java.util.concurrent.ExecutionException;
import java.util.concurrent.TimeUnit;
import java.util.concurrent.atomic.AtomicInteger;
import java.util.function.Function;

import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.Timeout;

/** Calls that are stopped, and transactions. */
@Timeout(60)
class KciStoppingTest {
    private static final List<String> ENDLESS = List.of("[true] whileTrue: []", "System waitMilliseconds: 1000000",
            "[true] whileTrue: [System checkedCommit]");

    /** What stops a call that the session makes; answers when it began to. */
    private interface Stopper {
        long stop(KciSession session, String source) throws Exception;
    }

    private static long now() {
        return System.nanoTime();
    }

    private static long interrupted(KciSession session, String source) {
        Thread caller = Thread.currentThread();
        CompletableFuture<Long> begin = CompletableFuture.supplyAsync(() -> {
            pause(session);
            long now = now();
            caller.interrupt();
            return now;
        });
        ended(Outcome.STOPPED, () -> session.execute(source));
        assertTrue(Thread.interrupted(), "the status is set again");
        return begin.join();
    }

    private static long interruptedSession(KciSession session, String source) {
        CompletableFuture<KciObject> call = session.executeAsync(source);
        CompletableFuture<KciObject> next = session.executeAsync("41");
        pause(session);
        long begin = now();
        session.interrupt();
        assertInstanceOf(KciInterruptedException.class, assertThrows(ExecutionException.class, call::get).getCause());
        assertEquals(41, next.join().intValue(), "not touched");
        return begin;
    }

    private static long cancelled(KciSession session, String source) {
        CompletableFuture<KciObject> call = session.executeAsync(source);
        CompletableFuture<KciObject> neverBegun = session.executeAsync("begun := true");
        pause(session);
        neverBegun.cancel(true);
        long begin = now();
        call.cancel(true);
        return begin;
    }

    private static long limited(KciSession session, String source) {
        long begin = now() + 200_000_000;
        assertInstanceOf(KciTimeoutException.class, ended(Outcome.STOPPED, () -> session.withCallTimeout(
                Duration.ofMillis(200), () -> session.execute(source))));
        return begin;
    }

    private static long continued(KciSession session, String source) {
        KciProcess process = assertThrows(TmqKciException.class,
                () -> session.execute("nil foo. " + source)).process();
        long begin = now() + 200_000_000;
        ended(Outcome.STOPPED, () -> session.withCallTimeout(Duration.ofMillis(200), () -> process.continueWith(3)));
        return begin;
    }

    private static KciInterruptedException ended(Outcome outcome, org.junit.jupiter.api.function.Executable call) {
        KciInterruptedException end = assertThrows(KciInterruptedException.class, call);
        assertEquals(outcome, end.outcome(), end.getMessage());
        return end;
    }

    /** Lets the session's call begin. */
    private static void pause(KciSession session) {
        try {
            while (!session.calls().isBusy()) {
                Thread.sleep(1);
            }
            Thread.sleep(30);
        } catch (InterruptedException never) {
            throw new AssertionError(never);
        }
    }

    /** Closes a session in the middle of its call; without any patience it is given up, and logged out later. */
    private static long closed(Duration limit, boolean interrupted, String source) throws Exception {
        KciSession session = login("local");
        CompletableFuture<KciObject> call = session.executeAsync(source);
        pause(session);
        long begin = now();
        if (interrupted) {
            Thread.currentThread().interrupt();
        }
        session.close(limit);
        assertEquals(interrupted, Thread.interrupted(), "the status is kept");
        assertFalse(session.isOpen());
        assertInstanceOf(KciInterruptedException.class, assertThrows(ExecutionException.class, call::get).getCause());
        return begin;
    }

    @Test
    void nothingRunsForEver() throws Exception {
        try (KciSession session = login("local")) {
            session.execute("begun := false");
            for (Stopper each : List.<Stopper>of(KciStoppingTest::interrupted, KciStoppingTest::interruptedSession,
                    KciStoppingTest::cancelled, KciStoppingTest::limited, KciStoppingTest::continued, (one, source) -> {
                        one.executeAsync(source).orTimeout(200, TimeUnit.MILLISECONDS);
                        return now() + 200_000_000;
                    }, (one, source) -> closed(Duration.ofMillis(40), false, source),
                    (one, source) -> closed(Duration.ZERO, false, source),
                    (one, source) -> closed(Duration.ofMinutes(1), true, source))) {
                long shortest = Long.MAX_VALUE;
                for (String source : ENDLESS) {
                    long begin = each.stop(session, source);
                    assertEquals(7, session.execute("3 + 4").intValue(), "the session goes on");
                    shortest = Math.min(shortest, now() - begin);
                }
                // A neighbour's load may delay one, not all.
                assertTrue(shortest < 100_000_000, shortest + " ns");
            }
            assertFalse(session.execute("begun").booleanValue());
            assertEquals(KciErrorNumber.SOFT_BREAK, assertThrows(TmqKciException.class,
                    () -> session.execute("System halt")).number, "nobody has stopped it");
            for (int i = 0; i < 100 && KciMonitor.instance().getOpenSessions() > 1; ++i) {
                Thread.sleep(50);
            }
            assertEquals(1, KciMonitor.instance().getOpenSessions(), "no logout was forgotten");
        }
    }

    @Test
    void aLimitOfTheSessionConcernsEveryWait() throws Exception {
        KciLoginOptions options = new KciLoginOptions().server("local").user("guest").password("guest".toCharArray())
                .callTimeout(Duration.ofSeconds(1));
        assertThrows(IllegalArgumentException.class, () -> options.callTimeout(Duration.ZERO));
        try (KciSession session = KciSession.login(options, SMALL)) {
            CompletableFuture<KciObject> busy = session.withCallTimeout(null,
                    () -> session.executeAsync("System waitMilliseconds: 1000000"));
            pause(session);
            assertInstanceOf(KciTimeoutException.class, ended(Outcome.NOT_BEGUN, () -> session.execute("3")));
            busy.cancel(true);
            ended(Outcome.STOPPED, () -> session.execute("[true] whileTrue: []"));
            KciBridge.lock().lock();
            try {
                assertInstanceOf(KciTimeoutException.class, assertThrows(ExecutionException.class,
                        () -> session.executeAsync("3").get()).getCause());
            } finally {
                KciBridge.lock().unlock();
            }
            assertEquals(7, session.execute("3 + 4").intValue());
        }
    }

    private static int stock(KciSession session) {
        return session.execute("stock").intValue();
    }

    @Test
    void transactionsAreDoneAgainOrLeaveNothing() {
        try (KciSession session = login("local"); KciSession other = login("local")) {
            session.execute("Shared at: #stock put: 0");
            session.commit();
            // The other one is faster twice.
            AtomicInteger attempts = new AtomicInteger();
            Function<KciSession, Integer> work = each -> {
                int before = stock(each);
                each.execute("Shared at: #stock put: stock + 1");
                if (attempts.incrementAndGet() <= 2) {
                    other.inTransaction(faster -> faster.execute("Shared at: #stock put: stock + 10"));
                }
                return before;
            };
            assertEquals(20, session.inTransaction(work));
            attempts.set(0);
            assertThrows(KciConflictException.class, () -> session.inTransaction(2, work));
            assertFalse(session.execute("System hasChanges").booleanValue(), "given up");
            assertEquals(List.of(2, 41), List.of(attempts.get(), stock(session)));

            for (String failing : List.of("nil foo", "[true] whileTrue: []")) {
                assertThrows(KciException.class, () -> session.inTransaction(each -> each.withCallTimeout(
                        Duration.ofMillis(300), () -> each.execute("Shared at: #stock put: 7. " + failing))));
                assertEquals(41, stock(session));
            }
            assertThrows(KciInterruptedException.class, () -> session.inTransaction(each -> {
                each.execute("Shared at: #stock put: 7");
                Thread.currentThread().interrupt();
                return each.execute("3");
            }));
            assertTrue(Thread.interrupted());
            assertEquals(41, stock(session));
            assertThrows(IllegalStateException.class, () -> session.inTransaction(
                    each -> each.inTransaction(again -> again)));
            session.execute("Shared at: #stock put: 7");
            session.abort();
            assertEquals(41, stock(session));
        }
    }
}
