package com.kestrune.tmqkci.console;

import com.kestrune.tmqkci.KciConversionException;
import com.kestrune.tmqkci.KciInterruptedException;
import com.kestrune.tmqkci.KciMessages;
import com.kestrune.tmqkci.KciObject;
import com.kestrune.tmqkci.KciSession;
import com.kestrune.tmqkci.TmqKciException;
import com.kestrune.tmqkci.TmqKciReport;

import java.io.PrintStream;
import java.math.BigInteger;
import java.util.ArrayList;
import java.util.LinkedHashMap;
import java.util.List;
import java.util.Locale;
import java.util.Map;

/** Runs inputs, expressions as well as commands, and shows what they answer. */
final class Evaluator {
    /** What the inputs' results look like. */
    static final class Format {
        boolean json;
        boolean time;
        boolean table;
        /** How deep trees are; 0 for no trees. */
        int treeDepth;
        int limit;
    }

    private static final int NANOS_PER_MICRO = 1000;
    private static final int DEFAULT_DEPTH = 3;

    private final KciSession session;
    private final Format format;
    private final PrintStream out;
    private final PrintStream err;
    private final Shown shown = new Shown();
    private TmqKciException lastError;
    private boolean ended;
    private boolean interrupted;

    Evaluator(KciSession session, Format format, PrintStream out, PrintStream err) {
        this.session = session;
        this.format = format;
        this.out = out;
        this.err = err;
    }

    /** Whether no further input is wanted, or possible; nor is it when nobody gets its result. */
    boolean hasEnded() {
        return ended || !session.isOpen() || out.checkError();
    }

    /** Whether the server may still be at an input that was given up before its result came. */
    boolean wasInterrupted() {
        return interrupted;
    }

    /** Runs an input; answers whether it succeeded. */
    boolean run(String input) {
        try {
            if (input.startsWith(":")) {
                return command(input);
            }
            show(input, format.table, format.treeDepth);
            return true;
        } catch (TmqKciException error) {
            interrupted = false;
            lastError = error;
            fail(input, error);
            return false;
        } catch (KciInterruptedException interrupt) {
            Thread.interrupted();
            interrupted = true;
            fail(input, new TmqKciException("interrupted; the server goes on with it, and the next input waits for its "
                    + "end"));
            return false;
        } catch (KciConversionException | IllegalStateException | IllegalArgumentException refused) {
            fail(input, new TmqKciException(refused.getMessage()));
            return false;
        }
    }

    private boolean command(String input) {
        String[] words = input.substring(1).strip().split("\\s+", 2);
        String rest = words.length > 1 ? words[1] : "";
        switch (words[0]) {
            case "help", "h", "?" -> out.print(Help.TEXT);
            case "quit", "q" -> ended = true;
            case "error" -> out.println(lastError == null ? "There was no error yet." : report(lastError));
            case "table" -> show(rest, true, 0);
            case "tree" -> tree(rest);
            case "time" -> format.time = !rest.equals("off");
            default -> {
                err.println("There is no command :" + words[0] + "; :help lists those that there are.");
                return false;
            }
        }
        return true;
    }

    /** With a depth in front of the expression, or without. */
    private void tree(String rest) {
        String[] words = rest.split("\\s+", 2);
        if (words.length == 2 && words[0].matches("[0-9]{1,3}")) {
            show(words[1], false, Integer.parseInt(words[0]));
        } else {
            show(rest, false, DEFAULT_DEPTH);
        }
    }

    private void show(String expression, boolean table, int depth) {
        long begin = System.nanoTime();
        KciObject value = session.execute(expression);
        interrupted = false;
        long nanos = System.nanoTime() - begin;
        if (format.json) {
            Map<String, Object> fields = new LinkedHashMap<>();
            fields.put("ok", true);
            fields.put("expression", expression);
            String printed = shown.printed(value);
            fields.put("printed", printed);
            fields.put("class", shown.className(value));
            fields.put("value", jsonValue(value, printed));
            fields.put("oop", value.oop());
            fields.put("microseconds", nanos / NANOS_PER_MICRO);
            Json.print(out, fields);
        } else {
            out.println(depth > 0 ? new Tree(shown, format.limit).of(value, depth)
                    : table ? new Table(shown, format.limit).of(value) : shown.printed(value));
            if (format.time) {
                out.println(String.format(Locale.ROOT, "(%.3f ms)", nanos / 1e6));
            }
        }
    }

    /** The value itself where JSON has one, else null. */
    private static Object jsonValue(KciObject object, String printed) {
        Object value = object.as(Object.class);
        // A large integer is an object of bytes, whose layout is the server's own.
        if (value == object && object.description().valueType == TmqKciReport.VALUE_BYTES
                && printed.matches("-?[0-9]+")) {
            return new BigInteger(printed);
        }
        return value instanceof KciObject || value instanceof byte[] ? null
                : value instanceof Number || value instanceof Boolean || value == null ? value : value.toString();
    }

    private void fail(String input, TmqKciException error) {
        if (format.json) {
            Map<String, Object> fields = new LinkedHashMap<>();
            fields.put("ok", false);
            fields.put("expression", input);
            fields.put("error", fields(error));
            Json.print(out, fields);
        } else {
            err.println(line(error));
        }
    }

    /** An error's number and message, which may have several lines. */
    static String line(TmqKciException error) {
        return error.number == 0 ? "Error: " + error.getMessage() : "Error " + error.number + ": " + error.getMessage();
    }

    static Map<String, Object> fields(TmqKciException error) {
        Map<String, Object> fields = new LinkedHashMap<>();
        fields.put("number", error.number);
        fields.put("category", error.category);
        fields.put("message", error.getMessage());
        fields.put("fatal", error.fatal);
        List<Long> arguments = new ArrayList<>();
        for (int i = 0; error.args != null && i < error.args.length; ++i) {
            arguments.add(error.args[i]);
        }
        fields.put("arguments", arguments);
        return fields;
    }

    /** The error in full: message, number, category, arguments as they print themselves, and the catalogue's text. */
    private String report(TmqKciException error) {
        if (error.number == 0) {
            return line(error);
        }
        String report = KciMessages.report(error, 1, true, 1, this::argument);
        String meaning = KciMessages.text(error.category, error.number);
        return report.stripTrailing() + (meaning.startsWith("[") ? "" : "\n" + meaning);
    }

    /** An error's argument as it prints itself; null, for its identifier, if the object is gone or never was one. */
    private String argument(long oop) {
        try {
            return session.isOpen() ? shown.printed(session.object(oop)) : null;
        } catch (TmqKciException | IllegalArgumentException gone) {
            return null;
        }
    }
}
