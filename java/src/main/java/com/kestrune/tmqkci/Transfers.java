package com.kestrune.tmqkci;

import java.lang.ref.Reference;
import java.math.BigInteger;
import java.util.ArrayList;
import java.util.Arrays;
import java.util.Iterator;
import java.util.List;
import java.util.Map;
import java.util.Spliterator;
import java.util.Spliterators;
import java.util.function.IntFunction;
import java.util.stream.Stream;
import java.util.stream.StreamSupport;

/** A session's transfers of contents, cut into slices that fit the bridge's buffers. Indexes count from 1. */
final class Transfers {
    /** How many references go at once at most, so that other sessions get their turn. */
    static final int LARGEST_SLICE = 4096;
    /** The bridge borrows 101 strings in one call at most. */
    private static final int MOST_STRINGS = 100;
    private static final int CHANGES = 1024;
    private static final TmqKciReport[] NONE = {};

    private final KciSession session;
    private final int id;
    private final SessionCalls calls;
    private final int maxBytes;
    private final int maxReferences;

    // Guarded by the session's turn.
    private TmqKciReport[] slice = NONE;

    Transfers(KciSession session, SessionCalls calls, int maxReferences) {
        this.session = session;
        this.id = session.id();
        this.calls = calls;
        this.maxBytes = 4 * Math.min(maxReferences, Integer.MAX_VALUE / 4);
        this.maxReferences = Math.min(maxReferences, LARGEST_SLICE);
    }

    /** Indexes are 31 bits wide in the client library, and the bridge cuts wider ones. */
    static void checkRange(long start, long count) {
        if (start < 1 || count < 0 || start > Integer.MAX_VALUE || start - 1 + count > Integer.MAX_VALUE) {
            throw new IndexOutOfBoundsException("start " + start + ", count " + count + ": indexes go from 1 to "
                    + Integer.MAX_VALUE);
        }
    }

    TmqKciReport describe(KciObject object) {
        TmqKciReport report = TmqKciReport.ofOop(object.oopFor(session));
        calls.enter();
        try {
            calls.call(error -> TmqKciInterface._setup(id, report, error));
        } finally {
            calls.leave();
            Reference.reachabilityFence(object);
        }
        return report;
    }

    /** All bytes of an object, as they are now. */
    byte[] bytes(KciObject object) {
        calls.enter();
        try {
            TmqKciReport now = describe(object);
            if (now.objType != TmqKciReport.KIND_BYTE) {
                throw new KciConversionException(object + " has no bytes");
            }
            if (now.indexedSize == now.valueBytes.length) {
                return now.valueBytes;
            }
            return bytes(object, 1, Math.toIntExact(now.indexedSize));
        } finally {
            calls.leave();
        }
    }

    byte[] bytes(KciObject object, long start, int count) {
        checkRange(start, count);
        TmqKciReport source = TmqKciReport.ofOop(object.oopFor(session));
        byte[] all = new byte[count];
        calls.enter();
        try {
            for (int done = 0; done < count;) {
                long from = start + done;
                int length = Math.min(count - done, maxBytes);
                byte[] part = length == count ? all : new byte[length];
                calls.call(error -> TmqKciInterface._getBytes(id, source, from, length, part, error));
                if (part != all) {
                    System.arraycopy(part, 0, all, done, length);
                }
                done += length;
            }
        } finally {
            calls.leave();
            Reference.reachabilityFence(object);
        }
        return all;
    }

    void storeBytes(KciObject object, long start, byte[] bytes) {
        checkRange(start, bytes.length);
        calls.enter();
        try {
            storeBytes(TmqKciReport.ofOop(object.oopFor(session)), start, bytes);
        } finally {
            calls.leave();
            Reference.reachabilityFence(object);
        }
    }

    private void storeBytes(TmqKciReport target, long start, byte[] bytes) {
        for (int done = 0; done < bytes.length;) {
            long from = start + done;
            int length = Math.min(bytes.length - done, maxBytes);
            byte[] part = length == bytes.length ? bytes : Arrays.copyOfRange(bytes, done, done + length);
            calls.call(error -> TmqKciInterface._putBytes(id, target, from, length, part, error));
            done += length;
        }
    }

    /**
     * A new object with a body of its own: a plain string for a text, for bytes what the server makes of the source
     * text {@code ByteArray new: n}, for an integer what it makes of its digits, a collection. Counted as a reference.
     */
    TmqKciReport newBody(Object value) {
        if (value instanceof List<?> list) {
            return taken(CollectionValues.create(session, list));
        } else if (value instanceof Map<?, ?> map) {
            return taken(CollectionValues.create(session, map));
        } else if (value instanceof BigInteger number) {
            return newInteger(number);
        }
        byte[] bytes;
        TmqKciReport created;
        if (value instanceof String text) {
            bytes = Values.encode(text, false);
            created = TmqKciReport.ofString("");
            describeCreated(created);
        } else {
            bytes = (byte[]) value;
            created = calls.run("ByteArray new: " + bytes.length, null, null);
        }
        boolean stored = false;
        try {
            storeBytes(created, 1, bytes);
            stored = true;
        } finally {
            if (!stored) {
                session.exports().release(created.oop);
            }
        }
        return created;
    }

    /** An object's description, whose reference the caller takes over. */
    private TmqKciReport taken(KciObject object) {
        session.exports().retain(object.oop());
        object.release();
        return TmqKciReport.ofOop(object.oop());
    }

    private TmqKciReport newInteger(BigInteger number) {
        try {
            return calls.run(number.toString(), null, null);
        } catch (TmqKciException refused) {
            if (refused.fatal) {
                throw refused;
            }
            throw new KciConversionException("the integer " + number + " does not fit the server's: "
                    + refused.getMessage());
        }
    }

