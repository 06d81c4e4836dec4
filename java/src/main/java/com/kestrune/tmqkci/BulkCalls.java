package com.kestrune.tmqkci;

import java.lang.ref.Reference;
import java.util.ArrayList;
import java.util.Arrays;
import java.util.Collection;
import java.util.List;

/** A session's calls over many objects, cut into slices that fit the bridge's buffers. */
final class BulkCalls {
    private static final KciObject[] NONE = {};

    private final KciSession session;
    private final int id;
    private final SessionCalls calls;
    private final int bufferReferences;
    private final int slice;

    BulkCalls(KciSession session, SessionCalls calls, int maxReferences) {
        this.session = session;
        this.id = session.id();
        this.calls = calls;
        this.bufferReferences = maxReferences;
        this.slice = Math.min(maxReferences, Transfers.LARGEST_SLICE);
    }

    /** Values as new objects, which an array of the server's takes over and hands out again. */
    List<KciObject> create(Collection<?> values) {
        List<Object> all = new ArrayList<>(values);
        calls.enter();
        KciObject array = null;
        try {
            array = arrayOf(all);
            List<KciObject> created = session.transfers().references(array, false);
            for (int i = 0; i < created.size(); ++i) {
                if (all.get(i) instanceof KciObject object) {
                    created.get(i).release();
                    created.set(i, object);
                }
            }
            return created;
        } finally {
            calls.leave();
            if (array != null) {
                array.release();
            }
        }
    }

    /** Objects of a class, each with the values of its first named variables. */
    List<KciObject> create(KciObject cls, Collection<? extends List<?>> rows) {
        List<List<?>> all = new ArrayList<>(rows);
        List<KciObject> created = new ArrayList<>(all.size());
        calls.enter();
        try {
            while (created.size() < all.size()) {
                int begin = created.size();
                int named = all.get(begin).size();
                int end = begin + 1;
                while (end < all.size() && all.get(end).size() == named
                        && (end - begin + 1) * Math.max(1, named) <= slice) {
                    ++end;
                }
                create(cls, named, all.subList(begin, end), created);
            }
            return created;
        } finally {
            calls.leave();
            Reference.reachabilityFence(cls);
            Reference.reachabilityFence(all);
        }
    }

    private void create(KciObject cls, int named, List<List<?>> rows, List<KciObject> created) {
        long classOop = cls.oopFor(session);
        long[] values = new long[named * rows.size()];
        long[] oops = new long[rows.size()];
        List<KciObject> temporary = new ArrayList<>();
        try {
            int next = 0;
            for (List<?> row : rows) {
                for (Object value : row) {
                    values[next++] = oopOf(value, temporary);
                }
            }
            calls.call(error -> {
                try {
                    return TmqKciBulk._create(id, classOop, named, values, oops, oops.length, error);
                } finally {
                    session.exports().retain(oops, oops.length);
                }
            });
        } catch (RuntimeException failure) {
            for (long oop : oops) {
                session.exports().release(oop);
            }
            throw failure;
        } finally {
            temporary.forEach(KciObject::release);
        }
        for (long oop : oops) {
            created.add(new KciObject(session, oop, null));
        }
    }

    /** A value's identifier; one of an object that has to be made for it is kept among the temporary ones. */
    private long oopOf(Object value, List<KciObject> temporary) {
        long immediate = Values.immediateOop(value);
        if (immediate != 0) {
            return immediate;
        }
        if (value instanceof KciObject object) {
            return object.oopFor(session);
        }
        KciObject made = session.create(value);
        temporary.add(made);
        return made.oop();
    }

    /** The references of each object: its named variables, then its indexed elements. */
    List<List<KciObject>> contents(Collection<KciObject> objects) {
        KciObject[] all = objects.toArray(NONE);
        List<List<KciObject>> contents = new ArrayList<>(all.length);
        calls.enter();
        try {
            long[] references = new long[bufferReferences];
            while (contents.size() < all.length) {
                int begin = contents.size();
                long[] oops = new long[Math.min(slice, all.length - begin)];
                Arrays.setAll(oops, i -> all[begin + i].oopFor(session));
                int[] sizes = new int[oops.length];
                int done = calls.call(error -> {
                    int count = TmqKciBulk._contents(id, oops, oops.length, sizes, references, error);
                    int used = 0;
                    for (int i = 0; i < count; ++i) {
                        used += Math.max(0, sizes[i]);
                    }
                    session.exports().retain(references, used);
                    return count;
                });
                take(all, sizes, done, references, contents);
                if (done == 0) {
                    contents.add(separately(all[begin]));
                }
            }
            return contents;
        } finally {
            calls.leave();
            Reference.reachabilityFence(all);
        }
    }

    private void take(KciObject[] all, int[] sizes, int done, long[] references, List<List<KciObject>> contents) {
        KciObject[] kept = new KciObject[Math.max(0, Arrays.stream(sizes, 0, done).filter(size -> size > 0).sum())];
        Arrays.setAll(kept, i -> new KciObject(session, references[i], null));
        int next = 0;
        for (int i = 0; i < done; ++i) {
            if (sizes[i] == TmqKciBulk.TOO_LARGE) {
                contents.add(separately(all[contents.size()]));
            } else {
                contents.add(List.of(Arrays.copyOfRange(kept, next, next + sizes[i])));
                next += sizes[i];
            }
        }
    }

    private List<KciObject> separately(KciObject object) {
        List<KciObject> references = new ArrayList<>(session.transfers().references(object, true));
        references.addAll(session.transfers().references(object, false));
        return references;
    }

    /** What each receiver answers to a message: a block of the server's sends it to one after another. */
    List<KciObject> send(Collection<?> receivers, String selector, Object... arguments) {
        String message = message(selector, arguments.length);
        List<KciObject> temporary = new ArrayList<>();
        calls.enter();
        try {
            temporary.add(session.execute("[:r :a | r collect: [:e | e " + message + "]]"));
            temporary.add(arrayOf(new ArrayList<>(receivers)));
            temporary.add(arrayOf(Arrays.asList(arguments)));
            temporary.add(temporary.get(0).send("value:value:", temporary.get(1), temporary.get(2)));
            return session.transfers().references(temporary.get(3), false);
        } finally {
            calls.leave();
            temporary.forEach(KciObject::release);
        }
    }

    /** The message as source text, with the elements of a for its arguments; nothing else can get into it. */
    private static String message(String selector, int arguments) {
        String[] keywords = selector.split("(?<=:)");
        boolean isBinary = selector.matches("[-+*/\\\\<>=~@%|&?,]+");
        boolean fits = isBinary ? arguments == 1 : selector.matches("([a-zA-Z_]\\w*:)+") ? arguments == keywords.length
                : arguments == 0 && selector.matches("[a-zA-Z_]\\w*");
        if (!fits) {
            throw new IllegalArgumentException("#" + selector + " is no message with " + arguments + " arguments");
        }
        StringBuilder text = new StringBuilder();
        for (int i = 0; i < keywords.length; ++i) {
            text.append(keywords[i]).append(arguments == 0 ? "" : " (a at: " + (i + 1) + ") ");
        }
        return text.toString();
    }

    private KciObject arrayOf(List<?> values) {
        KciObject array = session.execute("Array new: " + values.size());
        boolean filled = false;
        try {
            session.storeElements(array, 1, values);
            filled = true;
            return array;
        } finally {
            if (!filled) {
                array.release();
            }
        }
    }
}
