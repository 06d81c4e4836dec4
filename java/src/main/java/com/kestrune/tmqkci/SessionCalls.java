package com.kestrune.tmqkci;

import com.kestrune.tmqkci.KciInterruptedException.Outcome;

import java.time.Duration;
import java.util.concurrent.TimeUnit;
import java.util.concurrent.locks.LockSupport;
import java.util.concurrent.locks.ReentrantLock;
import java.util.function.BooleanSupplier;
import java.util.function.Supplier;

/**
 * The order of a session's calls. A thread that has entered is alone with the session; inside, it takes the bridge's
 * lock for each native call, but not while it waits for a result.
 *
 * <p>A call that shall not go on is broken off by the thread that polls for its end. One that goes on in spite of that
 * is abandoned: the session is still busy with it, and the next to enter polls it to its end and releases its answer.
 */
final class SessionCalls {
    /** A native call that ends with its return. */
    @FunctionalInterface
    interface Native {
        int call(TmqKciException report);
    }

    private static final int TIGHT_POLLS = 64;
    private static final long FIRST_PAUSE_NANOS = 1_000;
    private static final long LONGEST_PAUSE_NANOS = 1_000_000;
    private static final long FOR_EVER = Long.MAX_VALUE / 2;
    private static final int LARGEST_BATCH = 4096;

    /** A thread's own limit for the calls of a session, and what it had before. */
    private record Limit(SessionCalls calls, long nanos, Limit former) {
    }

    private static final ThreadLocal<Limit> LIMITS = new ThreadLocal<>();

    private final KciSession session;
    private final int id;
    private final ExportSet exports;
    private final ReentrantLock turn = new ReentrantLock(true);
    private final SessionEnd end;

    // Guarded by the turn.
    private final TmqKciException report = new TmqKciException();
    private final long[] batch;
    private Arguments arguments;
    private boolean running;
    /** Whether whoever has the turn has made a native call, and when it began to wait for one. */
    private boolean begun;
    private long begunAt;
    /** How long whoever has the turn may take, and until when; no limit: 0. */
    private long limit;
    private long deadline;

    /** The limit of a call, in nanoseconds, for threads without one of their own; none: 0. */
    private final long commonLimit;
    /** Whether the call of whoever has the turn shall be broken off. */
    private volatile boolean stopWanted;

    SessionCalls(KciSession session, int id, ExportSet exports, int maxReferences, long limit) {
        this.session = session;
        this.id = id;
        this.exports = exports;
        commonLimit = limit;
        end = new SessionEnd(session, this, turn);
        batch = new long[Math.min(maxReferences, LARGEST_BATCH)];
    }

    /** A limit in nanoseconds; 0 for null, which means none. */
    static long nanos(Duration limit) {
        if (limit == null) {
            return 0;
        }
        if (limit.isZero() || limit.isNegative()) {
            throw new IllegalArgumentException("the limit " + limit + " is not above zero; null stands for none");
        }
        return limit.compareTo(Duration.ofNanos(FOR_EVER)) < 0 ? limit.toNanos() : FOR_EVER;
    }

    /** The limit of this thread's calls. */
    long limit() {
        Limit own = LIMITS.get();
        while (own != null && own.calls != this) {
            own = own.former;
        }
        return own == null ? commonLimit : own.nanos;
    }

    /** Does something with another limit of this thread's calls. */
    <T> T withLimit(long nanos, Supplier<T> work) {
        Limit former = LIMITS.get();
        LIMITS.set(new Limit(this, nanos, former));
        try {
            return work.get();
        } finally {
            if (former == null) {
                LIMITS.remove();
            } else {
                LIMITS.set(former);
            }
        }
    }

    SessionEnd end() {
        return end;
    }

    /** Whether a call would have to wait for another one; as of now. */
    boolean isBusy() {
        // Who saw the turn free sees what its last holder wrote.
        return turn.isLocked() && !turn.isHeldByCurrentThread() || running;
    }

    /** Waits until the session is free. To be followed by {@link #leave}. */
    void enter() {
        enter(limit());
    }

