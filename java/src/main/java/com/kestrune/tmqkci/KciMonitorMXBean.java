package com.kestrune.tmqkci;

/**
 * What the sessions of this process have done, counted from the process's start. Thread-safe; a counter is read as of
 * now, several together are not of one moment.
 *
 * @since 3.1.3
 */
public interface KciMonitorMXBean {
    /**
     * Answers how many sessions are open.
     *
     * @return the number
     */
    long getOpenSessions();

    /**
     * Answers how many logins succeeded.
     *
     * @return the number
     */
    long getLogins();

    /**
     * Answers how many logins failed.
     *
     * @return the number
     */
    long getFailedLogins();

    /**
     * Answers how many times the server was made to run code: source texts and messages.
     *
     * @return the number
     */
    long getCalls();

    /**
     * Answers how many errors calls of any kind ended with, transfers and those that code was expected to meet
     * included.
     *
     * @return the number
     */
    long getErrors();

    /**
     * Answers how many calls took longer than {@link #getSlowCallMillis}.
     *
     * @return the number
     */
    long getSlowCalls();

    /**
     * Answers how many commits were refused for a conflict.
     *
     * @return the number
     */
    long getConflicts();

    /**
     * Answers how many breaks were sent to the server.
     *
     * @return the number
     */
    long getBreaks();

    /**
     * Answers how many sessions lost their server, or their client library's host process.
     *
     * @return the number
     */
    long getLostSessions();

    /**
     * Answers from which duration on a call is slow.
     *
     * @return milliseconds; 0 if no call is
     */
    int getSlowCallMillis();

    /**
     * Sets from which duration on a call is slow: it is counted and logged as a warning. At first it is what the system
     * property {@code com.kestrune.tmqkci.slowCallMillis} says, or 0.
     *
     * @param millis milliseconds; 0 if no call is
     * @throws IllegalArgumentException if it is negative
     */
    void setSlowCallMillis(int millis);
}
