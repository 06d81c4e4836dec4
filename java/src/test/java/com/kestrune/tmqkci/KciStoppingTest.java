package com.kestrune.tmqkci;

import static com.kestrune.tmqkci.KciSessionTest.SMALL;
import static com.kestrune.tmqkci.KciSessionTest.login;
import static org.junit.jupiter.api.Assertions.*;

import com.kestrune.tmqkci.KciInterruptedException.Outcome;

import java.time.Duration;
import java.util.List;
import java.util.concurrent.CompletableFuture;
import java.util.concurrent.ExecutionException;
import java.util.concurrent.FutureTask;
import java.util.concurrent.TimeUnit;
import java.util.concurrent.atomic.AtomicInteger;
import java.util.concurrent.atomic.AtomicReference;
import java.util.function.Function;
import java.util.stream.Stream;

import org.junit.jupiter.api.AfterEach;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.Timeout;
import org.junit.jupiter.api.function.Executable;

/** Threads, futures and interrupts, calls that are stopped, and transactions. */
@Timeout(60)
class KciStoppingTest {
    private final KciSession session = login("local");

    private static final List<String> ENDLESS = List.of("[true] whileTrue: []", "System waitMilliseconds: 1000000",
            "[true] whileTrue: [System checkedCommit]");

    @AfterEach
    void close() {
        session.close();
    }

    /** What stops a call that the session makes; answers when it began to. */
    private interface Stopper {
        long stop(String source) throws Exception;
    }

    private static long now() {
        return System.nanoTime();
    }

