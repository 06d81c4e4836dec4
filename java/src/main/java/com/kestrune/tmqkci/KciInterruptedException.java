package com.kestrune.tmqkci;

/**
 * Ends a call that was not wanted any longer: its thread was interrupted, {@link KciSession#interrupt} was called, the
 * session is being closed, or, as a {@link KciTimeoutException}, its limit was reached. What became of the call is its
 * {@link #outcome}. The interrupt status of a thread that was interrupted is set again.
 *
 * @since 3.1.3
 */
public class KciInterruptedException extends KciException {
    private static final long serialVersionUID = 1L;

    /** What became of the call. */
    public enum Outcome {
        /** The server was not asked. */
        NOT_BEGUN("it was not begun"),
        /** It was stopped, and the session goes on. What the call did before is done. */
        STOPPED("it was stopped"),
        /** The server goes on with it, in spite of breaks; the session's next call waits for its end. */
        STILL_RUNNING("the server still runs it, and the session's next call waits for its end");

        private final String text;

        Outcome(String text) {
            this.text = text;
        }
    }

    private final Outcome outcome;

    /**
     * Makes an exception with a text, for a call that was not begun.
     *
     * @param message what was waited for
     */
    public KciInterruptedException(String message) {
        super(message);
        outcome = Outcome.NOT_BEGUN;
    }

    /** For a call that ended in this way. */
    KciInterruptedException(String reason, Outcome outcome) {
        super(reason + "; " + outcome.text);
        this.outcome = outcome;
    }

    /**
     * Answers what became of the call.
     *
     * @return the outcome
     */
    public Outcome outcome() {
        return outcome;
    }

    @Override
    public boolean isRetryable() {
        return outcome == Outcome.NOT_BEGUN;
    }

    /** For a thread that was found interrupted; sets its interrupt status again. */
    static KciInterruptedException whileWaiting(String purpose) {
        Thread.currentThread().interrupt();
        return new KciInterruptedException("interrupted while waiting for " + purpose);
    }
}
