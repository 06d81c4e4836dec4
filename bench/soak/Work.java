import com.kestrune.tmqkci.KciBridgeOptions;
import com.kestrune.tmqkci.KciConflictException;
import com.kestrune.tmqkci.KciErrorNumber;
import com.kestrune.tmqkci.KciException;
import com.kestrune.tmqkci.KciInterruptedException;
import com.kestrune.tmqkci.KciLoginOptions;
import com.kestrune.tmqkci.KciObject;
import com.kestrune.tmqkci.KciPoolOptions;
import com.kestrune.tmqkci.KciSession;
import com.kestrune.tmqkci.KciSessionPool;
import com.kestrune.tmqkci.TmqKciException;

import java.time.Duration;
import java.util.ArrayList;
import java.util.List;
import java.util.Map;
import java.util.concurrent.CompletableFuture;
import java.util.concurrent.ConcurrentHashMap;
import java.util.concurrent.ExecutionException;
import java.util.concurrent.ThreadLocalRandom;
import java.util.concurrent.TimeUnit;
import java.util.concurrent.atomic.LongAdder;
import java.util.concurrent.locks.LockSupport;
import java.util.function.Consumer;

/** What the threads of the soak do with sessions: steps that are chosen at random, and what may come of them. */
final class Work {
    static final int POOLED = 5;
    static final int PLAIN = 3;
    /** The limit of all calls; none may come near it. */
    private static final Duration LIMIT = Duration.ofSeconds(30);
    private static final long NEAR_NANOS = Duration.ofSeconds(20).toNanos();
    /** How long after its host's end a session may be found lost. */
    private static final long NOTICE_NANOS = Duration.ofSeconds(60).toNanos();

    private static final String ENDLESS = "[true] whileTrue: []";
    /** Two counters in the shared objects of a new host, which gets a number to be known by. */
    private static final String COUNTERS = "Shared at: #host ifAbsent: [Shared at: #counts put: {0. 0}. "
            + "Shared at: #host put: %d. %1$d]";

    final KciSessionPool pool = new KciSessionPool(options(), KciPoolOptions.DEFAULTS.withSize(1, POOLED)
            .withLimits(LIMIT, Duration.ofMillis(500)));
    final LongAdder steps = new LongAdder();
    final LongAdder stops = new LongAdder();
    final LongAdder retries = new LongAdder();
    volatile long lastKill = System.nanoTime();

    private final List<Plain> plain = new ArrayList<>();
    /** How many commits each host has seen. */
    private final Map<Integer, LongAdder> committed = new ConcurrentHashMap<>();

    /** A session that threads share, and whoever finds it closed opens again. */
    private static final class Plain {
        private KciSession session = KciSession.login(options());

        synchronized KciSession open() {
            if (!session.isOpen()) {
                session = KciSession.login(options());
            }
            return session;
        }

        synchronized KciSession current() {
            return session;
        }
    }

    Work() {
        for (int i = 0; i < PLAIN; ++i) {
            plain.add(new Plain());
        }
    }

    static KciLoginOptions options() {
        return new KciLoginOptions().server("local").user("guest").passwordFrom("guest"::toCharArray)
                .callTimeout(LIMIT);
    }

    private static int random(int bound) {
        return ThreadLocalRandom.current().nextInt(bound);
    }

    private static void require(boolean right, String what) {
        if (!right) {
            throw new AssertionError(what);
        }
    }

    /** One step; throws an AssertionError when it comes to what must not happen. */
    void step(Consumer<Thread> interruptSoon) {
        long begin = System.nanoTime();
        try {
            if (random(4) == 0) {
                interruptSoon.accept(Thread.currentThread());
            }
            if (random(3) == 0) {
                withLimits(plain.get(random(PLAIN)).open(), this::shared);
            } else {
                try (KciSessionPool.Loan loan = pool.borrow()) {
                    withLimits(loan.session(), random(3) == 0 ? this::transaction : this::shared);
                }
            }
        } catch (KciInterruptedException stopped) {
            stops.increment();
            require(System.nanoTime() - begin < NEAR_NANOS, "no call ended before " + stopped);
        } catch (KciConflictException conflict) {
            // Counted by the monitor.
        } catch (TmqKciException error) {
            boolean isLoss = error.number == KciErrorNumber.CONNECTION_LOST
                    || error.number == KciErrorNumber.SESSION_ENDED;
            if (!isLoss || System.nanoTime() - lastKill > NOTICE_NANOS) {
                throw new AssertionError("an error that was not to come: " + error, error);
            }
        } catch (IllegalStateException closed) {
            // Another thread has closed a shared session, or is inside of a transaction of it.
            require(closed.getMessage().startsWith("session "), closed.toString());
        }
        steps.increment();
    }

