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

    // An open-addressing table with linear probing. A key of 0, which is no object, marks an empty place; a count of 0
    // an identifier that waits for its release, and stands in the queue at least once.
    private int[] keys = new int[SMALLEST];
    private int[] counts = new int[SMALLEST];
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
        if (keys[place] == 0) {
            keys[place] = (int) oop;
            counts[place] = 1;
            if (++size > keys.length / 2) {
                grow();
            }
        } else {
            ++counts[place];
        }
    }

    /** Counts one reference less. */
    synchronized void release(long oop) {
        if (closed || !holds(oop)) {
            return;
        }
        int place = place((int) oop);
        if (keys[place] != 0 && counts[place] > 0 && --counts[place] == 0) {
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
            int oop = queue[--queued];
            int place = place(oop);
            // It may have been retained since, or stand in the queue twice.
            if (keys[place] != 0 && counts[place] == 0) {
                batch[taken++] = Integer.toUnsignedLong(oop);
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
        keys = new int[0];
        counts = keys;
        queue = keys;
    }

    private int home(int oop) {
        // Identifiers go up in steps of 4; multiplying spreads them over the high bits.
        return (oop * 0x9E3779B1) >>> Integer.numberOfLeadingZeros(keys.length - 1);
    }

    /** Where the identifier is, or would be put. */
    private int place(int oop) {
        int place = home(oop);
        while (keys[place] != 0 && keys[place] != oop) {
            place = (place + 1) & (keys.length - 1);
        }
        return place;
    }

    /** Empties a place, and moves up what was put behind it for want of that place. */
    private void remove(int place) {
        int mask = keys.length - 1;
        int hole = place;
        for (int next = (hole + 1) & mask; keys[next] != 0; next = (next + 1) & mask) {
            if (((next - home(keys[next])) & mask) >= ((next - hole) & mask)) {
                keys[hole] = keys[next];
                counts[hole] = counts[next];
                hole = next;
            }
        }
        keys[hole] = 0;
        --size;
    }

    private void grow() {
        int[] oldKeys = keys;
        int[] oldCounts = counts;
        keys = new int[2 * oldKeys.length];
        counts = new int[keys.length];
        for (int i = 0; i < oldKeys.length; ++i) {
            if (oldKeys[i] != 0) {
                int place = place(oldKeys[i]);
                keys[place] = oldKeys[i];
                counts[place] = oldCounts[i];
            }
        }
    }
}
