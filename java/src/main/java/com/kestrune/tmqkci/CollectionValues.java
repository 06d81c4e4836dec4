package com.kestrune.tmqkci;

import java.math.BigInteger;
import java.util.ArrayList;
import java.util.Arrays;
import java.util.HashMap;
import java.util.List;
import java.util.Map;

/**
 * Java's lists and maps as the server's: a {@code List}, which an array becomes by {@code asList}, and a
 * {@code Dictionary}. A server without these answers an error.
 */
final class CollectionValues {
    /** Collections inside of each other beyond this are taken for one that holds itself. */
    private static final int DEEPEST = 100;

    private CollectionValues() {
    }

    static KciObject create(KciSession session, List<?> list) {
        List<KciObject> elements = session.createAll(list);
        KciObject array = session.execute("Array new: " + list.size());
        try {
            session.storeElements(array, 1, elements);
            return array.send("asList");
        } finally {
            array.release();
            releaseMade(elements, list);
        }
    }

    static KciObject create(KciSession session, Map<?, ?> map) {
        List<Object> flat = new ArrayList<>(2 * map.size());
        map.forEach((key, value) -> flat.addAll(Arrays.asList(key, value)));
        KciObject list = create(session, flat);
        try {
            KciObject dictionary = session.execute("[:l | | d | d := Dictionary new. "
                    + "1 to: l size by: 2 do: [:i | d at: (l at: i) put: (l at: i + 1)]. d]", list);
            if (dictionary.send("size").intValue() != map.size()) {
                dictionary.release();
                throw new KciConversionException("the map has keys that differ in Java and are equal on the server");
            }
            return dictionary;
        } finally {
            list.release();
        }
    }

    private static void releaseMade(List<KciObject> objects, List<?> values) {
        for (int i = 0; i < objects.size(); ++i) {
            if (!(values.get(i) instanceof KciObject)) {
                objects.get(i).release();
            }
        }
    }

    static List<Object> list(KciObject object, int depth) {
        List<KciObject> elements = object.session().fetchElements(object);
        List<Object> values = new ArrayList<>(elements.size());
        for (KciObject element : elements) {
            values.add(value(element, depth + 1));
        }
        return values;
    }

    static Map<Object, Object> map(KciObject object, int depth) {
        KciObject flat;
        try {
            flat = object.session().execute("[:d | | l | l := List new. "
                    + "d keysAndValuesDo: [:k :v | l add: k; add: v]. l]", object);
        } catch (TmqKciException refused) {
            if (refused.fatal || refused.number != KciErrorNumber.DOES_NOT_UNDERSTAND) {
                throw refused;
            }
            throw Values.refused(object, Map.class);
        }
        List<Object> all = list(flat, depth);
        flat.release();
        Map<Object, Object> map = new HashMap<>();
        for (int i = 0; i < all.size(); i += 2) {
            map.put(all.get(i), all.get(i + 1));
        }
        return map;
    }

    static boolean isList(KciObject object) {
        if (object.isImmediate()) {
            return false;
        }
        TmqKciReport description = object.description();
        return description.objType == TmqKciReport.KIND_POINTER && description.isCollection
                && description.namedSize == 0;
    }

    /** An element as the type that fits it best, collections included. */
    private static Object value(KciObject object, int depth) {
        if (depth > DEEPEST) {
            throw new KciConversionException(object + " lies more than " + DEEPEST + " collections deep");
        }
        Object natural = object.as(Object.class);
        if (natural != object) {
            return natural;
        }
        TmqKciReport description = object.description();
        if (isList(object)) {
            return list(object, depth);
        } else if (description.objType == TmqKciReport.KIND_UNORDERED && isDictionary(object)) {
            return map(object, depth);
        } else if (description.valueType == TmqKciReport.VALUE_BYTES) {
            BigInteger number = Values.largeInteger(object);
            if (number == null) {
                return object.bytesValue();
            }
            return number.bitLength() < Integer.SIZE ? (Object) number.intValue()
                    : number.bitLength() < Long.SIZE ? (Object) number.longValue() : number;
        }
        return object;
    }

    private static boolean isDictionary(KciObject object) {
        KciObject cls = object.session().execute("Dictionary");
        boolean is = object.isKindOf(cls);
        cls.release();
        return is;
    }
}
