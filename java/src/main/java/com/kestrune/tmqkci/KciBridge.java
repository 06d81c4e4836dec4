package com.kestrune.tmqkci;

import java.util.concurrent.locks.ReentrantLock;

/**
 * What all sessions of the process share: the bridge's initialization, and the lock that keeps native calls apart. The
 * native library's state belongs to the process, which is why this state is static. Thread-safe.
 *
 * @since 3.1.3
 */
public final class KciBridge {
    private static final ReentrantLock LOCK = new ReentrantLock(true);
    private static final String TOO_MANY = "releaseOops(): buffer size exceeded";

    private static final int NOT_INITIALIZED = -1;
    /** The flavour of sessions inside this process. */
    private static final int LINKED = 1;

    /** How many references one native call can move; 0 until a session has asked. Guarded by the lock. */
    private static int maxReferences;

    private static boolean faultReports;

    private KciBridge() {
    }

    /**
     * Answers the lock that every call of every session takes for as long as it is inside native code. A program that
     * uses the methods of {@link TmqKciInterface} beside sessions holds it around each of them, and around a call and
     * the evaluation of its reports. It is fair. A thread that holds it must not call a session: that is refused.
     *
     * @return the lock, the same one always
     */
    public static ReentrantLock lock() {
        return LOCK;
    }

    /**
     * Initializes the bridge. The first initialization of the process counts, by this method or by
     * {@link TmqKciInterface#_initialize}; a later one can only raise the trace level.
     *
     * @param options how
     * @throws TmqKciException if the client library cannot be used, or if sessions are wanted inside this process and
     *     the first initialization put them into processes of their own, or the other way round
     * @throws UnsatisfiedLinkError if the native library cannot be loaded
     * @throws KciInterruptedException if the thread was interrupted while it waited for the bridge's lock
     */
    public static void initialize(KciBridgeOptions options) {
        TmqKciLibrary.load();
        TmqKciException report = new TmqKciException();
        long[] kernelOops = new long[TmqKciInterface.KERNEL_OOPS];
        acquire();
        try {
            int flavour = flavour();
            if (flavour != NOT_INITIALIZED && options.linked() != (flavour == LINKED)) {
                throw new TmqKciException("this process was initialized for sessions " + (flavour == LINKED
                        ? "inside it: sessions in processes of their own need another Java process"
                        : "in processes of their own: sessions inside it need another Java process"));
            }
            int status = TmqKciInterface._initialize(options.linked() ? 1 : 0, options.applicationName(),
                    options.bufferSize(), options.preloadSize(), options.traceLevel(), kernelOops, report);
            if (status < 0) {
                throw failure(status, report);
            }
            KciMessages.faultReports(faultReports);
        } finally {
            LOCK.unlock();
        }
    }

    /** Initializes as wanted; null for the defaults, unless the bridge is initialized. */
    static void prepare(KciBridgeOptions options) {
        TmqKciLibrary.load();
        acquire();
        try {
            if (options != null || flavour() == NOT_INITIALIZED) {
                initialize(options == null ? KciBridgeOptions.DEFAULTS : options);
            }
        } finally {
            LOCK.unlock();
        }
    }

    /** Where the bridge's sessions are: {@link #LINKED}, 0 for processes of their own, {@link #NOT_INITIALIZED}. */
    private static native int flavour();

    /**
     * Chooses what a fatal report of the native support layer does. As long as reports are not wanted, it is announced
     * in a line on standard output, and the process goes on. Wanted, it prints the C stacks, waits for a debugger,
     * writes a core file and ends the process: a virtual machine should do so only to find a fault.
     *
     * @param wanted whether fault reports are wanted; they are not unless this was called
     * @throws UnsatisfiedLinkError if the native library cannot be loaded
     * @throws KciInterruptedException if the thread was interrupted while it waited for the bridge's lock
     */
    public static void setFaultReports(boolean wanted) {
        TmqKciLibrary.load();
        acquire();
        try {
            faultReports = wanted;
            KciMessages.faultReports(wanted);
        } finally {
            LOCK.unlock();
        }
    }

    /**
     * Answers the version of the client library.
     *
     * @return the version's text
     * @throws TmqKciException if the bridge is not initialized
     * @throws UnsatisfiedLinkError if the native library cannot be loaded
     * @throws KciInterruptedException if the thread was interrupted while it waited for the bridge's lock
     */
    public static String clientVersion() {
        TmqKciException report = new TmqKciException();
        String[] version = new String[1];
        acquire();
        try {
            int status = TmqKciInterface._kciVersion(version, report);
            if (status < 0) {
                throw failure(status, report);
            }
        } finally {
            LOCK.unlock();
        }
        return version[0];
    }

    /** Takes the lock; answers to an interrupt. */
    static void acquire() {
        try {
            LOCK.lockInterruptibly();
        } catch (InterruptedException interrupt) {
            throw KciInterruptedException.whileWaiting("the bridge's lock");
        }
    }

    /** The error of a native call, with the stack of this thread. The report was empty before the call. */
    static TmqKciException failure(int status, TmqKciException report) {
        if (status == TmqKciInterface.NOT_LENT) {
            return new TmqKciException("the virtual machine did not lend a string or an array to the bridge");
        }
        return report.isFilled() ? new TmqKciException(report)
                : new TmqKciException("the client library answered " + status + " and reported no error");
    }

    /**
     * How many references one native call can move. The buffer may have been sized by someone else, so the bridge is
     * asked: it judges a count before anything else, and a missing array ends the question. With the lock held.
     */
    static int maxReferences(int session) {
        if (maxReferences == 0) {
            int guess = KciBridgeOptions.DEFAULTS.bufferSize() / 4;
            if (fits(session, guess) && !fits(session, guess + 1)) {
                maxReferences = guess;
            } else {
                maxReferences = Math.max(1, searchMaxReferences(session));
            }
        }
        return maxReferences;
    }

    private static int searchMaxReferences(int session) {
        int fitting = 0;
        int above = Integer.MAX_VALUE;
        while (above - fitting > 1) {
            int middle = fitting + (above - fitting) / 2;
            if (fits(session, middle)) {
                fitting = middle;
            } else {
                above = middle;
            }
        }
        return fitting;
    }

    private static boolean fits(int session, int count) {
        TmqKciException report = new TmqKciException();
        TmqKciInterface._releaseOops(session, null, count, report);
        if (report.number != TmqKciException.BRIDGE_ERROR) {
            throw new TmqKciException(report);
        }
        return !TOO_MANY.equals(report.message);
    }
}
