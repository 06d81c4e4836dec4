package com.kestrune.tmqkci.console;

import java.io.BufferedReader;
import java.io.IOException;

/**
 * Finds the end of an input that is given in lines. It goes on while a bracket, a string or a comment is open, after a
 * line that ends with {@code ;}, {@code :=} or a backslash, and, if it declares temporaries, after the declaration and
 * after a period. An empty line ends it unless a string or comment is open.
 */
final class Source {
    private Source() {
    }

    /** The next input; null at the end. What the end of the file cuts short counts as an input. */
    static String read(BufferedReader in) throws IOException {
        StringBuilder lines = new StringBuilder();
        for (String line = in.readLine(); line != null; line = in.readLine()) {
            lines.append(lines.length() > 0 ? "\n" : "").append(line);
            if (isComplete(lines.toString())) {
                if (!lines.toString().isBlank()) {
                    return joined(lines.toString());
                }
                lines.setLength(0);
            }
        }
        return lines.toString().isBlank() ? null : joined(lines.toString());
    }

    /** The input without the backslashes that continued its lines. */
    static String joined(String lines) {
        return lines.replace("\\\n", "\n").strip();
    }

    static boolean isComplete(String lines) {
        int depth = 0;
        char quote = 0;
        for (int i = 0; i < lines.length(); ++i) {
            char c = lines.charAt(i);
            if (quote != 0) {
                quote = c == quote ? 0 : quote;
            } else if (c == '$') {
                ++i;
            } else if (c == '\'' || c == '"') {
                quote = c;
            } else if (c == '(' || c == '[' || c == '{') {
                ++depth;
            } else if (c == ')' || c == ']' || c == '}') {
                --depth;
            }
        }
        if (lines.stripLeading().startsWith(":")) {
            return true;
        }
        if (quote != 0) {
            return false;
        }
        boolean endsWithEmptyLine = lines.substring(lines.lastIndexOf('\n') + 1).isBlank();
        return endsWithEmptyLine || depth <= 0 && !goesOn(lines.strip());
    }

    private static boolean goesOn(String text) {
        if (text.endsWith(";") || text.endsWith(":=") || text.endsWith("\\")) {
            return true;
        }
        int declared = text.startsWith("|") ? text.indexOf('|', 1) : -1;
        return declared > 0 && (declared == text.length() - 1 || text.endsWith("."));
    }
}