    /** Waits until the session is free, for a call with this limit. To be followed by {@link #leave}. */
    void enter(long callLimit) {
        refuseHoldersOfTheLock();
        long begin = callLimit == 0 ? 0 : System.nanoTime();
        try {
            if (callLimit == 0) {
                turn.lockInterruptibly();
            } else if (!turn.tryLock(callLimit, TimeUnit.NANOSECONDS)) {
                throw Stopping.Reason.LATE.failure(Outcome.NOT_BEGUN);
            }
        } catch (InterruptedException interrupt) {
            throw KciInterruptedException.whileWaiting("the session's turn");
        }
        boolean entered = false;
        try {
            if (turn.getHoldCount() == 1) {
                limit = callLimit;
                deadline = begin + callLimit;
                stopWanted = false;
                begun = false;
            }
            end.refuseCalls();
            if (running) {
                finishAbandoned();
                end.refuseCalls();
            }
            entered = true;
        } finally {
            if (!entered) {
                leave();
            }
        }
    }

    void leave() {
        turn.unlock();
        if (!turn.isHeldByCurrentThread()) {
            end.makeUp();
        }
    }

    /** Has the running call broken off, if there is one. */
    void interrupt() {
        stopWanted = true;
    }

    /** Takes the bridge's lock for a native call, unless the calls of this turn shall go no further. */
    private void acquire() {
        if (stopWanted || end.isNear()) {
            throw stopped(end.isNear() ? Stopping.Reason.CLOSING : Stopping.Reason.CALL_INTERRUPTED);
        }
        try {
            if (limit == 0) {
                KciBridge.lock().lockInterruptibly();
            } else if (!KciBridge.lock().tryLock(Math.max(0, deadline - System.nanoTime()), TimeUnit.NANOSECONDS)) {
                throw stopped(Stopping.Reason.LATE);
            }
        } catch (InterruptedException interrupt) {
            Thread.currentThread().interrupt();
            throw stopped(Stopping.Reason.THREAD_INTERRUPTED);
        }
        begun = true;
    }

    /** For a turn that ends between two native calls, or before the first. */
    private KciInterruptedException stopped(Stopping.Reason reason) {
        return reason.failure(begun ? Outcome.STOPPED : Outcome.NOT_BEGUN);
    }

    /** Makes a native call that ends with its return; answers its status. Inside {@link #enter} and {@link #leave}. */
    int call(Native call) {
        acquire();
        try {
            sendReleases();
            return check(call.call(emptyReport()));
        } finally {
            KciBridge.lock().unlock();
        }
    }

    /**
     * Makes the server run code and waits for the result: source text when there are no arguments, the source in the
     * receiver when there is no text, and else a message. Inside {@link #enter} and {@link #leave}.
     *
     * @param abandoned whether the result is no longer wanted, or null
     * @return the result, counted as a reference; null if it was no longer wanted
     */
    TmqKciReport run(String text, Arguments args, BooleanSupplier abandoned) {
        return run(error -> args == null ? TmqKciInterface._executeStr(id, text, error)
                : text == null ? TmqKciInterface._executeObj(id, args.receiver, error)
                : TmqKciInterface._perform(id, args.receiver, text, args.reports, args.reports.length, error),
                text, args, abandoned);
    }

    /** The same for another native call that starts something; null also when its status tells that it did not. */
    TmqKciReport run(Native start, String text, Arguments args, BooleanSupplier abandoned) {
        Object event = FlightEvents.beginCall();
        if (event == null) {
            return answer(start, text, args, abandoned);
        }
        int error = 0;
        try {
            return answer(start, text, args, abandoned);
        } catch (TmqKciException failure) {
            error = failure.number;
            throw failure;
        } finally {
            FlightEvents.end(event, id, args == null || text == null ? "execute" : text, error);
        }
    }