    private void withLimits(KciSession session, Consumer<KciSession> work) {
        if (random(3) == 0) {
            session.withCallTimeout(Duration.ofNanos(1 + random(30_000_000)), () -> {
                work.accept(session);
                return null;
            });
        } else {
            work.accept(session);
        }
    }

    private void shared(KciSession session) {
        switch (random(11)) {
            case 0 -> values(session);
            case 1 -> bulk(session);
            case 2 -> late(session);
            case 3 -> futures(session);
            case 4 -> error(session);
            case 5 -> slices(session);
            case 6 -> session.interrupt();
            case 7 -> session.inTransaction(1 + random(3),
                    each -> each.execute("Shared at: #noise put: " + random(100)));
            case 8 -> {
                if (random(10) == 0) {
                    session.withCallTimeout(Duration.ofSeconds(1), () -> session.executeAsync(ENDLESS));
                    session.close(Duration.ofMillis(random(100)));
                }
            }
            case 9 -> session.executeAsync("System waitMilliseconds: " + random(20));
            default -> require(session.execute("[:a :b | a + b]", 3, 4).intValue() == 7, "3 + 4");
        }
    }

    /** Changes the shared counters by reading and writing, so that a commit that overlooks another one loses count. */
    private void transaction(KciSession session) {
        int index = 1 + random(2);
        int[] attempts = {0};
        try {
            int host = session.inTransaction(1 + random(10), each -> {
                ++attempts[0];
                int number = each.execute(String.format(COUNTERS, random(1 << 29))).intValue();
                int count = each.execute("(Shared at: #counts) at: " + index).intValue();
                if (random(4) == 0) {
                    LockSupport.parkNanos(random(2_000_000));
                }
                each.execute("(Shared at: #counts) at: " + index + " put: " + (count + 1));
                return number;
            });
            committed.computeIfAbsent(host, any -> new LongAdder()).increment();
        } finally {
            retries.add(Math.max(0, attempts[0] - 1));
        }
    }

    private static void values(KciSession session) {
        // No wider characters: the bridge releases these in a way that a checking virtual machine refuses.
        String text = "text \u00e9 " + random(1000);
        KciObject made = session.create(text);
        require(session.fetchString(made).equals(text), text);
        require(session.send(made, "size").intValue() == text.length(), "its size");
        if (random(2) == 0) {
            made.release();
        }
        Map<String, List<Integer>> map = Map.of("a", List.of(1, 2), "b", List.of());
        require(session.create(map).as(Map.class).equals(map), "a map");
    }

    private static KciObject rowClass(KciSession session) {
        try {
            return session.execute("Row");
        } catch (TmqKciException unknown) {
            if (unknown.number != KciErrorNumber.UNKNOWN_NAME) {
                throw unknown;
            }
            return session.execute("Object subclass: #Row variables: #(#x #y)");
        }
    }

    private static void bulk(KciSession session) {
        KciObject row = rowClass(session);
        int count = 1 + random(3000);
        List<List<Integer>> rows = new ArrayList<>();
        for (int i = 0; i < count; ++i) {
            rows.add(List.of(i, -i));
        }
        List<KciObject> made = session.createAll(row, rows);
        List<List<KciObject>> read = session.fetchAll(made);
        require(read.size() == count && read.get(count - 1).get(1).intValue() == 1 - count, "rows");
        require(session.sendAll(made.subList(0, 1), "class").get(0).oop() == row.oop(), "their class");
    }

    private static void late(KciSession session) {
        session.withCallTimeout(Duration.ofMillis(1 + random(20)), () -> session.execute(ENDLESS));
    }

