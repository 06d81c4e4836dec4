package com.kestrune.tmqkci;

import java.lang.ref.WeakReference;
import java.time.Duration;
import java.util.ArrayDeque;
import java.util.ArrayList;
import java.util.Deque;
import java.util.LinkedHashSet;
import java.util.List;
import java.util.Objects;
import java.util.Set;
import java.util.concurrent.CompletableFuture;
import java.util.concurrent.Semaphore;
import java.util.concurrent.TimeUnit;
import java.util.function.Function;

/**
 * Sessions for many threads: each borrows one, alone with it until it gives it back.
 *
 * <pre>{@code
 * KciLoginOptions options = new KciLoginOptions().server("local").user("guest").passwordFrom(secrets::password);
 * try (KciSessionPool pool = new KciSessionPool(options, KciPoolOptions.DEFAULTS.withSize(2, 20))) {
 *     int seven = pool.run(session -> session.execute("3 + 4").intValue());
 * }
 * }</pre>
 *
 * <p>All methods are thread-safe. Borrowers are served in the order in which they came. A session is asked whether it
 * still lives before it is lent, in one exchange, and one that does not is replaced; when it comes back, what it has
 * not committed is aborted. Of the idle sessions the one that came back last is lent first, so that the others reach
 * their limit.
 *
 * @since 3.1.3
 */
public final class KciSessionPool implements AutoCloseable {
    /** How long a session that comes back has for its abort, and an idle one for its end. */
    private static final Duration PATIENCE = Duration.ofSeconds(5);

    private static final Set<String> OWN = Set.of(KciSessionPool.class.getName(), Loan.class.getName());

    private final KciLoginOptions login;
    private final KciBridgeOptions bridge;
    private final KciPoolOptions options;
    private final Semaphore permits;

    // Guarded by this. The latest session is the first.
    private final Deque<Idle> idle = new ArrayDeque<>();
    private final Set<Loan> loans = new LinkedHashSet<>();
    private boolean closed;
    private boolean watched;

    private record Idle(KciSession session, long since) {
    }

    /** A session that was lent; to be closed by its borrower, who must not use the session afterwards. Thread-safe. */
    public final class Loan implements AutoCloseable {
        private final KciSession session;
        private final String borrower;
        private final long since = System.nanoTime();

        private Loan(KciSession session) {
            this.session = session;
            borrower = "thread " + Thread.currentThread().getName() + " at " + StackWalker.getInstance().walk(
                    frames -> frames.filter(frame -> !OWN.contains(frame.getClassName())).findFirst()
                            .map(Object::toString).orElse("its begin"));
        }

        /**
         * Answers the session.
         *
         * @return the session
         * @throws IllegalStateException if it was given back
         */
        public KciSession session() {
            if (!isLent(this)) {
                throw new IllegalStateException(session + " was given back to its pool");
            }
            return session;
        }

        /**
         * Gives the session back, after aborting what it has not committed. One that cannot be used any more is closed.
         * A second time this does nothing.
         *
         * @throws IllegalStateException if the thread has the bridge's lock; nothing is given back then
         */
        @Override
        public void close() {
            SessionCalls.refuseHoldersOfTheLock();
            giveBack(this);
        }

        /** Tells session, borrower and time. */
        @Override
        public String toString() {
            return session + " was lent to " + borrower + ", "
                    + TimeUnit.NANOSECONDS.toMillis(System.nanoTime() - since) + " ms ago";
        }
    }

    /**
     * Makes a pool over a bridge that is initialized, or will be with {@link KciBridgeOptions#DEFAULTS}.
     *
     * @param login who logs in; passwords must be supplied, by {@link KciLoginOptions#passwordFrom}, for more than one
     *     session
     * @param options how many sessions
     * @throws TmqKciException if one of the first sessions cannot be opened
     * @throws KciInterruptedException if the thread was interrupted while it waited
     * @throws IllegalStateException if a password was overwritten by a login before
     * @throws UnsatisfiedLinkError if the native library cannot be loaded
     */
    public KciSessionPool(KciLoginOptions login, KciPoolOptions options) {
        this(login, null, options);
    }

