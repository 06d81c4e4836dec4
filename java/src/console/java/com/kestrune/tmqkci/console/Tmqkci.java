package com.kestrune.tmqkci.console;

import com.kestrune.tmqkci.KciBridge;
import com.kestrune.tmqkci.KciInterruptedException;
import com.kestrune.tmqkci.KciSession;
import com.kestrune.tmqkci.TmqKciException;

import java.io.BufferedReader;
import java.io.IOException;
import java.io.PrintStream;
import java.io.PrintWriter;
import java.nio.charset.CharacterCodingException;
import java.nio.charset.Charset;
import java.nio.charset.StandardCharsets;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.ArrayList;
import java.util.LinkedHashMap;
import java.util.List;
import java.util.Map;
import java.util.Set;
import java.util.concurrent.Callable;

import picocli.CommandLine;
import picocli.CommandLine.ArgGroup;
import picocli.CommandLine.Command;
import picocli.CommandLine.Mixin;
import picocli.CommandLine.Option;
import picocli.CommandLine.ParameterException;
import picocli.CommandLine.UnmatchedArgumentException;

/** The program {@code tmqkci}. */
@Command(name = "tmqkci", mixinStandardHelpOptions = true, versionProvider = Tmqkci.Version.class, sortOptions = false,
        usageHelpAutoWidth = true, subcommands = Doctor.class,
        description = {"Evaluates expressions on an object database server and shows their values.",
            "Without -e and -f, expressions are read from the terminal or from standard input."},
        footer = {"", "Exit status: 0 success, 1 an error of the server, 2 wrong usage, 3 no connection,",
            "4 results that could not be written, 5 an error of this program.",
            "KESTRUNE names the database installation; without it, the local store inside this program is used.",
            "JAVA32_HOME, or the option --java HOME before all others, names the 32-bit Java."})
final class Tmqkci implements Callable<Integer> {
    static final int SUCCESS = 0;
    static final int SERVER_ERROR = 1;
    static final int USAGE = 2;
    static final int NO_CONNECTION = 3;
    static final int OUTPUT_LOST = 4;
    static final int INTERNAL_ERROR = 5;
    private static final int DEEPEST_TREE = 999;
    private static final Set<String> EVALUATION = Set.of("--execute", "--file", "--interactive", "--json", "--table",
            "--tree", "--limit", "--time");

    /** What runs, if not standard input. */
    static final class Inputs {
        @Option(names = {"-e", "--execute"}, paramLabel = "EXPR", description = "evaluate this; can be repeated")
        private List<String> expressions;
        @Option(names = {"-f", "--file"}, paramLabel = "FILE", description = "evaluate what this file holds")
        private Path file;
        @Option(names = {"-i", "--interactive"}, description = "go on after errors, which leave the exit status alone, "
                + "as at a terminal")
        private boolean interactive;
    }

    @ArgGroup(exclusive = true)
    private final Inputs inputs = new Inputs();
    @Mixin
    private final Login login = new Login();
    @Option(names = "--json", description = "a line of JSON for each result or error")
    private boolean json;
    @Option(names = "--table", description = "show collections as tables")
    private boolean table;
    @Option(names = "--tree", paramLabel = "DEPTH", description = "show objects as trees of this depth")
    private int treeDepth;
    @Option(names = "--limit", paramLabel = "COUNT", defaultValue = "100",
            description = "show so many elements at most (${DEFAULT-VALUE})")
    private int limit;
    @Option(names = "--time", description = "show how long each expression takes")
    private boolean time;
    /** What parses the options and tells how they are used. */
    private final CommandLine command = new CommandLine(this);

    private final PrintStream out = Terminals.out();
    private final PrintStream err = Terminals.err();

    /**
     * Runs the program.
     *
     * @param args the command line
     */
    public static void main(String[] args) {
        PrintStream err = Terminals.err();
        int status = new Tmqkci().command.setOut(new PrintWriter(Terminals.out(), true))
                .setErr(new PrintWriter(err, true)).setExpandAtFiles(false)
                .setParameterExceptionHandler((wrong, given) -> {
                    boolean java = wrong instanceof UnmatchedArgumentException unknown
                            && unknown.getUnmatched().stream().anyMatch(word -> word.matches("--java(=.*)?"));
                    err.println("tmqkci: " + (java ? "--java HOME comes before all other options" : wrong.getMessage()));
                    err.println("\"tmqkci --help\" lists the options.");
                    return USAGE;
                }).setExecutionExceptionHandler((failure, failed, given) -> {
                    err.println("tmqkci: internal error: " + failure);
                    return INTERNAL_ERROR;
                }).execute(args);
        if (Terminals.out().checkError()) {
            err.println("tmqkci: cannot write to standard output");
            status = OUTPUT_LOST;
        }
        System.exit(status);
    }

