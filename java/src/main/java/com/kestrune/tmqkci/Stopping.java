package com.kestrune.tmqkci;

import com.kestrune.tmqkci.KciInterruptedException.Outcome;

/**
 * The stopping of a call that shall not go on: a soft break, a hard one when the server does not answer that in time,
 * and the time at which it is given up. Used by the thread that polls.
 */
final class Stopping {
    /** Why a call shall not go on. */
    enum Reason {
        ABANDONED("the future was completed by others"),
        THREAD_INTERRUPTED("the thread was interrupted"),
        CALL_INTERRUPTED("the call was interrupted"),
        LATE("the call took longer than its limit"),
        CLOSING("the session is being closed");

        private final String text;

        Reason(String text) {
            this.text = text;
        }

        KciInterruptedException failure(Outcome outcome) {
            return this == LATE ? new KciTimeoutException(text, outcome) : new KciInterruptedException(text, outcome);
        }
    }

    /** How long the server has to answer each of the two breaks. */
    static final long PATIENCE_NANOS = 1_000_000_000;

    private enum Sent {
        NOTHING, SOFT_BREAK, HARD_BREAK
    }

    private final KciSession session;
    private final long begin;
    private final Reason reason;
    private final TmqKciException report = new TmqKciException();
    private final long hardAt;
    private final long end;
    private Sent sent = Sent.NOTHING;
    private boolean unbreakable;

    /** Begins, for a call that was waited for since then, with so many nanoseconds until it is given up. */
    Stopping(KciSession session, long begin, Reason reason, long nanos) {
        this.session = session;
        this.begin = begin;
        this.reason = reason;
        long now = System.nanoTime();
        hardAt = now + nanos / 2;
        end = now + nanos;
    }

    /** Sends the break that is due. With the bridge's lock held. */
    void sendBreak() {
        if (sent == Sent.NOTHING && send(false)) {
            sent = Sent.SOFT_BREAK;
        }
        if (sent == Sent.NOTHING || sent == Sent.SOFT_BREAK && System.nanoTime() - hardAt >= 0) {
            sent = Sent.HARD_BREAK;
            unbreakable = !send(true);
        }
    }

    private boolean send(boolean hard) {
        report.clear();
        boolean done = (hard ? TmqKciControl._hardBreak(session.id(), report)
                : TmqKciControl._softBreak(session.id(), report)) == 0;
        if (done) {
            KciMonitor.broke(session, hard, begin);
        }
        return done;
    }

    /** Whether the server was asked to stop, or cannot be. */
    boolean isSent() {
        return sent != Sent.NOTHING;
    }

    /** How long to wait yet; not when the client library breaks nothing, unless the session is being closed. */
    long remainingNanos() {
        return unbreakable && reason != Reason.CLOSING ? 0 : Math.max(0, end - System.nanoTime());
    }

    /** Whether an error is the server's answer to a break. */
    static boolean isAnswer(TmqKciException error) {
        return error.number == KciErrorNumber.SOFT_BREAK || error.number == KciErrorNumber.HARD_BREAK;
    }

    KciInterruptedException failure(Outcome outcome) {
        return reason.failure(outcome);
    }
}
