package com.kestrune.tmqkci;

/**
 * The report of a failed call. The caller creates one and passes it as the last argument of a native method; when that
 * method answers {@link TmqKciInterface#FAILED}, the fields tell what went wrong and the caller may throw the object.
 *
 * <p>Fields keep what the last failure wrote: they mean something only after a call that failed. One object may serve
 * many calls, as long as it is not thrown in between.
 */
public class TmqKciException extends RuntimeException {
    /** The {@link #number} of every error that the bridge detects itself. */
    public static final int BRIDGE_ERROR = 2318;

    /** The {@link #number} with which an error continue answers (see {@link TmqKciInterface#_continue}). */
    public static final int ERROR_CONTINUE = 2372;

    private static final long serialVersionUID = 1L;

    /** The error number, whose meaning its {@link #category} sets. */
    public int number;

    /** The error's text, at most 400 bytes of UTF-8. */
    public String message;

    /** Identifier of the error's category object; nil's for an error that the bridge detected itself. */
    public long category;

    /**
     * Identifier of the process that the error suspended, which {@link TmqKciInterface#_continue} can continue; nil's
     * when there is none.
     */
    public long context;

    /** Whether the error ended the session. */
    public boolean fatal;

    /** How many elements {@link #args} has. */
    public int argCount;

    /** Identifiers of the error's arguments. */
    public long[] args;

    /** Makes an empty report. */
    public TmqKciException() {
    }

    /**
     * Makes a report with a text, for errors that Java code finds itself.
     *
     * @param message the text
     */
    public TmqKciException(String message) {
        super(message);
        this.message = message;
    }

    /**
     * Answers the field {@link #message}.
     *
     * @return the text, null as long as no failure was reported
     */
    @Override
    public String getMessage() {
        return message;
    }
}
