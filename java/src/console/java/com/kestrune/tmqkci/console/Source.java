package com.kestrune.tmqkci.console;

import java.io.IOException;
import java.io.InputStream;
import java.io.InputStreamReader;
import java.io.LineNumberReader;
import java.nio.charset.Charset;
import java.util.regex.Matcher;
import java.util.regex.Pattern;

/**
 * Finds the end of an input that is given in lines. It goes on while a bracket, a string or a comment is open, after a
 * line that ends with {@code ;}, {@code :=} or a backslash, and, if it declares temporaries, after the declaration and
 * after a period. An empty line ends it unless a string or comment is open.
 */
final class Source {
    /** A command's own words, before its expression; the whole line where there is none. */
    private static final Pattern COMMAND = Pattern.compile("\\s*:((table|tree|edit)\\b(\\s+[0-9]+(?=\\s))?|.*)");

    /** How far the declaration of temporaries is. */
    private enum Begin {
        NOTHING, DECLARING, DECLARED, STATEMENTS_AFTER_DECLARATION, STATEMENTS
    }

    private final StringBuilder text = new StringBuilder();
    private Begin begin = Begin.NOTHING;
    private boolean blank = true;
    private boolean command;
    private int depth;
    private char quote;

    private Source() {
    }

    /**
     * Reads strictly: what is not in the encoding is an error. A byte order mark at the begin is left out, and so is a
     * first line that names the file's interpreter.
     */
    static LineNumberReader reader(InputStream in, Charset charset) throws IOException {
        LineNumberReader reader = new LineNumberReader(new InputStreamReader(in, charset.newDecoder()));
        reader.mark(1);
        if (reader.read() != '\uFEFF') {
            reader.reset();
        }
        reader.mark(2);
        if (reader.read() == '#' && reader.read() == '!') {
            reader.readLine();
        } else {
            reader.reset();
        }
        return reader;
    }

    /** The next input of a file of that name; null at the end. What the end of the file cuts short is an input. */
    static Input read(LineNumberReader in, String file) throws IOException {
        Source source = new Source();
        int begin = in.getLineNumber() + 1;
        for (String line = in.readLine(); line != null; line = in.readLine()) {
            if (source.isCompleteWith(line)) {
                if (!source.isNothing()) {
                    break;
                }
                source = new Source();
                begin = in.getLineNumber() + 1;
            }
        }
        return source.isNothing() ? null : new Input(source.input(), file, begin);
    }

    /** The input without the backslashes that continued its lines; empty if there are only comments. */
    static String joined(String lines) {
        Source source = new Source();
        lines.lines().forEach(source::isCompleteWith);
        return source.isNothing() ? "" : source.input();
    }

    static boolean isComplete(String lines) {
        Source source = new Source();
        boolean complete = true;
        for (String line : lines.split("\n", -1)) {
            complete = source.isCompleteWith(line);
        }
        return complete;
    }

    /** Whether there is nothing to run so far: no more than blanks and comments that have ended. */
    private boolean isNothing() {
        return begin == Begin.NOTHING && quote == 0 && !command;
    }

    private String input() {
        return text.toString().strip();
    }

    /** Adds a line; answers whether the input is complete with it. */
    private boolean isCompleteWith(String line) {
        Matcher words = COMMAND.matcher(line);
        boolean begins = blank && words.lookingAt();
        command |= begins;
        String rest = line.substring(scan(line, begins ? words.end() : 0)).stripTrailing();
        blank &= line.isBlank();
        boolean continued = quote == 0 && rest.endsWith("\\");
        // The operator \\ is no continuation; it goes on for its argument's sake, and stays.
        boolean dropped = continued && (rest.length() - rest.replaceFirst("\\\\+$", "").length()) % 2 != 0;
        text.append(dropped ? line.substring(0, line.lastIndexOf('\\')) : line).append('\n');
        if (quote != 0) {
            return false;
        }
        return line.isBlank() || depth <= 0 && !continued && !rest.endsWith(";") && !rest.endsWith(":=")
                && begin != Begin.DECLARED
                && !(begin == Begin.STATEMENTS_AFTER_DECLARATION && rest.endsWith("."));
    }

    /** Follows brackets and quotes; answers where the last string, comment or character literal ends. */
    private int scan(String line, int from) {
        int literalEnd = from;
        for (int i = from; i < line.length(); ++i) {
            char c = line.charAt(i);
            if (quote != 0) {
                quote = c == quote ? 0 : quote;
                literalEnd = i + 1;
                continue;
            }
            if (!Character.isWhitespace(c)) {
                begin = afterwards(c);
            }
            if (c == '$') {
                literalEnd = Math.min(++i + 1, line.length());
            } else if (c == '\'' || c == '"') {
                quote = c;
            } else if (c == '(' || c == '[' || c == '{') {
                ++depth;
            } else if (c == ')' || c == ']' || c == '}') {
                --depth;
            }
        }
        return literalEnd;
    }

    private Begin afterwards(char c) {
        return switch (begin) {
            case NOTHING -> c == '|' ? Begin.DECLARING : c == '"' ? Begin.NOTHING : Begin.STATEMENTS;
            case DECLARING -> c == '|' ? Begin.DECLARED : Begin.DECLARING;
            case DECLARED -> c == '"' ? Begin.DECLARED : Begin.STATEMENTS_AFTER_DECLARATION;
            default -> begin;
        };
    }
}