    private TmqKciReport answer(Native start, String text, Arguments args, BooleanSupplier abandoned) {
        arguments = args;
        TmqKciReport result = new TmqKciReport();
        try {
            if (abandoned != null && abandoned.getAsBoolean()) {
                return null;
            }
            acquire();
            try {
                sendReleases();
                if (!start(start, args)) {
                    return null;
                }
                if (poll(result)) {
                    return result;
                }
            } finally {
                KciBridge.lock().unlock();
            }
        } finally {
            if (!running) {
                releaseArguments();
            }
        }
        // Only what does not end at once can be slow.
        begunAt = System.nanoTime();
        int error = 0;
        try {
            return finish(result, abandoned) ? result : null;
        } catch (TmqKciException failure) {
            error = failure.number;
            throw failure;
        } finally {
            KciMonitor.waited(session, text, error, begunAt);
        }
    }

    private boolean start(Native start, Arguments args) {
        int status = TmqKciInterface.FAILED;
        try {
            status = start.call(emptyReport());
        } finally {
            if (args != null) {
                args.retainCreated(exports);
            }
        }
        running = check(status) == 0;
        if (running) {
            KciMonitor.callBegan();
        }
        return running;
    }

    /** Asks for the result once, with the bridge's lock held; answers whether the call has ended. */
    private boolean poll(TmqKciReport result) {
        // Whatever else happens, an error of the virtual machine included, ends the call.
        running = false;
        int status = TmqKciInterface.FAILED;
        try {
            status = TmqKciInterface._nbEnd(id, result, emptyReport());
            running = status == TmqKciInterface.NOT_READY;
            if (status == 0) {
                exports.retain(result.oop);
            }
        } finally {
            if (!running) {
                releaseArguments();
            }
        }
        check(status);
        return !running;
    }

    private void releaseArguments() {
        if (arguments != null) {
            arguments.releaseCreated(exports);
            arguments = null;
        }
    }

    /** Waits for the end of the call; answers whether its result is wanted. */
    private boolean finish(TmqKciReport result, BooleanSupplier abandoned) {
        try {
            boolean ended = await(result, abandoned, true);
            if (abandoned == null || !abandoned.getAsBoolean()) {
                return ended;
            }
            if (ended) {
                exports.release(result.oop);
            }
        } catch (TmqKciException failure) {
            if (abandoned == null || !abandoned.getAsBoolean()) {
                throw failure;
            }
            failure.releaseProcess();
        }
        return false;
    }

    /** Polls an abandoned call to its end, and gives up what it answers. Not to be broken off once more. */
    private void finishAbandoned() {
        TmqKciReport result = new TmqKciReport();
        try {
            await(result, null, false);
            exports.release(result.oop);
        } catch (TmqKciException failure) {
            // Nobody waits for it any more.
            failure.releaseProcess();
        }
    }

    /** Why the one who has the turn shall not wait any longer; null if it shall. */
    private Stopping.Reason reasonToStop(BooleanSupplier abandoned, boolean interrupted) {
        return interrupted ? Stopping.Reason.THREAD_INTERRUPTED
                : abandoned != null && abandoned.getAsBoolean() ? Stopping.Reason.ABANDONED
                : end.isNear() || end.isReached() ? Stopping.Reason.CLOSING
                : stopWanted ? Stopping.Reason.CALL_INTERRUPTED
                : limit != 0 && System.nanoTime() - deadline >= 0 ? Stopping.Reason.LATE : null;
    }

    /**
     * Polls until the call has ended; answers true. One that shall not go on is broken off if it is this thread's own.
     * When the server goes on with it, or if it is not, it is left with an exception.
     */
    private boolean await(TmqKciReport result, BooleanSupplier abandoned, boolean own) {
        long pause = FIRST_PAUSE_NANOS;
        Stopping stopping = null;
        boolean interrupted = false;
        try {
            for (int polls = 1;; ++polls) {
                boolean again = Thread.interrupted();
                interrupted |= again;
                if (stopping == null) {
                    Stopping.Reason reason = reasonToStop(abandoned, again);
                    if (reason != null && !own) {
                        throw reason.failure(Outcome.NOT_BEGUN);
                    }
                    stopping = reason == null ? null : new Stopping(session, begunAt, reason,
                            end.remainingNanos(2 * Stopping.PATIENCE_NANOS));
                } else if (again && stopping.isSent() || stopping.remainingNanos() == 0) {
                    // Never before the break is sent: nobody else would send it.
                    throw stopping.failure(Outcome.STILL_RUNNING);
                }
                long spent = pollInTurn(result, stopping);
                if (!running) {
                    return true;
                }
                if (spent >= pause) {
                    // The poll itself took its time: the server works inside this process, and waits for no one else.
                    pause = FIRST_PAUSE_NANOS;
                } else if (polls < TIGHT_POLLS) {
                    Thread.onSpinWait();
                } else {
                    LockSupport.parkNanos(this, pause);
                    pause = Math.min(2 * pause, LONGEST_PAUSE_NANOS);
                }
            }
        } catch (TmqKciException failure) {
            if (stopping == null || !Stopping.isAnswer(failure)) {
                throw failure;
            }
            failure.releaseProcess();
            throw stopping.failure(Outcome.STOPPED);
        } finally {
            if (interrupted) {
                Thread.currentThread().interrupt();
            }
        }
    }

