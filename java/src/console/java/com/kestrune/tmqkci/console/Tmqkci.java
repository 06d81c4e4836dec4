package com.kestrune.tmqkci.console;

import com.kestrune.tmqkci.KciBridge;
import com.kestrune.tmqkci.KciInterruptedException;
import com.kestrune.tmqkci.KciSession;
import com.kestrune.tmqkci.TmqKciException;

import java.io.IOException;
import java.io.PrintWriter;
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
import picocli.CommandLine.Parameters;
import picocli.CommandLine.UnmatchedArgumentException;

/** The program {@code tmqkci}. */
@Command(name = "tmqkci", mixinStandardHelpOptions = true, versionProvider = Tmqkci.Version.class, sortOptions = false,
        usageHelpAutoWidth = true, subcommands = Doctor.class,
        customSynopsis = {"tmqkci [OPTION]... [FILE]", "       tmqkci [OPTION]... -e EXPR...",
            "       tmqkci [OPTION]... doctor [OPTION]..."},
        description = {"Evaluates expressions on an object database server and shows their values.",
            "Without -e and FILE, expressions are read from the terminal or from standard input."},
        footer = {"", "Exit status: 0 success, 1 an error of the server, 2 wrong usage, 3 no connection, "
            + "4 results that could not be written, 5 an error of this program.",
            "KESTRUNE names the database installation; without it, the local store inside this program is used.",
            "The option --java HOME before all others, or JAVA32_HOME, names the Java to be used."})
final class Tmqkci implements Callable<Integer> {
    static final int SUCCESS = 0;
    static final int SERVER_ERROR = 1;
    static final int USAGE = 2;
    static final int NO_CONNECTION = 3;
    static final int OUTPUT_LOST = 4;
    static final int INTERNAL_ERROR = 5;
    private static final String STANDARD_INPUT = "-";
    private static final String STOP = "stop";
    private static final String CONTINUE = "continue";
    /** Options that tell an examination what to look at. */
    private static final Set<String> EXAMINED = Set.of("--server", "--net-service", "--user", "--password-file",
            "--host-user", "--host-password-file", "--rpc");

    /** What runs, if not standard input. */
    static final class Inputs {
        @Option(names = {"-e", "--execute"}, paramLabel = "EXPR", description = "evaluate this; can be repeated")
        private List<String> expressions;
        @Option(names = {"-f", "--file"}, paramLabel = "FILE", description = "the same")
        private String option;
        @Parameters(arity = "0..1", paramLabel = "FILE", description = "run what this file holds; - is standard input")
        private String file;
        @Option(names = {"-i", "--interactive"}, description = "go on after errors, which leave the exit status alone, "
                + "as at a terminal")
        private boolean interactive;

        private String file() {
            return option != null ? option : file;
        }
    }

    /** What results look like, if not as they print themselves. */
    static final class Styles {
        @Option(names = "--json", description = "a line of JSON for each result or error")
        private boolean json;
        @Option(names = "--table", description = "show collections as tables")
        private boolean table;
        @Option(names = "--tree", paramLabel = "DEPTH", description = "show objects as trees of this depth")
        private Integer tree;
        @Option(names = "--csv", description = "show collections as comma-separated values")
        private boolean csv;
        @Option(names = "--markdown", description = "show collections as tables for Markdown")
        private boolean markdown;

        private Format.Style style() {
            return json ? Format.Style.JSON : table ? Format.Style.TABLE : tree != null ? Format.Style.TREE
                    : csv ? Format.Style.CSV : markdown ? Format.Style.MARKDOWN : Format.Style.TEXT;
        }
    }

    /** What --on-error can be. */
    static final class OnErrorWords extends ArrayList<String> {
        private static final long serialVersionUID = 1;

        OnErrorWords() {
            super(List.of(STOP, CONTINUE));
        }
    }

    @ArgGroup(exclusive = true)
    private final Inputs inputs = new Inputs();
    @ArgGroup(exclusive = true)
    private final Styles styles = new Styles();
    @Mixin
    private final Login login = new Login();
    @Option(names = "--depth", paramLabel = "COUNT", defaultValue = "3",
            description = "show so many levels of elements in JSON (${DEFAULT-VALUE})")
    private int depth;
    @Option(names = "--limit", paramLabel = "COUNT", defaultValue = "100",
            description = "show so many elements at most (${DEFAULT-VALUE})")
    private int limit;
    @Option(names = "--width", paramLabel = "COLUMNS", defaultValue = "-1",
            description = "cut tables here; 0: nowhere (where the terminal ends)")
    private int width;
    @Option(names = "--text", paramLabel = "COUNT", defaultValue = "-1",
            description = "show so many characters of a text; 0: all (10000 on a terminal)")
    private int text;
    @Option(names = "--time", description = "show how long each expression takes")
    private boolean time;
    @Option(names = "--on-error", paramLabel = "WHAT", description = "stop, as for -e and files, or continue, as for "
            + "standard input", completionCandidates = OnErrorWords.class)
    private String onError;
    @Option(names = "--set", paramLabel = "NAME=TEXT", description = "give a name to a text, which inputs use as "
            + "$${NAME}; can be repeated")
    private Map<String, String> variables = Map.of();
    @Option(names = {"-q", "--quiet"}, description = "greet nobody")
    private boolean quiet;
    @Option(names = "--no-startup", description = "do not run ~/.config/tmqkci/startup first, as a terminal and -i do")
    private boolean noStartup;
    /** What parses the options and tells how they are used. */
    final CommandLine command = new CommandLine(this);

