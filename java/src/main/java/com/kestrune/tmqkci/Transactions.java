package com.kestrune.tmqkci;

import java.util.concurrent.ThreadLocalRandom;
import java.util.concurrent.TimeUnit;
import java.util.concurrent.atomic.AtomicBoolean;
import java.util.concurrent.locks.LockSupport;
import java.util.function.Function;

/** A session's transactions. */
final class Transactions {
    private static final long ABORT_LIMIT_NANOS = TimeUnit.SECONDS.toNanos(10);
    private static final long FIRST_PAUSE_NANOS = 500_000;
    private static final int MOST_DOUBLINGS = 7;

    private final KciSession session;
    private final AtomicBoolean working = new AtomicBoolean();

    Transactions(KciSession session) {
        this.session = session;
    }

    void begin() {
        call("begin", TmqKciControl::_begin);
    }

    void commit() {
        long begin = System.nanoTime();
        if (call("commit", TmqKciControl::_commit) != TmqKciControl.COMMITTED) {
            KciMonitor.conflict(session, begin);
            throw new KciConflictException(session);
        }
    }

    void abort() {
        call("abort", TmqKciControl::_abort);
    }

    private interface Step {
        int call(int session, TmqKciException report);
    }

    private int call(String kind, Step step) {
        Object event = FlightEvents.beginTransaction();
        int error = 0;
        session.calls().enter();
        try {
            return session.calls().call(report -> step.call(session.id(), report));
        } catch (TmqKciException failure) {
            error = failure.number;
            throw failure;
        } finally {
            session.calls().leave();
            FlightEvents.end(event, session.id(), kind, error);
        }
    }

    /** Does work between begin and commit; once more, so many times at all, when that is refused. */
    <T> T run(int attempts, Function<KciSession, T> work) {
        if (attempts < 1) {
            throw new IllegalArgumentException(attempts + " attempts: must be one at least");
        }
        if (!working.compareAndSet(false, true)) {
            throw new IllegalStateException(session
                    + " is inside of inTransaction already: its transaction would be lost");
        }
        try {
            for (int attempt = 1;; ++attempt) {
                try {
                    return runOnce(work);
                } catch (KciConflictException conflict) {
                    if (attempt >= attempts) {
                        throw conflict;
                    }
                    long pause = FIRST_PAUSE_NANOS << Math.min(attempt, MOST_DOUBLINGS);
                    LockSupport.parkNanos(this, ThreadLocalRandom.current().nextLong(pause));
                }
            }
        } finally {
            working.set(false);
        }
    }

    private <T> T runOnce(Function<KciSession, T> work) {
        begin();
        try {
            T result = work.apply(session);
            commit();
            return result;
        } catch (Throwable failure) {
            abortAfter(failure);
            throw failure;
        }
    }

    /** Leaves no changes behind that a later commit would take for its own; also where the thread was interrupted. */
    private void abortAfter(Throwable failure) {
        boolean interrupted = Thread.interrupted();
        try {
            session.calls().withLimit(ABORT_LIMIT_NANOS, () -> {
                abort();
                return null;
            });
        } catch (RuntimeException second) {
            failure.addSuppressed(second);
        } finally {
            if (interrupted) {
                Thread.currentThread().interrupt();
            }
        }
    }
}