    /** Refuses options before a subcommand that it does not heed; those of a login tell it what to look at. */
    void refuseEvaluationBefore(String subcommand) {
        if (command.getParseResult().matchedOptions().stream()
                .anyMatch(option -> EVALUATION.contains(option.longestName()))) {
            throw new ParameterException(command.getSubcommands().get(subcommand),
                    "before \"" + subcommand + "\" only options of a login may stand");
        }
    }

    @Override
    public Integer call() throws IOException {
        if (limit < 1 || treeDepth < 0 || treeDepth > DEEPEST_TREE) {
            throw new ParameterException(command, "--limit must be positive, and --tree from 0 to " + DEEPEST_TREE);
        }
        if (table && treeDepth > 0) {
            throw new ParameterException(command, "--table and --tree exclude each other");
        }
        List<String> given = given();
        KciSession session;
        try {
            session = login.open(command);
        } catch (TmqKciException error) {
            return refused(error, Evaluator.fields(error), Evaluator.line(error));
        } catch (UnsatisfiedLinkError error) {
            return refused(error, Map.of("number", 0, "message", error.getMessage()), error.getMessage());
        }
        Evaluator.Format format = new Evaluator.Format();
        format.json = json;
        format.time = time;
        format.table = table;
        format.treeDepth = treeDepth;
        format.limit = limit;
        Evaluator evaluator = new Evaluator(session, format, out, err);
        try {
            if (given != null) {
                return runAll(evaluator, given);
            }
            if (Terminals.isTerminal(Terminals.INPUT) && Terminals.isTerminal(Terminals.OUTPUT)) {
                new Prompt(session, evaluator, out).run();
                return SUCCESS;
            }
            return runStandardInput(evaluator);
        } finally {
            close(session, evaluator.wasInterrupted());
        }
    }

    private int refused(Throwable error, Map<String, Object> fields, String line) {
        if (json) {
            Map<String, Object> answer = new LinkedHashMap<>();
            answer.put("ok", false);
            answer.put("error", fields);
            Json.print(out, answer);
        } else {
            err.println(line);
            err.println("No connection. \"tmqkci doctor\" shows what works here and what does not.");
        }
        return NO_CONNECTION;
    }

    /** What the options say to run; null if that is to be read. */
    private List<String> given() {
        if (inputs.expressions != null) {
            return inputs.expressions;
        }
        if (inputs.file == null) {
            return null;
        }
        List<String> all = new ArrayList<>();
        try (BufferedReader in = Source.reader(Files.newInputStream(inputs.file), StandardCharsets.UTF_8)) {
            for (String input = Source.read(in); input != null; input = Source.read(in)) {
                all.add(input);
            }
        } catch (IOException unreadable) {
            throw unreadable(inputs.file.toString(), StandardCharsets.UTF_8, unreadable);
        }
        return all;
    }

    private ParameterException unreadable(String name, Charset charset, IOException failure) {
        return new ParameterException(command, failure instanceof CharacterCodingException
                ? name + " is not " + charset + " text" : "cannot read " + name + ": " + Terminals.reason(failure));
    }

    /** The first error ends it. */
    private static int runAll(Evaluator evaluator, List<String> given) {
        for (String input : given) {
            if (!evaluator.run(input)) {
                return SERVER_ERROR;
            }
            if (evaluator.hasEnded()) {
                break;
            }
        }
        return SUCCESS;
    }

    private int runStandardInput(Evaluator evaluator) {
        int status = SUCCESS;
        try (BufferedReader in = Source.reader(Terminals.in(), Terminals.charset())) {
            while (!evaluator.hasEnded()) {
                String input = Source.read(in);
                if (input == null) {
                    break;
                }
                if (!evaluator.run(input) && !inputs.interactive) {
                    status = SERVER_ERROR;
                }
            }
        } catch (IOException unreadable) {
            throw unreadable("standard input", Terminals.charset(), unreadable);
        }
        return status;
    }

    /** A logout would wait for a call that still runs on the server; one that was given up is not waited for long. */
    private void close(KciSession session, boolean afterInterrupt) {
        if (afterInterrupt) {
            Thread.currentThread().interrupt();
        }
        try {
            session.close();
        } catch (KciInterruptedException stillBusy) {
            // The end of this process ends the session.
        } catch (TmqKciException error) {
            err.println("While logging out: " + Evaluator.line(error));
        }
    }

    /** The versions of the console and of the Java that runs it. */
    static final class Version implements CommandLine.IVersionProvider {
        @Override
        public String[] getVersion() {
            return new String[] {"tmqkci " + own(), "Java " + System.getProperty("java.version") + ", "
                    + System.getProperty("os.arch")};
        }

        static String own() {
            String version = KciBridge.class.getPackage().getImplementationVersion();
            return version != null ? version : "of a build folder";
        }
    }
}
