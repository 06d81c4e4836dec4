package com.kestrune.tmqkci;

/**
 * The statistics of one process attached to a shared object cache, as filled by
 * {@link TmqKciInterface#_KCSIgetStats}. The bridge has no cache statistics and leaves every field alone. Not
 * thread-safe.
 *
 * @since 3.1.3
 */
public class TmqKciCacheStats {
    /** The kind of process whose statistics these are. */
    public int type;

    /** The name of that process. */
    public String name;

    /** Its operating-system process id. */
    public long pid;

    /** Its session id. */
    public long sid;

    /** Its statistics of 32 bits. */
    public int[] stats32;

    /** Its statistics of 64 bits. */
    public long[] stats64;

    /** Makes an empty record. */
    public TmqKciCacheStats() {
    }
}
