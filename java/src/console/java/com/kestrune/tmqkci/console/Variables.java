package com.kestrune.tmqkci.console;

import java.util.Map;
import java.util.TreeMap;
import java.util.regex.Matcher;
import java.util.regex.Pattern;

/** The names that {@code :set} gives to texts, which inputs use as ${NAME}, or as ${'NAME'} for a string of it. */
final class Variables {
    private static final Pattern NAME = Pattern.compile("[A-Za-z_][A-Za-z0-9_]*");
    private static final Pattern USE = Pattern.compile("\\$\\{('?)(" + NAME + ")\\1\\}");

    private final Map<String, String> values = new TreeMap<>();

    void set(String name, String value) {
        if (!NAME.matcher(name).matches()) {
            throw new IllegalArgumentException("\"" + name + "\" is no name: letters, digits and _ make one");
        }
        values.put(name, value);
    }

    /** The input with the values in place of the names. What looks like a use but names nothing stays as it is. */
    String expand(String input) {
        return values.isEmpty() ? input : USE.matcher(input).replaceAll(use -> {
            String value = values.get(use.group(2));
            return Matcher.quoteReplacement(value == null ? use.group()
                    : use.group(1).isEmpty() ? value : "'" + value.replace("'", "''") + "'");
        });
    }

    @Override
    public String toString() {
        StringBuilder text = new StringBuilder();
        values.forEach((name, value) -> text.append(name).append('=').append(value).append('\n'));
        return text.toString().stripTrailing();
    }
}
