package com.kestrune.tmqkci;

import java.util.Arrays;

/**
 * The identifiers that the server keeps for a session, with the number of references that the application holds to
 * each. The server counts nothing: it keeps an identifier or not. So only the last release of an identifier is passed
 * on, in batches; one that the server hands out again before its batch has left is kept.
 *
 * <p>Thread-safe. An identifier must be retained inside the hold of the bridge's lock in which the server handed it
 * out, and batches taken and sent inside one hold: else a batch could give up what was just handed out again.
 */
final class ExportSet {
    private static final int SMALLEST = 64;
    /** A count of one in an entry. */
    private static final long ONE = 1L << 32;

    /** How many consecutive identifiers stand side by side in the table, as far as there is room: a cache line. */
    private static final int NEIGHBOURS = 8;

    // An open-addressing table with linear probing; an entry holds a count above 32 bits of identifier. An entry of 0
    // is an empty place; a count of 0 is an identifier that waits for its release, and stands in the queue once or
    // more.
    private long[] entries = new long[SMALLEST];
    private int size;

    private int[] queue = new int[SMALLEST];
    private int queued;
    private boolean closed;

    /** Whether the server keeps such an identifier: one that carries its value in itself, 0 and 1 are not kept. */
    static boolean holds(long oop) {
        return (oop & 2) == 0 && oop > 1;
    }

    /** Counts one more reference. */
    synchronized void retain(long oop) {
        if (closed || !holds(oop)) {
            return;
        }
        int place = place((int) oop);
        if (entries[place] != 0) {
            entries[place] += ONE;
        } else {
            entries[place] = oop | ONE;
            if (++size > entries.length / 2) {
                grow();
            }
        }
    }

    /** Counts one more reference to each of the first reports' objects. */
    synchronized void retain(TmqKciReport[] reports, int count) {
        for (int i = 0; i < count; ++i) {
            retain(reports[i].oop);
        }
    }

    /** Counts one more reference to each of the first objects. */
    synchronized void retain(long[] oops, int count) {
        for (int i = 0; i < count; ++i) {
            retain(oops[i]);
        }
    }

    /** Counts one reference less. */
    synchronized void release(long oop) {
        if (closed || !holds(oop)) {
            return;
        }
        int place = place((int) oop);
        if (entries[place] < ONE) {
            return;
        }
        entries[place] -= ONE;
        if (entries[place] < ONE) {
            if (queued == queue.length) {
                queue = Arrays.copyOf(queue, 2 * queued);
            }
            queue[queued++] = (int) oop;
        }
    }

    /** Whether {@link #take} might find something. */
    synchronized boolean hasQueued() {
        return queued > 0;
    }

    /** Moves identifiers that nobody refers to into the batch and forgets them; answers how many. */
    synchronized int take(long[] batch) {
        int taken = 0;
        while (queued > 0 && taken < batch.length) {
            int place = place(queue[--queued]);
            // It may have been retained since, or stand in the queue twice.
            if (entries[place] != 0 && entries[place] < ONE) {
                batch[taken++] = entries[place];
                remove(place);
            }
        }
        return taken;
    }

    /** How many identifiers are referred to or wait for their release. */
    synchronized int size() {
        return size;
    }

    /** Forgets everything: the server has. */
    synchronized void close() {
        closed = true;
        size = 0;
        queued = 0;
        entries = new long[0];
        queue = new int[0];
    }

    private int home(int oop) {
        // Identifiers go up in steps of 4. Neighbours stay together; multiplying spreads their groups.
        int number = oop >>> 2;
        int groups = entries.length / NEIGHBOURS;
        int group = (number / NEIGHBOURS * 0x9E3779B1) >>> Integer.numberOfLeadingZeros(groups - 1);
        return group * NEIGHBOURS + number % NEIGHBOURS;
    }

    /** Where the identifier is, or would be put. */
    private int place(int oop) {
        int place = home(oop);
        while (entries[place] != 0 && (int) entries[place] != oop) {
            place = (place + 1) & (entries.length - 1);
        }
        return place;
    }

    /** Empties a place, and moves up what was put behind it for want of that place. */
    private void remove(int place) {
        int mask = entries.length - 1;
        int hole = place;
        for (int next = (hole + 1) & mask; entries[next] != 0; next = (next + 1) & mask) {
            int distance = (next - home((int) entries[next])) & mask;
            if (distance >= ((next - hole) & mask)) {
                entries[hole] = entries[next];
                hole = next;
            }
        }
        entries[hole] = 0;
        --size;
    }

    private void grow() {
        long[] old = entries;
        entries = new long[2 * old.length];
        for (long entry : old) {
            if (entry != 0) {
                entries[place((int) entry)] = entry;
            }
        }
    }
}
