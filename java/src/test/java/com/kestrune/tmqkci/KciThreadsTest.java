package com.kestrune.tmqkci;

import static com.kestrune.tmqkci.KciSessionTest.login;
import static org.junit.jupiter.api.Assertions.*;

import java.util.ArrayList;
import java.util.List;
import java.util.concurrent.Callable;
import java.util.concurrent.CompletableFuture;
import java.util.concurrent.ExecutionException;
import java.util.concurrent.FutureTask;
import java.util.concurrent.TimeUnit;
import java.util.concurrent.atomic.AtomicReference;

import org.junit.jupiter.api.AfterEach;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.Timeout;

/** Threads, futures and interrupts over the local store. */
@Timeout(60)
class KciThreadsTest {
    private final KciSession session = login("local");

    @AfterEach
    void close() {
        session.close();
    }

    /** A thread that runs a task and is given time to reach its waiting state. */
    private record Worker<T>(Thread thread, FutureTask<T> task) {
        static <T> Worker<T> start(Callable<T> work) {
            FutureTask<T> task = new FutureTask<>(work);
            Thread thread = new Thread(task);
            thread.start();
            return new Worker<>(thread, task);
        }

        Worker<T> waiting() throws InterruptedException {
            Thread.sleep(100);
            return this;
        }

        void interruptedAtOnce() throws Exception {
            long begin = System.nanoTime();
            thread.interrupt();
            ExecutionException end = assertThrows(ExecutionException.class, () -> task.get(5, TimeUnit.SECONDS));
            assertInstanceOf(KciInterruptedException.class, end.getCause());
            assertTrue(System.nanoTime() - begin < 1_000_000_000L, "at once");
        }
    }

    @Test
    void fourThreadsShareTwoSessions() throws Exception {
        try (KciSession second = login("local")) {
            KciSession[] sessions = {session, second};
            List<Worker<Integer>> workers = new ArrayList<>();
            for (int t = 0; t < 4; ++t) {
                int thread = t;
                workers.add(Worker.start(() -> {
                    KciSession mine = sessions[thread % 2];
                    for (int i = 0; i < 300; ++i) {
                        int n = thread * 1000 + i;
                        String text = "thread " + thread + " \u00E9".repeat(i);
                        assertEquals(text, mine.fetchString(mine.send(text, "yourself")));
                        assertEquals(n, mine.sendAsync(n, "yourself").get().intValue());
                        assertEquals(3, mine.fetchElements(mine.execute("#(1 2 3)")).size());
                    }
                    return thread;
                }));
            }
            for (Worker<Integer> worker : workers) {
                worker.task.get();
            }
        }
    }

    @Test
    void futuresArriveInOrderAndCarryErrors() throws Exception {
        List<CompletableFuture<KciObject>> futures = new ArrayList<>();
        session.execute("log := List new");
        for (int i = 0; i < 20; ++i) {
            futures.add(session.executeAsync("log add: " + i + ". log size"));
        }
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
        // For the result of one's own call.
        Worker.start(() -> session.execute("System waitMilliseconds: 2500")).waiting().interruptedAtOnce();
        assertEquals(2, session.execute("2").intValue());

        // For the session's turn.
        CompletableFuture<KciObject> busy = session.executeAsync("System waitMilliseconds: 2500");
        Thread.sleep(50);
        Worker.start(() -> session.execute("1")).waiting().interruptedAtOnce();
        Worker.start(() -> session.fetchElements(session.object(10))).waiting().interruptedAtOnce();
        busy.get();

        // For the bridge's lock.
        KciBridge.lock().lock();
        try {
            Worker.start(() -> session.execute("1")).waiting().interruptedAtOnce();
            Worker.start(() -> login("local")).waiting().interruptedAtOnce();
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
        Worker<Integer> sender;
        KciBridge.lock().lock();
        try {
            sender = Worker.start(() -> sizeOf(box));
            while (!KciBridge.lock().hasQueuedThread(sender.thread)) {
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
        assertEquals(3, sender.task.get());
    }

    @Test
    void waitingHoldsNoLock() throws Exception {
        CompletableFuture<KciObject> call = session.executeAsync("System waitMilliseconds: 1500");
        try (KciSession other = login("local")) {
            for (int i = 0; i < 10; ++i) {
                assertEquals(i, other.execute(String.valueOf(i)).intValue());
            }
        }
        assertFalse(call.isDone(), "another session was served meanwhile");
        call.get();
    }
}