    private long interrupted(String source) {
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

    private long interruptedSession(String source) {
        CompletableFuture<KciObject> call = session.executeAsync(source);
        CompletableFuture<KciObject> next = session.executeAsync("41");
        pause(session);
        long begin = now();
        session.interrupt();
        assertInstanceOf(KciInterruptedException.class, assertThrows(ExecutionException.class, call::get).getCause());
        assertEquals(41, next.join().intValue(), "not touched");
        return begin;
    }

    private long cancelled(String source) {
        CompletableFuture<KciObject> call = session.executeAsync(source);
        CompletableFuture<KciObject> neverBegun = session.executeAsync("begun := true");
        pause(session);
        neverBegun.cancel(true);
        long begin = now();
        call.cancel(true);
        return begin;
    }

    private long limited(String source) {
        long begin = now() + 200_000_000;
        assertInstanceOf(KciTimeoutException.class, ended(Outcome.STOPPED, () -> session.withCallTimeout(
                Duration.ofMillis(200), () -> session.execute(source))));
        return begin;
    }

    private long continued(String source) {
        KciProcess process = assertThrows(TmqKciException.class,
                () -> session.execute("nil foo. " + source)).process();
        long begin = now() + 200_000_000;
        ended(Outcome.STOPPED, () -> session.withCallTimeout(Duration.ofMillis(200), () -> process.continueWith(3)));
        return begin;
    }

    private static KciInterruptedException ended(Outcome outcome, Executable call) {
        KciInterruptedException end = assertThrows(KciInterruptedException.class, call);
        assertEquals(outcome, end.outcome(), end.getMessage());
        return end;
    }

    /** Lets the session's call begin. */
    static void pause(KciSession session) {
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
        session.execute("begun := false");
        for (Stopper each : List.<Stopper>of(this::interrupted, this::interruptedSession, this::cancelled,
                this::limited, this::continued, source -> {
                    session.executeAsync(source).orTimeout(200, TimeUnit.MILLISECONDS);
                    return now() + 200_000_000;
                }, source -> closed(Duration.ofMillis(40), false, source),
                source -> closed(Duration.ZERO, false, source),
                source -> closed(Duration.ofMinutes(1), true, source))) {
            long shortest = Long.MAX_VALUE;
            for (String source : ENDLESS) {
                long begin = each.stop(source);
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
        try (KciSession other = login("local")) {
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

            assertThrows(KciTimeoutException.class, () -> session.inTransaction(each -> each.withCallTimeout(
                    Duration.ofMillis(300), () -> each.execute("Shared at: #stock put: 7. [true] whileTrue: []"))));
            assertEquals(41, stock(session));
            assertThrows(KciInterruptedException.class, () -> session.inTransaction(each -> {
                each.execute("Shared at: #stock put: 7");
                Thread.currentThread().interrupt();
                return each.execute("3");
            }));
            assertTrue(Thread.interrupted());
            assertEquals(41, stock(session));
            assertThrows(IllegalStateException.class, () -> session.inTransaction(
                    each -> each.inTransaction(again -> again)));
        }
    }

    /** What waits in a thread of its own is told of an interrupt, and waits no longer. */
    private static void endsByInterrupt(Executable work) throws Exception {
        FutureTask<?> task = new FutureTask<>(() -> assertThrows(KciInterruptedException.class, work));
        Thread thread = new Thread(task);
        thread.start();
        Thread.sleep(100);
        assertFalse(task.isDone());
        thread.interrupt();
        task.get();
    }

    @Test
    void fourThreadsShareTwoSessions() throws Exception {
        try (KciSession second = login("local")) {
            KciSession[] sessions = {session, second};
            CompletableFuture<?>[] workers = new CompletableFuture<?>[4];
            for (int t = 0; t < workers.length; ++t) {
                int thread = t;
                workers[t] = CompletableFuture.runAsync(() -> {
                    KciSession mine = sessions[thread % 2];
                    for (int i = 0; i < 300; ++i) {
                        int n = thread * 1000 + i;
                        String text = "thread " + thread + " \u00E9".repeat(i);
                        assertEquals(text, mine.fetchString(mine.send(text, "yourself")));
                        assertEquals(n, mine.sendAsync(n, "yourself").join().intValue());
                        assertEquals(3, mine.fetchElements(mine.execute("#(1 2 3)")).size());
                    }
                }, work -> new Thread(work).start());
            }
            CompletableFuture.allOf(workers).get();
        }
    }

    @Test
    void futuresArriveInOrderAndCarryErrors() throws Exception {
        session.execute("log := List new");
        List<CompletableFuture<KciObject>> futures = Stream.generate(() -> session.executeAsync("log add: 1. log size"))
                .limit(20).toList();
        for (int i = 0; i < 20; ++i) {
            assertEquals(i + 1, futures.get(i).get().intValue());
        }
        ExecutionException error = assertThrows(ExecutionException.class, () -> session.executeAsync("nil foo").get());
        assertEquals(2010, ((TmqKciException) error.getCause()).number);
        // What depends on a future may call the session and wait for further futures.
        assertEquals(9, session.executeAsync("4").thenApply(
                four -> session.sendAsync(four, "+", session.execute("5")).join().intValue()).get());
        assertInstanceOf(KciConversionException.class, assertThrows(ExecutionException.class,
                () -> session.sendAsync(1, "+", 1L << 40).get()).getCause());
    }

    @Test
    void everyWaitAnswersToInterrupts() throws Exception {
        // For the session's turn; another session is served meanwhile.
        CompletableFuture<KciObject> busy = session.executeAsync("System waitMilliseconds: 1000000");
        pause(session);
        endsByInterrupt(() -> session.execute("1"));
        endsByInterrupt(() -> session.fetchElements(session.object(10)));
        try (KciSession other = login("local")) {
            assertEquals(3, other.execute("3").intValue());
        }
        busy.cancel(true);

        // For the bridge's lock.
        KciBridge.lock().lock();
        try {
            endsByInterrupt(() -> session.execute("1"));
            endsByInterrupt(() -> login("local"));
        } finally {
            KciBridge.lock().unlock();
        }
        // Before the call.
        Thread.currentThread().interrupt();
        assertThrows(KciInterruptedException.class, () -> session.execute("1"));
        char[] password = "guest".toCharArray();
        assertThrows(KciInterruptedException.class, () -> KciSession.login(
                new KciLoginOptions().server("local").user("guest").password(password)));
        assertTrue(Thread.interrupted(), "the status is set again");
        assertArrayEquals(new char[5], password, "wiped although no login was tried");
        assertEquals(7, session.execute("3 + 4").intValue());
    }

    /** Sends to an object that nothing else refers to. */
    private static int sizeOf(AtomicReference<KciObject> box) {
        return box.getAndSet(null).send("size").intValue();
    }

    @Test
    void aTemporaryReceiverIsKeptUntilItsCallIsSent() throws Exception {
        AtomicReference<KciObject> box = new AtomicReference<>();
        // Compiled code forgets a variable after its last use.
        for (int i = 0; i < 3000; ++i) {
            box.set(session.execute("#(1 2 3)"));
            assertEquals(3, sizeOf(box));
        }
        box.set(session.execute("#(1 2 3)"));
        for (int i = 0; i < 50 && session.exports().size() > 1; ++i) {
            System.gc();
            Thread.sleep(20);
            session.checkErrors();
        }
        assertEquals(1, session.exports().size(), "nothing but the receiver is left");
        FutureTask<Integer> sender = new FutureTask<>(() -> sizeOf(box));
        Thread thread = new Thread(sender);
        KciBridge.lock().lock();
        try {
            thread.start();
            while (!KciBridge.lock().hasQueuedThread(thread)) {
                Thread.onSpinWait();
            }
            for (int i = 0; i < 5; ++i) {
                System.gc();
                Thread.sleep(20);
            }
            assertFalse(session.exports().hasQueued(), "the receiver would be given up before the call is sent");
        } finally {
            KciBridge.lock().unlock();
        }
        assertEquals(3, sender.get());
    }
}
