package com.kestrune.tmqkci;

/**
 * How the bridge is initialized, once in a process. Immutable and thread-safe.
 *
 * @param linked whether sessions run inside this process; otherwise they run in a process of their own
 * @param applicationName the application's name for the client library, or null
 * @param bufferSize size in bytes of the transfer buffer: larger transfers go in slices of this size
 * @param preloadSize how many bytes of an object's body are fetched with its description
 * @param traceLevel 0 for no trace, 1 for an informational one, 2 for a full one, which shows passwords
 * @since 3.1.3
 */
public record KciBridgeOptions(boolean linked, String applicationName, int bufferSize, int preloadSize,
        int traceLevel) {
    /** Sessions inside this process, a buffer of 64 KiB, 1 KiB of each object at once, no trace. */
    public static final KciBridgeOptions DEFAULTS = new KciBridgeOptions(true, null, 64 * 1024, 1024, 0);

    private static final int SMALLEST_PRELOAD = 16;
    private static final int FULL_TRACE = 2;

    /**
     * Makes options.
     *
     * @param linked whether sessions run inside this process
     * @param applicationName the application's name, or null
     * @param bufferSize size of the transfer buffer in bytes
     * @param preloadSize bytes fetched with an object's description
     * @param traceLevel 0, 1 or 2
     * @throws IllegalArgumentException if the preload size is below 16 or above the buffer's size, or if there is no
     *     such trace level
     */
    public KciBridgeOptions {
        if (preloadSize < SMALLEST_PRELOAD || preloadSize > bufferSize) {
            throw new IllegalArgumentException("preload size " + preloadSize + ": must be from " + SMALLEST_PRELOAD
                    + " to the buffer's size, " + bufferSize);
        }
        if (traceLevel < 0 || traceLevel > FULL_TRACE) {
            throw new IllegalArgumentException("trace level " + traceLevel + ": must be from 0 to " + FULL_TRACE);
        }
    }

    /**
     * Answers these options with another place for sessions.
     *
     * @param inThisProcess whether sessions run inside this process
     * @return the options
     */
    public KciBridgeOptions withLinked(boolean inThisProcess) {
        return new KciBridgeOptions(inThisProcess, applicationName, bufferSize, preloadSize, traceLevel);
    }

    /**
     * Answers these options with another application name.
     *
     * @param name the name, or null
     * @return the options
     */
    public KciBridgeOptions withApplicationName(String name) {
        return new KciBridgeOptions(linked, name, bufferSize, preloadSize, traceLevel);
    }

    /**
     * Answers these options with other sizes.
     *
     * @param buffer size of the transfer buffer in bytes
     * @param preload bytes fetched with an object's description
     * @return the options
     * @throws IllegalArgumentException if they cannot be (see the constructor)
     */
    public KciBridgeOptions withSizes(int buffer, int preload) {
        return new KciBridgeOptions(linked, applicationName, buffer, preload, traceLevel);
    }

    /**
     * Answers these options with another trace level.
     *
     * @param level 0, 1 or 2
     * @return the options
     * @throws IllegalArgumentException if there is no such level
     */
    public KciBridgeOptions withTraceLevel(int level) {
        return new KciBridgeOptions(linked, applicationName, bufferSize, preloadSize, level);
    }
}