    /**
     * Makes a pool.
     *
     * @param login who logs in; passwords must be supplied, by {@link KciLoginOptions#passwordFrom}, for more than one
     *     session
     * @param bridge how to initialize the bridge, or null (see {@link KciSession#login(KciLoginOptions,
     *     KciBridgeOptions)})
     * @param options how many sessions
     * @throws TmqKciException if one of the first sessions cannot be opened
     * @throws KciInterruptedException if the thread was interrupted while it waited
     * @throws IllegalStateException if a password was overwritten by a login before
     * @throws UnsatisfiedLinkError if the native library cannot be loaded
     */
    public KciSessionPool(KciLoginOptions login, KciBridgeOptions bridge, KciPoolOptions options) {
        this.login = Objects.requireNonNull(login, "login");
        this.bridge = bridge;
        this.options = options;
        permits = new Semaphore(options.maximum(), true);
        boolean complete = false;
        try {
            for (int i = 0; i < options.minimum(); ++i) {
                idle.push(new Idle(KciSession.login(login, bridge), System.nanoTime()));
            }
            complete = true;
        } finally {
            if (!complete) {
                close();
            }
        }
    }

    /**
     * Lends a session, waiting for one if all are lent.
     *
     * @return the loan
     * @throws KciException if none came back within the limit: the message tells who has borrowed them, and when
     * @throws TmqKciException if a session must be opened and cannot be
     * @throws KciInterruptedException if the thread was interrupted while it waited
     * @throws IllegalStateException if the pool is closed, or the thread holds {@link KciBridge#lock}
     */
    public Loan borrow() {
        SessionCalls.refuseHoldersOfTheLock();
        Object event = FlightEvents.beginPoolWait();
        int id = -1;
        boolean lent = false;
        waitForPermit();
        try {
            requireOpen();
            KciSession session = take();
            Loan loan = new Loan(session);
            id = session.id();
            lent = add(loan);
            if (!lent) {
                closeQuietly(session);
                requireOpen();
            }
            return loan;
        } finally {
            if (!lent) {
                permits.release();
            }
            FlightEvents.end(event, id, "pool", 0);
        }
    }

    /**
     * Lends a session for the time of some work.
     *
     * @param <T> what the work answers
     * @param work what is done with the session
     * @return what the work answers
     * @throws KciException as {@link #borrow}, and what the work throws
     * @throws IllegalStateException as {@link #borrow}
     */
    public <T> T run(Function<KciSession, T> work) {
        try (Loan loan = borrow()) {
            return work.apply(loan.session);
        }
    }

    /**
     * Answers what is lent, the oldest first: each tells who borrowed it, and when.
     *
     * @return the loans
     */
    public synchronized List<Loan> loans() {
        return List.copyOf(loans);
    }

    /**
     * Answers how many sessions wait to be lent.
     *
     * @return the number
     */
    public synchronized int idleSessions() {
        return idle.size();
    }

    /**
     * Closes idle sessions now; those that are lent when they come back. Who waits for one is told of that.
     *
     * @throws IllegalStateException if the thread has the bridge's lock; nothing is closed then
     */
    @Override
    public void close() {
        SessionCalls.refuseHoldersOfTheLock();
        List<Idle> last;
        synchronized (this) {
            if (closed) {
                return;
            }
            closed = true;
            last = List.copyOf(idle);
            idle.clear();
        }
        last.forEach(each -> closeQuietly(each.session));
        // Nobody needs to wait any more: all who do are refused.
        permits.release(Integer.MAX_VALUE / 2);
    }