    /** Creates and describes the object that a value's report stands for, and counts a reference. */
    private void describeCreated(TmqKciReport value) {
        calls.call(error -> {
            int status = TmqKciInterface._setup(id, value, error);
            session.exports().retain(value.oop);
            if (status < 0) {
                session.exports().release(value.oop);
            }
            return status;
        });
    }

    KciObject create(Object value) {
        calls.enter();
        try {
            TmqKciReport report = Values.toServer(session, value);
            if (report == null) {
                return new KciObject(session, newBody(value).oop, null).refresh();
            }
            describeCreated(report);
            return new KciObject(session, report.oop, report);
        } finally {
            calls.leave();
        }
    }

    /** All references, the named variables or the indexed elements, as they are now. */
    List<KciObject> references(KciObject object, boolean named) {
        calls.enter();
        try {
            TmqKciReport now = describe(object);
            long count = named ? now.namedSize : now.objType == TmqKciReport.KIND_BYTE ? 0 : now.indexedSize;
            return references(object, 1, Math.toIntExact(count), named);
        } finally {
            calls.leave();
        }
    }

    /** References from a place on; fewer where the object ends. */
    List<KciObject> references(KciObject object, long start, int most, boolean named) {
        checkRange(start, Math.min(most, 1));
        int count = (int) Math.min(most, Integer.MAX_VALUE - start + 1);
        TmqKciReport source = TmqKciReport.ofOop(object.oopFor(session));
        List<KciObject> all = new ArrayList<>(Math.min(count, maxReferences));
        calls.enter();
        try {
            while (all.size() < count) {
                long from = start + all.size();
                int length = Math.min(count - all.size(), maxReferences);
                TmqKciReport[] reports = slice(length);
                int got = calls.call(error -> {
                    int status = named ? TmqKciInterface._getNamedObjs(id, source, from, length, reports, error)
                            : TmqKciInterface._getObjs(id, source, from, length, reports, error);
                    session.exports().retain(reports, status);
                    return status;
                });
                for (int i = 0; i < got; ++i) {
                    all.add(new KciObject(session, reports[i].oop, null));
                }
                if (got < length) {
                    break;
                }
            }
        } finally {
            calls.leave();
            Reference.reachabilityFence(object);
        }
        return all;
    }

    /** Reports to be filled, without anything from an earlier use; nothing but their identifiers will be read. */
    private TmqKciReport[] slice(int length) {
        if (slice.length < length) {
            slice = new TmqKciReport[length];
            Arrays.setAll(slice, i -> new TmqKciReport());
            return slice;
        }
        for (int i = 0; i < length; ++i) {
            slice[i].oop = 0;
            slice[i].objType = TmqKciReport.KIND_NONE;
            slice[i].valueType = TmqKciReport.VALUE_NONE;
        }
        return slice;
    }

    void storeReferences(KciObject object, long start, List<?> values, boolean named) {
        checkRange(start, values.size());
        TmqKciReport target = TmqKciReport.ofOop(object.oopFor(session));
        calls.enter();
        try {
            for (int done = 0; done < values.size();) {
                long from = start + done;
                int length = storable(values, done);
                Arguments part = new Arguments(session, null, values.subList(done, done + length).toArray());
                try {
                    calls.call(error -> {
                        int status = named
                                ? TmqKciInterface._putNamedObjs(id, target, from, length, part.reports, error)
                                : TmqKciInterface._putObjs(id, target, from, length, part.reports, error);
                        part.retainCreated(session.exports());
                        return status;
                    });
                } finally {
                    part.releaseCreated(session.exports());
                }
                done += length;
            }
        } finally {
            calls.leave();
            Reference.reachabilityFence(object);
        }
    }

    /** How many values from a place on can go in one call. */
    private int storable(List<?> values, int begin) {
        int end = begin;
        for (int strings = 0; end < values.size() && end - begin < maxReferences; ++end) {
            if (values.get(end) instanceof String && ++strings > MOST_STRINGS) {
                break;
            }
        }
        return end - begin;
    }

    /** The next of what has changed since it was last asked; less than {@link #CHANGES} when there is no more. */
    List<KciObject> changed() {
        long[] oops = new long[Math.min(maxReferences, CHANGES)];
        calls.enter();
        try {
            int count = calls.call(error -> {
                int status = TmqKciInterface._changedOops(id, oops, oops.length, error);
                session.exports().retain(oops, status);
                return status;
            });
            return Arrays.stream(oops, 0, count).mapToObj(oop -> new KciObject(session, oop, null)).toList();
        } finally {
            calls.leave();
        }
    }

    Stream<KciObject> allChanged() {
        List<KciObject> first = changed();
        return parts(Math.min(maxReferences, CHANGES), number -> number == 0 ? first : changed());
    }

    Stream<KciObject> elements(KciObject object) {
        return parts(maxReferences,
                number -> references(object, 1L + (long) number * maxReferences, maxReferences, false));
    }

    /** What a reader answers for 0, 1 and so on, until a part is not full; each is read when the stream comes to it. */
    private static Stream<KciObject> parts(int full, IntFunction<List<KciObject>> reader) {
        Iterator<List<KciObject>> parts = new Iterator<>() {
            private int next;
            private boolean more = true;

            @Override
            public boolean hasNext() {
                return more;
            }

            @Override
            public List<KciObject> next() {
                List<KciObject> part = reader.apply(next++);
                more = part.size() == full;
                return part;
            }
        };
        return StreamSupport.stream(Spliterators.spliteratorUnknownSize(parts, Spliterator.ORDERED), false)
                .flatMap(List::stream);
    }
}
