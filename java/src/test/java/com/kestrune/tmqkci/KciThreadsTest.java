package com.kestrune.tmqkci;

import static com.kestrune.tmqkci.KciSessionTest.login;
import static org.junit.jupiter.api.Assertions.*;

import java.util.List;
import java.util.concurrent.CompletableFuture;
import java.util.concurrent.ExecutionException;
import java.util.concurrent.FutureTask;
import java.util.concurrent.atomic.AtomicReference;
import java.util.stream.Stream;

import org.junit.jupiter.api.AfterEach;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.Timeout;
import org.junit.jupiter.api.function.Executable;

/** Threads, futures and interrupts over the local store. */
@Timeout(60)
class KciThreadsTest {
    private final KciSession session = login("local");

    @AfterEach
    void close() {
        session.close();
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