    private final Output out = Output.OUT;
    private final Output err = Output.ERR;

    /**
     * Runs the program.
     *
     * @param args the command line
     */
    public static void main(String[] args) {
        Output err = Output.ERR;
        int status = new Tmqkci().command.setOut(new PrintWriter(Output.OUT.stream(), true))
                .setErr(new PrintWriter(err.stream(), true)).setExpandAtFiles(false)
                .setParameterExceptionHandler((wrong, given) -> {
                    boolean java = wrong instanceof UnmatchedArgumentException unknown
                            && unknown.getUnmatched().stream().anyMatch(word -> word.matches("--java(=.*)?"));
                    err.println("tmqkci: " + (java ? "--java HOME comes before all other options"
                            : wrong.getMessage().replaceFirst("^Error: ", "")));
                    err.println("\"tmqkci --help\" lists the options.");
                    return USAGE;
                }).setExecutionExceptionHandler((failure, failed, given) -> {
                    err.println("tmqkci: internal error: " + failure);
                    return INTERNAL_ERROR;
                }).execute(args);
        if (Output.OUT.isLost()) {
            err.println("tmqkci: cannot write to standard output");
            status = OUTPUT_LOST;
        }
        System.exit(status);
    }

    /** Refuses options before a subcommand that it does not heed; those of a login tell it what to look at. */
    void refuseEvaluationBefore(String subcommand) {
        if (command.getParseResult().matchedOptions().stream()
                .anyMatch(option -> !EXAMINED.contains(option.longestName()))) {
            throw new ParameterException(command.getSubcommands().get(subcommand),
                    "before \"" + subcommand + "\" only options of a login may stand");
        }
    }

    Login login() {
        return login;
    }

    @Override
    public Integer call() throws IOException {
        Format format = format();
        List<Input> given;
        try {
            given = given();
        } catch (IllegalArgumentException unreadable) {
            throw new ParameterException(command, unreadable.getMessage());
        }
        KciSession session;
        try {
            session = login.open(command);
        } catch (TmqKciException error) {
            return refused(Evaluator.fields(error), Evaluator.line(error));
        } catch (UnsatisfiedLinkError error) {
            return refused(Map.of("number", 0, "message", error.getMessage()), error.getMessage());
        }
        Evaluator evaluator = new Evaluator(session, format, out, err);
        try {
            variables.forEach(evaluator.variables::set);
            return run(evaluator, given);
        } catch (IllegalArgumentException unreadable) {
            throw new ParameterException(command, unreadable.getMessage());
        } finally {
            close(session, evaluator.wasInterrupted());
        }
    }

    private Format format() {
        Format format = new Format();
        format.style = styles.style();
        format.time = time;
        format.limit = limit;
        format.depth = styles.tree != null ? styles.tree : depth;
        format.width = width;
        format.text = text;
        try {
            format.check();
        } catch (IllegalArgumentException meaningless) {
            throw new ParameterException(command, "--limit, --depth, --tree: " + meaningless.getMessage());
        }
        if (onError != null && !List.of(STOP, CONTINUE).contains(onError)) {
            throw new ParameterException(command, "--on-error is " + STOP + " or " + CONTINUE + ", not " + onError);
        }
        return format;
    }

    /** What the options say to run; null if that is to be read from standard input. */
    private List<Input> given() {
        if (inputs.expressions != null) {
            return inputs.expressions.stream().map(Input::typed).toList();
        }
        return inputs.file() == null || inputs.file().equals(STANDARD_INPUT) ? null
                : Script.of(Path.of(inputs.file()));
    }

    private int run(Evaluator evaluator, List<Input> given) throws IOException {
        boolean terminal = given == null && inputs.file() == null && Terminals.isTerminal(Terminals.INPUT)
                && out.isTerminal();
        if ((terminal || inputs.interactive) && !noStartup) {
            Prompt.runStartupFile(evaluator);
        }
        if (terminal) {
            Prompt.run(evaluator, quiet);
            return SUCCESS;
        }
        boolean file = given != null || inputs.file() != null;
        Script script = new Script(evaluator, onError != null ? onError.equals(STOP) : file);
        boolean succeeded = given != null ? script.run(given) : script.runStandardInput(!inputs.interactive);
        return succeeded || inputs.interactive ? SUCCESS : SERVER_ERROR;
    }

    private int refused(Map<String, Object> fields, String line) {
        if (styles.json) {
            Map<String, Object> answer = new LinkedHashMap<>();
            answer.put("ok", false);
            answer.put("error", fields);
            Json.print(out.stream(), answer);
        } else {
            err.println(line);
            err.println("No connection. \"tmqkci doctor\" shows what works here and what does not.");
        }
        return NO_CONNECTION;
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
