package com.kestrune.tmqkci;

import java.util.concurrent.TimeUnit;
import java.util.concurrent.locks.LockSupport;
import java.util.concurrent.locks.ReentrantLock;
import java.util.function.BooleanSupplier;

/**
 * The order of a session's calls. A thread that has entered is alone with the session; inside, it takes the bridge's
 * lock for each native call, but not while it waits for a result.
 *
 * <p>A call that the server has begun cannot be taken back. When its waiter leaves, it is abandoned: the session is
 * still busy with it, and the next to enter polls it to its end and releases what it answers.
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
    private static final long CLOSING_GRACE_NANOS = 1_000_000_000;
    private static final int LARGEST_BATCH = 4096;

    private final KciSession session;
    private final int id;
    private final ExportSet exports;
    private final ReentrantLock turn = new ReentrantLock(true);

    // Guarded by the turn.
    private final TmqKciException report = new TmqKciException();
    private final long[] batch;
    private Arguments arguments;
    private boolean running;

    /** Why the session cannot be used any more; null while it can. */
    private volatile String ended;

    SessionCalls(KciSession session, int id, ExportSet exports, int maxReferences) {
        this.session = session;
        this.id = id;
        this.exports = exports;
        batch = new long[Math.min(maxReferences, LARGEST_BATCH)];
    }

    boolean isOpen() {
        return ended == null;
    }

    /** Whether a call would have to wait for another one; as of now. */
    boolean isBusy() {
        // Who saw the turn free sees what its last holder wrote.
        return turn.isLocked() && !turn.isHeldByCurrentThread() || running;
    }

    /** Waits until the session is free. To be followed by {@link #leave}. */
    void enter() {
        refuseHoldersOfTheLock();
        try {
            turn.lockInterruptibly();
        } catch (InterruptedException interrupt) {
            throw KciInterruptedException.whileWaiting("the session's turn");
        }
        boolean entered = false;
        try {
            requireOpen();
            if (running) {
                finishAbandoned(null);
                requireOpen();
            }
            entered = true;
        } finally {
            if (!entered) {
                turn.unlock();
            }
        }
    }

    void leave() {
        turn.unlock();
    }

    private void requireOpen() {
        if (ended != null) {
            throw new IllegalStateException(session + " " + ended);
        }
    }

    /** Makes a native call that ends with its return; answers its status. Inside {@link #enter} and {@link #leave}. */
    int call(Native call) {
        KciBridge.acquire();
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
        Object event = FlightEvents.beginCall();
        if (event == null) {
            return answer(text, args, abandoned);
        }
        int error = 0;
        try {
            return answer(text, args, abandoned);
        } catch (TmqKciException failure) {
            error = failure.number;
            throw failure;
        } finally {
            FlightEvents.end(event, id, args == null || text == null ? "execute" : text, error);
        }
    }

    private TmqKciReport answer(String text, Arguments args, BooleanSupplier abandoned) {
        arguments = args;
        TmqKciReport result = new TmqKciReport();
        try {
            if (abandoned != null && abandoned.getAsBoolean()) {
                return null;
            }
            KciBridge.acquire();
            try {
                sendReleases();
                start(text, args);
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
        long begin = System.nanoTime();
        int error = 0;
        try {
            return await(result, abandoned) ? result : null;
        } catch (TmqKciException failure) {
            error = failure.number;
            throw failure;
        } finally {
            KciMonitor.waited(session, text, error, begin);
        }
    }

    private void start(String text, Arguments args) {
        int status = TmqKciInterface.FAILED;
        try {
            if (args == null) {
                status = TmqKciInterface._executeStr(id, text, emptyReport());
            } else if (text == null) {
                status = TmqKciInterface._executeObj(id, args.receiver, emptyReport());
            } else {
                status = TmqKciInterface._perform(id, args.receiver, text, args.reports, args.reports.length,
                        emptyReport());
            }
        } finally {
            if (args != null) {
                args.retainCreated(exports);
            }
        }
        check(status);
        running = true;
        KciMonitor.callBegan();
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

    /** Polls until the call has ended or is abandoned; answers whether it has ended. */
    private boolean await(TmqKciReport result, BooleanSupplier abandoned) {
        long pause = FIRST_PAUSE_NANOS;
        for (int polls = 1;; ++polls) {
            if (abandoned != null && abandoned.getAsBoolean()) {
                return false;
            }
            long spent;
            KciBridge.acquire();
            try {
                long begin = System.nanoTime();
                if (poll(result)) {
                    return true;
                }
                spent = System.nanoTime() - begin;
            } finally {
                KciBridge.lock().unlock();
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
    }

    /** Polls an abandoned call to its end, and gives up what it answers; false if that was abandoned, too. */
    private boolean finishAbandoned(BooleanSupplier abandoned) {
        TmqKciReport result = new TmqKciReport();
        try {
            if (!await(result, abandoned)) {
                return false;
            }
            exports.release(result.oop);
        } catch (TmqKciException failure) {
            // Nobody waits for it any more.
            if (failure.process() != null) {
                failure.process().release();
            }
        }
        return true;
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
                // It concerns nothing that the caller asked for; the server keeps the objects until the logout.
                KciMonitor.LOG.log(System.Logger.Level.WARNING, session + ": " + count
                        + " objects were not released, error " + report.number);
                if (report.fatal) {
                    throw failure(status);
                }
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
            end("was ended by error " + failure.number + ": " + failure.getMessage(), failure, System.nanoTime());
        }
        return failure.from(session, process);
    }

    private void end(String reason, TmqKciException error, long begin) {
        running = false;
        if (ended == null) {
            KciMonitor.ended(session, error, begin);
        }
        ended = reason;
        exports.close();
    }

    /** Logs out, unless the session has ended before. */
    void close() {
        refuseHoldersOfTheLock();
        // A thread that was interrupted shall still be able to close what it opened: it gets some time for it.
        boolean interrupted = enterForClosing(Thread.interrupted());
        try {
            if (running) {
                interrupted = finishBeforeClosing(interrupted);
            }
            KciBridge.lock().lock();
            try {
                if (ended == null) {
                    long begin = System.nanoTime();
                    check(TmqKciInterface._logout(id, emptyReport()));
                    end("is closed", null, begin);
                }
            } finally {
                KciBridge.lock().unlock();
            }
        } finally {
            turn.unlock();
            if (interrupted) {
                Thread.currentThread().interrupt();
            }
        }
    }

    /** Takes the turn; answers whether the thread is, or was meanwhile, interrupted. */
    private boolean enterForClosing(boolean interrupted) {
        try {
            if (!interrupted) {
                turn.lockInterruptibly();
                return false;
            }
        } catch (InterruptedException interrupt) {
            // Goes on as one that was interrupted before.
        }
        try {
            if (turn.tryLock(CLOSING_GRACE_NANOS, TimeUnit.NANOSECONDS)) {
                return true;
            }
        } catch (InterruptedException interrupt) {
            // Twice is meant.
        }
        throw KciInterruptedException.whileWaiting("the session's turn; the session stays open");
    }

    private boolean finishBeforeClosing(boolean interrupted) {
        if (!interrupted) {
            try {
                finishAbandoned(null);
                return false;
            } catch (KciInterruptedException interrupt) {
                Thread.interrupted();
            }
        }
        long begin = System.nanoTime();
        if (!finishAbandoned(() -> System.nanoTime() - begin >= CLOSING_GRACE_NANOS)) {
            throw KciInterruptedException.whileWaiting("the end of the running call; the session stays open");
        }
        return true;
    }

    private static void refuseHoldersOfTheLock() {
        if (KciBridge.lock().isHeldByCurrentThread()) {
            throw new IllegalStateException("a thread that holds the bridge's lock cannot call a session");
        }
    }
}
