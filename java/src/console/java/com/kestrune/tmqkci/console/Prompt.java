package com.kestrune.tmqkci.console;

import com.kestrune.tmqkci.KciBridge;
import com.kestrune.tmqkci.KciSession;

import java.io.IOException;
import java.io.PrintStream;
import java.nio.file.Files;
import java.nio.file.InvalidPathException;
import java.nio.file.Path;
import java.nio.file.attribute.PosixFilePermissions;
import java.util.List;

import org.jline.reader.EOFError;
import org.jline.reader.EndOfFileException;
import org.jline.reader.LineReader;
import org.jline.reader.LineReaderBuilder;
import org.jline.reader.ParsedLine;
import org.jline.reader.Parser;
import org.jline.reader.UserInterruptException;
import org.jline.terminal.Size;
import org.jline.terminal.Terminal;
import org.jline.terminal.TerminalBuilder;

/** The console at a terminal: inputs of several lines, their history, completion of names. */
final class Prompt {
    private static final int USUAL_COLUMNS = 80;
    private static final int USUAL_ROWS = 24;

    private final KciSession session;
    private final Evaluator evaluator;
    private final PrintStream out;

    Prompt(KciSession session, Evaluator evaluator, PrintStream out) {
        this.session = session;
        this.evaluator = evaluator;
        this.out = out;
    }

    void run() throws IOException {
        Thread thread = Thread.currentThread();
        try (Terminal terminal = TerminalBuilder.builder().name("tmqkci").system(true).jna(false).jansi(false)
                .encoding(Terminals.charset().name()).nativeSignals(true).build()) {
            if (terminal.getWidth() == 0 || terminal.getHeight() == 0) {
                terminal.setSize(new Size(USUAL_COLUMNS, USUAL_ROWS));
            }
            terminal.handle(Terminal.Signal.INT, signal -> thread.interrupt());
            ServerNames names = new ServerNames(session);
            LineReader reader = LineReaderBuilder.builder().terminal(terminal).appName("tmqkci")
                    .parser(Prompt::parse).completer(names).variable(LineReader.SECONDARY_PROMPT_PATTERN, "   ...> ").build();
            Path history = historyFile();
            if (history != null) {
                reader.setVariable(LineReader.HISTORY_FILE, history);
            }
            reader.setOpt(LineReader.Option.DISABLE_EVENT_EXPANSION);
            out.println("tmqkci " + Tmqkci.Version.own() + ", client library " + KciBridge.clientVersion() + ", "
                    + session + ". :help helps, :quit quits.");
            while (!evaluator.hasEnded()) {
                try {
                    String lines = reader.readLine("tmqkci> ");
                    if (lines == null) {
                        // How a terminal without abilities tells the end.
                        break;
                    }
                    String input = Source.joined(lines);
                    if (!input.isEmpty()) {
                        evaluator.run(input);
                        names.outdated();
                    }
                } catch (UserInterruptException dropped) {
                    Thread.interrupted();
                } catch (EndOfFileException end) {
                    break;
                }
            }
        }
    }

    /** Where former inputs are kept, for this user alone; null if they cannot be, as in a home that is read-only. */
    private static Path historyFile() {
        String state = System.getenv("XDG_STATE_HOME");
        String home = System.getenv("HOME");
        try {
            Path folder = (state != null && state.startsWith("/") ? Path.of(state)
                    : Path.of(home != null ? home : System.getProperty("user.home"), ".local", "state"))
                    .resolve("tmqkci");
            Path file = folder.resolve("history");
            Files.createDirectories(folder);
            if (!Files.exists(file)) {
                Files.createFile(file, PosixFilePermissions.asFileAttribute(
                        PosixFilePermissions.fromString("rw-------")));
            }
            return Files.isRegularFile(file) && Files.isReadable(file) && Files.isWritable(file) ? file : null;
        } catch (IOException | InvalidPathException unusable) {
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
