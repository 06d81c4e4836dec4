package com.kestrune.tmqkci;

/**
 * The native methods that make and read many objects in one call. They stand beside those of {@link TmqKciInterface},
 * with the same statuses, error reports and rules. Objects and values are identifiers.
 *
 * @since 3.1.3
 */
final class TmqKciBulk {
    /** The size of an object that has more references than {@link #_contents} reads. */
    static final int TOO_LARGE = -1;

    static {
        TmqKciLibrary.load();
    }

    private TmqKciBulk() {
    }

    /**
     * Makes objects of a class, each with values for its first named variables. When one cannot be made, those before
     * it stay, and so does one whose variables cannot be stored.
     *
     * @param sessionId the session
     * @param cls the class
     * @param named how many variables each object is given
     * @param values the values, {@code named} for each object; as many at most as a quarter of the buffer's size
     * @param oops zeros; receives the objects that were made, also after a failure
     * @param count how many objects, not more than a quarter of the buffer's size
     * @param errReport receives the error
     * @return {@code count} or {@link TmqKciInterface#FAILED}
     */
    static native int _create(int sessionId, long cls, int named, long[] values, long[] oops, int count,
            TmqKciException errReport);

    /**
     * Reads all references of objects: named variables, then indexed elements. None are kept by the client library
     * before this returns, all are afterwards.
     *
     * @param sessionId the session
     * @param objects the objects; {@code count} elements at least
     * @param count how many, not more than a quarter of the buffer's size
     * @param sizes receives how many references each object has, {@link #TOO_LARGE} for one that was left out
     * @param contents receives the references, one object's behind another's; as long as a quarter of the buffer's size
     *     at least
     * @param errReport receives the error
     * @return of how many objects the buffer held the references, or {@link TmqKciInterface#FAILED}
     */
    static native int _contents(int sessionId, long[] objects, int count, int[] sizes, long[] contents,
            TmqKciException errReport);
}
