package com.kestrune.tmqkci;

/**
 * Ends a call whose thread was interrupted while it waited. The thread's interrupt status is set again. A call that the
 * server had begun goes on there; the session's next call waits for its end first.
 */
public class KciInterruptedException extends KciException {
    private static final long serialVersionUID = 1L;

    /**
     * Makes an exception with a text.
     *
     * @param message what was waited for
     */
    public KciInterruptedException(String message) {
        super(message);
    }

    /** For a thread that was found interrupted; sets its interrupt status again. */
    static KciInterruptedException whileWaiting(String purpose) {
        Thread.currentThread().interrupt();
        return new KciInterruptedException("interrupted while waiting for " + purpose);
    }
}
