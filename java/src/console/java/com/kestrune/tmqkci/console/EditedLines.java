package com.kestrune.tmqkci.console;

import java.io.ByteArrayInputStream;
import java.io.IOError;
import java.io.IOException;
import java.io.InterruptedIOException;
import java.nio.charset.StandardCharsets;
import java.nio.file.Files;
import java.nio.file.Path;
import java.nio.file.attribute.PosixFilePermissions;
import java.util.List;

import org.jline.builtins.Less;
import org.jline.builtins.Nano;
import org.jline.builtins.Source.InputStreamSource;
import org.jline.reader.EOFError;
import org.jline.reader.EndOfFileException;
import org.jline.reader.LineReader;
import org.jline.reader.LineReaderBuilder;
import org.jline.reader.ParsedLine;
import org.jline.reader.Parser;
import org.jline.reader.UserInterruptException;
import org.jline.reader.impl.history.DefaultHistory;
import org.jline.terminal.Terminal;
import org.jline.utils.InfoCmp.Capability;

/** Lines that can be edited, with a history, completion of names, a pager, an editor and colours. */
final class EditedLines implements Prompt.Lines {
    private static final String RED = "\u001B[31m";
    private static final String BOLD = "\u001B[1m";
    private static final String PLAIN = "\u001B[0m";
    private static final int FEWEST_COLOURS = 8;

    private final Evaluator evaluator;
    private final SteadyTerminal terminal = SteadyTerminal.open();
    private final LineReader reader;
    private final String bold;
    private String last = "";

    EditedLines(Evaluator evaluator) throws IOException {
        this.evaluator = evaluator;
        terminal.handle(Terminal.Signal.INT, signal -> evaluator.interrupts.signal());
        reader = LineReaderBuilder.builder().terminal(terminal).appName("tmqkci").parser(EditedLines::parse)
                .completer(new Completion(evaluator.commands())).history(new UninterruptedHistory())
                .variable(LineReader.SECONDARY_PROMPT_PATTERN, Prompt.FURTHER).variable(LineReader.ERRORS, 0).build();
        Path history = historyFile();
        if (history != null) {
            reader.setVariable(LineReader.HISTORY_FILE, history);
        }
        reader.setOpt(LineReader.Option.DISABLE_EVENT_EXPANSION);
        evaluator.out.follow(terminal::getWidth, this::page);
        evaluator.err.follow(terminal::getWidth, text -> false);
        evaluator.commands().setEditor(this::edit);
        Integer colours = terminal.getNumericCapability(Capability.max_colors);
        String refused = System.getenv("NO_COLOR");
        boolean coloured = colours != null && colours >= FEWEST_COLOURS && (refused == null || refused.isEmpty());
        bold = coloured ? BOLD : "";
        evaluator.err.setColour(coloured ? RED : "");
    }

    @Override
    public String read() {
        try {
            String lines = reader.readLine(bold + Prompt.first(evaluator) + (bold.isEmpty() ? "" : PLAIN));
            if (lines != null && !lines.startsWith(":")) {
                last = lines;
            }
            return lines;
        } catch (UserInterruptException drop) {
            return "";
        } catch (EndOfFileException end) {
            return null;
        } catch (IOError failure) {
            // An interrupt that comes while JLine does anything but wait for a key.
            return failure.getCause() instanceof InterruptedIOException ? "" : null;
        } finally {
            Thread.interrupted();
        }
    }

    @Override
    public void close() throws IOException {
        terminal.close();
    }

    /** Shows text that is longer than the screen, if that is wanted. */
    private boolean page(String text) {
        if (!evaluator.commands().isPaging()
                || text.lines().mapToInt(line -> 1 + Text.columns(line) / terminal.getWidth()).sum()
                        < terminal.getHeight()) {
            return false;
        }
        try {
            Less less = new Less(terminal);
            byte[] bytes = text.getBytes(StandardCharsets.UTF_8);
            less.run(new InputStreamSource(new ByteArrayInputStream(bytes), true, "result"));
        } catch (IOException | IOError | InterruptedException left) {
            Thread.interrupted();
        }
        return true;
    }

    /** The user's editor, or JLine's if none is named. */
    private String edit(String text) {
        String program = System.getenv("VISUAL") != null ? System.getenv("VISUAL") : System.getenv("EDITOR");
        try {
            Path file = Files.createTempFile("tmqkci", ".kci");
            try {
                Files.writeString(file, text.isEmpty() ? last : text);
                if (program == null || program.isBlank()) {
                    Nano nano = new Nano(terminal, file.getParent());
                    nano.open(file.toString());
                    nano.run();
                } else {
                    terminal.lend(() -> start(program, file));
                }
                return Files.readString(file);
            } finally {
                Files.deleteIfExists(file);
            }
        } catch (IOException | IOError failure) {
            throw new IllegalArgumentException("the editor failed: " + failure.getMessage());
        }
    }

    /** The variables may hold options as well: a shell takes them apart. */
    private static void start(String program, Path file) {
        try {
            Process editor = new ProcessBuilder("sh", "-c", program + " \"$1\"", "sh", file.toString()).inheritIO()
                    .start();
            boolean waiting = true;
            while (waiting) {
                try {
                    int status = editor.waitFor();
                    waiting = false;
                    if (status != 0) {
                        throw new IllegalArgumentException(program + " ended with status " + status);
                    }
                } catch (InterruptedException forTheEditor) {
                    // It has got the same signal.
                }
            }
        } catch (IOException failure) {
            throw new IllegalArgumentException("cannot start " + program + ": " + failure.getMessage());
        }
    }

    /** A file that an interrupt closes in the middle is written to again. */
    private static final class UninterruptedHistory extends DefaultHistory {
        @Override
        public void save() throws IOException {
            Thread.interrupted();
            try {
                super.save();
            } catch (IOException closed) {
                Thread.interrupted();
                super.save();
            }
        }
    }

    /** Where former inputs are kept, for this user alone; null if they cannot be, as in a home that is read-only. */
    private static Path historyFile() {
        Path file = Prompt.ownFile("XDG_STATE_HOME", ".local/state", "history");
        try {
            if (file != null && !Files.exists(file)) {
                Files.createDirectories(file.getParent());
                Files.createFile(file, PosixFilePermissions.asFileAttribute(
                        PosixFilePermissions.fromString("rw-------")));
            }
            return file != null && Files.isRegularFile(file) && Files.isReadable(file) && Files.isWritable(file) ? file
                    : null;
        } catch (IOException unusable) {
            return null;
        }
    }

    /** The word at the cursor; when the input is sent off, whether it is complete. */
    private static ParsedLine parse(String line, int cursor, Parser.ParseContext context) {
        if (context == Parser.ParseContext.ACCEPT_LINE && !Source.isComplete(line)) {
            throw new EOFError(-1, -1, "the input is not complete");
        }
        int begin = cursor;
        while (begin > 0 && isPartOfName(line.charAt(begin - 1))) {
            --begin;
        }
        return new NameAtCursor(line, cursor, line.substring(begin, cursor));
    }

    private static boolean isPartOfName(char c) {
        return Character.isLetterOrDigit(c) || c == '_' || c == ':';
    }

    private record NameAtCursor(String line, int cursor, String word) implements ParsedLine {
        @Override
        public int wordCursor() {
            return word.length();
        }

        @Override
        public int wordIndex() {
            return 0;
        }

        @Override
        public List<String> words() {
            return List.of(word);
        }
    }
}
