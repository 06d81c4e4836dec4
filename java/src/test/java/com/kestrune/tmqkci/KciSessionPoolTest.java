package com.kestrune.tmqkci;

import static org.junit.jupiter.api.Assertions.*;

import java.time.Duration;
import java.util.ArrayList;
import java.util.IntSummaryStatistics;
import java.util.List;
import java.util.concurrent.CompletableFuture;
import java.util.concurrent.ExecutorService;
import java.util.concurrent.Executors;
import java.util.stream.IntStream;
import java.util.stream.Stream;

import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.Timeout;

/** Sessions that are lent: how many, to whom, in which state, and for how long. */
@Timeout(60)
class KciSessionPoolTest {
    private static KciSessionPool pool(int least, int most, int waitMillis, int idleMillis) {
        return new KciSessionPool(
                new KciLoginOptions().server("local").user("guest").passwordFrom("guest"::toCharArray),
                KciPoolOptions.DEFAULTS.withSize(least, most).withLimits(Duration.ofMillis(waitMillis),
                        Duration.ofMillis(idleMillis)));
    }

    @Test
    void aSessionComesBackCleanAndAlive() {
        KciSessionPool pool = pool(1, 2, 50, 60_000);
        assertEquals(1, pool.idleSessions());
        int first = pool.run(session -> {
            session.execute("Shared at: #pooled put: (List new add: 1; yourself). System commit. pooled add: 2");
            return session.id();
        });
        int second = pool.run(session -> {
            assertEquals(1, session.execute("pooled size").intValue(), "what was not committed is gone");
            session.executeAsync("[true] whileTrue: []");
            return session.id();
        });
        assertEquals(first, second);
        pool.run(session -> {
            assertEquals(7, session.execute("3 + 4").intValue(), "no call of the former borrower is running");
            session.close();
            return null;
        });
        KciSessionPool.Loan kept = pool.borrow();
        KciSessionPool.Loan other = pool.borrow();
        String refused = assertThrows(KciException.class, pool::borrow).getMessage();
        assertTrue(refused.matches("(?s)no session of the pool came back within PT0.05S\n  session .*\n  session .*"
                + " was lent to thread main at .*KciSessionPoolTest.*, \\d+ ms ago"), refused);
        KciBridge.lock().lock();
        try {
            assertThrows(IllegalStateException.class, other::close);
        } finally {
            KciBridge.lock().unlock();
        }
        assertEquals(List.of(kept, other), pool.loans());
        other.close();
        other.close();
        assertThrows(IllegalStateException.class, other::session);
        pool.close();
        kept.close();
        assertFalse(kept.toString().isEmpty() || pool.idleSessions() > 0, pool.toString());
        assertThrows(IllegalStateException.class, pool::borrow);
    }

    @Test
    void whoWaitsForAClosedPoolIsTold() throws Exception {
        KciSessionPool pool = pool(1, 1, 60_000, 60_000);
        KciSessionPool.Loan kept = pool.borrow();
        CompletableFuture<?> waiter = CompletableFuture.supplyAsync(pool::borrow);
        Thread.sleep(100);
        pool.close();
        waiter.handle((none, failure) -> assertInstanceOf(IllegalStateException.class, failure.getCause())).join();
        kept.close();
    }

    @Test
    void idleSessionsAreClosedDownToTheMinimum() throws Exception {
        try (KciSessionPool pool = pool(1, 5, 1000, 1000)) {
            Stream.generate(pool::borrow).limit(5).toList().forEach(KciSessionPool.Loan::close);
            assertEquals(5, pool.idleSessions());
            for (int i = 0; i < 100 && pool.idleSessions() > 1; ++i) {
                Thread.sleep(50);
            }
            assertEquals(1, pool.idleSessions());
        }
    }

    @Test
    void nobodyStarves() throws Exception {
        int borrowers = 24;
        int[] served = new int[borrowers];
        ExecutorService threads = Executors.newFixedThreadPool(borrowers);
        try (KciSessionPool pool = pool(0, 3, 30_000, 60_000)) {
            long end = System.nanoTime() + 1_500_000_000L;
            List<CompletableFuture<Void>> all = new ArrayList<>();
            for (int i = 0; i < borrowers; ++i) {
                int me = i;
                all.add(CompletableFuture.runAsync(() -> {
                    while (System.nanoTime() < end) {
                        pool.run(session -> session.execute("3 + 4"));
                        ++served[me];
                    }
                }, threads));
            }
            CompletableFuture.allOf(all.toArray(CompletableFuture[]::new)).get();
            IntSummaryStatistics rounds = IntStream.of(served).summaryStatistics();
            assertTrue(rounds.getMin() * 3 >= rounds.getMax(), rounds.toString());
            assertTrue(pool.idleSessions() <= 3);
        } finally {
            threads.shutdown();
        }
    }
}
