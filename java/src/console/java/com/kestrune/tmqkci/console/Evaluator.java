package com.kestrune.tmqkci.console;

import com.kestrune.tmqkci.KciConversionException;
import com.kestrune.tmqkci.KciErrorNumber;
import com.kestrune.tmqkci.KciException;
import com.kestrune.tmqkci.KciInterruptedException;
import com.kestrune.tmqkci.KciInterruptedException.Outcome;
import com.kestrune.tmqkci.KciMessages;
import com.kestrune.tmqkci.KciObject;
import com.kestrune.tmqkci.KciSession;
import com.kestrune.tmqkci.TmqKciException;

import java.time.Duration;
import java.util.ArrayList;
import java.util.LinkedHashMap;
import java.util.List;
import java.util.Locale;
import java.util.Map;

/** Runs inputs, expressions as well as commands, and shows what they answer. */
final class Evaluator {
    private static final String CHANGES = "System hasChanges";
    private static final Duration PATIENCE = Duration.ofSeconds(1);
    private static final int NANOS_PER_MICRO = 1000;

    final KciSession session;
    final Format format;
    final Output out;
    final Output err;
    final Interrupts interrupts = new Interrupts();
    final Shown shown = new Shown();
    final Variables variables = new Variables();
    private final Commands commands = new Commands(this);
    private Input input;
    private String expression = "";
    private TmqKciException lastError;
    private boolean ended;
    /** Whether the server knows of changes. */
    private boolean tellsChanges = true;
    /** Whether the server has answered the expression. */
    private boolean evaluated;
    private volatile boolean busy;
    private volatile boolean interrupted;

    Evaluator(KciSession session, Format format, Output out, Output err) {
        this.session = session;
        this.format = format;
        this.out = out;
        this.err = err;
    }

    Commands commands() {
        return commands;
    }

    /** Whether no further input is wanted, or possible; nor is it when nobody gets its result. */
    boolean hasEnded() {
        return ended || !session.isOpen() || out.isLost();
    }

    void end() {
        ended = true;
    }

    /** Whether the server may still be at an input that was given up before its result came. */
    boolean wasInterrupted() {
        return interrupted;
    }

    /** Whether the transaction has changes, as far as the server tells; it is not asked while it does something. */
    boolean hasChanges() {
        try {
            return tellsChanges && !isBusy() && session.isOpen() && session.withCallTimeout(PATIENCE,
                    () -> session.execute(CHANGES).as(Boolean.class));
        } catch (KciInterruptedException | IllegalStateException notNow) {
            return false;
        } catch (KciException unknown) {
            tellsChanges = false;
            return false;
        }
    }

    /** Whether the session has something to do. From any thread. */
    boolean isBusy() {
        return busy || interrupted;
    }

    /** Runs an input; answers whether it succeeded. */
    boolean run(Input given) {
        Thread runner = Thread.currentThread();
        Input outer = input;
        input = given;
        expression = "";
        evaluated = false;
        busy = true;
        Runnable formerTarget = interrupts.begin(runner::interrupt);
        try {
            String text = given.text().startsWith(":set") ? given.text() : variables.expand(given.text());
            if (text.startsWith(":")) {
                return commands.run(text.substring(1).strip());
            }
            evaluate(text, format.style, format.depth);
            return true;
        } catch (TmqKciException error) {
            interrupted = false;
            lastError = error;
            fail(error);
        } catch (KciInterruptedException interrupt) {
            interrupted = interrupt.outcome() == Outcome.STILL_RUNNING
                    || interrupted && interrupt.outcome() == Outcome.NOT_BEGUN;
            fail(new TmqKciException(evaluated
                    ? "interrupted; the server had done it, but its value is not shown in full"
                    : switch (interrupt.outcome()) {
                        case NOT_BEGUN -> "interrupted before it was begun";
                        case STOPPED -> "interrupted; the server has stopped it";
                        case STILL_RUNNING ->
                            "interrupted; the server still runs it, and the next input waits for its end";
                    }));
        } catch (KciConversionException | IllegalStateException | IllegalArgumentException refused) {
            fail(new TmqKciException(refused.getMessage()));
        } finally {
            interrupts.end(formerTarget);
            input = outer;
            busy = outer != null;
        }
        return false;
    }

    /** Shows the value of an expression. */
    void evaluate(String source, Format.Style style, int depth) {
        expression = source;
        long begin = System.nanoTime();
        KciObject value = session.execute(source);
        evaluated = true;
        interrupted = false;
        long nanos = System.nanoTime() - begin;
        if (style == Format.Style.JSON) {
            Map<String, Object> fields = new LinkedHashMap<>();
            fields.put("ok", true);
            fields.put("expression", source);
            fields.put("printed", shown.printed(value, format.text(out)));
            fields.put("class", shown.className(value));
            fields.put("value", new JsonValue(shown, format.limit).of(value, depth));
            if (Rows.isCollection(value)) {
                fields.put("size", value.indexedSize());
            }
            fields.put("oop", value.oop());
            fields.put("microseconds", nanos / NANOS_PER_MICRO);
            Json.print(out.stream(), fields);
            return;
        }
        boolean data = style == Format.Style.CSV || style == Format.Style.MARKDOWN;
        out.println(switch (style) {
            case TREE -> new Tree(shown, format.limit).of(value, depth);
            case CSV -> new Rows(shown, value, format.limit, shown::data).csv();
            case MARKDOWN -> new Rows(shown, value, format.limit, shown::data).markdown();
            case TABLE -> Rows.isCollection(value) ? new Table(shown, format.limit, format.width(out)).of(value)
                    : shown.printed(value, format.text(out));
            default -> shown.printed(value, format.text(out));
        });
        if (data && Rows.isCollection(value) && value.indexedSize() > format.limit) {
            err.println("The first " + format.limit + " of " + value.indexedSize() + " elements.");
        }
        if (format.time) {
            (data ? err : out).println(String.format(Locale.ROOT, "(%.3f ms)", nanos / 1e6));
        }
    }

    private void fail(TmqKciException error) {
        if (format.style == Format.Style.JSON) {
            Map<String, Object> fields = new LinkedHashMap<>();
            fields.put("ok", false);
            fields.put("expression", input.text());
            if (input.file() != null) {
                fields.put("file", input.file());
                fields.put("line", input.line() + lineIn(error) - 1);
            }
            fields.put("error", fields(error));
            Json.print(out.stream(), fields);
        } else {
            err.println(input.place(lineIn(error)) + line(error));
        }
    }

    /** The line of the expression in which an error lies: a syntax error's argument is its character's position. */
    private int lineIn(TmqKciException error) {
        try {
            if (error.number == KciErrorNumber.BAD_MESSAGE && error.args.length == 1) {
                int end = expression.offsetByCodePoints(0, session.object(error.args[0]).intValue() - 1);
                return 1 + (int) expression.substring(0, end).chars().filter(c -> c == '\n').count();
            }
        } catch (KciConversionException | IndexOutOfBoundsException | IllegalArgumentException
                | TmqKciException other) {
            // Then it is another kind of this error, and lies in the first.
        }
        return 1;
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

    /** The last error in full: message, number, category, arguments as they print themselves, catalogue's text. */
    String report() {
        if (lastError == null) {
            return "There was no error yet.";
        }
        if (lastError.number == 0) {
            return line(lastError);
        }
        String report = KciMessages.report(lastError, 1, true, 1, lastError.argumentPrinter());
        String meaning = KciMessages.text(lastError.category, lastError.number);
        return report.stripTrailing() + (meaning.startsWith("[") ? "" : "\n" + meaning);
    }
}
