package com.kestrune.tmqkci;

import java.util.concurrent.TimeUnit;
import java.util.concurrent.atomic.AtomicInteger;
import java.util.concurrent.locks.LockSupport;
import java.util.concurrent.locks.ReentrantLock;

/**
 * How a session ends: by its closing, by an error, or given up, when its closing has waited in vain. One that was given
 * up is logged out by a thread of its own, as soon as its call has ended.
 */
final class SessionEnd {
    private static final long INTERRUPTED_GRACE_NANOS = 1_000_000_000;
    /** Between two questions whether the call of a session that was given up has ended. */
    private static final long FIRST_PAUSE_NANOS = 1_000_000;
    private static final long LONGEST_PAUSE_NANOS = 1_000_000_000;

    private final KciSession session;
    private final SessionCalls calls;
    private final ReentrantLock turn;

    /** How many threads are closing the session, and until when the last of them can wait for its calls. */
    private final AtomicInteger closers = new AtomicInteger();
    private volatile long closedUntil;

    // Written inside of this object's monitor.
    /** Why the session cannot be used any more; null while it can. */
    private volatile String reason;
    /** Whether it was closed without a logout, which is to be made up for. */
    private volatile boolean givenUp;
    private boolean loggingOut;

    /** Of a session whose calls take that turn. */
    SessionEnd(KciSession session, SessionCalls calls, ReentrantLock turn) {
        this.session = session;
        this.calls = calls;
        this.turn = turn;
    }

    boolean isReached() {
        return reason != null;
    }

    boolean isNear() {
        return closers.get() > 0;
    }

    /** How much time a call has that shall not go on: until the session is closed, or else this. */
    long remainingNanos(long otherwise) {
        return isNear() ? Math.max(0, closedUntil - System.nanoTime()) : otherwise;
    }

    /** Refuses calls of a session that has ended, or is about to. */
    void refuseCalls() {
        String why = isNear() ? "is being closed" : reason;
        if (why != null) {
            throw new IllegalStateException(session + " " + why);
        }
    }

    /** The session has ended: by an error or, when that is null, by its logout. With the turn held. */
    void reach(String why, TmqKciException error, long begin) {
        boolean isFirst;
        synchronized (this) {
            isFirst = reason == null || givenUp;
            reason = why;
            givenUp = false;
        }
        session.exports().close();
        if (isFirst) {
            KciMonitor.ended(session, error, begin);
        }
    }

    /**
     * Logs out, unless the session has ended before. Calls have most of the time to end by themselves, and are broken
     * off then. A session whose call does not end in time is given up; if this thread was interrupted, and it may, it
     * stays open.
     */
    void close(long nanos, boolean mayStayOpen) {
        SessionCalls.refuseHoldersOfTheLock();
        Deadline deadline = new Deadline(nanos);
        try {
            boolean entered = deadline.lock(turn, Math.min(2 * Stopping.PATIENCE_NANOS, nanos / 2));
            closedUntil = deadline.time();
            closers.incrementAndGet();
            try {
                String awaited = entered || deadline.lock(turn, 0) ? closeInTurn(deadline) : "the session's turn";
                if (awaited == null) {
                    return;
                }
                if (mayStayOpen && (deadline.wasInterrupted() || Thread.currentThread().isInterrupted())) {
                    throw KciInterruptedException.whileWaiting(awaited + "; the session stays open");
                }
                giveUp(awaited);
            } finally {
                closers.decrementAndGet();
            }
        } finally {
            deadline.restoreInterrupt();
        }
    }

    /** Gives the turn back. Answers what was waited for in vain; null if the session has ended. */
    private String closeInTurn(Deadline deadline) {
        try {
            if (!calls.endRunning()) {
                return "the end of the running call";
            }
            deadline.grant(Stopping.PATIENCE_NANOS);
            if (!deadline.lock(KciBridge.lock(), 0)) {
                return "the bridge's lock";
            }
            try {
                logOut();
            } finally {
                KciBridge.lock().unlock();
            }
            return null;
        } finally {
            calls.leave();
        }
    }

    private void logOut() {
        synchronized (this) {
            if (reason != null) {
                return;
            }
            loggingOut = true;
        }
        long begin = System.nanoTime();
        try {
            calls.logOut();
            reach("is closed", null, begin);
        } finally {
            synchronized (this) {
                loggingOut = false;
            }
        }
    }

    private void giveUp(String awaited) {
        synchronized (this) {
            if (reason != null || loggingOut) {
                return;
            }
            reason = "was closed while it was busy, and given up";
            givenUp = true;
        }
        session.exports().close();
        KciMonitor.LOG.log(System.Logger.Level.WARNING, "{0} was given up while its close waited for {1}", session,
                awaited);
        makeUp();
    }

    /** Has the session logged out if it was given up. To be called by whoever gave the turn back. */
    void makeUp() {
        // Who has the turn now comes here later.
        if (givenUp && turn.tryLock()) {
            try {
                if (takeOver()) {
                    // Neither a limit nor an interrupt of this thread may keep the server's session.
                    Thread thread = new Thread(this::logOutLate, session + ": logout");
                    thread.setDaemon(true);
                    thread.start();
                }
            } finally {
                turn.unlock();
            }
        }
    }

    private synchronized boolean takeOver() {
        boolean isMine = givenUp;
        givenUp = false;
        return isMine;
    }

    private void logOutLate() {
        long begin = System.nanoTime();
        Stopping stopping = new Stopping(session, begin, Stopping.Reason.CLOSING, 2 * Stopping.PATIENCE_NANOS);
        long pause = FIRST_PAUSE_NANOS;
        while (!logOutIfIdle(stopping, begin)) {
            LockSupport.parkNanos(this, pause);
            pause = Math.min(2 * pause, LONGEST_PAUSE_NANOS);
        }
    }

    private boolean logOutIfIdle(Stopping stopping, long begin) {
        turn.lock();
        KciBridge.lock().lock();
        try {
            if (!calls.endsAbandoned(stopping)) {
                return false;
            }
            TmqKciInterface._logout(session.id(), new TmqKciException());
            KciMonitor.ended(session, null, begin);
            return true;
        } finally {
            KciBridge.lock().unlock();
            turn.unlock();
        }
    }

    /** The end of a wait that an interrupt makes shorter, but does not end at once. */
    private static final class Deadline {
        private long time;
        private boolean interrupted = Thread.interrupted();

        Deadline(long nanos) {
            time = System.nanoTime() + (interrupted ? Math.min(nanos, INTERRUPTED_GRACE_NANOS) : nanos);
        }

        long time() {
            return time;
        }

        /** Makes it as far away as this at least. */
        void grant(long nanos) {
            time = Math.max(time, System.nanoTime() + nanos);
        }

        boolean wasInterrupted() {
            return interrupted;
        }

        /** Takes a lock before the end; sooner by what is kept, and then without waiting when interrupted. */
        boolean lock(ReentrantLock lock, long kept) {
            for (;;) {
                try {
                    return lock.tryLock(kept > 0 && interrupted ? 0 : time - kept - System.nanoTime(),
                            TimeUnit.NANOSECONDS);
                } catch (InterruptedException interrupt) {
                    interrupted = true;
                    time = Math.min(time, System.nanoTime() + INTERRUPTED_GRACE_NANOS);
                }
            }
        }

        void restoreInterrupt() {
            if (interrupted) {
                Thread.currentThread().interrupt();
            }
        }
    }
}
