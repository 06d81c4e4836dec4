package com.kestrune.tmqkci;

/**
 * The native methods that stop what a session runs, and that begin and end its transactions. They stand beside those of
 * {@link TmqKciInterface}, with the same statuses, error reports and rules; a client library may lack their entries,
 * which the error says then.
 *
 * <p>A break is a call like any other: the thread that polls for the end of the session's call is outside native code
 * while another one breaks. The call ends at one of the next polls, with error
 * {@link KciErrorNumber#SOFT_BREAK} or {@link KciErrorNumber#HARD_BREAK}; where nothing runs, a break does nothing.
 *
 * @since 3.1.3
 */
public final class TmqKciControl {
    /** Status of a successful {@link #_commit}. */
    public static final int COMMITTED = 1;
    /** Status of {@link #_nbContinue} where the client library cannot continue without waiting. */
    public static final int NOT_THERE = 1;

    static {
        TmqKciLibrary.load();
    }

    private TmqKciControl() {
    }

    /**
     * Asks the server to end the session's running call where it can be continued.
     *
     * @param sessionId the session
     * @param errReport receives the error
     * @return 0 or {@link TmqKciInterface#FAILED}
     */
    public static native int _softBreak(int sessionId, TmqKciException errReport);

    /**
     * Asks the server to end the session's running call at once.
     *
     * @param sessionId the session
     * @param errReport receives the error
     * @return 0 or {@link TmqKciInterface#FAILED}
     */
    public static native int _hardBreak(int sessionId, TmqKciException errReport);

    /**
     * Begins a transaction; what the session has changed and not committed is lost.
     *
     * @param sessionId the session
     * @param errReport receives the error
     * @return 0 or {@link TmqKciInterface#FAILED}
     */
    public static native int _begin(int sessionId, TmqKciException errReport);

    /**
     * Commits what the session has changed.
     *
     * @param sessionId the session
     * @param errReport receives the error
     * @return {@link #COMMITTED}, 0 when the commit was refused, or {@link TmqKciInterface#FAILED}
     */
    public static native int _commit(int sessionId, TmqKciException errReport);

    /**
     * Gives up what the session has changed and not committed.
     *
     * @param sessionId the session
     * @param errReport receives the error
     * @return 0 or {@link TmqKciInterface#FAILED}
     */
    public static native int _abort(int sessionId, TmqKciException errReport);

    /**
     * Starts what {@link TmqKciInterface#_continue} does without {@code errFlag}; {@link TmqKciInterface#_nbEnd} ends
     * it.
     *
     * @param sessionId the session
     * @param process the suspended process, the {@link TmqKciException#context} of the error
     * @param value what the failed message shall answer; null to continue without one
     * @param errReport receives the error
     * @return 0; {@link #NOT_THERE}, with nothing done, where the client library has no such entry;
     *     {@link TmqKciInterface#FAILED} or {@link TmqKciInterface#NOT_LENT}
     */
    public static native int _nbContinue(int sessionId, TmqKciReport process, TmqKciReport value,
            TmqKciException errReport);
}
