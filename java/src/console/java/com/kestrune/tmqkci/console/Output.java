package com.kestrune.tmqkci.console;

import java.io.FileDescriptor;
import java.io.FileOutputStream;
import java.io.IOException;
import java.io.PrintStream;
import java.nio.charset.StandardCharsets;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.function.IntSupplier;
import java.util.function.Predicate;

import org.jline.terminal.impl.ExecPty;

/**
 * A standard stream for text that may come from the server: what would steer a terminal reaches none. Results can be
 * led into a file instead.
 */
final class Output {
    static final Output OUT = new Output(FileDescriptor.out, Terminals.OUTPUT);
    static final Output ERR = new Output(FileDescriptor.err, Terminals.ERROR);

    private static final int USUAL_COLUMNS = 80;

    private final PrintStream standard;
    private final boolean terminal;
    private PrintStream file;
    private IntSupplier width = Output::askedColumns;
    private Predicate<String> pager = text -> false;
    private String colour = "";

    private Output(FileDescriptor descriptor, int number) {
        standard = new PrintStream(new FileOutputStream(descriptor), true, Terminals.charset());
        terminal = Terminals.isTerminal(number);
    }

    /** The stream itself, for text of the console's own. */
    PrintStream stream() {
        return file != null ? file : standard;
    }

    /** Writes text and the end of its line. */
    void println(String text) {
        String shown = isTerminal() ? Text.visible(text) : text;
        if (!isTerminal() || !pager.test(shown)) {
            stream().println(colour.isEmpty() ? shown : colour + shown + "\u001B[0m");
        }
    }

    /** Writes text that waits for an answer. */
    void prompt(String text) {
        standard.print(text);
        standard.flush();
    }

    boolean isTerminal() {
        return terminal && file == null;
    }

    /** How wide the terminal is. */
    int columns() {
        return width.getAsInt();
    }

    private static int askedColumns() {
        try {
            int columns = ExecPty.current().getSize().getColumns();
            return columns > 0 ? columns : USUAL_COLUMNS;
        } catch (IOException noTerminal) {
            return USUAL_COLUMNS;
        }
    }

    /** Takes the width from elsewhere, and shows long text with the pager if that takes it. */
    void follow(IntSupplier columns, Predicate<String> longText) {
        width = columns;
        pager = longText;
    }

    /** Text is shown in this colour, an escape sequence, from now on. */
    void setColour(String sequence) {
        colour = sequence;
    }

    /** Leads what follows into a file, made anew; null leads it back. Answers whether the former one took all. */
    boolean redirect(Path to) throws IOException {
        PrintStream next = to == null ? null
                : new PrintStream(Files.newOutputStream(to), false, StandardCharsets.UTF_8);
        boolean complete = file == null || !file.checkError();
        if (file != null) {
            file.close();
        }
        file = next;
        return complete;
    }

    /** Whether anything could not be written to the standard stream. */
    boolean isLost() {
        return standard.checkError();
    }
}
