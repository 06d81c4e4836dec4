package com.kestrune.tmqkci;

import java.time.Duration;

/**
 * How many sessions a pool keeps, and for how long. Immutable and thread-safe.
 *
 * @param minimum how many sessions are opened with the pool, and not closed for having been idle
 * @param maximum how many sessions there are at most
 * @param waitLimit how long a borrower waits for a session at most
 * @param idleLimit how long a session beyond the minimum may be idle before it is closed
 * @since 3.1.3
 */
public record KciPoolOptions(int minimum, int maximum, Duration waitLimit, Duration idleLimit) {
    /** None at first, 8 at most, 30 seconds of waiting, 10 minutes of idleness. */
    public static final KciPoolOptions DEFAULTS =
            new KciPoolOptions(0, 8, Duration.ofSeconds(30), Duration.ofMinutes(10));

    /**
     * Makes options.
     *
     * @param minimum how many sessions are kept
     * @param maximum how many sessions there are at most
     * @param waitLimit how long a borrower waits
     * @param idleLimit how long a session may be idle
     * @throws IllegalArgumentException if the maximum is below 1 or the minimum is not between 0 and the maximum, or if
     *     a limit is negative
     */
    public KciPoolOptions {
        if (maximum < 1 || minimum < 0 || minimum > maximum) {
            throw new IllegalArgumentException("from " + minimum + " to " + maximum
                    + " sessions: the minimum must be from 0 to the maximum, the maximum 1 at least");
        }
        if (waitLimit.isNegative() || idleLimit.isNegative()) {
            throw new IllegalArgumentException("a limit is negative");
        }
    }

    /**
     * Answers these options with other numbers of sessions.
     *
     * @param least how many sessions are kept
     * @param most how many sessions there are at most
     * @return the options
     * @throws IllegalArgumentException if there can be no such pool
     */
    public KciPoolOptions withSize(int least, int most) {
        return new KciPoolOptions(least, most, waitLimit, idleLimit);
    }

    /**
     * Answers these options with other limits.
     *
     * @param waiting how long a borrower waits
     * @param idle how long a session may be idle
     * @return the options
     * @throws IllegalArgumentException if one is negative
     */
    public KciPoolOptions withLimits(Duration waiting, Duration idle) {
        return new KciPoolOptions(minimum, maximum, waiting, idle);
    }
}
