package com.kestrune.tmqkci.console;

import com.kestrune.tmqkci.KciObject;
import com.kestrune.tmqkci.TmqKciReport;

import java.math.BigInteger;
import java.util.ArrayList;
import java.util.LinkedHashMap;
import java.util.List;
import java.util.Map;

/**
 * Values as JSON has them: numbers, truth values and texts; arrays of the elements of collections; objects of the named
 * variables, with the elements, where there are any, under the name "elements". What lies deeper, and anything else,
 * is the text that it prints itself as.
 */
final class JsonValue {
    private final Shown shown;
    private final int limit;

    JsonValue(Shown shown, int limit) {
        this.shown = shown;
        this.limit = limit;
    }

    Object of(KciObject object, int depth) {
        Object value = object.as(Object.class);
        if (value == null || value instanceof Number || value instanceof Boolean) {
            return value;
        }
        if (!(value instanceof KciObject) && !(value instanceof byte[])) {
            return value.toString();
        }
        if (depth > 0 && Shown.hasParts(object)) {
            return parts(object, depth - 1);
        }
        String printed = shown.printed(object);
        // A large integer is an object of bytes, whose layout is the server's own.
        return object.description().valueType == TmqKciReport.VALUE_BYTES && printed.matches("-?[0-9]+")
                ? new BigInteger(printed) : printed;
    }

    private Object parts(KciObject object, int depth) {
        List<Object> elements = new ArrayList<>();
        Shown.elements(object, limit).forEach(element -> elements.add(of(element, depth)));
        if (object.namedSize() == 0) {
            return elements;
        }
        Map<String, Object> variables = new LinkedHashMap<>();
        List<String> names = shown.variableNames(object);
        for (KciObject variable : object.session().fetchNamed(object)) {
            variables.put(names.get(variables.size()), of(variable, depth));
        }
        if (!elements.isEmpty()) {
            variables.put("elements", elements);
        }
        return variables;
    }
}