    /** Futures that are cancelled, too late, or left to the session's next user. */
    private void futures(KciSession session) {
        CompletableFuture<KciObject> call = session.executeAsync(ENDLESS);
        CompletableFuture<KciObject> next = session.sendAsync(20, "+", 1);
        LockSupport.parkNanos(random(10_000_000));
        switch (random(3)) {
            case 0 -> call.cancel(true);
            case 1 -> call.orTimeout(1 + random(20), TimeUnit.MILLISECONDS);
            default -> {
                session.interrupt();
                // It may not have begun yet.
                call.orTimeout(100, TimeUnit.MILLISECONDS);
            }
        }
        try {
            require(next.get(LIMIT.toSeconds(), TimeUnit.SECONDS).intValue() == 21, "20 + 1");
            stops.increment();
        } catch (ExecutionException failure) {
            // As the same call fails in this thread.
            if (failure.getCause() instanceof RuntimeException cause) {
                throw cause;
            }
            throw new AssertionError(failure);
        } catch (java.util.concurrent.CancellationException reset) {
            // The next borrower.
        } catch (InterruptedException interrupt) {
            call.cancel(true);
            next.cancel(true);
        } catch (java.util.concurrent.TimeoutException never) {
            throw new AssertionError("a future did not end", never);
        }
    }

    private static void error(KciSession session) {
        try {
            session.execute("(nil foo: 3) + 1");
            require(false, "nil understands foo:");
        } catch (TmqKciException error) {
            if (error.number != KciErrorNumber.DOES_NOT_UNDERSTAND) {
                throw error;
            }
            require(error.process().continueWith(41).intValue() == 42, "41 + 1");
        }
    }

    private static void slices(KciSession session) {
        int count = 1 + random(20_000);
        KciObject numbers = session.execute("(1 to: " + count + ") collect: [:i | Array new: 1]");
        List<KciObject> elements = session.fetchElements(numbers);
        require(elements.size() == count, "elements");
        if (random(2) == 0) {
            elements.forEach(KciObject::release);
        }
        require(session.elements(numbers).limit(10).count() == Math.min(10, count), "a stream's elements");
        session.changedObjects().limit(10).forEach(object -> { });
    }

    /** How many sessions the program knows to be open, while nothing runs. */
    int openSessions() {
        return pool.idleSessions() + (int) plain.stream().filter(each -> each.current().isOpen()).count();
    }

    /** What is wrong while nothing runs; null if nothing is. */
    String wrongCounts() {
        if (!pool.loans().isEmpty() || pool.idleSessions() > POOLED) {
            return "nobody borrows, and yet: " + pool;
        }
        try (KciSession session = KciSession.login(options())) {
            int host = session.execute("Shared at: #host ifAbsent: [0]").intValue();
            int counted = host == 0 ? 0 : session.execute("(Shared at: #counts) sum").intValue();
            long expected = committed.getOrDefault(host, new LongAdder()).sum();
            return counted == expected ? null : expected + " commits have counted to " + counted;
        } catch (TmqKciException lost) {
            return lost.toString();
        }
    }

    /** How many objects the store keeps when the sessions have given up what this process forgot. */
    int storedObjects() {
        for (;;) {
            try (KciSessionPool.Loan loan = pool.borrow()) {
                plain.forEach(each -> each.open().execute("nil"));
                return loan.session().execute("System collectGarbage. System objectCount").intValue();
            } catch (TmqKciException lost) {
                // Each is lost once.
                if (!lost.fatal) {
                    throw lost;
                }
            }
        }
    }

    /** Closes all, and then opens as many sessions as the store allows; answers what is wrong with that, or null. */
    String end(int allowed) {
        pool.close();
        plain.forEach(each -> each.current().close());
        List<KciSession> all = new ArrayList<>();
        try {
            for (;;) {
                all.add(KciSession.login(options(), (KciBridgeOptions) null));
            }
        } catch (TmqKciException full) {
            return all.size() == allowed ? null : all.size() + " sessions of " + allowed + " could be opened: " + full;
        } finally {
            all.forEach(KciSession::close);
        }
    }
}
