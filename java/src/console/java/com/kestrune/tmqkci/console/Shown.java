package com.kestrune.tmqkci.console;

import com.kestrune.tmqkci.KciConversionException;
import com.kestrune.tmqkci.KciObject;
import com.kestrune.tmqkci.TmqKciException;
import com.kestrune.tmqkci.TmqKciReport;

import java.io.ByteArrayOutputStream;
import java.nio.charset.StandardCharsets;
import java.util.ArrayList;
import java.util.HashMap;
import java.util.List;
import java.util.Map;

/** Objects as texts. What the server cannot say of an object is shown as far as it is known without asking. */
final class Shown {
    private static final int SLICE = 64 * 1024;

    private final Map<Long, String> classNames = new HashMap<>();
    private final Map<Long, List<String>> variableNames = new HashMap<>();

    /** How the object prints itself. */
    String printed(KciObject object) {
        return printed(object, 0);
    }

    /** How the object prints itself, no more than so many characters of it, with what is left; 0 for all. */
    String printed(KciObject object, int limit) {
        return object.render(string -> text(string, limit));
    }

    /** As {@link #printed}, on one line of bounded length. */
    String brief(KciObject object, int width) {
        // Cut short first: measuring a long line takes long.
        String line = printed(object, width + 1).replace('\n', ' ').replace('\r', ' ').replace('\t', ' ');
        return Text.cut(line, width);
    }

    /** What a reader of data wants: the characters of a string, and how anything else prints itself. */
    String data(KciObject object) {
        return object.isNil() ? "" : object.isString() ? text(object, 0) : printed(object);
    }

    /** A string's text, with progress for a long one. */
    private static String text(KciObject string, int limit) {
        TmqKciReport description = string.description();
        if (!string.isString() || description.isDBString || description.indexedSize <= SLICE) {
            String text = string.stringValue();
            return limit > 0 && text.length() > limit ? cut(text.substring(0, limit), text.length()) : text;
        }
        if (limit > 0 && limit < description.indexedSize) {
            byte[] begin = string.session().fetchBytes(string, 1, limit);
            return cut(new String(begin, StandardCharsets.ISO_8859_1), description.indexedSize);
        }
        ByteArrayOutputStream bytes = new ByteArrayOutputStream();
        try (Progress progress = new Progress("bytes read")) {
            while (bytes.size() < description.indexedSize) {
                int count = (int) Math.min(SLICE, description.indexedSize - bytes.size());
                bytes.writeBytes(string.session().fetchBytes(string, bytes.size() + 1L, count));
                progress.reached(bytes.size(), description.indexedSize);
            }
        }
        return bytes.toString(StandardCharsets.ISO_8859_1);
    }

    private static String cut(String begin, long all) {
        return begin + "... (" + begin.length() + " of " + all + " characters)";
    }

    /** The name of the object's class; its identifier if the server tells none. */
    String className(KciObject object) {
        if (object.isImmediate()) {
            return nameOf(object);
        }
        return classNames.computeIfAbsent(object.classOop(), oop -> nameOf(object));
    }

    private static String nameOf(KciObject object) {
        try {
            return object.send("class").send("name").stringValue();
        } catch (TmqKciException | KciConversionException unknown) {
            return object.isImmediate() ? "immediate" : "class " + object.classOop();
        }
    }

    /** The names of the object's named variables; their numbers, as far as the server tells no names. */
    List<String> variableNames(KciObject object) {
        return variableNames.computeIfAbsent(object.classOop(), oop -> askForNames(object));
    }

    private static List<String> askForNames(KciObject object) {
        List<String> names = new ArrayList<>();
        try {
            for (KciObject cls = object.send("class"); !cls.isNil() && names.size() < object.namedSize();
                    cls = cls.send("superclass")) {
                KciObject own = cls.send("variableNames");
                if (own.isNil()) {
                    continue;
                }
                List<String> inherited = List.copyOf(names);
                names.clear();
                for (KciObject name : own.session().fetchElements(own)) {
                    names.add(name.stringValue());
                }
                names.addAll(inherited);
            }
        } catch (TmqKciException | KciConversionException unknown) {
            names.clear();
        }
        if (names.size() != object.namedSize()) {
            names.clear();
            for (int i = 1; i <= object.namedSize(); ++i) {
                names.add(Integer.toString(i));
            }
        }
        return names;
    }

    /** Whether the object's body is references that can be shown one by one. */
    static boolean hasParts(KciObject object) {
        if (object.isImmediate() || object.isString()) {
            return false;
        }
        byte kind = object.description().objType;
        return (kind == TmqKciReport.KIND_POINTER || kind == TmqKciReport.KIND_UNORDERED)
                && object.namedSize() + object.indexedSize() > 0;
    }

    /** The first elements, with progress where there are many. */
    static List<KciObject> elements(KciObject collection, int limit) {
        int all = (int) Math.min(limit, collection.indexedSize());
        List<KciObject> elements = new ArrayList<>(all);
        try (Progress progress = new Progress("elements read")) {
            while (elements.size() < all) {
                List<KciObject> part = collection.session().fetchElements(collection, elements.size() + 1L,
                        Math.min(SLICE / 16, all - elements.size()));
                if (part.isEmpty()) {
                    break;
                }
                elements.addAll(part);
                progress.reached(elements.size(), all);
            }
        }
        return elements;
    }
}
