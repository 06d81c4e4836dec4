package com.kestrune.tmqkci.console;

import java.io.PrintStream;
import java.nio.charset.StandardCharsets;
import java.util.Map;

/** JSON text (RFC 8259) of maps, iterables, strings, numbers, booleans and null, on one line. */
final class Json {
    private Json() {
    }

    /** Writes a line, in UTF-8 whatever the stream's own encoding is; its control characters are escapes. */
    static void print(PrintStream out, Object value) {
        byte[] line = (of(value) + "\n").getBytes(StandardCharsets.UTF_8);
        out.write(line, 0, line.length);
    }

    /** The text, without an end of line. */
    static String of(Object value) {
        StringBuilder text = new StringBuilder();
        append(text, value);
        return text.toString();
    }

    private static void append(StringBuilder text, Object value) {
        if (value instanceof Map<?, ?> map) {
            char separator = '{';
            for (Map.Entry<?, ?> entry : map.entrySet()) {
                appendString(text.append(separator), entry.getKey().toString());
                append(text.append(':'), entry.getValue());
                separator = ',';
            }
            text.append(separator == '{' ? "{}" : "}");
        } else if (value instanceof Iterable<?> elements) {
            char separator = '[';
            for (Object element : elements) {
                append(text.append(separator), element);
                separator = ',';
            }
            text.append(separator == '[' ? "[]" : "]");
        } else if (value instanceof Double number && (number.isNaN() || number.isInfinite())) {
            appendString(text, number.toString());
        } else if (value == null || value instanceof Number || value instanceof Boolean) {
            text.append(value);
        } else {
            appendString(text, value.toString());
        }
    }

    private static void appendString(StringBuilder text, String string) {
        text.append('"');
        for (int i = 0; i < string.length(); ++i) {
            char unit = string.charAt(i);
            switch (unit) {
                case '"', '\\' -> text.append('\\').append(unit);
                case '\n' -> text.append("\\n");
                case '\r' -> text.append("\\r");
                case '\t' -> text.append("\\t");
                default -> {
                    // Surrogates that stand alone have no UTF-8 form.
                    if (unit < ' ' || unit >= 0x7F && unit < 0xA0 || isLoneSurrogate(string, i)) {
                        text.append(String.format("\\u%04x", (int) unit));
                    } else {
                        text.append(unit);
                    }
                }
            }
        }
        text.append('"');
    }

    private static boolean isLoneSurrogate(String string, int i) {
        char unit = string.charAt(i);
        if (Character.isHighSurrogate(unit)) {
            return i + 1 == string.length() || !Character.isLowSurrogate(string.charAt(i + 1));
        }
        return Character.isLowSurrogate(unit) && (i == 0 || !Character.isHighSurrogate(string.charAt(i - 1)));
    }
}