    private void waitForPermit() {
        try {
            if (permits.tryAcquire(options.waitLimit().toNanos(), TimeUnit.NANOSECONDS)) {
                return;
            }
        } catch (InterruptedException interrupt) {
            throw KciInterruptedException.whileWaiting("a session of the pool");
        }
        StringBuilder report = new StringBuilder("no session of the pool came back within ")
                .append(options.waitLimit());
        loans().forEach(loan -> report.append("\n  ").append(loan));
        throw new KciException(report.toString());
    }

    /** An idle session that lives, or a new one. */
    private KciSession take() {
        for (;;) {
            Idle candidate;
            synchronized (this) {
                candidate = idle.poll();
            }
            if (candidate == null) {
                return KciSession.login(login, bridge);
            }
            try {
                // Someone who has given it back may use it still.
                if (!candidate.session.calls().isBusy()) {
                    candidate.session.ping();
                    return candidate.session;
                }
                closeQuietly(candidate.session);
            } catch (KciInterruptedException interrupt) {
                closeQuietly(candidate.session);
                throw interrupt;
            } catch (KciException | IllegalStateException dead) {
                closeQuietly(candidate.session);
            }
        }
    }

    private synchronized boolean add(Loan loan) {
        return !closed && loans.add(loan);
    }

    private synchronized boolean isLent(Loan loan) {
        return loans.contains(loan);
    }

    private synchronized void requireOpen() {
        if (closed) {
            throw new IllegalStateException("the pool is closed");
        }
    }

    private void giveBack(Loan loan) {
        synchronized (this) {
            if (!loans.remove(loan)) {
                return;
            }
        }
        try {
            if (!isClean(loan.session) || !keep(loan.session)) {
                closeQuietly(loan.session);
            }
        } finally {
            permits.release();
        }
    }

    /** Whether the session has nothing of its borrower left, and can be lent again. */
    private static boolean isClean(KciSession session) {
        try {
            if (session.isOpen()) {
                session.withCallTimeout(PATIENCE, () -> {
                    session.reset();
                    return null;
                });
                return true;
            }
        } catch (KciException | IllegalStateException unusable) {
            // It is closed, and another one opened when it is needed.
        }
        return false;
    }

    private synchronized boolean keep(KciSession session) {
        if (closed) {
            return false;
        }
        idle.push(new Idle(session, System.nanoTime()));
        watch();
        return true;
    }

    /** Looks after idle sessions again when the next could be over its limit. A pool that nobody knows is forgotten. */
    private void watch() {
        if (!watched && loans.size() + idle.size() > options.minimum()) {
            watched = true;
            WeakReference<KciSessionPool> pool = new WeakReference<>(this);
            CompletableFuture.delayedExecutor(options.idleLimit().toNanos() + 1, TimeUnit.NANOSECONDS).execute(() -> {
                KciSessionPool known = pool.get();
                if (known != null) {
                    known.retire();
                }
            });
        }
    }

    private void retire() {
        List<KciSession> retired = new ArrayList<>();
        synchronized (this) {
            watched = false;
            long now = System.nanoTime();
            while (!idle.isEmpty() && loans.size() + idle.size() > options.minimum()
                    && now - idle.peekLast().since >= options.idleLimit().toNanos()) {
                retired.add(idle.pollLast().session);
            }
            if (!idle.isEmpty()) {
                watch();
            }
        }
        retired.forEach(KciSessionPool::closeQuietly);
    }

    private static void closeQuietly(KciSession session) {
        try {
            // Nobody else will close it: it is given up rather than left open.
            session.calls().end().close(PATIENCE.toNanos(), false);
        } catch (KciException | IllegalStateException unusable) {
            KciMonitor.LOG.log(System.Logger.Level.DEBUG, () -> session + " could not be closed by its pool");
        }
    }

    /** Tells how many sessions there are. */
    @Override
    public synchronized String toString() {
        return "pool of " + login + ": " + loans.size() + " lent, " + idle.size() + " idle, " + options.maximum()
                + " at most";
    }
}