    /** Takes the bridge's lock, sends the break that is due, and polls once; answers how long that took. */
    private long pollInTurn(TmqKciReport result, Stopping stopping) {
        try {
            long patience = stopping != null ? stopping.isSent() ? stopping.remainingNanos() : Stopping.PATIENCE_NANOS
                    : limit != 0 ? deadline - System.nanoTime() : FOR_EVER;
            if (!KciBridge.lock().tryLock(patience, TimeUnit.NANOSECONDS)) {
                return 0;
            }
        } catch (InterruptedException interrupt) {
            Thread.currentThread().interrupt();
            return 0;
        }
        try {
            if (stopping != null) {
                stopping.sendBreak();
            }
            long begin = System.nanoTime();
            poll(result);
            return System.nanoTime() - begin;
        } finally {
            KciBridge.lock().unlock();
        }
    }

    /** Gives up what nobody refers to any more, with the bridge's lock held. */
    private void sendReleases() {
        while (exports.hasQueued()) {
            int count = exports.take(batch);
            if (count == 0) {
                continue;
            }
            int status = TmqKciInterface._releaseOops(id, batch, count, emptyReport());
            if (status < 0) {
                if (report.fatal) {
                    throw failure(status);
                }
                // It concerns nothing that the caller asked for; the server keeps the objects until the logout.
                KciMonitor.LOG.log(System.Logger.Level.WARNING, session + ": " + count
                        + " objects were not released, error " + report.number);
            }
        }
    }

    /** What a call failed with before must not pass for the failure of the next. */
    private TmqKciException emptyReport() {
        report.clear();
        return report;
    }

    private int check(int status) {
        if (status < 0) {
            throw failure(status);
        }
        return status;
    }

    private TmqKciException failure(int status) {
        TmqKciException failure = KciBridge.failure(status, report);
        KciMonitor.failed();
        KciProcess process = null;
        if (ExportSet.holds(failure.context)) {
            exports.retain(failure.context);
            process = new KciProcess(new KciObject(session, failure.context, null));
        }
        if (failure.fatal) {
            running = false;
            end.reach("was ended by error " + failure.number + ": " + failure.getMessage(), failure, System.nanoTime());
        }
        return failure.from(session, process);
    }

    /** Breaks off the call of a session that is being closed; answers whether none runs any more. */
    boolean endRunning() {
        if (running) {
            TmqKciReport result = new TmqKciReport();
            try {
                await(result, null, true);
                exports.release(result.oop);
            } catch (KciInterruptedException stopped) {
                return !running;
            } catch (TmqKciException failure) {
                failure.releaseProcess();
            }
        }
        return true;
    }

    /** Polls once for the end of a call that nobody waits for; answers whether none runs. With the bridge's lock. */
    boolean endsAbandoned(Stopping stopping) {
        if (running) {
            try {
                stopping.sendBreak();
                poll(new TmqKciReport());
            } catch (TmqKciException failure) {
                failure.releaseProcess();
            }
        }
        return !running;
    }

    /** With the bridge's lock held. */
    void logOut() {
        check(TmqKciInterface._logout(id, emptyReport()));
    }

    static void refuseHoldersOfTheLock() {
        if (KciBridge.lock().isHeldByCurrentThread()) {
            throw new IllegalStateException("a thread that holds the bridge's lock cannot call a session");
        }
    }
}
