package com.kestrune.tmqkci;

/**
 * What all exceptions of this package have in common: a program that handles them alike catches this one. Wrong use,
 * such as a closed session or an index out of bounds, is told by the exceptions that Java has for it. Thread-safe, but
 * for a {@link TmqKciException} that is being filled.
 *
 * @since 3.1.3
 */
public class KciException extends RuntimeException {
    private static final long serialVersionUID = 1L;

    /**
     * Makes an exception with a text.
     *
     * @param message what went wrong, or null
     */
    public KciException(String message) {
        super(message);
    }

    /**
     * Tells whether what failed may succeed when the same is done again in the same session, and does nothing twice: a
     * transaction whose commit was refused, a call that was not begun.
     *
     * @return whether it may
     */
    public boolean isRetryable() {
        return false;
    }
}
