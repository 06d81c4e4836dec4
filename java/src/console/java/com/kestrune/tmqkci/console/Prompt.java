package com.kestrune.tmqkci.console;

import com.kestrune.tmqkci.KciBridge;

import java.io.IOException;
import java.nio.file.Files;
import java.nio.file.InvalidPathException;
import java.nio.file.Path;

/** The console at a terminal: asks for inputs and runs them, until its end. */
final class Prompt {
    private static final String FIRST = "tmqkci> ";
    private static final String WITH_CHANGES = "tmqkci*> ";
    static final String FURTHER = "   ...> ";

    /** Where the lines of inputs come from. */
    interface Lines extends AutoCloseable {
        /** A complete input; empty if it was dropped, null at the end. */
        String read();

        @Override
        void close() throws IOException;
    }

    private Prompt() {
    }

    /** The prompt of an input; it shows whether there are changes to commit. */
    static String first(Evaluator evaluator) {
        return evaluator.hasChanges() ? WITH_CHANGES : FIRST;
    }

    static void run(Evaluator evaluator, boolean quiet) throws IOException {
        String type = System.getenv("TERM");
        boolean poor = type == null || type.isEmpty() || type.equals("dumb");
        try (Lines lines = poor ? new PlainLines(evaluator) : new EditedLines(evaluator)) {
            if (!quiet) {
                evaluator.out.println(Text.wrapped("tmqkci " + Tmqkci.Version.own() + ", client library "
                        + KciBridge.clientVersion() + ", " + evaluator.session + ". :help helps, :quit quits.",
                        evaluator.out.columns(), 0));
            }
            Names names = evaluator.commands().names();
            names.follow();
            while (!evaluator.hasEnded()) {
                String read = lines.read();
                if (read == null) {
                    break;
                }
                String input = Source.joined(read);
                if (!input.isEmpty()) {
                    evaluator.run(Input.typed(input));
                    names.hasRun(input);
                }
            }
        }
    }

    /** A file of this user's in a folder that a variable names, else in one of the home's; null if it has no name. */
    static Path ownFile(String variable, String folderOfHome, String name) {
        String named = System.getenv(variable);
        String home = System.getenv("HOME");
        try {
            return (named != null && named.startsWith("/") ? Path.of(named)
                    : Path.of(home != null ? home : System.getProperty("user.home"), folderOfHome)).resolve("tmqkci")
                    .resolve(name);
        } catch (InvalidPathException unnameable) {
            return null;
        }
    }

    /** Runs what the user wants to be run at the begin. */
    static void runStartupFile(Evaluator evaluator) {
        Path file = ownFile("XDG_CONFIG_HOME", ".config", "startup");
        if (file != null && Files.exists(file)) {
            evaluator.run(Input.typed(":read " + file));
        }
    }
}
